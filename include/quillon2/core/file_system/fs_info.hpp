// What kind of executable a file is, and what file system and kind of drive a path lies on.
//
// Executables are told by their first bytes: "#!" is a script; an ELF file of this machine's
// architecture is an image when it is a program (a fixed-address executable, or a position-
// independent one with a program interpreter), and only when its execute permission lets the
// caller run it. Shared libraries, object files, foreign architectures, and files that are
// not regular (directories, FIFOs, devices) are not executables. Linux can't tell a console
// program from a graphical one: images are console images.
//
// File systems: FAT (vfat, msdos), NTFS (the kernel's drivers, or FUSE's ntfs), everything
// else "other". Drive kinds: remote (NFS, SMB/CIFS, 9p, sshfs), optical (ISO 9660, UDF),
// removable (as the block device says), fixed (other block devices), unknown for the rest
// (tmpfs, proc, overlay). Drive and UNC paths have no native form and answer as missing.
#pragma once

#include <cstdint>

#include <quillon2/export.hpp>

namespace quillon2 {

class path_t;

enum fs_info_error_t : std::uint32_t {
  FS_INFO_OK = 0,
  FS_INFO_FAILED = 1,         // a system query failed
  FS_INFO_BAD_PATH = 2,       // not absolute, or no usable root
  FS_INFO_NOT_FOUND = 3,      // empty or missing
  FS_INFO_ACCESS_DENIED = 5,  // the system refused access
};

enum exec_file_info_t : std::uint32_t {
  EXEC_UNKNOWN = 0,
  EXEC_NOT_EXECUTABLE = 1,
  EXEC_RUNNABLE = 0x2,
  EXEC_CONSOLE = 0x10,
  EXEC_GUI = 0x20,
  EXEC_SCRIPT = 0x100,
  EXEC_IMAGE = 0x200,
};

enum fs_type_t : std::uint32_t { FS_TYPE_UNKNOWN = 0, FS_TYPE_FAT = 1, FS_TYPE_NTFS = 2, FS_TYPE_OTHER = 6 };

enum drive_kind_t : std::uint32_t {
  DRIVE_KIND_UNKNOWN = 0,
  DRIVE_KIND_FIXED = 1,
  DRIVE_KIND_REMOVABLE = 2,
  DRIVE_KIND_REMOTE = 3,
  DRIVE_KIND_OPTICAL = 4,
};

struct fs_info_t {
  fs_type_t file_system = FS_TYPE_UNKNOWN;
  drive_kind_t drive_kind = DRIVE_KIND_UNKNOWN;
};

// 0x112 for a script, 0x212 for an image, 1 for anything else; 0 with an error result.
QUILLON2_API fs_info_error_t get_executable_file_info(path_t const& path, exec_file_info_t& info);
QUILLON2_API fs_info_error_t get_filesystem_info(path_t const& path, fs_info_t& info);

}  // namespace quillon2
