// The thread pool's wake-ups: each job that finds idle workers wakes one that nobody has
// woken yet, and a terminate reaches workers that sleep idle.
#include <quillon2/core/threading/units/thread_pool_unit.hpp>

#include "unit_test_support.hpp"

namespace {

using namespace q2test;
using pool_t = rig_t<qt::thread_pool_unit_t>;

// Queues two jobs that can only end together, so both idle workers must be woken.
bool run_pair(pool_t& pool, std::size_t completions_before) {
  latch_t both(2);
  bool met = true;
  std::mutex mutex;
  work_t meet([&](task_ptr) {
    both.count_down();
    bool const ok = both.wait();
    std::lock_guard<std::mutex> guard(mutex);
    met = met && ok;
  });
  pool.unit.execute(make_task(), make_stage(L"service", meet));
  pool.unit.execute(make_task(), make_stage(L"service", meet));
  if (!pool.scheduler.wait_for_completions(completions_before + 2)) return false;
  std::lock_guard<std::mutex> guard(mutex);
  return met;
}

}  // namespace

TEST(ThreadPoolWakeUps, JobsQueuedOneAfterTheOtherWakeDistinctIdleWorkers) {
  pool_t pool(2u);
  std::size_t done = 0;
  for (int round = 0; round < 30; ++round) {
    ASSERT_TRUE(run_pair(pool, done)) << "round " << round;
    done += 2;
    // Both workers go back to sleep before the next pair comes.
    ASSERT_TRUE(eventually([&] { return pool.unit.get_active_threads() == 0; }));
  }
  EXPECT_EQ(2, pool.observer->started.load());
}

TEST(ThreadPoolWakeUps, TerminateEndsIdleWorkersAndLaterJobsGetNewOnes) {
  pool_t pool(2u);
  ASSERT_TRUE(run_pair(pool, 0));
  ASSERT_TRUE(eventually([&] { return pool.unit.get_active_threads() == 0; }));
  pool.unit.terminate();  // joins both idle workers
  EXPECT_EQ(2, pool.observer->finished.load());
  ASSERT_TRUE(run_pair(pool, 2));
  EXPECT_EQ(4, pool.observer->started.load());
}
