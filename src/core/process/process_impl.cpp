// The platform-neutral side of a child process: redirections registered before run, the
// reader threads and their array operations, join, and the quoting of arguments.
#include <string>
#include <vector>

#include <quillon2/core/check.hpp>

#include "core/miscellaneous/include/logging.hpp"
#include "core/process/include/process_impl.hpp"

namespace quillon2::process {

namespace {

log4cplus::Logger& logger() { return quillon2::internal::main_logger(); }

}  // namespace

std::wstring quote(std::wstring const& text) {
  if (text.find_first_of(L" <>|\"") == std::wstring::npos) return text;
  std::wstring result(1, L'"');
  std::size_t backslashes = 0;
  for (wchar_t const c : text) {
    if (c == L'\0') break;
    if (c == L'"') {
      if (backslashes % 2 == 1) result.append(backslashes, L'\\');
      result += L'\\';
    }
    result += c;
    backslashes = c == L'\\' ? backslashes + 1 : 0;
  }
  if (backslashes % 2 == 1) result.append(backslashes, L'\\');
  result += L'"';
  return result;
}

std::wstring commandLine(std::wstring const& binary, std::vector<std::wstring> const& arguments) {
  std::wstring line = quote(binary);
  for (std::wstring const& argument : arguments) {
    line += L' ';
    line += quote(argument);
  }
  return line;
}

sptr_t<IProcess> IProcess::create() {
  return sptr_t<IProcess>(new ref_counted_t<Process, mt_ref_count_impl_t>());
}

error_code_t ProcessImpl::run(wchar_t const*, generic_iterator_t<std::wstring>,
                              sptr_t<IEnvironment>, wchar_t const*, bool, wchar_t const*, bool) {
  return error_code_t::False();
}

error_code_t ProcessImpl::startReadingThreads() {
  m_redirection.reset();
  error_code_t const threadsCode = startThreads();
  QUILLON_CHECK(threadsCode.succeeded(), error::FailedTo.Start.Thread.Array);
  return error_code_t();
}

error_code_t ProcessImpl::registerReadingCallback(unsigned stream,
                                                  sptr_t<IPipeReaderCallback> callback) {
  Q2_LOG(logger(), quillon2::internal::log_info, L"Create reading thread");
  // Standard input is written by the child's parent, never read from it.
  if (stream == 0 || stream > 2) {
    return QUILLON_RAISE(error::IsNot.Valid.Identifier("Invalid stream identifier"));
  }
  sptr_t<ISharedFileHandle> read_end;
  error_code_t const err = m_redirection.createRedirection(stream, read_end);
  if (err.failed()) return err;
  sptr_t<IReaderThread> thread = IReaderThread::create(read_end, callback);
  std::lock_guard<std::mutex> lock(m_mutex);
  m_threads.push_back(thread);
  return error_code_t();
}

error_code_t ProcessImpl::registerReadingCallback(std::wstring& handle_text,
                                                  sptr_t<IPipeReaderCallback> callback) {
  Q2_LOG(logger(), quillon2::internal::log_info, L"Create reading thread");
  sptr_t<ISharedFileHandle> write_end, read_end;
  error_code_t const err = m_redirection.createRedirection(write_end, read_end);
  if (err.failed()) return err;
  handle_text = write_end->serialize();
  sptr_t<IReaderThread> thread = IReaderThread::create(read_end, callback);
  std::lock_guard<std::mutex> lock(m_mutex);
  m_threads.push_back(thread);
  return error_code_t();
}

error_code_t ProcessImpl::forwardStreamToFile(unsigned stream, std::wstring const& path) {
  error_code_t const isFileOpened = m_redirection.openFileForRedirection(stream, path);
  // The failure already carries its text ("Failed to open file for ... redirection").
  if (isFileOpened.failed()) return isFileOpened;
  return error_code_t();
}

void ProcessImpl::waitForExit() {
  while (isRunning()) {
    if (!wait(m_poll_interval).is_false()) break;
  }
}

error_code_t ProcessImpl::join() {
  Q2_LOG(logger(), quillon2::internal::log_info, L"Join the process");
  waitForExit();
  error_code_t const threadsCode = joinThreads();
  QUILLON_CHECK(threadsCode.succeeded(), error::FailedTo.Join.Thread.Array);
  return error_code_t();
}

std::vector<sptr_t<IReaderThread>> ProcessImpl::copyThreads() {
  std::lock_guard<std::mutex> lock(m_mutex);
  return std::vector<sptr_t<IReaderThread>>(m_threads.begin(), m_threads.end());
}

// The four array operations: one call on each thread of a copy of the list, stopping at
// the first failure.
#define Q2_THREAD_ARRAY_OPERATION(function, log_text, call, thread_result, array_result, array_error) \
  error_code_t ProcessImpl::function() {                                                       \
    std::vector<sptr_t<IReaderThread>> const threads = copyThreads();                          \
    Q2_LOG(logger(), quillon2::internal::log_info, log_text);                                  \
    bool array_result = true;                                                                  \
    for (sptr_t<IReaderThread> const& thread : threads) {                                      \
      QUILLON_CHECK(thread, error::FailedTo.Check.The.Thread);                                 \
      error_code_t const thread_result = thread->call();                                       \
      QUILLON_CHECK(thread_result.succeeded(), array_error);                                   \
    }                                                                                          \
    QUILLON_CHECK(array_result, array_error);                                                  \
    return error_code_t();                                                                     \
  }

Q2_THREAD_ARRAY_OPERATION(startThreads, L"Start process's threads", start, isThreadStarted,
                          isArrayStarted, error::FailedTo.Start.Thread.Array)
Q2_THREAD_ARRAY_OPERATION(joinThreads, L"Join process's threads", join, isThreadJoined,
                          isArrayJoined, error::FailedTo.Join.Thread.Array)
Q2_THREAD_ARRAY_OPERATION(stopThreads, L"Stop process's threads", stop, isThreadStoped,
                          isArrayStoped, error::FailedTo.Stop.Thread.Array)
Q2_THREAD_ARRAY_OPERATION(terminateThreads, L"Terminate process's threads", terminate,
                          isThreadTerminated, isArrayTerminated,
                          error::FailedTo.Terminate.Thread.Array)

#undef Q2_THREAD_ARRAY_OPERATION

}  // namespace quillon2::process
