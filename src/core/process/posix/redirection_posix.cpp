// The pipes and files of a child's streams: pipe2 with close-on-exec ends moved above the
// standard descriptors, output files created or truncated, input files opened without
// waiting for a writer (a FIFO would block the open) and then made blocking.
#include <errno.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>

#include <quillon2/core/check.hpp>
#include <quillon2/headers/kesmet.hpp>

#include "core/das/include/xml_file_io.hpp"
#include "core/miscellaneous/include/logging.hpp"
#include "core/miscellaneous/include/posix_io.hpp"
#include "core/process/include/redirection_helper.hpp"
#include "core/process/posix/include/process_posix.hpp"

namespace quillon2::process {

namespace {

void log_open_error(char const* what, int error, char const* file, int line) {
  Q2_LOG(quillon2::internal::main_logger(), quillon2::internal::log_error,
         what << kesmet2::utf8_to_utf16(quillon2::internal::posix::errno_text(error))
              << L", at file: " << file << L":" << line);
}

// The open descriptor of the regular file `native_name`, if `fd` is one.
bool same_file(int fd, std::string const& native_name) {
  struct stat open_file, named;
  return fd > 0 && ::fstat(fd, &open_file) == 0 && S_ISREG(open_file.st_mode) &&
         ::stat(native_name.c_str(), &named) == 0 && open_file.st_dev == named.st_dev &&
         open_file.st_ino == named.st_ino;
}

}  // namespace

error_code_t RedirectionHelper::createRedirectionInternal(sptr_t<ISharedFileHandle>& write_end,
                                                          sptr_t<ISharedFileHandle>& read_end) {
  int ends[2];
  bool isPipeCreated = ::pipe2(ends, O_CLOEXEC) == 0;
  if (isPipeCreated) {
    ends[0] = internal::move_above_standard(ends[0]);
    ends[1] = internal::move_above_standard(ends[1]);
    if (ends[0] < 0 || ends[1] < 0) {
      if (ends[0] >= 0) ::close(ends[0]);
      if (ends[1] >= 0) ::close(ends[1]);
      isPipeCreated = false;
    }
  }
  QUILLON_CHECK(isPipeCreated, error::FailedTo.Set.The.Pipe);
  // The parent's end does not block: its reader waits in poll, where it can be woken.
  ::fcntl(ends[0], F_SETFL, ::fcntl(ends[0], F_GETFL) | O_NONBLOCK);
  // A larger pipe lets a child write ahead of its reader, with fewer switches between the
  // two; where the system refuses, the pipe keeps its default size.
  ::fcntl(ends[0], F_SETPIPE_SZ, 1 << 20);
  write_end->setHandle(ends[1]);
  if (!read_end) read_end = makeSharedFileHandle();
  read_end->setHandle(ends[0]);
  QUILLON_CHECK(read_end->isValid(), error::FailedTo.Set.The.Pipe);
  return error_code_t();
}

error_code_t RedirectionHelper::openFileForOutputRedirection(unsigned stream,
                                                             std::wstring const& path) {
  std::string const name = quillon2::internal::native_file_name(path);
  // Output and error into one file share one open file description, as "2>&1" does;
  // a second open would truncate the file and write over the first stream.
  int const other = m_handles[stream == 1 ? 2 : 1]->getHandle();
  int fd = same_file(other, name) ? ::fcntl(other, F_DUPFD_CLOEXEC, 3)
                                  : internal::move_above_standard(quillon2::internal::posix::retry_eintr([&] {
                                      return ::open(name.c_str(),
                                                    O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
                                    }));
  bool const isFileOpened = fd > 0;
  if (!isFileOpened) {
    log_open_error("openFileForOutputRedirection, error: ", errno, __FILE__, __LINE__);
  }
  QUILLON_CHECK(isFileOpened, error::FailedTo.Execute.The.Operation(
                                  "Failed to open file for output redirection"));
  m_handles[stream]->setHandle(fd);
  return error_code_t();
}

error_code_t RedirectionHelper::openFileForInputRedirection(std::wstring const& path) {
  std::string const name = quillon2::internal::native_file_name(path);
  int fd = internal::move_above_standard(quillon2::internal::posix::retry_eintr(
      [&] { return ::open(name.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC); }));
  if (fd > 0) {
    int const flags = ::fcntl(fd, F_GETFL);
    if (flags < 0 || ::fcntl(fd, F_SETFL, flags & ~O_NONBLOCK) < 0) {
      int const saved = errno;
      ::close(fd);
      fd = -1;
      errno = saved;
    }
  }
  bool const isFileOpened = fd > 0;
  if (!isFileOpened) {
    log_open_error("openFileForInputRedirection, error: ", errno, __FILE__, __LINE__);
  }
  QUILLON_CHECK(isFileOpened, error::FailedTo.Execute.The.Operation(
                                  "Failed to open file for input redirection"));
  m_handles[0]->setHandle(fd);
  return error_code_t();
}

}  // namespace quillon2::process
