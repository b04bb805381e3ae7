// Whole-file reads of the documents an XSL run loads (inputs, imports, document()).
// Unlike the bag files these are only read, by any number of runs at once, so they are
// not locked.
#include <fcntl.h>
#include <sys/stat.h>

#include <string>

#include "core/das/xsl/include/xsl_extensions.hpp"
#include "core/miscellaneous/include/posix_io.hpp"

namespace quillon2::internal {

bool read_local_file(std::string const& native_name, std::string& content, std::string& why) {
  namespace px = internal::posix;
  if (native_name.empty()) {
    why = "no local file name";
    return false;
  }
  px::unique_fd_t fd(px::retry_eintr([&] { return ::open(native_name.c_str(), O_RDONLY | O_CLOEXEC); }));
  if (!fd) {
    why = "cannot open " + native_name + ": " + px::errno_text(errno);
    return false;
  }
  struct stat info {};
  if (::fstat(fd.get(), &info) != 0 || !S_ISREG(info.st_mode)) {
    why = native_name + " is not a regular file";
    return false;
  }
  content.clear();
  content.reserve(static_cast<std::size_t>(info.st_size));
  if (int const error = px::read_all(fd.get(), content); error != 0) {
    why = "cannot read " + native_name + ": " + px::errno_text(error);
    return false;
  }
  return true;
}

}  // namespace quillon2::internal
