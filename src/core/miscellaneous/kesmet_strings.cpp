// UTF conversions, replacement, splitting and byte-order marks of the text layer.
#include <cstring>
#include <cwchar>

#include <quillon2/headers/kesmet.hpp>

#include "core/miscellaneous/include/utf8.hpp"

namespace KESMET_2_18::strings {

using quillon2::internal::append_utf8;
using quillon2::internal::decode_utf8;
using quillon2::internal::replacement_character;

ustring8 utf16_to_utf8(ustring16 const& text) {
  ustring8 out;
  out.reserve(text.size());
  std::size_t const n = text.size();
  for (std::size_t i = 0; i < n; ++i) {
    auto const unit = static_cast<std::uint32_t>(text[i]);
    if (unit < 0x80) {
      out.push_back(static_cast<char>(unit));
      continue;
    }
    char32_t c = unit;
    if (unit >= 0xD800 && unit <= 0xDBFF && i + 1 < n) {
      auto const next = static_cast<std::uint32_t>(text[i + 1]);
      if (next >= 0xDC00 && next <= 0xDFFF) {
        c = 0x10000 + ((unit - 0xD800) << 10) + (next - 0xDC00);
        ++i;
      }
    }
    if ((c >= 0xD800 && c <= 0xDFFF) || c > 0x10FFFF) c = replacement_character;
    append_utf8(out, c);
  }
  return out;
}

ustring16 utf8_to_utf16(ustring8 const& text) {
  ustring16 out;
  out.reserve(text.size());
  auto const* p = reinterpret_cast<unsigned char const*>(text.data());
  std::size_t const n = text.size();
  std::size_t i = 0;
  while (i < n) {
    if (p[i] < 0x80) {
      out.push_back(static_cast<wchar_t>(p[i]));
      ++i;
      continue;
    }
    char32_t c = 0;
    bool valid = false;
    i += decode_utf8(p + i, n - i, c, valid);
    out.push_back(static_cast<wchar_t>(c));
  }
  return out;
}

namespace {

template <typename String>
long replace_all_impl(String& text, String const& from, String const& to) {
  if (from.empty() || text.size() < from.size()) return 0;
  typename String::size_type pos = text.find(from);
  if (pos == String::npos) return 0;
  String out;
  out.reserve(text.size());
  typename String::size_type start = 0;
  long count = 0;
  while (pos != String::npos) {
    out.append(text, start, pos - start);
    out.append(to);
    start = pos + from.size();
    ++count;
    pos = text.find(from, start);
  }
  out.append(text, start, String::npos);
  text.swap(out);
  return count;
}

template <typename String>
std::vector<String> split_impl(String const& text, String const& separator, int options) {
  bool const skip_empty = (options & split_skip_empty) != 0;
  std::vector<String> parts;
  if (separator.empty()) {
    if (!(skip_empty && text.empty())) parts.push_back(text);
    return parts;
  }
  typename String::size_type start = 0;
  for (;;) {
    typename String::size_type const pos = text.find(separator, start);
    typename String::size_type const end = pos == String::npos ? text.size() : pos;
    if (!(skip_empty && end == start)) parts.emplace_back(text, start, end - start);
    if (pos == String::npos) break;
    start = pos + separator.size();
  }
  return parts;
}

}  // namespace

long replace_all(ustring8& text, ustring8 const& from, ustring8 const& to) {
  return replace_all_impl(text, from, to);
}

long replace_all(ustring16& text, ustring16 const& from, ustring16 const& to) {
  return replace_all_impl(text, from, to);
}

std::vector<ustring8> split_string(ustring8 const& text, ustring8 const& separator, int options) {
  return split_impl(text, separator, options);
}

std::vector<ustring16> split_string(ustring16 const& text, ustring16 const& separator,
                                    int options) {
  return split_impl(text, separator, options);
}

std::size_t string_length(char const* text) { return text ? std::strlen(text) : 0; }

std::size_t string_length(wchar_t const* text) { return text ? std::wcslen(text) : 0; }

ustring8 remove_BOM(ustring8 const& text) {
  if (text.size() >= 3 && static_cast<unsigned char>(text[0]) == 0xEF &&
      static_cast<unsigned char>(text[1]) == 0xBB && static_cast<unsigned char>(text[2]) == 0xBF)
    return text.substr(3);
  return text;
}

ustring16 remove_BOM(ustring16 const& text) {
  if (!text.empty() && text[0] == 0xFEFF) return text.substr(1);
  return text;
}

bool check_BOM_and_modify_swap(ustring16& text) {
  if (text.empty()) return false;
  auto const first = static_cast<std::uint32_t>(text[0]);
  if (first == 0xFFFE) {
    for (wchar_t& unit : text) {
      auto const u = static_cast<std::uint32_t>(unit);
      unit = static_cast<wchar_t>((u & 0xFFFF0000u) | ((u & 0xFFu) << 8) | ((u >> 8) & 0xFFu));
    }
    return true;
  }
  if (first == 0xFFFE0000u) {
    for (wchar_t& unit : text) {
      auto const u = static_cast<std::uint32_t>(unit);
      unit = static_cast<wchar_t>((u >> 24) | ((u >> 8) & 0xFF00u) | ((u << 8) & 0xFF0000u) |
                                  (u << 24));
    }
    return true;
  }
  return false;
}

}  // namespace KESMET_2_18::strings

namespace quillon2 {

bool validate_utf8(unsigned char const* bytes, std::size_t size) {
  if (bytes == nullptr || size == 0) return false;
  char32_t c = 0;
  bool valid = false;
  internal::decode_utf8(bytes, size, c, valid);
  return valid;
}

std::size_t get_utf8_length(unsigned char const* bytes, std::size_t size) {
  if (bytes == nullptr || size == 0) return 0;
  char32_t c = 0;
  bool valid = false;
  return internal::decode_utf8(bytes, size, c, valid);
}

std::wstring tolower(std::wstring const& text) { return KESMET_2_18::strings::to_lower(text); }

}  // namespace quillon2
