// Saves of whole files replace the file or leave it alone, never rewrite it in place;
// reads of things that are no files fail at once.
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <functional>
#include <string>

#include <gtest/gtest.h>

#include <quillon2/core/file_system/file_content.hpp>
#include <quillon2/headers/kesmet.hpp>

#include "support/temp_dir.hpp"

namespace {

using quillon2::path_t;
namespace q2 = quillon2;

// Runs `check` in a child process and gives its exit status (0: passed).
int in_child(std::function<bool()> const& check) {
  pid_t const child = ::fork();
  if (child == 0) ::_exit(check() ? 0 : 1);
  int status = -1;
  if (child < 0 || ::waitpid(child, &status, 0) != child || !WIFEXITED(status)) return -1;
  return WEXITSTATUS(status);
}

class AtomicSave : public q2test::temp_dir_test {
 protected:
  path_t at(std::string const& name) const {
    return path_t(kesmet2::utf8_to_utf16(m_dir.file(name)));
  }
};

}  // namespace

TEST_F(AtomicSave, ADirectoryThatTakesNoNewFileFailsTheSaveAndKeepsTheFile) {
  // Permission bits stop a user without rights to override them: the check runs as one.
  ASSERT_EQ(0, ::chmod(m_dir.path().c_str(), 0755));
  ASSERT_EQ(0, ::mkdir(m_dir.file("ro").c_str(), 0755));
  q2test::write_file(m_dir.file("ro/f"), "old");
  ASSERT_EQ(0, ::chmod(m_dir.file("ro/f").c_str(), 0666));
  path_t const file = at("ro/f");
  EXPECT_EQ(0, in_child([&] {
              if (::getuid() == 0 && (::setgid(65534) != 0 || ::setuid(65534) != 0)) return false;
              return !q2::set_file_content(L"new", q2::CP_UTF8, file);
            }));
  EXPECT_EQ("old", q2test::read_file(m_dir.file("ro/f")));
}

TEST_F(AtomicSave, LinksAreFollowedToTheFileTheyName) {
  // A dangling link makes the file it names; a relative chain is followed to its end.
  ASSERT_EQ(0, ::symlink("target", m_dir.file("dangling").c_str()));
  ASSERT_EQ(0, ::symlink("dangling", m_dir.file("chain").c_str()));
  ASSERT_TRUE(q2::set_file_content(L"one", q2::CP_UTF8, at("chain")));
  EXPECT_EQ("one", q2test::read_file(m_dir.file("target")));
  struct stat st {};
  ASSERT_EQ(0, ::lstat(m_dir.file("chain").c_str(), &st));
  EXPECT_TRUE(S_ISLNK(st.st_mode));
  ASSERT_EQ(0, ::symlink("loop", m_dir.file("loop").c_str()));
  EXPECT_FALSE(q2::set_file_content(L"x", q2::CP_UTF8, at("loop")));
}

TEST_F(AtomicSave, FifosFailAndCharacterDevicesAreWrittenTo) {
  ASSERT_EQ(0, ::mkfifo(m_dir.file("fifo").c_str(), 0644));
  // Nothing writes to the FIFO: a read that waited would never end.
  EXPECT_EQ(q2::CP_UNKNOWN, q2::get_file_cp(at("fifo")));
  EXPECT_EQ(L"", q2::get_file_content(q2::CP_UTF8, at("fifo")));
  EXPECT_EQ("", q2::get_xml_file_content(at("fifo")));
  EXPECT_FALSE(q2::set_file_content(L"x", q2::CP_UTF8, at("fifo")));
  struct stat st {};
  ASSERT_EQ(0, ::lstat(m_dir.file("fifo").c_str(), &st));
  EXPECT_TRUE(S_ISFIFO(st.st_mode));
  EXPECT_TRUE(q2::set_file_content(L"x", q2::CP_UTF8, path_t(L"/dev/null")));
}
