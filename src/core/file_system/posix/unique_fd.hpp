// Small helpers shared by the POSIX files of the file system: an owning descriptor,
// retry of interrupted calls and a write of a whole buffer.
#pragma once

#include <errno.h>
#include <unistd.h>

#include <cstddef>
#include <string>
#include <utility>

namespace quillon2::internal::fs_os {

// Owns a descriptor and closes it.
class unique_fd_t {
 public:
  unique_fd_t() = default;
  explicit unique_fd_t(int fd) : m_fd(fd) {}
  unique_fd_t(unique_fd_t&& other) noexcept : m_fd(std::exchange(other.m_fd, -1)) {}
  unique_fd_t& operator=(unique_fd_t&& other) noexcept {
    if (this != &other) reset(std::exchange(other.m_fd, -1));
    return *this;
  }
  unique_fd_t(unique_fd_t const&) = delete;
  unique_fd_t& operator=(unique_fd_t const&) = delete;
  ~unique_fd_t() { reset(); }

  int get() const { return m_fd; }
  explicit operator bool() const { return m_fd >= 0; }
  int release() { return std::exchange(m_fd, -1); }
  void reset(int fd = -1) {
    if (m_fd >= 0) ::close(m_fd);
    m_fd = fd;
  }
  // Closes now and reports whether the close succeeded (it can report a late write
  // error).
  bool close() {
    int const fd = std::exchange(m_fd, -1);
    return fd < 0 || ::close(fd) == 0;
  }

 private:
  int m_fd = -1;
};

// Repeats a call that failed with EINTR.
template <class F>
auto retry_eintr(F f) -> decltype(f()) {
  decltype(f()) result;
  do {
    result = f();
  } while (result == -1 && errno == EINTR);
  return result;
}

// Writes all of `size` bytes, going on after short and interrupted writes.
inline bool write_all(int fd, char const* data, std::size_t size) {
  while (size > 0) {
    ssize_t const n = retry_eintr([&] { return ::write(fd, data, size); });
    if (n < 0) return false;
    data += n;
    size -= static_cast<std::size_t>(n);
  }
  return true;
}

// Whether a native path can be handed to the system at all: empty text names
// nothing, and a NUL inside would silently cut the name short.
inline bool usable(std::string const& path) {
  return !path.empty() && path.find('\0') == std::string::npos;
}

}  // namespace quillon2::internal::fs_os
