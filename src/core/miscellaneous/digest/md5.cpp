// MD5 as in RFC 1321, on the plain context of md5_t. The rounds are unrolled and read
// the message words straight from the input when a whole block is at hand; only the
// incomplete tail of a message is copied into the context's buffer.
#include <cstring>

#include <quillon2/core/digest.hpp>
#include <quillon2/core/file_system/path.hpp>

#include "core/miscellaneous/digest/include/digest_input.hpp"

namespace quillon2 {

namespace {

inline std::uint32_t rotl(std::uint32_t x, int n) { return (x << n) | (x >> (32 - n)); }

inline std::uint32_t load_le32(unsigned char const* p) {
  return static_cast<std::uint32_t>(p[0]) | static_cast<std::uint32_t>(p[1]) << 8 |
         static_cast<std::uint32_t>(p[2]) << 16 | static_cast<std::uint32_t>(p[3]) << 24;
}

#define Q2_MD5_F(x, y, z) ((z) ^ ((x) & ((y) ^ (z))))
#define Q2_MD5_G(x, y, z) ((y) ^ ((z) & ((x) ^ (y))))
#define Q2_MD5_H(x, y, z) ((x) ^ (y) ^ (z))
#define Q2_MD5_I(x, y, z) ((y) ^ ((x) | ~(z)))
#define Q2_MD5_STEP(f, a, b, c, d, x, t, s) \
  (a) += f((b), (c), (d)) + (x) + (t);      \
  (a) = rotl((a), (s)) + (b)

// Hashes `blocks` whole blocks of 64 bytes into `state`.
void transform(std::uint32_t state[4], unsigned char const* p, std::size_t blocks) {
  std::uint32_t a = state[0], b = state[1], c = state[2], d = state[3];
  for (; blocks != 0; --blocks, p += 64) {
    std::uint32_t x[16];
    for (int i = 0; i < 16; ++i) x[i] = load_le32(p + 4 * i);
    std::uint32_t const aa = a, bb = b, cc = c, dd = d;

    Q2_MD5_STEP(Q2_MD5_F, a, b, c, d, x[0], 0xd76aa478, 7);
    Q2_MD5_STEP(Q2_MD5_F, d, a, b, c, x[1], 0xe8c7b756, 12);
    Q2_MD5_STEP(Q2_MD5_F, c, d, a, b, x[2], 0x242070db, 17);
    Q2_MD5_STEP(Q2_MD5_F, b, c, d, a, x[3], 0xc1bdceee, 22);
    Q2_MD5_STEP(Q2_MD5_F, a, b, c, d, x[4], 0xf57c0faf, 7);
    Q2_MD5_STEP(Q2_MD5_F, d, a, b, c, x[5], 0x4787c62a, 12);
    Q2_MD5_STEP(Q2_MD5_F, c, d, a, b, x[6], 0xa8304613, 17);
    Q2_MD5_STEP(Q2_MD5_F, b, c, d, a, x[7], 0xfd469501, 22);
    Q2_MD5_STEP(Q2_MD5_F, a, b, c, d, x[8], 0x698098d8, 7);
    Q2_MD5_STEP(Q2_MD5_F, d, a, b, c, x[9], 0x8b44f7af, 12);
    Q2_MD5_STEP(Q2_MD5_F, c, d, a, b, x[10], 0xffff5bb1, 17);
    Q2_MD5_STEP(Q2_MD5_F, b, c, d, a, x[11], 0x895cd7be, 22);
    Q2_MD5_STEP(Q2_MD5_F, a, b, c, d, x[12], 0x6b901122, 7);
    Q2_MD5_STEP(Q2_MD5_F, d, a, b, c, x[13], 0xfd987193, 12);
    Q2_MD5_STEP(Q2_MD5_F, c, d, a, b, x[14], 0xa679438e, 17);
    Q2_MD5_STEP(Q2_MD5_F, b, c, d, a, x[15], 0x49b40821, 22);

    Q2_MD5_STEP(Q2_MD5_G, a, b, c, d, x[1], 0xf61e2562, 5);
    Q2_MD5_STEP(Q2_MD5_G, d, a, b, c, x[6], 0xc040b340, 9);
    Q2_MD5_STEP(Q2_MD5_G, c, d, a, b, x[11], 0x265e5a51, 14);
    Q2_MD5_STEP(Q2_MD5_G, b, c, d, a, x[0], 0xe9b6c7aa, 20);
    Q2_MD5_STEP(Q2_MD5_G, a, b, c, d, x[5], 0xd62f105d, 5);
    Q2_MD5_STEP(Q2_MD5_G, d, a, b, c, x[10], 0x02441453, 9);
    Q2_MD5_STEP(Q2_MD5_G, c, d, a, b, x[15], 0xd8a1e681, 14);
    Q2_MD5_STEP(Q2_MD5_G, b, c, d, a, x[4], 0xe7d3fbc8, 20);
    Q2_MD5_STEP(Q2_MD5_G, a, b, c, d, x[9], 0x21e1cde6, 5);
    Q2_MD5_STEP(Q2_MD5_G, d, a, b, c, x[14], 0xc33707d6, 9);
    Q2_MD5_STEP(Q2_MD5_G, c, d, a, b, x[3], 0xf4d50d87, 14);
    Q2_MD5_STEP(Q2_MD5_G, b, c, d, a, x[8], 0x455a14ed, 20);
    Q2_MD5_STEP(Q2_MD5_G, a, b, c, d, x[13], 0xa9e3e905, 5);
    Q2_MD5_STEP(Q2_MD5_G, d, a, b, c, x[2], 0xfcefa3f8, 9);
    Q2_MD5_STEP(Q2_MD5_G, c, d, a, b, x[7], 0x676f02d9, 14);
    Q2_MD5_STEP(Q2_MD5_G, b, c, d, a, x[12], 0x8d2a4c8a, 20);

    Q2_MD5_STEP(Q2_MD5_H, a, b, c, d, x[5], 0xfffa3942, 4);
    Q2_MD5_STEP(Q2_MD5_H, d, a, b, c, x[8], 0x8771f681, 11);
    Q2_MD5_STEP(Q2_MD5_H, c, d, a, b, x[11], 0x6d9d6122, 16);
    Q2_MD5_STEP(Q2_MD5_H, b, c, d, a, x[14], 0xfde5380c, 23);
    Q2_MD5_STEP(Q2_MD5_H, a, b, c, d, x[1], 0xa4beea44, 4);
    Q2_MD5_STEP(Q2_MD5_H, d, a, b, c, x[4], 0x4bdecfa9, 11);
    Q2_MD5_STEP(Q2_MD5_H, c, d, a, b, x[7], 0xf6bb4b60, 16);
    Q2_MD5_STEP(Q2_MD5_H, b, c, d, a, x[10], 0xbebfbc70, 23);
    Q2_MD5_STEP(Q2_MD5_H, a, b, c, d, x[13], 0x289b7ec6, 4);
    Q2_MD5_STEP(Q2_MD5_H, d, a, b, c, x[0], 0xeaa127fa, 11);
    Q2_MD5_STEP(Q2_MD5_H, c, d, a, b, x[3], 0xd4ef3085, 16);
    Q2_MD5_STEP(Q2_MD5_H, b, c, d, a, x[6], 0x04881d05, 23);
    Q2_MD5_STEP(Q2_MD5_H, a, b, c, d, x[9], 0xd9d4d039, 4);
    Q2_MD5_STEP(Q2_MD5_H, d, a, b, c, x[12], 0xe6db99e5, 11);
    Q2_MD5_STEP(Q2_MD5_H, c, d, a, b, x[15], 0x1fa27cf8, 16);
    Q2_MD5_STEP(Q2_MD5_H, b, c, d, a, x[2], 0xc4ac5665, 23);

    Q2_MD5_STEP(Q2_MD5_I, a, b, c, d, x[0], 0xf4292244, 6);
    Q2_MD5_STEP(Q2_MD5_I, d, a, b, c, x[7], 0x432aff97, 10);
    Q2_MD5_STEP(Q2_MD5_I, c, d, a, b, x[14], 0xab9423a7, 15);
    Q2_MD5_STEP(Q2_MD5_I, b, c, d, a, x[5], 0xfc93a039, 21);
    Q2_MD5_STEP(Q2_MD5_I, a, b, c, d, x[12], 0x655b59c3, 6);
    Q2_MD5_STEP(Q2_MD5_I, d, a, b, c, x[3], 0x8f0ccc92, 10);
    Q2_MD5_STEP(Q2_MD5_I, c, d, a, b, x[10], 0xffeff47d, 15);
    Q2_MD5_STEP(Q2_MD5_I, b, c, d, a, x[1], 0x85845dd1, 21);
    Q2_MD5_STEP(Q2_MD5_I, a, b, c, d, x[8], 0x6fa87e4f, 6);
    Q2_MD5_STEP(Q2_MD5_I, d, a, b, c, x[15], 0xfe2ce6e0, 10);
    Q2_MD5_STEP(Q2_MD5_I, c, d, a, b, x[6], 0xa3014314, 15);
    Q2_MD5_STEP(Q2_MD5_I, b, c, d, a, x[13], 0x4e0811a1, 21);
    Q2_MD5_STEP(Q2_MD5_I, a, b, c, d, x[4], 0xf7537e82, 6);
    Q2_MD5_STEP(Q2_MD5_I, d, a, b, c, x[11], 0xbd3af235, 10);
    Q2_MD5_STEP(Q2_MD5_I, c, d, a, b, x[2], 0x2ad7d2bb, 15);
    Q2_MD5_STEP(Q2_MD5_I, b, c, d, a, x[9], 0xeb86d391, 21);

    a += aa;
    b += bb;
    c += cc;
    d += dd;
  }
  state[0] = a;
  state[1] = b;
  state[2] = c;
  state[3] = d;
}

#undef Q2_MD5_F
#undef Q2_MD5_G
#undef Q2_MD5_H
#undef Q2_MD5_I
#undef Q2_MD5_STEP

}  // namespace

md5_t::md5_t() { reset(); }

void md5_t::reset() {
  m_context.state[0] = 0x67452301;
  m_context.state[1] = 0xefcdab89;
  m_context.state[2] = 0x98badcfe;
  m_context.state[3] = 0x10325476;
  m_context.count[0] = m_context.count[1] = 0;
  std::memset(m_context.buffer, 0, sizeof m_context.buffer);
}

void md5_t::update_from_bytes(context_t* context, void const* data, u64_t size) {
  auto const* p = static_cast<unsigned char const*>(data);
  std::size_t used = (context->count[0] >> 3) & 0x3F;
  // The bit count is kept modulo 2^64, as the standard says.
  std::uint64_t bits = (static_cast<std::uint64_t>(context->count[1]) << 32 | context->count[0]) +
                       (static_cast<std::uint64_t>(size) << 3);
  context->count[0] = static_cast<std::uint32_t>(bits);
  context->count[1] = static_cast<std::uint32_t>(bits >> 32);

  if (used != 0) {
    std::size_t const room = 64 - used;
    if (size < room) {
      std::memcpy(context->buffer + used, p, static_cast<std::size_t>(size));
      return;
    }
    std::memcpy(context->buffer + used, p, room);
    transform(context->state, context->buffer, 1);
    p += room;
    size -= room;
  }
  std::size_t const blocks = static_cast<std::size_t>(size / 64);
  transform(context->state, p, blocks);
  p += blocks * 64;
  std::memcpy(context->buffer, p, static_cast<std::size_t>(size % 64));
}

void md5_t::update(std::string const& text) {
  update_from_bytes(&m_context, text.data(), text.size());
}

void md5_t::update(std::wstring const& text) {
  internal::digest::for_each_utf16le_piece(
      text, [this](void const* data, std::size_t size) { update_from_bytes(&m_context, data, size); });
}

bool md5_t::update_from_file(path_t const& path, u64_t chunk_size) {
  if (chunk_size == 0) return false;
  context_t copy = m_context;
  auto const end = internal::digest::read_whole_file(
      path.native_string(),
      [&copy](void const* data, std::size_t size) { update_from_bytes(&copy, data, size); });
  if (end != internal::digest::read_end_t::end_of_file) return false;
  m_context = copy;
  return true;
}

md5_digest_t md5_t::get_digest() const {
  context_t context = m_context;
  unsigned char length[8];
  for (int i = 0; i < 4; ++i) {
    length[i] = static_cast<unsigned char>(context.count[0] >> (8 * i));
    length[4 + i] = static_cast<unsigned char>(context.count[1] >> (8 * i));
  }
  static unsigned char const padding[64] = {0x80};
  std::size_t const used = (context.count[0] >> 3) & 0x3F;
  std::size_t const pad = used < 56 ? 56 - used : 120 - used;
  update_from_bytes(&context, padding, pad);
  update_from_bytes(&context, length, 8);
  md5_digest_t digest;
  for (int i = 0; i < 4; ++i)
    for (int k = 0; k < 4; ++k)
      digest.bytes[4 * i + k] = static_cast<std::uint8_t>(context.state[i] >> (8 * k));
  return digest;
}

std::wstring md5_t::get_digest_base16() const {
  static wchar_t const digits[] = L"0123456789abcdef";
  md5_digest_t const digest = get_digest();
  std::wstring text(32, L'0');
  for (int i = 0; i < 16; ++i) {
    text[2 * i] = digits[digest.bytes[i] >> 4];
    text[2 * i + 1] = digits[digest.bytes[i] & 0x0F];
  }
  return text;
}

}  // namespace quillon2
