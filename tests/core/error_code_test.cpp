// Error codes: the grammar and its bit layout, Ok, False and raised errors, the per-thread
// list, printing of chains, the exception and carrying errors across threads.

#include "core/core_support.hpp"

namespace {

using quillon2::error_code_t;
namespace error = quillon2::error;
using ErrorCodeTest = q2test::error_list_test;

// Every word, at each place it can take in the tree, gives the field that prints it.
#define CHECK_ACTION(word) \
  EXPECT_STREQ(#word, error::action_word(error::FailedTo.word.The.File.get_action()));
#define CHECK_DESCRIPTION(word)                                                             \
  EXPECT_STREQ(#word, error::description_word(error::IsNot.word.Action.get_description())); \
  EXPECT_STREQ(#word,                                                                       \
               error::description_word(error::FailedTo.Write.word.Wrapper.get_description()));
#define CHECK_OBJECT(word)                                                     \
  EXPECT_STREQ(#word, error::object_word(error::IsNot.The.word.get_object())); \
  EXPECT_STREQ(#word, error::object_word(error::FailedTo.Process.Last.word.get_object()));
// clang-format off
TEST(ErrorGrammar, EveryWordNamesItsOwnField) {
  QUILLON2_ERROR_ACTION_WORDS(CHECK_ACTION)
  QUILLON2_ERROR_ADJECTIVE_WORDS(CHECK_DESCRIPTION)
  QUILLON2_ERROR_OBJECT_WORDS(CHECK_DESCRIPTION)
  QUILLON2_ERROR_OBJECT_WORDS(CHECK_OBJECT)
}
// clang-format on
#undef CHECK_ACTION
#undef CHECK_DESCRIPTION
#undef CHECK_OBJECT

TEST(ErrorGrammar, CallingACodeGivesItsTextAndEqualityLooksOnlyAtTheWords) {
  error::code_t const plain = error::IsNot.Valid.Argument();
  EXPECT_EQ("", plain.text + plain.function + plain.file);
  EXPECT_EQ("", error::FailedTo.Open.The.File(static_cast<wchar_t const*>(nullptr)).text);
  // Wide text is stored as UTF-8, narrow text is copied as it is.
  EXPECT_EQ("gr\xC3\xBC \xF0\x9F\x98\x80", error::IsNot.Valid.Path(L"gr\u00FC \U0001F600").text);
  EXPECT_EQ(std::string("a\0b", 3), error::IsNot.Valid.Path(std::string("a\0b", 3)).text);
  error::code_t a = error::FailedTo.Read.The.File("one");
  error::code_t b = error::FailedTo.Read.The.File(L"two");
  b.line = 7;
  b.cause = &a;
  EXPECT_TRUE(a == b);
  EXPECT_NE(error::FailedTo.Read.The.File, error::FailedTo.Read.This.File);
  EXPECT_NE(error::IsNot.Valid.Path, error::FailedTo.A.Valid.Path);
}

TEST_F(ErrorCodeTest, OkFalseAndRealErrorsAreThreeKinds) {
  error_code_t const ok, no = error_code_t::False();
  EXPECT_EQ("Ok False", ok.as_string(3) + " " + no.as_string(3));
  EXPECT_TRUE(!ok.failed() && ok.succeeded() && ok && !no.failed() && no.succeeded() && no);
  EXPECT_FALSE(ok == error::IsNot.Any.Action);  // the all-zero code is not Ok
  EXPECT_FALSE(no == ok);
  error_code_t const first = error_code_t::raise(error::IsNot.Valid.Size("1"));
  error::code_t const kept = *first.pass();  // the next raise clears the list
  error_code_t const real = error_code_t::raise(error::IsNot.Valid.Size("2"));
  EXPECT_TRUE(real.failed() && !real.succeeded() && !real);
  EXPECT_TRUE(real == error_code_t(&kept) && real == kept && error::IsNot.Valid.Size == real);
  EXPECT_TRUE(real != error::IsNot.Valid.State);
  EXPECT_FALSE(no == real || real == no || no == error::IsNot.Valid.Size);
  EXPECT_FALSE(error_code_t() == kept || error_code_t::False() == kept);
}

TEST_F(ErrorCodeTest, RaiseStoresACopyAndStartsAFreshListThatTranslateKeeps) {
  error::code_t const code = error::FailedTo.Open.The.File("a.txt");
  error::code_t const* stored = error_code_t::raise(code, "ns::open", "open.cpp", 42);
  ASSERT_NE(&code, stored);
  EXPECT_EQ(stored, error_code_t::get_last().pass());
  // Re-raising an element of the list copies it before the list is emptied.
  error::code_t const* blank = error_code_t::raise(*stored, nullptr, nullptr, 0);
  EXPECT_EQ("a.txt0", blank->text + blank->function + blank->file + std::to_string(blank->line));
  EXPECT_EQ(nullptr, blank->cause);

  error_code_t const a = error_code_t::raise(error::IsNot.Valid.Argument(), "f", "f.cpp", 1);
  error_code_t const b = a.translate(error::FailedTo.Read.Full.Data(), "g", "g.cpp", 2);
  EXPECT_EQ(a.pass(), b.pass()->cause);
  EXPECT_EQ("f", a.pass()->function);  // still valid after the append
  // A translation of an older element still chains to the latest one.
  EXPECT_EQ(b.pass(), a.translate(error::FailedTo.Close.The.Stream())->cause);
  // On Ok, translate raises.
  error_code_t const from_ok = error_code_t().translate(error::FailedTo.Open.The.Stream());
  EXPECT_EQ("FailedTo Open Stream", from_ok.as_string(1));
  error_code_t::clean_last();
  EXPECT_EQ(nullptr, error_code_t::get_last().pass());
}

TEST_F(ErrorCodeTest, TranslateWithoutAListAssertsAndStandsAlone) {
  q2test::assert_recorder_t recorder;
  error::code_t const foreign = error::IsNot.Valid.State();
  error_code_t const result = error_code_t(&foreign).translate(error::FailedTo.Stop.Thread.Array());
  EXPECT_EQ(std::vector<std::string>{"!errors.empty()"}, recorder.conditions());
  EXPECT_EQ("FailedTo Stop Thread Array", result.as_string(1));
}

TEST_F(ErrorCodeTest, EachThreadHasItsOwnList) {
  error_code_t const mine = error_code_t::raise(error::FailedTo.Check.The.Thread("main"));
  std::vector<std::string> seen(4);
  q2test::on_threads(4, [&](int t) {
    seen[t] = error_code_t::get_last().as_string(1);  // nothing raised here yet
    error_code_t chain = error_code_t::raise(error::IsNot.Valid.Identifier());
    for (int round = 0; round < 200; ++round) {
      chain = chain.translate(error::FailedTo.Execute.The.Operation(std::to_string(round)));
    }
    int length = 0;
    for (error::code_t const* e = chain.pass(); e != nullptr; e = e->cause) ++length;
    if (length != 201 || chain.pass()->cause->text != "198") seen[t] += " broken";
  });
  EXPECT_EQ(std::vector<std::string>(4, "Ok"), seen);
  EXPECT_EQ(mine.pass(), error_code_t::get_last().pass());
}

TEST_F(ErrorCodeTest, PrintsAChainWithEachFlag) {
  error_code_t const a =
      error_code_t::raise(error::IsNot.Valid.Argument("x"), "ns::check", "check.cpp", 10);
  error_code_t const b = a.translate(error::FailedTo.Read.Full.Data(), nullptr, nullptr, 0);
  error_code_t const top =
      b.translate(error::FailedTo.Open.The.Archive("z.zip"), "ns::open", "zip.cpp", 30);
  EXPECT_EQ("ns::open: FailedTo Open Archive(z.zip)", top.as_string(0));
  EXPECT_EQ(
      "ns::open: FailedTo Open Archive(z.zip) <- FailedTo Read Full Data <- "
      "ns::check: IsNot Valid Argument(x)",
      top.as_string(1));
  EXPECT_EQ("zip.cpp(30): ns::open: FailedTo Open Archive(z.zip)", top.as_string(2));
  // Each element on a line of its own; the one without a file has no location.
  EXPECT_EQ(
      "zip.cpp(30): ns::open: FailedTo Open Archive(z.zip)\n"
      "FailedTo Read Full Data\n"
      "check.cpp(10): ns::check: IsNot Valid Argument(x)",
      top.as_string(3));
  // Words left out ("The", "A") print as nothing; indexes past the tables as numbers.
  error_code_t const odd =
      error_code_t::raise(error::code(error::error_type_t{3}, error::error_action_t{100},
                                      error::error_desc_t{300}, error::error_object_t{134}));
  EXPECT_EQ("3 100 300 last", odd.as_string(1));
  EXPECT_EQ(L"FailedTo Any Action",
            error_code_t(error_code_t::raise(error::FailedTo.A.Any.Action())).toString(1));
}

TEST_F(ErrorCodeTest, AHandMadeCycleStillPrints) {
  error::code_t a = error::FailedTo.Read.The.File("a");
  error::code_t b = error::FailedTo.Read.The.Stream("b");
  a.cause = &b;
  b.cause = &a;
  EXPECT_EQ(0u, error_code_t(&a).as_string(1).rfind(
                    "FailedTo Read File(a) <- FailedTo Read Stream(b)", 0));
  a.cause = &a;
  EXPECT_EQ("FailedTo Read File(a)", error_code_t(&a).as_string(1));
}

TEST_F(ErrorCodeTest, ExceptionPrintsItsChainOnceAndIsCaughtThroughItsBase) {
  error_code_t const cause = error_code_t::raise(error::IsNot.Valid.Size("0"));
  quillon2::exception const thrown(cause.translate(error::FailedTo.Create.File.Mapping(), "f"));
  char const* first = thrown.what();
  EXPECT_EQ(first, thrown.what());  // cached
  quillon2::exception const copy(thrown);
  error_code_t::clean_last();  // the copy has its own cached text
  EXPECT_STREQ("f: FailedTo Create File Mapping <- IsNot Valid Size(0)", copy.what());
  EXPECT_STREQ("False", quillon2::exception(error_code_t::False()).what());
  try {
    throw quillon2::exception(error_code_t::raise(error::FailedTo.Open.The.Archive("a.zip")));
  } catch (std::exception const& caught) {
    EXPECT_STREQ("FailedTo Open Archive(a.zip)", caught.what());
  }
}

TEST_F(ErrorCodeTest, ContainerCarriesAChainToAnotherThread) {
  error::container_t carried;
  std::thread raiser([&carried] {
    error_code_t const a =
        error_code_t::raise(error::IsNot.Valid.Argument("x"), "ns::f", "f.cpp", 3);
    carried.set(a.translate(error::FailedTo.Read.Full.Data(L"\u00E9"), "ns::g", "g.cpp", 4));
    error_code_t::raise(error::FailedTo.Stop.Thread.Array());  // the original chain goes
  });
  raiser.join();  // and the raising thread's list is gone with it
  error_code_t const rebuilt = carried.get();
  // Codes and texts come back; function names and locations do not.
  EXPECT_EQ("FailedTo Read Full Data(\xC3\xA9)\nIsNot Valid Argument(x)", rebuilt.as_string(3));
  EXPECT_EQ(rebuilt.pass(), error_code_t::get_last().pass());
  // get() may be asked again; each time the chain is raised afresh.
  std::string const first_text = rebuilt.as_string(1);
  EXPECT_EQ(first_text, carried.get().as_string(1));  // `rebuilt` is gone from here on
}

TEST_F(ErrorCodeTest, ContainerHoldsNoSuccessIsFilledOnceAndMoves) {
  error_code_t const earlier = error_code_t::raise(error::FailedTo.Wait.The.Thread());
  for (error_code_t const& success : {error_code_t(), error_code_t::False()}) {
    error::container_t box;
    box.set(success);
    EXPECT_EQ(nullptr, box.get().pass());
  }
  EXPECT_EQ(earlier.pass(), error_code_t::get_last().pass());  // nothing was raised
  q2test::assert_recorder_t recorder;
  error::container_t box;
  EXPECT_EQ(nullptr, box.get().pass());
  box.set(error_code_t::raise(error::IsNot.Valid.Path("a")));
  box.set(error_code_t::raise(error::IsNot.Valid.Path("b")));
  EXPECT_EQ((std::vector<std::string>{"m_ptr", "!m_ptr"}), recorder.conditions());
  error::container_t moved(std::move(box));
  error::container_t assigned;
  assigned = std::move(moved);
  EXPECT_EQ("IsNot Valid Path(b)", assigned.get().as_string(1));
}

}  // namespace
