// Standard directories and configuration paths under a controlled environment: each
// check runs in a child process whose environment holds only the variables it sets.
#include <filesystem>

#include <quillon2/core/config/config_manager.hpp>
#include <quillon2/core/file_system/std_paths.hpp>

#include "file_system/fs_support.hpp"

namespace {

namespace stdpaths = quillon2::stdpaths;
using quillon2::path_t;

class StdPaths : public q2test::fs_test {};

TEST_F(StdPaths, ConfigDirectoriesAreMadeWithPrivateLevelsAndTheManagerUsesThem) {
  if (!in_child()) return expect_child_passes();
  ::clearenv();
  ::setenv("XDG_CONFIG_HOME", (native("cfg") + "/").c_str(), 1);
  EXPECT_EQ(stdpaths::get_user_config_dir(L""), at("cfg"));
  EXPECT_EQ(stdpaths::get_user_config_dir(L"a\\b"), at("cfg/a/b"));
  EXPECT_EQ(mode_of("cfg/a") & 07777, 0700u);
  EXPECT_EQ(mode_of("cfg/a/b") & 07777, 0700u);
  write("cfg/file");
  EXPECT_EQ(stdpaths::get_user_config_dir(L"file"), at("cfg/file"));
  for (auto const* refused : {L"file/below", L"/abs", L"a/../../escape", L".."}) {
    EXPECT_TRUE(stdpaths::get_user_config_dir(refused).is_empty()) << refused;
  }
  // A relative XDG_CONFIG_HOME gives way to HOME, and a missing HOME to the password
  // database.
  ::setenv("XDG_CONFIG_HOME", "relative/cfg", 1);
  ::setenv("HOME", native("home").c_str(), 1);
  EXPECT_EQ(stdpaths::get_user_config_dir(L"x"), at("home/.config/x"));
  EXPECT_TRUE(S_ISDIR(mode_of("home/.config/x")));
  ::unsetenv("HOME");
  ::unsetenv("XDG_CONFIG_HOME");
  std::wstring const found = stdpaths::get_user_config_dir(L"").as_string(true);
  EXPECT_EQ(found.substr(found.size() < 8 ? 0 : found.size() - 8), L"\\.config");
  // The shared one is the first absolute entry.
  ::setenv("XDG_CONFIG_DIRS", ("relative:" + native("xdg") + ":/elsewhere").c_str(), 1);
  EXPECT_EQ(stdpaths::get_shared_config_dir(L"tool"), at("xdg/tool"));
  EXPECT_TRUE(S_ISDIR(mode_of("xdg/tool")));
  ::unsetenv("XDG_CONFIG_DIRS");
  EXPECT_EQ(stdpaths::get_shared_config_dir(L""), path_t(L"/etc/xdg"));
  // The configuration manager's paths.
  ::setenv("XDG_CONFIG_HOME", native("cfg").c_str(), 1);
  quillon2::config_manager_t manager(L"/opt/app/config", L"tool\\1.0");
  EXPECT_EQ(manager.default_config_path(L"gui"), path_t(L"/opt/app/config/gui.xml"));
  EXPECT_EQ(manager.user_config_path(L"gui"), at("cfg/Veldt/tool/1.0/gui.xml"));
  EXPECT_TRUE(S_ISDIR(mode_of("cfg/Veldt/tool/1.0")));
  EXPECT_FALSE(present("cfg/Veldt/tool/1.0/gui.xml"));
  EXPECT_EQ(manager.user_config_path(L"gui.xml"), at("cfg/Veldt/tool/1.0/gui.xml.xml"));
  manager.set_company_name(L"Acme");
  EXPECT_EQ(manager.user_config_path(L"gui"), at("cfg/Acme/tool/1.0/gui.xml"));
  manager.override_user_config_folder(at("own/folder"));
  EXPECT_EQ(manager.user_config_path(L"gui"), at("own/folder/gui.xml"));
  EXPECT_TRUE(S_ISDIR(mode_of("own/folder")));
  manager.override_user_config_folder(path_t());
  EXPECT_EQ(manager.user_config_path(L"gui"), at("cfg/Acme/tool/1.0/gui.xml"));
}

TEST_F(StdPaths, DocumentsAreFoundInOrderAndNeverMade) {
  if (!in_child()) return expect_child_passes();
  ::clearenv();
  mkdir("home");
  ::setenv("HOME", native("home").c_str(), 1);
  EXPECT_EQ(stdpaths::get_documents_dir(), at("home"));
  make({"home/Documents/", "home/.config/"});
  EXPECT_EQ(stdpaths::get_documents_dir(), at("home/Documents"));
  write("home/.config/user-dirs.dirs", "# comment\nXDG_DOCUMENTS_DIR=\"relative/Docs\"\n");
  EXPECT_EQ(stdpaths::get_documents_dir(), at("home/Documents"));
  write("home/.config/user-dirs.dirs",
        "XDG_DESKTOP_DIR=\"$HOME/Desktop\"\nXDG_DOCUMENTS_DIR=\"$HOME/Papers\"\n");
  EXPECT_EQ(stdpaths::get_documents_dir(), at("home/Papers"));
  EXPECT_FALSE(present("home/Papers"));
  ::setenv("XDG_DOCUMENTS_DIR", "/srv/docs", 1);
  EXPECT_EQ(stdpaths::get_documents_dir(), path_t(L"/srv/docs"));
}

TEST_F(StdPaths, ProgramLibraryTemporaryAndWorkingDirectories) {
  if (!in_child()) return expect_child_passes();
  ::clearenv();
  path_t const exe_dir(
      q2test::wide(std::filesystem::read_symlink("/proc/self/exe").parent_path().string()));
  EXPECT_EQ(stdpaths::get_executable_dir(), exe_dir);
  EXPECT_EQ(stdpaths::get_module_dir(reinterpret_cast<void const*>(&q2test::wide)), exe_dir);
  EXPECT_EQ(stdpaths::get_module_dir(nullptr), exe_dir);
  // The library is built in a folder of its own.
  EXPECT_TRUE(stdpaths::get_dynamic_lib_dir().is_absolute());
  EXPECT_NE(stdpaths::get_dynamic_lib_dir(), exe_dir);
  ::setenv("TMPDIR", (m_root + "/").c_str(), 1);
  EXPECT_EQ(stdpaths::get_temp_dir(), at(""));
  for (std::string const& unusable : {native("missing"), std::string("relative")}) {
    ::setenv("TMPDIR", unusable.c_str(), 1);
    EXPECT_EQ(stdpaths::get_temp_dir(), path_t(L"/tmp"));
  }
  EXPECT_TRUE(stdpaths::set_working_dir(at("")));
  EXPECT_EQ(stdpaths::get_working_dir(), at(""));
  EXPECT_FALSE(stdpaths::set_working_dir(at("missing")));
}

}  // namespace
