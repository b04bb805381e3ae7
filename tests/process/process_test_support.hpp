// What the process tests and their child program share: a callback that collects a
// stream, a pipe of shared handles, starting a child with a vector of arguments, the
// text of an error, and the children of this test process as /proc lists them.
#pragma once

#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include <quillon2/quillon2.hpp>

namespace q2test {

namespace qp = quillon2::process;

struct collector_t : qp::IPipeReaderCallback {
  quillon2::error_code_t onRead(char const* data, unsigned size) override {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_data.append(data, size);
    return quillon2::error_code_t();
  }
  std::string data() {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_data;
  }

 private:
  std::mutex m_mutex;
  std::string m_data;
};

inline quillon2::sptr_t<collector_t> make_collector() {
  return quillon2::sptr_t<collector_t>(new quillon2::ref_counted_t<collector_t>());
}

inline quillon2::error_code_t run(quillon2::sptr_t<qp::IProcess> const& process,
                                  std::wstring const& binary, std::vector<std::wstring> args,
                                  quillon2::sptr_t<qp::IEnvironment> environment = nullptr,
                                  wchar_t const* directory = nullptr, bool inherit = false) {
  return process->run(binary.c_str(),
                      quillon2::iterutil::make_owned_iterator_from<std::wstring>(std::move(args)),
                      environment, directory, false, nullptr, inherit);
}

// Runs a child to its end and gives what it wrote to its standard output.
inline std::string output_of(std::wstring const& binary, std::vector<std::wstring> args,
                             quillon2::sptr_t<qp::IEnvironment> environment = nullptr,
                             wchar_t const* directory = nullptr) {
  auto child = qp::IProcess::create();
  auto out = make_collector();
  child->registerReadingCallback(1, out);
  if (!run(child, binary, std::move(args), environment, directory).is_ok()) return "<no start>";
  child->join();
  return out->data();
}

inline std::string error_text(quillon2::error_code_t const& code) {
  return code.failed() ? code.pass()->text : std::string();
}

#ifdef Q2_PROCESS_CHILD
inline std::wstring child_program() { return kesmet2::utf8_to_utf16(Q2_PROCESS_CHILD); }
#endif

// A pipe whose ends are shared handles.
struct pipe_t {
  pipe_t() {
    int fds[2];
    EXPECT_EQ(::pipe(fds), 0);  // deserialize makes them close-on-exec
    read_end = qp::ISharedFileHandle::deserialize(std::to_wstring(fds[0]));
    write_end = qp::ISharedFileHandle::deserialize(std::to_wstring(fds[1]));
  }
  quillon2::sptr_t<qp::ISharedFileHandle> read_end, write_end;
};

// The pids of this process's children, zombies included.
inline std::vector<int> child_pids() {
  std::vector<int> pids;
  DIR* tasks = opendir("/proc/self/task");
  if (tasks == nullptr) return pids;
  while (dirent* task = readdir(tasks)) {
    if (task->d_name[0] == '.') continue;
    std::ifstream in(std::string("/proc/self/task/") + task->d_name + "/children");
    for (int pid; in >> pid;) pids.push_back(pid);
  }
  closedir(tasks);
  return pids;
}

// Waits (a few seconds at most) until this process has no children left.
inline bool all_children_reaped() {
  auto const deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
  while (!child_pids().empty()) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return true;
}

// Starts `count` children that wait for a lock this process holds and drops them while
// they run; then lets them end. Every one of them must be reaped.
inline void drop_running_children(std::string const& lock_file, std::size_t count) {
  std::ofstream(lock_file).flush();
  int const fd = ::open(lock_file.c_str(), O_RDONLY | O_CLOEXEC);
  ASSERT_EQ(::flock(fd, LOCK_EX), 0);
  for (std::size_t i = 0; i < count; ++i) {
    auto child = qp::IProcess::create();
    child->registerReadingCallback(1, make_collector());
    ASSERT_TRUE(run(child, L"flock", {L"-s", kesmet2::utf8_to_utf16(lock_file), L"true"}).is_ok());
  }
  EXPECT_EQ(child_pids().size(), count);
  ::close(fd);  // the children get their lock and end
  EXPECT_TRUE(all_children_reaped());
}

// Starts `count` children one after another, joining some and dropping the others.
inline void run_sequential_children(int count) {
  for (int i = 0; i < count; ++i) {
    auto child = qp::IProcess::create();
    auto out = make_collector();
    child->registerReadingCallback(1, out);
    ASSERT_TRUE(run(child, L"/bin/sh", {L"-c", L"echo $0", std::to_wstring(i)}).is_ok());
    if (i % 3 != 0) continue;
    ASSERT_TRUE(child->join().is_ok());
    ASSERT_EQ(out->data(), std::to_string(i) + "\n");
  }
  EXPECT_TRUE(all_children_reaped());
}

}  // namespace q2test
