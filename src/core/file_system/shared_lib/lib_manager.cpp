// lib_manager_t: finding, parsing, choosing and loading versioned libraries.
//
// The choice of one file per name follows a fixed rule whose quirks are kept on purpose,
// since callers depend on them: candidates are sorted by file name in descending order of
// their code units (text order, so `a_9.so` comes before `a_10.so`), and each is tested
// against the last kept file of the same name, major, then minor, then build number, which
// is no full ordering. Candidates then lose against loaded libraries that are newer or
// equal, compared with the first loaded library of that name only.
#include <quillon2/core/file_system/lib_manager.hpp>

#include <sys/stat.h>

#include <algorithm>
#include <string>
#include <vector>

#include <boost/regex.hpp>

#include <quillon2/core/file_system/path.hpp>
#include <quillon2/core/file_system/shared_lib.hpp>
#include <quillon2/headers/kesmet.hpp>

#include "core/file_system/include/file_system_os.hpp"

namespace quillon2 {

library_t::~library_t() = default;

namespace {

class library_imp_t : public library_t {
 public:
  library_imp_t(std::wstring file_name, library_info_t info, bool parsed)
      : m_file_name(std::move(file_name)), m_info(std::move(info)), m_parsed(parsed) {}
  library_imp_t(library_imp_t const&) = default;
  library_imp_t& operator=(library_imp_t const&) = default;
  ~library_imp_t() override {
    if (m_loaded) m_library.uninitialize();
  }

  bool load(path_t const& path) {
    m_loaded = m_library.initialize(path.get_leaf(), path_t(path.get_branch()));
    return m_loaded;
  }
  void* get_symbol(wchar_t const* name) override {
    return m_loaded && name != nullptr ? m_library.get_symbol(name) : nullptr;
  }

  std::wstring const& file_name() const { return m_file_name; }
  // The parsed form of the file name, kept from the time it was loaded.
  library_info_t const* info() const { return m_parsed ? &m_info : nullptr; }

 private:
  std::wstring m_file_name;
  library_info_t m_info;
  bool m_parsed = false;
  shared_lib_t m_library;
  bool m_loaded = false;
};

// The four expressions a file name is tried with, in order, compiled once.
struct name_expressions_t {
  boost::wregex forms[4] = {
      boost::wregex(LR"((^.*)_(\d+)\.so)"),
      boost::wregex(LR"((^.*)_(\d+)\.(\d+)\.so)"),
      boost::wregex(LR"((^.*)_(\d+)\.(\d+)\.(\d+)\.so)"),
      boost::wregex(LR"((^.*)\.so)"),
  };
};

name_expressions_t const& name_expressions() {
  static name_expressions_t const expressions;
  return expressions;
}

int to_int(boost::wsmatch const& match, std::size_t group) {
  std::wstring const text = match.str(group);
  return kesmet2::generic::convert::str_to_int(text.c_str(), text.size());
}

class lib_manager_imp_t : public lib_manager_t {
 public:
  int get_count() const override { return static_cast<int>(m_libraries.size()); }

  library_t* get_library(int index) override {
    if (index < 0 || index >= get_count()) return nullptr;
    return &m_libraries[static_cast<std::size_t>(index)];
  }

  bool add_path(wchar_t const* directory, wchar_t const* pattern) override {
    if (directory == nullptr || *directory == 0 || pattern == nullptr || *pattern == 0)
      return false;
    std::vector<candidate_t> found;
    try {
      bool listed = true;
      if (!search_library(directory, pattern, found, listed)) return listed;
    } catch (boost::regex_error const&) {
      return false;
    }
    validate_paths(found);
    if (!found.empty()) validate_libraries(found);
    return true;
  }

 protected:
  // A file that matched, with its name parsed once for the choice and the load.
  struct candidate_t {
    path_t path;
    std::wstring leaf;
    library_info_t info;
    bool parsed = false;
  };

  // The regular files of `directory` whose whole name matches `pattern` followed by "so$".
  // `listed` is false when the directory can't be read.
  bool search_library(wchar_t const* directory, wchar_t const* pattern,
                      std::vector<candidate_t>& found, bool& listed) {
    boost::wregex const expression(std::wstring(pattern) + L"so$");
    path_t const root(directory);
    std::string const native = root.native_string();
    std::vector<internal::fs_os::dir_entry_t> entries;
    listed = !native.empty() && internal::fs_os::list_directory(native, entries);
    if (!listed) return false;
    // One name and one set of results serve every entry: a directory of a thousand files
    // then costs no allocation per file that does not match.
    std::wstring leaf;
    boost::wsmatch match;
    for (auto const& entry : entries) {
      if (entry.kind != internal::fs_os::entry_kind_t::other) continue;
      // A name that is no UTF-8 has no wide form to match: it is passed over.
      auto const* bytes = reinterpret_cast<unsigned char const*>(entry.name.data());
      if (std::all_of(bytes, bytes + entry.name.size(), [](unsigned char c) { return c < 0x80; })) {
        leaf.assign(entry.name.begin(), entry.name.end());
      } else if (quillon2::validate_utf8(bytes, entry.name.size())) {
        leaf = kesmet2::utf8_to_utf16(entry.name);
      } else {
        continue;
      }
      if (!boost::regex_match(leaf, match, expression)) continue;
      // Links count as what they lead to; only matches are examined.
      struct stat st;
      if (::stat((native + "/" + entry.name).c_str(), &st) != 0 || !S_ISREG(st.st_mode)) continue;
      candidate_t candidate;
      candidate.path = root;
      if (!candidate.path.append(path_t(leaf))) continue;
      candidate.leaf = candidate.path.get_leaf();
      candidate.parsed = parse_string(candidate.info, candidate.leaf);
      found.push_back(std::move(candidate));
    }
    return !found.empty();
  }

  void validate_paths(std::vector<candidate_t>& candidates) {
    std::sort(candidates.begin(), candidates.end(),
              [](candidate_t const& a, candidate_t const& b) { return a.leaf > b.leaf; });

    std::vector<candidate_t> kept;
    library_info_t previous;
    for (auto& candidate : candidates) {
      if (!candidate.parsed) continue;  // stepped over, not kept
      library_info_t const& current = candidate.info;
      if (current.file_name == previous.file_name) {
        library_refused(current.file_name, LIB_DUPLICATE);
        continue;
      }
      if (current.name != previous.name) {
        previous = current;
        kept.push_back(std::move(candidate));
        continue;
      }
      bool const keep = !(current.major < previous.major) && !(current.minor < previous.minor) &&
                        !(current.build < previous.build);
      if (keep) {
        kept.push_back(std::move(candidate));
      } else {
        library_refused(current.file_name, LIB_OLDER_VERSION);
      }
    }

    candidates.clear();
    for (auto& candidate : kept) {
      if (compare_with_loaded_libs(candidate.info)) {
        library_refused(candidate.info.file_name, LIB_OLDER_VERSION);
        continue;
      }
      candidates.push_back(std::move(candidate));
    }
  }

  void validate_libraries(std::vector<candidate_t>& candidates) {
    for (auto const& candidate : candidates) {
      library_imp_t library(candidate.leaf, candidate.info, candidate.parsed);
      if (library.load(candidate.path)) {
        m_libraries.push_back(library);
        library_loaded(candidate.leaf);
      } else {
        library_refused(candidate.leaf, LIB_LOAD_FAILED);
      }
    }
  }

  // True when a loaded library is preferred to `info`.
  bool compare_with_loaded_libs(library_info_t& info) {
    for (auto const& library : m_libraries) {
      library_info_t const* loaded = library.info();
      if (loaded == nullptr) continue;
      if (info.file_name == loaded->file_name) return true;
      if (info.name != loaded->name) continue;
      if (loaded->major != info.major) return loaded->major > info.major;
      if (loaded->minor != info.minor) return loaded->minor > info.minor;
      if (loaded->build != info.build) return loaded->build > info.build;
    }
    return false;
  }

  bool parse_string(library_info_t& info, std::wstring const& file_name) {
    for (auto const& expression : name_expressions().forms)
      if (mach_string(expression, info, file_name)) return true;
    return false;
  }

  bool mach_string(boost::wregex const& expression, library_info_t& info,
                   std::wstring const& file_name) {
    boost::wsmatch match;
    if (!boost::regex_match(file_name, match, expression) || match.size() < 2) return false;
    info.file_name = match.str(0);
    info.name = match.str(1);
    info.major = match.size() > 2 ? to_int(match, 2) : 0;
    info.minor = match.size() > 3 ? to_int(match, 3) : 0;
    info.build = match.size() > 4 ? to_int(match, 4) : 0;
    return true;
  }

 private:
  std::vector<library_imp_t> m_libraries;
};

}  // namespace

sptr_t<lib_manager_t> create_lib_manager() {
  return sptr_t<lib_manager_t>(new ref_counted_t<lib_manager_imp_t, mt_ref_count_impl_t>());
}

}  // namespace quillon2
