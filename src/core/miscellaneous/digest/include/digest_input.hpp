// What the digests have in common: the bytes of wide text, and whole-file reads.
//
// The platform layer (posix/digest_file.cpp) gives read_whole_file; the rest is portable.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>

namespace quillon2::internal::digest {

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
    // Most text lies in the Basic Multilingual Plane: narrow a block in one pass (which the
    // compiler vectorises) and redo it unit by unit only when it holds anything beyond.
    std::uint32_t beyond = 0;
    for (std::size_t k = 0; k < m; ++k) {
      auto const c = static_cast<std::uint32_t>(p[k]);
      buffer[k] = static_cast<std::uint16_t>(c);
      beyond |= c >> 16;
    }
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
