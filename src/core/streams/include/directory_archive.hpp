// directory_archive_t: a directory as an archive, each stream a file in its root. One
// object serves both sides; the creation functions hand it out as the side asked for.
//
// A stream name is a file name, never a path, so no stream lies outside the root. Only
// regular files are streams: a directory, a FIFO or a device in the root fails to open
// as a missing file does, and a new stream is never written through a symbolic link.
#pragma once

#include <cstdio>
#include <string>

#include <quillon2/core/streams/archive.hpp>

namespace quillon2 {

class directory_archive_t : public archive_writer_t, public archive_reader_t {
 public:
  explicit directory_archive_t(path_t const& root);
  ~directory_archive_t() override;

  error_code_t create_new_stream(std::wstring const& name, int compression) override;
  generic_iterator_t<std::wstring> enum_streams() override;
  error_code_t open_stream(std::wstring const& name) override;
  error_code_t read(void* data, std::size_t size, u64_t* read) override;
  error_code_t has_data() override;
  error_code_t write(void const* data, std::size_t size) override;
  error_code_t close() override;
  error_code_t seek(u64_t offset, u32_t origin) override;
  error_code_t get_position(u64_t* position) override;
  error_code_t get_size(u64_t* size) override;

 private:
  // Opens the stream file `name` for writing (new or truncated) or reading.
  error_code_t open_file(std::wstring const& name, bool write);

  path_t m_root;
  std::string m_native_root;
  FILE* m_file = nullptr;
};

}  // namespace quillon2
