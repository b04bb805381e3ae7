// Shared handles and redirections: the text form in a real child, reads and writes on
// pipes (a reader that went away, interrupted calls, a wake during a read), the file
// redirections and their errors, and a parent that runs with its standard streams closed.
#include <pthread.h>
#include <signal.h>
#include <sys/stat.h>

#include <atomic>
#include <cstring>

#include "process_test_support.hpp"
#include "support/temp_dir.hpp"

namespace {

namespace q2 = quillon2;
namespace qp = quillon2::process;

using q2test::error_text;
using q2test::pipe_t;

TEST(SharedFileHandle, TextFormAndAWriteToAGoneReader) {
  pipe_t pipe;
  int const fd = pipe.read_end->getHandle();
  EXPECT_EQ(pipe.read_end->serialize(), std::to_wstring(fd));
  EXPECT_NE(::fcntl(fd, F_GETFD) & FD_CLOEXEC, 0);
  EXPECT_FALSE(qp::ISharedFileHandle::deserialize(L"999999"));
  EXPECT_FALSE(qp::ISharedFileHandle::deserialize(L"x"));
  pipe.read_end->setHandle(0);
  EXPECT_EQ(pipe.write_end->write("abc", 3), -1);  // and no SIGPIPE
  sigset_t pending;
  sigpending(&pending);
  EXPECT_EQ(sigismember(&pending, SIGPIPE), 0);
}

TEST(SharedFileHandle, ReadLeavesRoomForTheZero) {
  pipe_t pipe;
  std::string const data(200, 'a');
  EXPECT_EQ(pipe.write_end->write(data.data(), 200), 200);
  char buffer[129];
  std::memset(buffer, 'x', sizeof buffer);
  EXPECT_EQ(pipe.read_end->read(buffer, 129), 128);
  EXPECT_EQ(buffer[128], '\0');
  EXPECT_EQ(pipe.write_end->write(L"\u00e9"), 2);
  pipe.write_end->setHandle(0);
  EXPECT_FALSE(pipe.write_end->isValid());
  EXPECT_EQ(pipe.read_end->read(buffer, 129), 74);
  EXPECT_EQ(std::string(buffer + 72), "\xc3\xa9");
  EXPECT_EQ(pipe.read_end->read(buffer, 129), 0);
}

TEST(SharedFileHandle, SetHandleWakesABlockedRead) {
  pipe_t pipe;
  std::atomic<int> result{1};
  std::thread reader([&] {
    char buffer[16];
    result = pipe.read_end->read(buffer, sizeof buffer);
  });
  pipe.read_end->setHandle(0);
  reader.join();
  EXPECT_LT(result, 1);
}

extern "C" void on_signal(int) {}

TEST(SharedFileHandle, InterruptedCallsGoOn) {
  struct sigaction action {};
  action.sa_handler = on_signal;  // no SA_RESTART: every blocked call sees EINTR
  struct sigaction old;
  ASSERT_EQ(sigaction(SIGUSR1, &action, &old), 0);
  pipe_t pipe;
  std::size_t const total = 10u << 20;
  std::atomic<bool> done{false};
  std::thread writer([&] {
    std::vector<char> chunk(1 << 20);
    for (std::size_t i = 0; i < chunk.size(); ++i) chunk[i] = static_cast<char>(i % 251);
    for (std::size_t sent = 0; sent < total; sent += chunk.size()) {
      EXPECT_EQ(pipe.write_end->write(chunk.data(), static_cast<unsigned>(chunk.size())),
                static_cast<int>(chunk.size()));
    }
    pipe.write_end->setHandle(0);
  });
  pthread_t const reader = pthread_self();
  pthread_t const writer_thread = writer.native_handle();
  std::thread signaller([&] {
    while (!done) {
      pthread_kill(reader, SIGUSR1);
      pthread_kill(writer_thread, SIGUSR1);
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
  });
  std::size_t received = 0;
  bool in_order = true;
  std::vector<char> buffer(65537);
  for (int n; (n = pipe.read_end->read(buffer.data(), 65537)) > 0; received += n) {
    for (int i = 0; i < n; ++i) in_order &= buffer[i] == static_cast<char>(((received + i) % (1 << 20)) % 251);
  }
  done = true;
  signaller.join();
  writer.join();
  sigaction(SIGUSR1, &old, nullptr);
  EXPECT_EQ(received, total);
  EXPECT_TRUE(in_order);
}

// The child sees exactly 0, 1, 2 and the handle passed to it, writes to it and finds it
// close-on-exec.
TEST(SharedFileHandle, HandleTravelsToAChild) {
  auto child = qp::IProcess::create();
  auto out = q2test::make_collector(), channel = q2test::make_collector();
  std::wstring text;
  ASSERT_TRUE(child->registerReadingCallback(text, channel).is_ok());
  child->registerReadingCallback(1, out);
  ASSERT_TRUE(q2test::run(child, q2test::child_program(), {L"handle", text, L"hello"}, nullptr,
                          nullptr, true)
                  .is_ok());
  EXPECT_TRUE(child->join().is_ok());
  EXPECT_EQ(child->exitCode(), 0);
  EXPECT_EQ(out->data(), "0 1 2 " + kesmet2::utf16_to_utf8(text));
  EXPECT_EQ(channel->data(), "hello cloexec");
}

class Redirection : public q2test::temp_dir_test {};

TEST_F(Redirection, StreamNumbersAndFilesAreCheckedAndAFifoDoesNotHang) {
  auto child = qp::IProcess::create();
  EXPECT_EQ(error_text(child->forwardStreamToFile(3, q2test::child_program())),
            "Invalid stream identifier");
  EXPECT_EQ(error_text(child->registerReadingCallback(0, q2test::make_collector())),
            "Invalid stream identifier");
  EXPECT_EQ(error_text(child->forwardStreamToFile(0, kesmet2::utf8_to_utf16(m_dir.file("none")))),
            "Failed to open file for input redirection");
  EXPECT_EQ(error_text(child->forwardStreamToFile(1, kesmet2::utf8_to_utf16(m_dir.file("no/x")))),
            "Failed to open file for output redirection");
  ASSERT_EQ(::mkfifo(m_dir.file("fifo").c_str(), 0600), 0);  // opening it must not hang
  EXPECT_TRUE(child->forwardStreamToFile(0, kesmet2::utf8_to_utf16(m_dir.file("fifo"))).is_ok());
}

TEST_F(Redirection, FilesInAndOut) {
  q2test::write_file(m_dir.file("in"), "hello\n");
  q2test::write_file(m_dir.file("out"), "old content that is longer\n");
  auto child = qp::IProcess::create();
  ASSERT_TRUE(child->forwardStreamToFile(0, kesmet2::utf8_to_utf16(m_dir.file("in"))).is_ok());
  ASSERT_TRUE(child->forwardStreamToFile(1, kesmet2::utf8_to_utf16(m_dir.file("out"))).is_ok());
  ASSERT_TRUE(child->forwardStreamToFile(2, kesmet2::utf8_to_utf16(m_dir.file("out"))).is_ok());
  ASSERT_TRUE(q2test::run(child, L"/bin/sh", {L"-c", L"cat; echo two >&2; echo three"}).is_ok());
  EXPECT_TRUE(child->join().is_ok());
  EXPECT_EQ(q2test::read_file(m_dir.file("out")), "hello\ntwo\nthree\n");
}

TEST(ClosedStandardStreams, ChildGetsNullInputAndTwoPipes) {
  auto child = qp::IProcess::create();
  ASSERT_TRUE(q2test::run(child, q2test::child_program(), {L"closed-std"}).is_ok());
  EXPECT_TRUE(child->join().is_ok());
  EXPECT_EQ(child->exitCode(), 0);
}

}  // namespace
