// The ZIP stores behind create_zip_writer and create_zip_reader, on minizip.
//
// The writer keeps the archive below 4 GiB without the 64-bit extension: before every
// write it bounds what the file will hold at the end (what is on disk now, the deflate
// worst case of the new bytes, what minizip and zlib may still buffer, and the central
// directory to come) and refuses a write that could pass the limit.
//
// The reader walks the central directory once, on the first enum_streams or
// open_stream, and keeps a name index, so that opening members by name stays linear in
// their number (minizip's own lookup scans the directory every time and cannot see
// names of 256 bytes or more).
#pragma once

#include <string>
#include <unordered_map>
#include <list>

#include <boost/shared_ptr.hpp>
#include <minizip/unzip.h>
#include <minizip/zip.h>

#include <quillon2/core/streams/archive.hpp>

#include "core/streams/include/zip_file_io.hpp"

namespace quillon2 {

class zip_writer_impl_t : public archive_writer_t {
 public:
  // Throws quillon2::exception when the archive cannot be opened.
  zip_writer_impl_t(path_t const& path, bool append);
  ~zip_writer_impl_t() override;

  error_code_t create_new_stream(std::wstring const& name, int compression) override;
  error_code_t write(void const* data, std::size_t size) override;
  error_code_t close() override;
  error_code_t seek(u64_t offset, u32_t origin) override;
  error_code_t get_position(u64_t* position) override;
  error_code_t get_size(u64_t* size) override;

 private:
  // Whether `more` bytes of the open member still keep the archive below 4 GiB.
  bool fits(u64_t more) const;

  internal::zip_file_io_t m_io;
  zipFile m_zip_file = nullptr;
  u64_t m_position = 0;
  bool m_open = false;
  bool m_append = false;
  bool m_first_member = true;
  u64_t m_initial_length = 0;   // the file's length when it was opened to append
  u64_t m_directory_bytes = 0;  // the central directory and its end record, from above
};

class zip_reader_impl_t : public archive_reader_t {
 public:
  // Throws quillon2::exception when the file is no readable archive.
  explicit zip_reader_impl_t(path_t const& path);
  ~zip_reader_impl_t() override;

  generic_iterator_t<std::wstring> enum_streams() override;
  error_code_t open_stream(std::wstring const& name) override;
  error_code_t read(void* data, std::size_t size, u64_t* read) override;
  error_code_t has_data() override;
  error_code_t close() override;
  error_code_t seek(u64_t offset, u32_t origin) override;
  error_code_t get_position(u64_t* position) override;
  error_code_t get_size(u64_t* size) override;

 private:
  void close_member();
  // Walks the central directory once: the listed names and the index.
  void build_index();
  // The walk over the directory read whole into memory (minizip parses every header a
  // byte at a time); false when it does not apply, and nothing was added then.
  bool index_in_memory(u64_t entries);
  void add_entry(std::string full, unz64_file_pos const& position);

  internal::zip_file_io_t m_io;
  unzFile m_zip_file = nullptr;
  u64_t m_position = 0;
  bool m_open = false;
  bool m_indexed = false;
  boost::shared_ptr<std::list<std::wstring>> m_names;
  std::unordered_map<std::string, unz64_file_pos> m_index;  // full name -> entry, first wins
};

}  // namespace quillon2
