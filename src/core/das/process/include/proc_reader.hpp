// What the process list needs of the system. posix/proc_reader.cpp reads /proc.
#pragma once

#include <string>
#include <vector>

namespace quillon2::internal::proc {

struct entry_t {
  unsigned pid = 0;
  unsigned parent = 0;
  unsigned threads = 0;
  int nice = 0;
  std::wstring exe_name;
};

// The processes visible now. False only when the process table can't be read at all;
// processes that end during the walk are left out.
bool list_processes(std::vector<entry_t>& entries);

// The name of the effective owner (its decimal id when it has no name). False when the
// process can't be examined.
bool read_user(unsigned pid, std::wstring& user);

// The command line with its arguments separated by blanks, as UTF-8. False when it
// can't be read; an empty text is a process without one (a kernel thread, a zombie).
bool read_command_line(unsigned pid, std::string& command_line);

}  // namespace quillon2::internal::proc
