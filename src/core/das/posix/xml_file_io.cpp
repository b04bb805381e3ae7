// POSIX side of the XML file access: flock, whole-file reads, temp file + fsync + rename.
#include "core/das/include/xml_file_io.hpp"

#include <errno.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cstring>
#include <string>

#include "core/file_system/include/file_system_os.hpp"
#include "core/file_system/posix/unique_fd.hpp"

namespace quillon2::internal {
namespace {

std::string errno_text(char const* what, int error) {
  return std::string(what) + ": " + std::strerror(error);
}

}  // namespace

bool read_file_locked(std::string const& native_name, std::string& content, std::string& why) {
  content.clear();
  if (native_name.empty()) {
    why = "no such file";
    return false;
  }
  // O_NONBLOCK: opening a FIFO must not wait for a writer; it is refused below anyway.
  int const fd = ::open(native_name.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
  if (fd < 0) {
    why = errno_text("cannot open", errno);
    return false;
  }
  bool ok = false;
  struct stat st;
  if (::fstat(fd, &st) != 0) {
    why = errno_text("cannot examine", errno);
  } else if (!S_ISREG(st.st_mode)) {
    why = "not a regular file";
  } else if (::flock(fd, LOCK_EX | LOCK_NB) != 0) {
    why = errno == EWOULDBLOCK ? std::string("locked by another holder")
                               : errno_text("cannot lock", errno);
  } else {
    content.reserve(static_cast<std::size_t>(st.st_size));
    char buffer[65536];
    ok = true;
    for (;;) {
      ssize_t const n = ::read(fd, buffer, sizeof buffer);
      if (n == 0) break;
      if (n < 0) {
        if (errno == EINTR) continue;
        why = errno_text("cannot read", errno);
        ok = false;
        break;
      }
      content.append(buffer, static_cast<std::size_t>(n));
    }
    ::flock(fd, LOCK_UN);
  }
  ::close(fd);
  if (!ok) content.clear();
  return ok;
}

atomic_file_writer_t::~atomic_file_writer_t() { abandon(); }

void atomic_file_writer_t::abandon() {
  if (m_fd >= 0) {
    ::close(m_fd);
    m_fd = -1;
  }
  if (!m_temp.empty()) {
    ::unlink(m_temp.c_str());
    m_temp.clear();
  }
  if (m_lock_fd >= 0) {
    ::close(m_lock_fd);  // releases the flock
    m_lock_fd = -1;
  }
}

bool atomic_file_writer_t::open(std::string const& native_name) {
  abandon();
  if (native_name.empty()) {
    m_why = "no such file";
    return false;
  }
  m_target = native_name;
  if (!fs_os::resolve_links(m_target)) {
    m_why = "too many symbolic links";
    return false;
  }
  mode_t keep_mode = 0;
  bool exists = false;
  // Opened for writing (never truncated here): a file that its owner made read-only is
  // not replaced behind the owner's back.
  int const lock_fd = ::open(m_target.c_str(), O_WRONLY | O_CLOEXEC | O_NONBLOCK | O_NOFOLLOW);
  if (lock_fd >= 0) {
    m_lock_fd = lock_fd;
    struct stat st;
    if (::fstat(lock_fd, &st) != 0 || !S_ISREG(st.st_mode)) {
      m_why = "not a regular file";
      abandon();
      return false;
    }
    if (::flock(lock_fd, LOCK_EX | LOCK_NB) != 0) {
      m_why = errno == EWOULDBLOCK ? std::string("locked by another holder")
                                   : errno_text("cannot lock", errno);
      abandon();
      return false;
    }
    exists = true;
    keep_mode = st.st_mode & 07777;
  } else if (errno != ENOENT) {
    m_why = errno_text("cannot open", errno);
    return false;
  }

  static std::atomic<unsigned long> counter{0};
  std::string const directory = fs_os::directory_of(m_target);
  std::string const base = m_target.substr(m_target.rfind('/') + 1);
  for (int attempt = 0; attempt < 100; ++attempt) {
    std::string const temp = directory + "/." + base + "." + std::to_string(::getpid()) + "." +
                             std::to_string(counter.fetch_add(1)) + ".tmp";
    // 0666 lets the umask decide for a new file, as for any file a program creates.
    int const fd = ::open(temp.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
    if (fd >= 0) {
      m_fd = fd;
      m_temp = temp;
      if (exists && ::fchmod(fd, keep_mode) != 0) {
        m_why = errno_text("cannot keep the file mode", errno);
        abandon();
        return false;
      }
      return true;
    }
    if (errno != EEXIST) {
      m_why = errno_text("cannot create", errno);
      abandon();
      return false;
    }
  }
  m_why = "cannot find a free temporary name";
  abandon();
  return false;
}

bool atomic_file_writer_t::write(char const* data, std::size_t size) {
  if (m_fd < 0) return false;
  if (!fs_os::write_all(m_fd, data, size)) {
    m_why = errno_text("cannot write", errno);
    return false;
  }
  return true;
}

bool atomic_file_writer_t::commit() {
  if (m_fd < 0) return false;
  if (::fsync(m_fd) != 0) {
    m_why = errno_text("cannot flush", errno);
    abandon();
    return false;
  }
  int const fd = m_fd;
  m_fd = -1;
  if (::close(fd) != 0) {
    m_why = errno_text("cannot close", errno);
    abandon();
    return false;
  }
  if (::rename(m_temp.c_str(), m_target.c_str()) != 0) {
    m_why = errno_text("cannot replace", errno);
    abandon();
    return false;
  }
  m_temp.clear();
  // Make the rename itself durable; a failure here no longer endangers any data.
  int const dir_fd = ::open(fs_os::directory_of(m_target).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (dir_fd >= 0) {
    ::fsync(dir_fd);
    ::close(dir_fd);
  }
  abandon();
  return true;
}

}  // namespace quillon2::internal
