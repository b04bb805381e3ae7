// Modules through the dynamic loader. dlerror's text lives per thread and dies at the next
// dl* call, so it is copied at once.
//
// RTLD_NOW binds every symbol at load, so a missing one fails here and not as a fatal
// lookup later; RTLD_LOCAL keeps a module's symbols out of the global scope, so two
// versions of one library never interpose. RTLD_DEEPBIND is never used: it breaks the
// sanitizers' interposition of malloc and friends.
#include <dlfcn.h>
#include <errno.h>
#include <sys/stat.h>

#include <cstring>
#include <mutex>

#include "core/file_system/shared_lib/include/loader.hpp"
#include "core/miscellaneous/include/posix_io.hpp"

namespace quillon2::internal::loader {

namespace {

// The loader serialises dlopen and dlclose under a lock of its own that the sanitizers do
// not see; taking ours around every call makes that order visible to them (and costs
// nothing, since the loader's lock is taken anyway).
std::mutex& loader_lock() {
  static std::mutex lock;
  return lock;
}

std::string take_dlerror() {
  char const* text = ::dlerror();
  return text != nullptr ? std::string(text) : std::string();
}

bool ends_with(std::string const& text, std::string const& end) {
  return text.size() >= end.size() && text.compare(text.size() - end.size(), end.size(), end) == 0;
}

}  // namespace

open_result_t open(std::string const& native_path) {
  open_result_t result;
  if (native_path.empty() || native_path.find('\0') != std::string::npos) {
    result.not_found = true;
    result.text = posix::errno_text(ENOENT);
    return result;
  }
  {
    std::lock_guard<std::mutex> guard(loader_lock());
    ::dlerror();
    result.module = ::dlopen(native_path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (result.module != nullptr) return result;
    result.text = take_dlerror();
  }
  // A file that is not there, or a library it needs that is not there: the loader ends
  // its text with the system's text of ENOENT.
  struct stat st;
  bool const file_missing =
      native_path.find('/') != std::string::npos && ::stat(native_path.c_str(), &st) != 0;
  result.not_found = file_missing || ends_with(result.text, posix::errno_text(ENOENT));
  return result;
}

bool close(void* module, std::string& text) {
  std::lock_guard<std::mutex> guard(loader_lock());
  ::dlerror();
  if (::dlclose(module) == 0) return true;
  text = take_dlerror();
  return false;
}

void* symbol(void* module, std::string const& name) {
  if (name.find('\0') != std::string::npos) return nullptr;
  std::lock_guard<std::mutex> guard(loader_lock());
  ::dlerror();
  void* address = ::dlsym(module, name.c_str());
  ::dlerror();
  return address;
}

}  // namespace quillon2::internal::loader
