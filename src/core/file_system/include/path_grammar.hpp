// The path grammar, shared by path_t's constructors and path_t::validate, and the
// long prefix of printed forms, which path_t::match drops from its patterns.
#pragma once

#include <cstddef>
#include <string_view>

#include <quillon2/core/file_system/path.hpp>

namespace quillon2::internal {

using path_data_t = _internal::path_internal_t<std::wstring>;

// The long prefix in front of printed forms of 248 characters and more.
inline constexpr std::wstring_view k_long_prefix = L"\\\\?\\";

// Parses a path text. Surrounding double quotes are dropped first (each end on its
// own), then the text ends at its first NUL. With out given, the parsed form is
// built into it; on failure out is left as it was.
// Returns true when the whole text was taken; otherwise stop is the offset, in the
// text without its quotes, of the first character that the parse did not take.
bool parse_path(std::wstring_view text, bool no_wildcards, path_data_t* out, std::size_t& stop);

}  // namespace quillon2::internal
