// The standard directories as paths: the checks of a subdirectory argument and the
// creation of configuration directories. The places themselves come from
// std_paths_os (posix/).
#include <quillon2/core/file_system/std_paths.hpp>
#include <quillon2/headers/kesmet.hpp>

#include "core/file_system/include/std_paths_os.hpp"

namespace quillon2::stdpaths {

namespace {

// Trailing separators, which variables such as TMPDIR often carry, are dropped.
path_t from_native(std::string native) {
  while (native.size() > 1 && native.back() == '/') native.pop_back();
  if (native.empty()) return path_t();
  return path_t(KESMET_2_18::strings::utf8_to_utf16(native));
}

// The native text of a relative subdirectory; empty for an absolute one, one that climbs
// with "..", or one that does not parse.
std::string relative_native(std::wstring const& subdirectory) {
  std::size_t start = 0;
  while (start <= subdirectory.size()) {
    std::size_t end = subdirectory.find_first_of(L"/\\", start);
    if (end == std::wstring::npos) end = subdirectory.size();
    if (subdirectory.compare(start, end - start, L"..") == 0) return std::string();
    start = end + 1;
  }
  path_t const path(subdirectory);
  if (path.is_empty() || path.is_absolute()) return std::string();
  return path.native_string();
}

path_t config_dir(std::string root, std::wstring const& subdirectory, unsigned mode) {
  if (root.empty()) return path_t();
  if (!subdirectory.empty()) {
    std::string const relative = relative_native(subdirectory);
    if (relative.empty()) return path_t();
    if (root.back() != '/') root += '/';
    root += relative;
  }
  if (!internal::std_paths_os::make_directories(root, mode)) return path_t();
  return from_native(root);
}

path_t directory_of(std::string const& file) {
  path_t const path = from_native(file);
  if (path.is_empty()) return path_t();
  return path_t(path.get_branch());
}

}  // namespace

path_t get_shared_config_dir(std::wstring const& subdirectory) {
  return config_dir(internal::std_paths_os::shared_config_root(), subdirectory, 0755);
}

path_t get_user_config_dir(std::wstring const& subdirectory) {
  return config_dir(internal::std_paths_os::user_config_root(), subdirectory, 0700);
}

path_t get_documents_dir() { return from_native(internal::std_paths_os::documents_dir()); }

path_t get_temp_dir() { return from_native(internal::std_paths_os::temp_dir()); }

path_t get_executable_dir() { return directory_of(internal::std_paths_os::executable_file()); }

path_t get_module_dir(void const* address) {
  return directory_of(internal::std_paths_os::module_file(address));
}

path_t get_dynamic_lib_dir() {
  return get_module_dir(reinterpret_cast<void const*>(&get_dynamic_lib_dir));
}

path_t get_working_dir() { return from_native(internal::std_paths_os::working_dir()); }

bool set_working_dir(path_t const& path) {
  std::string const native = path.native_string();
  return !native.empty() && internal::std_paths_os::change_dir(native);
}

}  // namespace quillon2::stdpaths
