// File access of the XML persistence: whole-file reads under a lock, and saves that
// replace the target atomically.
//
// Locking: readers and writers take an exclusive flock on the file without waiting, so
// that a file being written is not read half-done and a file being read is not replaced
// under the reader. A lock held by someone else makes the operation fail at once.
//
// Saving writes a temporary file beside the target, flushes it to disk and renames it
// over the target, keeping the target's permission bits (through a symbolic link, the file
// it points to is replaced). A failed or interrupted save leaves the old file as it was.
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

// One atomic replacement of a file. open() locks the target (when it exists) and creates
// the temporary file; the caller writes to fd(); commit() makes the new content the
// target's. Destroyed without a successful commit, it removes the temporary file and
// leaves the target untouched.
class atomic_file_writer_t {
 public:
  atomic_file_writer_t() = default;
  atomic_file_writer_t(atomic_file_writer_t const&) = delete;
  atomic_file_writer_t& operator=(atomic_file_writer_t const&) = delete;
  ~atomic_file_writer_t();

  bool open(std::string const& native_name);
  int fd() const { return m_fd; }
  // Writes all of `size` bytes to the temporary file.
  bool write(char const* data, std::size_t size);
  bool commit();
  std::string const& why() const { return m_why; }

 private:
  void abandon();

  std::string m_target;
  std::string m_temp;
  int m_fd = -1;
  int m_lock_fd = -1;
  std::string m_why;
};

}  // namespace quillon2::internal
