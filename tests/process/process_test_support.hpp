// What the process tests share: a callback that collects a stream, starting a child
// with a vector of arguments, and the children of this test process as /proc lists them.
#pragma once

#include <dirent.h>

#include <chrono>
#include <fstream>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

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

inline std::wstring child_program() { return kesmet2::utf8_to_utf16(Q2_PROCESS_CHILD); }

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

}  // namespace q2test
