// The library's recursive mutex and its guard.
//
// A mutex_t is a value whose copies do not share the lock: copying makes a new,
// unlocked mutex and assignment leaves the target as it is. This lets classes that
// hold one keep their implicit copy operations.
//
// The implementation sits behind a pointer, but in storage of the object itself: making
// a mutex costs no allocation, which matters to signals and tasks, made by the thousand.
#pragma once

#include <quillon2/export.hpp>

namespace quillon2::threading {

class QUILLON2_API mutex_t {
 public:
  mutex_t();
  mutex_t(mutex_t const&);
  mutex_t& operator=(mutex_t const&);
  ~mutex_t();

  // Recursive: the owning thread may acquire again and must release as often. A thread
  // that finds the mutex held spins for a moment, then sleeps until it is released.
  void acquire();
  void release();

 private:
  struct impl_t;
  impl_t* m_impl;
  alignas(8) unsigned char m_storage[48];
};

// Holds a mutex_t for its own lifetime.
class QUILLON2_API mutex_guard_t {
 public:
  explicit mutex_guard_t(mutex_t& mutex);
  ~mutex_guard_t();
  mutex_guard_t(mutex_guard_t const&) = delete;
  mutex_guard_t& operator=(mutex_guard_t const&) = delete;

 private:
  mutex_t& m_mutex;
};

}  // namespace quillon2::threading
