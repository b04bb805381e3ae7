// What the units share: calling their copy of the observers, and the report of a stage
// that threw.
#pragma once

#include <boost/thread/lock_guard.hpp>
#include <boost/thread/recursive_mutex.hpp>

#include <quillon2/core/threading/scheduler.hpp>
#include <quillon2/core/threading/task.hpp>

namespace quillon2::internal {

// Calls `notify(callback)` for every observer of a unit's copy, under the unit's
// recursive mutex. The walk goes over a snapshot: an observer may replace the list
// (set_status_callbacks) from inside the call on the same thread.
template <class Notify>
void notify_status_callbacks(boost::recursive_mutex& mutex,
                             threading::status_callbacks_t const& callbacks, Notify notify) {
  boost::lock_guard<boost::recursive_mutex> guard(mutex);
  threading::status_callbacks_t const snapshot(callbacks);
  for (auto const& callback : snapshot) {
    if (callback) notify(*callback);
  }
}

// The task's display name; a failure to get it gives an empty name.
KESMET_2_18::strings::ustring8 safe_display_name(threading::task_t const& task) noexcept;

// Writes the ERROR record of a stage that threw:
//   "<unit>: Catch ... exception for task:<name>, at file: <file>:<line>"
void log_stage_exception(char const* unit, threading::task_t const* task, char const* file,
                         int line) noexcept;

}  // namespace quillon2::internal
