// The recursive mutex and its guard, on real threads.
#include <atomic>
#include <condition_variable>
#include <future>
#include <mutex>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include <quillon2/core/threading/mutex.hpp>

using quillon2::threading::mutex_guard_t;
using quillon2::threading::mutex_t;

namespace {

// Holds `mutex` on a thread of its own until release() is called.
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
  std::promise<void> m_locked;
  std::promise<void> m_release;
  std::thread m_thread;
};

}  // namespace

TEST(Mutex, IsRecursive) {
  mutex_t mutex;
  mutex.acquire();
  mutex.acquire();
  { mutex_guard_t guard(mutex); }
  mutex.release();
  mutex.release();
  // Free again: another thread gets it.
  std::thread([&] { mutex_guard_t guard(mutex); }).join();
}

TEST(Mutex, ACopyDoesNotShareTheLock) {
  mutex_t source;
  mutex_t copy(source);
  holder_t holder(copy);
  // The copy is held on another thread; the source is still free here.
  mutex_guard_t guard(source);
}

TEST(Mutex, CopyOfAHeldMutexIsUnlocked) {
  mutex_t source;
  holder_t holder(source);
  mutex_t copy(source);
  mutex_guard_t guard(copy);
}

TEST(Mutex, AssignmentLeavesBothMutexesAsTheyWere) {
  mutex_t held;
  mutex_t target;
  holder_t holder(held);
  target = held;
  // The target is still its own, free mutex.
  std::thread([&] { mutex_guard_t guard(target); }).join();
  holder.release();
  mutex_guard_t guard(held);
}

TEST(Mutex, GuardsACounterUnderLoad) {
  mutex_t mutex;
  long counter = 0;
  constexpr int threads = 4;
  constexpr int rounds = 20000;
  std::vector<std::thread> workers;
  std::mutex start_mutex;
  std::condition_variable start;
  bool go = false;
  for (int t = 0; t < threads; ++t)
    workers.emplace_back([&] {
      {
        std::unique_lock<std::mutex> lock(start_mutex);
        start.wait(lock, [&] { return go; });
      }
      for (int i = 0; i < rounds; ++i) {
        mutex_guard_t guard(mutex);
        mutex_guard_t again(mutex);
        ++counter;
      }
    });
  {
    std::lock_guard<std::mutex> lock(start_mutex);
    go = true;
  }
  start.notify_all();
  for (auto& worker : workers) worker.join();
  EXPECT_EQ(static_cast<long>(threads) * rounds, counter);
}

TEST(Mutex, BlocksAnotherThreadWhileHeld) {
  mutex_t mutex;
  std::atomic<bool> entered{false};
  mutex.acquire();
  std::promise<void> started;
  std::thread waiter([&] {
    started.set_value();
    mutex_guard_t guard(mutex);
    entered = true;
  });
  started.get_future().wait();
  // Whatever the waiter has done meanwhile, it cannot be inside yet.
  EXPECT_FALSE(entered.load());
  mutex.release();
  waiter.join();
  EXPECT_TRUE(entered.load());
}
