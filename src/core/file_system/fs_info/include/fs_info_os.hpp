// What the file and volume queries need of the system; posix/fs_info_os.cpp gives it.
#pragma once

#include <string>

#include <quillon2/core/file_system/fs_info.hpp>

namespace quillon2::internal::fs_info {

enum class probe_t { missing, present, denied };
// Whether anything holds the name (a dangling link included).
probe_t probe(std::string const& native_path);

// The kind of executable at `native_path`; the result is FS_INFO_OK or
// FS_INFO_ACCESS_DENIED (then `info` is 0).
fs_info_error_t executable_kind(std::string const& native_path, exec_file_info_t& info);

// The file system and drive kind of the mount that holds `native_path`.
fs_info_error_t volume_info(std::string const& native_path, fs_info_t& info);

// The mount point, file-system type ("type.subtype" for FUSE) and source of the mount that
// holds `path` (an absolute path without links), from a mountinfo text: the longest
// matching mount point, the last of equal ones. False when no line matches.
struct mount_t {
  std::string mount_point;
  std::string type;
  std::string source;
};
bool find_mount(std::string const& mountinfo, std::string const& path, mount_t& mount);

}  // namespace quillon2::internal::fs_info
