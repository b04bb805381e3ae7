// What the digests have in common: the bytes of wide text, and whole-file reads.
//
// The platform layer (posix/digest_file.cpp) gives read_whole_file; the rest is portable.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace quillon2::internal::digest {

// Stores the low 16 bits of each of the `count` units at `units` in `out`, and gives the
// bits above them of all units together: 0 when every unit fits.
inline std::uint32_t narrow_block(wchar_t const* units, std::size_t count, std::uint16_t* out) {
  static_assert(sizeof(wchar_t) == 4, "wide units are 32 bits");
  std::size_t k = 0;
  std::uint32_t beyond = 0;
#if defined(__SSE2__)
  // Eight units a step. The compiler leaves the plain loop below scalar at this level of
  // optimisation, and the narrowing then costs as much as the digest itself. Shifting a
  // unit's low half up and back with its sign makes the saturating pack keep it exactly.
  __m128i high = _mm_setzero_si128();
  for (; k + 8 <= count; k += 8) {
    __m128i a = _mm_loadu_si128(reinterpret_cast<__m128i const*>(units + k));
    __m128i b = _mm_loadu_si128(reinterpret_cast<__m128i const*>(units + k + 4));
    high = _mm_or_si128(high, _mm_or_si128(_mm_srli_epi32(a, 16), _mm_srli_epi32(b, 16)));
    a = _mm_srai_epi32(_mm_slli_epi32(a, 16), 16);
    b = _mm_srai_epi32(_mm_slli_epi32(b, 16), 16);
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out + k), _mm_packs_epi32(a, b));
  }
  if (_mm_movemask_epi8(_mm_cmpeq_epi8(high, _mm_setzero_si128())) != 0xFFFF) beyond = 1;
#endif
  for (; k < count; ++k) {
    auto const c = static_cast<std::uint32_t>(units[k]);
    out[k] = static_cast<std::uint16_t>(c);
    beyond |= c >> 16;
  }
  return beyond;
}

// Feeds the UTF-16LE bytes of `text` to `sink(data, size)` in pieces, without a terminator.
// A code point outside the Basic Multilingual Plane becomes its surrogate pair; a value
// that is no code point is fed as its low 16 bits, as a 16-bit string would hold it.
template <class Sink>
void for_each_utf16le_piece(std::wstring const& text, Sink&& sink) {
  // Units are stored in the machine's order; the sink sees little-endian bytes.
  static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "UTF-16LE bytes are stored as is");
  constexpr std::size_t k_block = 2048;
  std::uint16_t buffer[2 * k_block];
  wchar_t const* p = text.data();
  for (std::size_t left = text.size(); left != 0;) {
    std::size_t const m = left < k_block ? left : k_block;
    // Most text lies in the Basic Multilingual Plane: narrow a block in one pass and redo
    // it unit by unit only when it holds anything beyond.
    std::uint32_t const beyond = narrow_block(p, m, buffer);
    std::size_t used = m;
    if (beyond != 0) {
      used = 0;
      for (std::size_t k = 0; k < m; ++k) {
        auto const c = static_cast<std::uint32_t>(p[k]);
        if (c >= 0x10000 && c <= 0x10FFFF) {
          buffer[used++] = static_cast<std::uint16_t>(0xD800 + ((c - 0x10000) >> 10));
          buffer[used++] = static_cast<std::uint16_t>(0xDC00 + ((c - 0x10000) & 0x3FF));
        } else {
          // A value that is no code point goes in as its low 16 bits.
          buffer[used++] = static_cast<std::uint16_t>(c);
        }
      }
    }
    sink(buffer, used * 2);
    p += m;
    left -= m;
  }
}

enum class read_end_t { unreadable, failed, end_of_file };

// Reads the whole regular file `native_path`, handing each piece to `sink`. `unreadable`
// when it can't be opened or is no regular file (nothing was read); `failed` when a read
// failed part way; `end_of_file` when all of it was read.
read_end_t read_whole_file(std::string const& native_path,
                           std::function<void(void const*, std::size_t)> const& sink);

}  // namespace quillon2::internal::digest
