// POSIX side of the XML file access: whole-file reads under a shared flock.
#include "core/das/include/xml_file_io.hpp"

#include <errno.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <string>

#include "core/miscellaneous/include/posix_io.hpp"

namespace quillon2::internal {
namespace {

std::string reason(char const* what, int error) {
  return std::string(what) + ": " + posix::errno_text(error);
}

}  // namespace

bool read_file_locked(std::string const& native_name, std::string& content, std::string& why) {
  content.clear();
  if (native_name.empty()) {
    why = "no such file";
    return false;
  }
  // O_NONBLOCK: opening a FIFO must not wait for a writer; it is refused below anyway.
  posix::unique_fd_t fd(posix::retry_eintr(
      [&] { return ::open(native_name.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY); }));
  if (!fd) {
    why = reason("cannot open", errno);
    return false;
  }
  struct stat st;
  if (::fstat(fd.get(), &st) != 0) {
    why = reason("cannot examine", errno);
    return false;
  }
  if (!S_ISREG(st.st_mode)) {
    why = "not a regular file";
    return false;
  }
  if (::flock(fd.get(), LOCK_SH | LOCK_NB) != 0) {
    int const error = errno;
    why = error == EWOULDBLOCK ? std::string("locked by another holder")
                               : reason("cannot lock", error);
    return false;
  }
  content.reserve(static_cast<std::size_t>(st.st_size));
  if (int const error = posix::read_all(fd.get(), content)) {
    why = reason("cannot read", error);
    content.clear();
    return false;
  }
  return true;  // closing the descriptor releases the lock
}

}  // namespace quillon2::internal
