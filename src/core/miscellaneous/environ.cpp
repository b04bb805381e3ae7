// The environment table: every variable the process read through
// get_environ_value, with its remembered value and read count.
//
// The table is made on first use and never destroyed, so static destructors of the
// library and of its clients may still read variables during process exit.
#include <map>
#include <string>
#include <utility>
#include <vector>

#include <quillon2/core/environ.hpp>
#include <quillon2/core/threading/mutex.hpp>
#include <quillon2/headers/kesmet.hpp>

#include "core/miscellaneous/include/environ_internal.hpp"
#include "core/miscellaneous/include/environ_os.hpp"

namespace quillon2 {

namespace {

struct environ_entry_t {
  std::wstring value;
  u32_t read_count = 0;
};

struct environment_table_t {
  threading::mutex_t mutex;
  std::map<std::wstring, environ_entry_t> entries;
};

environment_table_t& environment_table() {
  static environment_table_t* const table = new environment_table_t;
  return *table;
}

// Whether the system can hold a variable of this name.
bool is_system_name(std::wstring const& name) {
  return !name.empty() && name.find(L'=') == std::wstring::npos &&
         name.find(L'\0') == std::wstring::npos;
}

std::wstring read_from_system(std::wstring const& name) {
  std::string value;
  if (!is_system_name(name) ||
      !internal::os_get_environ(KESMET_2_18::strings::utf16_to_utf8(name), value))
    return std::wstring();
  return KESMET_2_18::strings::utf8_to_utf16(value);
}

}  // namespace

environ_value_callback_t::~environ_value_callback_t() = default;

std::wstring get_environ_value(std::wstring const& name) {
  environment_table_t& table = environment_table();
  threading::mutex_guard_t guard(table.mutex);
  auto found = table.entries.find(name);
  if (found != table.entries.end()) {
    ++found->second.read_count;
    return found->second.value;
  }
  environ_entry_t entry;
  entry.value = read_from_system(name);
  entry.read_count = 1;
  return table.entries.emplace(name, std::move(entry)).first->second.value;
}

void set_environ_value(std::wstring const& name, std::wstring const& value) {
  environment_table_t& table = environment_table();
  threading::mutex_guard_t guard(table.mutex);
  if (is_system_name(name)) {
    // A value is C text to the system: it ends at a zero unit.
    std::wstring const system_value(value.c_str());
    internal::os_set_environ(KESMET_2_18::strings::utf16_to_utf8(name),
                             KESMET_2_18::strings::utf16_to_utf8(system_value));
  }
  auto found = table.entries.find(name);
  if (found != table.entries.end()) found->second.value = value;
}

void iterate_environ_values(environ_value_callback_t& callback) {
  environment_table_t& table = environment_table();
  threading::mutex_guard_t guard(table.mutex);
  for (auto const& [name, entry] : table.entries) {
    if (!callback.on_value(name.c_str(), entry.value.c_str(), entry.read_count)) break;
  }
}

namespace internal {

bool read_environ_unrecorded(std::string const& name, std::string& value) {
  environment_table_t& table = environment_table();
  threading::mutex_guard_t guard(table.mutex);
  return os_get_environ(name, value);
}

void copy_environ_unrecorded(std::vector<std::string>& entries) {
  environment_table_t& table = environment_table();
  threading::mutex_guard_t guard(table.mutex);
  os_copy_environ(entries);
}

}  // namespace internal

}  // namespace quillon2
