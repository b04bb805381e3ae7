// minizip's file functions on our terms: open(O_CLOEXEC | O_NONBLOCK), a check that the
// file is a regular one, then stdio on the descriptor, as minizip's own functions use,
// without stdio's locking.
#include <fcntl.h>
#include <stdio_ext.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "core/miscellaneous/include/posix_io.hpp"
#include "core/streams/include/zip_file_io.hpp"

namespace quillon2::internal {

namespace {

voidpf ZCALLBACK open_file(voidpf opaque, void const* filename, int mode) {
  auto* state = static_cast<zip_file_io_t*>(opaque);
  int flags = 0;
  char const* stdio_mode = nullptr;
  if ((mode & ZLIB_FILEFUNC_MODE_READWRITEFILTER) == ZLIB_FILEFUNC_MODE_READ) {
    flags = O_RDONLY;
    stdio_mode = "rb";
  } else if (mode & ZLIB_FILEFUNC_MODE_EXISTING) {
    flags = O_RDWR;
    stdio_mode = "r+b";
  } else if (mode & ZLIB_FILEFUNC_MODE_CREATE) {
    flags = O_RDWR | O_CREAT | O_TRUNC;
    stdio_mode = "w+b";
  }
  if (filename == nullptr || stdio_mode == nullptr) {
    state->open_error = EINVAL;
    return nullptr;
  }
  char const* name = static_cast<char const*>(filename);
  posix::unique_fd_t fd(posix::retry_eintr(
      [&] { return ::open(name, flags | O_CLOEXEC | O_NOCTTY | O_NONBLOCK, 0666); }));
  struct stat st {};
  if (!fd || ::fstat(fd.get(), &st) != 0) {
    state->open_error = errno;
    return nullptr;
  }
  if (!S_ISREG(st.st_mode)) {
    state->open_error = S_ISDIR(st.st_mode) ? EISDIR : EINVAL;
    return nullptr;
  }
  if (::fcntl(fd.get(), F_SETFL, flags & ~(O_CREAT | O_TRUNC)) != 0) {
    state->open_error = errno;
    return nullptr;
  }
  FILE* file = ::fdopen(fd.get(), stdio_mode);
  if (file == nullptr) {
    state->open_error = errno;
    return nullptr;
  }
  fd.release();
  // The file belongs to one archive, which belongs to one thread at a time: minizip reads
  // headers a byte at a time, and stdio's lock around each call would cost more than
  // the byte.
  ::__fsetlocking(file, FSETLOCKING_BYCALLER);
  state->file = file;
  return file;
}

uLong ZCALLBACK read_file(voidpf, voidpf stream, void* buf, uLong size) {
  return static_cast<uLong>(std::fread(buf, 1, size, static_cast<FILE*>(stream)));
}

uLong ZCALLBACK write_file(voidpf, voidpf stream, void const* buf, uLong size) {
  return static_cast<uLong>(std::fwrite(buf, 1, size, static_cast<FILE*>(stream)));
}

ZPOS64_T ZCALLBACK tell_file(voidpf, voidpf stream) {
  off_t const position = ::ftello(static_cast<FILE*>(stream));
  return position < 0 ? static_cast<ZPOS64_T>(-1) : static_cast<ZPOS64_T>(position);
}

long ZCALLBACK seek_file(voidpf, voidpf stream, ZPOS64_T offset, int origin) {
  int whence = SEEK_SET;
  switch (origin) {
    case ZLIB_FILEFUNC_SEEK_SET: whence = SEEK_SET; break;
    case ZLIB_FILEFUNC_SEEK_CUR: whence = SEEK_CUR; break;
    case ZLIB_FILEFUNC_SEEK_END: whence = SEEK_END; break;
    default: return -1;
  }
  return ::fseeko(static_cast<FILE*>(stream), static_cast<off_t>(offset), whence) == 0 ? 0 : -1;
}

int ZCALLBACK close_file(voidpf opaque, voidpf stream) {
  auto* state = static_cast<zip_file_io_t*>(opaque);
  if (state->file == stream) state->file = nullptr;
  return std::fclose(static_cast<FILE*>(stream));
}

int ZCALLBACK error_file(voidpf, voidpf stream) { return std::ferror(static_cast<FILE*>(stream)); }

}  // namespace

void fill_zip_file_functions(zlib_filefunc64_def& functions, zip_file_io_t& state) {
  functions.zopen64_file = open_file;
  functions.zread_file = read_file;
  functions.zwrite_file = write_file;
  functions.ztell64_file = tell_file;
  functions.zseek64_file = seek_file;
  functions.zclose_file = close_file;
  functions.zerror_file = error_file;
  functions.opaque = &state;
}

u64_t zip_file_position(zip_file_io_t const& state) {
  if (state.file == nullptr) return 0;
  off_t const position = ::ftello(state.file);
  return position < 0 ? 0 : static_cast<u64_t>(position);
}

u64_t zip_file_length(zip_file_io_t const& state) {
  struct stat st {};
  if (state.file == nullptr || ::fstat(::fileno(state.file), &st) != 0) return 0;
  return static_cast<u64_t>(st.st_size);
}

bool zip_file_read_at(zip_file_io_t const& state, u64_t offset, std::size_t size, std::string& out) {
  if (state.file == nullptr) return false;
  out.resize(size);
  std::size_t done = 0;
  while (done < size) {
    ssize_t const n = posix::retry_eintr([&] {
      return ::pread(::fileno(state.file), &out[done], size - done, static_cast<off_t>(offset + done));
    });
    if (n <= 0) return false;
    done += static_cast<std::size_t>(n);
  }
  return true;
}

bool is_empty_archive(std::string const& native) {
  zip_file_io_t state;
  FILE* file = static_cast<FILE*>(open_file(&state, native.c_str(), ZLIB_FILEFUNC_MODE_READ));
  if (file == nullptr) return false;
  unsigned char record[22];
  bool const read = std::fread(record, 1, sizeof record, file) == sizeof record;
  struct stat st {};
  bool const stated = ::fstat(::fileno(file), &st) == 0;
  std::fclose(file);
  // Signature, then disk numbers, entry counts, directory size and offset all 0, then
  // the comment's length, which must be what follows.
  static unsigned char const k_empty[20] = {'P', 'K', 5, 6};
  return read && stated && std::memcmp(record, k_empty, sizeof k_empty) == 0 &&
         static_cast<u64_t>(st.st_size) == sizeof record + (record[20] | record[21] << 8);
}

}  // namespace quillon2::internal
