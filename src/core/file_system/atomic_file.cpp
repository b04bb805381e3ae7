// The public face of the library's one atomic save, and its version.
#include <quillon2/core/file_system/atomic_file.hpp>

#include <quillon2/core/file_system/path.hpp>

#include "core/file_system/include/atomic_save.hpp"

extern "C" char const* quillon2_version();

namespace quillon2 {

bool save_file_atomically(path_t const& path, std::string_view bytes, std::string* why) {
  std::string const native = path.native_string();
  if (native.empty()) {
    if (why != nullptr) *why = "the path has no native form";
    return false;
  }
  internal::save_result_t const result = internal::atomic_save(native, bytes);
  if (!result.ok && why != nullptr) *why = result.why;
  return result.ok;
}

char const* library_version() { return quillon2_version(); }

}  // namespace quillon2
