// Units: the execution engines of the scheduler, registered under a name that stages
// refer to.
//
// The contract of execute: accept the job or refuse it with an error, and later run it
// by emitting the stage's signal with the task and then stage_completed with the task.
// The scheduler listens to stage_completed; a unit that never emits it leaves the task
// where it is. The units of this library only enqueue in execute and run jobs elsewhere.
#pragma once

#include <boost/enable_shared_from_this.hpp>
#include <boost/shared_ptr.hpp>
#include <boost/thread/lock_guard.hpp>
#include <boost/thread/recursive_mutex.hpp>

#include <quillon2/core/functor/signal.hpp>
#include <quillon2/core/threading/scheduler.hpp>
#include <quillon2/core/threading/scheduler_error.hpp>
#include <quillon2/export.hpp>

namespace quillon2::threading {

class task_t;
struct stage_t;

// Units are held by boost::shared_ptr. The units of this library keep themselves alive
// while one of their threads runs a job, so that an owner released inside a job lets the
// unit go only once that thread has left it.
class QUILLON2_API unit_t : public boost::enable_shared_from_this<unit_t> {
 public:
  unit_t();
  unit_t(unit_t const&) = delete;
  unit_t& operator=(unit_t const&) = delete;
  virtual ~unit_t();

  // Called once the scheduler has registered the unit. Does nothing by default.
  virtual void on_registered();
  // Stops the unit's threads. Does nothing by default.
  virtual void terminate();
  // Gives the unit its own copy of the scheduler's observers, which it calls from its
  // threads. Does nothing by default.
  virtual void set_status_callbacks(status_callbacks_t const& callbacks);
  virtual scheduler_error_t execute(boost::shared_ptr<task_t> task,
                                    boost::shared_ptr<stage_t> stage) = 0;

  // Emitted with the task when one of its stages has been run.
  _internal::signal_t<boost::shared_ptr<task_t>> stage_completed;
};

}  // namespace quillon2::threading

namespace quillon2::_internal {

// The copy of the scheduler's observers that a unit of this library keeps
// (set_status_callbacks) and calls from its threads.
class QUILLON2_API unit_observers_t {
 public:
  void assign(threading::status_callbacks_t const& callbacks);

  // Calls `notify(callback)` for every observer of a copy taken under the mutex; the
  // observers are called with no lock held, so that one may call back into the
  // scheduler or replace the list (set_status_callbacks) from any thread.
  template <class Notify>
  void notify(Notify notify) {
    threading::status_callbacks_t snapshot;
    {
      boost::lock_guard<boost::recursive_mutex> guard(m_mutex);
      snapshot = m_callbacks;
    }
    for (auto const& callback : snapshot) {
      if (callback) notify(*callback);
    }
  }

 private:
  boost::recursive_mutex m_mutex;
  threading::status_callbacks_t m_callbacks;
};

}  // namespace quillon2::_internal
