// UTF-8 decoding of whole texts for the readers of bags, on the text layer's decoder of
// single code points: whatever receives the code points, counting and writing agree,
// and malformed sequences give U+FFFD exactly as the text layer's conversions do.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "core/miscellaneous/include/utf8.hpp"

namespace quillon2::internal {

// Decodes the sequence that starts with the non-ASCII byte s[i] and moves `i` behind it.
// False for a malformed sequence; `i` then stands behind its maximal ill-formed part.
inline bool decode_utf8_sequence(unsigned char const* s, std::size_t length, std::size_t& i,
                                 char32_t& c) {
  bool valid;
  i += decode_utf8(s + i, length - i, c, valid);
  return valid;
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

}  // namespace quillon2::internal
