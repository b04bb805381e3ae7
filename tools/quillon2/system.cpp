// quillon2 ps and libs: the process list and the library manager.
#include <cstdio>
#include <string>

#include "common.hpp"

namespace q2cli {

namespace {

struct lib_events_t : quillon2::_internal::subscriber_base_t {
  std::string text;
  void loaded(std::wstring name) { text += "loaded   " + utf8(name) + "\n"; }
  void refused(std::wstring name, quillon2::lib_manager_t::error_type_t why) {
    static char const* const reasons[] = {"failed to load", "duplicate", "older version"};
    int const index = static_cast<int>(why);
    text += "refused  " + utf8(name) + " (" + (index >= 0 && index < 3 ? reasons[index] : "?") + ")\n";
  }
};

}  // namespace

void add_system_commands(CLI::App& app) {
  // ps
  {
    auto* sub = app.add_subcommand(
        "ps", "List the processes of the system, with the columns of ps -e -o pid,ppid,nlwp,comm");
    on_run(sub, "ps", [] {
      quillon2::generic_iterator_t<quillon2::sptr_t<quillon2::process_t>> list;
      if (!quillon2::process_t::get_process_list(list)) throw failure_t{"/proc", "cannot list the processes"};
      std::string text = "    PID    PPID NLWP COMMAND\n";
      char line[64];
      for (; !list.at_end(); list.next()) {
        auto const p = list.current();
        quillon2::variant_t const name = p->get_value(quillon2::process_t::ppExeName);
        std::snprintf(line, sizeof line, "%7u %7u %4u ",
                      p->get_value(quillon2::process_t::ppProcessId).get<unsigned>(),
                      p->get_value(quillon2::process_t::ppParentProcessId).get<unsigned>(),
                      p->get_value(quillon2::process_t::ppThreadCount).get<unsigned>());
        text += line;
        text += (name.get_type() == quillon2::vtWString ? utf8(name.get<wchar_t const*>()) : "?") + "\n";
      }
      out(text);
    });
  }

  // libs scan
  {
    auto* libs = app.add_subcommand("libs", "Versioned dynamic libraries");
    libs->require_subcommand(1);
    auto* scan = libs->add_subcommand(
        "scan",
        "Load the newest version of each library in DIR (files name_1.2.3.so) and say which "
        "file was loaded or refused and why");
    static std::string dir;
    static std::string pattern = ".*\\.";
    scan->add_option("DIR", dir, "Directory of the libraries")->required();
    scan->add_option("PATTERN", pattern,
                     "Regular expression for the file name up to its last dot (default .*\\.)");
    on_run(scan, "libs scan", [] {
      auto manager = quillon2::create_lib_manager();
      lib_events_t events;
      manager->library_loaded.connect(&events, &lib_events_t::loaded);
      manager->library_refused.connect(&events, &lib_events_t::refused);
      bool const ok = manager->add_path(file_path(dir).as_string(true).c_str(), wide(pattern).c_str());
      manager->library_loaded.disconnect(&events, &lib_events_t::loaded);
      manager->library_refused.disconnect(&events, &lib_events_t::refused);
      if (!ok) throw failure_t{dir, "can't be listed, or the pattern is no regular expression"};
      out(events.text);
    });
  }
}

}  // namespace q2cli
