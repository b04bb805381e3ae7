// What the units share: a task's name for display, and the report of a stage that threw.
#pragma once

#include <quillon2/core/threading/task.hpp>

namespace quillon2::internal {

// The task's display name; a failure to get it gives an empty name.
KESMET_2_18::strings::ustring8 safe_display_name(threading::task_t const& task) noexcept;

// Writes the ERROR record of a stage that threw:
//   "<unit>: Catch ... exception for task:<name>, at file: <file>:<line>"
void log_stage_exception(char const* unit, threading::task_t const* task, char const* file,
                         int line) noexcept;

}  // namespace quillon2::internal
