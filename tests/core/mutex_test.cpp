// The recursive mutex and its guard, on real threads.

#include <quillon2/core/threading/mutex.hpp>

#include "core/core_support.hpp"

using quillon2::threading::mutex_guard_t;
using quillon2::threading::mutex_t;

namespace {

// Takes and gives back the mutex on another thread: returns only if it is free.
void lock_elsewhere(mutex_t& mutex) {
  std::thread([&] { mutex_guard_t guard(mutex); }).join();
}

TEST(Mutex, IsRecursiveAndFreeAfterTheLastRelease) {
  mutex_t mutex;
  mutex.acquire();
  { mutex_guard_t guard(mutex); }
  mutex.release();
  lock_elsewhere(mutex);
}

TEST(Mutex, CopiesAndAssignmentsDoNotShareTheLock) {
  mutex_t held, target;
  held.acquire();
  mutex_t copy(held);
  target = held;
  lock_elsewhere(copy);
  lock_elsewhere(target);
  held.release();
  lock_elsewhere(held);
}

TEST(Mutex, GuardsACounterUnderLoad) {
  mutex_t mutex;
  long counter = 0;
  q2test::on_threads(4, [&](int) {
    for (int i = 0; i < 20000; ++i) {
      mutex_guard_t guard(mutex);
      mutex_guard_t again(mutex);
      ++counter;
    }
  });
  EXPECT_EQ(80000, counter);
}

}  // namespace
