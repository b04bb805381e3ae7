// The text layer: UTF conversions, byte-order marks, case mapping, replacement and
// splitting, code pages.
#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <quillon2/headers/kesmet.hpp>

namespace {

using kesmet2::ustring16;
using kesmet2::ustring8;

std::wstring const fffd(1, L'\xFFFD');

// Whether the whole text is valid UTF-8, checked with the layer's own scanner.
bool is_valid_utf8(std::string const& text) {
  auto const* p = reinterpret_cast<unsigned char const*>(text.data());
  std::size_t i = 0;
  while (i < text.size()) {
    if (!ql2::validate_utf8(p + i, text.size() - i)) return false;
    i += ql2::get_utf8_length(p + i, text.size() - i);
  }
  return true;
}

}  // namespace

// --- UTF-8 to wide ---------------------------------------------------------------

TEST(Utf8ToWide, DecodesEveryLength) {
  EXPECT_EQ(L"a\u00E9\u20AC\U0001F600",
            kesmet2::utf8_to_utf16("a\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80"));
  EXPECT_EQ(L"\U0010FFFF", kesmet2::utf8_to_utf16("\xF4\x8F\xBF\xBF"));
  EXPECT_EQ(L"", kesmet2::utf8_to_utf16(""));
}

TEST(Utf8ToWide, KeepsEmbeddedZeros) {
  std::string const text("a\0b", 3);
  EXPECT_EQ(std::wstring(L"a\0b", 3), kesmet2::utf8_to_utf16(text));
}

TEST(Utf8ToWide, ReplacesBadLeadAndStrayContinuationBytes) {
  EXPECT_EQ(L"a" + fffd + L"b", kesmet2::utf8_to_utf16("a\x80"
                                                       "b"));
  EXPECT_EQ(fffd + fffd, kesmet2::utf8_to_utf16("\xFF\xFE"));
  EXPECT_EQ(fffd + L"x", kesmet2::utf8_to_utf16("\xF5x"));
}

TEST(Utf8ToWide, RejectsOverlongForms) {
  // '/' written in two, three and four bytes: each byte is its own ill-formed part.
  EXPECT_EQ(fffd + fffd, kesmet2::utf8_to_utf16("\xC0\xAF"));
  EXPECT_EQ(fffd + fffd + fffd, kesmet2::utf8_to_utf16("\xE0\x80\xAF"));
  EXPECT_EQ(fffd + fffd + fffd + fffd, kesmet2::utf8_to_utf16("\xF0\x80\x80\xAF"));
  EXPECT_EQ(fffd + fffd, kesmet2::utf8_to_utf16("\xC1\xBF"));
}

TEST(Utf8ToWide, RejectsEncodedSurrogatesAndValuesAboveUnicode) {
  EXPECT_EQ(fffd + fffd + fffd, kesmet2::utf8_to_utf16("\xED\xA0\x80"));
  EXPECT_EQ(fffd + fffd + fffd + fffd, kesmet2::utf8_to_utf16("\xF4\x90\x80\x80"));
  EXPECT_EQ(L"\uD7FF", kesmet2::utf8_to_utf16("\xED\x9F\xBF"));
}

TEST(Utf8ToWide, ReplacesATruncatedSequenceOnce) {
  EXPECT_EQ(L"a" + fffd, kesmet2::utf8_to_utf16("a\xF0\x9F\x98"));
  EXPECT_EQ(fffd + L"b", kesmet2::utf8_to_utf16("\xE2\x82"
                                                "b"));
  EXPECT_EQ(fffd + L"\u00E9", kesmet2::utf8_to_utf16("\xE2\xC3\xA9"));
}

// --- wide to UTF-8 ---------------------------------------------------------------

TEST(WideToUtf8, EncodesEveryLength) {
  EXPECT_EQ("a\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80",
            kesmet2::utf16_to_utf8(L"a\u00E9\u20AC\U0001F600"));
  EXPECT_EQ(std::string("\0", 1), kesmet2::utf16_to_utf8(std::wstring(1, L'\0')));
}

TEST(WideToUtf8, ReplacesValuesThatAreNoCharacters) {
  std::string const replacement = "\xEF\xBF\xBD";
  std::wstring text;
  text.push_back(static_cast<wchar_t>(0xDC00));    // lone low surrogate
  text.push_back(static_cast<wchar_t>(0x110000));  // above Unicode
  text.push_back(static_cast<wchar_t>(-1));
  text.push_back(static_cast<wchar_t>(0xD800));  // high surrogate at the end
  EXPECT_EQ(replacement + replacement + replacement + replacement, kesmet2::utf16_to_utf8(text));
}

TEST(WideToUtf8, JoinsSurrogatePairsOfUtf16Units) {
  std::wstring text;
  text.push_back(static_cast<wchar_t>(0xD83D));
  text.push_back(static_cast<wchar_t>(0xDE00));
  EXPECT_EQ("\xF0\x9F\x98\x80", kesmet2::utf16_to_utf8(text));
  // A high surrogate followed by anything else is replaced on its own.
  text[1] = L'x';
  EXPECT_EQ("\xEF\xBF\xBDx", kesmet2::utf16_to_utf8(text));
}

TEST(WideToUtf8, RoundTripsEveryScalarValue) {
  std::wstring all;
  for (wchar_t c = 1; c <= 0x10FFFF; ++c) {
    if (c == 0xD800) c = 0xE000;
    all.push_back(c);
  }
  std::string const utf8 = kesmet2::utf16_to_utf8(all);
  EXPECT_TRUE(is_valid_utf8(utf8));
  EXPECT_EQ(all, kesmet2::utf8_to_utf16(utf8));
}

TEST(WideToUtf8, AnyByteSoupBecomesValidUtf8) {
  std::mt19937 random(42);
  for (int round = 0; round < 200; ++round) {
    std::string bytes(static_cast<std::size_t>(random() % 64), '\0');
    for (char& b : bytes) b = static_cast<char>(random() & 0xFF);
    std::wstring const wide = kesmet2::utf8_to_utf16(bytes);
    std::string const back = kesmet2::utf16_to_utf8(wide);
    ASSERT_TRUE(is_valid_utf8(back));
    // A second trip changes nothing any more.
    ASSERT_EQ(wide, kesmet2::utf8_to_utf16(back));
  }
}

// --- validate_utf8 and get_utf8_length --------------------------------------------

TEST(Utf8Scan, ValidatesTheSequenceAtTheStart) {
  auto const* euro = reinterpret_cast<unsigned char const*>("\xE2\x82\xAC!");
  EXPECT_TRUE(ql2::validate_utf8(euro, 4));
  EXPECT_EQ(3u, ql2::get_utf8_length(euro, 4));
  // Cut off by the size: not valid, and one ill-formed part of two bytes.
  EXPECT_FALSE(ql2::validate_utf8(euro, 2));
  EXPECT_EQ(2u, ql2::get_utf8_length(euro, 2));
  EXPECT_TRUE(ql2::validate_utf8(euro + 3, 1));
  EXPECT_EQ(1u, ql2::get_utf8_length(euro + 3, 1));
}

TEST(Utf8Scan, RejectsWhatTheDecoderReplaces) {
  auto const* bad = reinterpret_cast<unsigned char const*>("\xC0\xAF\xED\xA0\x80\xFF");
  EXPECT_FALSE(ql2::validate_utf8(bad, 6));
  EXPECT_EQ(1u, ql2::get_utf8_length(bad, 6));
  EXPECT_FALSE(ql2::validate_utf8(bad + 2, 4));
  EXPECT_FALSE(ql2::validate_utf8(bad + 5, 1));
}

TEST(Utf8Scan, AnswersNothingForNoBytes) {
  EXPECT_FALSE(ql2::validate_utf8(nullptr, 5));
  EXPECT_EQ(0u, ql2::get_utf8_length(nullptr, 5));
  auto const* a = reinterpret_cast<unsigned char const*>("a");
  EXPECT_FALSE(ql2::validate_utf8(a, 0));
  EXPECT_EQ(0u, ql2::get_utf8_length(a, 0));
}

// --- byte-order marks --------------------------------------------------------------

TEST(ByteOrderMark, IsRemovedOnlyAtTheStart) {
  EXPECT_EQ("ab", kesmet2::remove_BOM(ustring8("\xEF\xBB\xBF"
                                               "ab")));
  EXPECT_EQ("a\xEF\xBB\xBF", kesmet2::remove_BOM(ustring8("a\xEF\xBB\xBF")));
  EXPECT_EQ("\xEF\xBB", kesmet2::remove_BOM(ustring8("\xEF\xBB")));
  EXPECT_EQ(L"ab", kesmet2::remove_BOM(ustring16(L"\uFEFFab")));
  EXPECT_EQ(L"a\uFEFF", kesmet2::remove_BOM(ustring16(L"a\uFEFF")));
  EXPECT_EQ(L"", kesmet2::remove_BOM(ustring16()));
}

TEST(ByteOrderMark, SwapsUtf16UnitsReadInTheOtherOrder) {
  // "Aé" as big-endian UTF-16 read into little-endian units.
  ustring16 text{static_cast<wchar_t>(0xFFFE), static_cast<wchar_t>(0x4100),
                 static_cast<wchar_t>(0xE900)};
  EXPECT_TRUE(kesmet2::check_BOM_and_modify_swap(text));
  EXPECT_EQ(L"\uFEFFA\u00E9", text);
  EXPECT_EQ(L"A\u00E9", kesmet2::remove_BOM(text));
  // Host order already: nothing to do.
  EXPECT_FALSE(kesmet2::check_BOM_and_modify_swap(text));
  EXPECT_EQ(L"\uFEFFA\u00E9", text);
}

TEST(ByteOrderMark, SwapsUtf32UnitsReadInTheOtherOrder) {
  ustring16 text{static_cast<wchar_t>(0xFFFE0000u), static_cast<wchar_t>(0x00F60100)};
  EXPECT_TRUE(kesmet2::check_BOM_and_modify_swap(text));
  EXPECT_EQ(L"\uFEFF\U0001F600", text);
}

TEST(ByteOrderMark, LeavesUnmarkedTextAlone) {
  ustring16 text(L"\uFFFEx");
  text[0] = L'y';
  EXPECT_FALSE(kesmet2::check_BOM_and_modify_swap(text));
  EXPECT_EQ(L"yx", text);
  ustring16 empty;
  EXPECT_FALSE(kesmet2::check_BOM_and_modify_swap(empty));
}

// --- replace_all and split_string -------------------------------------------------

TEST(ReplaceAll, CountsAndReplacesWithoutRescanning) {
  ustring8 text = "abcabc";
  EXPECT_EQ(2, kesmet2::replace_all(text, "b", ""));
  EXPECT_EQ("acac", text);
  text = "aaa";
  EXPECT_EQ(3, kesmet2::replace_all(text, "a", "aa"));
  EXPECT_EQ("aaaaaa", text);
  text = "aaaa";
  EXPECT_EQ(2, kesmet2::replace_all(text, "aa", "b"));
  EXPECT_EQ("bb", text);
  std::wstring wide = L"x\u00E9y\u00E9";
  EXPECT_EQ(2, kesmet2::replace_all(wide, std::wstring(L"\u00E9"), std::wstring(L"--")));
  EXPECT_EQ(L"x--y--", wide);
}

TEST(ReplaceAll, AnEmptyPatternReplacesNothing) {
  ustring8 text = "abc";
  EXPECT_EQ(0, kesmet2::replace_all(text, "", "x"));
  EXPECT_EQ("abc", text);
  std::wstring wide = L"abc";
  EXPECT_EQ(0, kesmet2::replace_all(wide, std::wstring(), std::wstring(L"x")));
  EXPECT_EQ(L"abc", wide);
  EXPECT_EQ(0, kesmet2::replace_all(text, "abcd", "x"));
}

TEST(SplitString, KeepsEmptyPartsWithOptionsZero) {
  EXPECT_EQ((std::vector<ustring8>{"", "a", "", "b", ""}), kesmet2::split_string(",a,,b,", ",", 0));
  EXPECT_EQ((std::vector<ustring8>{""}), kesmet2::split_string("", ",", 0));
  EXPECT_EQ((std::vector<ustring8>{"a", "b"}), kesmet2::split_string("a::b", "::", 0));
  EXPECT_EQ((std::vector<std::wstring>{L"\u00E9", L"x"}),
            kesmet2::split_string(std::wstring(L"\u00E9;x"), std::wstring(L";"), 0));
}

TEST(SplitString, AnEmptySeparatorGivesTheWholeText) {
  EXPECT_EQ((std::vector<ustring8>{"abc"}), kesmet2::split_string("abc", "", 0));
}

TEST(SplitString, CanSkipEmptyParts) {
  EXPECT_EQ((std::vector<ustring8>{"a", "b"}),
            kesmet2::split_string(",a,,b,", ",", kesmet2::split_skip_empty));
  EXPECT_TRUE(kesmet2::split_string("", ",", kesmet2::split_skip_empty).empty());
}

TEST(StringLength, CountsUnitsAndAcceptsNull) {
  EXPECT_EQ(3u, kesmet2::string_length("a\xC3\xA9"));
  EXPECT_EQ(2u, kesmet2::string_length(L"a\U0001F600"));
  EXPECT_EQ(0u, kesmet2::string_length(static_cast<char const*>(nullptr)));
  EXPECT_EQ(0u, kesmet2::string_length(static_cast<wchar_t const*>(nullptr)));
}

// --- case mapping (the test process runs in the C locale) --------------------------

TEST(CaseMapping, MapsAsciiAndLatinLetters) {
  EXPECT_EQ(L"HELLO, WORLD 1!", kesmet2::to_upper(L"Hello, World 1!"));
  EXPECT_EQ(L"hello, world 1!", kesmet2::to_lower(L"Hello, World 1!"));
  EXPECT_EQ(L"\u00C9\u00C0\u00D8\u0178\u0100\u0139\u017D",
            kesmet2::to_upper(L"\u00E9\u00E0\u00F8\u00FF\u0101\u013A\u017E"));
  EXPECT_EQ(L"\u00E9\u00E0\u00F8\u00FF\u0101\u013A\u017E",
            kesmet2::to_lower(L"\u00C9\u00C0\u00D8\u0178\u0100\u0139\u017D"));
  // No case, or one-way only: unchanged.
  EXPECT_EQ(L"\u00D7\u00F7\u00DF", kesmet2::to_upper(L"\u00D7\u00F7\u00DF"));
  EXPECT_EQ(L"\u00D7\u00F7", kesmet2::to_lower(L"\u00D7\u00F7"));
}

TEST(CaseMapping, MapsOtherScripts) {
  EXPECT_EQ(L"\u0391\u0392\u0393", kesmet2::to_upper(L"\u03B1\u03B2\u03B3"));
  EXPECT_EQ(L"\u043F\u0440\u0438", kesmet2::to_lower(L"\u041F\u0420\u0418"));
  EXPECT_EQ(L"\U00010400", kesmet2::to_upper(L"\U00010428"));
}

TEST(CaseMapping, LeavesNonCharactersAlone) {
  std::wstring text{static_cast<wchar_t>(0x110000), static_cast<wchar_t>(-5), L'\uFFFD', L'\0'};
  EXPECT_EQ(text, kesmet2::to_upper(text));
  EXPECT_EQ(text, kesmet2::to_lower(text));
}

TEST(CaseMapping, TolowerOfTheLibraryNamespace) {
  EXPECT_EQ(L"abc\u00E9", ql2::tolower(L"ABC\u00C9"));
  EXPECT_EQ(L"x", kesmet2::strings::ql2::tolower(L"X"));
}

// --- code pages -------------------------------------------------------------------

TEST(CodePage, RoundTripsLatin1) {
  kesmet2::code_page latin1("ISO-8859-1");
  EXPECT_TRUE(latin1.is_known());
  std::string const bytes = latin1.encode("caf\xC3\xA9 \xC3\xBF");
  EXPECT_EQ("caf\xE9 \xFF", bytes);
  EXPECT_EQ("caf\xC3\xA9 \xC3\xBF", latin1.as_utf8(bytes));
  std::string all;
  for (int b = 1; b < 256; ++b) all.push_back(static_cast<char>(b));
  EXPECT_EQ(all, latin1.encode(latin1.as_utf8(all)));
}

TEST(CodePage, MapsWindows1252) {
  kesmet2::code_page cp(1252);
  EXPECT_EQ("CP1252", cp.name());
  EXPECT_EQ("\x80", cp.encode("\xE2\x82\xAC"));
  EXPECT_EQ("\xE2\x82\xAC\xE2\x80\x9C", cp.as_utf8("\x80\x93"));
}

TEST(CodePage, ReplacesWhatCannotBeConverted) {
  kesmet2::code_page latin1("ISO-8859-1");
  EXPECT_EQ("a?b?c", latin1.encode("a\xE2\x82\xAC"
                                   "b\xF0\x9F\x98\x80"
                                   "c"));
  // Invalid UTF-8 input: one '?' per ill-formed part.
  EXPECT_EQ("a??b", latin1.encode("a\xC0\xAF"
                                  "b"));
  EXPECT_EQ("a?", latin1.encode("a\xE2\x82"));
  kesmet2::code_page cp1252("CP1252");
  EXPECT_EQ("x?y", cp1252.as_utf8("x\x81y"));
}

TEST(CodePage, ConvertsToWideEncodings) {
  kesmet2::code_page utf16(1200);
  EXPECT_EQ(std::string("A\0\xAC\x20", 4), utf16.encode("A\xE2\x82\xAC"));
  EXPECT_EQ("A\xE2\x82\xAC", utf16.as_utf8(std::string("A\0\xAC\x20", 4)));
  EXPECT_EQ(std::string("?\0", 2), kesmet2::code_page(1200).encode("\xFF"));
  // A cut-off unit at the end.
  EXPECT_EQ("A?", utf16.as_utf8(std::string("A\0B", 3)));
}

TEST(CodePage, UnknownEncodingKeepsAscii) {
  kesmet2::code_page unknown("NO-SUCH-ENCODING-42");
  EXPECT_FALSE(unknown.is_known());
  EXPECT_EQ("a?b", unknown.encode("a\xC3\xA9"
                                  "b"));
  EXPECT_EQ("a?b", unknown.as_utf8("a\xE9"
                                   "b"));
  EXPECT_FALSE(kesmet2::code_page("").is_known());
}

TEST(CodePage, LocalEncodingIsLatin1UnderTheCLocale) {
  kesmet2::code_page local(kesmet2::encoding_type::local);
  EXPECT_EQ("ISO-8859-1", local.name());
  EXPECT_EQ("\xE9", local.encode("\xC3\xA9"));
  EXPECT_EQ("\xC3\xA9", local.as_utf8("\xE9"));
  EXPECT_EQ("caf\xE9?", ql2::to_ansi(L"caf\u00E9\u20AC"));
}

TEST(CodePage, CopiesConvertAlike) {
  kesmet2::code_page original("CP1252");
  kesmet2::code_page copy(original);
  kesmet2::code_page assigned("ISO-8859-1");
  assigned = original;
  EXPECT_EQ(original.encode("\xE2\x82\xAC"), copy.encode("\xE2\x82\xAC"));
  EXPECT_EQ("\x80", assigned.encode("\xE2\x82\xAC"));
}
