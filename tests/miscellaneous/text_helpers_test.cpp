// Console text from help markup, regular-expression quoting, and best-match lookup of
// hyphenated names.
#include <utility>

#include <boost/regex.hpp>

#include <quillon2/core/text_helpers.hpp>

#include "core/core_support.hpp"

namespace {

using words_t = std::vector<std::wstring>;
using quillon2::generic_iterator_t;

TEST(RemoveHtmlMarkup, GivesTheConsoleText) {
  std::pair<wchar_t const*, wchar_t const*> const cases[] = {
      {L"", L""},
      {L"plain text, <b>kept</b>", L"plain text, <b>kept</b>"},
      // An anchor is replaced whole by its cli attribute...
      {L"Run <a href=\"#run\" cli=\"--run\">run</a> now", L"Run --run now"},
      // ...and vanishes without one, or when it is not XML, visible text included.
      {L"<a href='x'>Help</a>", L""},
      {L"<a href='a&b' cli='never'>x</a>!", L"!"},
      {L"<a cli='1'>x</a><a cli='2'>y</a>", L"12"},
      // The pattern also catches an element that only starts with "a".
      {L"<abbr>x</a>", L""},
      // The same anchor twice gets the same replacement.
      {L"<a cli='A'>a</a>-<a cli='A'>a</a>", L"A-A"},
      // An attribute of another type is no text.
      {L"<a int:cli='5' xmlns:int='u'>x</a>", L""},
      // A cli that holds markup is replaced in its turn.
      {L"<a cli='&lt;br&gt;'>x</a>", L"\n"},
      {L"<ul><li>one</li><li>two</li></ul>", L" * one\n * two\n"},
      {L"<p>first</p><p><strong>bold</strong><br>line<br/>end</p>", L"first\nbold\nline\nend\n"},
      // Other spellings and entities stay as they are.
      {L"<P>a<BR>b<br />c &amp; d", L"<P>a<BR>b<br />c &amp; d"},
      // A dot in the pattern also matches a line end; an unclosed anchor stays.
      {L"<a\ncli='x'>multi\nline</a>", L"x"},
      {L"<a cli='x'>no end", L"<a cli='x'>no end"},
  };
  for (auto const& [input, expected] : cases) {
    EXPECT_EQ(expected, quillon2::removeHtmlMarkupFromText(input)) << input;
  }
}

TEST(EscapeRegexChars, QuotesEachSpecialCharacterOnceAndMatchesLiterally) {
  EXPECT_EQ(L"\\\\\\\\", quillon2::escape_regex_chars(quillon2::escape_regex_chars(L"\\")));
  std::wstring const specials = L".[]{}()\\*+?|^$";
  std::wstring expected;
  for (wchar_t c : specials) expected += std::wstring(L"\\") + c;
  EXPECT_EQ(expected, quillon2::escape_regex_chars(specials));
  EXPECT_EQ(L"a-b,c:d/\u00e9", quillon2::escape_regex_chars(L"a-b,c:d/\u00e9"));
  std::wstring const text = L"C:\\path (1).[txt]+{x}|^$*?";
  boost::wregex const pattern(quillon2::escape_regex_chars(text));
  EXPECT_TRUE(boost::regex_match(text, pattern));
  EXPECT_FALSE(boost::regex_match(std::wstring(L"C:\\path (1)x[txt]+{x}|^$*?"), pattern));
}

// The best matches of `text` among `candidates`: their number and their texts.
std::pair<int, words_t> best(words_t const& candidates, std::wstring const& text) {
  generic_iterator_t<std::wstring> matches;
  int const count = quillon2::find_best_match(
      quillon2::iterutil::make_owned_iterator_from<std::wstring>(candidates), text, matches);
  return {count, q2test::collect(matches)};
}

TEST(FindBestMatch, ShortenedWordsFindTheirCandidatesAndExactWordsWin) {
  words_t const candidates = {L"start-now", L"start-later", L"stop-now"};
  EXPECT_EQ(best(candidates, L"st-n"), std::make_pair(2, words_t{L"start-now", L"stop-now"}));
  EXPECT_EQ(best(candidates, L"start-n"), std::make_pair(1, words_t{L"start-now"}));
  EXPECT_EQ(best(candidates, L"start"), std::make_pair(0, words_t{}));
  EXPECT_EQ(best(candidates, L"x-n"), std::make_pair(0, words_t{}));
  EXPECT_EQ(best({L"start", L"Start"}, L"Start"), std::make_pair(1, words_t{L"Start"}));
  EXPECT_EQ(best({L"start"}, L"Start"), std::make_pair(0, words_t{}));
  EXPECT_EQ(best({L"list-all", L"list", L"lister"}, L"list"), std::make_pair(1, words_t{L"list"}));
  EXPECT_EQ(best({L"run", L"run", L"runner"}, L"run"), std::make_pair(2, words_t{L"run", L"run"}));
  // A word of the text longer than the candidate's rules it out; more words never win.
  EXPECT_EQ(best({L"go-on"}, L"go-onward"), std::make_pair(0, words_t{}));
  EXPECT_EQ(best({L"set-value-now", L"set-values"}, L"set-val"),
            std::make_pair(1, words_t{L"set-values"}));
  EXPECT_EQ(best({}, L"x"), std::make_pair(0, words_t{}));
}

TEST(FindBestMatch, EmptyWordsAreWords) {
  // The empty text is one empty word: a prefix of every one-word candidate.
  EXPECT_EQ(best({L"alpha", L"beta", L"a-b"}, L""), std::make_pair(2, words_t{L"alpha", L"beta"}));
  EXPECT_EQ(best({L"alpha", L"", L"beta"}, L""), std::make_pair(1, words_t{L""}));
  EXPECT_EQ(best({L"a--b", L"a-x-b", L"a-b"}, L"a--b"), std::make_pair(1, words_t{L"a--b"}));
  EXPECT_EQ(best({L"a-x-b", L"a-b"}, L"a--b"), std::make_pair(1, words_t{L"a-x-b"}));
  EXPECT_EQ(best({L"y-x", L"z-x", L"x"}, L"-x"), std::make_pair(2, words_t{L"y-x", L"z-x"}));
}

TEST(FindBestMatch, TheMatchesOutliveTheCandidatesAndCopiesWalkOnTheirOwn) {
  generic_iterator_t<std::wstring> matches;
  EXPECT_EQ(0, quillon2::find_best_match(generic_iterator_t<std::wstring>(), L"x", matches));
  EXPECT_TRUE(matches.at_end());
  {
    words_t candidates = {L"alpha-one", L"alpha-two"};
    EXPECT_EQ(2, quillon2::find_best_match(
                     quillon2::iterutil::make_owned_iterator_from<std::wstring>(candidates), L"a-",
                     matches));
  }
  EXPECT_EQ((words_t{L"alpha-one", L"alpha-two"}), q2test::collect(matches));
  EXPECT_EQ(L"alpha-one", matches.current());
}

}  // namespace
