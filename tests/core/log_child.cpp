// Logs through the library's front end in the way given by argv[1], and answers in its
// exit code which levels the "QUILLON" logger has enabled: bit 4 always, bit 0 for ERROR, bit 1
// for INFO and bit 2 for TRACE (bit 4 keeps it apart from the codes of a sanitizer). Writes nothing
// to standard output itself.
#include <cstdlib>
#include <cstring>
#include <memory>
#include <thread>
#include <vector>

#include <log4cplus/consoleappender.h>
#include <log4cplus/layout.h>
#include <log4cplus/logger.h>
#include <log4cplus/loglevel.h>

#include <quillon2/core/log.hpp>

namespace {

log4cplus::Logger logger(char const* name) { return log4cplus::Logger::getInstance(name); }

// Logs from a static destructor, after main has returned.
struct logs_at_exit_t {
  ~logs_at_exit_t() { logger("QUILLON").forcedLog(log4cplus::ERROR_LOG_LEVEL, "from exit"); }
};

// A client's static initialiser may use the library before main (when the variable
// Q2_LOG_AT_START is set).
struct logs_at_start_t {
  logs_at_start_t() {
    if (std::getenv("Q2_LOG_AT_START") == nullptr) return;
    hollin_1::log::configureComponentLogger(L"QUILLON");
    logger("QUILLON").forcedLog(log4cplus::ERROR_LOG_LEVEL, "from static init");
  }
} const logs_at_start;

int enabled_levels() {
  log4cplus::Logger const main = logger("QUILLON");
  return 16 | (main.isEnabledFor(40000) ? 1 : 0) | (main.isEnabledFor(20000) ? 2 : 0) |
         (main.isEnabledFor(0) ? 4 : 0);
}

}  // namespace

int main(int argc, char** argv) {
  char const* mode = argc > 1 ? argv[1] : "plain";
  if (std::strcmp(mode, "preconfigured") == 0) {
    // The program configured log4cplus itself before the library's first use.
    log4cplus::SharedAppenderPtr own(new log4cplus::ConsoleAppender(true, true));
    own->setLayout(std::make_unique<log4cplus::PatternLayout>("own: %m%n"));
    log4cplus::Logger::getRoot().addAppender(own);
  }
  if (std::strcmp(mode, "threads") == 0) {
    std::vector<std::thread> threads;
    for (int i = 0; i < 8; ++i)
      threads.emplace_back([] {
        hollin_1::log::configureComponentLogger(L"QUILLON");
        logger("QUILLON").forcedLog(log4cplus::ERROR_LOG_LEVEL, "from a thread");
      });
    for (auto& thread : threads) thread.join();
    return enabled_levels();
  }
  hollin_1::log::configureComponentLogger(L"QUILLON");
  hollin_1::log::configureComponentLogger(L"QUILLON");
  hollin_1::log::configureComponentLogger(L"quillon.SCHEDULER");
  log4cplus::Logger const main = logger("QUILLON");
  main.forcedLog(40000, "error \xC3\xBC", "child.cpp", 12);
  main.forcedLog(20000, "info text");
  if (main.isEnabledFor(20000)) main.forcedLog(20000, "info enabled");
  if (main.isEnabledFor(0)) main.forcedLog(0, "trace enabled");
  logger("quillon.SCHEDULER").forcedLog(40000, "scheduler error");
  if (std::strcmp(mode, "at_exit") == 0) static logs_at_exit_t at_exit;
  return enabled_levels();
}
