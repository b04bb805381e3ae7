// Assertions: reports with their source position, hook capture, abort on request.
#include <stdlib.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include <quillon2/core/assert.hpp>

namespace {

using quillon2::internal::set_assert_hook;

std::string g_report;
std::atomic<int> g_count{0};
unsigned g_assert_line = 0;

void capture(char const* condition, char const* file, unsigned line, char const* function) {
  g_report = std::string(condition) + "|" + file + "|" + std::to_string(line) + "|" + function;
}

void count(char const*, char const*, unsigned, char const*) { ++g_count; }

int guarded_division(int a, int b) {
  g_assert_line = __LINE__ + 1;
  QUILLON_ASSERT(b != 0);
  return b != 0 ? a / b : 0;
}

}  // namespace

TEST(Assert, ReportsToTheHookAndGoesOn) {
  auto const previous = set_assert_hook(&capture);
  EXPECT_EQ(0, guarded_division(1, 0));
  EXPECT_EQ("b != 0|" __FILE__ "|" + std::to_string(g_assert_line) + "|guarded_division", g_report);
  int evaluations = 0;
  g_report.clear();
  QUILLON_ASSERT(++evaluations == 1);  // true: silent, evaluated once
  EXPECT_EQ(1, evaluations);
  EXPECT_EQ("", g_report);
  EXPECT_EQ(&capture, set_assert_hook(previous));
}

TEST(Assert, WithoutHookReportsOnStandardError) {
  auto const previous = set_assert_hook(nullptr);
  testing::internal::CaptureStderr();
  kesmet2::debug::_private::____________________ASSERT____________________("x > 0", "a/f.cpp", 17,
                                                                           "f");
  kesmet2::debug::_private::____________________ASSERT____________________(nullptr, nullptr, 0,
                                                                           nullptr);
  EXPECT_EQ("a/f.cpp(17): f: assertion failed: x > 0\n?(0): ?: assertion failed: \n",
            testing::internal::GetCapturedStderr());
  set_assert_hook(previous);
}

TEST(Assert, HookSeesEveryReportFromManyThreads) {
  g_count = 0;
  auto const previous = set_assert_hook(&count);
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t)
    threads.emplace_back([] {
      for (int i = 0; i < 1000; ++i) QUILLON_ASSERT(i < 0);
    });
  for (auto& thread : threads) thread.join();
  set_assert_hook(previous);
  EXPECT_EQ(4000, g_count.load());
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
