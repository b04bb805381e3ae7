#include <chrono>
#include <string>
#include <thread>

#include <gtest/gtest.h>
#include <quillon2/core/threading/thread_name.hpp>
#include <quillon2/core/threading/units/delayed_tasks_unit.hpp>

#include "unit_test_support.hpp"

namespace {

namespace qt = quillon2::threading;
using namespace q2test;
using clock_type = std::chrono::steady_clock;

constexpr int an_hour = 3600 * 1000;

stage_ptr wait_stage(int delay_ms) {
  return boost::make_shared<qt::stage_t>(qt::unit_delay_tasks, delay_ms);
}

class DelayedTasksUnit : public ::testing::Test {
 protected:
  DelayedTasksUnit() {
    scheduler.attach(unit);
    unit.set_status_callbacks(callbacks_of(observer));
  }
  ~DelayedTasksUnit() override { unit.terminate(); }

  boost::shared_ptr<counting_callback_t> observer = boost::make_shared<counting_callback_t>();
  test_scheduler_t scheduler;
  qt::delayed_tasks_unit_t unit;
};

}  // namespace

TEST_F(DelayedTasksUnit, RefusesJobsWhileItsTimerDoesNotRun) {
  EXPECT_EQ(qt::seUnitNotStarted, unit.execute(make_task(), wait_stage(10)));
  unit.on_registered();
  EXPECT_TRUE(eventually([&] { return observer->started.load() == 1; }));
  EXPECT_EQ(qt::seOk, unit.execute(make_task(), wait_stage(an_hour)));
  unit.terminate();
  EXPECT_EQ(1, observer->finished.load());
  EXPECT_EQ(qt::seUnitNotStarted, unit.execute(make_task(), wait_stage(10)));
  EXPECT_EQ(1u, unit.pending_jobs());  // left pending; nobody completes it
  EXPECT_EQ(0u, scheduler.completion_count());
}

TEST_F(DelayedTasksUnit, RefusesDelaysOutsideTheTimersRange) {
  unit.on_registered();
  EXPECT_EQ(qt::seDelayOutOfRange, unit.execute(make_task(), wait_stage(0)));
  EXPECT_EQ(qt::seDelayOutOfRange, unit.execute(make_task(), wait_stage(-5)));
  // A stage built with work instead of a delay has a delay of 0.
  work_t work([](task_ptr) {});
  EXPECT_EQ(qt::seDelayOutOfRange, unit.execute(make_task(), make_stage(L"delay tasks", work)));
  EXPECT_EQ(qt::seInvalidArgument, unit.execute(nullptr, wait_stage(5)));
  EXPECT_EQ(0u, unit.pending_jobs());
}

TEST_F(DelayedTasksUnit, CompletesAWaitOnTheTimerThreadNeverEarly) {
  unit.on_registered();
  bool work_ran = false;
  work_t work([&](task_ptr) { work_ran = true; });
  auto stage = wait_stage(30);
  stage->signal.connect(&work, &work_t::run);  // a wait does not run the stage's work
  std::string completion_thread_name;
  latch_t named(1);
  scheduler.then = [&](task_ptr) {
    completion_thread_name = qt::get_thread_name();
    named.count_down();
  };

  auto const start = clock_type::now();
  ASSERT_EQ(qt::seOk, unit.execute(make_task(), stage));
  ASSERT_TRUE(named.wait());
  EXPECT_GE(clock_type::now() - start, std::chrono::milliseconds(30));
  EXPECT_NE(std::this_thread::get_id(), scheduler.completions()[0].thread);
  EXPECT_EQ("Sh(D): processing timers", completion_thread_name);
  EXPECT_FALSE(work_ran);
  EXPECT_EQ(0u, unit.pending_jobs());
}

TEST_F(DelayedTasksUnit, ACanceledTaskLeavesTheTimerWithoutItsDelay) {
  unit.on_registered();
  auto patient = make_task("patient");
  auto canceled = make_task("canceled");
  unit.execute(patient, wait_stage(an_hour));
  unit.execute(canceled, wait_stage(an_hour));
  canceled->cancel();
  ASSERT_TRUE(scheduler.wait_for_completions(1));
  EXPECT_EQ(canceled, scheduler.completions()[0].task);
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

TEST_F(DelayedTasksUnit, WaitsFireInArrivalOrder) {
  unit.on_registered();
  auto a = make_task("a"), b = make_task("b"), c = make_task("c");
  c->cancel();
  a->cancel();
  unit.execute(a, wait_stage(an_hour));
  unit.execute(b, wait_stage(an_hour));
  unit.execute(c, wait_stage(an_hour));
  ASSERT_TRUE(scheduler.wait_for_completions(2));
  auto done = scheduler.completions();
  EXPECT_EQ(a, done[0].task);
  EXPECT_EQ(c, done[1].task);
}

TEST_F(DelayedTasksUnit, HoldsAtMost100001PendingJobs) {
  unit.on_registered();
  auto task = make_task();
  auto stage = wait_stage(an_hour);
  for (std::size_t i = 0; i < 100001; ++i) ASSERT_EQ(qt::seOk, unit.execute(task, stage));
  EXPECT_EQ(qt::seQueueFull, unit.execute(task, stage));
  EXPECT_EQ(100001u, unit.pending_jobs());
}

TEST_F(DelayedTasksUnit, TerminateFromTheTimerThreadIsRefused) {
  unit.on_registered();
  std::string error;
  latch_t tried(1);
  scheduler.then = [&](task_ptr) {
    try {
      unit.terminate();
    } catch (boost::thread_resource_error const& e) {
      error = e.what();
    }
    tried.count_down();
  };
  unit.execute(make_task(), wait_stage(1));
  ASSERT_TRUE(tried.wait());
  unit.terminate();  // from here it works
  EXPECT_EQ(1, observer->finished.load());
  EXPECT_NE(std::string::npos, error.find("boost thread: trying joining itself"));
}
