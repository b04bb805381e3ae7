// Child processes for real: exit codes and signals, arguments and both streams into
// callbacks, simultaneous large output, terminate, the errors of run, the descriptors a
// child sees while other threads open files and spawn, reaping, and callbacks that fail.
#include <signal.h>
#include <sys/stat.h>

#include <cstdio>
#include <stdexcept>

#include "process_test_support.hpp"
#include "support/temp_dir.hpp"

namespace {

namespace q2 = quillon2;
namespace qp = quillon2::process;
using q2test::error_text;
using q2test::run;

TEST(Quote, ArgumentsForACommandLine) {
  std::pair<wchar_t const*, wchar_t const*> const cases[] = {
      {L"word", L"word"},
      {L"", L""},
      {L"two words", L"\"two words\""},
      {L"say \"hi\"", L"\"say \\\"hi\\\"\""},
      {L"a b\\", L"\"a b\\\\\""},
      {L"a b\\\\", L"\"a b\\\\\""}};
  for (auto const& [in, out] : cases) EXPECT_EQ(qp::quote(in), out) << in;
}

TEST(Process, ExitCodesSignalsArgumentsAndStreams) {
  auto child = qp::IProcess::create();
  EXPECT_TRUE(child->wait(1).is_ok());  // no child yet
  EXPECT_FALSE(child->isRunning());
  auto out = q2test::make_collector(), err = q2test::make_collector();
  ASSERT_TRUE(child->registerReadingCallback(1, out).is_ok());
  ASSERT_TRUE(child->registerReadingCallback(2, err).is_ok());
  ASSERT_TRUE(run(child, L"/bin/sh", {L"-c", L"printf '%s\\n' \"$@\"; echo e >&2; exit 3", L"sh",
                                      L"a b", L"\"c\""})
                  .is_ok());
  EXPECT_TRUE(child->isRunning());
  q2::error_code_t code;
  while ((code = child->wait(1000)).is_false()) {
  }
  EXPECT_EQ(error_text(code), "Wait operation failed");
  EXPECT_EQ(child->exitCode(), 3);
  EXPECT_TRUE(child->join().is_ok());
  EXPECT_FALSE(child->isRunning());
  EXPECT_EQ(child->exitCode(), 3);
  EXPECT_EQ(out->data(), "a b\n\"c\"\n");
  EXPECT_EQ(err->data(), "e\n");

  child = qp::IProcess::create();
  ASSERT_TRUE(run(child, L"/bin/sh", {L"-c", L"kill -TERM $$"}).is_ok());
  child->join();
  EXPECT_EQ(child->exitCode(), 128 + SIGTERM);
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
  child->registerReadingCallback(1, q2test::make_collector());
  ASSERT_TRUE(run(child, L"/bin/sleep", {L"1000"}).is_ok());
  EXPECT_TRUE(child->wait(1).is_false());
  EXPECT_EQ(child->exitCode(), 259);
  EXPECT_TRUE(child->terminate().is_ok());
  EXPECT_FALSE(child->isRunning());
  EXPECT_TRUE(child->terminate().is_ok());
  EXPECT_TRUE(q2test::all_children_reaped());
}

class ProcessFiles : public q2test::temp_dir_test {};

TEST_F(ProcessFiles, RunReportsWhatCannotStart) {
  auto child = qp::IProcess::create();
  EXPECT_TRUE(run(child, L"q2-no-such-binary", {}).is_false());
  EXPECT_EQ(std::wstring(child->errorText()), L"failed to find binaryq2-no-such-binary in ");
  EXPECT_FALSE(child->isRunning());

  q2test::write_file(m_dir.file("script"), "#!/bin/sh\n");
  ::chmod(m_dir.file("script").c_str(), 0644);
  EXPECT_TRUE(run(child, kesmet2::utf8_to_utf16(m_dir.file("script")), {}).is_false());
  EXPECT_EQ(std::wstring(child->errorText()).rfind(L"failed to create process", 0), 0u);

  std::wstring const missing = kesmet2::utf8_to_utf16(m_dir.file("missing"));
  EXPECT_TRUE(run(child, L"/bin/true", {}, nullptr, missing.c_str()).is_false());
  EXPECT_EQ(std::wstring(child->errorText()), L"failed to find binary/bin/true in " + missing);
}

TEST_F(ProcessFiles, WorkingDirectoryAndRelativeBinary) {
  ::symlink("/bin/pwd", m_dir.file("mypwd").c_str());
  ASSERT_EQ(::chdir("/"), 0);
  std::wstring const relative = kesmet2::utf8_to_utf16(m_dir.file("mypwd").substr(1));
  EXPECT_EQ(q2test::output_of(relative, {}, nullptr, L"/tmp"), "/tmp\n");
}

// Children see exactly 0, 1 and 2 while other threads open descriptors without
// close-on-exec and start children of their own.
TEST(Process, ChildSeesOnlyItsOwnDescriptors) {
  std::vector<std::thread> threads;
  std::vector<std::string> seen(8);
  for (int t = 0; t < 8; ++t) {
    threads.emplace_back([t, &seen] {
      for (int i = 0; i < 5; ++i) {
        int const leaked = ::open("/dev/null", O_RDONLY);  // no O_CLOEXEC on purpose
        std::string const fds = q2test::output_of(q2test::child_program(), {L"fds"});
        ::close(leaked);
        if (fds != "0 1 2") seen[t] = fds;
      }
    });
  }
  for (auto& thread : threads) thread.join();
  for (std::string const& bad : seen) EXPECT_EQ(bad, "");
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
  std::string const status =
      q2test::output_of(L"grep", {L"-E", L"^Sig(Blk|Ign)", L"/proc/self/status"});
  sigaction(SIGUSR1, &previous, nullptr);
  pthread_sigmask(SIG_SETMASK, &old, nullptr);
  unsigned long long blocked = ~0ull, ignored = ~0ull;
  ASSERT_EQ(std::sscanf(status.c_str(), "SigBlk: %llx SigIgn: %llx", &blocked, &ignored), 2);
  EXPECT_EQ(blocked & 0x7fffffffull, 0u);
  EXPECT_EQ(ignored & 0x7fffffffull, 0u);
}

TEST_F(ProcessFiles, DroppedAndSequentialChildrenAreReaped) {
  q2test::drop_running_children(m_dir.file("lock"), 10);
  q2test::run_sequential_children(20);
}

TEST(Process, ChildrenReapedByTheHostGiveMinusOne) {
  struct sigaction ignore {}, previous;
  ignore.sa_handler = SIG_IGN;
  sigaction(SIGCHLD, &ignore, &previous);
  for (bool joined : {true, false}) {
    auto child = qp::IProcess::create();
    ASSERT_TRUE(run(child, L"true", {}).is_ok());
    q2::error_code_t code = joined ? child->join() : child->wait(1000);
    while (code.is_false()) code = child->wait(1000);
    if (!joined) {
      EXPECT_EQ(error_text(code), "Wait operation failed");
    }
    EXPECT_EQ(child->exitCode(), -1);
  }
  sigaction(SIGCHLD, &previous, nullptr);
}

TEST(ReaderThread, TerminateWakesAWaitingReader) {
  q2test::pipe_t pipe;
  auto reader = qp::IReaderThread::create(pipe.read_end, q2test::make_collector());
  ASSERT_TRUE(reader->start().is_ok());
  EXPECT_TRUE(reader->terminate().is_ok());
  EXPECT_FALSE(pipe.read_end->isValid());
  EXPECT_EQ(error_text(reader->wait(1)), "Thread cannot be joined");
  EXPECT_EQ(error_text(reader->join()), "Thread cannot be joined");
  EXPECT_EQ(pipe.write_end->write("x", 1), -1);  // the reader closed its end
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
