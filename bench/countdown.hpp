// Counts finished work in the threaded benchmarks: the last piece wakes the thread that
// waits for the whole batch.
#pragma once

#include <atomic>
#include <condition_variable>
#include <mutex>

namespace q2_bench {

class countdown_t {
 public:
  void reset(long target) {
    std::lock_guard<std::mutex> guard(m_mutex);
    m_target = target;
    m_done.store(0, std::memory_order_relaxed);
  }
  void done_one() {
    if (m_done.fetch_add(1, std::memory_order_acq_rel) + 1 == m_target) {
      std::lock_guard<std::mutex> guard(m_mutex);
      m_cv.notify_all();
    }
  }
  void wait() {
    std::unique_lock<std::mutex> lock(m_mutex);
    m_cv.wait(lock, [&] { return m_done.load(std::memory_order_acquire) >= m_target; });
  }

 private:
  std::mutex m_mutex;
  std::condition_variable m_cv;
  std::atomic<long> m_done{0};
  long m_target = 0;
};

}  // namespace q2_bench
