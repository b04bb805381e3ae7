#include <algorithm>
#include <numeric>
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

using namespace q2test;
using pool_t = rig_t<qt::thread_pool_unit_t>;

}  // namespace

TEST(ThreadPoolUnit, WithOneWorkerRunsJobsInOrderAndCompletesThemThere) {
  pool_t pool(1u);
  std::vector<int> order;  // one worker: no lock, which TSan checks
  std::set<std::thread::id> threads;
  std::string name;
  std::vector<std::unique_ptr<work_t>> works;
  for (int i = 0; i < 20; ++i) {
    works.push_back(std::make_unique<work_t>([&, i](task_ptr) {
      order.push_back(i);
      threads.insert(std::this_thread::get_id());
      name = qt::get_thread_name();
    }));
    ASSERT_EQ(qt::seOk,
              pool.unit.execute(make_task("copy files"), make_stage(L"main", *works.back())));
  }
  ASSERT_TRUE(pool.scheduler.wait_for_completions(20));
  std::vector<int> expected(20);
  std::iota(expected.begin(), expected.end(), 0);
  EXPECT_EQ(expected, order);
  ASSERT_EQ(1u, threads.size());
  EXPECT_NE(std::this_thread::get_id(), *threads.begin());
  for (auto const& done : pool.scheduler.completions()) EXPECT_EQ(*threads.begin(), done.thread);
  EXPECT_EQ("Sh(TP): copy files", name);
  EXPECT_EQ(1, pool.observer->started.load());
}

TEST(ThreadPoolUnit, StartsWorkersForBusyJobsUpToItsLimit) {
  pool_t pool(4u);
  latch_t all_busy(4), release(1);
  work_t blocking([&](task_ptr) {
    all_busy.count_down();
    release.wait();
  });
  for (int i = 0; i < 6; ++i) pool.unit.execute(make_task(), make_stage(L"service", blocking));
  ASSERT_TRUE(all_busy.wait());
  EXPECT_EQ(4u, pool.unit.get_active_threads());
  release.count_down();
  ASSERT_TRUE(pool.scheduler.wait_for_completions(6));
  EXPECT_EQ(4, pool.observer->started.load());  // the two others waited in the queue
  EXPECT_TRUE(eventually([&] { return pool.unit.get_active_threads() == 0; }));  // idle
}

TEST(ThreadPoolUnit, JobsThatEndBeforeTheNextComeShareOneWorkerButFollowUpsDoNot) {
  pool_t pool(4u);
  work_t quick([](task_ptr) {});
  for (std::size_t i = 1; i <= 3; ++i) {
    pool.unit.execute(make_task(), make_stage(L"service", quick));
    ASSERT_TRUE(pool.scheduler.wait_for_completions(i));
    ASSERT_TRUE(eventually([&] { return pool.unit.get_active_threads() == 0; }));
  }
  EXPECT_EQ(1, pool.observer->started.load());
  // A next stage dispatched from a completion finds its worker still busy.
  std::atomic<bool> sent{false};
  pool.scheduler.then = [&](task_ptr t) {
    if (!sent.exchange(true)) pool.unit.execute(t, make_stage(L"service", quick));
  };
  pool.unit.execute(make_task(), make_stage(L"service", quick));
  ASSERT_TRUE(pool.scheduler.wait_for_completions(5));
  EXPECT_TRUE(eventually([&] { return pool.observer->started.load() == 2; }));
}

TEST(ThreadPoolUnit, HoldsAtMost100001Jobs) {
  pool_t pool(0u);  // never starts a worker
  work_t never([](task_ptr) { ADD_FAILURE() << "no worker may run"; });
  auto task = make_task();
  auto stage = make_stage(L"service", never);
  for (std::size_t i = 0; i < 100001; ++i) ASSERT_EQ(qt::seOk, pool.unit.execute(task, stage));
  EXPECT_EQ(qt::seQueueFull, pool.unit.execute(task, stage));
  EXPECT_EQ(qt::seInvalidArgument, pool.unit.execute(nullptr, stage));
  EXPECT_EQ(0, pool.observer->started.load());
  EXPECT_EQ(std::min(qt::thread_pool_unit_t::MaxThreads, 16u),
            qt::thread_pool_unit_t().get_thread_limit());
}

TEST(ThreadPoolUnit, TerminateStopsTheWorkersWithJobsStillQueued) {
  pool_t pool(1u);
  std::atomic<int> ran{0};
  work_t first([&](task_ptr) {
    ++ran;
    while (!boost::this_thread::interruption_requested()) std::this_thread::yield();
  });
  work_t rest([&](task_ptr) { ++ran; });
  pool.unit.execute(make_task(), make_stage(L"service", first));
  for (int i = 0; i < 10; ++i) pool.unit.execute(make_task(), make_stage(L"service", rest));
  ASSERT_TRUE(eventually([&] { return ran.load() == 1; }));
  pool.unit.terminate();  // the worker ends before its next job
  EXPECT_EQ(1, ran.load());
  EXPECT_EQ(1, pool.observer->finished.load());
  // The jobs stayed; the next execute starts a new worker that takes them.
  pool.unit.execute(make_task(), make_stage(L"service", rest));
  ASSERT_TRUE(pool.scheduler.wait_for_completions(12));
  EXPECT_EQ(2, pool.observer->started.load());
}

TEST(ThreadPoolUnit, AThrowingStageIsReportedAndTheWorkerGoesOn) {
  pool_t pool(1u);
  work_t thrower([](task_ptr) { throw std::runtime_error("broken stage"); });
  std::thread::id worker;
  work_t fine([&](task_ptr) { worker = std::this_thread::get_id(); });
  auto bad = make_task("bad");
  pool.unit.execute(bad, make_stage(L"service", thrower));
  pool.unit.execute(make_task("good"), make_stage(L"service", fine));
  ASSERT_TRUE(pool.scheduler.wait_for_completions(1));
  EXPECT_NE(bad, pool.scheduler.completions().at(0).task);  // never completes
  EXPECT_EQ(1, pool.observer->exceptions.load());
  EXPECT_EQ(worker, pool.observer->exception_thread.load());
  EXPECT_EQ(1, pool.observer->started.load());
}
