// The recursive mutex and its guard, on real threads.
#include <future>

#include <quillon2/core/threading/mutex.hpp>

#include "core/core_support.hpp"

using quillon2::threading::mutex_guard_t;
using quillon2::threading::mutex_t;

namespace {

// Holds a mutex on a thread of its own until release() or destruction.
class holder_t {
 public:
  explicit holder_t(mutex_t& mutex)
      : m_thread([this, &mutex] {
          mutex_guard_t guard(mutex);
          m_locked.set_value();
          m_release.get_future().wait();
        }) {
    m_locked.get_future().wait();
  }
  ~holder_t() { release(); }
  void release() {
    if (!m_thread.joinable()) return;
    m_release.set_value();
    m_thread.join();
  }

 private:
  std::promise<void> m_locked, m_release;
  std::thread m_thread;
};

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
  holder_t holder(held);
  mutex_t copy(held);
  target = held;
  lock_elsewhere(copy);
  lock_elsewhere(target);
  holder.release();
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
