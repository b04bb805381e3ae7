// The names that the JSON mapping gives a meaning of its own, shared by the reader and
// the writer: the array marker "arrayOf", and the empty name under which an object holds
// a bare scalar.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cwchar>

#include "core/das/include/bag_impl.hpp"

namespace quillon2::json::internal_names {

inline constexpr wchar_t array_of_name[] = L"arrayOf";
inline constexpr std::size_t array_of_length = 7;

inline bool is_array_of(wchar_t const* name, std::size_t length) {
  return length == array_of_length && std::wmemcmp(name, array_of_name, array_of_length) == 0;
}

// The names' hashes are made on first use: a load or a save may run while the program's
// statics are still being made.
inline std::uint32_t array_of_hash() {
  static std::uint32_t const hash = quillon2::internal::hash_name(array_of_name, array_of_length);
  return hash;
}

inline std::uint32_t empty_name_hash() {
  static std::uint32_t const hash = quillon2::internal::hash_name(L"", 0);
  return hash;
}

}  // namespace quillon2::json::internal_names
