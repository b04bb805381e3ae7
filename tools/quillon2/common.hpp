// What the commands of the quillon2 tool share: failures and usage errors, input and
// output through "-" or files, the progress bar, and text conversions.
//
// A command reports a failure of its operation by throwing failure_t (exit status 1) and
// a wrong use by throwing usage_t (exit status 2); main prints them as
// "quillon2: COMMAND: FILE: reason" on standard error. Data goes to standard output only.
#pragma once

#include <chrono>
#include <string>
#include <string_view>
#include <vector>

#include <CLI/CLI.hpp>

#include <quillon2/quillon2.hpp>

namespace q2cli {

struct failure_t {
  std::string file;  // may be empty
  std::string reason;
};

struct usage_t {
  std::string reason;
};

// The command being run ("bag convert"), for messages.
void set_command(std::string const& name);
std::string const& command();
// -q: no progress bar.
extern bool quiet;

std::string utf8(std::wstring const& text);
std::wstring wide(std::string const& text);
// A path from a name given on the command line (relative names are taken from the working
// directory, as a shell user expects).
quillon2::path_t file_path(std::string const& name);

// The whole content of a file, or of standard input for "-".
std::string read_input(std::string const& name);
// Writes to standard output for "-", else replaces the file atomically.
void write_output(std::string const& name, std::string_view bytes);
// Writes to standard output; a failed write is a failure at the end of the command.
void out(std::string_view text);
// Refuses "-" (standard input) for more than one of the input names.
void at_most_one_stdin(std::vector<std::string const*> const& names);

// A progress bar on standard error for work of more than 1 MB, shown only when standard
// error is a terminal and -q is not given, at most 10 updates a second, cleared at the end.
class progress_t {
 public:
  progress_t(std::string label, std::uint64_t total);
  ~progress_t();
  void update(std::uint64_t done);

 private:
  std::string m_label;
  std::uint64_t m_total;
  bool m_shown;
  bool m_drawn = false;
  std::chrono::steady_clock::time_point m_next;
};

// Bags as JSON text (bag_json.cpp); a failure result is anything but 1.
int load_json(quillon2::variant_bag_t& bag, std::string const& text);
std::string save_json(quillon2::variant_bag_t const& bag, bool pretty, std::string const& name);
// bag xpath (bag_xpath.cpp).
void add_bag_xpath_command(CLI::App* bag);

// Each group of commands adds itself to the application.
void add_bag_commands(CLI::App& app);
void add_file_commands(CLI::App& app);
void add_system_commands(CLI::App& app);
void add_zip_commands(CLI::App& app);
void add_xslt_command(CLI::App& app);
void add_config_commands(CLI::App& app);

// Sets the command name for messages and runs `body` as the subcommand's callback.
template <class F>
void on_run(CLI::App* sub, std::string name, F body) {
  sub->callback([name = std::move(name), body]() {
    set_command(name);
    body();
  });
}

}  // namespace q2cli
