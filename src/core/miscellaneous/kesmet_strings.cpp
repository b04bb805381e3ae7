// UTF conversions, replacement, splitting and byte-order marks of the text layer.
#include <cstring>
#include <cwchar>

#include <quillon2/headers/kesmet.hpp>

#include "core/miscellaneous/include/utf8.hpp"

namespace KESMET_2_18::strings {

using quillon2::internal::decode_utf8;
using quillon2::internal::encode_utf8;
using quillon2::internal::replacement_character;

namespace {

// Conversions write into a stack buffer and append it to the result chunk by chunk:
// that costs far less than growing the result per character or sizing it in an extra
// pass. A chunk ends early enough that the widest character still fits.
constexpr std::size_t chunk_units = 2048;

// Appends a converted chunk; `done` of `total` input units are converted so far. The
// first chunk sizes the result by its own ratio of output to input, so that a text
// converts with one allocation in the common case.
template <typename String, typename Unit>
void append_chunk(String& out, Unit const* buffer, Unit const* end, std::size_t done,
                  std::size_t total) {
  auto const length = static_cast<std::size_t>(end - buffer);
  if (out.empty() && done < total) out.reserve(length + length * (total - done) / done + 16);
  out.append(buffer, length);
}

// Whether the eight bytes at `p` are all ASCII.
bool ascii8(unsigned char const* p) {
  std::uint64_t word;
  std::memcpy(&word, p, sizeof word);
  return (word & 0x8080808080808080ull) == 0;
}

}  // namespace

ustring8 utf16_to_utf8(ustring16 const& text) {
  wchar_t const* const units = text.data();
  std::size_t const n = text.size();
  ustring8 out;
  char buffer[chunk_units * 4 + 4];
  std::size_t i = 0;
  while (i < n) {
    char* dst = buffer;
    char* const limit = buffer + chunk_units * 4;
    while (i < n && dst < limit) {
      if (i + 4 <= n &&
          (static_cast<std::uint32_t>(units[i]) | static_cast<std::uint32_t>(units[i + 1]) |
           static_cast<std::uint32_t>(units[i + 2]) | static_cast<std::uint32_t>(units[i + 3])) <
              0x80) {
        for (int k = 0; k < 4; ++k) dst[k] = static_cast<char>(units[i + k]);
        dst += 4;
        i += 4;
        continue;
      }
      auto const unit = static_cast<std::uint32_t>(units[i]);
      if (unit < 0x80) {
        *dst++ = static_cast<char>(unit);
        ++i;
        continue;
      }
      char32_t c = unit;
      if ((unit & 0xFFFFFC00u) == 0xD800 && i + 1 < n &&
          (static_cast<std::uint32_t>(units[i + 1]) & 0xFFFFFC00u) == 0xDC00) {
        c = 0x10000 + ((unit - 0xD800) << 10) + (static_cast<std::uint32_t>(units[i + 1]) - 0xDC00);
        i += 2;
      } else {
        if ((c >= 0xD800 && c <= 0xDFFF) || c > 0x10FFFF) c = replacement_character;
        ++i;
      }
      dst = encode_utf8(c, dst);
    }
    append_chunk(out, buffer, dst, i, n);
  }
  return out;
}

ustring16 utf8_to_utf16(ustring8 const& text) {
  auto const* const p = reinterpret_cast<unsigned char const*>(text.data());
  std::size_t const n = text.size();
  ustring16 out;
  wchar_t buffer[chunk_units + 8];
  std::size_t i = 0;
  while (i < n) {
    wchar_t* dst = buffer;
    wchar_t* const limit = buffer + chunk_units;
    while (i < n && dst < limit) {
      if (i + 8 <= n && ascii8(p + i)) {
        for (int k = 0; k < 8; ++k) dst[k] = static_cast<wchar_t>(p[i + k]);
        dst += 8;
        i += 8;
        continue;
      }
      unsigned const b0 = p[i];
      if (b0 < 0x80) {
        *dst++ = static_cast<wchar_t>(b0);
        ++i;
        continue;
      }
      // The well-formed two- and three-byte forms inline; the rest through decode_utf8.
      if (b0 >= 0xC2 && b0 <= 0xDF && i + 1 < n && (p[i + 1] & 0xC0) == 0x80) {
        *dst++ = static_cast<wchar_t>(((b0 & 0x1F) << 6) | (p[i + 1] & 0x3F));
        i += 2;
        continue;
      }
      if ((b0 & 0xF0) == 0xE0 && i + 2 < n && (p[i + 1] & 0xC0) == 0x80 &&
          (p[i + 2] & 0xC0) == 0x80) {
        unsigned const c = ((b0 & 0x0F) << 12) | ((p[i + 1] & 0x3Fu) << 6) | (p[i + 2] & 0x3F);
        if (c >= 0x800 && (c < 0xD800 || c > 0xDFFF)) {
          *dst++ = static_cast<wchar_t>(c);
          i += 3;
          continue;
        }
      }
      char32_t c = 0;
      bool valid = false;
      i += decode_utf8(p + i, n - i, c, valid);
      *dst++ = static_cast<wchar_t>(c);
    }
    append_chunk(out, buffer, dst, i, n);
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
