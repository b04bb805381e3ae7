// Child processes for real: exit codes and signals, both streams into callbacks,
// simultaneous large output, terminate, the errors of run, the descriptors a child sees
// while other threads open files and spawn, reaping, and callbacks that fail or throw.
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include <quillon2/quillon2.hpp>

#include "process_test_support.hpp"
#include "support/temp_dir.hpp"

namespace {

namespace q2 = quillon2;
namespace qp = quillon2::process;
using q2test::run;

std::string error_text(q2::error_code_t const& code) {
  return code.failed() ? code.pass()->text : std::string();
}

TEST(Quote, ArgumentsForACommandLine) {
  EXPECT_EQ(qp::quote(L"word"), L"word");
  EXPECT_EQ(qp::quote(L""), L"");
  EXPECT_EQ(qp::quote(L"two words"), L"\"two words\"");
  EXPECT_EQ(qp::quote(L"say \"hi\""), L"\"say \\\"hi\\\"\"");
  EXPECT_EQ(qp::quote(L"a b\\"), L"\"a b\\\\\"");
  EXPECT_EQ(qp::quote(L"a b\\\\"), L"\"a b\\\\\"");
}

TEST(Process, WaitWithoutChildIsOk) {
  auto child = qp::IProcess::create();
  EXPECT_TRUE(child->wait(1).is_ok());
  EXPECT_FALSE(child->isRunning());
}

TEST(Process, ExitCodesAndSignals) {
  auto child = qp::IProcess::create();
  ASSERT_TRUE(run(child, L"true", {}).is_ok());
  EXPECT_TRUE(child->isRunning());
  EXPECT_TRUE(child->join().is_ok());
  EXPECT_FALSE(child->isRunning());
  EXPECT_EQ(child->exitCode(), 0);

  child = qp::IProcess::create();
  ASSERT_TRUE(run(child, L"/bin/sh", {L"-c", L"exit 3"}).is_ok());
  q2::error_code_t code;
  while ((code = child->wait(1000)).is_false()) {
  }
  EXPECT_EQ(error_text(code), "Wait operation failed");
  EXPECT_EQ(child->exitCode(), 3);
  child->join();
  EXPECT_EQ(child->exitCode(), 3);

  child = qp::IProcess::create();
  ASSERT_TRUE(run(child, L"/bin/sh", {L"-c", L"kill -TERM $$"}).is_ok());
  child->join();
  EXPECT_EQ(child->exitCode(), 128 + SIGTERM);
}

TEST(Process, BothStreamsIntoCallbacks) {
  auto child = qp::IProcess::create();
  auto out = q2test::make_collector(), err = q2test::make_collector();
  ASSERT_TRUE(child->registerReadingCallback(1, out).is_ok());
  ASSERT_TRUE(child->registerReadingCallback(2, err).is_ok());
  ASSERT_TRUE(run(child, q2test::child_program(), {L"echo", L"a b", L"\"c\""}).is_ok());
  EXPECT_TRUE(child->join().is_ok());
  EXPECT_EQ(out->data(), "a b\n\"c\"\n");
  EXPECT_EQ(err->data(), "");
}

TEST(Process, LargeOutputOnBothStreamsAtOnce) {
  auto child = qp::IProcess::create();
  auto out = q2test::make_collector(), err = q2test::make_collector();
  child->registerReadingCallback(1, out);
  child->registerReadingCallback(2, err);
  ASSERT_TRUE(run(child, q2test::child_program(), {L"write", L"10485760", L"10485760"}).is_ok());
  EXPECT_TRUE(child->join().is_ok());
  EXPECT_EQ(child->exitCode(), 0);
  for (std::string const& data : {out->data(), err->data()}) {
    ASSERT_EQ(data.size(), 10485760u);
    bool in_order = true;
    for (std::size_t i = 0; i < data.size(); ++i) in_order &= data[i] == static_cast<char>(i % 251);
    EXPECT_TRUE(in_order);
  }
}

TEST(Process, RunningChildIsTerminated) {
  auto child = qp::IProcess::create();
  auto out = q2test::make_collector();
  child->registerReadingCallback(1, out);
  ASSERT_TRUE(run(child, L"/bin/sleep", {L"1000"}).is_ok());
  EXPECT_TRUE(child->wait(1).is_false());
  EXPECT_EQ(child->exitCode(), 259);
  EXPECT_TRUE(child->terminate().is_ok());
  EXPECT_FALSE(child->isRunning());
  EXPECT_TRUE(child->terminate().is_ok());
  EXPECT_TRUE(q2test::all_children_reaped());
}

class ProcessErrors : public q2test::temp_dir_test {};

TEST_F(ProcessErrors, RunReportsWhatCannotStart) {
  auto child = qp::IProcess::create();
  EXPECT_TRUE(run(child, L"q2-no-such-binary", {}).is_false());
  EXPECT_EQ(std::wstring(child->errorText()), L"failed to find binaryq2-no-such-binary in ");
  EXPECT_FALSE(child->isRunning());

  EXPECT_TRUE(run(child, kesmet2::utf8_to_utf16(m_dir.path()), {}).is_false());
  EXPECT_EQ(std::wstring(child->errorText()).rfind(L"failed to create process", 0), 0u);

  q2test::write_file(m_dir.file("script"), "#!/bin/sh\n");
  ::chmod(m_dir.file("script").c_str(), 0644);
  EXPECT_TRUE(run(child, kesmet2::utf8_to_utf16(m_dir.file("script")), {}).is_false());
  EXPECT_EQ(std::wstring(child->errorText()).rfind(L"failed to create process", 0), 0u);

  std::wstring const missing = kesmet2::utf8_to_utf16(m_dir.file("missing"));
  EXPECT_TRUE(run(child, L"/bin/true", {}, nullptr, missing.c_str()).is_false());
  EXPECT_EQ(std::wstring(child->errorText()), L"failed to find binary/bin/true in " + missing);
}

TEST_F(ProcessErrors, WorkingDirectoryAndRelativeBinary) {
  ::symlink("/bin/pwd", m_dir.file("mypwd").c_str());
  auto child = qp::IProcess::create();
  auto out = q2test::make_collector();
  child->registerReadingCallback(1, out);
  std::string const cwd = m_dir.path();
  ASSERT_EQ(::chdir("/"), 0);
  std::wstring const relative = kesmet2::utf8_to_utf16(m_dir.file("mypwd").substr(1));
  ASSERT_TRUE(run(child, relative, {}, nullptr, L"/tmp").is_ok());
  child->join();
  EXPECT_EQ(out->data(), "/tmp\n");
}

// Children see exactly 0, 1, 2 and the handles passed to them, while other threads open
// descriptors without close-on-exec and start children of their own.
TEST(Process, ChildSeesOnlyItsOwnDescriptors) {
  std::vector<std::thread> threads;
  std::vector<std::string> seen(8);
  for (int t = 0; t < 8; ++t) {
    threads.emplace_back([t, &seen] {
      for (int i = 0; i < 5; ++i) {
        int const leaked = ::open("/dev/null", O_RDONLY);  // no O_CLOEXEC on purpose
        auto child = qp::IProcess::create();
        auto out = q2test::make_collector();
        child->registerReadingCallback(1, out);
        child->registerReadingCallback(2, q2test::make_collector());
        run(child, q2test::child_program(), {L"fds"});
        child->join();
        ::close(leaked);
        if (out->data() != "0 1 2") seen[t] = out->data();
      }
    });
  }
  for (auto& thread : threads) thread.join();
  for (std::string const& bad : seen) EXPECT_EQ(bad, "");

  auto child = qp::IProcess::create();
  auto out = q2test::make_collector();
  std::wstring text;
  child->registerReadingCallback(text, q2test::make_collector());
  child->registerReadingCallback(1, out);
  ASSERT_TRUE(run(child, q2test::child_program(), {L"fds"}, nullptr, nullptr, true).is_ok());
  child->join();
  EXPECT_EQ(out->data(), "0 1 2 " + kesmet2::utf16_to_utf8(text));
}

// The signals of the C library's own threads (32 and 33) are left out: no process can
// set them.
TEST(Process, ChildStartsWithEmptyMaskAndDefaultDispositions) {
  sigset_t block, old;
  sigemptyset(&block);
  sigaddset(&block, SIGUSR2);
  pthread_sigmask(SIG_BLOCK, &block, &old);
  struct sigaction ignore {}, previous;
  ignore.sa_handler = SIG_IGN;
  sigaction(SIGUSR1, &ignore, &previous);
  auto child = qp::IProcess::create();
  auto out = q2test::make_collector();
  child->registerReadingCallback(1, out);
  run(child, L"grep", {L"-E", L"^Sig(Blk|Ign)", L"/proc/self/status"});
  child->join();
  sigaction(SIGUSR1, &previous, nullptr);
  pthread_sigmask(SIG_SETMASK, &old, nullptr);
  unsigned long long blocked = ~0ull, ignored = ~0ull;
  ASSERT_EQ(std::sscanf(out->data().c_str(), "SigBlk: %llx SigIgn: %llx", &blocked, &ignored), 2);
  EXPECT_EQ(blocked & 0x7fffffffull, 0u);
  EXPECT_EQ(ignored & 0x7fffffffull, 0u);
}

TEST(Process, DroppedRunningChildrenAreReaped) {
  q2test::temp_dir_t dir;
  std::string const lock_file = dir.file("lock");
  q2test::write_file(lock_file, "");
  int const fd = ::open(lock_file.c_str(), O_RDONLY | O_CLOEXEC);
  ASSERT_EQ(::flock(fd, LOCK_EX), 0);
  for (int i = 0; i < 10; ++i) {
    auto child = qp::IProcess::create();
    ASSERT_TRUE(run(child, q2test::child_program(), {L"lock", kesmet2::utf8_to_utf16(lock_file)}).is_ok());
  }
  EXPECT_EQ(q2test::child_pids().size(), 10u);
  ::close(fd);  // the children get their lock and end
  EXPECT_TRUE(q2test::all_children_reaped());
}

TEST(Process, SequentialChildrenLeaveNoZombies) {
  for (int i = 0; i < 20; ++i) {
    auto child = qp::IProcess::create();
    ASSERT_TRUE(run(child, i % 2 ? L"true" : L"false", {}).is_ok());
    if (i % 3 == 0) child->join();
  }
  EXPECT_TRUE(q2test::all_children_reaped());
}

TEST(Process, ChildrenReapedByTheHostGiveMinusOne) {
  struct sigaction ignore {}, previous;
  ignore.sa_handler = SIG_IGN;
  sigaction(SIGCHLD, &ignore, &previous);
  auto child = qp::IProcess::create();
  ASSERT_TRUE(run(child, L"true", {}).is_ok());
  child->join();
  EXPECT_EQ(child->exitCode(), -1);
  child = qp::IProcess::create();
  ASSERT_TRUE(run(child, L"true", {}).is_ok());
  q2::error_code_t code;
  while ((code = child->wait(1000)).is_false()) {
  }
  EXPECT_EQ(error_text(code), "Wait operation failed");
  EXPECT_EQ(child->exitCode(), -1);
  sigaction(SIGCHLD, &previous, nullptr);
}

TEST(ReaderThread, TerminateWakesAWaitingReader) {
  int fds[2];
  ASSERT_EQ(::pipe2(fds, O_CLOEXEC), 0);
  auto read_end = qp::ISharedFileHandle::deserialize(std::to_wstring(fds[0]));
  auto write_end = qp::ISharedFileHandle::deserialize(std::to_wstring(fds[1]));
  auto reader = qp::IReaderThread::create(read_end, q2test::make_collector());
  ASSERT_TRUE(reader->start().is_ok());
  EXPECT_TRUE(reader->terminate().is_ok());
  EXPECT_FALSE(read_end->isValid());
  EXPECT_EQ(error_text(reader->wait(1)), "Thread cannot be joined");
  EXPECT_EQ(error_text(reader->join()), "Thread cannot be joined");
  EXPECT_EQ(write_end->write("x", 1), -1);  // the reader closed its end
}

struct throwing_t : qp::IPipeReaderCallback {
  q2::error_code_t onRead(char const*, unsigned) override { throw std::runtime_error("no"); }
};

struct refusing_t : qp::IPipeReaderCallback {
  q2::error_code_t onRead(char const*, unsigned) override {
    return QUILLON_RAISE(q2::error::FailedTo.Read.The.Data);
  }
};

TEST(Process, FailingCallbacksEndOnlyTheirReader) {
  auto child = qp::IProcess::create();
  auto err = q2test::make_collector();
  child->registerReadingCallback(1, q2::sptr_t<qp::IPipeReaderCallback>(new q2::ref_counted_t<throwing_t>()));
  child->registerReadingCallback(2, err);
  ASSERT_TRUE(run(child, q2test::child_program(), {L"write", L"8000000", L"1000"}).is_ok());
  EXPECT_TRUE(child->join().is_ok());
  EXPECT_NE(child->exitCode(), 0);  // its output pipe (1 MiB) was closed under it
  EXPECT_EQ(err->data().size(), 1000u);

  child = qp::IProcess::create();
  child->registerReadingCallback(1, q2::sptr_t<qp::IPipeReaderCallback>(new q2::ref_counted_t<refusing_t>()));
  ASSERT_TRUE(run(child, L"/bin/sh", {L"-c", L"echo x"}).is_ok());
  EXPECT_TRUE(child->join().is_ok());
}

}  // namespace
