// Bags as event streams: the walk of a bag, the builder, the XML writer visitor, the
// readers of XML into visitors, and RELAX NG checks.
#include <stdexcept>

#include "das/das_support.hpp"

using namespace das_test;

namespace {

// "type:text" of a value, for comparing event logs.
std::string describe(variant_t const& value) {
  if (value.get_type() == vtWString) return "w:" + narrow(value.get<wchar_t const*>());
  return std::to_string(value.get_type()) + ":" +
         narrow(get_value_string(value).get<wchar_t const*>());
}

// Writes every event into a log; answers false from the event numbered `refuse_at`.
class recorder_t : public variant_bag_visitor_t {
 public:
  bool on_start_variant_bag(char const* name) override {
    return note("start " + std::string(name));
  }
  bool on_end_variant_bag() override { return note("end"); }
  bool on_start_pointer(char const* name, char const* type_id, char const* ptr_type) override {
    return note("pointer " + std::string(name) + " " + type_id + " " + ptr_type);
  }
  bool on_end_pointer() override { return note("end pointer"); }
  bool on_variant(char const* name, variant_t const& value) override {
    return note("value " + std::string(name) + "=" + describe(value));
  }
  std::vector<std::string> log;
  std::size_t refuse_at = SIZE_MAX;

 private:
  bool note(std::string const& event) {
    log.push_back(event);
    return log.size() - 1 != refuse_at;
  }
};

template <class T = recorder_t>
sptr_t<T> make() {
  return sptr_t<T>(new ref_counted_t<T>());
}

class throwing_t : public recorder_t {
 public:
  bool on_variant(char const*, variant_t const&) override { throw std::runtime_error("no"); }
};

using log_t = std::vector<std::string>;
std::string const k_probe = "dasID_das_test::probe_t";

std::string xml_of(sptr_t<variant_bag_visitor_to_xml_t> const& visitor) {
  std::string out;
  EXPECT_EQ(1, visitor->to_xml_string(out));
  return out;
}

class VisitorFile : public file_test {};

}  // namespace

TEST(DumpVariantBag, ValuesAndPointersInBagOrderThenChildBagsUntilAFailure) {
  variant_bag_t bag;
  bag.add_variant_bag(L"c", variant_bag_t()).add(L"x", variant_t(1.5));
  bag.add(L"a", variant_t(1));
  bag.add(L"p", variant_t(notype_ptr_t()));
  bag.add(L"b", variant_t(L"text", false));
  bag.add(L"q", variant_t(probe(7)));
  bag.add(L"#hidden", variant_t(2));
  bag.add_variant_bag(L"d", variant_bag_t());
  auto recorder = make();
  EXPECT_EQ(1, dump_variant_bag(bag, recorder));
  EXPECT_EQ(recorder->log,
            (log_t{"value a=6:1", "pointer p dasID_None ", "end pointer", "value b=w:text",
                   "pointer q " + k_probe + " " + k_probe, "value x=6:7", "end pointer", "start c",
                   "value x=11:1.5", "end", "start d", "end"}));
  // False from the visitor, or an object that can't save, ends the walk.
  recorder = make();
  recorder->refuse_at = 8;
  EXPECT_EQ(k_failure, dump_variant_bag(bag, recorder));
  EXPECT_EQ(9u, recorder->log.size());
  bag.add(L"r", variant_t(probe(1, 0x40000123)));
  recorder = make();
  EXPECT_EQ(0x40000123, dump_variant_bag(bag, recorder));
  EXPECT_EQ(7u, recorder->log.size());
}

TEST(DumpVariantBag, NamesReachTheVisitorWholeWhateverCameBefore) {
  // Long names before short ones, and names beyond ASCII between them: each arrives as
  // itself, in UTF-8.
  std::wstring const long_name(70, L'n');
  variant_bag_t bag;
  for (wchar_t const* name :
       {long_name.c_str(), L"b", L"gr\u00fc\u00df", L"c", L"\U0001F600x", L"de"})
    bag.add(name, variant_t(1));
  bag.add_variant_bag(long_name.c_str() + 60, variant_bag_t());
  bag.add_variant_bag(L"e", variant_bag_t());
  auto recorder = make();
  EXPECT_EQ(1, dump_variant_bag(bag, recorder));
  EXPECT_EQ(recorder->log,
            (log_t{"value " + std::string(70, 'n') + "=6:1", "value b=6:1",
                   "value gr\xc3\xbc\xc3\x9f=6:1", "value c=6:1", "value \xf0\x9f\x98\x80x=6:1",
                   "value de=6:1", "start nnnnnnnnnn", "end", "start e", "end"}));
}

TEST(VariantBagBuilder, RebuildsRepeatedValuesAsTheLastAndPointersAsProxies) {
  variant_bag_t source;
  source.add_variant_bag(L"c", variant_bag_t()).add(L"x", variant_t(1));
  source.add(L"a", variant_t(1));
  source.add(L"a", variant_t(2));
  source.add(L"q", variant_t(probe(9)));
  variant_bag_t target = bag_of(L"old", variant_t(0));
  auto builder = create_variant_bag_builder(target);
  EXPECT_TRUE(target.is_empty());
  EXPECT_EQ(1, dump_variant_bag(source, builder));
  source.put(L"a", variant_t(2));
  source.put(L"q", variant_t(probe(9)));
  EXPECT_TRUE(target == source);
  auto object = target.get<notype_ptr_t>(L"q")->get<probe_t>();  // the proxy gives way
  ASSERT_TRUE(object);
  EXPECT_EQ(9, object->m_x);
}

TEST(VariantBagBuilder, UnbalancedEndsAreReportedAndChangeNothing) {
  q2test::assert_recorder_t asserts;
  variant_bag_t target;
  auto builder = create_variant_bag_builder(target);
  EXPECT_FALSE(builder->on_end_variant_bag());
  EXPECT_TRUE(asserts.saw("!m_bag_stack.empty()"));
  EXPECT_TRUE(builder->on_variant("y", variant_t(2)));
  EXPECT_TRUE(target.has<variant_t>(L"y"));
}

TEST(VisitorToXml, TheFirstBagNamesTheRootAndNamesSplitAtOneColonOnly) {
  auto visitor = create_visitor_to_xml(nullptr);
  EXPECT_TRUE(visitor->on_variant("early", variant_t(L"1", false)));
  EXPECT_TRUE(visitor->on_start_variant_bag("top"));
  EXPECT_TRUE(visitor->on_variant("a:b:c", variant_t(L"v", false)));
  EXPECT_TRUE(visitor->on_variant("xsl:mode", variant_t(L"m", false)));
  EXPECT_TRUE(visitor->on_variant("own:n", variant_t(L"o", false)));
  EXPECT_TRUE(visitor->on_start_variant_bag("inner"));
  EXPECT_TRUE(visitor->on_end_variant_bag());
  EXPECT_EQ(
      "\n<top xmlns:xsl=\"http://www.w3.org/1999/XSL/Transform\" early=\"1\" a:b:c=\"v\" "
      "xsl:mode=\"m\" own:n=\"o\">\n <inner/>\n</top>\n",
      xml_of(visitor));
  std::string out;
  EXPECT_EQ(k_failure, create_visitor_to_xml(nullptr)->to_xml_string(out));
  visitor = create_visitor_to_xml("x");
  EXPECT_TRUE(visitor->on_variant("", variant_t(5)));
  EXPECT_EQ("\n<int:x xmlns:int=\"http://www.w3.org/2001/XMLSchema#int\">5</int:x>\n",
            xml_of(visitor));
}

TEST(VisitorToXml, RootPathStepsNestAndPointersNeedNoDeclaration) {
  auto visitor = create_visitor_to_xml("a.b");
  // The pointer's element is "pointer:" and the local part of its name.
  EXPECT_TRUE(visitor->on_start_pointer("boolean:p", "T", "U"));
  EXPECT_TRUE(visitor->on_variant("v", variant_t(L"1", false)));
  EXPECT_TRUE(visitor->on_end_pointer());
  EXPECT_TRUE(visitor->on_variant("v", variant_t(L"first", false)));  // keeps its place
  EXPECT_TRUE(visitor->on_variant("w", variant_t(true)));
  EXPECT_TRUE(visitor->on_variant("v", variant_t(L"last", false)));
  EXPECT_EQ(
      "\n<a xmlns:boolean=\"http://www.w3.org/2001/XMLSchema#boolean\">\n"
      " <b v=\"last\" boolean:w=\"true\">\n"
      "  <pointer:p pointer:type_id=\"T\" pointer:ptr_type=\"U\" v=\"1\"/>\n"
      " </b>\n"
      "</a>\n",
      xml_of(visitor));
}

TEST(VisitorToXml, RefusedEventsLeaveTheDocumentAsItWas) {
  q2test::assert_recorder_t asserts;
  auto visitor = create_visitor_to_xml("r");
  EXPECT_FALSE(visitor->on_variant("a<b", variant_t(L"v", false)));
  EXPECT_FALSE(visitor->on_variant("t", variant_t(L"bell\a", false)));
  EXPECT_FALSE(visitor->on_start_pointer("p", "bad\x01type", ""));
  EXPECT_TRUE(visitor->on_variant("#hidden", variant_t(1)));
  // Types without an attribute form are reported and written empty.
  EXPECT_TRUE(visitor->on_variant("narrow", variant_t("old text")));
  EXPECT_EQ(1u, asserts.count());
  EXPECT_EQ("\n<r narrow=\"\"/>\n", xml_of(visitor));
  // After the root is closed events fail, but printing still works.
  EXPECT_TRUE(visitor->on_end_variant_bag());
  EXPECT_FALSE(visitor->on_variant("a", variant_t(1)));
  EXPECT_TRUE(asserts.saw("m_current_tag_ptr"));
  EXPECT_EQ("\n<r narrow=\"\"/>\n", xml_of(visitor));
}

TEST_F(VisitorFile, WritesAndReadsFilesInTheirOwnEncoding) {
  auto visitor = create_visitor_to_xml("r");
  EXPECT_TRUE(visitor->on_variant("t", variant_t(L"gr\u00fc\u00df", false)));
  std::wstring const file = name("latin.xml");
  ASSERT_EQ(1, visitor->to_xml_file(file.c_str(), "ISO-8859-1"));
  std::string const bytes = q2test::read_file(m_dir.file("latin.xml"));
  EXPECT_EQ("<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?>\n<r t=\"gr\xfc\xdf\"/>\n", bytes);
  // An encoding that does not exist fails and leaves the file as it was.
  EXPECT_EQ(k_failure, visitor->to_xml_file(file.c_str(), "NO-SUCH-ENCODING"));
  EXPECT_EQ(bytes, q2test::read_file(m_dir.file("latin.xml")));

  auto recorder = make();
  EXPECT_EQ(1, read_xml_file_to_visitor(file.c_str(), recorder.get(), "r"));
  EXPECT_EQ(recorder->log, (log_t{"value t=w:gr\u00fc\u00df"}));
}

TEST(ReadXmlToVisitor, AttributesInPrefixOrderAndTextAfterChildren) {
  auto recorder = make();
  recorder->refuse_at = 0;  // false from the visitor does not stop the parse
  char const* xml =
      "<doc xmlns:int='i' zeta='z' int:n='4' alpha=' a '>\n head <int:v>5</int:v> "
      "<pointer:p pointer:type_id='T' pointer:ptr_type='U' x='1'/><own:e xmlns:own='o'/> tail"
      "<boolean:b>maybe</boolean:b><blob:c/>\t</doc>";
  EXPECT_EQ(1, read_xml_to_visitor(xml, recorder.get(), nullptr));
  EXPECT_EQ(recorder->log, (log_t{"start doc", "value alpha=w: a ", "value zeta=w:z", "value n=6:4",
                                  "start v", "value =6:5", "end", "pointer p T U", "value x=w:1",
                                  "end pointer", "start own:e", "end", "start b", "value =w:maybe",
                                  "end", "start blob:c", "end", "value =w:head   tail", "end"}));
}

TEST(ReadXmlToVisitor, IllFormedXmlOrAThrowingVisitorFailAfterTheEventsSoFar) {
  auto recorder = make();
  EXPECT_EQ(k_failure, read_xml_to_visitor("<a x='1'><b y='2'></a>", recorder.get(), nullptr));
  EXPECT_EQ(recorder->log, (log_t{"start a", "value x=w:1", "start b", "value y=w:2"}));
  EXPECT_EQ(k_failure, read_xml_to_visitor(nullptr, recorder.get(), nullptr));
  EXPECT_EQ(k_failure, read_xml_to_visitor("<only>", nullptr, nullptr));
  auto thrower = make<throwing_t>();
  EXPECT_EQ(k_failure, read_xml_to_visitor("<a x='1'><b/></a>", thrower.get(), nullptr));
  EXPECT_EQ(thrower->log, (log_t{"start a"}));
}

namespace {

char const k_rng[] = "http://relaxng.org/ns/structure/1.0";
char const k_schema[] =
    "<element name='config' xmlns='http://relaxng.org/ns/structure/1.0'>"
    "  <attribute name='version'/>"
    "  <zeroOrMore><element name='item'><text/></element></zeroOrMore>"
    "</element>";

class messages_t : public check_relaxng_callback_t {
 public:
  void on_message(int severity, char const* message) override {
    if (severity == 1) errors.push_back(message);
  }
  std::vector<std::string> errors;
};

}  // namespace

TEST(CheckRelaxNg, ValidDocumentsPassAndInvalidOnesAreExplained) {
  messages_t messages;
  EXPECT_EQ(1, check_relaxng("<config version='1'><item>a</item></config>", k_schema, &messages));
  EXPECT_EQ(k_failure, check_relaxng("<config><stray/></config>", k_schema, &messages));
  for (std::string const& message : messages.errors) EXPECT_LT(message.size(), 1024u);
  std::wstring const schema = wide(k_schema);
  EXPECT_EQ(1, check_relaxng(L"<config version='\u00e9'/>", schema.c_str(), nullptr));
  EXPECT_EQ(k_failure, check_relaxng(L"<config/>", schema.c_str(), nullptr));
}

TEST_F(VisitorFile, BrokenSchemasAndDocumentsFailAndSchemasCanNotReachForFiles) {
  messages_t messages;
  EXPECT_EQ(k_failure, check_relaxng("<config version='1'/>", "<element name=", &messages));
  EXPECT_FALSE(messages.errors.empty());
  EXPECT_EQ(k_failure, check_relaxng(static_cast<char const*>(nullptr), k_schema, nullptr));
  std::string const bomb =
      entity_bomb("config", 'k', 16) + "<config version='&k;'><item>&k;</item></config>";
  EXPECT_EQ(k_failure, check_relaxng(bomb.c_str(), k_schema, nullptr));
  q2test::write_file(m_dir.file("part.rng"), "<element name='config' xmlns='" + std::string(k_rng) +
                                                 "'><empty/></element>");
  std::string const schema =
      "<externalRef href='file://" + m_dir.file("part.rng") + "' xmlns='" + k_rng + "'/>";
  EXPECT_EQ(k_failure, check_relaxng("<config/>", schema.c_str(), nullptr));
}
