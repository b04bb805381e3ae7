// Whole-file reads for the digests: close-on-exec, non-blocking open so that a FIFO never
// waits for a writer, regular files only, one large buffer whatever the caller's chunk size.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <memory>

#include "core/miscellaneous/digest/include/digest_input.hpp"
#include "core/miscellaneous/include/posix_io.hpp"

namespace quillon2::internal::digest {

namespace {
constexpr std::size_t k_buffer_size = 256 * 1024;
}

read_end_t read_whole_file(std::string const& native_path,
                           std::function<void(void const*, std::size_t)> const& sink) {
  if (native_path.empty() || native_path.find('\0') != std::string::npos)
    return read_end_t::unreadable;
  posix::unique_fd_t fd(posix::retry_eintr([&] {
    return ::open(native_path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
  }));
  if (!fd) return read_end_t::unreadable;
  struct stat st;
  if (::fstat(fd.get(), &st) != 0 || !S_ISREG(st.st_mode)) return read_end_t::unreadable;
  ::posix_fadvise(fd.get(), 0, 0, POSIX_FADV_SEQUENTIAL);
  std::unique_ptr<char[]> buffer(new char[k_buffer_size]);
  for (;;) {
    ssize_t const n =
        posix::retry_eintr([&] { return ::read(fd.get(), buffer.get(), k_buffer_size); });
    if (n < 0) return read_end_t::failed;
    if (n == 0) return read_end_t::end_of_file;
    sink(buffer.get(), static_cast<std::size_t>(n));
  }
}

}  // namespace quillon2::internal::digest
