// mutex_t over boost::recursive_mutex, built in the object's own storage.
#include <new>

#include <boost/thread/recursive_mutex.hpp>

#include <quillon2/core/threading/mutex.hpp>

namespace quillon2::threading {

struct mutex_t::impl_t {
  boost::recursive_mutex mutex;
};

mutex_t::mutex_t() : m_impl(new (m_storage) impl_t) {
  static_assert(sizeof(impl_t) <= sizeof(m_storage) && alignof(impl_t) <= 8,
                "mutex_t's storage holds its implementation");
}

// A copy is a new mutex: the lock of the source is not shared.
mutex_t::mutex_t(mutex_t const&) : m_impl(new (m_storage) impl_t) {}

mutex_t& mutex_t::operator=(mutex_t const&) { return *this; }

mutex_t::~mutex_t() { m_impl->~impl_t(); }

void mutex_t::acquire() { m_impl->mutex.lock(); }

void mutex_t::release() { m_impl->mutex.unlock(); }

mutex_guard_t::mutex_guard_t(mutex_t& mutex) : m_mutex(mutex) { m_mutex.acquire(); }

mutex_guard_t::~mutex_guard_t() { m_mutex.release(); }

}  // namespace quillon2::threading
