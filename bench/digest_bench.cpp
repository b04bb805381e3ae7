// Digests of 64 B, 4 KiB and 1 MiB in memory against the libraries a user would call
// instead: OpenSSL (MD5, SHA-1), zlib (CRC-32), and Boost.Uuid's SHA-1 and Boost.CRC.
//   md5/<impl>/<size>, sha1/<impl>/<size>, crc32/<impl>/<size>
// SHA-1 results are printed as hexadecimal text on every side, as sha1_t gives them.
#include <openssl/evp.h>
#include <zlib.h>

#include <string>

#include <benchmark/benchmark.h>
#include <boost/crc.hpp>
#include <boost/uuid/detail/sha1.hpp>

#include <quillon2/core/digest.hpp>

namespace {

std::string const& input(std::size_t size) {
  static std::string data = [] {
    std::string d(1 << 20, '\0');
    for (std::size_t i = 0; i < d.size(); ++i) d[i] = static_cast<char>(i * 2654435761u >> 13);
    return d;
  }();
  static std::string sizes[3];
  std::string& s = sizes[size == 64 ? 0 : size == 4096 ? 1 : 2];
  if (s.size() != size) s = data.substr(0, size);
  return s;
}

std::wstring hex(unsigned char const* bytes, std::size_t size) {
  static wchar_t const digits[] = L"0123456789abcdef";
  std::wstring text(2 * size, L'0');
  for (std::size_t i = 0; i < size; ++i) {
    text[2 * i] = digits[bytes[i] >> 4];
    text[2 * i + 1] = digits[bytes[i] & 15];
  }
  return text;
}

void set_bytes(benchmark::State& state, std::size_t size) {
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(size));
}

void md5_ours(benchmark::State& state) {
  std::string const& data = input(static_cast<std::size_t>(state.range(0)));
  for (auto _ : state) {
    quillon2::md5_t md5;
    md5.update(data);
    benchmark::DoNotOptimize(md5.get_digest());
  }
  set_bytes(state, data.size());
}

// EVP_Digest, the one-shot call, as a user hashing one message would write it.
void evp_digest(benchmark::State& state, EVP_MD const* md, bool as_hex) {
  std::string const& data = input(static_cast<std::size_t>(state.range(0)));
  for (auto _ : state) {
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    EVP_Digest(data.data(), data.size(), digest, &length, md, nullptr);
    if (as_hex)
      benchmark::DoNotOptimize(hex(digest, length));
    else
      benchmark::DoNotOptimize(digest);
  }
  set_bytes(state, data.size());
}

void md5_openssl(benchmark::State& state) { evp_digest(state, EVP_md5(), false); }
void sha1_openssl(benchmark::State& state) { evp_digest(state, EVP_sha1(), true); }

void sha1_ours(benchmark::State& state) {
  std::string const& data = input(static_cast<std::size_t>(state.range(0)));
  for (auto _ : state) {
    quillon2::sha1_t sha1;
    sha1.update(data.data(), data.size());
    benchmark::DoNotOptimize(sha1.get_digest_base16());
  }
  set_bytes(state, data.size());
}

void sha1_boost(benchmark::State& state) {
  std::string const& data = input(static_cast<std::size_t>(state.range(0)));
  for (auto _ : state) {
    boost::uuids::detail::sha1 sha1;
    sha1.process_bytes(data.data(), data.size());
    boost::uuids::detail::sha1::digest_type words;
    sha1.get_digest(words);
    unsigned char bytes[20];
    for (int i = 0; i < 5; ++i)
      for (int k = 0; k < 4; ++k) bytes[4 * i + k] = static_cast<unsigned char>(words[i] >> (24 - 8 * k));
    benchmark::DoNotOptimize(hex(bytes, 20));
  }
  set_bytes(state, data.size());
}

// The wide-text form hashes two bytes a character: it gets half as many characters as
// the size says. The peers hash the same UTF-16LE bytes, made the way a caller would.
std::wstring const& wide_input(std::size_t size) {
  static std::wstring texts[3];
  std::wstring& text = texts[size == 64 ? 0 : size == 4096 ? 1 : 2];
  if (text.size() != size / 2) {
    std::string const& data = input(size);
    text.resize(size / 2);
    for (std::size_t i = 0; i < text.size(); ++i)
      text[i] = static_cast<wchar_t>((static_cast<unsigned char>(data[2 * i]) << 8 |
                                      static_cast<unsigned char>(data[2 * i + 1])) % 0xD000);
  }
  return text;
}

std::u16string as_utf16(std::wstring const& text) { return std::u16string(text.begin(), text.end()); }

void crc32_ours(benchmark::State& state) {
  std::wstring const& text = wide_input(static_cast<std::size_t>(state.range(0)));
  for (auto _ : state) benchmark::DoNotOptimize(quillon2::generate_hash(text));
  set_bytes(state, text.size() * 2);
}

void crc32_zlib(benchmark::State& state) {
  std::wstring const& text = wide_input(static_cast<std::size_t>(state.range(0)));
  for (auto _ : state) {
    std::u16string const units = as_utf16(text);
    benchmark::DoNotOptimize(crc32_z(crc32_z(0, Z_NULL, 0),
                                     reinterpret_cast<Bytef const*>(units.data()), units.size() * 2));
  }
  set_bytes(state, text.size() * 2);
}

void crc32_boost(benchmark::State& state) {
  std::wstring const& text = wide_input(static_cast<std::size_t>(state.range(0)));
  for (auto _ : state) {
    std::u16string const units = as_utf16(text);
    boost::crc_32_type crc;
    crc.process_bytes(units.data(), units.size() * 2);
    benchmark::DoNotOptimize(crc.checksum());
  }
  set_bytes(state, text.size() * 2);
}

void sizes(benchmark::internal::Benchmark* b) {
  for (int size : {64, 4096, 1 << 20}) b->Arg(size);
}

BENCHMARK(md5_ours)->Name("md5/ours")->Apply(sizes);
BENCHMARK(md5_openssl)->Name("md5/openssl")->Apply(sizes);
BENCHMARK(sha1_ours)->Name("sha1/ours")->Apply(sizes);
BENCHMARK(sha1_openssl)->Name("sha1/openssl")->Apply(sizes);
BENCHMARK(sha1_boost)->Name("sha1/boost_uuid")->Apply(sizes);
BENCHMARK(crc32_ours)->Name("crc32/ours")->Apply(sizes);
BENCHMARK(crc32_zlib)->Name("crc32/zlib")->Apply(sizes);
BENCHMARK(crc32_boost)->Name("crc32/boost_crc")->Apply(sizes);

}  // namespace
