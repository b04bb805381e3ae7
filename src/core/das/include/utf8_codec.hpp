// UTF-8 decoding shared by the readers: one decoder, whatever receives the code points,
// so that counting and writing always agree. Malformed sequences give U+FFFD, one for
// each maximal bad run that the decoder steps over. And the one encoder of the writers.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace quillon2::internal {

// Decodes the sequence that starts with the non-ASCII byte s[i] and moves `i` behind it.
// False for a malformed sequence; `i` then stands behind the maximal bad run.
inline bool decode_utf8_sequence(unsigned char const* s, std::size_t length, std::size_t& i,
                                 char32_t& c) {
  unsigned char const b = s[i];
  std::size_t need;
  char32_t min;
  if ((b & 0xE0) == 0xC0) {
    need = 1, c = b & 0x1F, min = 0x80;
  } else if ((b & 0xF0) == 0xE0) {
    need = 2, c = b & 0x0F, min = 0x800;
  } else if ((b & 0xF8) == 0xF0) {
    need = 3, c = b & 0x07, min = 0x10000;
  } else {
    ++i;
    return false;
  }
  std::size_t j = 1;
  for (; j <= need && i + j < length && (s[i + j] & 0xC0) == 0x80; ++j) {
    c = (c << 6) | (s[i + j] & 0x3F);
  }
  i += j;
  return j > need && c >= min && c <= 0x10FFFF && (c < 0xD800 || c > 0xDFFF);
}

template <class Sink>
inline void decode_utf8(char const* text, std::size_t length, Sink&& sink) {
  auto const* s = reinterpret_cast<unsigned char const*>(text);
  std::size_t i = 0;
  while (i < length) {
    // Runs of ASCII, eight bytes at a time.
    while (i + 8 <= length) {
      std::uint64_t word;
      std::memcpy(&word, s + i, sizeof word);
      if ((word & 0x8080808080808080ull) != 0) break;
      for (int k = 0; k < 8; ++k) sink(static_cast<char32_t>(s[i + k]));
      i += 8;
    }
    if (i >= length) break;
    unsigned char const b = s[i];
    if (b < 0x80) {
      sink(static_cast<char32_t>(b));
      ++i;
      continue;
    }
    char32_t c;
    if (!decode_utf8_sequence(s, length, i, c)) c = 0xFFFD;
    sink(c);
  }
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
