// What the platform gives shared_lib_t: opening and closing a module and finding symbols.
// posix/loader.cpp implements it on dlopen.
#pragma once

#include <string>

namespace quillon2::internal::loader {

struct open_result_t {
  void* module = nullptr;
  bool not_found = false;  // the file, or a library it needs, does not exist
  std::string text;        // the loader's text when the open failed
};

// Loads the module at `native_path` (a path with "/" is a file, a bare name is searched
// for by the system).
open_result_t open(std::string const& native_path);
// Unloads; false with the loader's text in `text` when the loader refuses.
bool close(void* module, std::string& text);
void* symbol(void* module, std::string const& name);

}  // namespace quillon2::internal::loader
