// File and volume queries on Linux: the ELF header and program headers read with pread and
// checked against the file's size, statfs magic numbers, /proc/self/mountinfo and the block
// devices' removable flag in /sys.
//
// Files are opened non-blocking and must be regular, so a FIFO never waits for a writer and
// a device never streams; every offset a header gives is checked before it is read.
#include <elf.h>
#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <sys/statfs.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <mutex>
#include <string>
#include <vector>

#include "core/file_system/fs_info/include/fs_info_os.hpp"
#include "core/miscellaneous/include/posix_io.hpp"

namespace quillon2::internal::fs_info {

namespace {

// statfs magic numbers (linux/magic.h and the drivers).
constexpr unsigned long k_msdos = 0x4d44;
constexpr unsigned long k_ntfs = 0x5346544e;  // ntfs and ntfs3
constexpr unsigned long k_fuse = 0x65735546;
constexpr unsigned long k_nfs = 0x6969;
constexpr unsigned long k_smb = 0x517b;
constexpr unsigned long k_cifs = 0xff534d42;
constexpr unsigned long k_smb2 = 0xfe534d42;
constexpr unsigned long k_v9fs = 0x01021997;
constexpr unsigned long k_afs = 0x5346414f;
constexpr unsigned long k_ceph = 0x00c36400;
constexpr unsigned long k_iso9660 = 0x9660;
constexpr unsigned long k_udf = 0x15013346;

#if defined(__x86_64__)
constexpr unsigned k_machine = EM_X86_64;
constexpr unsigned char k_class = ELFCLASS64;
#elif defined(__aarch64__)
constexpr unsigned k_machine = EM_AARCH64;
constexpr unsigned char k_class = ELFCLASS64;
#elif defined(__i386__)
constexpr unsigned k_machine = EM_386;
constexpr unsigned char k_class = ELFCLASS32;
#else
#error "add the ELF machine of this architecture"
#endif

bool read_exact(int fd, void* buffer, std::size_t size, std::uint64_t offset) {
  auto* p = static_cast<char*>(buffer);
  while (size > 0) {
    ssize_t const n = posix::retry_eintr(
        [&] { return ::pread(fd, p, size, static_cast<off_t>(offset)); });
    if (n <= 0) return false;
    p += n;
    size -= static_cast<std::size_t>(n);
    offset += static_cast<std::uint64_t>(n);
  }
  return true;
}

// Whether a native ELF file is a program: ET_EXEC, or ET_DYN with a PT_INTERP header.
template <class Ehdr, class Phdr>
bool is_program(int fd, std::uint64_t file_size) {
  Ehdr header;
  if (!read_exact(fd, &header, sizeof header, 0)) return false;
  if (header.e_machine != k_machine) return false;
  if (header.e_type == ET_EXEC) return true;
  if (header.e_type != ET_DYN) return false;
  if (header.e_phentsize < sizeof(Phdr) || header.e_phnum == 0 || header.e_phnum == PN_XNUM)
    return false;
  std::uint64_t const table_end =
      static_cast<std::uint64_t>(header.e_phoff) +
      static_cast<std::uint64_t>(header.e_phnum) * header.e_phentsize;
  if (header.e_phoff == 0 || table_end > file_size || table_end < header.e_phoff) return false;
  for (unsigned i = 0; i < header.e_phnum; ++i) {
    Phdr entry;
    if (!read_exact(fd, &entry, sizeof entry,
                    static_cast<std::uint64_t>(header.e_phoff) + std::uint64_t{i} * header.e_phentsize))
      return false;
    if (entry.p_type == PT_INTERP) return true;
  }
  return false;
}

std::string unescape_octal(std::string const& text) {
  std::string out;
  out.reserve(text.size());
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '\\' && i + 3 < text.size() &&
        text[i + 1] >= '0' && text[i + 1] <= '3' && text[i + 2] >= '0' && text[i + 2] <= '7' &&
        text[i + 3] >= '0' && text[i + 3] <= '7') {
      out += static_cast<char>((text[i + 1] - '0') * 64 + (text[i + 2] - '0') * 8 + (text[i + 3] - '0'));
      i += 3;
    } else {
      out += text[i];
    }
  }
  return out;
}

// Whether `mount_point` holds `path`, component by component.
bool holds(std::string const& mount_point, std::string const& path) {
  if (mount_point == "/") return true;
  return path.compare(0, mount_point.size(), mount_point) == 0 &&
         (path.size() == mount_point.size() || path[mount_point.size()] == '/');
}

bool read_text(char const* path, std::string& text) {
  posix::unique_fd_t fd(posix::retry_eintr([&] { return ::open(path, O_RDONLY | O_CLOEXEC); }));
  text.clear();
  return fd && posix::read_all(fd.get(), text) == 0;
}

bool starts_with(std::string const& text, char const* prefix) {
  return text.compare(0, std::strlen(prefix), prefix) == 0;
}

// "ntfs", "ntfs-3g" and the like, as the subtype of a FUSE mount.
bool fuse_ntfs(std::string const& type) {
  std::size_t const dot = type.find('.');
  return (starts_with(type, "fuse.") || starts_with(type, "fuseblk.")) &&
         type.compare(dot + 1, 4, "ntfs") == 0;
}

bool remote_fuse(std::string const& type) {
  return type == "fuse.sshfs" || type == "fuse.rclone" || type == "fuse.s3fs";
}

// For a block device: removable as the disk says (a partition asks its disk).
drive_kind_t read_block_drive_kind(dev_t device) {
  std::string const base =
      "/sys/dev/block/" + std::to_string(major(device)) + ":" + std::to_string(minor(device));
  struct stat st;
  if (::stat(base.c_str(), &st) != 0) return DRIVE_KIND_UNKNOWN;
  std::string flag;
  if (!read_text((base + "/removable").c_str(), flag) &&
      !read_text((base + "/../removable").c_str(), flag))
    return DRIVE_KIND_FIXED;
  return !flag.empty() && flag[0] == '1' ? DRIVE_KIND_REMOVABLE : DRIVE_KIND_FIXED;
}

// The answers of /sys are kept for a second: a device number can be given to another
// device when one is unplugged, but not that fast, and asking /sys costs several opens.
drive_kind_t block_drive_kind(dev_t device) {
  struct cached_t {
    dev_t device;
    drive_kind_t kind;
    std::chrono::steady_clock::time_point until;
  };
  static std::mutex lock;
  static std::vector<cached_t> cache;
  auto const now = std::chrono::steady_clock::now();
  {
    std::lock_guard<std::mutex> guard(lock);
    for (auto const& c : cache)
      if (c.device == device && now < c.until) return c.kind;
  }
  drive_kind_t const kind = read_block_drive_kind(device);
  std::lock_guard<std::mutex> guard(lock);
  cache.erase(std::remove_if(cache.begin(), cache.end(),
                             [&](cached_t const& c) { return c.device == device || !(now < c.until); }),
              cache.end());
  cache.push_back({device, kind, now + std::chrono::seconds(1)});
  return kind;
}

}  // namespace

probe_t probe(std::string const& native_path) {
  struct stat st;
  if (::stat(native_path.c_str(), &st) == 0) return probe_t::present;
  int const error = errno;
  if (::lstat(native_path.c_str(), &st) == 0) return probe_t::present;  // a dangling link
  if (error == EACCES) return probe_t::denied;
  return error == ENOENT || error == ENOTDIR || error == ENAMETOOLONG || error == EINVAL || error == ELOOP
             ? probe_t::missing
             : probe_t::denied;
}

fs_info_error_t executable_kind(std::string const& native_path, exec_file_info_t& info) {
  posix::unique_fd_t fd(posix::retry_eintr([&] {
    return ::open(native_path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
  }));
  if (!fd) {
    if (errno == EACCES || errno == EPERM) {
      info = EXEC_UNKNOWN;
      return FS_INFO_ACCESS_DENIED;
    }
    info = EXEC_NOT_EXECUTABLE;
    return FS_INFO_OK;
  }
  info = EXEC_NOT_EXECUTABLE;
  struct stat st;
  if (::fstat(fd.get(), &st) != 0 || !S_ISREG(st.st_mode)) return FS_INFO_OK;
  unsigned char ident[EI_NIDENT] = {};
  std::uint64_t const size = static_cast<std::uint64_t>(st.st_size);
  if (size < 2 || !read_exact(fd.get(), ident, size < sizeof ident ? 2 : sizeof ident, 0))
    return FS_INFO_OK;
  exec_file_info_t kind = EXEC_NOT_EXECUTABLE;
  if (ident[0] == '#' && ident[1] == '!') {
    kind = static_cast<exec_file_info_t>(EXEC_SCRIPT | EXEC_CONSOLE | EXEC_RUNNABLE);
  } else if (size >= sizeof ident && std::memcmp(ident, ELFMAG, SELFMAG) == 0 &&
             ident[EI_CLASS] == k_class && ident[EI_DATA] == ELFDATA2LSB) {
    bool const program = k_class == ELFCLASS64 ? is_program<Elf64_Ehdr, Elf64_Phdr>(fd.get(), size)
                                               : is_program<Elf32_Ehdr, Elf32_Phdr>(fd.get(), size);
    if (program) kind = static_cast<exec_file_info_t>(EXEC_IMAGE | EXEC_CONSOLE | EXEC_RUNNABLE);
  }
  // Whether the system would run it for this caller.
  if (kind != EXEC_NOT_EXECUTABLE && (st.st_mode & 0111) != 0 &&
      ::faccessat(AT_FDCWD, native_path.c_str(), X_OK, AT_EACCESS) == 0)
    info = kind;
  return FS_INFO_OK;
}

bool find_mount(std::string const& mountinfo, std::string const& path, mount_t& mount) {
  bool found = false;
  std::size_t at = 0;
  while (at < mountinfo.size()) {
    std::size_t end = mountinfo.find('\n', at);
    if (end == std::string::npos) end = mountinfo.size();
    std::string const line = mountinfo.substr(at, end - at);
    at = end + 1;
    // id parent major:minor root mount-point options [optional...] - type source super
    std::vector<std::string> fields;
    for (std::size_t p = 0; p < line.size();) {
      std::size_t const q = line.find(' ', p);
      fields.push_back(line.substr(p, q == std::string::npos ? std::string::npos : q - p));
      if (q == std::string::npos) break;
      p = q + 1;
    }
    if (fields.size() < 7) continue;
    std::size_t dash = 6;
    while (dash < fields.size() && fields[dash] != "-") ++dash;
    if (dash + 2 >= fields.size()) continue;
    std::string const point = unescape_octal(fields[4]);
    if (!holds(point, path)) continue;
    // Longer wins; of equal ones the later line, which was mounted over the earlier.
    if (found && point.size() < mount.mount_point.size()) continue;
    mount.mount_point = point;
    mount.type = unescape_octal(fields[dash + 1]);
    mount.source = unescape_octal(fields[dash + 2]);
    found = true;
  }
  return found;
}

fs_info_error_t volume_info(std::string const& native_path, fs_info_t& info) {
  struct statfs fs;
  struct stat st;
  if (::statfs(native_path.c_str(), &fs) != 0 || ::stat(native_path.c_str(), &st) != 0)
    return errno == EACCES ? FS_INFO_ACCESS_DENIED : FS_INFO_FAILED;
  auto const magic = static_cast<unsigned long>(fs.f_type) & 0xFFFFFFFFul;

  mount_t mount;
  std::string mountinfo;
  char resolved[PATH_MAX];
  if (magic == k_fuse && ::realpath(native_path.c_str(), resolved) != nullptr &&
      read_text("/proc/self/mountinfo", mountinfo))
    find_mount(mountinfo, resolved, mount);

  if (magic == k_nfs || magic == k_smb || magic == k_cifs || magic == k_smb2 || magic == k_v9fs ||
      magic == k_afs || magic == k_ceph || remote_fuse(mount.type)) {
    info.drive_kind = DRIVE_KIND_REMOTE;
  } else if (magic == k_iso9660 || magic == k_udf) {
    info.drive_kind = DRIVE_KIND_OPTICAL;
  } else if (major(st.st_dev) != 0) {
    info.drive_kind = block_drive_kind(st.st_dev);
  }

  if (magic == k_msdos)
    info.file_system = FS_TYPE_FAT;
  else if (magic == k_ntfs || fuse_ntfs(mount.type))
    info.file_system = FS_TYPE_NTFS;
  else
    info.file_system = FS_TYPE_OTHER;
  return FS_INFO_OK;
}

}  // namespace quillon2::internal::fs_info
