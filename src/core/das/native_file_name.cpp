// The native form of a file name that a client hands the library as text: the path
// layer's own conversion, so that every subsystem reaches the same file for one text.
#include <quillon2/core/file_system/path.hpp>

#include "core/das/include/xml_file_io.hpp"

namespace quillon2::internal {

std::string native_file_name(std::wstring const& name) { return path_t(name).native_string(); }

}  // namespace quillon2::internal
