// Whole text files: find out how a file is encoded, read it into a string, write a
// string in a chosen encoding, and read or write an XML text with its declaration.
//
// All text passes through UTF-8 inside. Files are UTF-8 without a mark, UTF-16 with
// the mark FF FE (either byte order is read), or the local 8-bit encoding (the
// codeset of the current locale; ISO-8859-1 under the C locale). Nothing here throws
// on a failed system call or logs: a file that can't be opened gives CP_UNKNOWN, an
// empty string or false. A write replaces the file whole or not at all.
#pragma once

#include <string>

#include <quillon2/core/file_system/path.hpp>
#include <quillon2/export.hpp>
#include <quillon2/headers/kesmet.hpp>

namespace quillon2 {

// What a text file holds.
enum code_page_t {
  CP_UNKNOWN = 0,  // the file could not be opened; only get_file_cp gives it
  CP_UTF8 = 1,     // UTF-8
  CP_UTF16 = 2,    // UTF-16: little-endian when written, either byte order when read
  CP_LOCAL = 3,    // the local 8-bit encoding; also the verdict for an empty file
};

// Looks at the first max_bytes bytes (0: all of them): a UTF-16 mark, a UTF-8 mark,
// or a scan for valid UTF-8. A single byte counts as UTF-8.
QUILLON2_API code_page_t get_file_cp(path_t const& path, u64_t max_bytes = 0);
// The first max_bytes bytes (0: all) read in the encoding given, without a mark.
QUILLON2_API std::wstring get_file_content(code_page_t cp, path_t const& path, u64_t max_bytes = 0);
// Writes the text in the encoding given: UTF-8 without a mark, UTF-16 with FF FE.
QUILLON2_API bool set_file_content(std::wstring const& text, code_page_t cp, path_t const& path);

// The document's text in UTF-8 without its declaration. Empty when the declaration
// doesn't name the encoding that the file has, and for files in the local encoding.
QUILLON2_API KESMET_2_18::strings::ustring8 get_xml_file_content(path_t const& path);
// Writes the declaration of cp (CP_UTF8 or CP_UTF16) and the text, which must not
// hold a declaration of its own.
QUILLON2_API bool set_xml_file_content(KESMET_2_18::strings::ustring8 const& text, code_page_t cp,
                                       path_t const& path);

}  // namespace quillon2
