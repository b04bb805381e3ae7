// Whole-file reads and safe whole-file writes.
//
// A write never leaves a truncated or half-written file behind: the bytes go to a
// new file in the target's directory, which is synced and then renamed over the
// target. The new file gets the target's mode (and, where allowed, its owner). When
// the target is a symbolic link, the file it leads to is replaced and the link stays.
#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <string>

#include "core/file_system/include/file_system_os.hpp"
#include "core/file_system/posix/unique_fd.hpp"

namespace quillon2::internal::fs_os {

namespace {

// How many links a write follows before it gives up, as the kernel does.
constexpr int k_max_links = 40;
// How many names a write tries for its temporary file.
constexpr int k_max_temp_names = 100;

// Writes in place, truncating: for targets that can't be replaced by a rename.
bool write_in_place(std::string const& path, std::string const& bytes) {
  unique_fd_t fd(retry_eintr([&] {
    return ::open(path.c_str(), O_WRONLY | O_TRUNC | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
  }));
  return fd && write_all(fd.get(), bytes.data(), bytes.size()) && fd.close();
}

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
  if (::fstat(fd.get(), &st) != 0 || S_ISDIR(st.st_mode)) return false;
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

bool write_file(std::string const& path, std::string const& bytes) {
  if (!usable(path)) return false;
  std::string target = path;
  if (!resolve_links(target)) return false;

  struct stat st;
  bool const existed = ::stat(target.c_str(), &st) == 0;
  if (existed && S_ISDIR(st.st_mode)) return false;
  // Devices, FIFOs and the like are written to, never replaced.
  if (existed && !S_ISREG(st.st_mode)) return write_in_place(target, bytes);

  static std::atomic<unsigned> counter{0};
  std::string const directory = directory_of(target);
  std::string temp;
  unique_fd_t fd;
  for (int i = 0; i < k_max_temp_names && !fd; ++i) {
    temp = directory + "/.q2-save-" + std::to_string(::getpid()) + "-" +
           std::to_string(counter.fetch_add(1, std::memory_order_relaxed)) + ".tmp";
    // A new file takes the umask like any other; one that replaces a file takes
    // that file's mode below.
    fd.reset(retry_eintr([&] {
      return ::open(temp.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC,
                    existed ? 0600 : 0666);
    }));
    if (!fd && errno != EEXIST) break;
  }
  if (!fd) {
    // A directory that takes no new files may still hold a writable file.
    if (existed && (errno == EACCES || errno == EPERM)) return write_in_place(target, bytes);
    return false;
  }

  bool ok = write_all(fd.get(), bytes.data(), bytes.size()) && ::fsync(fd.get()) == 0;
  if (ok && existed) {
    // Keeping the owner needs rights that only some callers have; without them the
    // file simply belongs to the caller. The mode goes after the owner, since a
    // change of owner may clear set-id bits.
    int const owner_kept = ::fchown(fd.get(), st.st_uid, st.st_gid);
    (void)owner_kept;
    ok = ::fchmod(fd.get(), st.st_mode & 07777) == 0;
  }
  ok = fd.close() && ok;
  if (ok) ok = ::rename(temp.c_str(), target.c_str()) == 0;
  if (!ok) ::unlink(temp.c_str());
  return ok;
}

}  // namespace quillon2::internal::fs_os
