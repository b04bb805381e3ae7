// One started child process: its pid, a pidfd where the kernel gives one, and whether it
// has been reaped. Waiting and killing go through this object under its mutex, so the
// pid is signalled only while it is known not to be reaped (a reused pid is never hit).
// The last owner of a child that still runs hands it to the reaper thread.
#pragma once

#include <sys/types.h>

#include <mutex>

namespace quillon2::process::internal {

// The exit code that stands for "still running".
constexpr int still_active = 259;

struct child_t {
  child_t(pid_t pid, int pidfd) : m_pid(pid), m_pidfd(pidfd) {}
  ~child_t();
  child_t(child_t const&) = delete;
  child_t& operator=(child_t const&) = delete;

  enum class state_t { running, ended, lost };
  // Reaps the child if it has ended. `exit_code` gets its code (128 + signal for a
  // child killed by a signal), still_active while it runs, -1 when it is lost: it
  // cannot be waited for (ECHILD: the host ignores SIGCHLD or reaps every child).
  state_t poll(int& exit_code);
  // As poll, after waiting at most `milliseconds` for the end.
  state_t waitFor(int milliseconds, int& exit_code);
  // As poll, after waiting for the end without a time limit.
  state_t waitForEver(int& exit_code);
  // SIGKILL, unless the child was reaped already. False when the system refused.
  bool kill();

 private:
  pid_t const m_pid;
  int m_pidfd;  // -1 where pidfd_open is not available
  std::mutex m_mutex;
  bool m_reaped = false;
  int m_exit_code = still_active;
};

// Takes over a child that nobody waits for, and reaps it when it ends. The reaper is
// one thread, started by the first child it gets.
void adopt(pid_t pid, int pidfd);

}  // namespace quillon2::process::internal
