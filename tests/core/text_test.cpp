// The text layer: UTF conversions, byte-order marks, case mapping, replacement and
// splitting, code pages. The test process runs in the C locale unless a test says so.
#include <clocale>

#include <quillon2/headers/kesmet.hpp>

#include "core/core_support.hpp"

namespace {

using strings8 = std::vector<std::string>;
std::wstring const R(1, L'\xFFFD');  // the replacement character

bool is_valid_utf8(std::string const& text) {
  auto const* p = reinterpret_cast<unsigned char const*>(text.data());
  for (std::size_t i = 0; i < text.size(); i += ql2::get_utf8_length(p + i, text.size() - i))
    if (!ql2::validate_utf8(p + i, text.size() - i)) return false;
  return true;
}

}  // namespace

TEST(Utf, ConvertsEveryLengthBothWays) {
  std::string const utf8("a\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80\xF4\x8F\xBF\xBF\0z", 16);
  std::wstring const wide(L"a\u00E9\u20AC\U0001F600\U0010FFFF\0z", 7);
  EXPECT_EQ(wide, kesmet2::utf8_to_utf16(utf8));
  EXPECT_EQ(utf8, kesmet2::utf16_to_utf8(wide));
}

TEST(Utf, ReplacesEachIllFormedPartOfUtf8Once) {
  struct {
    char const* bytes;
    std::wstring expected;
  } const cases[] = {
      {"a\x80z", L"a" + R + L"z"},                          // stray continuation byte
      {"\xFF\xF5z", R + R + L"z"},                          // bytes that never start a sequence
      {"\xC0\xAF", R + R},                                  // overlong '/' in two bytes
      {"\xE0\x80\xAF", R + R + R},                          // ... in three
      {"\xF0\x80\x80\xAF", R + R + R + R},                  // ... in four
      {"\xED\xA0\x80", R + R + R},                          // an encoded surrogate
      {"\xF4\x90\x80\x80", R + R + R + R},                  // above U+10FFFF
      {"a\xF0\x9F\x98", L"a" + R},                          // cut off at the end
      {"\xE2\x82z\xE2\xC3\xA9", R + L"z" + R + L"\u00E9"},  // cut off inside
  };
  for (auto const& c : cases) EXPECT_EQ(c.expected, kesmet2::utf8_to_utf16(c.bytes)) << c.bytes;
}

TEST(Utf, ReplacesWideUnitsThatAreNoCharactersAndJoinsSurrogatePairs) {
  std::string const r = "\xEF\xBF\xBD";
  std::wstring text{wchar_t(0xDC00), wchar_t(0x110000), wchar_t(-1), wchar_t(0xD83D),
                    wchar_t(0xDE00), wchar_t(0xD800),   L'x',        wchar_t(0xD800)};
  EXPECT_EQ(r + r + r + "\xF0\x9F\x98\x80" + r + "x" + r, kesmet2::utf16_to_utf8(text));
}

TEST(Utf, RoundTripsSampledScalarValuesAndLongTexts) {
  std::wstring text;
  for (wchar_t c = 1; c <= 0x10FFFF; c += (c < 0x800 ? 1 : 97))
    if (c < 0xD800 || c > 0xDFFF) text.push_back(c);
  for (wchar_t c : {0xD7FF, 0xE000, 0xFFFF, 0x10000, 0x10FFFF}) text.push_back(c);
  for (int i = 0; i < 3000; ++i) text += L"a\u00E9\u20AC\U0001F600";  // across internal chunks
  std::string const utf8 = kesmet2::utf16_to_utf8(text);
  EXPECT_TRUE(is_valid_utf8(utf8));
  EXPECT_EQ(text, kesmet2::utf8_to_utf16(utf8));
  std::string bad(5000, 'x');
  bad[2047] = '\xE2';
  bad += "\xF0\x9F";
  std::wstring expected(5000, L'x');
  expected[2047] = R[0];
  EXPECT_EQ(expected + R, kesmet2::utf8_to_utf16(bad));
}

TEST(Utf, ScansTheSequenceAtTheStart) {
  auto const* p = reinterpret_cast<unsigned char const*>("\xE2\x82\xAC!\xC0\xAF");
  EXPECT_TRUE(ql2::validate_utf8(p, 6) && ql2::validate_utf8(p + 3, 1));
  EXPECT_EQ(3u, ql2::get_utf8_length(p, 6));
  EXPECT_FALSE(ql2::validate_utf8(p, 2) || ql2::validate_utf8(p + 4, 2) ||
               ql2::validate_utf8(p, 0));
  EXPECT_EQ(2u, ql2::get_utf8_length(p, 2));  // cut off by the size
  EXPECT_EQ(1u, ql2::get_utf8_length(p + 4, 2));
  EXPECT_EQ(0u, ql2::get_utf8_length(nullptr, 5));
}

TEST(ByteOrderMark, IsRemovedOnlyAtTheStartAndSwapsTextReadInTheOtherOrder) {
  EXPECT_EQ("ab", kesmet2::remove_BOM(std::string("\xEF\xBB\xBF") + "ab"));
  EXPECT_EQ("a\xEF\xBB\xBF", kesmet2::remove_BOM(std::string("a\xEF\xBB\xBF")));
  EXPECT_EQ("\xEF\xBB", kesmet2::remove_BOM(std::string("\xEF\xBB")));
  EXPECT_EQ(L"a\uFEFF", kesmet2::remove_BOM(std::wstring(L"\uFEFFa\uFEFF")));
  // "Aé" as big-endian UTF-16 read into little-endian units.
  std::wstring utf16{wchar_t(0xFFFE), wchar_t(0x4100), wchar_t(0xE900)};
  EXPECT_TRUE(kesmet2::check_BOM_and_modify_swap(utf16));
  EXPECT_EQ(L"\uFEFFA\u00E9", utf16);
  EXPECT_FALSE(kesmet2::check_BOM_and_modify_swap(utf16));  // host order now
  std::wstring utf32{wchar_t(0xFFFE0000u), wchar_t(0x00F60100)};
  EXPECT_TRUE(kesmet2::check_BOM_and_modify_swap(utf32));
  EXPECT_EQ(L"\uFEFF\U0001F600", utf32);
}

TEST(ReplaceAll, CountsAndReplacesWithoutRescanning) {
  std::string text = "aaaa";
  EXPECT_EQ(2, kesmet2::replace_all(text, "aa", "a"));
  EXPECT_EQ(2, kesmet2::replace_all(text, "a", "aa"));
  EXPECT_EQ(0, kesmet2::replace_all(text, "", "x"));  // an empty pattern replaces nothing
  EXPECT_EQ("aaaa", text);
  std::wstring wide = L"x\u00E9y\u00E9";
  EXPECT_EQ(2, kesmet2::replace_all(wide, std::wstring(L"\u00E9"), std::wstring()));
}

TEST(SplitString, KeepsEmptyPartsWithOptionsZero) {
  EXPECT_EQ((strings8{"", "a", "", "b", ""}), kesmet2::split_string(",a,,b,", ",", 0));
  EXPECT_EQ((strings8{"a", "b"}), kesmet2::split_string("a::b", "::", 0));
  EXPECT_EQ((strings8{"abc"}), kesmet2::split_string("abc", "", 0));
  EXPECT_EQ((strings8{"a", "b"}), kesmet2::split_string(",a,,b,", ",", kesmet2::split_skip_empty));
  EXPECT_EQ((std::vector<std::wstring>{L"\u00E9", L""}),
            kesmet2::split_string(std::wstring(L"\u00E9;"), std::wstring(L";"), 0));
}

TEST(CaseMapping, MapsLettersOfEveryScriptAndNothingElse) {
  EXPECT_EQ(L"HELLO, 1! \u00C9\u00D8\u0178\u0100\u017D\u0391\u0418\U00010400",
            kesmet2::to_upper(L"Hello, 1! \u00E9\u00F8\u00FF\u0101\u017E\u03B1\u0438\U00010428"));
  EXPECT_EQ(L"\u00E9\u00FF\u03B1", kesmet2::to_lower(L"\u00C9\u0178\u0391"));
  std::wstring const caseless{L'\u00D7', L'\uFFFD', L'\0', wchar_t(0x110000), wchar_t(-5)};
  EXPECT_EQ(caseless, kesmet2::to_upper(caseless));
  EXPECT_EQ(caseless, kesmet2::to_lower(caseless));
}

TEST(CodePage, RoundTripsAndReplacesWhatDoesNotFitOrIsUnknown) {
  kesmet2::code_page latin1("ISO-8859-1");
  EXPECT_TRUE(latin1.is_known());
  std::string all;
  for (int b = 1; b < 256; ++b) all.push_back(static_cast<char>(b));
  EXPECT_EQ(all, latin1.encode(latin1.as_utf8(all)));
  // Unmappable characters and ill-formed input: one '?' each.
  EXPECT_EQ("a?b??c?", latin1.encode("a\xE2\x82\xAC"
                                     "b\xC0\xAF"
                                     "c\xE2\x82"));
  kesmet2::code_page cp1252(1252);
  EXPECT_EQ("\x80", cp1252.encode("\xE2\x82\xAC"));
  EXPECT_EQ("\xE2\x82\xAC\xE2\x80\x9C?", cp1252.as_utf8("\x80\x93\x81"));

  kesmet2::code_page utf16(1200);
  std::string const bytes("A\0\xAC\x20", 4);
  EXPECT_EQ(bytes, utf16.encode("A\xE2\x82\xAC"));
  EXPECT_EQ("A\xE2\x82\xAC", utf16.as_utf8(bytes));
  EXPECT_EQ("A?", utf16.as_utf8(std::string("A\0B", 3)));  // a cut-off unit
  kesmet2::code_page unknown("NO-SUCH-ENCODING");
  EXPECT_FALSE(unknown.is_known());
  EXPECT_EQ("a?b?", unknown.encode("a\xC3\xA9"
                                   "b") +
                        unknown.as_utf8("\xE9"));
}

class LocaleTest : public testing::Test {
 protected:
  ~LocaleTest() override { setlocale(LC_ALL, "C"); }
};

TEST_F(LocaleTest, LocalEncodingFollowsTheProcessLocaleButCaseMappingDoesNot) {
  EXPECT_EQ("ISO-8859-1", kesmet2::code_page(kesmet2::encoding_type::local).name());
  EXPECT_EQ("caf\xE9?", ql2::to_ansi(L"caf\u00E9\u20AC"));
  EXPECT_EQ(L"\u00C9A", kesmet2::to_upper(L"\u00E9a"));
  ASSERT_NE(nullptr, setlocale(LC_ALL, "C.UTF-8"));
  EXPECT_EQ("UTF-8", kesmet2::code_page(kesmet2::encoding_type::local).name());
  EXPECT_EQ("caf\xC3\xA9\xE2\x82\xAC", ql2::to_ansi(L"caf\u00E9\u20AC"));
  EXPECT_EQ(L"\u00C9A", kesmet2::to_upper(L"\u00E9a"));
}
