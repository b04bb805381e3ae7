// Recursive removal and copy, and the copy of one file.
//
// Both walks hold a descriptor for each directory on their way down and reach every
// entry relative to it (openat, fstatat, unlinkat, mkdirat with O_NOFOLLOW). So the
// walk never leaves the tree it was given: a symbolic link inside it is removed or
// copied as a link, and a directory that someone swaps for a link during the walk
// fails to open as a directory and is then treated as the link it has become. The
// walks are iterative; their depth is bounded by the descriptors the process may
// open, and a directory that can't be opened counts as one that can't be listed.
#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <unistd.h>

#include <functional>
#include <string>
#include <vector>

#include "core/file_system/include/file_system_os.hpp"
#include "core/miscellaneous/include/posix_io.hpp"

namespace quillon2::internal::fs_os {

using posix::retry_eintr;
using posix::unique_fd_t;

namespace {

constexpr int k_dir_flags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_NOCTTY | O_CLOEXEC;

struct name_entry_t {
  std::string name;
  unsigned char type;  // d_type, DT_UNKNOWN when the listing didn't say
};

// Reads the names of an open directory, leaving the descriptor itself open.
bool read_names(int fd, std::vector<name_entry_t>& names) {
  names.clear();
  int const copy = ::fcntl(fd, F_DUPFD_CLOEXEC, 0);
  if (copy < 0) return false;
  DIR* dir = ::fdopendir(copy);
  if (!dir) {
    ::close(copy);
    return false;
  }
  // The duplicate shares the position of the original: start from the beginning.
  ::rewinddir(dir);
  while (dirent* entry = ::readdir(dir)) {
    char const* name = entry->d_name;
    if (name[0] == '.' && (name[1] == '\0' || (name[1] == '.' && name[2] == '\0'))) continue;
    names.push_back(name_entry_t{name, entry->d_type});
  }
  ::closedir(dir);
  return true;
}

// Splits a native path into the directory that holds its last element and that
// element. "a" gives (".", "a"), "/a" gives ("/", "a").
void split_leaf(std::string const& path, std::string& parent, std::string& leaf) {
  std::size_t end = path.size();
  while (end > 1 && path[end - 1] == '/') --end;
  std::size_t const slash = path.rfind('/', end - 1);
  if (slash == std::string::npos) {
    parent = ".";
    leaf = path.substr(0, end);
  } else {
    parent = slash == 0 ? "/" : path.substr(0, slash);
    leaf = path.substr(slash + 1, end - slash - 1);
  }
}

// Opens a directory below `dir`, making it readable and searchable for its owner
// first when that is what stands in the way (with `repair`). Refuses links. On failure,
// `error` is the errno of the open that failed.
unique_fd_t open_subdirectory(int dir, std::string const& name, bool repair, int& error) {
  unique_fd_t fd(retry_eintr([&] { return ::openat(dir, name.c_str(), k_dir_flags); }));
  error = fd ? 0 : errno;
  if (!fd && error == EACCES && repair) {
    struct stat st;
    if (::fstatat(dir, name.c_str(), &st, AT_SYMLINK_NOFOLLOW) == 0 && S_ISDIR(st.st_mode) &&
        ::fchmodat(dir, name.c_str(), (st.st_mode & 07777) | S_IRWXU, AT_SYMLINK_NOFOLLOW) == 0) {
      fd.reset(retry_eintr([&] { return ::openat(dir, name.c_str(), k_dir_flags); }));
      error = fd ? 0 : errno;
    }
  }
  return fd;
}

// Removes an entry of `dir`. With `repair`, a refusal makes `dir` writable for its owner
// and tries again, which is what clearing a read-only flag amounts to here.
bool unlink_in(int dir, std::string const& name, int flags, bool repair) {
  if (::unlinkat(dir, name.c_str(), flags) == 0 || errno == ENOENT) return true;
  if (!repair || (errno != EACCES && errno != EPERM)) return false;
  struct stat st;
  if (::fstat(dir, &st) != 0 || ::fchmod(dir, (st.st_mode & 07777) | S_IWUSR | S_IXUSR) != 0) {
    return false;
  }
  return ::unlinkat(dir, name.c_str(), flags) == 0 || errno == ENOENT;
}

bool is_directory_entry(int dir, name_entry_t const& entry) {
  if (entry.type != DT_UNKNOWN) return entry.type == DT_DIR;
  struct stat st;
  return ::fstatat(dir, entry.name.c_str(), &st, AT_SYMLINK_NOFOLLOW) == 0 && S_ISDIR(st.st_mode);
}

// Copies the content of one open regular file to another: copy_file_range where
// the file systems allow it (it can share extents), plain reads and writes for the
// rest. Both go from the current offsets, so the second picks up where the first
// stopped.
bool copy_content(int from, int to) {
  bool copied_any = false;
  for (;;) {
    ssize_t const n = ::copy_file_range(from, nullptr, to, nullptr, std::size_t{1} << 30, 0);
    if (n > 0) {
      copied_any = true;
      continue;
    }
    if (n == 0 && copied_any) return true;
    if (n == 0) break;  // an empty file, or one whose size the system doesn't know
    if (errno == EINTR) continue;
    if (errno != EXDEV && errno != EINVAL && errno != ENOSYS && errno != EOPNOTSUPP &&
        errno != EBADF) {
      return false;
    }
    break;
  }
  char buffer[1 << 16];
  for (;;) {
    ssize_t const n = retry_eintr([&] { return ::read(from, buffer, sizeof buffer); });
    if (n < 0) return false;
    if (n == 0) return true;
    if (posix::write_all(to, buffer, static_cast<std::size_t>(n)) != 0) return false;
  }
}

// Copies a regular file to a new file. `from_flags` says whether a link at `from` is
// followed (O_NOFOLLOW refuses it). The target is created exclusively, so nothing
// in the way is ever replaced, and it is removed again if the copy fails.
bool copy_file_at(int from_dir, char const* from, int to_dir, char const* to, int from_flags) {
  unique_fd_t in(retry_eintr([&] {
    return ::openat(from_dir, from, O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC | from_flags);
  }));
  if (!in) return false;
  struct stat st;
  if (::fstat(in.get(), &st) != 0 || !S_ISREG(st.st_mode)) return false;
  unique_fd_t out(retry_eintr([&] {
    return ::openat(to_dir, to, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
  }));
  if (!out) return false;
  // Permission bits are kept; set-id bits are not carried to a copy.
  timespec const times[2] = {st.st_atim, st.st_mtim};
  bool const ok = copy_content(in.get(), out.get()) &&
                  ::fchmod(out.get(), st.st_mode & 0777) == 0 &&
                  ::futimens(out.get(), times) == 0 && out.close();
  if (!ok) {
    out.reset();
    ::unlinkat(to_dir, to, 0);
  }
  return ok;
}

bool copy_link_at(int from_dir, char const* from, int to_dir, char const* to) {
  std::string target(PATH_MAX, '\0');
  ssize_t const n = ::readlinkat(from_dir, from, target.data(), target.size());
  if (n < 0 || static_cast<std::size_t>(n) >= target.size()) return false;
  target.resize(static_cast<std::size_t>(n));
  return ::symlinkat(target.c_str(), to_dir, to) == 0;
}

}  // namespace

bool copy_file(std::string const& from, std::string const& to) {
  if (!usable(from) || !usable(to)) return false;
  return copy_file_at(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), 0);
}

bool copy_link(std::string const& from, std::string const& to) {
  if (!usable(from) || !usable(to)) return false;
  return copy_link_at(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str());
}

bool remove_tree(std::string const& path, bool repair) {
  if (!usable(path)) return false;
  struct stat st;
  if (::lstat(path.c_str(), &st) != 0) return false;
  // A link to a directory goes itself; what it leads to is not part of the tree.
  if (S_ISLNK(st.st_mode)) return ::unlink(path.c_str()) == 0;

  std::string parent_path;
  std::string leaf;
  split_leaf(path, parent_path, leaf);
  if (leaf.empty()) return false;  // the root directory is never removed
  // The parent is only a place to work from: searching it is all the walk needs.
  unique_fd_t parent(
      retry_eintr([&] { return ::open(parent_path.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC); }));
  if (!parent) return false;

  struct frame_t {
    unique_fd_t fd;
    std::string name;  // in the directory of the frame below
    std::vector<name_entry_t> entries;
    std::size_t next = 0;
    bool failed = false;  // a subdirectory could not be removed
  };
  std::vector<frame_t> stack;

  // Enters a directory: 0 when a frame was pushed and the walk goes on in it, 1 when
  // the directory counts as done (it can't be listed, so it is left alone, or it
  // turned out to be something else, which is then removed itself), -1 on failure.
  // Only inside the tree may modes be changed to get on.
  auto enter = [&](int dir, std::string const& name, bool inside) {
    frame_t frame;
    int error = 0;
    frame.fd = open_subdirectory(dir, name, inside && repair, error);
    if (!frame.fd) {
      if (error != ELOOP && error != ENOTDIR) return 1;
      bool const gone =
          inside ? unlink_in(dir, name, 0, repair) : ::unlinkat(dir, name.c_str(), 0) == 0;
      return gone ? 1 : -1;
    }
    if (!read_names(frame.fd.get(), frame.entries)) return 1;
    frame.name = name;
    stack.push_back(std::move(frame));
    return 0;
  };

  int const top = enter(parent.get(), leaf, false);
  if (top != 0) return top > 0;

  bool result = false;
  while (!stack.empty()) {
    frame_t& frame = stack.back();
    int outcome = 0;
    if (frame.next < frame.entries.size()) {
      name_entry_t const& entry = frame.entries[frame.next++];
      if (is_directory_entry(frame.fd.get(), entry)) {
        outcome = enter(frame.fd.get(), entry.name, true);
        if (outcome < 0) frame.failed = true;
        continue;  // `frame` may dangle after enter() grew the stack
      }
      if (unlink_in(frame.fd.get(), entry.name, 0, repair)) continue;
      outcome = -1;  // a file that can't be removed ends this directory at once
    }
    // The frame is finished: remove its directory from the one below.
    bool removed = false;
    if (outcome == 0 && !frame.failed) {
      frame.fd.reset();
      int const below = stack.size() > 1 ? stack[stack.size() - 2].fd.get() : parent.get();
      removed = stack.size() > 1 ? unlink_in(below, frame.name, AT_REMOVEDIR, repair)
                                 : ::unlinkat(below, frame.name.c_str(), AT_REMOVEDIR) == 0;
    }
    stack.pop_back();
    if (stack.empty()) {
      result = removed;
    } else if (!removed) {
      stack.back().failed = true;
    }
  }
  return result;
}

bool copy_tree(std::string const& from, std::string const& to,
               std::function<void()> const& make_target, bool whole) {
  if (!usable(from) || !usable(to)) return false;
  struct frame_t {
    unique_fd_t from;
    unique_fd_t to;  // empty when the target directory could not be opened
    std::vector<name_entry_t> entries;
    std::size_t next = 0;
  };
  std::vector<frame_t> stack;

  // The top is followed if it is a link: the caller chose it.
  frame_t top;
  top.from.reset(retry_eintr(
      [&] { return ::open(from.c_str(), O_RDONLY | O_DIRECTORY | O_NOCTTY | O_CLOEXEC); }));
  if (!top.from || !read_names(top.from.get(), top.entries)) return !whole;
  make_target();
  top.to.reset(retry_eintr(
      [&] { return ::open(to.c_str(), O_RDONLY | O_DIRECTORY | O_NOCTTY | O_CLOEXEC); }));
  // The target's identity, so that a target inside the source isn't copied into itself.
  struct stat target_st {};
  bool const have_target = top.to && ::fstat(top.to.get(), &target_st) == 0;
  stack.push_back(std::move(top));

  while (!stack.empty()) {
    frame_t& frame = stack.back();
    if (frame.next == frame.entries.size()) {
      stack.pop_back();
      continue;
    }
    std::string const& name = frame.entries[frame.next++].name;
    struct stat st;
    if (::fstatat(frame.from.get(), name.c_str(), &st, AT_SYMLINK_NOFOLLOW) != 0) return false;
    if (S_ISDIR(st.st_mode)) {
      if (have_target && st.st_dev == target_st.st_dev && st.st_ino == target_st.st_ino) continue;
      frame_t child;
      int error = 0;
      child.from = open_subdirectory(frame.from.get(), name, false, error);
      if (!child.from) {
        if (whole || error == ELOOP || error == ENOTDIR) return false;  // swapped during the walk
        continue;  // can't be listed: nothing to do, nothing created
      }
      if (!read_names(child.from.get(), child.entries)) {
        if (whole) return false;
        continue;
      }
      if (!frame.to) return false;
      if (::mkdirat(frame.to.get(), name.c_str(), 0777) != 0 && errno != EEXIST) {
        // The target stays missing; it only matters if there is something to put in it.
        if (!child.entries.empty()) return false;
        continue;
      }
      child.to = open_subdirectory(frame.to.get(), name, false, error);
      if (!child.to && !child.entries.empty()) return false;
      stack.push_back(std::move(child));
      continue;
    }
    if (!frame.to) return false;
    bool const copied =
        S_ISLNK(st.st_mode)
            ? copy_link_at(frame.from.get(), name.c_str(), frame.to.get(), name.c_str())
            : copy_file_at(frame.from.get(), name.c_str(), frame.to.get(), name.c_str(),
                           O_NOFOLLOW);
    if (!copied) return false;
  }
  return true;
}

}  // namespace quillon2::internal::fs_os
