// The library's one way of replacing a file's content: every save goes through here.
//
// The bytes go to a new file in the target's directory (created with O_EXCL), which is
// synced and renamed over the target; the directory is synced after the rename. The new
// file keeps the target's mode, and its owner where permitted. Through a symbolic link,
// the file it leads to is replaced and the link stays. There is no in-place fallback: when
// the temporary file can't be made, the save fails and the old file stays as it was.
// A save replaces the file, so other hard links to it keep the old content.
//
// Targets that are not regular files: a character device (a terminal, /dev/null) is
// written to in place, since it holds no content to lose and can't be renamed over;
// anything else (a directory, a FIFO, a socket, a block device) makes the save fail.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace quillon2::internal {

struct save_result_t {
  bool ok = false;
  int error = 0;    // the errno that made the save fail, 0 when none applies
  std::string why;  // a short reason for the log, empty on success
  explicit operator bool() const { return ok; }
};

struct save_options_t {
  // Takes an exclusive flock on the existing target without waiting (a holder makes the
  // save fail), and refuses a target that can't be opened for writing.
  bool lock = false;
};

// Replaces the file at `native_path` (the native form of a path) by `bytes`.
save_result_t atomic_save(std::string const& native_path, std::string_view bytes,
                          save_options_t const& options = {});

}  // namespace quillon2::internal
