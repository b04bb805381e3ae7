// set_volume_compression: the file system's compression flag of a file or directory,
// through FS_IOC_GETFLAGS / FS_IOC_SETFLAGS. A file system without the flag, or one that
// refuses the change, answers False: that is no failure.
#include <fcntl.h>
#include <linux/fs.h>
#include <sys/ioctl.h>

#include <quillon2/core/check.hpp>
#include <quillon2/core/streams/file_mapping.hpp>

#include "core/miscellaneous/include/posix_io.hpp"

namespace quillon2 {

error_code_t set_volume_compression(path_t const& path, bool enable) {
  namespace posix = internal::posix;
  std::string const native = path.native_string();
  // O_NONBLOCK: a FIFO must not hold the caller; directories open like files.
  posix::unique_fd_t file(
      native.empty() ? -1
                     : posix::retry_eintr([&] {
                         return ::open(native.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK);
                       }));
  if (!file) {
    // The logged condition keeps the wording that readers of these logs know.
    return QUILLON2_CHECK_FAILED("file != ((HANDLE)(LONG_PTR)-1)",
                                 "error::FailedTo.Open.The.File(path.as_string())",
                                 error::FailedTo.Open.The.File(path.as_string()));
  }
  int flags = 0;
  if (::ioctl(file.get(), FS_IOC_GETFLAGS, &flags) != 0) return error_code_t::False();
  int const wanted = enable ? (flags | FS_COMPR_FL) : (flags & ~FS_COMPR_FL);
  if (wanted != flags && ::ioctl(file.get(), FS_IOC_SETFLAGS, &wanted) != 0) {
    return error_code_t::False();
  }
  return error_code_t();
}

}  // namespace quillon2
