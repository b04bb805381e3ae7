// Whole-file reads, and the names that a save replaces (saves: atomic_save.cpp).
#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <unistd.h>

#include <algorithm>
#include <string>

#include "core/file_system/include/file_system_os.hpp"
#include "core/miscellaneous/include/posix_io.hpp"

namespace quillon2::internal::fs_os {

using posix::retry_eintr;
using posix::unique_fd_t;

namespace {

// How many links a save follows before it gives up, as the kernel does.
constexpr int k_max_links = 40;

}  // namespace

std::string directory_of(std::string const& path) {
  std::size_t const slash = path.rfind('/');
  if (slash == std::string::npos) return ".";
  return slash == 0 ? "/" : path.substr(0, slash);
}

bool resolve_links(std::string& path) {
  for (int i = 0; i < k_max_links; ++i) {
    struct stat st;
    if (::lstat(path.c_str(), &st) != 0 || !S_ISLNK(st.st_mode)) return true;
    std::string target(PATH_MAX, '\0');
    ssize_t const n = ::readlink(path.c_str(), target.data(), target.size());
    if (n <= 0 || static_cast<std::size_t>(n) >= target.size()) return false;
    target.resize(static_cast<std::size_t>(n));
    path = target[0] == '/' ? target : directory_of(path) + "/" + target;
  }
  return false;
}

bool read_file(std::string const& path, std::uint64_t max_bytes, std::string& bytes) {
  bytes.clear();
  if (!usable(path)) return false;
  // Non-blocking, so that a FIFO without a writer reads as empty instead of hanging.
  unique_fd_t fd(retry_eintr(
      [&] { return ::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC); }));
  if (!fd) return false;
  struct stat st;
  // A FIFO or a socket has no content to read, only a stream that may never end.
  if (::fstat(fd.get(), &st) != 0 || !(S_ISREG(st.st_mode) || S_ISCHR(st.st_mode))) return false;
  std::uint64_t size = S_ISREG(st.st_mode) ? static_cast<std::uint64_t>(st.st_size) : 0;
  if (max_bytes != 0) size = std::min(size, max_bytes);
  bytes.resize(static_cast<std::size_t>(size));
  std::size_t done = 0;
  while (done < bytes.size()) {
    ssize_t const n =
        retry_eintr([&] { return ::read(fd.get(), bytes.data() + done, bytes.size() - done); });
    if (n < 0) return false;
    if (n == 0) break;  // the file shrank while we read it
    done += static_cast<std::size_t>(n);
  }
  bytes.resize(done);
  return true;
}

}  // namespace quillon2::internal::fs_os
