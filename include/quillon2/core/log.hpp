// The logging front end. The library logs through log4cplus under two logger names,
// "QUILLON" and "quillon.SCHEDULER", at the levels 0 (TRACE), 20000 (INFO) and
// 40000 (ERROR).
//
// log4cplus is configured once per process, at the first call of
// configureComponentLogger:
// - when the environment variable QUILLON_LOG_CONFIG names a file, from that log4cplus
//   properties file;
// - otherwise, unless the program has already given the root logger an appender, with
//   a console appender on standard error and the root level ERROR.
// The library never writes log text to standard output.
#pragma once

#include <string>

#include <quillon2/export.hpp>

namespace hollin_1::log {

// Makes the named logger ready according to the process's logging configuration.
// Repeated calls, with one name or many, are harmless; thread-safe.
QUILLON2_API void configureComponentLogger(std::wstring const& name);

}  // namespace hollin_1::log
