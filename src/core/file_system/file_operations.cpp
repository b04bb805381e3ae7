// File and directory operations on path_t. The decisions are made here; the system
// calls are in posix/ (see file_system_os.hpp for what that layer gives).
#include <cstdlib>
#include <iterator>

#include <quillon2/core/file_system/file_operations.hpp>
#include <quillon2/headers/kesmet.hpp>

#include "core/file_system/include/file_system_os.hpp"
#include "core/file_system/include/wildcard.hpp"

namespace quillon2 {

namespace {

namespace os = internal::fs_os;

// The name-making loops give up after this many names in a row that are taken.
// Only a template whose names can never be free (or a file system that answers
// every probe with "there") gets that far.
constexpr unsigned k_max_name_attempts = 100000;

bool exists_native(std::string const& native) { return os::probe(native) != os::probe_t::missing; }

// --- name templates ----------------------------------------------------------------

struct name_template_t {
  std::wstring prefix;
  std::wstring suffix;
  std::size_t width = 0;
};

bool parse_template(std::wstring const& text, name_template_t& out) {
  std::size_t const at = text.find(L'@');
  if (at == std::wstring::npos) {
    out.prefix = text;
    return true;
  }
  std::size_t end = text.find_first_not_of(L'@', at);
  if (end == std::wstring::npos) end = text.size();
  out.prefix = text.substr(0, at);
  out.suffix = text.substr(end);
  out.width = end - at;
  return out.suffix.find(L'@') == std::wstring::npos && out.width <= 8;
}

std::wstring generate_name(name_template_t const& t, unsigned long long n) {
  std::wstring number = std::to_wstring(n);
  if (number.size() < t.width) number.insert(0, t.width - number.size(), L'0');
  return t.prefix + number + t.suffix;
}

// The generated name in `directory`, or the empty path if the name can't be one.
path_t candidate_path(path_t const& directory, name_template_t const& t, unsigned long long n) {
  path_t const name(generate_name(t, n));
  if (name.is_empty() || name.is_absolute()) return path_t();
  path_t candidate = directory;
  candidate.append(name);
  return candidate;
}

unsigned long long first_number() { return static_cast<unsigned long long>(std::rand()); }

// --- creating levels -----------------------------------------------------------------

// Creates `path` and every missing level above it, walking up until a level is
// there and then down again. Says whether the last level was created here, was
// there already, or what went wrong.
os::create_t create_levels(path_t const& path) {
  std::vector<std::string> missing;
  path_t level = path;
  for (;;) {
    std::string native = level.native_string();
    auto const made = os::make_directory(native);
    if (made == os::create_t::created || made == os::create_t::exists) {
      if (missing.empty()) return made;
      break;
    }
    if (made != os::create_t::parent_missing && made != os::create_t::parent_not_dir) return made;
    missing.push_back(std::move(native));
    std::wstring const branch = level.get_branch();
    if (branch.empty()) return made;
    level = path_t(branch);
  }
  for (auto it = missing.rbegin(); it != missing.rend(); ++it) {
    auto const made = os::make_directory(*it);
    // A level above that someone else made in the meantime serves as well; the path
    // itself was created by this call only if this mkdir made it.
    if (std::next(it) == missing.rend()) return made;
    if (made != os::create_t::created && made != os::create_t::exists) return made;
  }
  return os::create_t::created;
}

// --- searching -------------------------------------------------------------------

// Whether a listed name can be named by a path: it must come back from the text
// conversion unchanged and parse as exactly itself, one relative component. Names
// that hold characters of the path grammar (separators, ":", "|", "<", ">", quotes)
// or start with a blank can't, and are passed over. `leaf` is the name parsed: a
// parse that took anything else than one component of the whole name leaves a
// shorter leaf, or none.
bool names_itself(std::string const& native, std::wstring const& name, path_t const& leaf) {
  return !name.empty() && leaf.get_leaf() == name &&
         KESMET_2_18::strings::utf16_to_utf8(name) == native;
}

struct search_t {
  std::wstring const& pattern;
  bool recursive;
  bool directories_only;
  std::vector<path_t> found;

  // One directory of the search; the hits of a subdirectory take the place where
  // the subdirectory was listed.
  void search(path_t const& directory) {
    struct frame_t {
      path_t directory;
      std::vector<os::dir_entry_t> entries;
      internal::wildcard_t wildcard;
      std::size_t next = 0;
    };
    std::vector<frame_t> stack;
    auto enter = [&](path_t const& dir) {
      std::vector<os::dir_entry_t> entries;
      if (!os::list_directory(dir.native_string(), entries)) return;
      path_t full = dir;
      full.append(path_t(pattern));
      stack.push_back(frame_t{dir, std::move(entries), internal::wildcard_t(full.as_string()), 0});
    };
    enter(directory);
    while (!stack.empty()) {
      frame_t& frame = stack.back();
      if (frame.next == frame.entries.size()) {
        stack.pop_back();
        continue;
      }
      os::dir_entry_t const& entry = frame.entries[frame.next++];
      std::wstring const name = KESMET_2_18::strings::utf8_to_utf16(entry.name);
      path_t const leaf(name);
      if (!names_itself(entry.name, name, leaf)) continue;
      path_t entry_path = frame.directory;
      entry_path.append(leaf);
      bool const is_directory = entry.kind != os::entry_kind_t::other;
      // Links are never descended into: they lead out of the tree or round in a loop.
      bool const descend = recursive && entry.kind == os::entry_kind_t::directory;
      if (!directories_only) {
        if (recursive && is_directory) {
          if (descend) enter(entry_path);  // `frame` may dangle from here on
          continue;
        }
        if (frame.wildcard.matches(entry_path.as_string(true))) found.push_back(entry_path);
        continue;
      }
      if (!is_directory) continue;
      if (frame.wildcard.matches(entry_path.as_string(true))) {
        found.push_back(entry_path);
      } else if (descend) {
        enter(entry_path);
      }
    }
  }
};

}  // namespace

bool match_pattern(path_t const& pattern, path_t const& path) {
  return path.match(pattern.as_string(false));
}

bool remove_file(path_t const& path) {
  if (path.is_empty()) return false;
  std::string const native = path.native_string();
  return exists_native(native) && os::remove_file(native);
}

bool remove_directory(path_t const& path, bool recursive) {
  if (path.is_empty()) return false;
  std::string const native = path.native_string();
  if (os::probe(native) != os::probe_t::directory) return false;
  return recursive ? os::remove_tree(native) : os::remove_empty_directory(native);
}

std::vector<path_t> find_files(path_t const& directory, std::wstring const& pattern,
                               bool recursive) {
  return find_files_or_dirs(directory, pattern, recursive, false);
}

std::vector<path_t> find_directories(path_t const& directory, std::wstring const& pattern,
                                     bool recursive) {
  return find_files_or_dirs(directory, pattern, recursive, true);
}

std::vector<path_t> find_files_or_dirs(path_t const& directory, std::wstring const& pattern,
                                       bool recursive, bool directories_only) {
  if (directory.is_empty() || !exists_native(directory.native_string())) return {};
  search_t search{pattern, recursive, directories_only, {}};
  search.search(directory);
  return std::move(search.found);
}

bool copy_file(path_t const& from, path_t const& to) {
  if (from.is_empty() || to.is_empty()) return false;
  std::string const source = from.native_string();
  std::string const target = to.native_string();
  auto const kind = os::probe(source);
  if (kind == os::probe_t::missing || kind == os::probe_t::directory) return false;
  if (exists_native(target)) return false;
  return os::copy_file(source, target);
}

bool copy_directory(path_t const& from, path_t const& to) {
  if (from.is_empty() || to.is_empty()) return false;
  std::string const source = from.native_string();
  if (os::probe(source) != os::probe_t::directory) return false;
  return os::copy_tree(source, to.native_string(), [&] { create_directory(to); });
}

bool create_directory(path_t const& path) {
  if (path.is_empty()) return false;
  auto const made = create_levels(path);
  return made == os::create_t::created || made == os::create_t::exists;
}

bool rename_directory(path_t const& from, path_t const& to) {
  if (from.is_empty() || to.is_empty()) return false;
  std::string const source = from.native_string();
  std::string const target = to.native_string();
  auto const kind = os::probe(source);
  if (kind == os::probe_t::missing || exists_native(target)) return false;
  switch (os::rename_no_replace(source, target)) {
    case os::rename_t::done:
      return true;
    case os::rename_t::failed:
      return false;
    case os::rename_t::cross_device:
      break;
  }
  // Another file system: copy, then remove the original. A link moves as a link. A
  // copy that could not take everything fails and takes back what it made, so that the
  // move happens whole or not at all; the removal never changes a mode to get in.
  if (os::is_link(source)) return os::copy_link(source, target) && os::remove_file(source);
  if (kind == os::probe_t::directory) {
    if (os::copy_tree(source, target, [&] { create_directory(to); }, true) &&
        exists_native(target)) {
      return os::remove_tree(source, false);
    }
    os::remove_tree(target);
    return false;
  }
  if (!os::copy_file(source, target)) return false;
  return os::remove_file(source);
}

path_t get_unique_file_name(path_t const& directory, std::wstring const& name_template) {
  name_template_t t;
  if (!parse_template(name_template, t)) return path_t();
  unsigned long long n = first_number();
  for (unsigned i = 0; i < k_max_name_attempts; ++i) {
    path_t const candidate = candidate_path(directory, t, ++n);
    if (candidate.is_empty()) return path_t();
    if (!exists_native(candidate.native_string())) return candidate;
  }
  return path_t();
}

return_code_t create_unique_dir(std::wstring const& parent, std::wstring const& name_template,
                                std::wstring& created) {
  created.clear();
  name_template_t t;
  if (!parse_template(name_template, t)) return RC_INVALID;
  path_t const base(parent);
  unsigned long long n = first_number();
  for (unsigned i = 0; i < k_max_name_attempts; ++i) {
    path_t const candidate = candidate_path(base, t, ++n);
    if (candidate.is_empty()) return RC_INVALID;
    std::wstring const text = candidate.as_string(false);
    return_code_t const rc = create_new_directory(text);
    if (rc == RC_CREATED) {
      created = text;
      return RC_CREATED;
    }
    if (rc != RC_ALREADY_EXISTS) return rc;
  }
  return RC_FAILED;
}

return_code_t create_new_directory(std::wstring const& text) {
  path_t const path(text);
  if (path.is_empty()) return RC_INVALID;
  std::string const native = path.native_string();
  switch (os::probe(native)) {
    case os::probe_t::directory: {
      bool read_only = false;
      bool failed = false;
      path_t::readonly(text, read_only, failed, 255);
      if (failed) return RC_FAILED;
      return read_only ? RC_ACCESS_DENIED : RC_ALREADY_EXISTS;
    }
    case os::probe_t::other:
      return RC_ALREADY_EXISTS;
    case os::probe_t::denied:
      return RC_ACCESS_DENIED;
    case os::probe_t::unexaminable:
      return RC_INVALID;
    case os::probe_t::missing:
      break;
  }
  // mkdir decides who gets a name: of two concurrent callers, one creates it and the
  // other finds it there.
  switch (create_levels(path)) {
    case os::create_t::created:
      return RC_CREATED;
    case os::create_t::exists:
      return exists_native(native) ? RC_ALREADY_EXISTS : RC_FAILED;
    case os::create_t::denied:
      return RC_ACCESS_DENIED;
    case os::create_t::parent_missing:
      return RC_PATH_NOT_FOUND;
    case os::create_t::parent_not_dir:
    case os::create_t::failed:
      break;
  }
  return RC_INVALID;
}

}  // namespace quillon2
