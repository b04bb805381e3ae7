// The process list, the editor query and the file and volume queries, on the real system.
#include <elf.h>
#include <fcntl.h>
#include <pwd.h>
#include <signal.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstring>
#include <string>
#include <future>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include <quillon2/core/file_system/fs_info.hpp>
#include <quillon2/core/file_system/path.hpp>
#include <quillon2/das/das_process.hpp>
#include <quillon2/headers/kesmet.hpp>

#include "support/temp_dir.hpp"

extern char** environ;

namespace {

using quillon2::process_t;
using quillon2::variant_t;

std::wstring wide(std::string const& text) { return kesmet2::utf8_to_utf16(text); }

std::wstring text(variant_t const& value) {
  return value.get_type() == quillon2::vtWString ? std::wstring(value.get<wchar_t const*>()) : L"";
}

std::string head_of(char const* file) {
  std::string head(65536, '\0');
  int const fd = ::open(file, O_RDONLY | O_CLOEXEC);
  ssize_t const n = fd >= 0 ? ::read(fd, head.data(), head.size()) : 0;
  if (fd >= 0) ::close(fd);
  head.resize(n > 0 ? static_cast<std::size_t>(n) : 0);
  return head;
}

std::vector<quillon2::sptr_t<process_t>> snapshot() {
  quillon2::generic_iterator_t<quillon2::sptr_t<process_t>> list;
  EXPECT_TRUE(process_t::get_process_list(list).succeeded());
  std::vector<quillon2::sptr_t<process_t>> processes;
  for (; !list.at_end(); list.next()) processes.push_back(list.current());
  return processes;
}

quillon2::sptr_t<process_t> find(unsigned pid) {
  for (auto const& p : snapshot())
    if (p->get_value(process_t::ppProcessId).get<unsigned>() == pid) return p;
  return {};
}

// Starts `program` with one argument; the child sleeps until killed. posix_spawn returns
// while the child is still inside exec, before the kernel shows its new arguments: the
// child counts as started once its command line can be read.
pid_t start(std::string const& program, char const* argument) {
  pid_t pid = -1;
  char* argv[] = {const_cast<char*>(program.c_str()), const_cast<char*>(argument), nullptr};
  EXPECT_EQ(::posix_spawn(&pid, program.c_str(), nullptr, nullptr, argv, environ), 0);
  std::string const command_line = "/proc/" + std::to_string(pid) + "/cmdline";
  for (int i = 0; i < 5000 && head_of(command_line.c_str()).empty(); ++i) {
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return pid;
}

void stop(pid_t pid) {
  ::kill(pid, SIGKILL);
  int status;
  ::waitpid(pid, &status, 0);
}

TEST(process_list, holds_this_process_with_its_properties) {
  std::promise<void> done;
  std::thread waiter([future = done.get_future()] { future.wait(); });
  auto self = find(static_cast<unsigned>(::getpid()));
  ASSERT_TRUE(self);
  EXPECT_EQ(self->get_value(process_t::ppParentProcessId).get<unsigned>(), static_cast<unsigned>(::getppid()));
  EXPECT_GE(self->get_value(process_t::ppThreadCount).get<unsigned>(), 2u);
  EXPECT_EQ(text(self->get_value(process_t::ppExeName)), L"q2_sysinfo_tests");
  EXPECT_EQ(self->get_value(process_t::ppBasePriority).get_type(), quillon2::vtSInt);
  struct passwd* me = ::getpwuid(::geteuid());
  ASSERT_NE(me, nullptr);
  EXPECT_EQ(text(self->get_value(process_t::ppUser)), wide(me->pw_name));
  std::wstring const command_line = text(self->get_value(process_t::ppCommandLine));
  EXPECT_NE(command_line.find(L"q2_sysinfo_tests"), std::wstring::npos);
  EXPECT_EQ(self->get_value(7).get_type(), quillon2::vtNull);
  EXPECT_EQ(self->get_value(-1).get_type(), quillon2::vtNull);
  done.set_value();
  waiter.join();
}

TEST(process_list, a_child_appears_and_goes_and_odd_names_parse) {
  q2test::temp_dir_t dir;
  // A copy of sleep named with ")" and blanks: the parser reads stat from the last ")".
  std::string const odd = dir.file("a) b (c");
  q2test::write_file(odd, q2test::read_file("/bin/sleep"));
  ASSERT_EQ(::chmod(odd.c_str(), 0755), 0);
  pid_t const child = start(odd, "30");
  ASSERT_GT(child, 0);
  auto found = find(static_cast<unsigned>(child));
  ASSERT_TRUE(found);
  EXPECT_EQ(text(found->get_value(process_t::ppExeName)), L"a) b (c");
  EXPECT_EQ(found->get_value(process_t::ppParentProcessId).get<unsigned>(), static_cast<unsigned>(::getpid()));
  EXPECT_EQ(found->get_value(process_t::ppThreadCount).get<unsigned>(), 1u);
  EXPECT_EQ(text(found->get_value(process_t::ppCommandLine)), wide(odd + " 30"));
  stop(child);
  EXPECT_FALSE(find(static_cast<unsigned>(child)));
  // The record keeps what it read; what it had not read can't be read any more.
  EXPECT_EQ(text(found->get_value(process_t::ppExeName)), L"a) b (c");
  EXPECT_EQ(found->get_value(process_t::ppUser).get_type(), quillon2::vtNull);
}

TEST(process_list, processes_of_other_users_and_kernel_threads_take_their_place) {
  auto const all = snapshot();
  ASSERT_FALSE(all.empty());
  for (auto const& p : all) {
    EXPECT_FALSE(text(p->get_value(process_t::ppExeName)).empty());
    // Either a text or vtNull, never a failure.
    auto const type = p->get_value(process_t::ppCommandLine).get_type();
    EXPECT_TRUE(type == quillon2::vtNull || type == quillon2::vtWString);
  }
}

TEST(system_editors, records_compare_field_by_field_and_the_query_has_no_answer) {
  using quillon2::system_editor_t;
  EXPECT_TRUE(system_editor_t() == system_editor_t());
  EXPECT_FALSE(system_editor_t(L"a", L"b", L"c", L"d") == system_editor_t(L"a", L"b", L"c", L"e"));
  EXPECT_FALSE(system_editor_t(L"a", L"b", L"c", L"d") == system_editor_t(L"A", L"b", L"c", L"d"));
  std::vector<system_editor_t> one{system_editor_t(L"x", L"", L"", L"")};
  auto editors = quillon2::iterutil::make_iterator<system_editor_t>(one.begin(), one.end());
  quillon2::error_code_t const code =
      quillon2::get_system_editors(quillon2::path_t(L"/tmp/a.txt"), editors, quillon2::system_editor_type_t{});
  EXPECT_TRUE(code.failed());
  EXPECT_EQ(code.as_string(), "FailedTo Find Any Editor");
  ASSERT_FALSE(editors.at_end());
  EXPECT_EQ(editors.current().m_name, L"x");
}

class fs_info_test : public q2test::temp_dir_test {
 protected:
  quillon2::exec_file_info_t kind(std::string const& native, quillon2::fs_info_error_t expected = quillon2::FS_INFO_OK) {
    quillon2::exec_file_info_t info = quillon2::EXEC_GUI;
    EXPECT_EQ(quillon2::get_executable_file_info(quillon2::make_path(native), info), expected) << native;
    return info;
  }
  std::string make(std::string const& name, std::string const& content, mode_t mode) {
    q2test::write_file(m_dir.file(name), content);
    ::chmod(m_dir.file(name).c_str(), mode);
    return m_dir.file(name);
  }
};

TEST_F(fs_info_test, executable_kinds_come_from_the_first_bytes) {
  // The headers and program headers lie at the start: the first 64 KiB decide the kind.
  std::string const self = head_of("/proc/self/exe");
  std::string const library = head_of(Q2_TEST_LIBRARY_FILE);
  EXPECT_EQ(kind(make("prog", self, 0755)), 0x212u);  // a position-independent program
  EXPECT_EQ(kind(make("prog_no_x", self, 0644)), 1u);
  EXPECT_EQ(kind(make("lib.so", library, 0755)), 1u);  // no interpreter: a library
  EXPECT_EQ(kind(make("run.sh", "#!/bin/sh\necho\n", 0755)), 0x112u);
  EXPECT_EQ(kind(make("run.cmd", "#!/bin/sh\n", 0644)), 1u);  // no execute permission
  EXPECT_EQ(kind(make("text.txt", "hello", 0755)), 1u);
  EXPECT_EQ(kind(make("truncated", self.substr(0, 20), 0755)), 1u);
  // A program header table that lies beyond the end of the file.
  std::string lying = self.substr(0, 4096);
  Elf64_Ehdr header;
  std::memcpy(&header, lying.data(), sizeof header);
  header.e_phoff = 1u << 30;
  std::memcpy(lying.data(), &header, sizeof header);
  EXPECT_EQ(kind(make("lying", lying, 0755)), 1u);
  // Foreign architecture.
  std::string foreign = self.substr(0, 4096);
  foreign[18] = static_cast<char>(EM_AARCH64);
  foreign[19] = 0;
  EXPECT_EQ(kind(make("foreign", foreign, 0755)), 1u);

  ASSERT_EQ(::mkfifo(m_dir.file("fifo").c_str(), 0755), 0);
  EXPECT_EQ(kind(m_dir.file("fifo")), 1u);  // never waits for a writer
  EXPECT_EQ(kind("/dev/zero"), 1u);
  EXPECT_EQ(kind(m_dir.path()), 1u);
  EXPECT_EQ(kind(m_dir.file("missing"), quillon2::FS_INFO_NOT_FOUND), 0u);
  EXPECT_EQ(kind("relative/x", quillon2::FS_INFO_BAD_PATH), 0u);
  quillon2::exec_file_info_t info;
  EXPECT_EQ(quillon2::get_executable_file_info(quillon2::path_t(), info), quillon2::FS_INFO_BAD_PATH);
  EXPECT_EQ(quillon2::get_executable_file_info(quillon2::path_t(L"C:\\a.exe"), info),
            quillon2::FS_INFO_NOT_FOUND);
}

TEST_F(fs_info_test, volumes) {
  quillon2::fs_info_t info;
  EXPECT_EQ(quillon2::get_filesystem_info(quillon2::make_path(m_dir.path()), info), quillon2::FS_INFO_OK);
  EXPECT_NE(info.file_system, quillon2::FS_TYPE_UNKNOWN);
  EXPECT_EQ(quillon2::get_filesystem_info(quillon2::path_t(L"/proc/self"), info), quillon2::FS_INFO_OK);
  EXPECT_EQ(info.file_system, quillon2::FS_TYPE_OTHER);
  EXPECT_EQ(info.drive_kind, quillon2::DRIVE_KIND_UNKNOWN);
  EXPECT_EQ(quillon2::get_filesystem_info(quillon2::path_t(L"/"), info), quillon2::FS_INFO_OK);
  EXPECT_EQ(quillon2::get_filesystem_info(quillon2::path_t(L"a\\b"), info), quillon2::FS_INFO_BAD_PATH);
  EXPECT_EQ(quillon2::get_filesystem_info(quillon2::make_path(m_dir.file("missing")), info),
            quillon2::FS_INFO_NOT_FOUND);
  EXPECT_EQ(info.file_system, quillon2::FS_TYPE_UNKNOWN);
  EXPECT_EQ(quillon2::get_filesystem_info(quillon2::path_t(L"\\\\srv\\share\\a"), info),
            quillon2::FS_INFO_NOT_FOUND);
}

}  // namespace
