// A lock on one int-sized word, for locks that live inside other objects.
//
// The word reads 0 when free, 1 when held and 2 when held with a thread that may sleep
// on it. A thread that finds it taken spins for a while before it sleeps: the sections
// it guards are short, and a holder running on another processor lets go sooner than a
// sleep and a wake-up take (each a system call and a context switch). Not recursive.
#pragma once

#include <atomic>

#include "core/threading/include/platform.hpp"

namespace quillon2::internal {

// The contended half of lock_word.
void lock_word_contended(std::atomic<int>& word) noexcept;

inline void lock_word(std::atomic<int>& word) noexcept {
  int expected = 0;
  if (!word.compare_exchange_strong(expected, 1, std::memory_order_acquire)) {
    lock_word_contended(word);
  }
}

inline void unlock_word(std::atomic<int>& word) noexcept {
  if (word.exchange(0, std::memory_order_release) == 2) wake_one_on_word(word);
}

// Holds a word lock for its own lifetime, or between unlock and lock when asked.
class word_guard_t {
 public:
  explicit word_guard_t(std::atomic<int>& word) noexcept : m_word(word) { lock(); }
  ~word_guard_t() {
    if (m_held) unlock_word(m_word);
  }
  word_guard_t(word_guard_t const&) = delete;
  word_guard_t& operator=(word_guard_t const&) = delete;

  void lock() noexcept {
    lock_word(m_word);
    m_held = true;
  }
  void unlock() noexcept {
    m_held = false;
    unlock_word(m_word);
  }

 private:
  std::atomic<int>& m_word;
  bool m_held = false;
};

}  // namespace quillon2::internal
