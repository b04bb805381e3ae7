// mutex_t: a recursive lock on one word (see word_lock.hpp), built in the object's own
// storage; and the contended half of that word lock.
#include <new>

#include <quillon2/core/threading/mutex.hpp>

#include "core/threading/include/platform.hpp"
#include "core/threading/include/word_lock.hpp"

namespace quillon2 {

namespace internal {

namespace {

// About a microsecond or two of waiting before the thread goes to sleep.
constexpr unsigned spin_rounds = 100;

}  // namespace

void lock_word_contended(std::atomic<int>& word) noexcept {
  for (unsigned round = 0; round < spin_rounds; ++round) {
    cpu_relax();
    int expected = 0;
    if (word.load(std::memory_order_relaxed) == 0 &&
        word.compare_exchange_weak(expected, 1, std::memory_order_acquire)) {
      return;
    }
  }
  // From here on the word says 2 while this thread may sleep, so that the holder's
  // release wakes it.
  while (word.exchange(2, std::memory_order_acquire) != 0) wait_on_word(word, 2);
}

}  // namespace internal

namespace threading {

struct mutex_t::impl_t {
  std::atomic<int> word{0};
  // The holder's thread key, 0 when free; only the holder writes its own key here, so a
  // thread that reads its own key is the holder.
  std::atomic<std::uintptr_t> owner{0};
  unsigned depth = 0;  // the holder's acquisitions; touched by the holder only

  void lock() noexcept { internal::lock_word(word); }
  void unlock() noexcept { internal::unlock_word(word); }
};

mutex_t::mutex_t() : m_impl(new (m_storage) impl_t) {
  static_assert(sizeof(impl_t) <= sizeof(m_storage) && alignof(impl_t) <= 8,
                "mutex_t's storage holds its implementation");
}

// A copy is a new mutex: the lock of the source is not shared.
mutex_t::mutex_t(mutex_t const&) : m_impl(new (m_storage) impl_t) {}

mutex_t& mutex_t::operator=(mutex_t const&) { return *this; }

mutex_t::~mutex_t() { m_impl->~impl_t(); }

void mutex_t::acquire() {
  std::uintptr_t const self = internal::current_thread_key();
  if (m_impl->owner.load(std::memory_order_relaxed) == self) {
    ++m_impl->depth;
    return;
  }
  m_impl->lock();
  m_impl->owner.store(self, std::memory_order_relaxed);
  m_impl->depth = 1;
}

void mutex_t::release() {
  if (--m_impl->depth != 0) return;
  m_impl->owner.store(0, std::memory_order_relaxed);
  m_impl->unlock();
}

mutex_guard_t::mutex_guard_t(mutex_t& mutex) : m_mutex(mutex) { m_mutex.acquire(); }

mutex_guard_t::~mutex_guard_t() { m_mutex.release(); }

}  // namespace threading

}  // namespace quillon2
