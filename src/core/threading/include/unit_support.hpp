// What the units share: a task's name for display, and the report of a stage that threw.
#pragma once

#include <boost/shared_ptr.hpp>

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

}  // namespace quillon2::internal
