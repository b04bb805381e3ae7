// The back-off of a contended spin lock.
#include <quillon2/core/threading/spin_lock.hpp>

#include "core/threading/include/platform.hpp"

namespace quillon2::threading {

void spin_lock_t::lock_contended() noexcept {
  // A holder that was preempted comes back within a time slice: waiters yield to it for
  // long before they sleep, and then only briefly, so that a short critical section never
  // costs a sleep of a whole millisecond.
  for (unsigned attempt = 1;; ++attempt) {
    if (attempt >= 256) {
      internal::sleep_microseconds(50);
    } else if (attempt >= 16) {
      internal::yield_thread();
    } else if (attempt >= 4) {
      internal::cpu_relax();
    }
    // Test before the exchange, so that waiters do not keep the cache line busy.
    if (!m_locked.load(std::memory_order_relaxed) &&
        !m_locked.exchange(true, std::memory_order_acquire)) {
      return;
    }
  }
}

}  // namespace quillon2::threading
