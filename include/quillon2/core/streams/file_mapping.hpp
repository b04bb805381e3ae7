// File mappings: a file, or the content of any stream, seen as one block of memory.
//
//   sptr_t<file_mapping_t> map;
//   if (create_file_mapping(map, path, false, 0, 0)) use(map->get_address(), map->get_size());
//
// file_mapping_impl_t maps a real file: nothing is copied, and the address stays valid
// while the object lives. A writable mapping covers the whole file, made if missing and
// first sized to `size` when that is not 0; resize_on_close() sets the length the file
// gets after the view is gone, so a writer maps a generous size, writes, and cuts the
// file to what it used. An empty file gives a valid empty mapping (size 0).
//
// file_mapping_on_stream_t holds a copy of a stream's content in memory: on a read stream
// the content is read at once; on a write stream the client fills the block and close()
// (or the last release) writes it to the stream.
//
// Files are opened close-on-exec. Threads: a mapping has no lock and belongs to one
// thread at a time; its reference count is atomic.
#pragma once

#include <string>
#include <vector>

#include <quillon2/core/error_code.hpp>
#include <quillon2/core/file_system/path.hpp>
#include <quillon2/core/object_interface.hpp>
#include <quillon2/core/streams/stream.hpp>
#include <quillon2/export.hpp>

namespace quillon2 {

class QUILLON2_API file_mapping_t : public closable_t {
 public:
  virtual void* get_address() = 0;
  virtual u64_t get_size() = 0;
  virtual error_code_t resize_on_close(u64_t size) = 0;
};

// What real file mappings share: the path, the length to set at the end, and the file
// descriptor kept open for that (-1 when the mapping reads).
class QUILLON2_API file_mapping_base_t : public file_mapping_t {
 public:
  // Ok; the mapping stays usable until the last reference goes.
  error_code_t close() override;
  // Sets the length the file gets on destruction; 0 is refused.
  error_code_t resize_on_close(u64_t size) override;

 protected:
  explicit file_mapping_base_t(std::wstring path) : m_path(std::move(path)) {}
  // Sets the file length to m_size when the mapping writes and it was asked for, then
  // closes the descriptor. The derived class has unmapped the view by then.
  ~file_mapping_base_t() override;

  std::wstring m_path;
  u64_t m_size = 0;
  int m_file = -1;
};

// A memory-mapped file. Made by create_file_mapping; the constructor throws a
// std::exception whose what() says what failed.
class QUILLON2_API file_mapping_impl_t : public file_mapping_base_t {
 public:
  file_mapping_impl_t(path_t const& path, bool writable, u64_t offset, u64_t size);
  ~file_mapping_impl_t() override;

  void* get_address() override;
  u64_t get_size() override { return m_length; }

 private:
  void* m_view = nullptr;      // page-aligned start of the system mapping, or null
  u64_t m_view_length = 0;     // its length
  u64_t m_delta = 0;           // distance from the view's start to the asked offset
  u64_t m_length = 0;          // the bytes the client sees
};

// The content of a stream in memory. The constructors throw quillon2::exception.
class QUILLON2_API file_mapping_on_stream_t : public file_mapping_t {
 public:
  // Reads `size` bytes of the stream now; 0 means the rest of the stream.
  file_mapping_on_stream_t(sptr_t<read_stream_t> const& stream, u64_t size);
  // A zero-filled block of `size` bytes (not 0) that close() writes to the stream.
  file_mapping_on_stream_t(sptr_t<write_stream_t> const& stream, u64_t size);
  ~file_mapping_on_stream_t() override;

  // Writes the block to the write stream once and lets the stream go.
  error_code_t close() override;
  void* get_address() override;
  u64_t get_size() override { return m_mapping.size(); }
  // Resizes the block at once (earlier addresses may die); only before close() of a
  // mapping on a write stream.
  error_code_t resize_on_close(u64_t size) override;

 private:
  std::vector<unsigned char> m_mapping;
  sptr_t<write_stream_t> m_stream;
};

// Maps `size` bytes of the file from `offset` (size 0: up to the end). A writable
// mapping needs offset 0 and covers the whole file, set to `size` bytes first unless it
// is 0.
QUILLON2_API error_code_t create_file_mapping(sptr_t<file_mapping_t>& out, path_t const& path,
                                              bool writable, u64_t offset, u64_t size);
// A copy of the stream's content from its position: `size` bytes, or the rest when 0.
QUILLON2_API error_code_t create_mapping_on_stream(sptr_t<file_mapping_t>& out,
                                                   sptr_t<read_stream_t> const& stream,
                                                   u64_t size);
// A block of `size` bytes that is written to the stream when the mapping closes.
QUILLON2_API error_code_t create_mapping_on_stream(sptr_t<file_mapping_t>& out,
                                                   sptr_t<write_stream_t> const& stream,
                                                   u64_t size);

// Turns the file system's compression of a file or directory on or off. False when the
// file system has no such control or refuses it.
QUILLON2_API error_code_t set_volume_compression(path_t const& path, bool enable);

}  // namespace quillon2
