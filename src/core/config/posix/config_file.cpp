// POSIX side of the configuration files: a whole-file read under a shared flock.
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <time.h>

#include "core/config/include/config_xml.hpp"
#include "core/miscellaneous/include/posix_io.hpp"

namespace quillon2::internal {

namespace {

// How long a read waits for another holder's exclusive lock: the library's own saves
// hold it only while they write a temporary file.
constexpr int k_lock_wait_ms = 2000;

bool lock_shared(int fd) {
  for (int waited = 0;; ++waited) {
    if (posix::retry_eintr([&] { return ::flock(fd, LOCK_SH | LOCK_NB); }) == 0) return true;
    if (errno != EWOULDBLOCK || waited >= k_lock_wait_ms) return false;
    struct timespec const pause = {0, 1000000};
    ::nanosleep(&pause, nullptr);
  }
}

}  // namespace

bool read_config_file(std::string const& native_name, std::string& content) {
  if (native_name.empty()) return false;
  // O_NONBLOCK: opening a FIFO must not wait for a writer; it is refused below anyway.
  posix::unique_fd_t fd(posix::retry_eintr([&] {
    return ::open(native_name.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
  }));
  if (!fd) return false;
  struct stat st;
  if (::fstat(fd.get(), &st) != 0 || !S_ISREG(st.st_mode)) return false;
  if (!lock_shared(fd.get())) return false;
  content.clear();
  if (st.st_size > 0) content.reserve(static_cast<std::size_t>(st.st_size));
  return posix::read_all(fd.get(), content) == 0;  // closing releases the lock
}

}  // namespace quillon2::internal
