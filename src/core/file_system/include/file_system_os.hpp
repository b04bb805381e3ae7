// What the platform layer of the file system gives the portable code.
//
// The portable files (path, file operations, file content) decide what to do; the
// functions declared here do it with the operating system's own calls, and live in
// posix/. Every path argument is the native spelling made by path_t::native_string()
// (UTF-8, "/" separators); an empty path is a missing file. None of these functions
// throws on a failed system call or logs: results say what happened.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace quillon2::internal::fs_os {

// Whether a native path can be handed to the system at all: empty text names nothing,
// and a NUL inside would silently cut the name short.
inline bool usable(std::string const& path) {
  return !path.empty() && path.find('\0') == std::string::npos;
}

// What a stat of a path (following links) found.
enum class probe_t {
  missing,       // the system said that nothing is there
  directory,     // a directory
  other,         // a file, or anything else that is no directory
  denied,        // something may be there, but access to it was refused
  unexaminable,  // something is there, but the system could not describe it
};
probe_t probe(std::string const& path);

// The outcome of an attempt to create something.
enum class create_t {
  created,         // it was made
  exists,          // something of that name is in the way
  parent_missing,  // a parent directory is missing
  parent_not_dir,  // a parent is no directory
  denied,          // refused for lack of rights or on a read-only medium
  failed,          // any other error
};

// --- access trials ---------------------------------------------------------------
// Whether an existing file can be opened for reading and writing.
bool can_open_for_writing(std::string const& path);
// Creates and at once removes a directory / a file of the given name.
create_t try_create_directory(std::string const& path);
create_t try_create_file(std::string const& path);
std::uint64_t current_process_id();
std::uint64_t current_thread_id();

// --- listings --------------------------------------------------------------------
enum class entry_kind_t {
  directory,          // a directory
  link_to_directory,  // a symbolic link that leads to a directory
  other,              // everything else: files, links to files, broken links
};
struct dir_entry_t {
  std::string name;  // as the system gave it, without "." and ".."
  entry_kind_t kind;
};
// The entries of a directory in the order of the listing; false if it can't be read.
bool list_directory(std::string const& path, std::vector<dir_entry_t>& entries);

// --- single objects --------------------------------------------------------------
bool remove_file(std::string const& path);
// Removes an empty directory; a symbolic link to a directory is removed itself.
bool remove_empty_directory(std::string const& path);
// Creates one directory level.
create_t make_directory(std::string const& path);
// Copies a file's content, mode and modification time to a new file; never
// replaces anything that exists at `to`, and removes its partial output on failure.
bool copy_file(std::string const& from, std::string const& to);

// The outcome of rename_no_replace.
enum class rename_t { done, cross_device, failed };
// Renames without ever replacing an existing target.
rename_t rename_no_replace(std::string const& from, std::string const& to);

// --- trees -----------------------------------------------------------------------
// Both walks use descriptors (openat, unlinkat, fstatat with O_NOFOLLOW): a symbolic
// link inside the tree is removed or copied as a link and never followed, even when
// a directory is swapped for a link during the walk.

// Removes a directory with everything in it. Failure inside a subdirectory is
// remembered and the walk goes on with the siblings; a file that can't be removed
// ends the walk of its own directory. With `repair`, read-only directories are made
// writable on the way; without, nothing's permissions change. True when the whole tree
// went; a top that can't be listed gives true and is left alone.
bool remove_tree(std::string const& path, bool repair = true);
// Copies a directory's content into `to`. Once `from` could be listed, make_target
// is called to create `to`. A directory that can't be listed is passed over (a `from`
// that can't be listed gives true and nothing is done), unless `whole` asks for all of
// the tree: then it fails the copy. The first entry that can't be copied ends the walk
// with false; what was copied stays. Existing files are never replaced, and a `to`
// inside `from` is not copied into itself.
bool copy_tree(std::string const& from, std::string const& to,
               std::function<void()> const& make_target, bool whole = false);
// Makes `to` a symbolic link with the same content as the link `from`.
bool copy_link(std::string const& from, std::string const& to);
// Whether `path` itself is a symbolic link.
bool is_link(std::string const& path);

// --- whole files -----------------------------------------------------------------
// Reads up to max_bytes bytes from the start of a file (0: the whole file). Only regular
// files and character devices are read; a FIFO, a socket or a directory fails at once.
bool read_file(std::string const& path, std::uint64_t max_bytes, std::string& bytes);

// The directory part of a native path: "." when it has none, "/" for the root.
std::string directory_of(std::string const& path);

// Follows symbolic links from `path` to the name that a save should replace, in place;
// a dangling link leads to the missing file it names. False when the links go on for
// more steps than the kernel follows, or one cannot be read.
bool resolve_links(std::string& path);

}  // namespace quillon2::internal::fs_os
