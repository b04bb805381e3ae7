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
    sigset_t pending;
    sigpending(&pending);
    m_was_pending = sigismember(&pending, SIGPIPE) == 1;
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

}  // namespace

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
  ++m_generation;
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
  }
}

ISharedFileHandle::native_handle_t SharedFileHandle::enter(bool need_wake) {
  std::lock_guard<std::mutex> lock(m_mutex);
  if (m_handle <= 0) return 0;
  if (need_wake && m_wake < 0) {
    m_wake = internal::move_above_standard(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
  }
  ++m_users;
  return m_handle;
}

void SharedFileHandle::leave() {
  std::lock_guard<std::mutex> lock(m_mutex);
  if (--m_users != 0) return;
  for (native_handle_t retired : m_retired) ::close(retired);
  m_retired.clear();
  if (m_wake >= 0) {
    std::uint64_t count = 0;
    [[maybe_unused]] ssize_t const n = ::read(m_wake, &count, sizeof count);
  }
}

int SharedFileHandle::read(char* buffer, unsigned size) {
  if (buffer == nullptr || size < 2) return -1;
  native_handle_t const fd = enter(true);
  if (fd <= 0) {
    QUILLON2_CHECK_FAILED("isValid()", "error::IsNot.Valid.Handle", error::IsNot.Valid.Handle);
    return -1;
  }
  unsigned long generation;
  int wake;
  {
    std::lock_guard<std::mutex> lock(m_mutex);
    generation = m_generation;
    wake = m_wake;
  }
  ssize_t result = 0;
  for (;;) {
    pollfd fds[2] = {{fd, POLLIN, 0}, {wake, POLLIN, 0}};
    int const ready = ::poll(fds, wake >= 0 ? 2 : 1, -1);
    if (ready < 0) {
      if (errno == EINTR) continue;
      result = 0;
      break;
    }
    if (fds[0].revents != 0) {
      result = quillon2::internal::posix::retry_eintr([&] { return ::read(fd, buffer, size - 1); });
      if (result < 0) result = 0;
      break;
    }
    if (fds[1].revents != 0) {
      std::lock_guard<std::mutex> lock(m_mutex);
      // Another user's wake that this read outlived: wait again.
      if (generation == m_generation) continue;
      result = 0;
      break;
    }
  }
  buffer[result] = '\0';
  leave();
  return static_cast<int>(result);
}

int SharedFileHandle::write(void const* buffer, unsigned size) {
  native_handle_t const fd = enter(false);
  if (fd <= 0) {
    QUILLON2_CHECK_FAILED("isValid()", "error::IsNot.Valid.Handle", error::IsNot.Valid.Handle);
    return -1;
  }
  int error;
  {
    sigpipe_guard_t guard;
    error = quillon2::internal::posix::write_all(fd, buffer, size);
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
