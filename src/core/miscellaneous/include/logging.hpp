// The library's log sites. Every source file logs through one of the two loggers
// below, made on first use (so the library's own static initialisers, and a
// client's, may log) and never destroyed (so logging during process exit is safe).
//
//   Q2_LOG(internal::main_logger(), internal::log_error, L"cannot open " << name);
//
// formats nothing while the level is off.
#pragma once

#include <sstream>
#include <string>

#include <log4cplus/logger.h>

namespace quillon2::internal {

// "QUILLON": every part of the library but the scheduler.
log4cplus::Logger& main_logger();
// "quillon.SCHEDULER": the scheduler and its units.
log4cplus::Logger& scheduler_logger();

constexpr int log_trace = 0;
constexpr int log_info = 20000;
constexpr int log_error = 40000;

// Writes `text` (converted to UTF-8) without testing the level.
void forced_log(log4cplus::Logger const& logger, int level, std::wstring const& text,
                char const* file, int line);

}  // namespace quillon2::internal

#define Q2_LOG(logger, level, expr)                                                           \
  do {                                                                                        \
    ::log4cplus::Logger const& q2_log_logger_ = (logger);                                     \
    if (q2_log_logger_.isEnabledFor(level)) {                                                 \
      ::std::wostringstream q2_log_stream_;                                                   \
      q2_log_stream_ << expr;                                                                 \
      ::quillon2::internal::forced_log(q2_log_logger_, level, q2_log_stream_.str(), __FILE__, \
                                       __LINE__);                                             \
    }                                                                                         \
  } while (0)
