#include <mutex>
#include <set>
#include <stdexcept>
#include <string>
#include <thread>

#include <boost/thread/thread.hpp>
#include <gtest/gtest.h>

#include <quillon2/core/threading/thread_name.hpp>
#include <quillon2/core/threading/units/threads_unit.hpp>

#include "unit_test_support.hpp"

namespace {

using namespace q2test;

struct ThreadsUnit : ::testing::Test, rig_t<qt::threads_unit_t> {};

class nameless_task_t : public qt::default_task_t {
  KESMET_2_18::strings::ustring8 get_display_name() const override { return ""; }
};

}  // namespace

TEST_F(ThreadsUnit, RunsEveryStageOnANewThreadNamedAfterItsTask) {
  std::mutex mutex;
  std::set<std::thread::id> threads;
  std::set<std::string> names;
  latch_t both(2);
  work_t work([&](task_ptr) {
    {
      std::lock_guard<std::mutex> guard(mutex);
      threads.insert(std::this_thread::get_id());
      names.insert(qt::get_thread_name());
    }
    both.count_down();
    both.wait();  // both threads live at once
  });
  unit.execute(make_task("indexing the whole disk, every file"), make_stage(L"long tasks", work));
  unit.execute(boost::make_shared<nameless_task_t>(), make_stage(L"long tasks", work));
  ASSERT_TRUE(scheduler.wait_for_completions(2));
  EXPECT_EQ(2u, threads.size());
  for (auto const& done : scheduler.completions()) EXPECT_EQ(1u, threads.count(done.thread));
  // 31 characters of "Sh(T): " and the name; the class name when the name is empty.
  EXPECT_EQ(
      (std::set<std::string>{"Sh(T): indexing the whole disk,", "Sh(T): (anonymous namespace)::n"}),
      names);
  EXPECT_TRUE(eventually([&] { return unit.get_active_threads() == 0; }));
  EXPECT_EQ(2, observer->finished.load());
}

TEST_F(ThreadsUnit, RefusesThe65thConcurrentStageButNotOneAfterAnotherEnded) {
  latch_t all_running(64), release(1);
  work_t blocking([&](task_ptr) {
    all_running.count_down();
    release.wait();
  });
  for (int i = 0; i < 64; ++i) {
    ASSERT_EQ(qt::seOk, unit.execute(make_task(), make_stage(L"long tasks", blocking)));
  }
  ASSERT_TRUE(all_running.wait());
  EXPECT_EQ(64u, unit.get_active_threads());
  EXPECT_EQ(qt::seQueueFull, unit.execute(make_task(), make_stage(L"long tasks", blocking)));
  EXPECT_EQ(qt::seInvalidArgument, unit.execute(nullptr, make_stage(L"long tasks", blocking)));
  release.count_down();
  ASSERT_TRUE(eventually([&] { return unit.get_active_threads() < 64; }));
  EXPECT_EQ(qt::seOk, unit.execute(make_task(), make_stage(L"long tasks", blocking)));
  ASSERT_TRUE(scheduler.wait_for_completions(65));
}

TEST_F(ThreadsUnit, TerminateInterruptsAndJoinsTheRunningStages) {
  latch_t all_running(3);
  work_t sleeper([&](task_ptr) {
    all_running.count_down();
    boost::this_thread::sleep_for(boost::chrono::hours(1));  // an interruption point
  });
  for (int i = 0; i < 3; ++i) unit.execute(make_task(), make_stage(L"long tasks", sleeper));
  ASSERT_TRUE(all_running.wait());
  unit.terminate();
  EXPECT_EQ(0u, unit.get_active_threads());
  EXPECT_EQ(3, observer->finished.load());
  EXPECT_EQ(0u, scheduler.completion_count());
  EXPECT_EQ(0, observer->exceptions.load());
}

TEST_F(ThreadsUnit, AThrowingStageIsReportedAndItsThreadEnds) {
  work_t thrower([&](task_ptr) { throw std::runtime_error("broken stage"); });
  unit.execute(make_task("bad"), make_stage(L"long tasks", thrower));
  ASSERT_TRUE(eventually([&] { return observer->finished.load() == 1; }));
  EXPECT_EQ(1, observer->exceptions.load());
  EXPECT_EQ(0u, scheduler.completion_count());
  EXPECT_TRUE(eventually([&] { return unit.get_active_threads() == 0; }));
}
