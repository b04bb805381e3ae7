// Assertions: reports with their source position, hook capture, abort on request.
#include <stdlib.h>

#include <quillon2/core/assert.hpp>

#include "core/core_support.hpp"

namespace {

unsigned g_assert_line = 0;

int guarded_division(int a, int b) {
  g_assert_line = __LINE__ + 1;
  QUILLON_ASSERT(b != 0);
  return b != 0 ? a / b : 0;
}

TEST(Assert, ReportsToTheHookFromEveryThreadAndGoesOn) {
  q2test::assert_recorder_t asserts;
  EXPECT_EQ(0, guarded_division(1, 0));
  auto const reports = asserts.reports();
  ASSERT_EQ(1u, reports.size());
  EXPECT_EQ("b != 0|" __FILE__ "|" + std::to_string(g_assert_line) + "|guarded_division",
            reports[0].condition + "|" + reports[0].file + "|" + std::to_string(reports[0].line) +
                "|" + reports[0].function);
  int evaluations = 0;
  QUILLON_ASSERT(++evaluations == 1);  // true: silent, evaluated once
  EXPECT_EQ(1, evaluations);
  q2test::on_threads(4, [](int) {
    for (int i = 0; i < 1000; ++i) QUILLON_ASSERT(i < 0);
  });
  EXPECT_EQ(4001u, asserts.count());
}

TEST(Assert, WithoutHookReportsOnStandardError) {
  auto const previous = quillon2::internal::set_assert_hook(nullptr);
  auto* const report = &kesmet2::debug::_private::____________________ASSERT____________________;
  testing::internal::CaptureStderr();
  report("x > 0", "a/f.cpp", 17, "f");
  report(nullptr, nullptr, 0, nullptr);
  EXPECT_EQ("a/f.cpp(17): f: assertion failed: x > 0\n?(0): ?: assertion failed: \n",
            testing::internal::GetCapturedStderr());
  quillon2::internal::set_assert_hook(previous);
}

TEST(AssertDeathTest, AbortsOnlyWhenAskedTo) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_DEATH(
      {
        setenv("QUILLON_ASSERT_ABORT", "1", 1);
        QUILLON_ASSERT(1 + 1 == 3);
      },
      "assertion failed: 1 \\+ 1 == 3");
  EXPECT_EXIT(
      {
        setenv("QUILLON_ASSERT_ABORT", "0", 1);
        QUILLON_ASSERT(false);
        exit(3);
      },
      testing::ExitedWithCode(3), "assertion failed: false");
}

}  // namespace
