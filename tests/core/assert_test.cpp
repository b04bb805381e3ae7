// Assertions: reports with their source position, hook capture, abort on request.
#include <stdlib.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include <quillon2/core/assert.hpp>

namespace {

struct report_t {
  std::string condition;
  std::string file;
  unsigned line = 0;
  std::string function;
};

std::vector<report_t> g_reports;
std::atomic<int> g_report_count{0};

void capture(char const* condition, char const* file, unsigned line, char const* function) {
  g_reports.push_back({condition, file, line, function});
}

void count(char const*, char const*, unsigned, char const*) { ++g_report_count; }

// Installs a hook for one test and restores the previous one.
class hook_scope_t {
 public:
  explicit hook_scope_t(quillon2::internal::assert_hook_t hook)
      : m_previous(quillon2::internal::set_assert_hook(hook)) {}
  ~hook_scope_t() { quillon2::internal::set_assert_hook(m_previous); }

 private:
  quillon2::internal::assert_hook_t m_previous;
};

unsigned g_assert_line = 0;

int guarded_division(int a, int b) {
  g_assert_line = __LINE__ + 1;
  QUILLON_ASSERT(b != 0);
  return b != 0 ? a / b : 0;
}

}  // namespace

TEST(Assert, ReportsConditionPositionAndFunction) {
  g_reports.clear();
  hook_scope_t scope(&capture);
  EXPECT_EQ(0, guarded_division(1, 0));
  ASSERT_EQ(1u, g_reports.size());
  EXPECT_EQ("b != 0", g_reports[0].condition);
  EXPECT_NE(std::string::npos, g_reports[0].file.find("assert_test.cpp"));
  EXPECT_EQ(g_assert_line, g_reports[0].line);
  EXPECT_EQ("guarded_division", g_reports[0].function);
}

TEST(Assert, ATrueConditionIsSilentAndEvaluatedOnce) {
  g_reports.clear();
  hook_scope_t scope(&capture);
  int evaluations = 0;
  QUILLON_ASSERT(++evaluations == 1);
  EXPECT_EQ(1, evaluations);
  QUILLON_ASSERT(++evaluations == 7);
  EXPECT_EQ(2, evaluations);
  EXPECT_EQ(1u, g_reports.size());
}

TEST(Assert, SetHookReturnsThePreviousHook) {
  auto const original = quillon2::internal::set_assert_hook(&capture);
  EXPECT_EQ(&capture, quillon2::internal::set_assert_hook(&count));
  EXPECT_EQ(&count, quillon2::internal::set_assert_hook(original));
}

TEST(Assert, WithoutHookReportsOnStandardErrorAndReturns) {
  hook_scope_t scope(nullptr);
  testing::internal::CaptureStderr();
  kesmet2::debug::_private::____________________ASSERT____________________("x > 0", "some/file.cpp",
                                                                           17, "f");
  std::string const text = testing::internal::GetCapturedStderr();
  EXPECT_EQ("some/file.cpp(17): f: assertion failed: x > 0\n", text);
}

TEST(Assert, NullArgumentsAreReportedSafely) {
  hook_scope_t scope(nullptr);
  testing::internal::CaptureStderr();
  kesmet2::debug::_private::____________________ASSERT____________________(nullptr, nullptr, 0,
                                                                           nullptr);
  EXPECT_EQ("?(0): ?: assertion failed: \n", testing::internal::GetCapturedStderr());
}

TEST(Assert, HookSeesEveryReportFromManyThreads) {
  g_report_count = 0;
  hook_scope_t scope(&count);
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t)
    threads.emplace_back([] {
      for (int i = 0; i < 1000; ++i) QUILLON_ASSERT(i < 0);
    });
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(4000, g_report_count.load());
}

TEST(AssertDeathTest, AbortsWhenAskedTo) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_DEATH(
      {
        setenv("QUILLON_ASSERT_ABORT", "1", 1);
        QUILLON_ASSERT(1 + 1 == 3);
      },
      "assertion failed: 1 \\+ 1 == 3");
  // Any other value keeps going.
  EXPECT_EXIT(
      {
        setenv("QUILLON_ASSERT_ABORT", "0", 1);
        QUILLON_ASSERT(false);
        exit(3);
      },
      testing::ExitedWithCode(3), "assertion failed: false");
}
