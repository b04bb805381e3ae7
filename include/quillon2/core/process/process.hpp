// Child processes: start one, feed its standard streams from files or into callbacks,
// wait for it, join it or end it.
//
//   auto child = process::IProcess::create();
//   child->registerReadingCallback(1, my_callback);        // stdout, chunk by chunk
//   child->forwardStreamToFile(2, L"/tmp/errors.txt");      // stderr into a file
//   if (child->run(L"ls", args, nullptr, nullptr, false, nullptr, false).is_false())
//     report(child->errorText());
//   child->join();                                          // child gone, streams drained
//   int code = child->exitCode();
//
// Order of calls: create; any number of registerReadingCallback and forwardStreamToFile;
// run; then wait or join, or terminate. Each redirected stream has its own reader
// thread, started by run; callbacks run on it and must guard what they share.
//
// A child gets exactly its three standard streams (a stream that is not redirected is
// this process's own, or /dev/null where that is closed) and, with `inherit_handles`,
// the side channels of registerReadingCallback(handle_text, ...). It starts with an empty
// signal mask and default signal dispositions. A child killed by a signal reports
// 128 + the signal. `hidden` and `console_title` are accepted and ignored on Linux.
//
// Dropping the last reference to a process whose child still runs does not kill it; the
// library reaps it when it ends, so it leaves no zombie. join waits until every reader
// has seen the end of its stream: a grandchild that still holds a pipe delays it until
// it closes the pipe or terminate is called.
#pragma once

#include <string>

#include <quillon2/core/error_code.hpp>
#include <quillon2/core/object_interface.hpp>
#include <quillon2/core/process/environment.hpp>
#include <quillon2/core/process/shared_file_handle.hpp>
#include <quillon2/export.hpp>
#include <quillon2/headers/iterator.hpp>

namespace quillon2::process {

// Receives the bytes of a redirected stream on its reader thread.
class QUILLON2_API IPipeReaderCallback : public object_interface_t {
 public:
  // `data` is a zero-terminated copy of `size` bytes. A real error ends the reading;
  // False does not. An exception ends the reading too (it is logged, not passed on).
  virtual error_code_t onRead(char const* data, unsigned size) = 0;
};

// A thread that reads a handle until its end and hands each chunk to a callback.
class QUILLON2_API IReaderThread : public object_interface_t {
 public:
  // Interrupts the reader and wakes it if it waits for data.
  virtual error_code_t stop() = 0;
  virtual error_code_t start() = 0;
  virtual error_code_t join() = 0;
  // Waits at most `milliseconds` for the thread to end.
  virtual error_code_t wait(int milliseconds) = 0;
  // Ends the reader: it is woken (its descriptor closed) if it has not ended, then joined.
  virtual error_code_t terminate() = 0;

  // A reader of `handle` for `callback`, not started.
  static sptr_t<IReaderThread> create(sptr_t<ISharedFileHandle> const& handle,
                                      sptr_t<IPipeReaderCallback> const& callback);
};

class QUILLON2_API IProcess : public object_interface_t {
 public:
  // Starts `binary` with `arguments` (an argv array: no command line is parsed). A name
  // without "/" is searched in this process's PATH; a relative path is taken from this
  // process's working directory. A null `environment` passes this process's environment.
  // False when the child could not be started: errorText() then says why.
  virtual error_code_t run(wchar_t const* binary, generic_iterator_t<std::wstring> arguments,
                           sptr_t<IEnvironment> environment, wchar_t const* working_directory,
                           bool hidden, wchar_t const* console_title, bool inherit_handles) = 0;
  // Waits at most `milliseconds` (> 0) for the child. Ok when it ended with 0 (or no
  // child was started), False while it still runs (exitCode() 259), the error "Wait
  // operation failed" when it ended otherwise (exitCode() has its code) or could not be
  // waited for (exitCode() -1).
  virtual error_code_t wait(int milliseconds) = 0;
  // Waits for the child to end and for every reader to reach the end of its stream.
  virtual error_code_t join() = 0;
  // A side channel: a pipe whose write end the child inherits (run with
  // `inherit_handles`). `handle_text` receives the text that the child gives to
  // ISharedFileHandle::deserialize.
  virtual error_code_t registerReadingCallback(std::wstring& handle_text,
                                               sptr_t<IPipeReaderCallback> callback) = 0;
  // Stream 1 (output) or 2 (error) into the callback.
  virtual error_code_t registerReadingCallback(unsigned stream,
                                               sptr_t<IPipeReaderCallback> callback) = 0;
  // Stream 0 from the file, or stream 1 or 2 into it (created or truncated). Streams 1
  // and 2 sent to the same file share one file position, as "2>&1" does.
  virtual error_code_t forwardStreamToFile(unsigned stream, std::wstring const& path) = 0;
  virtual int exitCode() = 0;
  virtual wchar_t const* errorText() = 0;
  // Kills the child (SIGKILL) and stops the readers.
  virtual error_code_t terminate() = 0;
  // Whether a started child has not been joined or terminated yet.
  virtual bool isRunning() = 0;
  virtual error_code_t startReadingThreads() = 0;

  static sptr_t<IProcess> create();
};

// One argument quoted for a command line: text without blanks, "<", ">", "|" or double
// quotes stays as it is; other text is put in double quotes, each double quote inside
// escaped by a backslash, and an odd run of backslashes before a double quote or the end
// doubled.
QUILLON2_API std::wstring quote(std::wstring const& text);

}  // namespace quillon2::process
