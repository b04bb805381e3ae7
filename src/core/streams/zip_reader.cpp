// zip_reader_impl_t and create_zip_reader: members read through minizip from a file that
// may be hostile. Every answer of minizip is checked; a read that makes no progress
// before the member's end is a failure, so that a client loop on has_data() ends.
#include <algorithm>
#include <cstring>
#include <exception>
#include <vector>

#include <boost/make_shared.hpp>

#include <quillon2/core/check.hpp>

#include "core/streams/include/make_counted.hpp"
#include "core/streams/include/zip_archive.hpp"

namespace quillon2 {

namespace {

namespace text = KESMET_2_18::strings;

// The listed names are cut to what a 100-byte buffer holds with its NUL.
constexpr std::size_t k_listed_name_bytes = 99;
// The format's longest name.
constexpr std::size_t k_name_bytes = 0xFFFF;
// A central directory entry without its name, extra field and comment.
constexpr std::size_t k_directory_entry = 46;
// The most of a directory read whole; a larger one is walked by minizip.
constexpr u64_t k_directory_in_memory = u64_t{64} << 20;
// unzReadCurrentFile takes an unsigned count.
constexpr std::size_t k_read_chunk = std::size_t{1} << 30;

// A name as enum_streams lists it: at most k_listed_name_bytes, up to a NUL; a sequence
// cut in two becomes U+FFFD in the conversion.
std::wstring listed_name(std::string const& full) {
  std::size_t length = std::min(full.size(), k_listed_name_bytes);
  length = std::find(full.begin(), full.begin() + static_cast<std::ptrdiff_t>(length), '\0') -
           full.begin();
  return text::utf8_to_utf16(full.substr(0, length));
}

}  // namespace

zip_reader_impl_t::zip_reader_impl_t(path_t const& path) {
  zlib_filefunc64_def functions{};
  internal::fill_zip_file_functions(functions, m_io);
  std::string const native = path.native_string();
  m_zip_file = native.empty() ? nullptr : unzOpen2_64(native.c_str(), &functions);
  // An archive without members has no handle: it lists nothing and opens nothing.
  if (!m_zip_file && !native.empty() && internal::is_empty_archive(native)) return;
  QUILLON_CHECK_THROW(m_zip_file, error::FailedTo.Open.The.Archive(path.as_string()));
  // A directory whose first entry cannot be read is no archive to read from.
  unz_global_info64 info{};
  bool const readable = unzGetGlobalInfo64(m_zip_file, &info) == UNZ_OK &&
                        (info.number_entry == 0 || unzGoToFirstFile(m_zip_file) == UNZ_OK);
  if (!readable) {
    unzClose(m_zip_file);
    m_zip_file = nullptr;
  }
  QUILLON_CHECK_THROW(m_zip_file, error::FailedTo.Open.The.Archive(path.as_string()));
}

zip_reader_impl_t::~zip_reader_impl_t() {
  if (m_zip_file != nullptr) unzClose(m_zip_file);
}

void zip_reader_impl_t::close_member() {
  if (!m_open) return;
  unzCloseCurrentFile(m_zip_file);
  m_open = false;
}

void zip_reader_impl_t::build_index() {
  close_member();
  m_indexed = true;
  m_names = boost::make_shared<std::list<std::wstring>>();
  m_index.clear();
  unz_global_info64 info{};
  if (m_zip_file == nullptr || unzGetGlobalInfo64(m_zip_file, &info) != UNZ_OK ||
      info.number_entry == 0)
    return;
  int res = unzGoToFirstFile(m_zip_file);
  QUILLON_ASSERT(UNZ_OK == res);
  if (res == UNZ_OK && index_in_memory(info.number_entry)) return;
  std::vector<char> name(k_name_bytes + 1);
  while (res == UNZ_OK) {
    unz_file_info64 entry{};
    res = unzGetCurrentFileInfo64(m_zip_file, &entry, name.data(), k_name_bytes, nullptr, 0,
                                  nullptr, 0);
    if (res != UNZ_OK) break;
    std::string full(name.data(), std::min<std::size_t>(entry.size_filename, k_name_bytes));
    unz64_file_pos position{};
    if (unzGetFilePos64(m_zip_file, &position) == UNZ_OK) add_entry(std::move(full), position);
    res = unzGoToNextFile(m_zip_file);
  }
}

void zip_reader_impl_t::add_entry(std::string full, unz64_file_pos const& position) {
  m_names->push_back(listed_name(full));
  m_index.emplace(std::move(full), position);
}

bool zip_reader_impl_t::index_in_memory(u64_t entries) {
  // The first entry's place, as minizip counts it. It is the place in the file when
  // nothing precedes the archive; the signature tells, and otherwise minizip walks.
  unz64_file_pos first{};
  if (unzGetFilePos64(m_zip_file, &first) != UNZ_OK) return false;
  u64_t const start = first.pos_in_zip_directory;
  u64_t const length = internal::zip_file_length(m_io);
  if (start >= length || length - start > k_directory_in_memory) return false;
  std::string directory;
  if (!internal::zip_file_read_at(m_io, start, static_cast<std::size_t>(length - start),
                                  directory) ||
      directory.compare(0, 4, "PK\x01\x02", 4) != 0) {
    return false;
  }
  auto const u16_at = [&](std::size_t at) {
    return static_cast<std::size_t>(static_cast<unsigned char>(directory[at]) |
                                    static_cast<unsigned char>(directory[at + 1]) << 8);
  };
  // The same steps as minizip's walk: an entry is 46 bytes, then its name, extra field
  // and comment; the walk stops at the first entry that is not whole.
  std::size_t at = 0;
  for (u64_t number = 0; number < entries; ++number) {
    if (directory.size() - at < k_directory_entry ||
        directory.compare(at, 4, "PK\x01\x02", 4) != 0) {
      break;
    }
    std::size_t const name = u16_at(at + 28);
    std::size_t const next = at + k_directory_entry + name + u16_at(at + 30) + u16_at(at + 32);
    if (next > directory.size()) break;
    add_entry(directory.substr(at + k_directory_entry, name), unz64_file_pos{start + at, number});
    at = next;
  }
  return true;
}

generic_iterator_t<std::wstring> zip_reader_impl_t::enum_streams() {
  close_member();
  if (!m_indexed) build_index();
  return iterutil::make_owned_iterator<std::wstring>(m_names);
}

error_code_t zip_reader_impl_t::open_stream(std::wstring const& name) {
  if (!m_indexed) build_index();
  auto const found = m_index.find(text::utf16_to_utf8(name));
  QUILLON_CHECK(found != m_index.end(), error::FailedTo.Find.The.Stream(name));
  close_member();
  int res = unzGoToFilePos64(m_zip_file, &found->second);
  if (res == UNZ_OK) res = unzOpenCurrentFile(m_zip_file);
  QUILLON_CHECK((0) == res, error::FailedTo.Open.The.Stream(name));
  m_open = true;
  m_position = 0;
  return error_code_t();
}

error_code_t zip_reader_impl_t::read(void* data, std::size_t size, u64_t* read) {
  auto* bytes = static_cast<char*>(data);
  u64_t total = 0;
  while (total < size) {
    std::size_t const chunk = std::min<std::size_t>(size - total, k_read_chunk);
    int const res = unzReadCurrentFile(m_zip_file, bytes + total, static_cast<unsigned>(chunk));
    QUILLON_CHECK(res >= 0, error::FailedTo.Read.The.Archive);
    if (res == 0) break;
    total += static_cast<u64_t>(res);
  }
  // Nothing came, yet the member is not at its end: its data stops early, and every
  // further read would give nothing as well.
  QUILLON_CHECK(total != 0 || size == 0 || unzeof(m_zip_file) == 1,
                error::FailedTo.Read.The.Archive("the data ends before the member's size"));
  m_position += total;
  if (read != nullptr) *read = total;
  return error_code_t();
}

error_code_t zip_reader_impl_t::has_data() {
  QUILLON_CHECK(m_zip_file, error::IsNot.Valid.State);
  int const res = unzeof(m_zip_file);
  QUILLON_CHECK(res >= 0, error::IsNot.Valid.State("no stream is open"));
  return res != 0 ? error_code_t::False() : error_code_t();
}

error_code_t zip_reader_impl_t::close() {
  int const res = unzCloseCurrentFile(m_zip_file);
  m_open = false;
  // A wrong CRC of a member read to its end shows here.
  QUILLON_CHECK((0) == res, error::FailedTo.Close.The.Archive);
  return error_code_t();
}

error_code_t zip_reader_impl_t::seek(u64_t, u32_t) {
  QUILLON_CHECK(ql2::internal::unconditional_alert(), error::IsNot.Implemented.Function);
  return error_code_t();
}

error_code_t zip_reader_impl_t::get_position(u64_t* position) {
  QUILLON_CHECK(position, error::IsNot.Valid.Argument);
  *position = m_position;
  return error_code_t();
}

error_code_t zip_reader_impl_t::get_size(u64_t* size) {
  QUILLON_CHECK(size, error::IsNot.Valid.Argument);
  unz_file_info64 info{};
  int const res = unzGetCurrentFileInfo64(m_zip_file, &info, nullptr, 0, nullptr, 0, nullptr, 0);
  QUILLON_CHECK((0) == res, error::FailedTo.Get.The.Info);
  *size = info.uncompressed_size;
  return error_code_t();
}

error_code_t create_zip_reader(path_t const& path, sptr_t<archive_reader_t>& out) {
  std::optional<std::string> other;
  error_code_t const result = internal::make_counted(
      out,
      [&] {
        return sptr_t<archive_reader_t>(
            new ref_counted_t<zip_reader_impl_t, mt_ref_count_impl_t>(path));
      },
      other);
  if (other) return QUILLON_RAISE(error::FailedTo.Open.The.Archive(other->c_str()));
  return result;
}

}  // namespace quillon2
