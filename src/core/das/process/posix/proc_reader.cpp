// The process table from /proc, walked with openat below one descriptor of /proc so that
// each process's files are found relative to its own directory.
//
// A process can end at any moment of the walk: its files then fail with ENOENT or ESRCH
// and it is left out. With hidepid=2 only the caller's own processes are listed; in a pid
// namespace, the namespace's. In `stat` the command name (in parentheses) may itself hold
// ")" and blanks, so the fields are read after the last ")".
#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include <quillon2/headers/kesmet.hpp>

#include "core/das/process/include/proc_reader.hpp"
#include "core/miscellaneous/include/posix_io.hpp"

namespace quillon2::internal::proc {

namespace {

// The whole content of `name` below `dir`. Sizes in /proc show as 0, but the kernel
// prints these files whole at the first read when they fit: a read short of the buffer
// has the whole text, and only a full one needs the rest.
bool read_at(int dir, char const* name, std::string& content) {
  posix::unique_fd_t fd(
      posix::retry_eintr([&] { return ::openat(dir, name, O_RDONLY | O_CLOEXEC); }));
  if (!fd) return false;
  content.resize(4096);
  ssize_t const n =
      posix::retry_eintr([&] { return ::read(fd.get(), content.data(), content.size()); });
  if (n < 0) return false;
  if (static_cast<std::size_t>(n) < content.size()) {
    content.resize(static_cast<std::size_t>(n));
    return true;
  }
  return posix::read_all(fd.get(), content) == 0;
}

bool parse_pid(char const* name, unsigned& pid) {
  if (*name < '1' || *name > '9') return false;
  char* end = nullptr;
  unsigned long const value = std::strtoul(name, &end, 10);
  if (*end != 0 || value > 0xFFFFFFFFul) return false;
  pid = static_cast<unsigned>(value);
  return true;
}

// The base name of /proc/<pid>/exe, without the " (deleted)" of a replaced file.
bool exe_name_at(int dir, std::string& name) {
  char target[4096];
  ssize_t const n = ::readlinkat(dir, "exe", target, sizeof target);
  if (n <= 0 || static_cast<std::size_t>(n) >= sizeof target) return false;
  std::string path(target, static_cast<std::size_t>(n));
  static std::string const deleted = " (deleted)";
  if (path.size() > deleted.size() &&
      path.compare(path.size() - deleted.size(), deleted.size(), deleted) == 0)
    path.resize(path.size() - deleted.size());
  name = path.substr(path.rfind('/') + 1);
  return !name.empty();
}

// Fills the fields that come from `stat` and gives the command name between its
// parentheses; false when the text is not as expected.
bool parse_stat(std::string const& stat, entry_t& entry, std::string_view& command_name) {
  std::size_t const open = stat.find('(');
  std::size_t const close = stat.rfind(')');
  if (open == std::string::npos || close == std::string::npos || close < open) return false;
  command_name = std::string_view(stat).substr(open + 1, close - open - 1);
  // After ")": state ppid pgrp session tty_nr tpgid flags minflt cminflt majflt cmajflt
  // utime stime cutime cstime priority nice num_threads ...
  char const* p = stat.c_str() + close + 1;
  char const* fields[18];
  for (char const*& field : fields) {
    while (*p == ' ') ++p;
    if (*p == '\0') return false;
    field = p;
    while (*p != ' ' && *p != '\0') ++p;
  }
  entry.parent = static_cast<unsigned>(std::strtoul(fields[1], nullptr, 10));
  entry.nice = static_cast<int>(std::strtol(fields[16], nullptr, 10));
  entry.threads = static_cast<unsigned>(std::strtoul(fields[17], nullptr, 10));
  return true;
}

std::string proc_dir_of(unsigned pid) { return "/proc/" + std::to_string(pid); }

}  // namespace

bool list_processes(std::vector<entry_t>& entries) {
  entries.clear();
  posix::unique_fd_t proc(::open("/proc", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!proc) return false;
  int const listing_fd = ::dup(proc.get());
  if (listing_fd < 0) return false;
  ::fcntl(listing_fd, F_SETFD, FD_CLOEXEC);
  DIR* listing = ::fdopendir(listing_fd);
  if (listing == nullptr) {
    ::close(listing_fd);
    return false;
  }
  std::string stat;
  std::string_view command_name;
  while (dirent* item = ::readdir(listing)) {
    entry_t entry;
    if (!parse_pid(item->d_name, entry.pid)) continue;
    posix::unique_fd_t dir(::openat(proc.get(), item->d_name, O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    // Gone (ENOENT, ESRCH) or hidden: not part of the snapshot.
    if (!dir) continue;
    if (!read_at(dir.get(), "stat", stat) || !parse_stat(stat, entry, command_name)) continue;
    std::string exe;
    // Another user's executable link is refused: the 15-byte command name stands in.
    if (!exe_name_at(dir.get(), exe)) exe = command_name;
    entry.exe_name = kesmet2::utf8_to_utf16(exe);
    entries.push_back(std::move(entry));
  }
  ::closedir(listing);
  return true;
}

bool read_user(unsigned pid, std::wstring& user) {
  std::string status;
  posix::unique_fd_t dir(::open(proc_dir_of(pid).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!dir || !read_at(dir.get(), "status", status)) return false;
  // "Uid:\treal\teffective\tsaved\tfilesystem"
  std::size_t const at = status.find("\nUid:");
  if (at == std::string::npos) return false;
  char* end = nullptr;
  char const* fields = status.c_str() + at + 5;
  std::strtoul(fields, &end, 10);  // real
  unsigned long const uid = std::strtoul(end, &end, 10);
  if (end == fields) return false;

  std::vector<char> buffer(1024);
  for (;;) {
    struct passwd record;
    struct passwd* found = nullptr;
    int const error = ::getpwuid_r(static_cast<uid_t>(uid), &record, buffer.data(), buffer.size(), &found);
    if (error == ERANGE && buffer.size() < (1u << 20)) {
      buffer.resize(buffer.size() * 2);
      continue;
    }
    user = kesmet2::utf8_to_utf16(found != nullptr ? std::string(found->pw_name) : std::to_string(uid));
    return true;
  }
}

bool read_command_line(unsigned pid, std::string& command_line) {
  posix::unique_fd_t dir(::open(proc_dir_of(pid).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!dir || !read_at(dir.get(), "cmdline", command_line)) return false;
  // Arguments end with NUL: the last one goes, the others become blanks.
  while (!command_line.empty() && command_line.back() == '\0') command_line.pop_back();
  for (char& c : command_line)
    if (c == '\0') c = ' ';
  return true;
}

}  // namespace quillon2::internal::proc
