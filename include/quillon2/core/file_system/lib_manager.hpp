// lib_manager_t: a family of versioned dynamic libraries loaded from a directory.
//
// The caller names a directory and a regular expression for the file names up to and
// including their last dot (for example `.*\.`); "so" is appended. The version stands in the
// name: `name_1.so`, `name_1.2.so`, `name_1.2.3.so`; a name without one has 0.0.0. One file
// is kept for each name by a fixed rule (see lib_manager.cpp), the rest are refused, and the
// outcome for each file is told through two signals, on the calling thread, after the list
// has changed. Loaded libraries stay until the manager dies; the manager takes no lock: one
// thread at a time calls add_path.
#pragma once

#include <string>

#include <quillon2/core/functor/signal.hpp>
#include <quillon2/core/object_interface.hpp>
#include <quillon2/export.hpp>

namespace quillon2 {

// A file name taken apart.
struct library_info_t {
  std::wstring file_name;  // the whole file name, as matched
  std::wstring name;       // what stands in front of the version and the suffix
  int major = 0;
  int minor = 0;
  int build = 0;
};

// A loaded library as a caller sees it.
class QUILLON2_API library_t {
 public:
  virtual ~library_t();
  // Null if the library is not loaded or has no such symbol; the name is UTF-8 for the loader.
  virtual void* get_symbol(wchar_t const* name) = 0;
};

class QUILLON2_API lib_manager_t : public object_interface_t {
 public:
  enum error_type_t {
    LIB_LOAD_FAILED = 0,    // the version check passed but the library did not load
    LIB_DUPLICATE = 1,      // a file of exactly this name was seen just before
    LIB_OLDER_VERSION = 2,  // a newer or equal library of that name is preferred
  };

  virtual int get_count() const = 0;
  // Null for an index out of range; good until the next add_path.
  virtual library_t* get_library(int index) = 0;
  // False for a null or empty argument, a directory that can't be listed or a pattern that
  // is no valid expression; true otherwise, whatever was loaded or refused.
  virtual bool add_path(wchar_t const* directory, wchar_t const* pattern) = 0;

  // The file name of each library loaded.
  _internal::signal_t<std::wstring> library_loaded;
  // The file name and reason of each file dropped or failed.
  _internal::signal_t<std::wstring, error_type_t> library_refused;
};

QUILLON2_API sptr_t<lib_manager_t> create_lib_manager();

}  // namespace quillon2
