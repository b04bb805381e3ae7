// The POSIX side of the file system: probes, access trials, listings and the calls
// on single objects. Every descriptor is opened close-on-exec.
#include "core/file_system/include/file_system_os.hpp"

#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <unistd.h>

#include "core/miscellaneous/include/posix_io.hpp"

namespace quillon2::internal::fs_os {

using posix::retry_eintr;
using posix::unique_fd_t;

namespace {

create_t create_result(int error) {
  switch (error) {
    case EEXIST:
      return create_t::exists;
    case ENOENT:
      return create_t::parent_missing;
    case ENOTDIR:
      return create_t::parent_not_dir;
    case EACCES:
    case EPERM:
    case EROFS:
      return create_t::denied;
    default:
      return create_t::failed;
  }
}

}  // namespace

probe_t probe(std::string const& path) {
  if (!usable(path)) return probe_t::missing;
  struct stat st;
  if (::stat(path.c_str(), &st) == 0)
    return S_ISDIR(st.st_mode) ? probe_t::directory : probe_t::other;
  int const error = errno;
  // A name held by a link that leads nowhere is taken all the same.
  if (error == ENOENT && ::lstat(path.c_str(), &st) == 0) return probe_t::other;
  switch (error) {
    case ENOENT:
    case ENOTDIR:
    case ENAMETOOLONG:
    case EINVAL:
      return probe_t::missing;
    case EACCES:
      return probe_t::denied;
    default:
      return probe_t::unexaminable;
  }
}

bool is_link(std::string const& path) {
  struct stat st;
  return usable(path) && ::lstat(path.c_str(), &st) == 0 && S_ISLNK(st.st_mode);
}

bool can_open_for_writing(std::string const& path) {
  if (!usable(path)) return false;
  // Non-blocking so that a FIFO or a device can't hold the trial up.
  unique_fd_t fd(retry_eintr(
      [&] { return ::open(path.c_str(), O_RDWR | O_NONBLOCK | O_NOCTTY | O_CLOEXEC); }));
  return static_cast<bool>(fd);
}

create_t try_create_directory(std::string const& path) {
  if (!usable(path)) return create_t::failed;
  if (::mkdir(path.c_str(), 0700) != 0) return create_result(errno);
  ::rmdir(path.c_str());
  return create_t::created;
}

create_t try_create_file(std::string const& path) {
  if (!usable(path)) return create_t::failed;
  unique_fd_t fd(retry_eintr([&] {
    return ::open(path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
  }));
  if (!fd) return create_result(errno);
  ::unlink(path.c_str());
  return create_t::created;
}

std::uint64_t current_process_id() { return static_cast<std::uint64_t>(::getpid()); }

std::uint64_t current_thread_id() { return static_cast<std::uint64_t>(::gettid()); }

bool list_directory(std::string const& path, std::vector<dir_entry_t>& entries) {
  entries.clear();
  if (!usable(path)) return false;
  int const fd = retry_eintr(
      [&] { return ::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOCTTY | O_CLOEXEC); });
  if (fd < 0) return false;
  DIR* dir = ::fdopendir(fd);
  if (!dir) {
    ::close(fd);
    return false;
  }
  while (dirent* entry = ::readdir(dir)) {
    char const* name = entry->d_name;
    if (name[0] == '.' && (name[1] == '\0' || (name[1] == '.' && name[2] == '\0'))) continue;
    entry_kind_t kind = entry_kind_t::other;
    unsigned char type = entry->d_type;
    struct stat st;
    if (type == DT_UNKNOWN && ::fstatat(fd, name, &st, AT_SYMLINK_NOFOLLOW) == 0) {
      type = S_ISDIR(st.st_mode) ? DT_DIR : S_ISLNK(st.st_mode) ? DT_LNK : DT_REG;
    }
    if (type == DT_DIR) {
      kind = entry_kind_t::directory;
    } else if (type == DT_LNK && ::fstatat(fd, name, &st, 0) == 0 && S_ISDIR(st.st_mode)) {
      kind = entry_kind_t::link_to_directory;
    }
    entries.push_back(dir_entry_t{name, kind});
  }
  ::closedir(dir);
  return true;
}

bool remove_file(std::string const& path) { return usable(path) && ::unlink(path.c_str()) == 0; }

bool remove_empty_directory(std::string const& path) {
  if (!usable(path)) return false;
  struct stat st;
  if (::lstat(path.c_str(), &st) == 0 && S_ISLNK(st.st_mode)) return ::unlink(path.c_str()) == 0;
  return ::rmdir(path.c_str()) == 0;
}

create_t make_directory(std::string const& path) {
  if (!usable(path)) return create_t::parent_missing;
  if (::mkdir(path.c_str(), 0777) == 0) return create_t::created;
  return create_result(errno);
}

rename_t rename_no_replace(std::string const& from, std::string const& to) {
  if (!usable(from) || !usable(to)) return rename_t::failed;
  if (::renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0) {
    return rename_t::done;
  }
  int const error = errno;
  if (error == EXDEV) return rename_t::cross_device;
  if (error != EINVAL && error != ENOSYS && error != EOPNOTSUPP) return rename_t::failed;
  // The file system can't refuse replacement by itself: test, then rename.
  struct stat st;
  if (::lstat(to.c_str(), &st) == 0 || errno != ENOENT) return rename_t::failed;
  if (::rename(from.c_str(), to.c_str()) == 0) return rename_t::done;
  return errno == EXDEV ? rename_t::cross_device : rename_t::failed;
}

}  // namespace quillon2::internal::fs_os
