// Arithmetic, logic and printing of variants: each row of the rules that has its own
// outcome, and the printed forms.
#include <cmath>
#include <limits>
#include <sstream>
#include <tuple>

#include "das/das_support.hpp"

using namespace das_test;

namespace {

// Every test sees the assertions its own calls report.
class VariantMath : public ::testing::Test {
 protected:
  std::vector<std::string> taken() { return m_capture.take_conditions(); }

 private:
  q2test::assert_recorder_t m_capture;
};

variant_t w(wchar_t const* text) { return variant_t(text, false); }
variant_t s64(s64_t v) { return variant_t(v); }
variant_t u64(u64_t v) { return variant_t(v); }
variant_t blob() { return variant_t(static_cast<void const*>("ab"), 2); }
das_variant_type_t const null = vtNull;
s64_t const s64_min = std::numeric_limits<s64_t>::min();

std::wstring printed(variant_t const& v, bool annotate) {
  variant_t text(L"old", false);
  print_variant(v, text, annotate);
  return text.get<wchar_t const*>();
}

std::string const k_unsupported = "Unsupported variant types in arithmetic operation";

}  // namespace

TEST_F(VariantMath, AddFollowsTheFirstMatchingRow) {
  EXPECT_EQ(null, variant_add(variant_t(), variant_t(), L"-").get_type());
  EXPECT_TRUE(same(variant_t(static_cast<char>(5)),
                   variant_add(variant_t(), variant_t(static_cast<char>(5)), L"-")));
  EXPECT_TRUE(same(w(L"(none)x"), variant_add(variant_t(), w(L"x"), L"(none)")));
  EXPECT_TRUE(same(w(L"x(none)"), variant_add(w(L"x"), variant_t(), L"(none)")));
  EXPECT_TRUE(same(s64(200), variant_add(variant_t(static_cast<char>(100)),
                                         variant_t(static_cast<char>(100)), L"")));
  EXPECT_TRUE(same(u64(0), variant_add(variant_t(-1), variant_t(1u), L"")));
  EXPECT_TRUE(same(s64(s64_min), variant_add(s64(-(s64_min + 1)), s64(1), L"")));
  EXPECT_TRUE(same(variant_t(2.5), variant_add(variant_t(2), variant_t(0.5f), L"")));
  EXPECT_TRUE(same(variant_t(static_cast<double>(UINT64_MAX) + 1.0),
                   variant_add(u64(UINT64_MAX), variant_t(1.0), L"")));
  EXPECT_TRUE(same(w(L"12"), variant_add(variant_t(1), w(L"2"), L"")));
  EXPECT_TRUE(same(w(L"a"), variant_add(w(L"a"), blob(), L"")));
  EXPECT_TRUE(taken().empty());

  EXPECT_EQ(null, variant_add(variant_t(1.0), w(L"2"), L"").get_type());
  EXPECT_EQ(list_t{"can_get<double>()"}, taken());
  EXPECT_EQ(null, variant_add(blob(), blob(), L"").get_type());
  EXPECT_EQ(list_t{k_unsupported}, taken());
}

TEST_F(VariantMath, SubtractFollowsTheFirstMatchingRow) {
  EXPECT_EQ(null, variant_sub(variant_t(), variant_t()).get_type());
  EXPECT_TRUE(same(variant_t(3u), variant_sub(variant_t(3u), variant_t())));
  EXPECT_TRUE(same(s64(-5), variant_sub(variant_t(), variant_t(5u))));
  EXPECT_TRUE(same(variant_t(-2.5), variant_sub(variant_t(), variant_t(2.5))));
  EXPECT_TRUE(same(s64(-1), variant_sub(variant_t(1u), variant_t(2u))));
  EXPECT_TRUE(same(w(L"acac"), variant_sub(w(L"abcabc"), w(L"b"))));
  EXPECT_TRUE(same(w(L"13"), variant_sub(variant_t(123), w(L"2"))));
  EXPECT_TRUE(same(w(L"abc"), variant_sub(w(L"abc"), w(L""))));
  EXPECT_TRUE(same(w(L""), variant_sub(blob(), w(L"a"))));
  EXPECT_TRUE(taken().empty());

  EXPECT_EQ(null, variant_sub(variant_t(), blob()).get_type());
  EXPECT_EQ(null, variant_sub(blob(), blob()).get_type());
  EXPECT_EQ((list_t{k_unsupported, k_unsupported}), taken());
  EXPECT_EQ(null, variant_sub(w(L"x"), variant_t(1.0)).get_type());
  EXPECT_EQ(list_t{"can_get<double>()"}, taken());
}

TEST_F(VariantMath, MultiplyAndDivide) {
  EXPECT_EQ(null, variant_div(variant_t(2), variant_t()).get_type());
  EXPECT_TRUE(same(s64(-6), variant_mult(variant_t(-2), variant_t(3))));
  EXPECT_TRUE(same(u64(UINT64_MAX - 1), variant_mult(variant_t(-1), variant_t(2u))));
  EXPECT_TRUE(same(u64(0), variant_mult(u64(1ull << 32), u64(1ull << 32))));
  EXPECT_TRUE(same(s64(-3), variant_div(variant_t(-7), variant_t(2))));
  EXPECT_TRUE(same(u64(3), variant_div(variant_t(7u), variant_t(2))));
  EXPECT_TRUE(same(variant_t(3.5), variant_div(variant_t(7), variant_t(2.0))));
  EXPECT_EQ(HUGE_VAL, variant_div(variant_t(1.0), variant_t(0)).get<double>());
  EXPECT_TRUE(same(s64(s64_min), variant_div(s64(s64_min), s64(-1))));
  EXPECT_TRUE(taken().empty());

  EXPECT_EQ(null, variant_div(variant_t(1u), u64(0)).get_type());
  EXPECT_EQ((list_t{"divisor != 0"}), taken());
  EXPECT_EQ(null, variant_mult(w(L"2"), variant_t(3)).get_type());
  EXPECT_EQ(list_t{k_unsupported}, taken());
  EXPECT_EQ(null, variant_div(blob(), variant_t(3.0)).get_type());
  EXPECT_EQ(list_t{"can_get<double>()"}, taken());
}

TEST_F(VariantMath, LogicConvertsBothOperands) {
  EXPECT_TRUE(variant_not(variant_t()));
  EXPECT_TRUE(variant_not(variant_t(1e-17)));
  EXPECT_FALSE(variant_not(variant_t(-1e-15)));
  EXPECT_TRUE(variant_not(w(L"")));
  EXPECT_FALSE(variant_not(variant_t(L"x", true)));
  EXPECT_FALSE(variant_and(variant_t(1), variant_t(0.0)));
  EXPECT_TRUE(taken().empty());

  EXPECT_FALSE(variant_not(variant_t("x", false)));
  EXPECT_EQ(list_t{"can_get<const wchar_t*>()"}, taken());
  EXPECT_TRUE(variant_or(variant_t(1), blob()));
  EXPECT_FALSE(variant_and(variant_t(0), blob()));
  EXPECT_EQ(list_t(2, "Incorrect variant type for boolean conversion"), taken());
}

TEST_F(VariantMath, PrintedForms) {
  EXPECT_EQ(L"42 !s32_t", printed(variant_t(42), true));
  EXPECT_EQ(L"18446744073709551615 !u64_t", printed(u64(UINT64_MAX), true));
  EXPECT_EQ(L"0.1 !float", printed(variant_t(0.1f), true));
  EXPECT_EQ(L"0.123457 !double", printed(variant_t(0.123456789), true));
  EXPECT_EQ(L"1e+20", printed(variant_t(1e20), false));
  EXPECT_EQ(L"null", printed(variant_t(), true));
  EXPECT_EQ(L"", printed(variant_t(notype_ptr_t()), true));
  std::ostringstream stream;
  stream << variant_t(L"\u00e9", false) << '|' << variant_t(3u);
  EXPECT_EQ("\xc3\xa9 !ustring|3 !u32_t", stream.str());
  EXPECT_STREQ(L"vtLast_Used", debug_get_variant_type(static_cast<das_variant_type_t>(19)));
  EXPECT_EQ(nullptr, debug_get_variant_type(static_cast<das_variant_type_t>(20)));
}

TEST_F(VariantMath, DebugPrintersWriteToStandardOutput) {
  variant_bag_t bag = bag_of(L"a", variant_t(1));
  variant_bag_t& child = bag.add_variant_bag(L"c", variant_bag_t());
  child.add(L"b", variant_t(2));
  child.add_variant_bag(L"g", variant_bag_t()).add(L"c", w(L"t"));
  bag.add(L"z", variant_t(2.5));
  ::testing::internal::CaptureStdout();
  debug_print_variant_bag(bag, false, L">");
  debug_print_variant(variant_t(7), true);
  EXPECT_EQ(
      "> <a> = 1\n> <z> = 2.5\n> [c]\n>\t <b> = 2\n>\t [g]\n>\t\t <c> = t\n"
      "7 !s32_t",
      ::testing::internal::GetCapturedStdout());
}

TEST_F(VariantMath, TextFormOfSingleValues) {
  EXPECT_EQ(nullptr, get_type_string(blob()));
  // Only a wide string has text of its own.
  EXPECT_TRUE(same(w(L"false"), get_value_string(variant_t(false))));
  EXPECT_TRUE(same(w(L"-9223372036854775808"), get_value_string(s64(s64_min))));
  EXPECT_TRUE(same(w(L"inf"), get_value_string(variant_t(HUGE_VAL))));
  for (variant_t const& none : {variant_t(), blob(), variant_t(L"r", true)})
    EXPECT_TRUE(same(w(L""), get_value_string(none)));

  variant_t out(L"keep", false);
  EXPECT_FALSE(create_variant_from_string(out, L"blob", L"00"));
  EXPECT_FALSE(create_variant_from_string(out, L"S32_T", L"1"));
  EXPECT_TRUE(same(w(L"keep"), out));
  for (auto const& [type, text, expected] :
       std::vector<std::tuple<wchar_t const*, wchar_t const*, variant_t>>{
           {nullptr, L"v", w(L"v")},
           {L"bool", nullptr, false},
           {L"u16_t", L"65535", u16_t(65535)},
           {L"double", L" 1.5e3", 1500.0},
           {L"double", L"-inf", -HUGE_VAL},
           {L"float", L"1e999", HUGE_VALF},
           {L"double", L"1e-999", 0.0},
           {L"dummy", L"x", variant_t()}}) {
    ASSERT_TRUE(create_variant_from_string(out, type, text));
    EXPECT_TRUE(same(expected, out)) << (type ? type : L"-");
  }
}
