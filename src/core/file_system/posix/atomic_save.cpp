// The library's one atomic replacement of a file; see atomic_save.hpp.
#include "core/file_system/include/atomic_save.hpp"

#include <errno.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <string>

#include "core/file_system/include/file_system_os.hpp"
#include "core/miscellaneous/include/posix_io.hpp"

namespace quillon2::internal {
namespace {

using posix::retry_eintr;
using posix::unique_fd_t;

// How many names a save tries for its temporary file.
constexpr int k_max_temp_names = 100;

save_result_t failure(int error, char const* what) {
  save_result_t result;
  result.error = error;
  result.why = what;
  if (error != 0) result.why += ": " + posix::errno_text(error);
  return result;
}

save_result_t success() {
  save_result_t result;
  result.ok = true;
  return result;
}

// A character device (a terminal, /dev/null) holds no content that a failed write could
// lose, and a rename would put a plain file in its place: it is written to.
save_result_t write_device(std::string const& path, std::string_view bytes) {
  unique_fd_t fd(retry_eintr([&] {
    return ::open(path.c_str(), O_WRONLY | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
  }));
  if (!fd) return failure(errno, "cannot open");
  if (int const error = posix::write_all(fd.get(), bytes.data(), bytes.size())) {
    return failure(error, "cannot write");
  }
  return fd.close() ? success() : failure(errno, "cannot close");
}

}  // namespace

save_result_t atomic_save(std::string const& native_path, std::string_view bytes,
                          save_options_t const& options) {
  if (!fs_os::usable(native_path)) return failure(0, "no such file");
  std::string target = native_path;
  if (!fs_os::resolve_links(target)) return failure(ELOOP, "cannot follow the links");

  struct stat st {};
  bool existed = false;
  unique_fd_t holder;  // the existing target, open for its lock
  if (options.lock) {
    // Opened for writing, never truncated: a file its owner made read-only is not
    // replaced behind the owner's back.
    holder.reset(retry_eintr([&] {
      return ::open(target.c_str(), O_WRONLY | O_NONBLOCK | O_NOFOLLOW | O_NOCTTY | O_CLOEXEC);
    }));
    if (holder) {
      if (::fstat(holder.get(), &st) != 0) return failure(errno, "cannot examine");
      existed = true;
    } else if (errno != ENOENT) {
      return failure(errno, "cannot open");
    }
  } else if (::stat(target.c_str(), &st) == 0) {
    existed = true;
  } else if (errno != ENOENT) {
    return failure(errno, "cannot examine");
  }
  if (existed && !S_ISREG(st.st_mode)) {
    if (S_ISCHR(st.st_mode)) return write_device(target, bytes);
    return failure(0, "not a regular file");
  }
  if (holder && ::flock(holder.get(), LOCK_EX | LOCK_NB) != 0) {
    int const error = errno;
    return error == EWOULDBLOCK ? failure(0, "locked by another holder")
                                : failure(error, "cannot lock");
  }

  static std::atomic<unsigned long> counter{0};
  std::string const directory = fs_os::directory_of(target);
  std::string temp;
  unique_fd_t out;
  int error = 0;
  for (int i = 0; i < k_max_temp_names && !out; ++i) {
    temp = directory + "/.q2-save-" + std::to_string(::getpid()) + "-" +
           std::to_string(counter.fetch_add(1, std::memory_order_relaxed)) + ".tmp";
    // A new file takes the umask like any other; one that replaces a file takes that
    // file's mode below.
    out.reset(retry_eintr([&] {
      return ::open(temp.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC,
                    existed ? 0600 : 0666);
    }));
    if (!out && (error = errno) != EEXIST) break;
  }
  if (!out) return failure(error, "cannot create a temporary file beside it");

  auto const abandon = [&](int why_error, char const* what) {
    out.reset();
    ::unlink(temp.c_str());
    return failure(why_error, what);
  };
  if (int const write_error = posix::write_all(out.get(), bytes.data(), bytes.size())) {
    return abandon(write_error, "cannot write");
  }
  if (existed) {
    // Keeping the owner needs rights that only some callers have; without them the file
    // simply belongs to the caller. The mode goes after the owner, since a change of
    // owner may clear set-id bits.
    if (::fchown(out.get(), st.st_uid, st.st_gid) != 0) {
      // not permitted: the caller owns the new file
    }
    if (::fchmod(out.get(), st.st_mode & 07777) != 0) {
      return abandon(errno, "cannot keep the file mode");
    }
  }
  if (::fsync(out.get()) != 0) return abandon(errno, "cannot flush");
  if (!out.close()) return abandon(errno, "cannot close");
  if (::rename(temp.c_str(), target.c_str()) != 0) return abandon(errno, "cannot replace");
  // Makes the rename itself durable; a failure here no longer endangers any data.
  unique_fd_t dir(retry_eintr(
      [&] { return ::open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC); }));
  if (dir) ::fsync(dir.get());
  return success();
}

}  // namespace quillon2::internal
