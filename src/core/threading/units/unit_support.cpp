// Helpers shared by the units.
#include "core/threading/include/unit_support.hpp"

#include <quillon2/headers/kesmet.hpp>

#include "core/miscellaneous/include/logging.hpp"

namespace quillon2::internal {

KESMET_2_18::strings::ustring8 safe_display_name(threading::task_t const& task) noexcept {
  try {
    return task.get_display_name();
  } catch (...) {
    return {};
  }
}

namespace {

void log_stage_exception(char const* unit, threading::task_t const* task, char const* file,
                         int line) noexcept {
  try {
    std::wstring const name = task != nullptr
                                  ? KESMET_2_18::strings::utf8_to_utf16(safe_display_name(*task))
                                  : std::wstring();
    Q2_LOG(scheduler_logger(), log_error,
           unit << L": Catch ... exception for task:" << name << L", at file: " << file << L":"
                << line);
  } catch (...) {
    // Logging has no channel back.
  }
}

}  // namespace

void report_stage_exception(char const* unit, _internal::unit_observers_t& observers,
                            boost::shared_ptr<threading::task_t> const& task, char const* file,
                            int line) {
  log_stage_exception(unit, task.get(), file, line);
  observers.notify(
      [&](threading::scheduler_status_callback_t& callback) { callback.task_exception(task); });
}

}  // namespace quillon2::internal
