// directory_archive_t and the two create_directory_archive functions: streams as files
// of one directory, through stdio on descriptors opened close-on-exec.
#include "core/streams/include/directory_archive.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <exception>
#include <list>

#include <boost/filesystem.hpp>
#include <boost/make_shared.hpp>

#include <quillon2/core/check.hpp>

#include "core/miscellaneous/include/logging.hpp"
#include "core/miscellaneous/include/posix_io.hpp"
#include "core/streams/include/make_counted.hpp"

namespace quillon2 {

namespace {

namespace posix = internal::posix;
namespace text = KESMET_2_18::strings;

bool is_stream_name(std::wstring const& name) {
  return !name.empty() && name != L"." && name != L".." &&
         name.find_first_of(std::wstring(L"/\\\0", 3)) == std::wstring::npos;
}

// Opens a regular file without waiting on a FIFO; anything else fails with an errno.
FILE* open_stream_file(std::string const& native, bool write, int& error) {
  int const flags = write ? (O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW) : O_RDONLY;
  posix::unique_fd_t fd(posix::retry_eintr(
      [&] { return ::open(native.c_str(), flags | O_CLOEXEC | O_NOCTTY | O_NONBLOCK, 0666); }));
  struct stat st {};
  if (!fd || ::fstat(fd.get(), &st) != 0) {
    error = errno;
    return nullptr;
  }
  if (!S_ISREG(st.st_mode)) {
    error = S_ISDIR(st.st_mode) ? EISDIR : ENOENT;
    return nullptr;
  }
  FILE* file = nullptr;
  if (::fcntl(fd.get(), F_SETFL, 0) != 0 ||
      (file = ::fdopen(fd.get(), write ? "wb" : "rb")) == nullptr) {
    error = errno;
    return nullptr;
  }
  fd.release();
  return file;
}

template <class Side>
error_code_t make_archive(path_t const& path, sptr_t<Side>& out) {
  std::optional<std::string> other;
  error_code_t const result = internal::make_counted(
      out,
      [&] {
        return sptr_t<Side>(new ref_counted_t<directory_archive_t, mt_ref_count_impl_t>(path));
      },
      other);
  if (other) {
    Q2_LOG(internal::main_logger(), internal::log_error,
           L"cannot make a directory store: " << text::utf8_to_utf16(*other));
    return QUILLON_RAISE(error::FailedTo.Create.The.Directory(other->c_str()));
  }
  return result;
}

}  // namespace

directory_archive_t::directory_archive_t(path_t const& root)
    : m_root(root), m_native_root(root.native_string()) {}

directory_archive_t::~directory_archive_t() {
  if (m_file != nullptr) std::fclose(m_file);
}

error_code_t directory_archive_t::open_file(std::wstring const& name, bool write) {
  QUILLON_CHECK(is_stream_name(name), error::IsNot.Valid.Argument(name));
  if (m_file != nullptr) close();
  int err = ENOENT;
  if (!m_native_root.empty()) {
    m_file = open_stream_file(m_native_root + "/" + text::utf16_to_utf8(name), write, err);
  }
  QUILLON_CHECK(m_file, error::FailedTo.Write.The.File(posix::errno_text(err)));
  return error_code_t();
}

error_code_t directory_archive_t::create_new_stream(std::wstring const& name, int) {
  return open_file(name, true);
}

error_code_t directory_archive_t::open_stream(std::wstring const& name) {
  return open_file(name, false);
}

generic_iterator_t<std::wstring> directory_archive_t::enum_streams() {
  auto names = boost::make_shared<std::list<std::wstring>>();
  try {
    for (boost::filesystem::directory_iterator it(m_native_root), end; it != end; ++it) {
      names->push_back(text::utf8_to_utf16(it->path().filename().string()));
    }
  } catch (std::exception const& e) {
    Q2_LOG(internal::main_logger(), internal::log_error,
           L"cannot list " << m_root.as_string() << L": " << text::utf8_to_utf16(e.what()));
  }
  return iterutil::make_owned_iterator<std::wstring>(names);
}

error_code_t directory_archive_t::read(void* data, std::size_t size, u64_t* read) {
  QUILLON_CHECK(m_file, error::IsNot.Valid.State);
  std::size_t const got = std::fread(data, 1, size, m_file);
  int const err = errno;
  QUILLON_CHECK(got == size || !std::ferror(m_file),
                error::FailedTo.Read.The.File(posix::errno_text(err)));
  if (read != nullptr) *read = got;
  return error_code_t();
}

error_code_t directory_archive_t::write(void const* data, std::size_t size) {
  QUILLON_CHECK(m_file, error::IsNot.Valid.State);
  std::size_t const written = std::fwrite(data, 1, size, m_file);
  int const err = errno;
  QUILLON_CHECK(written == size, error::FailedTo.Write.The.File(posix::errno_text(err)));
  return error_code_t();
}

error_code_t directory_archive_t::seek(u64_t offset, u32_t origin) {
  QUILLON_CHECK(m_file, error::IsNot.Valid.State);
  QUILLON_CHECK(origin <= 2, error::IsNot.Valid.Argument);
  int const whence = origin == 0 ? SEEK_SET : origin == 1 ? SEEK_CUR : SEEK_END;
  int const err = ::fseeko(m_file, static_cast<off_t>(offset), whence);
  int const error = errno;
  QUILLON_CHECK(0 == err, error::FailedTo.Write.The.File(posix::errno_text(error)));
  return error_code_t();
}

error_code_t directory_archive_t::get_position(u64_t* position) {
  QUILLON_CHECK(m_file, error::IsNot.Valid.State);
  QUILLON_CHECK(position, error::IsNot.Valid.Argument);
  off_t const at = ::ftello(m_file);
  int const error = errno;
  QUILLON_CHECK(at >= 0, error::FailedTo.Seek.The.File(posix::errno_text(error)));
  *position = static_cast<u64_t>(at);
  return error_code_t();
}

error_code_t directory_archive_t::get_size(u64_t* size) {
  QUILLON_CHECK(m_file, error::IsNot.Valid.State);
  QUILLON_CHECK(size, error::IsNot.Valid.Argument);
  u64_t position = 0;
  error_code_t code = get_position(&position);
  if (code.failed()) {
    QUILLON_ASSERT(code.succeeded());
    return code;
  }
  int const err = ::fseeko(m_file, 0, SEEK_END);
  int const error = errno;
  QUILLON_ASSERT(0 == err);
  QUILLON_CHECK(0 == err, error::FailedTo.Seek.The.File(posix::errno_text(error)));
  u64_t end = 0;
  code = get_position(&end);
  if (code.succeeded()) code = seek(position, 0);
  if (code.failed()) {
    QUILLON_ASSERT(code.succeeded());
    return code;
  }
  *size = end;
  return error_code_t();
}

error_code_t directory_archive_t::has_data() {
  u64_t position = 0;
  u64_t size = 0;
  error_code_t code = get_position(&position);
  if (code.succeeded()) code = get_size(&size);
  if (code.failed()) {
    QUILLON_ASSERT(code.succeeded());
    return code;
  }
  return position == size ? error_code_t::False() : error_code_t();
}

error_code_t directory_archive_t::close() {
  QUILLON_CHECK(m_file, error::IsNot.Valid.State);
  int const res = std::fclose(m_file);
  int const error = errno;
  m_file = nullptr;
  // A late write error shows only here.
  QUILLON_CHECK(res == 0, error::FailedTo.Write.The.File(posix::errno_text(error)));
  return error_code_t();
}

error_code_t create_directory_archive(path_t const& path, sptr_t<archive_reader_t>& out) {
  out = nullptr;
  QUILLON_CHECK(path.is_exists(), error::IsNot.Valid.Path(path.as_string()));
  return make_archive(path, out);
}

error_code_t create_directory_archive(path_t const& path, sptr_t<archive_writer_t>& out) {
  out = nullptr;
  if (!path.is_exists()) {
    try {
      bool const res = boost::filesystem::create_directories(path.native_string());
      QUILLON_CHECK(res, error::FailedTo.Create.The.Directory(path.as_string()));
    } catch (std::exception const& e) {
      Q2_LOG(internal::main_logger(), internal::log_error,
             L"cannot make " << path.as_string() << L": " << text::utf8_to_utf16(e.what()));
      return QUILLON_RAISE(error::FailedTo.Create.The.Directory(e.what()));
    }
  }
  return make_archive(path, out);
}

}  // namespace quillon2
