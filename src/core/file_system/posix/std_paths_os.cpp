// POSIX side of the standard directories: XDG variables, the password database,
// /proc/self/exe, dladdr and the working directory.
#ifndef _GNU_SOURCE
#define _GNU_SOURCE
#endif
#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <link.h>
#include <pwd.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "core/file_system/include/std_paths_os.hpp"
#include "core/miscellaneous/include/posix_io.hpp"

namespace quillon2::internal::std_paths_os {

namespace {

std::string variable(char const* name) {
  char const* value = std::getenv(name);
  return value != nullptr ? std::string(value) : std::string();
}

bool is_absolute(std::string const& text) { return !text.empty() && text[0] == '/'; }

bool is_directory(std::string const& native) {
  struct stat st;
  return ::stat(native.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

// $HOME, or the user's entry in the password database when HOME is unset or empty.
std::string home() {
  std::string const from_environment = variable("HOME");
  if (!from_environment.empty()) return from_environment;
  long const hint = ::sysconf(_SC_GETPW_R_SIZE_MAX);
  std::vector<char> buffer(hint > 0 ? static_cast<std::size_t>(hint) : 1024);
  for (;;) {
    struct passwd entry;
    struct passwd* found = nullptr;
    int const error = ::getpwuid_r(::geteuid(), &entry, buffer.data(), buffer.size(), &found);
    if (error == ERANGE && buffer.size() < (1u << 20)) {
      buffer.resize(buffer.size() * 2);
      continue;
    }
    if (error != 0 || found == nullptr || found->pw_dir == nullptr) return std::string();
    return std::string(found->pw_dir);
  }
}

// A symbolic link's target, read with a buffer that grows until the text fits.
std::string read_link(char const* link) {
  std::vector<char> buffer(256);
  for (;;) {
    ssize_t const length = ::readlink(link, buffer.data(), buffer.size());
    if (length < 0) return std::string();
    if (static_cast<std::size_t>(length) < buffer.size()) {
      return std::string(buffer.data(), static_cast<std::size_t>(length));
    }
    if (buffer.size() >= (1u << 20)) return std::string();
    buffer.resize(buffer.size() * 2);
  }
}

// The value of XDG_DOCUMENTS_DIR in user-dirs.dirs: "$HOME/..." or an absolute path, in
// double quotes; any other form is ignored.
std::string documents_from_user_dirs(std::string const& home_dir) {
  std::string const root = user_config_root();
  if (root.empty()) return std::string();
  posix::unique_fd_t fd(posix::retry_eintr([&] {
    return ::open((root + "/user-dirs.dirs").c_str(),
                  O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
  }));
  struct stat st;
  if (!fd || ::fstat(fd.get(), &st) != 0 || !S_ISREG(st.st_mode) || st.st_size > (1 << 20)) {
    return std::string();
  }
  std::string content;
  if (posix::read_all(fd.get(), content) != 0) return std::string();

  std::string result;
  std::size_t start = 0;
  while (start < content.size()) {
    std::size_t end = content.find('\n', start);
    if (end == std::string::npos) end = content.size();
    std::string line = content.substr(start, end - start);
    start = end + 1;
    std::size_t const first = line.find_first_not_of(" \t");
    if (first == std::string::npos || line[first] == '#') continue;
    line.erase(0, first);
    static constexpr char k_key[] = "XDG_DOCUMENTS_DIR=\"";
    if (line.compare(0, sizeof k_key - 1, k_key) != 0) continue;
    std::string value;
    bool closed = false;
    for (std::size_t i = sizeof k_key - 1; i < line.size(); ++i) {
      if (line[i] == '"') {
        closed = true;
        break;
      }
      if (line[i] == '\\' && i + 1 < line.size()) ++i;
      value += line[i];
    }
    if (!closed) continue;
    if (value == "$HOME") {
      result = home_dir;
    } else if (value.compare(0, 6, "$HOME/") == 0) {
      result = home_dir.empty() ? std::string() : home_dir + value.substr(5);
    } else if (is_absolute(value)) {
      result = value;
    }
  }
  return result;
}

}  // namespace

std::string user_config_root() {
  std::string const configured = variable("XDG_CONFIG_HOME");
  if (is_absolute(configured)) return configured;
  std::string const home_dir = home();
  return home_dir.empty() ? std::string() : home_dir + "/.config";
}

std::string shared_config_root() {
  std::string const list = variable("XDG_CONFIG_DIRS");
  std::size_t start = 0;
  while (start < list.size()) {
    std::size_t end = list.find(':', start);
    if (end == std::string::npos) end = list.size();
    std::string const entry = list.substr(start, end - start);
    if (is_absolute(entry)) return entry;
    start = end + 1;
  }
  return "/etc/xdg";
}

std::string documents_dir() {
  std::string const configured = variable("XDG_DOCUMENTS_DIR");
  if (is_absolute(configured)) return configured;
  std::string const home_dir = home();
  std::string const listed = documents_from_user_dirs(home_dir);
  if (!listed.empty()) return listed;
  if (home_dir.empty()) return std::string();
  std::string const documents = home_dir + "/Documents";
  return is_directory(documents) ? documents : home_dir;
}

std::string temp_dir() {
  std::string const configured = variable("TMPDIR");
  if (is_absolute(configured) && is_directory(configured)) return configured;
  return "/tmp";
}

std::string executable_file() {
  std::string file = read_link("/proc/self/exe");
  static constexpr char k_deleted[] = " (deleted)";
  std::size_t const suffix = sizeof k_deleted - 1;
  if (file.size() > suffix && file.compare(file.size() - suffix, suffix, k_deleted) == 0) {
    file.resize(file.size() - suffix);
  }
  return file;
}

std::string module_file(void const* address) {
  Dl_info info;
  struct link_map* map = nullptr;
  if (address == nullptr ||
      ::dladdr1(address, &info, reinterpret_cast<void**>(&map), RTLD_DL_LINKMAP) == 0 ||
      map == nullptr || map->l_name == nullptr || map->l_name[0] == '\0') {
    return executable_file();  // the program itself, or no module at all
  }
  std::string file = map->l_name;
  if (!is_absolute(file)) {
    char* resolved = ::realpath(file.c_str(), nullptr);
    if (resolved == nullptr) return std::string();
    file = resolved;
    std::free(resolved);
  }
  return file;
}

std::string working_dir() {
  std::vector<char> buffer(256);
  for (;;) {
    if (::getcwd(buffer.data(), buffer.size()) != nullptr) return std::string(buffer.data());
    if (errno != ERANGE || buffer.size() >= (1u << 20)) return std::string();
    buffer.resize(buffer.size() * 2);
  }
}

bool change_dir(std::string const& native) { return ::chdir(native.c_str()) == 0; }

bool make_directories(std::string const& native, unsigned mode) {
  if (native.empty()) return false;
  struct stat st;
  if (::stat(native.c_str(), &st) == 0) return true;
  for (std::size_t slash = native.find('/', 1);; slash = native.find('/', slash + 1)) {
    std::string const level = native.substr(0, slash);
    if (!level.empty() && level.back() != '/' &&
        ::mkdir(level.c_str(), static_cast<mode_t>(mode)) != 0 && errno != EEXIST &&
        ::stat(level.c_str(), &st) != 0) {
      return false;
    }
    if (slash == std::string::npos) break;
  }
  return ::stat(native.c_str(), &st) == 0;
}

}  // namespace quillon2::internal::std_paths_os
