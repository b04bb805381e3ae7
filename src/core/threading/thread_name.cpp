// Thread names: the 31-character rule, and the name the library keeps for each thread.
#include <cstring>

#include <quillon2/core/threading/thread_name.hpp>

#include "core/threading/include/platform.hpp"

namespace quillon2::threading {

namespace {

constexpr std::size_t name_size = 32;  // with the terminating zero
constexpr std::size_t kernel_bytes = 15;

thread_local char t_name[name_size];
thread_local char t_published[kernel_bytes + 1];

bool is_dropped_by_abbreviation(char c) {
  return c == 'a' || c == 'e' || c == 'i' || c == 'o' || c == 'u' || c == 'y' || c == ' ' ||
         c == '_';
}

}  // namespace

void set_thread_name(char const* name, bool abbreviate) {
  if (name == nullptr) name = "";
  char buffer[name_size] = {};
  std::size_t const length = std::strlen(name);
  if (abbreviate && length >= name_size) {
    std::size_t written = 0;
    for (char const* p = name; *p != '\0' && written < name_size; ++p) {
      if (!is_dropped_by_abbreviation(*p)) buffer[written++] = *p;
    }
  } else {
    std::memcpy(buffer, name, length < name_size - 1 ? length : name_size - 1);
  }
  buffer[name_size - 1] = '\0';
  std::memcpy(t_name, buffer, name_size);

  // The name goes to the system only for a debugger, and only when what the system
  // shows changes: pool workers rename themselves for every job, and each publication
  // is a system call.
  if (!internal::debugger_attached()) return;
  if (std::strncmp(t_published, buffer, kernel_bytes) != 0 || t_published[0] == '\0') {
    std::memcpy(t_published, buffer, kernel_bytes);  // the buffer has 32 bytes
    t_published[kernel_bytes] = '\0';
    internal::publish_thread_name(buffer);
  }
}

std::string get_thread_name() { return std::string(t_name); }

}  // namespace quillon2::threading
