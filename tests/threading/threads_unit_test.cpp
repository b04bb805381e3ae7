#include <set>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <boost/thread/thread.hpp>
#include <gtest/gtest.h>
#include <quillon2/core/threading/thread_name.hpp>
#include <quillon2/core/threading/units/threads_unit.hpp>

#include "unit_test_support.hpp"

namespace {

namespace qt = quillon2::threading;
using namespace q2test;

class ThreadsUnit : public ::testing::Test {
 protected:
  ThreadsUnit() {
    scheduler.attach(unit);
    unit.set_status_callbacks(callbacks_of(observer));
  }
  ~ThreadsUnit() override { unit.terminate(); }

  boost::shared_ptr<counting_callback_t> observer = boost::make_shared<counting_callback_t>();
  test_scheduler_t scheduler;
  qt::threads_unit_t unit;
};

// A task class without a display name of its own.
class nameless_task_t : public qt::task_t {
 public:
  void cancel() override {}
  bool is_canceled() const override { return false; }
  stage_ptr pop_stage() override { return nullptr; }
  stage_ptr pop_finalization_stage() override { return nullptr; }
  KESMET_2_18::strings::ustring8 get_display_name() const override { return ""; }
};

}  // namespace

TEST_F(ThreadsUnit, RunsEveryStageOnANewThreadNamedAfterItsTask) {
  std::mutex mutex;
  std::set<std::thread::id> threads;
  std::vector<std::string> names;
  work_t work([&](task_ptr) {
    std::lock_guard<std::mutex> guard(mutex);
    threads.insert(std::this_thread::get_id());
    names.push_back(qt::get_thread_name());
  });
  latch_t second_may_run(1);
  work_t first([&](task_ptr t) {
    work.run(t);
    second_may_run.wait();  // keeps this thread alive while the second stage runs
  });
  unit.execute(make_task("indexing the whole disk, every file"), make_stage(L"long tasks", first));
  unit.execute(boost::make_shared<nameless_task_t>(), make_stage(L"long tasks", work));
  ASSERT_TRUE(eventually([&] {
    std::lock_guard<std::mutex> guard(mutex);
    return names.size() == 2;
  }));
  second_may_run.count_down();
  ASSERT_TRUE(scheduler.wait_for_completions(2));

  EXPECT_EQ(2u, threads.size());
  std::set<std::string> const got(names.begin(), names.end());
  // 31 characters of "Sh(T): " and the name; the class name for a nameless task.
  EXPECT_EQ((std::set<std::string>{"Sh(T): indexing the whole disk,",
                                   "Sh(T): (anonymous namespace)::n"}),
            got);
  for (auto const& done : scheduler.completions()) EXPECT_EQ(1u, threads.count(done.thread));
  EXPECT_TRUE(eventually([&] { return observer->finished.load() == 2; }));
  EXPECT_TRUE(eventually([&] { return unit.get_active_threads() == 0; }));
}

TEST_F(ThreadsUnit, RefusesThe65thConcurrentStageButNotOneAfterAnotherEnded) {
  EXPECT_EQ(64u, unit.get_thread_limit());
  latch_t all_running(64), release(1), late_release(1);
  work_t blocking([&](task_ptr) {
    all_running.count_down();
    release.wait();
  });
  for (int i = 0; i < 64; ++i) {
    ASSERT_EQ(qt::seOk, unit.execute(make_task(), make_stage(L"long tasks", blocking)));
  }
  ASSERT_TRUE(all_running.wait());
  EXPECT_EQ(64u, unit.get_active_threads());
  work_t later([&](task_ptr) { late_release.wait(); });
  EXPECT_EQ(qt::seQueueFull, unit.execute(make_task(), make_stage(L"long tasks", later)));

  release.count_down();
  ASSERT_TRUE(eventually([&] { return unit.get_active_threads() < 64; }));
  EXPECT_EQ(qt::seOk, unit.execute(make_task(), make_stage(L"long tasks", later)));
  late_release.count_down();
  ASSERT_TRUE(scheduler.wait_for_completions(65));
  EXPECT_EQ(qt::seInvalidArgument, unit.execute(nullptr, make_stage(L"long tasks", later)));
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
  EXPECT_EQ(0u, scheduler.completion_count());  // interrupted stages do not complete
  EXPECT_EQ(0, observer->exceptions.load());
}

TEST_F(ThreadsUnit, AThrowingStageIsReportedAndItsThreadEnds) {
  std::thread::id thrower_thread;
  work_t thrower([&](task_ptr) {
    thrower_thread = std::this_thread::get_id();
    throw std::runtime_error("broken stage");
  });
  unit.execute(make_task("bad"), make_stage(L"long tasks", thrower));
  ASSERT_TRUE(eventually([&] { return observer->finished.load() == 1; }));
  EXPECT_EQ(1, observer->exceptions.load());
  EXPECT_EQ(thrower_thread, observer->exception_threads().at(0));
  EXPECT_EQ(0u, scheduler.completion_count());
  EXPECT_TRUE(eventually([&] { return unit.get_active_threads() == 0; }));
}

TEST_F(ThreadsUnit, ACompletionMayStartTheNextStageOnTheSameUnit) {
  work_t quick([](task_ptr) {});
  auto task = make_task();
  std::atomic<int> chained{0};
  scheduler.then = [&](task_ptr t) {
    if (chained.fetch_add(1) < 3) unit.execute(t, make_stage(L"long tasks", quick));
  };
  unit.execute(task, make_stage(L"long tasks", quick));
  ASSERT_TRUE(scheduler.wait_for_completions(4));
  EXPECT_TRUE(eventually([&] { return observer->finished.load() == 4; }));
}
