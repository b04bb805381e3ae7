// The small POSIX toolkit that every posix/ folder of the library uses: an owning
// descriptor, retry of interrupted calls, whole-buffer reads and writes, the text of an
// errno value, and advice for large blocks of memory. Nothing here reads `errno` after
// another call could have changed it: functions that fail return the errno they saw.
#pragma once

#include <errno.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <utility>

namespace quillon2::internal::posix {

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

// Writes all of `size` bytes, going on after short and interrupted writes. Returns 0,
// or the errno of the write that failed.
inline int write_all(int fd, void const* data, std::size_t size) {
  auto const* p = static_cast<char const*>(data);
  while (size > 0) {
    ssize_t const n = retry_eintr([&] { return ::write(fd, p, size); });
    if (n < 0) return errno;
    p += n;
    size -= static_cast<std::size_t>(n);
  }
  return 0;
}

// Reads until end of file, appending to `bytes`. Returns 0, or the errno of the read
// that failed.
inline int read_all(int fd, std::string& bytes) {
  char buffer[65536];
  for (;;) {
    ssize_t const n = retry_eintr([&] { return ::read(fd, buffer, sizeof buffer); });
    if (n < 0) return errno;
    if (n == 0) return 0;
    bytes.append(buffer, static_cast<std::size_t>(n));
  }
}

// The system's text of an errno value, thread-safe.
inline std::string errno_text(int error) {
  char buffer[256];
  // GNU strerror_r returns the text, which need not be in `buffer`.
  return ::strerror_r(error, buffer, sizeof buffer);
}

// Asks for huge pages behind the whole 2 MiB pages inside a large block that is about to
// be filled at once (a saved document, its text): the first touch of hundreds of MB then
// costs a fault per 2 MiB instead of one per 4 KiB, which is most of the time of filling
// fresh memory in a virtual machine. Advice only: where it does not apply (no
// transparent huge pages, memory that is no private anonymous mapping) nothing changes.
inline void advise_huge_pages(void* data, std::size_t size) {
  constexpr std::uintptr_t huge = std::uintptr_t{2} << 20;
  if (size < 4 * huge) return;
  std::uintptr_t const start = reinterpret_cast<std::uintptr_t>(data);
  std::uintptr_t const begin = (start + huge - 1) & ~(huge - 1);
  std::uintptr_t const end = (start + size) & ~(huge - 1);
  if (end > begin) ::madvise(reinterpret_cast<void*>(begin), end - begin, MADV_HUGEPAGE);
}

}  // namespace quillon2::internal::posix
