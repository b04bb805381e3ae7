#include <chrono>
#include <string>
#include <thread>

#include <gtest/gtest.h>

#include <quillon2/core/threading/thread_name.hpp>
#include <quillon2/core/threading/units/delayed_tasks_unit.hpp>

#include "unit_test_support.hpp"

namespace {

using namespace q2test;

constexpr int an_hour = 3600 * 1000;

stage_ptr wait_stage(int delay_ms) {
  return boost::make_shared<qt::stage_t>(qt::unit_delay_tasks, delay_ms);
}

struct DelayedTasksUnit : ::testing::Test, rig_t<qt::delayed_tasks_unit_t> {};

}  // namespace

TEST_F(DelayedTasksUnit, RefusesJobsWhileItsTimerDoesNotRun) {
  EXPECT_EQ(qt::seUnitNotStarted, unit.execute(make_task(), wait_stage(10)));
  unit.on_registered();
  EXPECT_EQ(qt::seOk, unit.execute(make_task(), wait_stage(an_hour)));
  unit.terminate();
  EXPECT_EQ(1, observer->started.load());
  EXPECT_EQ(1, observer->finished.load());
  EXPECT_EQ(qt::seUnitNotStarted, unit.execute(make_task(), wait_stage(10)));
  EXPECT_EQ(1u, unit.pending_jobs());  // left pending; nobody completes it
}

TEST_F(DelayedTasksUnit, RefusesDelaysOutsideTheTimersRangeAndNullJobs) {
  unit.on_registered();
  EXPECT_EQ(qt::seDelayOutOfRange, unit.execute(make_task(), wait_stage(0)));
  EXPECT_EQ(qt::seDelayOutOfRange, unit.execute(make_task(), wait_stage(-5)));
  work_t work([](task_ptr) {});  // a stage built with work has a delay of 0
  EXPECT_EQ(qt::seDelayOutOfRange, unit.execute(make_task(), make_stage(L"delay tasks", work)));
  EXPECT_EQ(qt::seInvalidArgument, unit.execute(nullptr, wait_stage(5)));
  EXPECT_EQ(0u, unit.pending_jobs());
}

TEST_F(DelayedTasksUnit, CompletesAWaitOnTheTimerThreadNeverEarlyAndWithoutItsWork) {
  unit.on_registered();
  bool work_ran = false;
  work_t work([&](task_ptr) { work_ran = true; });
  auto stage = wait_stage(30);
  stage->signal.connect(&work, &work_t::run);
  std::string thread_name;
  latch_t named(1);
  scheduler.then = [&](task_ptr) {
    thread_name = qt::get_thread_name();
    named.count_down();
  };
  auto const start = std::chrono::steady_clock::now();
  ASSERT_EQ(qt::seOk, unit.execute(make_task(), stage));
  ASSERT_TRUE(named.wait());
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(30));
  EXPECT_EQ("Sh(D): processing timers", thread_name);
  EXPECT_FALSE(work_ran);
}

TEST_F(DelayedTasksUnit, CanceledTasksLeaveWithoutTheirDelayInArrivalOrder) {
  unit.on_registered();
  auto a = make_task("a"), patient = make_task("patient"), c = make_task("c");
  c->cancel();
  a->cancel();
  unit.execute(a, wait_stage(an_hour));
  unit.execute(patient, wait_stage(an_hour));
  unit.execute(c, wait_stage(an_hour));
  ASSERT_TRUE(scheduler.wait_for_completions(2));
  EXPECT_EQ(a, scheduler.completions()[0].task);
  EXPECT_EQ(c, scheduler.completions()[1].task);
  EXPECT_EQ(1u, unit.pending_jobs());
}

TEST_F(DelayedTasksUnit, AWaitThatFollowsAWaitOnTheSameUnitIsAccepted) {
  unit.on_registered();
  std::atomic<int> accepted{0};
  // What follows a finished wait runs on the timer thread and asks for another wait.
  scheduler.then = [&](task_ptr task) {
    if (accepted.load() < 3 && unit.execute(task, wait_stage(1)) == qt::seOk) ++accepted;
  };
  unit.execute(make_task(), wait_stage(1));
  ASSERT_TRUE(scheduler.wait_for_completions(4));
  EXPECT_EQ(3, accepted.load());
}

TEST_F(DelayedTasksUnit, HoldsAtMost100001PendingJobs) {
  unit.on_registered();
  auto task = make_task();
  auto stage = wait_stage(an_hour);
  for (std::size_t i = 0; i < 100001; ++i) ASSERT_EQ(qt::seOk, unit.execute(task, stage));
  EXPECT_EQ(qt::seQueueFull, unit.execute(task, stage));
}
