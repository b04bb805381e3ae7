// The thread pool's wake-ups: each job that finds idle workers wakes one that nobody has
// woken yet, and a terminate reaches workers that sleep idle.
#include "threading_support.hpp"

namespace {

using namespace q2thr;
using pool_t = rig_t<thread_pool_unit_t>;

// Queues two jobs that can only end together, so both idle workers must be woken.
bool run_pair(pool_t& pool, std::size_t completions_before) {
  auto both = std::make_shared<latch_t>(2);
  std::atomic<bool> met{true};
  work_fn const meet = [both, &met](task_ptr const&) {
    both->open();
    if (!both->wait()) met = false;
  };
  pool.unit.execute(make_task(), pool.works.stage(L"service", meet));
  pool.unit.execute(make_task(), pool.works.stage(L"service", meet));
  return pool.recorder->wait('d', completions_before + 2) && met;
}

bool idle(pool_t& pool) {
  for (auto const end = std::chrono::steady_clock::now() + patience;
       std::chrono::steady_clock::now() < end; std::this_thread::yield()) {
    if (pool.unit.get_active_threads() == 0) return true;
  }
  return false;
}

TEST(ThreadPoolWakeUps, JobsQueuedOneAfterTheOtherWakeDistinctIdleWorkers) {
  pool_t pool(2u);
  for (std::size_t round = 0; round < 30; ++round) {
    ASSERT_TRUE(run_pair(pool, 2 * round)) << "round " << round;
    ASSERT_TRUE(idle(pool));  // both workers sleep again before the next pair comes
  }
  EXPECT_EQ(2u, pool.recorder->count('s'));
}

TEST(ThreadPoolWakeUps, TerminateEndsIdleWorkersAndLaterJobsGetNewOnes) {
  pool_t pool(2u);
  ASSERT_TRUE(run_pair(pool, 0));
  ASSERT_TRUE(idle(pool));
  pool.unit.terminate();  // joins both idle workers
  EXPECT_EQ(2u, pool.recorder->count('f'));
  ASSERT_TRUE(run_pair(pool, 2));
  EXPECT_EQ(4u, pool.recorder->count('s'));
}

}  // namespace
