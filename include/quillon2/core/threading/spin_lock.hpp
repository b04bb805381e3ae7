// The spin lock of the scheduler's short critical sections (a few container operations,
// never a call into a task, a stage or an observer).
//
// A failed attempt backs off by its count k, from 1: below 4 it retries at once, from 4
// to 15 it issues the processor's pause, from 16 to 31 it yields the time slice, and from
// 32 on it sleeps a millisecond before the next try. Not recursive.
#pragma once

#include <atomic>

#include <quillon2/export.hpp>

namespace quillon2::threading {

class QUILLON2_API spin_lock_t {
 public:
  spin_lock_t() noexcept = default;
  spin_lock_t(spin_lock_t const&) = delete;
  spin_lock_t& operator=(spin_lock_t const&) = delete;

  void lock() noexcept {
    if (!m_locked.exchange(true, std::memory_order_acquire)) return;
    lock_contended();
  }
  bool try_lock() noexcept { return !m_locked.exchange(true, std::memory_order_acquire); }
  void unlock() noexcept { m_locked.store(false, std::memory_order_release); }

 private:
  void lock_contended() noexcept;

  std::atomic<bool> m_locked{false};
};

// Holds a spin lock for its own lifetime.
class spin_guard_t {
 public:
  explicit spin_guard_t(spin_lock_t& lock) noexcept : m_lock(lock) { m_lock.lock(); }
  ~spin_guard_t() { m_lock.unlock(); }
  spin_guard_t(spin_guard_t const&) = delete;
  spin_guard_t& operator=(spin_guard_t const&) = delete;

 private:
  spin_lock_t& m_lock;
};

}  // namespace quillon2::threading
