// Scaffolding of the file and configuration tests: a fresh directory per test with short
// ways to fill and inspect it, and checks that need a process of their own (another
// user, a private mount, a clean environment). Those run in a fresh copy of the test
// program that runs the same test, not in a fork: a fork copies the locks that other
// threads of the test program hold at that moment. The tests that include it take the
// POSIX calls, GoogleTest and path_t from here.
#pragma once

#include <sched.h>
#include <stdlib.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <initializer_list>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include <quillon2/core/file_system/path.hpp>
#include <quillon2/headers/kesmet.hpp>

#include "support/spawn.hpp"
#include "support/temp_dir.hpp"

namespace q2test {

inline std::wstring wide(std::string const& s) { return kesmet2::utf8_to_utf16(s); }

class fs_test : public temp_dir_test {
 protected:
  // True in the copy that start_child() runs.
  static bool in_child() { return ::getenv("Q2_PARENT_DIR") != nullptr; }
  // The test's directory; in the copy, the parent's.
  std::string const m_root = in_child() ? ::getenv("Q2_PARENT_DIR") : m_dir.path();

  std::string native(std::string const& name) const { return m_root + "/" + name; }
  quillon2::path_t at(std::string const& name) const {
    return quillon2::path_t(wide(native(name)));
  }
  void write(std::string const& name, std::string const& content = "x") const {
    write_file(native(name), content);
  }
  std::string read(std::string const& name) const { return read_file(native(name)); }
  void mkdir(std::string const& name) const {
    ASSERT_EQ(0, ::mkdir(native(name).c_str(), 0777)) << name;
  }
  // Makes each name in order: "d/" a directory, "l->t" a link to the full path of t,
  // anything else a file holding "x".
  void make(std::initializer_list<std::string> names) const {
    for (auto const& name : names) {
      auto const arrow = name.find("->");
      if (arrow != std::string::npos) {
        symlink(native(name.substr(arrow + 2)), name.substr(0, arrow));
      } else {
        name.back() == '/' ? mkdir(name) : write(name);
      }
    }
  }
  void symlink(std::string const& target, std::string const& name) const {
    ASSERT_EQ(0, ::symlink(target.c_str(), native(name).c_str())) << name;
  }
  // The mode of what the name holds (a link itself), 0 when it holds nothing.
  mode_t mode_of(std::string const& name) const {
    struct stat st {};
    return ::lstat(native(name).c_str(), &st) == 0 ? st.st_mode : 0;
  }
  bool present(std::string const& name) const { return mode_of(name) != 0; }

  // Starts this test again in a fresh copy of the program, with `env` added.
  pid_t start_child(std::vector<std::string> env = {}) const {
    auto const& test = *::testing::UnitTest::GetInstance()->current_test_info();
    env.push_back("Q2_PARENT_DIR=" + m_root);
    return spawn({"/proc/self/exe",
                  std::string("--gtest_filter=") + test.test_suite_name() + "." + test.name()},
                 env);
  }
  // The exit status of a child, 128 + the signal that ended it, or -1.
  static int exit_status(pid_t child) {
    int status = 0;
    if (child <= 0 || ::waitpid(child, &status, 0) != child) return -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  }
  // Runs the child's part of this test and expects its checks to pass; skips the test
  // where the child found no private mount to be had.
  void expect_child_passes(std::vector<std::string> env = {}) const {
    int const status = exit_status(start_child(std::move(env)));
    if (present(".no-namespace")) {
      GTEST_SKIP() << "a private mount needs a mount namespace (CAP_SYS_ADMIN)";
    }
    EXPECT_EQ(0, status) << "the checks in the child failed";
  }

  // In the child: makes the directory `name`, mounts a tmpfs with `options` on it that
  // only this process sees, puts a file "f" holding "old" in it and makes it read-only
  // if asked. False where the system gives no mount namespace.
  bool private_tmpfs(std::string const& name, char const* options, bool read_only) const {
    std::string const point = native(name);
    if (::mkdir(point.c_str(), 0777) != 0 || ::unshare(CLONE_NEWNS) != 0 ||
        ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
        ::mount("tmpfs", point.c_str(), "tmpfs", 0, options) != 0) {
      write(".no-namespace");
      return false;
    }
    write(name + "/f", "old");
    EXPECT_TRUE(!read_only ||
                ::mount(nullptr, point.c_str(), nullptr, MS_REMOUNT | MS_RDONLY, nullptr) == 0);
    return true;
  }
};

}  // namespace q2test
