// The classes behind IProcess and IReaderThread.
//
// ProcessImpl holds the platform-neutral logic: the redirection table, the reader
// threads and their array operations, join. Process (posix/process_posix.cpp) starts,
// waits for and kills the child. The mutex guards m_process and m_threads and is never
// held across a wait or a call into a thread.
#pragma once

#include <atomic>
#include <list>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include <boost/thread/thread.hpp>

#include <quillon2/core/process/process.hpp>

#include "core/process/include/redirection_helper.hpp"

namespace quillon2::process {

// A reader thread on a boost::thread. The thread holds its own references to the handle
// and the callback, so a reader that is dropped while it runs goes on to the end of its
// stream and then ends by itself.
class BoostThread : public IReaderThread {
 public:
  BoostThread(sptr_t<ISharedFileHandle> const& handle, sptr_t<IPipeReaderCallback> const& callback)
      : m_callback(callback), m_handle(handle) {}
  ~BoostThread() override;

  error_code_t stop() override;
  error_code_t start() override;
  error_code_t join() override;
  error_code_t wait(int milliseconds) override;
  error_code_t terminate() override;

 private:
  boost::thread m_thread;
  sptr_t<IPipeReaderCallback> m_callback;
  sptr_t<ISharedFileHandle> m_handle;
};

class ProcessImpl : public IProcess {
 public:
  error_code_t run(wchar_t const* binary, generic_iterator_t<std::wstring> arguments,
                   sptr_t<IEnvironment> environment, wchar_t const* working_directory, bool hidden,
                   wchar_t const* console_title, bool inherit_handles) override;
  error_code_t join() override;
  error_code_t registerReadingCallback(std::wstring& handle_text,
                                       sptr_t<IPipeReaderCallback> callback) override;
  error_code_t registerReadingCallback(unsigned stream,
                                       sptr_t<IPipeReaderCallback> callback) override;
  error_code_t forwardStreamToFile(unsigned stream, std::wstring const& path) override;
  int exitCode() override { return m_exit_code; }
  wchar_t const* errorText() override { return m_error_text.c_str(); }
  error_code_t startReadingThreads() override;

 protected:
  // Waits until the child has ended; by default by polling wait().
  virtual void waitForExit();

  error_code_t startThreads();
  error_code_t joinThreads();
  error_code_t stopThreads();
  error_code_t terminateThreads();
  std::vector<sptr_t<IReaderThread>> copyThreads();

  int m_poll_interval = 20;
  std::mutex m_mutex;
  std::list<sptr_t<IReaderThread>> m_threads;
  std::wstring m_error_text;
  std::atomic<int> m_exit_code{0};
  RedirectionHelper m_redirection;
  sptr_t<IEnvironment> m_environment;
};

namespace internal {
struct child_t;
}

class Process : public ProcessImpl {
 public:
  error_code_t run(wchar_t const* binary, generic_iterator_t<std::wstring> arguments,
                   sptr_t<IEnvironment> environment, wchar_t const* working_directory, bool hidden,
                   wchar_t const* console_title, bool inherit_handles) override;
  error_code_t wait(int milliseconds) override;
  error_code_t join() override;
  error_code_t terminate() override;
  bool isRunning() override;

 protected:
  void waitForExit() override;

 private:
  std::shared_ptr<internal::child_t> m_process;
};

// "binary arg1 arg2", each quoted, for the log.
std::wstring commandLine(std::wstring const& binary, std::vector<std::wstring> const& arguments);

}  // namespace quillon2::process
