// Replacing a file's bytes in one step, for clients that write files of their own: the
// same save the library's own files go through. The bytes go to a new file in the target's
// directory, which is flushed to disk and renamed over the target, keeping its mode; through
// a symbolic link the file it leads to is replaced. A failed save leaves the old file as it
// was. A save replaces the file, so other hard links to it keep the old content.
#pragma once

#include <string>
#include <string_view>

#include <quillon2/export.hpp>

namespace quillon2 {

class path_t;

// True when `path` now holds `bytes`; on failure `why` (when given) says why.
QUILLON2_API bool save_file_atomically(path_t const& path, std::string_view bytes,
                                       std::string* why = nullptr);

// The library's version, "major.minor.patch".
QUILLON2_API char const* library_version();

}  // namespace quillon2
