// Operations on files and directories named by path_t: searching by wildcard,
// copying, removing, creating, renaming, and making up names that are not taken.
//
// Every function reports by its result (a bool, a return_code_t or an empty value);
// none throws on a failed system call and none logs. The functions keep no state
// and take no locks. Recursive removal and copy never follow a symbolic link out of
// the tree they were given: a link inside it is removed or copied as a link.
// Wildcards are those of path_t::match: "?" is one character, "*" any run,
// separators included, and matching is case-sensitive.
#pragma once

#include <string>
#include <vector>

#include <quillon2/core/file_system/path.hpp>
#include <quillon2/export.hpp>

namespace quillon2 {

// The result of the functions that create a fresh directory.
enum return_code_t {
  RC_CREATED = 0,         // the directory was created
  RC_ACCESS_DENIED = 1,   // it exists and is read-only, or creating it was refused
  RC_ALREADY_EXISTS = 2,  // something of that name exists (and is usable, or no directory)
  RC_PATH_NOT_FOUND = 3,  // the file system said that the path does not exist
  RC_INVALID = 4,         // the name template is refused, or another error
  RC_FAILED = 5,          // the attempt failed without an error to go by
};

// path.match(pattern.as_string(false)): the pattern comes first.
QUILLON2_API bool match_pattern(path_t const& pattern, path_t const& path);

// Removes a file (or a symbolic link); false for a directory or a missing path.
QUILLON2_API bool remove_file(path_t const& path);
// Removes a directory; with recursive, everything in it too, going on past
// subdirectories that can't be removed (the result is then false and the directory
// stays). A symbolic link to a directory is removed itself.
QUILLON2_API bool remove_directory(path_t const& path, bool recursive);

// The entries of `directory` that match `pattern` (which is appended to the
// directory and parsed as a path) as full paths, in the order of the listing.
// Without recursive, matching directories are reported too; with recursive, files
// only, from the whole tree. Symbolic links are not descended into.
QUILLON2_API std::vector<path_t> find_files(path_t const& directory, std::wstring const& pattern,
                                            bool recursive);
// The matching directories; with recursive, a match is not descended into.
QUILLON2_API std::vector<path_t> find_directories(path_t const& directory,
                                                  std::wstring const& pattern, bool recursive);
QUILLON2_API std::vector<path_t> find_files_or_dirs(path_t const& directory,
                                                    std::wstring const& pattern, bool recursive,
                                                    bool directories_only);

// Copies a file to a new name, keeping its permission bits and modification time.
// Never overwrites: false when `to` exists.
QUILLON2_API bool copy_file(path_t const& from, path_t const& to);
// Copies a directory tree into `to` (created with all its levels). The first entry
// that can't be copied ends the copy with false; what was copied stays.
QUILLON2_API bool copy_directory(path_t const& from, path_t const& to);
// Creates a directory with every missing level above it; true if one is there (or
// anything else of that name) at the end.
QUILLON2_API bool create_directory(path_t const& path);
// Moves a directory or a file to a name that is not taken, across file systems too.
QUILLON2_API bool rename_directory(path_t const& from, path_t const& to);

// Name templates: a prefix, one run of up to eight "@", a suffix without "@". The run
// stands for a decimal number padded with zeros: "log-@@@@.txt" gives "log-0037.txt".
// A template without "@" takes the number at its end: "tmp" gives "tmp37".

// A path in `directory` whose name follows the template and that does not exist at
// the moment of the test; nothing is created. Empty for a refused template.
QUILLON2_API path_t get_unique_file_name(path_t const& directory,
                                         std::wstring const& name_template);
// Creates a directory below `parent` whose name follows the template. The name is
// taken atomically, so concurrent callers (threads or processes) never get the same
// one. `created` receives the printed path on success and is empty otherwise.
QUILLON2_API return_code_t create_unique_dir(std::wstring const& parent,
                                             std::wstring const& name_template,
                                             std::wstring& created);
// Creates a directory with all its levels, and tells what stood in the way.
QUILLON2_API return_code_t create_new_directory(std::wstring const& path);

}  // namespace quillon2
