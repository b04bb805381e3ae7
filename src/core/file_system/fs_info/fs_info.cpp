// The common checks of the two file queries; the system's answers come from posix/.
#include <quillon2/core/file_system/fs_info.hpp>

#include <quillon2/core/file_system/path.hpp>

#include "core/file_system/fs_info/include/fs_info_os.hpp"

namespace quillon2 {

namespace {

// Not absolute: 2; empty or missing: 3; drive and UNC paths have no native form and are
// missing. Sets `native` when the path can be asked about.
fs_info_error_t check_path(path_t const& path, std::string& native) {
  if (!path.is_absolute()) return FS_INFO_BAD_PATH;
  if (path.as_string(true).empty()) return FS_INFO_BAD_PATH;
  native = path.native_string();
  if (native.empty()) return FS_INFO_NOT_FOUND;
  switch (internal::fs_info::probe(native)) {
    case internal::fs_info::probe_t::missing:
      return FS_INFO_NOT_FOUND;
    case internal::fs_info::probe_t::denied:
      return FS_INFO_ACCESS_DENIED;
    case internal::fs_info::probe_t::present:
      break;
  }
  return FS_INFO_OK;
}

}  // namespace

fs_info_error_t get_executable_file_info(path_t const& path, exec_file_info_t& info) {
  info = EXEC_UNKNOWN;
  std::string native;
  fs_info_error_t const checked = check_path(path, native);
  if (checked != FS_INFO_OK) return checked;
  return internal::fs_info::executable_kind(native, info);
}

fs_info_error_t get_filesystem_info(path_t const& path, fs_info_t& info) {
  info = fs_info_t();
  std::string native;
  fs_info_error_t const checked = check_path(path, native);
  if (checked != FS_INFO_OK) return checked;
  return internal::fs_info::volume_info(native, info);
}

}  // namespace quillon2
