// quillon2: the library's files, transforms, archives, digests and processes from a shell.
//
// Exit status: 0 success, 1 a failure of the operation, 2 a wrong use. Data goes to standard
// output, messages to standard error as "quillon2: COMMAND: FILE: reason".
#include <clocale>
#include <cstdlib>
#include <cstdio>
#include <iostream>
#include <string>

#include <log4cplus/initializer.h>
#include <log4cplus/logger.h>
#include <log4cplus/loglevel.h>
#include <log4cplus/nullappender.h>

#include "common.hpp"

namespace {

// The library logs its failures on standard error; the tool says them in its own one line
// instead. With QUILLON_LOG_CONFIG set, the library's logging is configured from it as in
// any other program.
void quiet_library_log() {
  if (std::getenv("QUILLON_LOG_CONFIG") != nullptr) return;
  static log4cplus::Initializer initializer;
  log4cplus::Logger root = log4cplus::Logger::getRoot();
  root.addAppender(log4cplus::SharedAppenderPtr(new log4cplus::NullAppender()));
  root.setLogLevel(log4cplus::OFF_LOG_LEVEL);
}

}  // namespace

int main(int argc, char** argv) {
  std::setlocale(LC_ALL, "");
  quiet_library_log();
  CLI::App app{"quillon2: look at, convert, query and check the files the quillon2 library writes"};
  app.name("quillon2");
  app.require_subcommand(1);
  app.set_version_flag("--version", std::string("quillon2 ") + quillon2::library_version());
  app.add_flag("-q,--quiet", q2cli::quiet, "No progress bar");
  q2cli::add_bag_commands(app);
  q2cli::add_file_commands(app);
  q2cli::add_system_commands(app);
  q2cli::add_zip_commands(app);
  q2cli::add_xslt_command(app);
  q2cli::add_config_commands(app);

  int status = 0;
  try {
    app.parse(argc, argv);
  } catch (CLI::CallForHelp const& e) {
    return app.exit(e, std::cout, std::cerr);
  } catch (CLI::CallForAllHelp const& e) {
    return app.exit(e, std::cout, std::cerr);
  } catch (CLI::CallForVersion const& e) {
    return app.exit(e, std::cout, std::cerr);
  } catch (CLI::ParseError const& e) {
    std::fprintf(stderr, "quillon2: %s\nRun with --help for the usage.\n", e.what());
    return 2;
  } catch (q2cli::usage_t const& e) {
    std::fprintf(stderr, "quillon2: %s: %s\n", q2cli::command().c_str(), e.reason.c_str());
    return 2;
  } catch (q2cli::failure_t const& e) {
    if (!e.reason.empty())
      std::fprintf(stderr, "quillon2: %s: %s%s%s\n", q2cli::command().c_str(), e.file.c_str(),
                   e.file.empty() ? "" : ": ", e.reason.c_str());
    status = 1;
  } catch (std::exception const& e) {
    std::fprintf(stderr, "quillon2: %s: %s\n", q2cli::command().c_str(), e.what());
    status = 1;
  }
  // A write to standard output that failed (a full disk, /dev/full) is a failure.
  if (std::fflush(stdout) != 0 || std::ferror(stdout)) {
    std::fprintf(stderr, "quillon2: %s: standard output: write error\n", q2cli::command().c_str());
    status = 1;
  }
  return status;
}
