#include <algorithm>
#include <mutex>
#include <set>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <boost/thread/thread.hpp>
#include <gtest/gtest.h>
#include <quillon2/core/threading/thread_name.hpp>
#include <quillon2/core/threading/units/thread_pool_unit.hpp>

#include "unit_test_support.hpp"

namespace {

namespace qt = quillon2::threading;
using namespace q2test;

// A pool with its stand-in scheduler and a counting observer.
struct pool_t {
  explicit pool_t(unsigned limit) : unit(limit) {
    scheduler.attach(unit);
    unit.set_status_callbacks(callbacks_of(observer));
  }
  ~pool_t() { unit.terminate(); }

  boost::shared_ptr<counting_callback_t> observer = boost::make_shared<counting_callback_t>();
  test_scheduler_t scheduler;
  qt::thread_pool_unit_t unit;
};

// Waits, while running, until the thread is interrupted, then returns normally.
void until_interrupted(task_ptr) {
  while (!boost::this_thread::interruption_requested()) std::this_thread::yield();
}

}  // namespace

TEST(ThreadPoolUnit, RunsTheStageAndReportsCompletionOnTheSameWorker) {
  pool_t pool(2);
  std::thread::id stage_thread;
  std::string name_during_stage;
  work_t work([&](task_ptr) {
    stage_thread = std::this_thread::get_id();
    name_during_stage = qt::get_thread_name();
  });
  auto task = make_task("copy files");
  ASSERT_EQ(qt::seOk, pool.unit.execute(task, make_stage(L"service", work)));
  ASSERT_TRUE(pool.scheduler.wait_for_completions(1));
  auto done = pool.scheduler.completions().at(0);
  EXPECT_EQ(task, done.task);
  EXPECT_EQ(stage_thread, done.thread);
  EXPECT_NE(std::this_thread::get_id(), done.thread);
  EXPECT_EQ("Sh(TP): copy files", name_during_stage);
  EXPECT_EQ(1, pool.observer->started.load());
}

TEST(ThreadPoolUnit, WithOneWorkerRunsJobsStrictlyInOrder) {
  pool_t pool(1);
  std::vector<int> order;
  std::set<std::thread::id> threads;
  std::vector<std::unique_ptr<work_t>> works;
  for (int i = 0; i < 50; ++i) {
    works.push_back(std::make_unique<work_t>([&, i](task_ptr) {
      order.push_back(i);  // one worker: no lock needed, which TSan checks
      threads.insert(std::this_thread::get_id());
    }));
    ASSERT_EQ(qt::seOk, pool.unit.execute(make_task(), make_stage(L"main", *works.back())));
  }
  ASSERT_TRUE(pool.scheduler.wait_for_completions(50));
  std::vector<int> expected(50);
  for (int i = 0; i < 50; ++i) expected[i] = i;
  EXPECT_EQ(expected, order);
  EXPECT_EQ(1u, threads.size());
  EXPECT_EQ(1, pool.observer->started.load());
}

TEST(ThreadPoolUnit, StartsWorkersForBusyJobsUpToItsLimit) {
  pool_t pool(4);
  latch_t all_busy(4), release(1);
  work_t blocking([&](task_ptr) {
    all_busy.count_down();
    release.wait();
  });
  for (int i = 0; i < 6; ++i) pool.unit.execute(make_task(), make_stage(L"service", blocking));
  ASSERT_TRUE(all_busy.wait());
  EXPECT_EQ(4u, pool.unit.get_active_threads());
  EXPECT_EQ(4u, pool.unit.get_thread_limit());
  EXPECT_TRUE(eventually([&] { return pool.observer->started.load() == 4; }));
  release.count_down();
  ASSERT_TRUE(pool.scheduler.wait_for_completions(6));
  EXPECT_EQ(4, pool.observer->started.load());  // the queue waited; no fifth worker
  EXPECT_TRUE(eventually([&] { return pool.unit.get_active_threads() == 0; }));
}

TEST(ThreadPoolUnit, JobsThatFinishBeforeTheNextArrivesShareOneWorker) {
  pool_t pool(4);
  work_t quick([](task_ptr) {});
  for (std::size_t i = 1; i <= 5; ++i) {
    pool.unit.execute(make_task(), make_stage(L"service", quick));
    ASSERT_TRUE(pool.scheduler.wait_for_completions(i));
    // Idle workers do not count as active.
    ASSERT_TRUE(eventually([&] { return pool.unit.get_active_threads() == 0; }));
  }
  EXPECT_EQ(1, pool.observer->started.load());
}

TEST(ThreadPoolUnit, WithALimitOfZeroHoldsAtMost100001Jobs) {
  pool_t pool(0);
  work_t never([](task_ptr) { ADD_FAILURE() << "no worker may run"; });
  auto task = make_task();
  auto stage = make_stage(L"service", never);
  for (std::size_t i = 0; i < 100001; ++i) ASSERT_EQ(qt::seOk, pool.unit.execute(task, stage));
  EXPECT_EQ(qt::seQueueFull, pool.unit.execute(task, stage));
  EXPECT_EQ(0, pool.observer->started.load());
  EXPECT_EQ(qt::seInvalidArgument, pool.unit.execute(nullptr, stage));
}

TEST(ThreadPoolUnit, TerminateStopsWorkersWithJobsStillQueuedAndLaterStartsNewOnes) {
  pool_t pool(1);
  std::atomic<int> ran{0};
  work_t first([&](task_ptr t) {
    ++ran;
    until_interrupted(t);
  });
  work_t rest([&](task_ptr) { ++ran; });
  pool.unit.execute(make_task(), make_stage(L"service", first));
  for (int i = 0; i < 10; ++i) pool.unit.execute(make_task(), make_stage(L"service", rest));
  ASSERT_TRUE(eventually([&] { return ran.load() == 1; }));

  pool.unit.terminate();  // interrupts the worker, which ends before its next job
  EXPECT_EQ(1, ran.load());
  EXPECT_EQ(1, pool.observer->finished.load());
  EXPECT_EQ(1u, pool.scheduler.completion_count());

  // The queued jobs are still there and a new worker takes them.
  pool.unit.execute(make_task(), make_stage(L"service", rest));
  ASSERT_TRUE(pool.scheduler.wait_for_completions(12));
  EXPECT_EQ(12, ran.load());
  EXPECT_EQ(2, pool.observer->started.load());
}

TEST(ThreadPoolUnit, AThrowingStageIsReportedAndTheWorkerGoesOn) {
  pool_t pool(1);
  work_t thrower([](task_ptr) { throw std::runtime_error("broken stage"); });
  std::thread::id worker;
  work_t fine([&](task_ptr) { worker = std::this_thread::get_id(); });
  auto bad = make_task("bad");
  pool.unit.execute(bad, make_stage(L"service", thrower));
  pool.unit.execute(make_task("good"), make_stage(L"service", fine));
  ASSERT_TRUE(pool.scheduler.wait_for_completions(1));
  auto done = pool.scheduler.completions();
  ASSERT_EQ(1u, done.size());  // the failed stage never completes
  EXPECT_NE(bad, done[0].task);
  EXPECT_EQ(1, pool.observer->exceptions.load());
  EXPECT_EQ(worker, pool.observer->exception_threads().at(0));
  EXPECT_EQ(1, pool.observer->started.load());
  EXPECT_TRUE(eventually([&] { return pool.unit.get_active_threads() == 0; }));
}

TEST(ThreadPoolUnit, DefaultLimitIsTheMachineAtMostSixteen) {
  EXPECT_GE(qt::thread_pool_unit_t::MaxThreads, 1u);
  qt::thread_pool_unit_t unit;
  EXPECT_EQ(std::min(qt::thread_pool_unit_t::MaxThreads, 16u), unit.get_thread_limit());
}

TEST(ThreadPoolUnit, AFollowUpJobFromACompletionCountsTheWorkerAsBusy) {
  pool_t pool(2);
  work_t quick([](task_ptr) {});
  // The completion dispatches the task's next stage from the worker, which is still
  // active then: a second worker is started for it, although nothing else runs.
  std::atomic<bool> sent{false};
  pool.scheduler.then = [&](task_ptr t) {
    if (!sent.exchange(true)) pool.unit.execute(t, make_stage(L"service", quick));
  };
  pool.unit.execute(make_task(), make_stage(L"service", quick));
  ASSERT_TRUE(pool.scheduler.wait_for_completions(2));
  EXPECT_TRUE(eventually([&] { return pool.observer->started.load() == 2; }));
}
