// Logging configuration, tested in child processes (log4cplus is configured once per
// process): the default on standard error, a properties file named by
// QUILLON_LOG_CONFIG, and a program that configured log4cplus itself.
#include <sys/wait.h>

#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>

#include <gtest/gtest.h>

#include "support/temp_dir.hpp"

namespace {

int count_of(std::string const& text, std::string const& part) {
  int n = 0;
  for (auto pos = text.find(part); pos != std::string::npos; pos = text.find(part, pos + 1)) ++n;
  return n;
}

class LogTest : public q2test::temp_dir_test {
 protected:
  struct result_t {
    int exit_code = -1;
    std::string out;
    std::string err;
  };

  // Runs the child program in `mode`, with QUILLON_LOG_CONFIG set to `config` unless
  // that is empty.
  result_t run_child(std::string const& mode, std::string const& config = "",
                     std::string const& more_environment = "") {
    std::string command = "env -u QUILLON_LOG_CONFIG " + more_environment + " ";
    if (!config.empty()) command += "QUILLON_LOG_CONFIG='" + config + "' ";
    command += std::string("'") + Q2_LOG_CHILD + "' " + mode + " >'" + m_dir.file("out") + "' 2>'" +
               m_dir.file("err") + "'";
    int const status = std::system(command.c_str());
    return {status != -1 && WIFEXITED(status) ? WEXITSTATUS(status) : -1,
            q2test::read_file(m_dir.file("out")), q2test::read_file(m_dir.file("err"))};
  }

  std::string write_config(std::string const& root_level) {
    std::ofstream(m_dir.file("log.properties"))
        << "log4cplus.rootLogger=" << root_level << ", FILE\n"
        << "log4cplus.appender.FILE=log4cplus::FileAppender\n"
        << "log4cplus.appender.FILE.File=" << m_dir.file("log.txt") << "\n"
        << "log4cplus.appender.FILE.layout=log4cplus::PatternLayout\n"
        << "log4cplus.appender.FILE.layout.ConversionPattern=%c|%p|%m%n\n";
    return m_dir.file("log.properties");
  }
};

}  // namespace

TEST_F(LogTest, DefaultsToErrorsOnStandardError) {
  result_t const result = run_child("plain", "", "Q2_LOG_AT_START=1");
  EXPECT_EQ(17, result.exit_code);
  EXPECT_EQ("", result.out);
  EXPECT_EQ(1, count_of(result.err, "ERROR QUILLON - error \xC3\xBC"));
  EXPECT_EQ(1, count_of(result.err, "ERROR quillon.SCHEDULER - scheduler error"));
  EXPECT_EQ(1, count_of(result.err, "ERROR QUILLON - from static init"));
  // forcedLog writes without testing the level; the level test keeps INFO out.
  EXPECT_EQ(1, count_of(result.err, "info text"));
  EXPECT_EQ(0, count_of(result.err, "info enabled"));
  // A missing file falls back to the default.
  result_t const missing = run_child("plain", m_dir.file("no-such.properties"));
  EXPECT_EQ(17, missing.exit_code);
  EXPECT_EQ(1, count_of(missing.err, "ERROR QUILLON - error \xC3\xBC"));
}

TEST_F(LogTest, ReadsThePropertiesFileNamedByTheEnvironment) {
  result_t const result = run_child("plain", write_config("TRACE"));
  EXPECT_EQ(23, result.exit_code);
  EXPECT_EQ("", result.out);
  EXPECT_EQ("", result.err);
  std::string const log = q2test::read_file(m_dir.file("log.txt"));
  EXPECT_EQ(1, count_of(log, "QUILLON|ERROR|error \xC3\xBC\n"));
  EXPECT_EQ(1, count_of(log, "QUILLON|INFO|info enabled\n"));
  EXPECT_EQ(1, count_of(log, "QUILLON|TRACE|trace enabled\n"));
  EXPECT_EQ(1, count_of(log, "quillon.SCHEDULER|ERROR|scheduler error\n"));
  // The file decides the level.
  EXPECT_EQ(19, run_child("plain", write_config("INFO")).exit_code);
}

TEST_F(LogTest, KeepsTheProgramsOwnConfiguration) {
  result_t const result = run_child("preconfigured");
  EXPECT_EQ(1, count_of(result.err, "own: error \xC3\xBC\n"));
  EXPECT_EQ(1, count_of(result.err, "error \xC3\xBC"));
}

TEST_F(LogTest, ConfiguresOnceUnderConcurrentFirstUseAndLogsSafelyDuringExit) {
  result_t const result = run_child("threads");
  EXPECT_EQ(17, result.exit_code);
  EXPECT_EQ(8, count_of(result.err, "from a thread"));
  EXPECT_EQ(17, run_child("at_exit").exit_code);
}
