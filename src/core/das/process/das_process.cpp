// The process list and its lazily read properties, and the editor query that has no
// answer on this platform. The system side is in posix/proc_reader.cpp.
#include <quillon2/das/das_process.hpp>

#include <list>
#include <string>
#include <vector>

#include <boost/make_shared.hpp>
#include <boost/shared_ptr.hpp>

#include <quillon2/core/check.hpp>
#include <quillon2/headers/kesmet.hpp>

#include "core/das/process/include/proc_reader.hpp"
#include "core/miscellaneous/include/logging.hpp"

namespace quillon2 {

process_t::~process_t() = default;

namespace {

class process_impl_t : public process_t {
 public:
  explicit process_impl_t(internal::proc::entry_t entry) : m_entry(std::move(entry)) {}

  variant_t get_value(int property) override {
    switch (property) {
      case ppProcessId:
        return variant_t(m_entry.pid);
      case ppExeName:
        return variant_t(m_entry.exe_name.c_str());
      case ppUser:
        if (m_user.get_type() == vtNull) {
          std::wstring user;
          if (internal::proc::read_user(m_entry.pid, user)) m_user = variant_t(user.c_str());
        }
        return m_user;
      case ppCommandLine:
        if (m_command_line.get_type() == vtNull) {
          std::string command_line;
          if (internal::proc::read_command_line(m_entry.pid, command_line)) {
            if (command_line.empty()) {
              report_empty_command_line();
            } else {
              m_command_line = variant_t(kesmet2::utf8_to_utf16(command_line).c_str());
            }
          }
        }
        return m_command_line;
      case ppParentProcessId:
        return variant_t(m_entry.parent);
      case ppThreadCount:
        return variant_t(m_entry.threads);
      case ppBasePriority:
        return variant_t(m_entry.nice);
      default:
        return variant_t();
    }
  }

 private:
  // The failure check of an empty command line: a log line, no error raised.
  static void report_empty_command_line() {
    Q2_LOG(internal::main_logger(), internal::log_error,
           kesmet2::utf8_to_utf16(internal::compose_check_message(
               "rtl_user_proc_params.CommandLine.Length", "", "", __FILE__, __LINE__,
               "quillon2::get_process_command_line")));
  }

  internal::proc::entry_t m_entry;
  variant_t m_user;
  variant_t m_command_line;
};

}  // namespace

error_code_t process_t::get_process_list(generic_iterator_t<sptr_t<process_t>>& list) {
  std::vector<internal::proc::entry_t> entries;
  QUILLON_CHECK(internal::proc::list_processes(entries), error::FailedTo.Get.The.Snapshot);
  auto processes = boost::make_shared<std::list<sptr_t<process_t>>>();
  for (auto& entry : entries)
    processes->push_back(sptr_t<process_t>(
        new ref_counted_t<process_impl_t, mt_ref_count_impl_t>(std::move(entry))));
  list = iterutil::make_owned_iterator<sptr_t<process_t>>(processes);
  return error_code_t();
}

system_editor_t::system_editor_t(std::wstring const& name, std::wstring const& command,
                                 std::wstring const& arguments, std::wstring const& description)
    : m_name(name), m_command(command), m_arguments(arguments), m_description(description) {}

bool system_editor_t::operator==(system_editor_t const& other) const {
  return m_name == other.m_name && m_command == other.m_command &&
         m_arguments == other.m_arguments && m_description == other.m_description;
}

error_code_t get_system_editors(path_t const& /*file*/,
                                generic_iterator_t<system_editor_t>& /*editors*/,
                                system_editor_type_t /*type*/) {
  return error_code_t::raise(error::FailedTo.Find.Any.Editor);
}

}  // namespace quillon2
