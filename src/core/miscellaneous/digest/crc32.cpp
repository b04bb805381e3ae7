// CRC-32 of IEEE 802.3 (polynomial 0x04C11DB7, reflected, initial value and final XOR
// 0xFFFFFFFF) through zlib's crc32_z, whose tables are fixed and need no set-up.
#include <zlib.h>

#include <quillon2/core/digest.hpp>
#include <quillon2/core/file_system/path.hpp>

#include "core/miscellaneous/digest/include/digest_input.hpp"

namespace quillon2 {

unsigned long generate_hash(std::wstring const& text) {
  uLong crc = crc32_z(0L, Z_NULL, 0);
  internal::digest::for_each_utf16le_piece(text, [&crc](void const* data, std::size_t size) {
    crc = crc32_z(crc, static_cast<Bytef const*>(data), size);
  });
  return crc & 0xFFFFFFFFul;
}

unsigned long generate_hash(path_t const& path, u64_t chunk_size) {
  if (chunk_size == 0) return 0;
  uLong crc = crc32_z(0L, Z_NULL, 0);
  // Whatever ends the read, the result is the CRC of what was read.
  internal::digest::read_whole_file(path.native_string(),
                                    [&crc](void const* data, std::size_t size) {
                                      crc = crc32_z(crc, static_cast<Bytef const*>(data), size);
                                    });
  return crc & 0xFFFFFFFFul;
}

}  // namespace quillon2
