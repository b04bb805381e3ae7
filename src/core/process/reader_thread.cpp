// The reader thread of a redirected stream: reads its handle in chunks of up to 64 KiB
// and hands each to the callback, until the end of the stream, a failed callback, or a
// stop. Waking a reader that waits for data goes through the handle (setHandle(0)): a
// thread is never killed.
#include <exception>
#include <memory>
#include <string>
#include <utility>

#include <boost/chrono.hpp>
#include <boost/thread/thread.hpp>

#include <quillon2/core/check.hpp>
#include <quillon2/headers/kesmet.hpp>

#include "core/miscellaneous/include/logging.hpp"
#include "core/process/include/process_impl.hpp"

namespace quillon2::process {

namespace {

constexpr unsigned read_chunk = 64 * 1024;

log4cplus::Logger& logger() { return quillon2::internal::main_logger(); }

// Takes the thread's own counts of the handle and the callback and drops them as it ends,
// through their own atomic counts. Kept in the thread's function object, they would go
// with boost's thread data, whichever thread frees that, and the end of their last use
// would be ordered only by boost's count.
void read_until_end(sptr_t<ISharedFileHandle> handle, sptr_t<IPipeReaderCallback> callback) {
  boost::thread::id const id = boost::this_thread::get_id();
  try {
    Q2_LOG(logger(), quillon2::internal::log_info,
           L"Enter reading thread " << id << L" starter");
    std::unique_ptr<char[]> const buffer(new char[read_chunk + 1]);
    for (;;) {
      boost::this_thread::interruption_point();
      int const result = handle->read(buffer.get(), read_chunk + 1);
      if (result < 1) break;
      Q2_LOG(logger(), quillon2::internal::log_trace,
             L"Readed data from thread " << id << L": "
                                         << kesmet2::utf8_to_utf16(std::string(buffer.get())));
      error_code_t const code = callback->onRead(buffer.get(), static_cast<unsigned>(result));
      if (code.failed()) break;
    }
    Q2_LOG(logger(), quillon2::internal::log_info, L"Exit from reading thread " << id);
  } catch (boost::thread_interrupted const&) {
    Q2_LOG(logger(), quillon2::internal::log_info, L"Thread " << id << L" interrupted");
  } catch (std::exception const& e) {
    Q2_LOG(logger(), quillon2::internal::log_error,
           L"Reading thread " << id << L" ends on an exception of its callback: "
                              << kesmet2::utf8_to_utf16(e.what()));
  } catch (...) {
    Q2_LOG(logger(), quillon2::internal::log_error,
           L"Reading thread " << id << L" ends on an exception of its callback");
  }
  // The reader closes its own end: a child that still writes gets a broken pipe instead
  // of blocking on a pipe that nobody empties.
  handle->setHandle(0);
}

}  // namespace

sptr_t<IReaderThread> IReaderThread::create(sptr_t<ISharedFileHandle> const& handle,
                                            sptr_t<IPipeReaderCallback> const& callback) {
  return sptr_t<IReaderThread>(new ref_counted_t<BoostThread, mt_ref_count_impl_t>(handle, callback));
}

BoostThread::~BoostThread() {
  // A reader that has ended is joined, so that its end is seen to come before this; one
  // still running keeps its handle and callback and ends with its stream.
  if (!m_thread.joinable()) return;
  boost::this_thread::disable_interruption const no_interruption;
  if (!m_thread.try_join_for(boost::chrono::milliseconds(0))) m_thread.detach();
}

error_code_t BoostThread::start() {
  Q2_LOG(logger(), quillon2::internal::log_info, L"Start thread");
  if (m_handle && m_callback) {
    m_thread = boost::thread([handle = m_handle, callback = m_callback]() mutable {
      read_until_end(std::move(handle), std::move(callback));
    });
  }
  bool const isJoinable = m_thread.joinable();
  QUILLON_CHECK(isJoinable, error::FailedTo.Check.The.Thread("Thread not started"));
  return error_code_t();
}

error_code_t BoostThread::join() {
  Q2_LOG(logger(), quillon2::internal::log_info, L"Join thread");
  bool const isJoinable = m_thread.joinable();
  if (isJoinable) {
    m_thread.join();
    return error_code_t();
  }
  QUILLON_CHECK(isJoinable, error::FailedTo.Check.The.Thread("Thread cannot be joined"));
  return error_code_t();
}

error_code_t BoostThread::stop() {
  Q2_LOG(logger(), quillon2::internal::log_info, L"Interrupt thread");
  m_thread.interrupt();
  if (m_handle) m_handle->setHandle(0);
  return error_code_t();
}

error_code_t BoostThread::wait(int milliseconds) {
  Q2_LOG(logger(), quillon2::internal::log_info, L"Wait for thread to be killed");
  bool const isJoinable = m_thread.joinable();
  if (isJoinable) {
    bool const isJoined = m_thread.try_join_for(boost::chrono::milliseconds(milliseconds));
    QUILLON_CHECK(isJoined, error::FailedTo.Join.The.Thread);
    return error_code_t();
  }
  QUILLON_CHECK(isJoinable, error::FailedTo.Check.The.Thread("Thread cannot be joined"));
  return error_code_t();
}

error_code_t BoostThread::terminate() {
  Q2_LOG(logger(), quillon2::internal::log_info, L"Terminate thread");
  if (!m_thread.joinable()) return error_code_t();
  if (m_thread.try_join_for(boost::chrono::milliseconds(0))) return error_code_t();
  // No thread is killed: closing its descriptor wakes the reader, which then ends.
  m_thread.interrupt();
  if (m_handle) m_handle->setHandle(0);
  m_thread.join();
  return error_code_t();
}

}  // namespace quillon2::process
