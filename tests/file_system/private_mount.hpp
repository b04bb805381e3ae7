// Private file systems for tests. The tests run as root in CI, where permission bits
// don't stop a write, so read-only behaviour is tested on a tmpfs that is remounted
// read-only, and a full disk on a tiny tmpfs. That happens in a child process with a
// mount namespace of its own (unshare), so that nothing outside the child ever sees
// the mount.
#pragma once

#include <sched.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

#include <functional>
#include <string>

namespace q2test {

// What became of a check run on a private mount.
struct private_run_t {
  bool available = false;  // false: the system gave no private mount namespace
  std::string failures;    // what the check reported; empty when it passed
};

// Mounts a tmpfs (with the mount options given) on the existing directory
// `mount_point`, lets `fill` put content into it, remounts it read-only if asked, and
// runs `check`, all in a child process. `check` returns an empty string when all went
// as expected, otherwise a description of what did not.
inline private_run_t run_on_private_mount(std::string const& mount_point, char const* options,
                                          bool read_only, std::function<void()> const& fill,
                                          std::function<std::string()> const& check) {
  constexpr int unavailable = 77;
  int pipe_fds[2];
  private_run_t run;
  if (::pipe(pipe_fds) != 0) {
    run.failures = "pipe failed";
    return run;
  }
  pid_t const child = ::fork();
  if (child == 0) {
    ::close(pipe_fds[0]);
    if (::unshare(CLONE_NEWNS) != 0 ||
        ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
        ::mount("tmpfs", mount_point.c_str(), "tmpfs", 0, options) != 0) {
      ::_exit(unavailable);
    }
    fill();
    if (read_only &&
        ::mount(nullptr, mount_point.c_str(), nullptr, MS_REMOUNT | MS_RDONLY, nullptr) != 0) {
      ::_exit(unavailable);
    }
    std::string const failures = check();
    ssize_t const written = ::write(pipe_fds[1], failures.data(), failures.size());
    ::_exit(written == static_cast<ssize_t>(failures.size()) ? 0 : 1);
  }
  ::close(pipe_fds[1]);
  char buffer[4096];
  ssize_t n;
  while ((n = ::read(pipe_fds[0], buffer, sizeof buffer)) > 0) run.failures.append(buffer, n);
  ::close(pipe_fds[0]);
  int status = 0;
  if (child < 0 || ::waitpid(child, &status, 0) != child || !WIFEXITED(status)) {
    run.available = true;
    run.failures += "the child process did not finish normally";
    return run;
  }
  run.available = WEXITSTATUS(status) != unavailable;
  return run;
}

}  // namespace q2test

// Runs a check on a private mount, and skips the test where no mount namespace is to
// be had.
#define Q2_EXPECT_ON_PRIVATE_MOUNT(mount_point, options, read_only, fill, check)    \
  do {                                                                              \
    auto const q2_run =                                                             \
        q2test::run_on_private_mount(mount_point, options, read_only, fill, check); \
    if (!q2_run.available) {                                                        \
      GTEST_SKIP() << "a private file system needs a private mount namespace "      \
                      "(unshare -m, CAP_SYS_ADMIN), which this process can't have"; \
    }                                                                               \
    EXPECT_EQ("", q2_run.failures);                                                 \
  } while (false)

#define Q2_EXPECT_ON_READ_ONLY_MOUNT(mount_point, fill, check) \
  Q2_EXPECT_ON_PRIVATE_MOUNT(mount_point, "size=4m", true, fill, check)
