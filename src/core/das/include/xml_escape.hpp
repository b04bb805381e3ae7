// The one escaper of the library's XML printers: a table per context says, for every byte,
// whether it stands as it is, which reference replaces it, or whether it needs a look
// (a control character that XML cannot hold, the lead byte of a UTF-8 sequence). The
// checking variants print and check in the same pass, so that text is read once.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "core/das/include/xml_safety.hpp"
#include "core/miscellaneous/include/utf8.hpp"

namespace quillon2::internal {

enum : std::uint8_t {
  k_escape_plain = 0,
  // 1 to 7: the index of the reference in k_xml_references
  k_escape_control = 8,  // a control character that XML cannot hold
  k_escape_wide = 9,     // a byte of a multi-byte UTF-8 sequence
};

inline constexpr std::string_view k_xml_references[] = {"",       "&amp;", "&lt;",  "&gt;",
                                                        "&quot;", "&#9;",  "&#10;", "&#13;"};

struct xml_escapes_t {
  std::array<std::uint8_t, 256> byte{};
};

enum class xml_context_t { verbatim, content, text, attribute };

constexpr xml_escapes_t make_xml_escapes(xml_context_t context) {
  xml_escapes_t escapes;
  for (int c = 0; c < 0x20; ++c) escapes.byte[c] = k_escape_control;
  for (int c = 0x80; c < 0x100; ++c) escapes.byte[c] = k_escape_wide;
  escapes.byte['\t'] = escapes.byte['\n'] = escapes.byte['\r'] = k_escape_plain;
  if (context == xml_context_t::verbatim) return escapes;
  escapes.byte['&'] = 1;
  escapes.byte['<'] = 2;
  escapes.byte['>'] = 3;
  escapes.byte['\r'] = 7;
  if (context == xml_context_t::content) return escapes;
  escapes.byte['"'] = 4;
  if (context == xml_context_t::text) return escapes;
  escapes.byte['\t'] = 5;
  escapes.byte['\n'] = 6;
  return escapes;
}

// Text that stands as it is (comments, processing instructions, CDATA sections): only
// checked.
inline constexpr xml_escapes_t k_verbatim_escapes = make_xml_escapes(xml_context_t::verbatim);
// Element content as libxml2's formatter escapes it: "&", "<", ">" and carriage return.
inline constexpr xml_escapes_t k_content_escapes = make_xml_escapes(xml_context_t::content);
// Element content as the bag writers escape it: also the quotation mark.
inline constexpr xml_escapes_t k_text_escapes = make_xml_escapes(xml_context_t::text);
// Attribute values in double quotes: also the quotation mark, tab and line feed.
inline constexpr xml_escapes_t k_attribute_escapes = make_xml_escapes(xml_context_t::attribute);

// The most bytes that put_escaped writes for one character.
inline constexpr std::size_t k_max_escaped_bytes = 6;

// Writes one character in UTF-8, escaped, at `out` (room for k_max_escaped_bytes) and
// moves `out` past it. False when the character is one that XML cannot hold.
inline bool put_escaped(char32_t c, xml_escapes_t const& escapes, char*& out) {
  if (c < 0x80) {
    std::uint8_t const kind = escapes.byte[c];
    if (kind == k_escape_plain) {
      *out++ = static_cast<char>(c);
      return true;
    }
    if (kind == k_escape_control) return false;
    std::string_view const reference = k_xml_references[kind];
    for (char r : reference) *out++ = r;
    return true;
  }
  if (!is_xml_char(c)) return false;
  out = encode_utf8(c, out);
  return true;
}

// Appends checked UTF-8 text escaped; control characters and other bytes go as they are.
inline void append_escaped(std::string& out, char const* text, std::size_t size,
                           xml_escapes_t const& escapes) {
  std::size_t plain = 0;
  for (std::size_t i = 0; i < size; ++i) {
    std::uint8_t const kind = escapes.byte[static_cast<unsigned char>(text[i])];
    if (kind == k_escape_plain || kind >= k_escape_control) continue;
    out.append(text + plain, i - plain);
    out.append(k_xml_references[kind]);
    plain = i + 1;
  }
  out.append(text + plain, size - plain);
}

// Appends UTF-8 text escaped. False, with `out` partly extended, when the text is no
// well-formed UTF-8 or holds a character that XML cannot hold.
inline bool append_checked_escaped(std::string& out, char const* text, std::size_t size,
                                   xml_escapes_t const& escapes) {
  auto const* bytes = reinterpret_cast<unsigned char const*>(text);
  std::size_t plain = 0;
  for (std::size_t i = 0; i < size;) {
    std::uint8_t const kind = escapes.byte[bytes[i]];
    if (kind == k_escape_plain) {
      ++i;
    } else if (kind == k_escape_wide) {
      char32_t c = 0;
      bool valid = false;
      i += decode_utf8(bytes + i, size - i, c, valid);
      if (!valid || !is_xml_char(c)) return false;
    } else if (kind == k_escape_control) {
      return false;
    } else {
      out.append(text + plain, i - plain);
      out.append(k_xml_references[kind]);
      plain = ++i;
    }
  }
  out.append(text + plain, size - plain);
  return true;
}

// Appends wide text in UTF-8, escaped; a value that is no Unicode scalar becomes U+FFFD,
// or with `Replace` false is refused. False, with `out` partly extended, when a character
// is one XML cannot hold (NUL among them). `utf8_bytes` receives the UTF-8 size of the
// text before escaping.
template <bool Replace = true>
inline bool append_wide_checked_escaped(std::string& out, wchar_t const* text, std::size_t size,
                                        xml_escapes_t const& escapes, std::size_t& utf8_bytes) {
  utf8_bytes = 0;
  for (std::size_t i = 0; i < size; ++i) {
    auto c = static_cast<char32_t>(text[i]);
    if (c < 0x80 && escapes.byte[c] == k_escape_plain) {
      out.push_back(static_cast<char>(c));
      ++utf8_bytes;
      continue;
    }
    if (Replace) c = scalar_or_replacement(c);
    char buffer[k_max_escaped_bytes];
    char* end = buffer;
    if (!put_escaped(c, escapes, end)) return false;
    // An escaped ASCII character is one byte of the text, whatever its reference.
    utf8_bytes += c < 0x80 ? 1 : static_cast<std::size_t>(end - buffer);
    out.append(buffer, end);
  }
  return true;
}

}  // namespace quillon2::internal
