// Archives: named collections of streams, in a ZIP file or in a plain directory.
//
//   sptr_t<archive_writer_t> zip;
//   create_zip_writer(path, zip, false);
//   zip->create_new_stream(L"a.txt", 0); zip->write("hi", 2); zip->close();
//   zip = nullptr;                                   // the last release finishes the file
//
//   sptr_t<archive_reader_t> in;
//   create_zip_reader(path, in);
//   for (auto it = in->enum_streams(); !it.at_end(); it.next()) { ... }
//   in->open_stream(L"a.txt"); in->read(buffer, size, &got); in->close();
//
// One stream of an archive is open at a time, and the archive object is that stream:
// read, write, get_size and close work on the stream opened last. The ZIP writer cannot
// seek. ZIP member names are stored as UTF-8 and marked so; members carry no time stamp
// (they show 1980-01-01 00:00) and no attributes. The ZIP form has no 64-bit extension
// here: a member or archive that would reach 4 GiB is refused with
// error::FailedTo.Write.The.Stream before anything of it is written.
//
// A directory store keeps each stream as a file directly in its root. A stream name is a
// file name, never a path: empty names, ".", "..", and names holding a separator or a
// NUL are refused with error::IsNot.Valid.Argument. Only regular files open as streams;
// a new stream does not write through a symbolic link.
//
// Hostile ZIP files give failure codes, never a crash or a hang: truncated data, lying
// sizes and data that ends early fail the read (error::FailedTo.Read.The.Archive); a
// wrong CRC fails close() (error::FailedTo.Close.The.Archive).
//
// Files are opened close-on-exec. Threads: an archive has no lock and belongs to one
// thread at a time; two readers of one file are independent.
#pragma once

#include <string>

#include <quillon2/core/error_code.hpp>
#include <quillon2/core/file_system/path.hpp>
#include <quillon2/core/object_interface.hpp>
#include <quillon2/core/streams/stream.hpp>
#include <quillon2/export.hpp>
#include <quillon2/headers/iterator.hpp>

namespace quillon2 {

class QUILLON2_API archive_reader_t : public read_stream_t {
 public:
  // The names of the streams, in the archive's order. The iterator owns its list and
  // may outlive the archive. A ZIP name longer than 99 bytes arrives cut (a character
  // cut in two becomes U+FFFD). The walk closes a stream that was open.
  virtual generic_iterator_t<std::wstring> enum_streams() = 0;
  virtual error_code_t open_stream(std::wstring const& name) = 0;
};

class QUILLON2_API archive_writer_t : public write_stream_t {
 public:
  // `compression`: 0 the default, 1 the fastest, any other value the best. A directory
  // store ignores it.
  virtual error_code_t create_new_stream(std::wstring const& name, int compression) = 0;
};

QUILLON2_API error_code_t create_zip_reader(path_t const& path, sptr_t<archive_reader_t>& out);
// A new archive, or with `append` more members added to an existing one.
QUILLON2_API error_code_t create_zip_writer(path_t const& path, sptr_t<archive_writer_t>& out,
                                            bool append);
// A directory store to read; the directory must exist.
QUILLON2_API error_code_t create_directory_archive(path_t const& path,
                                                   sptr_t<archive_reader_t>& out);
// A directory store to write; the directory is made if missing, and its files stay.
QUILLON2_API error_code_t create_directory_archive(path_t const& path,
                                                   sptr_t<archive_writer_t>& out);

}  // namespace quillon2
