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
  unsigned char buffer[4096];
  std::size_t used = 0;
  auto put = [&](std::uint32_t unit) {
    if (used + 2 > sizeof buffer) {
      sink(buffer, used);
      used = 0;
    }
    buffer[used++] = static_cast<unsigned char>(unit & 0xFF);
    buffer[used++] = static_cast<unsigned char>((unit >> 8) & 0xFF);
  };
  for (wchar_t const wc : text) {
    auto const c = static_cast<std::uint32_t>(wc);
    if (c >= 0x10000 && c <= 0x10FFFF) {
      put(0xD800 + ((c - 0x10000) >> 10));
      put(0xDC00 + ((c - 0x10000) & 0x3FF));
    } else {
      put(c);
    }
  }
  if (used != 0) sink(buffer, used);
}

enum class read_end_t { unreadable, failed, end_of_file };

// Reads the whole regular file `native_path`, handing each piece to `sink`. `unreadable`
// when it can't be opened or is no regular file (nothing was read); `failed` when a read
// failed part way; `end_of_file` when all of it was read.
read_end_t read_whole_file(std::string const& native_path,
                           std::function<void(void const*, std::size_t)> const& sink);

}  // namespace quillon2::internal::digest
