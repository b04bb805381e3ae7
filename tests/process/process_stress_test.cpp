// Many children: a thousand started and joined one after another, a hundred dropped while
// they run. Neither may leave a zombie behind.
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <string>

#include <gtest/gtest.h>

#include <quillon2/quillon2.hpp>

#include "process_test_support.hpp"
#include "support/temp_dir.hpp"

namespace {

namespace qp = quillon2::process;

TEST(ProcessStress, ThousandSequentialChildren) {
  for (int i = 0; i < 1000; ++i) {
    auto child = qp::IProcess::create();
    auto out = q2test::make_collector();
    child->registerReadingCallback(1, out);
    ASSERT_TRUE(q2test::run(child, L"/bin/sh", {L"-c", L"echo $0", std::to_wstring(i)}).is_ok());
    ASSERT_TRUE(child->join().is_ok());
    ASSERT_EQ(out->data(), std::to_string(i) + "\n");
  }
  EXPECT_TRUE(q2test::all_children_reaped());
}

TEST(ProcessStress, HundredDroppedRunningChildren) {
  q2test::temp_dir_t dir;
  std::string const lock_file = dir.file("lock");
  q2test::write_file(lock_file, "");
  int const fd = ::open(lock_file.c_str(), O_RDONLY | O_CLOEXEC);
  ASSERT_EQ(::flock(fd, LOCK_EX), 0);
  for (int i = 0; i < 100; ++i) {
    auto child = qp::IProcess::create();
    auto out = q2test::make_collector();
    child->registerReadingCallback(1, out);
    ASSERT_TRUE(
        q2test::run(child, q2test::child_program(), {L"lock", kesmet2::utf8_to_utf16(lock_file)})
            .is_ok());
  }
  EXPECT_EQ(q2test::child_pids().size(), 100u);
  ::close(fd);
  EXPECT_TRUE(q2test::all_children_reaped());
}

}  // namespace
