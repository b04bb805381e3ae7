// UTF-8 decoding and encoding of single code points, shared by the text layer and the
// readers and writers of bags. Decoding follows the well-formed byte sequences of
// Unicode (no overlong forms, no surrogates, nothing above U+10FFFF) and reports the
// maximal ill-formed part of a bad sequence, so that every such part becomes exactly
// one U+FFFD.
#pragma once

#include <cstddef>

namespace quillon2::internal {

constexpr char32_t replacement_character = 0xFFFD;

// Decodes the sequence at `p` (n > 0 bytes available). Returns the number of bytes it
// takes and sets `code_point` (U+FFFD and `valid` false for an ill-formed part).
inline std::size_t decode_utf8(unsigned char const* p, std::size_t n, char32_t& code_point,
                               bool& valid) {
  unsigned char const lead = p[0];
  if (lead < 0x80) {
    code_point = lead;
    valid = true;
    return 1;
  }
  int trail = 0;
  unsigned char low = 0x80;
  unsigned char high = 0xBF;
  char32_t value = 0;
  if (lead >= 0xC2 && lead <= 0xDF) {
    trail = 1;
    value = lead & 0x1F;
  } else if (lead >= 0xE0 && lead <= 0xEF) {
    trail = 2;
    value = lead & 0x0F;
    if (lead == 0xE0) low = 0xA0;   // no overlong forms
    if (lead == 0xED) high = 0x9F;  // no surrogates
  } else if (lead >= 0xF0 && lead <= 0xF4) {
    trail = 3;
    value = lead & 0x07;
    if (lead == 0xF0) low = 0x90;   // no overlong forms
    if (lead == 0xF4) high = 0x8F;  // nothing above U+10FFFF
  } else {
    code_point = replacement_character;
    valid = false;
    return 1;
  }
  std::size_t used = 1;
  for (int i = 0; i < trail; ++i) {
    if (used >= n || p[used] < low || p[used] > high) {
      code_point = replacement_character;
      valid = false;
      return used;
    }
    value = (value << 6) | (p[used] & 0x3F);
    low = 0x80;
    high = 0xBF;
    ++used;
  }
  code_point = value;
  valid = true;
  return used;
}

// A unit of wide text as the code point that UTF-8 can carry: one that is no Unicode
// scalar value (a surrogate, or above U+10FFFF) becomes U+FFFD.
constexpr char32_t scalar_or_replacement(char32_t c) {
  return c > 0x10FFFF || (c >= 0xD800 && c <= 0xDFFF) ? replacement_character : c;
}

// Writes the UTF-8 sequence of `c` (one to four bytes) at `out` and returns its end. The
// caller has checked `c`: a surrogate or a value above U+10FFFF is written as it is.
inline char* encode_utf8(char32_t c, char* out) {
  if (c < 0x80) {
    *out++ = static_cast<char>(c);
  } else if (c < 0x800) {
    *out++ = static_cast<char>(0xC0 | (c >> 6));
    *out++ = static_cast<char>(0x80 | (c & 0x3F));
  } else if (c < 0x10000) {
    *out++ = static_cast<char>(0xE0 | (c >> 12));
    *out++ = static_cast<char>(0x80 | ((c >> 6) & 0x3F));
    *out++ = static_cast<char>(0x80 | (c & 0x3F));
  } else {
    *out++ = static_cast<char>(0xF0 | (c >> 18));
    *out++ = static_cast<char>(0x80 | ((c >> 12) & 0x3F));
    *out++ = static_cast<char>(0x80 | ((c >> 6) & 0x3F));
    *out++ = static_cast<char>(0x80 | (c & 0x3F));
  }
  return out;
}

}  // namespace quillon2::internal
