// Number parsers and writers of the text layer.
#include <climits>
#include <cmath>
#include <limits>
#include <locale>

#include <quillon2/headers/kesmet.hpp>

#include "core/core_support.hpp"

namespace convert = kesmet2::generic::convert;
using radix_t = kesmet2::types::radix_t;

// Parses the whole text as the library does: decimal, the full length.
#define WHOLE(parser, text) \
  [](auto const& s) { return convert::parser(s.c_str(), s.size(), radix_t::decimal, false); }(text)

namespace {
// Numbers written the German way: "1.234,5".
struct comma_punct_t : std::numpunct<char> {
  char do_decimal_point() const override { return ','; }
  char do_thousands_sep() const override { return '.'; }
  std::string do_grouping() const override { return "\3"; }
};
double classic(char const* text) { return convert::str_to_double(text, std::locale::classic()); }
}  // namespace

TEST(IntegerParsing, ReadsSignedDecimalTextOfTheGivenLengthAndJunkGivesZero) {
  EXPECT_EQ(-17, WHOLE(str_to_int32, std::string(" \t-17 \n")));
  EXPECT_EQ(5, WHOLE(str_to_int64, std::string("+5")));
  EXPECT_EQ(12, convert::str_to_int32("12345", 2));
  EXPECT_EQ(-1, convert::str_to_int16(L"-1xyz", 2));
  for (char const* junk : {"", " ", "-", "abc", "12abc", "1 2", "--1", "0x10", "1.5", "\xD9\xA3"})
    EXPECT_EQ(0, WHOLE(str_to_int32, std::string(junk))) << junk;
  EXPECT_EQ(0, WHOLE(str_to_int64, std::string("4\0002", 3)));
  EXPECT_EQ(0, WHOLE(str_to_int, std::wstring(L"\u0663")));  // a digit, but not ours
  EXPECT_EQ(0, convert::str_to_int32(static_cast<char const*>(nullptr), 4));
}

TEST(IntegerParsing, SaturatesAtTheLimitsOfEachType) {
  EXPECT_EQ(INT8_MAX, WHOLE(str_to_int8, std::string("128")));
  EXPECT_EQ(INT8_MIN, WHOLE(str_to_int8, std::string("-129")));
  EXPECT_EQ(INT32_MIN, WHOLE(str_to_int32, std::string("-2147483649")));
  EXPECT_EQ(INT64_MAX, WHOLE(str_to_int64, std::string("9223372036854775808")));
  EXPECT_EQ(INT64_MIN, WHOLE(str_to_int64, std::string("-9223372036854775808")));
  EXPECT_EQ(UINT16_MAX, WHOLE(str_to_uint16, std::wstring(L"65536")));
  EXPECT_EQ(UINT64_MAX, WHOLE(str_to_uint64, std::string("18446744073709551616")));
  EXPECT_EQ(INT_MAX, WHOLE(str_to_int, std::wstring(L"100000000000")));
  // Negative text for an unsigned type.
  EXPECT_EQ(0u, WHOLE(str_to_uint32, std::string("-1")));
  EXPECT_EQ(0u, WHOLE(str_to_uint64, std::wstring(L"-18446744073709551616")));
}

TEST(IntegerParsing, PrefixModeAndOtherRadices) {
  EXPECT_EQ(12, convert::str_to_int32("12abc", 5, radix_t::decimal, true));
  EXPECT_EQ(-4, convert::str_to_int32(L" -4.5", 5, radix_t::decimal, true));
  EXPECT_EQ(255, convert::str_to_int32("0xFF", 4, radix_t::hexadecimal));
  EXPECT_EQ(0, convert::str_to_int32("19", 2, radix_t::octal));
  EXPECT_EQ(5, convert::str_to_uint8(L"101", 3, radix_t::binary));
  EXPECT_EQ(UINT64_MAX, convert::str_to_uint64("1ffffffffffffffff", 17, radix_t::hexadecimal));
}

TEST(FloatParsing, FollowsTheLocalesPunctuationJunkGivesZeroAndOutOfRangeSaturates) {
  EXPECT_DOUBLE_EQ(-2.5e-3, classic(" -2.5E-3 "));
  EXPECT_DOUBLE_EQ(3.0, convert::str_to_double("3"));
  std::locale const german(std::locale::classic(), new comma_punct_t);
  EXPECT_DOUBLE_EQ(1234.5, convert::str_to_double("1.234,5", german));
  EXPECT_FLOAT_EQ(-0.75f, convert::str_to_float("-0,75", german));
  EXPECT_EQ(0.0, classic("1,5"));
  EXPECT_EQ(0.0, convert::str_to_double("1,5,5", german));
  for (char const* junk : {"", "  ", "abc", "1.5x", "--1", "1.2.3", "e5"})
    EXPECT_EQ(0.0, classic(junk)) << junk;
  EXPECT_EQ(0.0, convert::str_to_double(std::string{'1', '\0', '5'}));
  EXPECT_TRUE(std::isnan(classic("nan")));
  EXPECT_EQ(std::numeric_limits<double>::infinity(), classic("1e400"));
  EXPECT_EQ(-std::numeric_limits<double>::infinity(), classic("-1e400"));
  EXPECT_EQ(0.0, classic("1e-400"));
  EXPECT_EQ(std::numeric_limits<float>::infinity(), convert::str_to_float("1e300"));
}

TEST(NumberWriting, WritesEveryRadixAndRefusesBadOnes) {
  char buffer[80] = "untouched";
  EXPECT_EQ(buffer, convert::ltoa(-123, buffer, 10));
  EXPECT_STREQ("-123", buffer);
  EXPECT_STREQ("-9223372036854775808", convert::lltoa(LLONG_MIN, buffer, 10));
  EXPECT_STREQ("18446744073709551615", convert::ulltoa(ULLONG_MAX, buffer, 10));
  EXPECT_STREQ("ffffffffffffffff", convert::ltoa(-1, buffer, 16));  // two's complement
  EXPECT_STREQ("z", convert::ultoa(35, buffer, 36));
  EXPECT_EQ(std::string(64, '1'), convert::ulltoa(ULLONG_MAX, buffer, 2));
  EXPECT_STREQ("", convert::ltoa(5, buffer, 37));
  EXPECT_EQ(nullptr, convert::ltoa(5, static_cast<char*>(nullptr), 10));
  wchar_t wide[80];
  EXPECT_STREQ(L"-42", convert::ltoa(-42, wide, 10));
}
