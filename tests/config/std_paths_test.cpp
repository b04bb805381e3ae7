// Standard directories and configuration paths under a controlled environment: each
// check runs in a child process with its own HOME and XDG_* variables.
#include <stdlib.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <functional>
#include <string>

#include <gtest/gtest.h>

#include <quillon2/core/config/config_manager.hpp>
#include <quillon2/core/file_system/std_paths.hpp>

#include "support/temp_dir.hpp"

namespace {

namespace stdpaths = quillon2::stdpaths;
using quillon2::path_t;

path_t native(std::string const& text) { return path_t(std::wstring(text.begin(), text.end())); }

bool is_dir(std::string const& path) {
  struct stat st;
  return ::stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

unsigned mode_of(std::string const& path) {
  struct stat st;
  return ::stat(path.c_str(), &st) == 0 ? (st.st_mode & 07777) : 0;
}

// Runs `check` in a child process whose environment holds only what `check` sets.
void in_child(std::function<void()> const& check) {
  pid_t const child = ::fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    ::clearenv();
    check();
    ::_exit(::testing::Test::HasFailure() ? 1 : 0);
  }
  int status = 0;
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "the child's check failed";
}

class StdPathsTest : public q2test::temp_dir_test {};

TEST_F(StdPathsTest, UserConfigDirectoryIsMadeWithPrivateLevels) {
  std::string const root = m_dir.file("cfg");
  in_child([&] {
    ::setenv("XDG_CONFIG_HOME", (root + "/").c_str(), 1);
    EXPECT_EQ(stdpaths::get_user_config_dir(L""), native(root));
    EXPECT_EQ(stdpaths::get_user_config_dir(L"a\\b"), native(root + "/a/b"));
    EXPECT_EQ(stdpaths::get_user_config_dir(L"a/b"), native(root + "/a/b"));
    EXPECT_EQ(mode_of(root + "/a"), 0700u);
    EXPECT_EQ(mode_of(root + "/a/b"), 0700u);
    q2test::write_file(root + "/file", "x");
    EXPECT_EQ(stdpaths::get_user_config_dir(L"file"), native(root + "/file"));
    EXPECT_TRUE(stdpaths::get_user_config_dir(L"file/below").is_empty());
    EXPECT_TRUE(stdpaths::get_user_config_dir(L"/abs").is_empty());
    EXPECT_TRUE(stdpaths::get_user_config_dir(L"a/../../escape").is_empty());
    EXPECT_TRUE(stdpaths::get_user_config_dir(L"..").is_empty());
  });
}

TEST_F(StdPathsTest, UserConfigFallsBackToHome) {
  std::string const home = m_dir.file("home");
  in_child([&] {
    ::setenv("XDG_CONFIG_HOME", "relative/cfg", 1);
    ::setenv("HOME", home.c_str(), 1);
    EXPECT_EQ(stdpaths::get_user_config_dir(L"x"), native(home + "/.config/x"));
    EXPECT_TRUE(is_dir(home + "/.config/x"));
    ::unsetenv("HOME");  // the password database answers
    ::unsetenv("XDG_CONFIG_HOME");
    std::wstring const found = stdpaths::get_user_config_dir(L"").as_string(true);
    EXPECT_EQ(found.substr(found.size() < 8 ? 0 : found.size() - 8), L"\\.config");
  });
}

TEST_F(StdPathsTest, SharedConfigTakesTheFirstAbsoluteEntry) {
  std::string const dirs = m_dir.file("xdg");
  in_child([&] {
    ::setenv("XDG_CONFIG_DIRS", ("relative:" + dirs + ":/elsewhere").c_str(), 1);
    EXPECT_EQ(stdpaths::get_shared_config_dir(L"tool"), native(dirs + "/tool"));
    EXPECT_TRUE(is_dir(dirs + "/tool"));
    ::unsetenv("XDG_CONFIG_DIRS");
    EXPECT_EQ(stdpaths::get_shared_config_dir(L""), native("/etc/xdg"));
  });
}

TEST_F(StdPathsTest, DocumentsAreFoundInOrderAndNeverMade) {
  std::string const home = m_dir.file("home");
  ASSERT_EQ(::mkdir(home.c_str(), 0700), 0);
  in_child([&] {
    ::setenv("HOME", home.c_str(), 1);
    EXPECT_EQ(stdpaths::get_documents_dir(), native(home));
    ASSERT_EQ(::mkdir((home + "/Documents").c_str(), 0700), 0);
    EXPECT_EQ(stdpaths::get_documents_dir(), native(home + "/Documents"));
    ASSERT_EQ(::mkdir((home + "/.config").c_str(), 0700), 0);
    q2test::write_file(home + "/.config/user-dirs.dirs",
                       "# comment\nXDG_DOCUMENTS_DIR=\"relative/Docs\"\n");
    EXPECT_EQ(stdpaths::get_documents_dir(), native(home + "/Documents"));
    q2test::write_file(home + "/.config/user-dirs.dirs",
                       "XDG_DESKTOP_DIR=\"$HOME/Desktop\"\nXDG_DOCUMENTS_DIR=\"$HOME/Papers\"\n");
    EXPECT_EQ(stdpaths::get_documents_dir(), native(home + "/Papers"));
    EXPECT_FALSE(is_dir(home + "/Papers"));
    ::setenv("XDG_DOCUMENTS_DIR", "/srv/docs", 1);
    EXPECT_EQ(stdpaths::get_documents_dir(), native("/srv/docs"));
  });
}

TEST_F(StdPathsTest, TempDirectoryComesFromTmpdirWhenUsable) {
  std::string const dir = m_dir.path();
  in_child([&] {
    ::setenv("TMPDIR", (dir + "/").c_str(), 1);
    EXPECT_EQ(stdpaths::get_temp_dir(), native(dir));
    ::setenv("TMPDIR", (dir + "/missing").c_str(), 1);
    EXPECT_EQ(stdpaths::get_temp_dir(), native("/tmp"));
    ::setenv("TMPDIR", "relative", 1);
    EXPECT_EQ(stdpaths::get_temp_dir(), native("/tmp"));
  });
}

TEST_F(StdPathsTest, ProgramLibraryAndWorkingDirectories) {
  char buffer[4096];
  ssize_t const length = ::readlink("/proc/self/exe", buffer, sizeof buffer - 1);
  ASSERT_GT(length, 0);
  std::string const exe(buffer, static_cast<std::size_t>(length));
  path_t const exe_dir = native(exe.substr(0, exe.rfind('/')));
  EXPECT_EQ(stdpaths::get_executable_dir(), exe_dir);
  EXPECT_EQ(stdpaths::get_module_dir(reinterpret_cast<void const*>(&native)), exe_dir);
  EXPECT_EQ(stdpaths::get_module_dir(nullptr), exe_dir);
  path_t const library_dir = stdpaths::get_dynamic_lib_dir();
  EXPECT_FALSE(library_dir.is_empty());
  EXPECT_NE(library_dir, exe_dir);  // the library is built in its own folder

  std::string const dir = m_dir.path();
  in_child([&] {
    EXPECT_TRUE(stdpaths::set_working_dir(native(dir)));
    EXPECT_EQ(stdpaths::get_working_dir(), native(dir));
    EXPECT_FALSE(stdpaths::set_working_dir(native(dir + "/missing")));
  });
}

TEST_F(StdPathsTest, ConfigManagerPaths) {
  std::string const root = m_dir.file("cfg");
  std::string const own = m_dir.file("own/folder");
  in_child([&] {
    ::setenv("XDG_CONFIG_HOME", root.c_str(), 1);
    quillon2::config_manager_t manager(L"/opt/app/config", L"tool\\1.0");
    EXPECT_EQ(manager.default_config_path(L"gui"), native("/opt/app/config/gui.xml"));
    EXPECT_EQ(manager.user_config_path(L"gui"), native(root + "/Veldt/tool/1.0/gui.xml"));
    EXPECT_TRUE(is_dir(root + "/Veldt/tool/1.0"));
    EXPECT_FALSE(path_t::exists(native(root + "/Veldt/tool/1.0/gui.xml").as_string()));
    EXPECT_EQ(manager.user_config_path(L"gui.xml"),
              native(root + "/Veldt/tool/1.0/gui.xml.xml"));
    manager.set_company_name(L"Acme");
    EXPECT_EQ(manager.user_config_path(L"gui"), native(root + "/Acme/tool/1.0/gui.xml"));
    EXPECT_EQ(manager.default_config_path(L"gui"), native("/opt/app/config/gui.xml"));
    manager.override_user_config_folder(native(own));
    EXPECT_EQ(manager.user_config_path(L"gui"), native(own + "/gui.xml"));
    EXPECT_TRUE(is_dir(own));
    manager.override_user_config_folder(path_t());
    EXPECT_EQ(manager.user_config_path(L"gui"), native(root + "/Acme/tool/1.0/gui.xml"));
  });
}

}  // namespace
