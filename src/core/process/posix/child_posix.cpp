// Waiting for children: pidfd + poll for timed and endless waits, WNOHANG polling where
// there is no pidfd, and the reaper thread for children whose owners are gone. No SIGCHLD
// handler is installed: the host's disposition stays as it is.
#include <errno.h>
#include <poll.h>
#include <signal.h>
#include <sys/eventfd.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <mutex>
#include <thread>
#include <vector>

#include "core/process/posix/include/child.hpp"
#include "core/process/posix/include/process_posix.hpp"

namespace quillon2::process::internal {

namespace {

int code_of(int status) {
  if (WIFEXITED(status)) return WEXITSTATUS(status);
  if (WIFSIGNALED(status)) return 128 + WTERMSIG(status);
  return -1;
}

// Waits for the pidfd to become readable (the child ended); -1 waits without a limit.
void poll_pidfd(int pidfd, int milliseconds) {
  auto const deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(milliseconds);
  for (;;) {
    pollfd fd{pidfd, POLLIN, 0};
    int const ready = ::poll(&fd, 1, milliseconds);
    if (ready >= 0 || errno != EINTR) return;
    if (milliseconds >= 0) {
      auto const left = std::chrono::duration_cast<std::chrono::milliseconds>(
          deadline - std::chrono::steady_clock::now());
      milliseconds = static_cast<int>(std::max<long long>(0, left.count()));
    }
  }
}

struct reaper_t {
  std::mutex mutex;
  std::vector<std::pair<pid_t, int>> children;
  int wake = -1;
  bool started = false;

  void run() {
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_BLOCK, &all, nullptr);
    std::vector<pollfd> fds;
    for (;;) {
      bool without_pidfd = false;
      fds.assign(1, pollfd{wake, POLLIN, 0});
      {
        std::lock_guard<std::mutex> lock(mutex);
        for (auto const& child : children) {
          if (child.second >= 0) {
            fds.push_back(pollfd{child.second, POLLIN, 0});
          } else {
            without_pidfd = true;
          }
        }
      }
      ::poll(fds.data(), fds.size(), without_pidfd ? 20 : -1);
      std::uint64_t count;
      [[maybe_unused]] ssize_t const n = ::read(wake, &count, sizeof count);
      std::lock_guard<std::mutex> lock(mutex);
      children.erase(std::remove_if(children.begin(), children.end(),
                                    [](std::pair<pid_t, int> const& child) {
                                      int status;
                                      pid_t const r = ::waitpid(child.first, &status, WNOHANG);
                                      if (r == 0 || (r < 0 && errno == EINTR)) return false;
                                      if (child.second >= 0) ::close(child.second);
                                      return true;
                                    }),
                     children.end());
    }
  }
};

reaper_t& reaper() {
  // Never destroyed: the thread outlives every static destructor.
  static reaper_t* const instance = new reaper_t;
  return *instance;
}

}  // namespace

void adopt(pid_t pid, int pidfd) {
  reaper_t& r = reaper();
  std::lock_guard<std::mutex> lock(r.mutex);
  r.children.emplace_back(pid, pidfd);
  if (!r.started) {
    r.wake = move_above_standard(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
    std::thread([&r] { r.run(); }).detach();
    r.started = true;
  }
  std::uint64_t const one = 1;
  [[maybe_unused]] ssize_t const n = ::write(r.wake, &one, sizeof one);
}

child_t::~child_t() {
  int code;
  if (poll(code) == state_t::running) {
    adopt(m_pid, m_pidfd);
  } else if (m_pidfd >= 0) {
    ::close(m_pidfd);
  }
}

child_t::state_t child_t::poll(int& exit_code) {
  std::lock_guard<std::mutex> lock(m_mutex);
  if (!m_reaped) {
    int status = 0;
    pid_t r;
    do {
      r = ::waitpid(m_pid, &status, WNOHANG);
    } while (r < 0 && errno == EINTR);
    if (r == 0) {
      exit_code = still_active;
      return state_t::running;
    }
    m_reaped = true;
    m_exit_code = r == m_pid ? code_of(status) : -1;
  }
  exit_code = m_exit_code;
  return m_exit_code == -1 ? state_t::lost : state_t::ended;
}

child_t::state_t child_t::waitFor(int milliseconds, int& exit_code) {
  if (m_pidfd >= 0) {
    poll_pidfd(m_pidfd, milliseconds);
    return poll(exit_code);
  }
  auto const deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(milliseconds);
  auto step = std::chrono::milliseconds(1);
  for (;;) {
    state_t const state = poll(exit_code);
    auto const now = std::chrono::steady_clock::now();
    if (state != state_t::running || now >= deadline) return state;
    std::this_thread::sleep_for(std::min<std::chrono::steady_clock::duration>(step, deadline - now));
    step = std::min(step * 2, std::chrono::milliseconds(10));
  }
}

child_t::state_t child_t::waitForEver(int& exit_code) {
  if (m_pidfd >= 0) {
    poll_pidfd(m_pidfd, -1);
  } else {
    // Waits for the end without reaping, so that kill() still knows the pid is ours.
    siginfo_t info;
    while (::waitid(P_PID, static_cast<id_t>(m_pid), &info, WEXITED | WNOWAIT) < 0 &&
           errno == EINTR) {
    }
  }
  return poll(exit_code);
}

bool child_t::kill() {
  std::lock_guard<std::mutex> lock(m_mutex);
  return m_reaped || ::kill(m_pid, SIGKILL) == 0;
}

}  // namespace quillon2::process::internal
