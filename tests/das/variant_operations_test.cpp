// Arithmetic, logic and printing of variants: each row of the rules that has its own
// outcome, and the printed forms.
#include <cmath>
#include <limits>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <quillon2/das/notype_ptr.hpp>
#include <quillon2/das/variant.hpp>
#include <quillon2/das/variant_bag.hpp>
#include <quillon2/das/variant_bag_serialization.hpp>
#include <quillon2/das/variant_operations.hpp>

#include "support/assert_recorder.hpp"

namespace ql2 = quillon2;
using ql2::variant_t;

namespace {

// Every test sees the assertions its own calls report.
class VariantMath : public ::testing::Test {
 protected:
  std::vector<std::string> taken() { return m_capture.take_conditions(); }

 private:
  q2test::assert_recorder_t m_capture;
};

variant_t w(wchar_t const* text) { return variant_t(text, false); }
variant_t s64(ql2::s64_t v) { return variant_t(v); }
variant_t u64(ql2::u64_t v) { return variant_t(v); }
variant_t blob() { return variant_t(static_cast<void const*>("ab"), 2); }

std::wstring text_of(variant_t const& v) {
  EXPECT_EQ(ql2::vtWString, v.get_type());
  wchar_t const* s = v.get<wchar_t const*>();
  return s != nullptr ? s : L"";
}

std::wstring printed(variant_t const& v, bool annotate) {
  variant_t text(L"old", false);
  ql2::print_variant(v, text, annotate);
  return text_of(text);
}

std::string const k_unsupported = "Unsupported variant types in arithmetic operation";

}  // namespace

TEST_F(VariantMath, AddFollowsTheFirstMatchingRow) {
  EXPECT_EQ(ql2::vtNull, ql2::variant_add(variant_t(), variant_t(), L"-").get_type());
  variant_t const kept = ql2::variant_add(variant_t(), variant_t(static_cast<char>(5)), L"-");
  EXPECT_EQ(ql2::vtSByte, kept.get_type());
  EXPECT_EQ(5, kept.get<ql2::s8_t>());
  EXPECT_EQ(ql2::vtFloat, ql2::variant_add(variant_t(1.5f), variant_t(), L"-").get_type());
  EXPECT_EQ(L"(none)x", text_of(ql2::variant_add(variant_t(), w(L"x"), L"(none)")));
  EXPECT_EQ(L"x(none)", text_of(ql2::variant_add(w(L"x"), variant_t(), L"(none)")));

  variant_t const sum =
      ql2::variant_add(variant_t(static_cast<char>(100)), variant_t(static_cast<char>(100)), L"");
  EXPECT_EQ(ql2::vtSInt64, sum.get_type());
  EXPECT_EQ(200, sum.get<ql2::s64_t>());
  variant_t const mixed = ql2::variant_add(variant_t(-1), variant_t(1u), L"");
  EXPECT_EQ(ql2::vtUInt64, mixed.get_type());
  EXPECT_EQ(0u, mixed.get<ql2::u64_t>());
  EXPECT_EQ(2, ql2::variant_add(variant_t(true), variant_t(true), L"").get<ql2::s64_t>());
  EXPECT_EQ(
      std::numeric_limits<ql2::s64_t>::min(),
      ql2::variant_add(s64(std::numeric_limits<ql2::s64_t>::max()), s64(1), L"").get<ql2::s64_t>());
  variant_t const real = ql2::variant_add(variant_t(2), variant_t(0.5f), L"");
  EXPECT_EQ(ql2::vtDouble, real.get_type());
  EXPECT_DOUBLE_EQ(2.5, real.get<double>());
  EXPECT_DOUBLE_EQ(static_cast<double>(UINT64_MAX) + 1.0,
                   ql2::variant_add(u64(UINT64_MAX), variant_t(1.0), L"").get<double>());

  EXPECT_EQ(L"12", text_of(ql2::variant_add(variant_t(1), w(L"2"), L"")));
  EXPECT_EQ(L"ab", text_of(ql2::variant_add(w(L"a"), w(L"b"), L"")));
  EXPECT_EQ(L"a", text_of(ql2::variant_add(w(L"a"), blob(), L"")));
  EXPECT_TRUE(taken().empty());

  EXPECT_EQ(ql2::vtNull, ql2::variant_add(variant_t(1.0), w(L"2"), L"").get_type());
  EXPECT_EQ(std::vector<std::string>{"can_get<double>()"}, taken());
  EXPECT_EQ(ql2::vtNull, ql2::variant_add(blob(), blob(), L"").get_type());
  EXPECT_EQ(std::vector<std::string>{k_unsupported}, taken());
}

TEST_F(VariantMath, SubtractFollowsTheFirstMatchingRow) {
  EXPECT_EQ(ql2::vtNull, ql2::variant_sub(variant_t(), variant_t()).get_type());
  EXPECT_EQ(L"abc", text_of(ql2::variant_sub(w(L"abc"), variant_t())));
  EXPECT_EQ(ql2::vtUInt, ql2::variant_sub(variant_t(3u), variant_t()).get_type());
  variant_t const negated = ql2::variant_sub(variant_t(), variant_t(5u));
  EXPECT_EQ(ql2::vtSInt64, negated.get_type());
  EXPECT_EQ(-5, negated.get<ql2::s64_t>());
  EXPECT_DOUBLE_EQ(-2.5, ql2::variant_sub(variant_t(), variant_t(2.5)).get<double>());
  EXPECT_EQ(L"", text_of(ql2::variant_sub(variant_t(), w(L"x"))));
  variant_t const below = ql2::variant_sub(variant_t(1u), variant_t(2u));
  EXPECT_EQ(ql2::vtSInt64, below.get_type());
  EXPECT_EQ(-1, below.get<ql2::s64_t>());
  EXPECT_DOUBLE_EQ(0.5, ql2::variant_sub(variant_t(1), variant_t(0.5)).get<double>());
  EXPECT_EQ(L"acac", text_of(ql2::variant_sub(w(L"abcabc"), w(L"b"))));
  EXPECT_EQ(L"13", text_of(ql2::variant_sub(variant_t(123), w(L"2"))));
  EXPECT_EQ(L"abc", text_of(ql2::variant_sub(w(L"abc"), w(L""))));
  EXPECT_EQ(L"", text_of(ql2::variant_sub(blob(), w(L"a"))));
  EXPECT_TRUE(taken().empty());

  EXPECT_EQ(ql2::vtNull, ql2::variant_sub(variant_t(), blob()).get_type());
  EXPECT_EQ(ql2::vtNull, ql2::variant_sub(blob(), blob()).get_type());
  EXPECT_EQ((std::vector<std::string>{k_unsupported, k_unsupported}), taken());
  EXPECT_EQ(ql2::vtNull, ql2::variant_sub(w(L"x"), variant_t(1.0)).get_type());
  EXPECT_EQ(std::vector<std::string>{"can_get<double>()"}, taken());
}

TEST_F(VariantMath, MultiplyAndDivide) {
  EXPECT_EQ(ql2::vtNull, ql2::variant_mult(variant_t(), blob()).get_type());
  EXPECT_EQ(ql2::vtNull, ql2::variant_div(variant_t(2), variant_t()).get_type());
  EXPECT_TRUE(taken().empty());

  EXPECT_EQ(-6, ql2::variant_mult(variant_t(-2), variant_t(3)).get<ql2::s64_t>());
  variant_t const unsigned_product = ql2::variant_mult(variant_t(-1), variant_t(2u));
  EXPECT_EQ(ql2::vtUInt64, unsigned_product.get_type());
  EXPECT_EQ(UINT64_MAX - 1, unsigned_product.get<ql2::u64_t>());
  EXPECT_EQ(0u, ql2::variant_mult(u64(1ull << 32), u64(1ull << 32)).get<ql2::u64_t>());
  EXPECT_EQ(-3, ql2::variant_div(variant_t(-7), variant_t(2)).get<ql2::s64_t>());
  EXPECT_EQ(ql2::vtUInt64, ql2::variant_div(variant_t(7u), variant_t(2)).get_type());
  EXPECT_DOUBLE_EQ(3.5, ql2::variant_div(variant_t(7), variant_t(2.0)).get<double>());
  EXPECT_EQ(std::numeric_limits<double>::infinity(),
            ql2::variant_div(variant_t(1.0), variant_t(0)).get<double>());
  EXPECT_TRUE(std::isnan(ql2::variant_div(variant_t(0.0), variant_t(0.0)).get<double>()));
  EXPECT_EQ(
      std::numeric_limits<ql2::s64_t>::min(),
      ql2::variant_div(s64(std::numeric_limits<ql2::s64_t>::min()), s64(-1)).get<ql2::s64_t>());
  EXPECT_TRUE(taken().empty());

  EXPECT_EQ(ql2::vtNull, ql2::variant_div(variant_t(1), variant_t(0)).get_type());
  EXPECT_EQ(ql2::vtNull, ql2::variant_div(variant_t(1u), u64(0)).get_type());
  EXPECT_EQ((std::vector<std::string>{"divisor != 0", "divisor != 0"}), taken());
  EXPECT_EQ(ql2::vtNull, ql2::variant_mult(w(L"2"), variant_t(3)).get_type());
  EXPECT_EQ(std::vector<std::string>{k_unsupported}, taken());
  EXPECT_EQ(ql2::vtNull, ql2::variant_div(blob(), variant_t(3.0)).get_type());
  EXPECT_EQ(std::vector<std::string>{"can_get<double>()"}, taken());
}

TEST_F(VariantMath, LogicConvertsBothOperands) {
  EXPECT_TRUE(ql2::variant_not(variant_t()));
  EXPECT_TRUE(ql2::variant_not(variant_t(1e-17)));
  EXPECT_FALSE(ql2::variant_not(variant_t(-1e-15)));
  EXPECT_FALSE(ql2::variant_not(u64(1ull << 40)));
  EXPECT_TRUE(ql2::variant_not(variant_t(false)));
  EXPECT_TRUE(ql2::variant_not(w(L"")));
  EXPECT_FALSE(ql2::variant_not(variant_t(L"x", true)));
  EXPECT_TRUE(ql2::variant_or(variant_t(0), w(L"x")));
  EXPECT_FALSE(ql2::variant_and(variant_t(1), variant_t(0.0)));
  EXPECT_TRUE(taken().empty());

  EXPECT_FALSE(ql2::variant_not(variant_t("x", false)));
  EXPECT_EQ(std::vector<std::string>{"can_get<const wchar_t*>()"}, taken());
  EXPECT_TRUE(ql2::variant_or(variant_t(1), blob()));
  EXPECT_EQ(std::vector<std::string>{"Incorrect variant type for boolean conversion"}, taken());
  EXPECT_FALSE(ql2::variant_and(variant_t(0), blob()));
  EXPECT_EQ(std::vector<std::string>{"Incorrect variant type for boolean conversion"}, taken());
}

TEST_F(VariantMath, PrintedForms) {
  EXPECT_EQ(L"42 !s32_t", printed(variant_t(42), true));
  EXPECT_EQ(L"42", printed(variant_t(42), false));
  EXPECT_EQ(L"true !bool", printed(variant_t(true), true));
  EXPECT_EQ(L"-5 !s8_t", printed(variant_t(static_cast<char>(-5)), true));
  EXPECT_EQ(L"200 !u8_t", printed(variant_t(static_cast<unsigned char>(200)), true));
  EXPECT_EQ(L"18446744073709551615 !u64_t", printed(u64(UINT64_MAX), true));
  EXPECT_EQ(L"0.1 !float", printed(variant_t(0.1f), true));
  EXPECT_EQ(L"0.123457 !double", printed(variant_t(0.123456789), true));
  EXPECT_EQ(L"1e+20", printed(variant_t(1e20), false));
  EXPECT_EQ(L"x y !ustring", printed(w(L"x y"), true));
  EXPECT_EQ(L"r !ucharPtr", printed(variant_t(L"r", true), true));
  EXPECT_EQ(L"null", printed(variant_t(), true));
  EXPECT_EQ(L"", printed(blob(), true));
  EXPECT_EQ(L"", printed(variant_t("n", false), true));
  EXPECT_EQ(L"", printed(variant_t(ql2::notype_ptr_t()), true));

  std::ostringstream stream;
  stream << variant_t(L"\u00e9", false) << '|' << variant_t(3u);
  EXPECT_EQ("\xc3\xa9 !ustring|3 !u32_t", stream.str());

  EXPECT_STREQ(L"vtBool", ql2::debug_get_variant_type(ql2::vtBool));
  EXPECT_STREQ(L"vtNotypePtr", ql2::debug_get_variant_type(ql2::vtNotypePtr));
  EXPECT_STREQ(L"vtLast_Used",
               ql2::debug_get_variant_type(static_cast<ql2::das_variant_type_t>(19)));
  EXPECT_EQ(nullptr, ql2::debug_get_variant_type(static_cast<ql2::das_variant_type_t>(20)));
}

TEST_F(VariantMath, DebugPrintersWriteToStandardOutput) {
  ql2::variant_bag_t bag;
  bag.add<variant_t>(L"a", variant_t(1));
  ql2::variant_bag_t child;
  child.add<variant_t>(L"b", variant_t(2));
  child.add_variant_bag(L"g", ql2::variant_bag_t()).add<variant_t>(L"c", w(L"t"));
  bag.add_variant_bag(L"c", child);
  bag.add<variant_t>(L"z", variant_t(2.5));

  ::testing::internal::CaptureStdout();
  ql2::debug_print_variant_bag(bag, false, L">");
  ql2::debug_print_variant(variant_t(7), true);
  EXPECT_EQ(
      "> <a> = 1\n> <z> = 2.5\n> [c]\n>\t <b> = 2\n>\t [g]\n>\t\t <c> = t\n"
      "7 !s32_t",
      ::testing::internal::GetCapturedStdout());
}

TEST_F(VariantMath, TextFormOfSingleValues) {
  EXPECT_STREQ(L"s32_t", ql2::get_type_string(variant_t(1)));
  EXPECT_STREQ(L"u64_t", ql2::get_type_string(u64(1)));
  EXPECT_STREQ(L"", ql2::get_type_string(w(L"x")));
  EXPECT_STREQ(L"null", ql2::get_type_string(variant_t()));
  EXPECT_EQ(nullptr, ql2::get_type_string(blob()));
  EXPECT_EQ(nullptr, ql2::get_type_string(variant_t(L"x", true)));

  EXPECT_EQ(L"false", text_of(ql2::get_value_string(variant_t(false))));
  EXPECT_EQ(L"-9223372036854775808",
            text_of(ql2::get_value_string(s64(std::numeric_limits<ql2::s64_t>::min()))));
  EXPECT_EQ(L"inf", text_of(ql2::get_value_string(variant_t(HUGE_VAL))));
  EXPECT_EQ(L"", text_of(ql2::get_value_string(variant_t())));
  EXPECT_EQ(L"", text_of(ql2::get_value_string(blob())));
  EXPECT_EQ(L"w", text_of(ql2::get_value_string(w(L"w"))));
  EXPECT_EQ(L"", text_of(ql2::get_value_string(variant_t(L"r", true))));

  variant_t out(L"keep", false);
  EXPECT_FALSE(ql2::create_variant_from_string(out, L"blob", L"00"));
  EXPECT_FALSE(ql2::create_variant_from_string(out, L"S32_T", L"1"));
  EXPECT_EQ(L"keep", text_of(out));
  ASSERT_TRUE(ql2::create_variant_from_string(out, nullptr, L"v"));
  EXPECT_EQ(L"v", text_of(out));
  ASSERT_TRUE(ql2::create_variant_from_string(out, L"bool", nullptr));
  EXPECT_FALSE(out.get<bool>());
  ASSERT_TRUE(ql2::create_variant_from_string(out, L"u16_t", L"65535"));
  EXPECT_EQ(ql2::vtUShort, out.get_type());
  EXPECT_EQ(65535u, out.get<ql2::u16_t>());
  ASSERT_TRUE(ql2::create_variant_from_string(out, L"s64_t", nullptr));
  EXPECT_EQ(0, out.get<ql2::s64_t>());
  ASSERT_TRUE(ql2::create_variant_from_string(out, L"double", L" 1.5e3"));
  EXPECT_DOUBLE_EQ(1500.0, out.get<double>());
  ASSERT_TRUE(ql2::create_variant_from_string(out, L"double", L"-inf"));
  EXPECT_EQ(-HUGE_VAL, out.get<double>());
  ASSERT_TRUE(ql2::create_variant_from_string(out, L"float", L"1e999"));
  EXPECT_EQ(ql2::vtFloat, out.get_type());
  EXPECT_TRUE(std::isinf(out.get<double>()));
  ASSERT_TRUE(ql2::create_variant_from_string(out, L"double", L"1e-999"));
  EXPECT_EQ(0.0, out.get<double>());
  ASSERT_TRUE(ql2::create_variant_from_string(out, L"wstring", L"w"));
  EXPECT_EQ(L"w", text_of(out));
  ASSERT_TRUE(ql2::create_variant_from_string(out, L"dummy", L"x"));
  EXPECT_EQ(ql2::vtNull, out.get_type());
}
