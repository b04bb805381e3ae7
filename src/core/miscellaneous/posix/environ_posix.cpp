// Environment variables through getenv, setenv and unsetenv. Callers serialise these
// calls under the environment table's lock.
#include <stdlib.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "core/miscellaneous/include/environ_os.hpp"

namespace quillon2::internal {

bool os_get_environ(std::string const& name, std::string& value) {
  char const* text = getenv(name.c_str());
  if (text == nullptr) return false;
  value = text;
  return true;
}

bool os_set_environ(std::string const& name, std::string const& value) {
  if (value.empty()) return unsetenv(name.c_str()) == 0;
  return setenv(name.c_str(), value.c_str(), 1) == 0;
}

}  // namespace quillon2::internal

namespace quillon2::internal {

void os_copy_environ(std::vector<std::string>& entries) {
  entries.clear();
  if (environ == nullptr) return;
  for (char** entry = environ; *entry != nullptr; ++entry) entries.emplace_back(*entry);
}

}  // namespace quillon2::internal
