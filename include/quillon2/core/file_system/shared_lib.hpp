// shared_lib_t: a dynamic library loaded by name from a directory, its symbols, and its
// unloading with the last copy of the object.
//
// Two files are tried, in this order: `directory/name`, then `directory/lib<name>.so`.
// Libraries are loaded with every symbol bound at once (a missing symbol fails the load,
// not a later call) and kept local, so two versions of one library can stand side by side.
// Linux has no altered search path: a library finds its own dependencies through its
// RUNPATH, for example `$ORIGIN`.
//
// Copies share the module; the reference count is atomic, a single object has no lock.
#pragma once

#include <string>

#include <boost/shared_ptr.hpp>

#include <quillon2/core/file_system/path.hpp>
#include <quillon2/export.hpp>

namespace quillon2 {

class shared_lib_t;

namespace _internal {
class shared_lib_handle_t;
}

// One row of an add-on's table of factory functions.
struct addon_map_entry_t {
  std::string type_name;
  void* (*function)();
};

class QUILLON2_API shared_lib_t {
 public:
  enum error_status_t {
    LOAD_NOT_FOUND = 1,  // the file, or a library it needs, does not exist
    LOAD_FAILED = 2,     // any other reason
  };

  shared_lib_t();
  // An empty name loads nothing.
  shared_lib_t(std::wstring const& name, path_t const& directory);
  shared_lib_t(shared_lib_t const& other);
  shared_lib_t& operator=(shared_lib_t const& other);
  ~shared_lib_t();

  // Drops any module held, then loads; true when a module is loaded.
  bool initialize(std::wstring const& name, path_t const& directory);
  // Drops this object's share of the module; the error status stays.
  void uninitialize();
  explicit operator bool() const;

  // The address of a symbol (its name is UTF-8 for the loader); null without a module or
  // without such a symbol.
  void* get_symbol(std::wstring const& name) const;
  // Why the last load failed: meaningful only while the object is false.
  error_status_t get_error_status() const { return m_error_status; }
  // The loader's own text for the attempt whose status get_error_status reports, empty
  // when there is none (an addition of ours, for messages to users).
  std::wstring const& get_error_text() const { return m_error_text; }

 private:
  void load(std::wstring const& name, path_t const& directory);

  boost::shared_ptr<_internal::shared_lib_handle_t> m_handle;
  error_status_t m_error_status = LOAD_FAILED;
  std::wstring m_error_text;
};

// Returns its argument: library names carry no suffix of their own here.
QUILLON2_API std::wstring suffixize_lib_name(std::wstring const& name);

// The factory of the first entry of table[0 .. count-1] whose type name equals `name`
// exactly; null for a null table, a count below 1 or no such entry.
QUILLON2_API void* (*get_function_by_type_name(std::string const& name, addon_map_entry_t* table,
                                               int count))();

}  // namespace quillon2
