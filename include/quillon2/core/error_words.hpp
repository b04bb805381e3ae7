// The vocabulary of error codes: the words of the four parts of an error sentence
// ("FailedTo Open File"), their enumerations and their printed form.
//
// Each word table is an X-macro: X(word) for every word, in index order. The same table
// gives the enumerators, the printed words and the members of the grammar objects in
// <quillon2/core/error_code.hpp>, so the three can never drift apart. The printed word
// is the enumerator's own spelling. All words are plain identifiers of this library; no
// enumerator collides with a keyword or a common macro.
#pragma once

#include <cstdint>

#include <quillon2/export.hpp>

// clang-format off
// Actions, index 0 first. Action 0, "A", names no action and is not printed.
#define QUILLON2_ERROR_ACTION_WORDS(X) \
  X(A) X(Access) X(Add) X(Attach) X(Attribute) X(Block) X(Calculate) X(Call) X(Change) \
  X(Check) X(Clear) X(Close) X(Compile) X(Complete) X(Concatenate) X(Continue) \
  X(Convert) X(Copy) X(Create) X(Debug) X(Detach) X(Enqueue) X(Evaluate) X(Execute) \
  X(Filter) X(Find) X(Format) X(Get) X(Initialize) X(Is) X(Join) X(Link) X(List) X(Load) \
  X(Make) X(Match) X(Map) X(Open) X(Output) X(Parse) X(Prepare) X(Process) X(Profile) \
  X(Query) X(Read) X(Reduce) X(Register) X(Remove) X(Rename) X(Resize) X(Save) X(Seek) \
  X(Send) X(Set) X(Start) X(Stop) X(Swap) X(Sync) X(Terminate) X(Unwind) X(Wait) X(Walk) \
  X(Write)

// Adjectives: the first 49 descriptions. "The" (index 44) is not printed.
#define QUILLON2_ERROR_ADJECTIVE_WORDS(X) \
  X(Any) X(Basic) X(Best) X(Bulk) X(Cancelled) X(Contiguous) X(Corrupted) X(Critical) \
  X(Custom) X(Default) X(Derived) X(Discrete) X(Dynamic) X(Empty) X(Enough) X(Existing) \
  X(Expected) X(Fake) X(First) X(Flat) X(Float) X(Full) X(Generic) X(Global) \
  X(Hierarchical) X(Implemented) X(Initialized) X(Integer) X(Last) X(Lite) X(Loaded) \
  X(Lower) X(Main) X(Native) X(Plain) X(Positive) X(Protected) X(Quick) X(Readonly) \
  X(Rich) X(Safe) X(Simple) X(Single) X(Supported) X(The) X(This) X(Top) X(Valid) \
  X(Visible)

// Objects, index 0 first. They also follow the adjectives as descriptions, so that a
// noun can qualify a noun ("FailedTo Create File Mapping").
#define QUILLON2_ERROR_OBJECT_WORDS(X) \
  X(Action) X(Architecture) X(Archive) X(Argument) X(Array) X(Attribute) X(Base) \
  X(Block) X(Calculator) X(Call) X(Case) X(Chain) X(Class) X(Code) X(Color) X(Column) \
  X(Command) X(Component) X(Condition) X(Container) X(Content) X(Context) X(Control) \
  X(Controller) X(Count) X(Data) X(Database) X(Definition) X(Depth) X(Directory) \
  X(Editor) X(Element) X(Engine) X(Entry) X(Event) X(Expression) X(Factory) X(File) \
  X(Filter) X(Font) X(Format) X(Frame) X(Function) X(Grouping) X(Handle) X(Handler) \
  X(Hash) X(Header) X(Helper) X(Hierarchy) X(Histogram) X(Holder) X(Identifier) X(Image) \
  X(Implementation) X(Index) X(Info) X(Interface) X(Item) X(Iterator) X(Key) X(Layer) \
  X(Level) X(Library) X(License) X(List) X(Loader) X(Manager) X(Map) X(Mapping) \
  X(Memory) X(Message) X(Method) X(Mode) X(Model) X(Module) X(Name) X(Node) \
  X(Notification) X(Object) X(Operation) X(Page) X(Parameter) X(Parent) X(Parser) \
  X(Path) X(Pattern) X(Pipe) X(Platform) X(Pointer) X(Pool) X(Privilege) X(Process) \
  X(Project) X(Property) X(Provider) X(Query) X(Range) X(Reference) X(Regexp) X(Region) \
  X(Register) X(Resource) X(Result) X(Retriever) X(Row) X(Schema) X(Script) X(Section) \
  X(Selection) X(Sequence) X(Site) X(Situation) X(Size) X(Snapshot) X(Space) X(State) \
  X(Stream) X(String) X(Syntax) X(System) X(Table) X(Target) X(Text) X(Thread) X(Time) \
  X(Tree) X(Type) X(Unit) X(User) X(Value) X(View) X(Window) X(Wrapper)
// clang-format on

#define QUILLON2_ERROR_ENUMERATOR(word) word,

namespace quillon2::error {

// The kind of sentence: "IsNot <description> <object>" or "FailedTo <action> ...".
enum class error_type_t : std::uint32_t { IsNot, FailedTo, last };

enum class error_action_t : std::uint32_t {
  QUILLON2_ERROR_ACTION_WORDS(QUILLON2_ERROR_ENUMERATOR) last
};

enum class error_desc_t : std::uint32_t {
  QUILLON2_ERROR_ADJECTIVE_WORDS(QUILLON2_ERROR_ENUMERATOR)
      QUILLON2_ERROR_OBJECT_WORDS(QUILLON2_ERROR_ENUMERATOR) last
};

enum class error_object_t : std::uint32_t {
  QUILLON2_ERROR_OBJECT_WORDS(QUILLON2_ERROR_ENUMERATOR) last
};

static_assert(static_cast<std::uint32_t>(error_action_t::last) == 63);
static_assert(static_cast<std::uint32_t>(error_desc_t::The) == 44);
static_assert(static_cast<std::uint32_t>(error_desc_t::Action) == 49);
static_assert(static_cast<std::uint32_t>(error_desc_t::last) == 183);
static_assert(static_cast<std::uint32_t>(error_object_t::last) == 134);

// The printed word of an index, "last" for the end marker, or null for an index beyond
// it (which error::code() can produce, since it only masks to the field width).
QUILLON2_API char const* type_word(error_type_t) noexcept;
QUILLON2_API char const* action_word(error_action_t) noexcept;
QUILLON2_API char const* description_word(error_desc_t) noexcept;
QUILLON2_API char const* object_word(error_object_t) noexcept;

}  // namespace quillon2::error
