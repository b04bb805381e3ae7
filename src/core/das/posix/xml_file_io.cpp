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

namespace quillon2::internal {
namespace {

std::string errno_text(char const* what, int error) {
  return std::string(what) + ": " + std::strerror(error);
}

std::string directory_of(std::string const& path) {
  std::string::size_type const slash = path.rfind('/');
  if (slash == std::string::npos) return ".";
  if (slash == 0) return "/";
  return path.substr(0, slash);
}

// Follows symbolic links from `path` to the name of the file that a save replaces; a
// dangling link leads to the name it points to, which the save then creates.
bool resolve_links(std::string path, std::string& resolved) {
  for (int hops = 0; hops < 40; ++hops) {
    struct stat st;
    if (::lstat(path.c_str(), &st) != 0 || !S_ISLNK(st.st_mode)) {
      resolved = path;
      return true;
    }
    std::string target(static_cast<std::size_t>(st.st_size > 0 ? st.st_size : 256) + 1, '\0');
    ssize_t const n = ::readlink(path.c_str(), target.data(), target.size());
    if (n < 0 || static_cast<std::size_t>(n) >= target.size()) return false;
    target.resize(static_cast<std::size_t>(n));
    if (!target.empty() && target[0] != '/') target = directory_of(path) + "/" + target;
    path = target;
  }
  return false;
}

ssize_t write_all(int fd, char const* data, std::size_t size) {
  std::size_t done = 0;
  while (done < size) {
    ssize_t const n = ::write(fd, data + done, size - done);
    if (n < 0) {
      if (errno == EINTR) continue;
      return -1;
    }
    done += static_cast<std::size_t>(n);
  }
  return static_cast<ssize_t>(done);
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
  if (!resolve_links(native_name, m_target)) {
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
  std::string const directory = directory_of(m_target);
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
  if (write_all(m_fd, data, size) < 0) {
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
  int const dir_fd = ::open(directory_of(m_target).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (dir_fd >= 0) {
    ::fsync(dir_fd);
    ::close(dir_fd);
  }
  abandon();
  return true;
}

}  // namespace quillon2::internal
