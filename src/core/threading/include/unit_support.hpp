// What the units share: a task's name for display, the report of a stage that threw,
// the mark of the unit a thread serves, and the place where a thread whose owner went
// away on it is joined.
#pragma once

#include <boost/shared_ptr.hpp>
#include <boost/thread/thread.hpp>

#include <quillon2/core/threading/task.hpp>
#include <quillon2/core/threading/unit.hpp>

namespace quillon2::internal {

// The task's display name; a failure to get it gives an empty name.
KESMET_2_18::strings::ustring8 safe_display_name(threading::task_t const& task) noexcept;

// What a unit does with a stage (or what followed it) that threw: writes the ERROR record
//   "<unit>: Catch ... exception for task:<name>, at file: <file>:<line>"
// and tells the observers (task_exception).
void report_stage_exception(char const* unit, _internal::unit_observers_t& observers,
                            boost::shared_ptr<threading::task_t> const& task, char const* file,
                            int line);

// The unit whose job the calling thread runs, or null: a unit's own thread for its whole
// life, a thread that drains a queue unit while it does. The scheduler asks it to know
// whether it is being released on a thread that its teardown would have to wait for.
threading::unit_t const* serving_unit() noexcept;

class serving_unit_scope_t {
 public:
  explicit serving_unit_scope_t(threading::unit_t const* unit) noexcept;
  ~serving_unit_scope_t();
  serving_unit_scope_t(serving_unit_scope_t const&) = delete;
  serving_unit_scope_t& operator=(serving_unit_scope_t const&) = delete;

 private:
  threading::unit_t const* m_previous;
};

// A unit's thread whose unit was stopped or destroyed on that very thread cannot be
// joined there. It is handed over here and joined once it has ended: by the next
// hand-over or reap on another thread, at the latest when the library is unloaded.
void hand_over_thread(boost::shared_ptr<boost::thread> thread);
// Joins the handed-over threads that have ended.
void reap_ended_threads();

}  // namespace quillon2::internal
