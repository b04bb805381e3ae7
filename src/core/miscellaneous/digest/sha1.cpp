// SHA-1 of files through OpenSSL's EVP interface, which uses the processor's SHA
// instructions where there are any.
//
// get_digest_base16 pads the object itself: the padding goes into the message as ordinary
// blocks and the chaining values become the digest, so a second call (or more data after
// the first) continues from that state. OpenSSL can't continue after its final step, so
// the first call takes the digest from OpenSSL and from then on the object hashes with the
// small compression function below, which starts from that digest.
#include <openssl/evp.h>

#include <cstring>
#include <stdexcept>

#include <quillon2/core/digest.hpp>
#include <quillon2/core/file_system/path.hpp>

#include "core/miscellaneous/digest/include/digest_input.hpp"

namespace quillon2 {

namespace {

inline std::uint32_t rotl(std::uint32_t x, int n) { return (x << n) | (x >> (32 - n)); }

void compress(std::uint32_t h[5], unsigned char const* block) {
  std::uint32_t w[80];
  for (int i = 0; i < 16; ++i)
    w[i] = static_cast<std::uint32_t>(block[4 * i]) << 24 |
           static_cast<std::uint32_t>(block[4 * i + 1]) << 16 |
           static_cast<std::uint32_t>(block[4 * i + 2]) << 8 | block[4 * i + 3];
  for (int i = 16; i < 80; ++i) w[i] = rotl(w[i - 3] ^ w[i - 8] ^ w[i - 14] ^ w[i - 16], 1);
  std::uint32_t a = h[0], b = h[1], c = h[2], d = h[3], e = h[4];
  for (int i = 0; i < 80; ++i) {
    std::uint32_t f, k;
    if (i < 20) {
      f = (b & c) | (~b & d);
      k = 0x5A827999;
    } else if (i < 40) {
      f = b ^ c ^ d;
      k = 0x6ED9EBA1;
    } else if (i < 60) {
      f = (b & c) | (b & d) | (c & d);
      k = 0x8F1BBCDC;
    } else {
      f = b ^ c ^ d;
      k = 0xCA62C1D6;
    }
    std::uint32_t const t = rotl(a, 5) + f + e + k + w[i];
    e = d;
    d = c;
    c = rotl(b, 30);
    b = a;
    a = t;
  }
  h[0] += a;
  h[1] += b;
  h[2] += c;
  h[3] += d;
  h[4] += e;
}

// The implementation, fetched from OpenSSL's providers once: EVP_sha1() would have every
// initialisation look it up again, which costs as much as hashing a short message.
EVP_MD const* sha1_method() {
  static EVP_MD const* const method = [] {
    EVP_MD const* fetched = EVP_MD_fetch(nullptr, "SHA1", nullptr);
    return fetched != nullptr ? fetched : EVP_sha1();
  }();
  return method;
}

}  // namespace

struct sha1_t::state_t {
  EVP_MD_CTX* ctx = nullptr;  // until the first digest; null after it
  std::uint64_t bits = 0;     // the message length, padding not counted
  // After the first digest: the chaining values and the incomplete block.
  std::uint32_t h[5] = {};
  unsigned char block[64] = {};
  std::size_t used = 0;

  state_t() {
    ctx = EVP_MD_CTX_new();
    if (ctx == nullptr || EVP_DigestInit_ex(ctx, sha1_method(), nullptr) != 1)
      throw std::bad_alloc();
  }
  state_t(state_t const& other)
      : bits(other.bits), used(other.used) {
    std::memcpy(h, other.h, sizeof h);
    std::memcpy(block, other.block, sizeof block);
    if (other.ctx != nullptr) {
      ctx = EVP_MD_CTX_new();
      if (ctx == nullptr || EVP_MD_CTX_copy_ex(ctx, other.ctx) != 1) {
        EVP_MD_CTX_free(ctx);
        throw std::bad_alloc();
      }
    }
  }
  state_t& operator=(state_t const&) = delete;
  ~state_t() { EVP_MD_CTX_free(ctx); }

  // Adds bytes of padding or message to the chaining values of the continued state.
  void process(unsigned char const* p, std::size_t size) {
    while (size > 0) {
      std::size_t const n = std::min(size, 64 - used);
      std::memcpy(block + used, p, n);
      used += n;
      p += n;
      size -= n;
      if (used == 64) {
        compress(h, block);
        used = 0;
      }
    }
  }

  void add(void const* data, std::size_t size) {
    std::uint64_t const added = static_cast<std::uint64_t>(size) * 8;
    if ((size >> 61) != 0 || bits + added < bits) throw std::runtime_error("sha1 too many bytes");
    bits += added;
    if (ctx != nullptr)
      EVP_DigestUpdate(ctx, data, size);
    else
      process(static_cast<unsigned char const*>(data), size);
  }

  void finish() {
    if (ctx != nullptr) {
      unsigned char digest[20];
      EVP_DigestFinal_ex(ctx, digest, nullptr);
      EVP_MD_CTX_free(ctx);
      ctx = nullptr;
      for (int i = 0; i < 5; ++i)
        h[i] = static_cast<std::uint32_t>(digest[4 * i]) << 24 |
               static_cast<std::uint32_t>(digest[4 * i + 1]) << 16 |
               static_cast<std::uint32_t>(digest[4 * i + 2]) << 8 | digest[4 * i + 3];
      used = 0;
      return;
    }
    unsigned char const one = 0x80;
    process(&one, 1);
    static unsigned char const zeros[64] = {};
    process(zeros, used <= 56 ? 56 - used : 120 - used);
    unsigned char length[8];
    for (int i = 0; i < 8; ++i) length[i] = static_cast<unsigned char>(bits >> (56 - 8 * i));
    process(length, 8);
  }
};

sha1_t::sha1_t() : m_state(new state_t) {}
sha1_t::sha1_t(sha1_t const& other) : m_state(new state_t(*other.m_state)) {}
sha1_t& sha1_t::operator=(sha1_t const& other) {
  if (this != &other) {
    state_t* copy = new state_t(*other.m_state);
    delete m_state;
    m_state = copy;
  }
  return *this;
}
sha1_t::~sha1_t() { delete m_state; }

void sha1_t::update(void const* data, std::size_t size) { m_state->add(data, size); }

bool sha1_t::update_from_file(path_t const& path, u64_t chunk_size) {
  if (chunk_size == 0) return false;
  auto const end = internal::digest::read_whole_file(
      path.native_string(),
      [this](void const* data, std::size_t size) { m_state->add(data, size); });
  return end == internal::digest::read_end_t::end_of_file;
}

std::wstring sha1_t::get_digest_base16() {
  static wchar_t const digits[] = L"0123456789abcdef";
  m_state->finish();
  std::wstring text(40, L'0');
  for (int i = 0; i < 5; ++i)
    for (int k = 0; k < 8; ++k) text[8 * i + k] = digits[(m_state->h[i] >> (28 - 4 * k)) & 0x0F];
  return text;
}

}  // namespace quillon2
