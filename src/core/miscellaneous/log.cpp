// The logging front end over log4cplus, and the library's two loggers.
//
// log4cplus is configured once per process, on the first call of
// configureComponentLogger. Loggers are made on first use and never destroyed, and
// log4cplus is never deinitialised here, so that code running during process exit can
// still log (log4cplus drops what arrives after its own shutdown).
#include <fstream>
#include <memory>
#include <string>

#include <log4cplus/configurator.h>
#include <log4cplus/consoleappender.h>
#include <log4cplus/initializer.h>
#include <log4cplus/layout.h>
#include <log4cplus/logger.h>
#include <log4cplus/loglevel.h>

#include <quillon2/core/log.hpp>
#include <quillon2/headers/kesmet.hpp>

#include "core/miscellaneous/include/environ_internal.hpp"
#include "core/miscellaneous/include/logging.hpp"

namespace {

// Configuration from the properties file named by QUILLON_LOG_CONFIG, if it is set
// and readable; otherwise standard error at level ERROR, unless the program has
// already configured the root logger itself.
void configure_process() {
  log4cplus::initialize();
  std::string path;
  if (quillon2::internal::read_environ_unrecorded("QUILLON_LOG_CONFIG", path) && !path.empty() &&
      std::ifstream(path).good()) {
    log4cplus::PropertyConfigurator::doConfigure(path);
    return;
  }
  log4cplus::Logger root = log4cplus::Logger::getRoot();
  if (!root.getAllAppenders().empty()) return;
  log4cplus::SharedAppenderPtr appender(new log4cplus::ConsoleAppender(true, true));
  appender->setName("quillon2.stderr");
  appender->setLayout(
      std::make_unique<log4cplus::PatternLayout>("%D{%Y-%m-%d %H:%M:%S.%q} %-5p %c - %m%n"));
  root.addAppender(appender);
  root.setLogLevel(log4cplus::ERROR_LOG_LEVEL);
}

bool configure_once() {
  try {
    configure_process();
  } catch (...) {
    // Logging has no channel back: a broken configuration leaves log4cplus as it is.
  }
  return true;
}

log4cplus::Logger* make_logger(wchar_t const* name) {
  hollin_1::log::configureComponentLogger(name);
  return new log4cplus::Logger(
      log4cplus::Logger::getInstance(KESMET_2_18::strings::utf16_to_utf8(name)));
}

}  // namespace

namespace hollin_1::log {

void configureComponentLogger(std::wstring const& name) {
  static bool const configured = configure_once();
  static_cast<void>(configured);
  try {
    log4cplus::Logger::getInstance(KESMET_2_18::strings::utf16_to_utf8(name));
  } catch (...) {
  }
}

}  // namespace hollin_1::log

namespace quillon2::internal {

log4cplus::Logger& main_logger() {
  static log4cplus::Logger* const logger = make_logger(L"QUILLON");
  return *logger;
}

log4cplus::Logger& scheduler_logger() {
  static log4cplus::Logger* const logger = make_logger(L"quillon.SCHEDULER");
  return *logger;
}

void forced_log(log4cplus::Logger const& logger, int level, std::wstring const& text,
                char const* file, int line) {
  try {
    logger.forcedLog(level, KESMET_2_18::strings::utf16_to_utf8(text), file, line);
  } catch (...) {
  }
}

}  // namespace quillon2::internal
