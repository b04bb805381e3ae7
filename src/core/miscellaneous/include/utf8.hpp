// UTF-8 decoding of single code points, shared by the text layer's
// sources. Decoding follows the well-formed byte sequences of Unicode (no overlong
// forms, no surrogates, nothing above U+10FFFF) and reports the maximal ill-formed
// part of a bad sequence, so that every such part becomes exactly one U+FFFD.
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

}  // namespace quillon2::internal
