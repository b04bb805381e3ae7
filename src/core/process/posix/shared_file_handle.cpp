// SharedFileHandle on a POSIX descriptor: reads that wait in poll so that setHandle can
// wake them, writes that turn a broken pipe into -1 instead of SIGPIPE, and the text
// form (the descriptor number).
#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <sys/eventfd.h>
#include <time.h>
#include <unistd.h>

#include <climits>
#include <cstdint>
#include <string>

#include <quillon2/core/check.hpp>
#include <quillon2/headers/kesmet.hpp>

#include "core/miscellaneous/include/posix_io.hpp"
#include "core/process/include/shared_file_handle_impl.hpp"
#include "core/process/posix/include/process_posix.hpp"

namespace quillon2::process {

namespace internal {

int move_above_standard(int fd) {
  if (fd < 0 || fd > 2) return fd;
  int const moved = ::fcntl(fd, F_DUPFD_CLOEXEC, 3);
  int const saved = errno;
  ::close(fd);
  errno = saved;
  return moved;
}

}  // namespace internal

namespace {

// Blocks SIGPIPE on the calling thread for the life of the object. A SIGPIPE that the
// guarded writes raise stays pending on this thread and is consumed before the old mask
// comes back, so it never reaches the process's disposition.
class sigpipe_guard_t {
 public:
  sigpipe_guard_t() {
    sigemptyset(&m_pipe);
    sigaddset(&m_pipe, SIGPIPE);
    pthread_sigmask(SIG_BLOCK, &m_pipe, &m_old);
    // A SIGPIPE can only be pending here if this thread blocked it already: one that it
    // did not block would have been delivered on the way back from the last system call.
    if (sigismember(&m_old, SIGPIPE) == 1) {
      sigset_t pending;
      sigpending(&pending);
      m_was_pending = sigismember(&pending, SIGPIPE) == 1;
    }
  }
  ~sigpipe_guard_t() {
    if (m_raised && !m_was_pending) {
      timespec const zero{0, 0};
      while (sigtimedwait(&m_pipe, nullptr, &zero) == -1 && errno == EINTR) {
      }
    }
    pthread_sigmask(SIG_SETMASK, &m_old, nullptr);
  }
  void raised() { m_raised = true; }

 private:
  sigset_t m_pipe;
  sigset_t m_old;
  bool m_was_pending = false;
  bool m_raised = false;
};

// Writes all bytes, waiting for room where the descriptor is non-blocking. 0 or errno.
int write_all(int fd, void const* data, std::size_t size) {
  auto const* p = static_cast<char const*>(data);
  while (size > 0) {
    ssize_t const n = ::write(fd, p, size);
    if (n >= 0) {
      p += n;
      size -= static_cast<std::size_t>(n);
    } else if (errno == EAGAIN) {
      pollfd out{fd, POLLOUT, 0};
      ::poll(&out, 1, -1);
    } else if (errno != EINTR) {
      return errno;
    }
  }
  return 0;
}

bool is_nonblocking(int fd) {
  int const flags = fd > 0 ? ::fcntl(fd, F_GETFL) : -1;
  return flags >= 0 && (flags & O_NONBLOCK) != 0;
}

}  // namespace

SharedFileHandle::SharedFileHandle(native_handle_t handle)
    : m_handle(handle > 0 ? handle : 0), m_nonblocking(is_nonblocking(handle)) {}

SharedFileHandle::~SharedFileHandle() {
  if (m_handle > 0) ::close(m_handle);
  for (native_handle_t retired : m_retired) ::close(retired);
  if (m_wake >= 0) ::close(m_wake);
}

ISharedFileHandle::native_handle_t SharedFileHandle::getHandle() {
  std::lock_guard<std::mutex> lock(m_mutex);
  return m_handle;
}

bool SharedFileHandle::isValid() { return getHandle() > 0; }

void SharedFileHandle::setHandle(native_handle_t handle) {
  std::lock_guard<std::mutex> lock(m_mutex);
  native_handle_t const old = m_handle;
  m_handle = handle > 0 ? handle : 0;
  m_nonblocking = is_nonblocking(m_handle);
  m_generation.fetch_add(1, std::memory_order_relaxed);
  if (old <= 0 || old == m_handle) return;
  if (m_users == 0) {
    ::close(old);
    return;
  }
  // A read or write still uses the old descriptor: wake it, and let it close.
  m_retired.push_back(old);
  if (m_wake >= 0) {
    std::uint64_t const one = 1;
    [[maybe_unused]] ssize_t const n = ::write(m_wake, &one, sizeof one);
    m_woken = true;
  }
}

SharedFileHandle::use_t SharedFileHandle::enter(bool need_wake) {
  std::lock_guard<std::mutex> lock(m_mutex);
  use_t use{m_handle, -1, m_generation, m_nonblocking};
  if (m_handle <= 0) return use;
  if (need_wake && m_wake < 0) {
    m_wake = internal::move_above_standard(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
  }
  use.wake = m_wake;
  ++m_users;
  return use;
}

void SharedFileHandle::leave() {
  std::lock_guard<std::mutex> lock(m_mutex);
  if (--m_users != 0) return;
  for (native_handle_t retired : m_retired) ::close(retired);
  m_retired.clear();
  if (m_woken) {
    std::uint64_t count = 0;
    [[maybe_unused]] ssize_t const n = ::read(m_wake, &count, sizeof count);
    m_woken = false;
  }
}

// A descriptor without O_NONBLOCK (one a client handed over) is read only once poll has
// seen data, so that a wake can always reach the reader. The library's own read ends are
// non-blocking: while data flows they cost one read call a chunk.
int SharedFileHandle::read(char* buffer, unsigned size) {
  if (buffer == nullptr || size < 2) return -1;
  use_t const use = enter(true);
  if (use.fd <= 0) {
    QUILLON2_CHECK_FAILED("isValid()", "error::IsNot.Valid.Handle", error::IsNot.Valid.Handle);
    return -1;
  }
  ssize_t result = 0;
  bool readable = use.nonblocking;
  for (;;) {
    if (m_generation.load(std::memory_order_relaxed) != use.generation) break;  // woken
    if (readable) {
      result = ::read(use.fd, buffer, size - 1);
      if (result >= 0) break;
      result = 0;
      if (errno == EINTR) continue;
      if (errno != EAGAIN) break;
    }
    pollfd fds[2] = {{use.fd, POLLIN, 0}, {use.wake, POLLIN, 0}};
    int const ready = ::poll(fds, use.wake >= 0 ? 2 : 1, -1);
    if (ready < 0 && errno != EINTR) break;
    // Data, the end, or an error: the read tells which. A wake alone that is not this
    // read's (generation unchanged) is another user's, which this read outlived.
    readable = ready > 0 && fds[0].revents != 0;
  }
  buffer[result] = '\0';
  leave();
  return static_cast<int>(result);
}

int SharedFileHandle::write(void const* buffer, unsigned size) {
  native_handle_t const fd = enter(false).fd;
  if (fd <= 0) {
    QUILLON2_CHECK_FAILED("isValid()", "error::IsNot.Valid.Handle", error::IsNot.Valid.Handle);
    return -1;
  }
  int error;
  {
    sigpipe_guard_t guard;
    error = write_all(fd, buffer, size);
    if (error == EPIPE) guard.raised();
  }
  leave();
  return error == 0 ? static_cast<int>(size) : -1;
}

int SharedFileHandle::write(std::wstring const& text) {
  std::string const bytes = kesmet2::utf16_to_utf8(text);
  return write(bytes.data(), static_cast<unsigned>(bytes.size()));
}

std::wstring SharedFileHandle::serialize() { return std::to_wstring(getHandle()); }

error_code_t disableInheritance(ISharedFileHandle::native_handle_t handle) {
  QUILLON_CHECK(handle > 0, error::IsNot.Valid.Argument);
  int const ret = ::fcntl(handle, F_SETFD, FD_CLOEXEC) == 0 ? 1 : 0;
  QUILLON_CHECK(ret != 0, error::FailedTo.Execute.This.Operation);
  return error_code_t();
}

sptr_t<ISharedFileHandle> ISharedFileHandle::deserialize(std::wstring const& text) {
  std::uint64_t const value = kesmet2::generic::convert::str_to_uint64(text.c_str(), text.size());
  native_handle_t const handle = value > INT_MAX ? 0 : static_cast<native_handle_t>(value);
  error_code_t const err = disableInheritance(handle);
  if (err.failed()) return sptr_t<ISharedFileHandle>();
  return sptr_t<ISharedFileHandle>(new ref_counted_t<SharedFileHandle, mt_ref_count_impl_t>(handle));
}

}  // namespace quillon2::process
