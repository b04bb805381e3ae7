// Digests: MD5 of strings and files, SHA-1 of files, CRC-32 of wide text and files.
//
// The algorithms are the published ones (RFC 1321, FIPS 180-1, the CRC-32 of IEEE 802.3).
// What this header settles is which bytes go in: a narrow string is hashed as its bytes;
// a wide string as UTF-16LE, "two bytes per character, low byte first", a character
// outside the Basic Multilingual Plane as its surrogate pair, so that a digest of wide
// text is the same on every platform. Files are read whole, whatever the buffer size
// asked for; a buffer size of 0, a file that can't be opened, a directory or a FIFO is an
// unreadable file. An object is used by one thread at a time.
#pragma once

#include <cstdint>
#include <string>

#include <quillon2/export.hpp>
#include <quillon2/headers/kesmet.hpp>

namespace quillon2 {

class path_t;

// An MD5 digest, its 16 bytes in the order of the standard.
struct md5_digest_t {
  std::uint8_t bytes[16] = {};

  friend bool operator==(md5_digest_t const& a, md5_digest_t const& b) {
    for (int i = 0; i < 16; ++i)
      if (a.bytes[i] != b.bytes[i]) return false;
    return true;
  }
  friend bool operator!=(md5_digest_t const& a, md5_digest_t const& b) { return !(a == b); }
};

class QUILLON2_API md5_t {
 public:
  // The whole state: copying an object forks a partly hashed message.
  struct context_t {
    std::uint32_t state[4];  // chaining values
    std::uint32_t count[2];  // bits hashed so far, low word first
    std::uint8_t buffer[64];  // the incomplete last block
  };

  md5_t();

  void update(std::string const& text);
  // Hashes the UTF-16LE form of the text.
  void update(std::wstring const& text);
  // Adds the whole file to the message and returns true; on any failure returns false
  // and leaves the object as it was.
  bool update_from_file(path_t const& path, u64_t chunk_size);

  // The digest of the message so far; the object stays as it was and can go on.
  md5_digest_t get_digest() const;
  // The digest in 32 lower-case hexadecimal digits.
  std::wstring get_digest_base16() const;

 private:
  void reset();
  static void update_from_bytes(context_t* context, void const* data, u64_t size);

  context_t m_context;
};

// SHA-1 of files. get_digest_base16 pads the object itself, so it is called once: a
// second call continues from the padded state and gives another value.
class QUILLON2_API sha1_t {
 public:
  sha1_t();
  sha1_t(sha1_t const& other);
  sha1_t& operator=(sha1_t const& other);
  ~sha1_t();

  // Adds the whole file; true when it was read to its end. On a read error what was
  // read stays in the object. Throws std::runtime_error("sha1 too many bytes") when the
  // message would exceed 2^64 bits.
  bool update_from_file(path_t const& path, u64_t chunk_size);
  std::wstring get_digest_base16();

  // Adds bytes to the message (an addition of ours, for text that is not in a file).
  void update(void const* data, std::size_t size);

 private:
  struct state_t;
  state_t* m_state;
};

// CRC-32 of the UTF-16LE form of the text; 0 for an empty text.
QUILLON2_API unsigned long generate_hash(std::wstring const& text);
// CRC-32 of what could be read of the file; 0 for a file that can't be read.
QUILLON2_API unsigned long generate_hash(path_t const& path, u64_t chunk_size);

}  // namespace quillon2
