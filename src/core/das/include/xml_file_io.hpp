// File access of the XML persistence: whole-file reads under a lock, and the names of
// files. Saves go through internal::atomic_save with its lock option.
//
// Locking: readers take a shared flock on the file without waiting, writers an exclusive
// one, so that a file being read is not replaced under its readers while any number of
// readers may read at once. A conflicting lock makes the operation fail at once.
#pragma once

#include <cstddef>
#include <string>

namespace quillon2::internal {

// The name under which the operating system knows a file that a client names as text:
// UTF-8, backslashes turned into "/", the long-name prefix "\\?\" dropped. Drive and UNC
// names have no native form and give the empty string, which no file has.
std::string native_file_name(std::wstring const& name);

// Reads the whole regular file under its lock. False (with a reason for the log in
// `why`) if it cannot be opened, is not a regular file, is locked or cannot be read.
bool read_file_locked(std::string const& native_name, std::string& content, std::string& why);

// The text of an XML file's bytes as the attribute form reads it: UTF-8 or UTF-16 found
// from the bytes, the declaration cut off; empty when the declaration names another
// encoding than the bytes have.
std::string xml_file_text(std::string const& bytes);

}  // namespace quillon2::internal
