// zip_writer_impl_t and create_zip_writer: members deflated through minizip, names in
// UTF-8 with the flag that says so, no time stamps, and no file that reaches 4 GiB.
#include <zlib.h>

#include <algorithm>
#include <exception>

#include <quillon2/core/check.hpp>

#include "core/miscellaneous/include/logging.hpp"
#include "core/streams/include/make_counted.hpp"
#include "core/streams/include/zip_archive.hpp"

namespace quillon2 {

namespace {

namespace text = KESMET_2_18::strings;

// General purpose bit 11: the name is UTF-8.
constexpr uLong k_utf8_name_flag = 1u << 11;
// 1980-01-01 00:00:00, the earliest date the format holds (day 1 of month 1 of 1980).
constexpr uLong k_earliest_dos_date = ((1u << 5) | 1u) << 16;
// Sizes and offsets of the format are 32-bit; the file stays below this.
constexpr u64_t k_limit = 0xFFFFFFFFu;
// What minizip (its 64 KiB buffer) and zlib (pending output) may hold back, from above.
constexpr u64_t k_buffered = u64_t{256} << 10;
// A local header and a central directory entry without their names.
constexpr u64_t k_local_header = 30;
constexpr u64_t k_directory_entry = 46;
constexpr u64_t k_end_record = 22;
// zipWriteInFileInZip takes an unsigned count.
constexpr std::size_t k_write_chunk = std::size_t{1} << 30;

// The most that deflate makes of `n` bytes with the window and memory level used here.
u64_t deflate_bound(u64_t n) { return n + (n >> 12) + (n >> 14) + (n >> 25) + 13; }

}  // namespace

zip_writer_impl_t::zip_writer_impl_t(path_t const& path, bool append) {
  zlib_filefunc64_def functions{};
  internal::fill_zip_file_functions(functions, m_io);
  std::string const native = path.native_string();
  // Adding to an archive without members is making it anew (minizip cannot open it).
  if (append && !native.empty() && internal::is_empty_archive(native)) append = false;
  m_zip_file = native.empty() ? nullptr
                              : zipOpen2_64(native.c_str(),
                                            append ? APPEND_STATUS_ADDINZIP : APPEND_STATUS_CREATE,
                                            nullptr, &functions);
  QUILLON_CHECK_THROW(m_zip_file, error::FailedTo.Access.The.Archive(path.as_string()));
  m_append = append;
  m_initial_length = append ? internal::zip_file_length(m_io) : 0;
  m_directory_bytes = k_end_record;
}

zip_writer_impl_t::~zip_writer_impl_t() {
  if (m_zip_file == nullptr) return;
  int const res = zipClose(m_zip_file, nullptr);
  // Only logged: raising here would clear the errors the caller may still hold.
  if ((0) != res) {
    Q2_LOG(internal::main_logger(), internal::log_error,
           L"(0) == res 'error::FailedTo.Close.The.Archive': the archive is left unfinished ("
               << res << L")");
  }
}

bool zip_writer_impl_t::fits(u64_t more) const {
  if (m_position + more >= k_limit) return false;
  u64_t const on_disk = internal::zip_file_position(m_io);
  return on_disk + deflate_bound(m_position + more) + k_buffered + m_directory_bytes < k_limit;
}

error_code_t zip_writer_impl_t::create_new_stream(std::wstring const& name, int compression) {
  if (m_open) close();
  std::string const utf8 = text::utf16_to_utf8(name);
  // The format holds names of up to 65535 bytes; minizip stops at a NUL.
  QUILLON_CHECK(!utf8.empty() && utf8.size() <= 0xFFFF && utf8.find('\0') == std::string::npos,
                error::FailedTo.Open.The.Stream(name));
  u64_t const entry = k_directory_entry + utf8.size();
  QUILLON_CHECK(internal::zip_file_position(m_io) + k_local_header + utf8.size() + k_buffered +
                        m_directory_bytes + entry <
                    k_limit,
                error::FailedTo.Write.The.Stream(name));

  zip_fileinfo info{};
  info.dosDate = k_earliest_dos_date;
  int const level = compression == 0 ? Z_DEFAULT_COMPRESSION : compression == 1 ? 1 : 9;
  int const res = zipOpenNewFileInZip4_64(m_zip_file, utf8.c_str(), &info, nullptr, 0, nullptr, 0,
                                          nullptr, Z_DEFLATED, level, 0, -MAX_WBITS, 8,
                                          Z_DEFAULT_STRATEGY, nullptr, 0, 0, k_utf8_name_flag, 0);
  QUILLON_CHECK((0) == res, error::FailedTo.Open.The.Stream(name));
  m_open = true;
  m_position = 0;
  if (m_first_member && m_append) {
    // The first new member overwrites the old central directory, which minizip writes
    // again at the end, with the old end record: all that lay behind this header.
    u64_t const header = internal::zip_file_position(m_io) - k_local_header - utf8.size();
    if (m_initial_length > header) m_directory_bytes += m_initial_length - header;
  }
  m_first_member = false;
  m_directory_bytes += entry;
  return error_code_t();
}

error_code_t zip_writer_impl_t::write(void const* data, std::size_t size) {
  QUILLON_CHECK(fits(size), error::FailedTo.Write.The.Stream("the archive would reach 4 GiB"));
  auto const* bytes = static_cast<char const*>(data);
  for (std::size_t done = 0; done < size;) {
    std::size_t const chunk = std::min(size - done, k_write_chunk);
    int const res = zipWriteInFileInZip(m_zip_file, bytes + done, static_cast<unsigned>(chunk));
    QUILLON_CHECK((0) == res, error::FailedTo.Write.The.Stream);
    done += chunk;
  }
  m_position += size;
  return error_code_t();
}

error_code_t zip_writer_impl_t::close() {
  if (!m_zip_file) return error_code_t::False();
  int const res = zipCloseFileInZip(m_zip_file);
  m_open = false;
  QUILLON_CHECK((0) == res, error::FailedTo.Close.The.Stream);
  return error_code_t();
}

error_code_t zip_writer_impl_t::seek(u64_t, u32_t) {
  QUILLON_CHECK(ql2::internal::unconditional_alert(), error::IsNot.Implemented.Function);
  return error_code_t();
}

error_code_t zip_writer_impl_t::get_position(u64_t* position) {
  QUILLON_CHECK(position, error::IsNot.Valid.Argument);
  *position = m_position;
  return error_code_t();
}

error_code_t zip_writer_impl_t::get_size(u64_t* size) {
  QUILLON_CHECK(size, error::IsNot.Valid.Argument);
  *size = m_position;
  return error_code_t();
}

error_code_t create_zip_writer(path_t const& path, sptr_t<archive_writer_t>& out, bool append) {
  std::optional<std::string> other;
  error_code_t const result = internal::make_counted(
      out,
      [&] {
        return sptr_t<archive_writer_t>(
            new ref_counted_t<zip_writer_impl_t, mt_ref_count_impl_t>(path, append));
      },
      other);
  if (other) return QUILLON_RAISE(error::FailedTo.Access.The.Archive(other->c_str()));
  return result;
}

}  // namespace quillon2
