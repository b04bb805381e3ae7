// The system side of file mappings: open close-on-exec, size, mmap, and the cut to the
// final length after the view is gone. Failures throw std::system_error, whose text
// create_file_mapping turns into its result.
#include <fcntl.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <string>
#include <system_error>

#include <quillon2/core/assert.hpp>
#include <quillon2/core/streams/file_mapping.hpp>

#include "core/miscellaneous/include/posix_io.hpp"

namespace quillon2 {

namespace {

namespace posix = internal::posix;

// The address of every empty mapping: valid, and never read or written through.
alignas(64) unsigned char g_empty_view[1];

[[noreturn]] void fail(int error, std::string const& what) {
  throw std::system_error(error, std::generic_category(), what);
}

// Opens without waiting (a FIFO would block), refuses what is not a regular file, and
// clears O_NONBLOCK again.
posix::unique_fd_t open_regular(std::string const& native, int flags) {
  if (native.empty()) fail(ENOENT, "the path has no native form");
  posix::unique_fd_t fd(posix::retry_eintr(
      [&] { return ::open(native.c_str(), flags | O_CLOEXEC | O_NOCTTY | O_NONBLOCK, 0666); }));
  if (!fd) fail(errno, "open " + native);
  struct stat st {};
  if (::fstat(fd.get(), &st) != 0) fail(errno, "fstat " + native);
  if (!S_ISREG(st.st_mode)) fail(S_ISDIR(st.st_mode) ? EISDIR : EINVAL, "open " + native);
  if (::fcntl(fd.get(), F_SETFL, flags & ~O_NONBLOCK) != 0) fail(errno, "fcntl " + native);
  return fd;
}

u64_t file_length(int fd, std::string const& native) {
  struct stat st {};
  if (::fstat(fd, &st) != 0) fail(errno, "fstat " + native);
  return static_cast<u64_t>(st.st_size);
}

}  // namespace

file_mapping_base_t::~file_mapping_base_t() {
  if (m_file < 0) {
    // A read mapping never changes its file.
    QUILLON_ASSERT(!m_size);
    return;
  }
  if (m_size != 0) {
    int const res = posix::retry_eintr([&] { return ::ftruncate(m_file, static_cast<off_t>(m_size)); });
    QUILLON_ASSERT(res == 0);
  }
  ::close(m_file);
}

file_mapping_impl_t::file_mapping_impl_t(path_t const& path, bool writable, u64_t offset,
                                         u64_t size)
    : file_mapping_base_t(path.as_string()) {
  std::string const native = path.native_string();
  if (!writable) {
    posix::unique_fd_t fd = open_regular(native, O_RDONLY);
    u64_t const file_size = file_length(fd.get(), native);
    if (offset > file_size) fail(EINVAL, "the offset lies behind the end of " + native);
    if (size == 0) size = file_size - offset;
    if (size > file_size - offset) fail(EINVAL, "the range reaches behind the end of " + native);
    m_length = size;
    if (size == 0) return;
    u64_t const page = static_cast<u64_t>(::sysconf(_SC_PAGESIZE));
    m_delta = offset % page;
    m_view_length = size + m_delta;
    void* view = ::mmap(nullptr, m_view_length, PROT_READ, MAP_SHARED, fd.get(),
                        static_cast<off_t>(offset - m_delta));
    if (view == MAP_FAILED) fail(errno, "mmap " + native);
    m_view = view;
    return;
  }

  posix::unique_fd_t fd = open_regular(native, O_RDWR | O_CREAT);
  // Nobody else writes the file while it is mapped for writing.
  if (::flock(fd.get(), LOCK_EX | LOCK_NB) != 0) fail(errno, "lock " + native);
  m_file = fd.release();
  if (size != 0 &&
      posix::retry_eintr([&] { return ::ftruncate(m_file, static_cast<off_t>(size)); }) != 0) {
    fail(errno, "ftruncate " + native);
  }
  ::posix_fadvise(m_file, 0, 0, POSIX_FADV_SEQUENTIAL);
  m_length = file_length(m_file, native);
  if (m_length == 0) return;
  m_view_length = m_length;
  void* view = ::mmap(nullptr, m_view_length, PROT_READ | PROT_WRITE, MAP_SHARED, m_file, 0);
  if (view == MAP_FAILED) fail(errno, "mmap " + native);
  m_view = view;
}

file_mapping_impl_t::~file_mapping_impl_t() {
  if (m_view != nullptr) ::munmap(m_view, m_view_length);
}

void* file_mapping_impl_t::get_address() {
  return m_view != nullptr ? static_cast<unsigned char*>(m_view) + m_delta : g_empty_view;
}

}  // namespace quillon2
