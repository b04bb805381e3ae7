// The recursive mutex and its guard, on real threads.
#include <future>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include <quillon2/core/threading/mutex.hpp>

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

}  // namespace

TEST(Mutex, IsRecursiveAndFreeAfterTheLastRelease) {
  mutex_t mutex;
  mutex.acquire();
  { mutex_guard_t guard(mutex); }
  mutex.release();
  lock_elsewhere(mutex);
}

TEST(Mutex, CopiesDoNotShareTheLock) {
  mutex_t source;
  mutex_t copy(source);
  holder_t holder(copy);
  mutex_guard_t guard(source);  // the copy is held on another thread, the source is free
  mutex_t copy_of_held(copy);
  mutex_guard_t second(copy_of_held);
}

TEST(Mutex, AssignmentLeavesBothAsTheyWere) {
  mutex_t held, target;
  holder_t holder(held);
  target = held;
  lock_elsewhere(target);
  holder.release();
  lock_elsewhere(held);
}

TEST(Mutex, GuardsACounterUnderLoad) {
  mutex_t mutex;
  long counter = 0;
  std::promise<void> go;
  std::shared_future<void> start = go.get_future().share();
  std::vector<std::thread> workers;
  for (int t = 0; t < 4; ++t)
    workers.emplace_back([&] {
      start.wait();
      for (int i = 0; i < 20000; ++i) {
        mutex_guard_t guard(mutex);
        mutex_guard_t again(mutex);
        ++counter;
      }
    });
  go.set_value();
  for (auto& worker : workers) worker.join();
  EXPECT_EQ(80000, counter);
}
