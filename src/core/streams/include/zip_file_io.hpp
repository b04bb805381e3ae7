// The file under a ZIP archive, as minizip reaches it: our own set of file functions, so
// that the file is opened close-on-exec, only a regular file is taken (a FIFO would hang
// the open), and the writer can ask how far the file has grown.
#pragma once

#include <cstdio>
#include <string>

#include <minizip/ioapi.h>

#include <quillon2/headers/kesmet.hpp>

namespace quillon2::internal {

// What the hooks tell their owner. One object serves one archive.
struct zip_file_io_t {
  FILE* file = nullptr;  // the open file, null before the open and after the close
  int open_error = 0;    // errno of a failed open
};

// Fills `functions` with hooks that open, read, write, seek and close through stdio and
// report to `state`, which must outlive the archive handle.
void fill_zip_file_functions(zlib_filefunc64_def& functions, zip_file_io_t& state);

// The position of the stream in the file, buffered bytes included; 0 without a file.
u64_t zip_file_position(zip_file_io_t const& state);

// The file's length on disk now; 0 without a file.
u64_t zip_file_length(zip_file_io_t const& state);

// Reads `size` bytes at `offset` without moving the stream; false when fewer are there.
bool zip_file_read_at(zip_file_io_t const& state, u64_t offset, std::size_t size, std::string& out);

// Whether the file is an archive without members: only the end record (with its
// comment). minizip looks for that record everywhere but at offset 0, so it cannot
// open such a file; the reader and the appending writer handle it themselves.
bool is_empty_archive(std::string const& native);

}  // namespace quillon2::internal
