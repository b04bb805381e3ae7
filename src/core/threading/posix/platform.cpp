// The operating-system side of the threading subsystem on POSIX.
#include "core/threading/include/platform.hpp"

#include <cxxabi.h>
#include <fcntl.h>
#include <linux/futex.h>
#include <pthread.h>
#include <sched.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string>

#include "core/miscellaneous/include/posix_io.hpp"

namespace quillon2::internal {

namespace {

std::chrono::steady_clock::time_point const g_clock_origin = std::chrono::steady_clock::now();

// The "TracerPid:" field of the process's status: the tracing process, 0 without one, -1
// when the status cannot be read (or held).
long tracer_pid() noexcept try {
  posix::unique_fd_t const fd(
      posix::retry_eintr([] { return open("/proc/self/status", O_RDONLY | O_CLOEXEC); }));
  std::string status;
  if (!fd || posix::read_all(fd.get(), status) != 0) return -1;
  std::size_t const at = status.find("\nTracerPid:");
  if (at == std::string::npos) return -1;
  return std::strtol(status.c_str() + at + 11, nullptr, 10);
} catch (std::bad_alloc const&) {
  return -1;
}

}  // namespace

void cpu_relax() noexcept {
#if defined(__x86_64__) || defined(__i386__)
  __builtin_ia32_pause();
#elif defined(__aarch64__)
  asm volatile("yield" ::: "memory");
#endif
}

void wait_on_word(std::atomic<int>& word, int expected) noexcept {
  static_assert(sizeof(std::atomic<int>) == sizeof(int) && std::atomic<int>::is_always_lock_free,
                "the kernel waits on the atomic's own int");
  // EAGAIN (the word changed) and EINTR both send the caller back to look again.
  syscall(SYS_futex, reinterpret_cast<int*>(&word), FUTEX_WAIT_PRIVATE, expected, nullptr,
          nullptr, 0);
}

void wake_one_on_word(std::atomic<int>& word) noexcept {
  syscall(SYS_futex, reinterpret_cast<int*>(&word), FUTEX_WAKE_PRIVATE, 1, nullptr, nullptr, 0);
}

std::uintptr_t current_thread_key() noexcept {
  return static_cast<std::uintptr_t>(pthread_self());
}

void yield_thread() noexcept { sched_yield(); }

void sleep_microseconds(unsigned microseconds) noexcept {
  timespec request{static_cast<time_t>(microseconds / 1000000),
                   static_cast<long>(microseconds % 1000000) * 1000L};
  while (nanosleep(&request, &request) != 0 && errno == EINTR) {
  }
}

void use_exact_timeouts() noexcept {
  // Per thread; a failure leaves the default slack, which is only less exact.
  prctl(PR_SET_TIMERSLACK, 1UL, 0UL, 0UL, 0UL);
}

void publish_thread_name(char const* name) noexcept {
  // The kernel keeps 15 bytes and refuses longer names.
  char kernel_name[16] = {};
  std::memcpy(kernel_name, name, strnlen(name, sizeof kernel_name - 1));
  pthread_setname_np(pthread_self(), kernel_name);
}

bool debugger_attached() noexcept {
  constexpr std::int64_t refresh_nanoseconds = 100'000'000;
  static std::atomic<std::int64_t> next_check{0};
  static std::atomic<bool> attached{false};
  std::int64_t const now = process_clock_nanoseconds();
  std::int64_t due = next_check.load(std::memory_order_relaxed);
  // One thread reads the status when it is due; the others keep the answer they have.
  if (now >= due && next_check.compare_exchange_strong(due, now + refresh_nanoseconds,
                                                       std::memory_order_relaxed)) {
    attached.store(tracer_pid() > 0, std::memory_order_relaxed);
  }
  return attached.load(std::memory_order_relaxed);
}

std::string demangle_type_name(char const* mangled) {
  int status = 0;
  char* readable = abi::__cxa_demangle(mangled, nullptr, nullptr, &status);
  if (status != 0 || readable == nullptr) return mangled;
  std::string result(readable);
  std::free(readable);
  return result;
}

std::int64_t process_clock_nanoseconds() noexcept {
  auto const elapsed = std::chrono::duration_cast<std::chrono::nanoseconds>(
      std::chrono::steady_clock::now() - g_clock_origin);
  return static_cast<std::int64_t>(elapsed.count());
}

}  // namespace quillon2::internal
