// The native form of a file name that a client hands the library as text.
#include <quillon2/headers/kesmet.hpp>

#include "core/das/include/xml_file_io.hpp"

namespace quillon2::internal {
namespace {

bool is_separator(wchar_t c) { return c == L'\\' || c == L'/'; }

bool starts_with(std::wstring const& text, wchar_t const* prefix) {
  return text.compare(0, std::wcslen(prefix), prefix) == 0;
}

}  // namespace

std::string native_file_name(std::wstring const& name) {
  std::wstring path = name;
  if (starts_with(path, L"\\\\?\\UNC\\")) return {};
  if (starts_with(path, L"\\\\?\\")) path.erase(0, 4);
  bool const drive = path.size() >= 2 && path[1] == L':' &&
                     ((path[0] >= L'a' && path[0] <= L'z') || (path[0] >= L'A' && path[0] <= L'Z'));
  bool const unc = path.size() >= 2 && is_separator(path[0]) && is_separator(path[1]);
  if (drive || unc) return {};
  for (wchar_t& c : path) {
    if (c == L'\\') c = L'/';
  }
  return KESMET_2_18::strings::utf16_to_utf8(path);
}

}  // namespace quillon2::internal
