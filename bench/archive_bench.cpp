// ZIP archives and file mappings against their peers.
//
// zip_write / zip_read: 1,000 members of 16 KiB of text, deflated at zlib's default
// level, written to and read from a file in a temporary directory. The peers are bare
// minizip calls (the limit: the reader walks the directory in order instead of opening
// by name) and libzip (members added from memory, read back by name). Every reader
// reads the same archive, written once by minizip.
//
// mapping_read: the whole of a 256 MiB file summed as 64-bit words through a read-only
// mapping, against a read() loop into a 1 MiB buffer. The file is made once and stays
// in the page cache; Q2_BENCH_QUICK makes it 32 MiB.
#include <fcntl.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>
#include <minizip/unzip.h>
#include <minizip/zip.h>
#include <zip.h>  // libzip; minizip is reached as <minizip/...>

#include <quillon2/core/streams/archive.hpp>
#include <quillon2/core/streams/file_mapping.hpp>
#include <quillon2/headers/kesmet.hpp>

namespace {

namespace q2 = quillon2;

constexpr int k_members = 1000;
constexpr std::size_t k_member_size = 16 << 10;

struct fixture_t {
  std::string root;
  std::string content;
  std::vector<std::string> names;
  std::string archive;  // written by minizip, read by everybody
  std::string big;      // the large file of the mapping benchmarks
  std::size_t big_size = (std::getenv("Q2_BENCH_QUICK") ? 32u : 256u) << 20;

  fixture_t() {
    char const* base = std::getenv("TMPDIR");
    std::string pattern = std::string(base && *base ? base : "/tmp") + "/q2bench-XXXXXX";
    if (!::mkdtemp(pattern.data())) std::abort();
    root = pattern;
    unsigned seed = 7;
    char const* words[] = {"alpha ", "beta ", "gamma ", "delta ", "epsilon ", "zeta ", "eta\n"};
    while (content.size() < k_member_size) {
      seed = seed * 1103515245u + 12345u;
      content += words[(seed >> 16) % 7];
    }
    content.resize(k_member_size);
    for (int i = 0; i < k_members; ++i) names.push_back("dir/member_" + std::to_string(i) + ".txt");
    archive = root + "/shared.zip";
    write_minizip(archive);
    big = root + "/big.bin";
    std::string block(1 << 20, '\0');
    for (std::size_t i = 0; i < block.size(); ++i) block[i] = static_cast<char>(i * 31 + 7);
    int const fd = ::open(big.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    for (std::size_t done = 0; done < big_size; done += block.size()) {
      if (::write(fd, block.data(), block.size()) != static_cast<ssize_t>(block.size())) std::abort();
    }
    ::close(fd);
  }
  ~fixture_t() {
    std::error_code ec;
    std::filesystem::remove_all(root, ec);
  }

  void write_minizip(std::string const& path) const {
    zipFile zip = zipOpen64(path.c_str(), APPEND_STATUS_CREATE);
    for (auto const& name : names) {
      zip_fileinfo info{};
      zipOpenNewFileInZip3_64(zip, name.c_str(), &info, nullptr, 0, nullptr, 0, nullptr,
                              Z_DEFLATED, Z_DEFAULT_COMPRESSION, 0, -MAX_WBITS, 8,
                              Z_DEFAULT_STRATEGY, nullptr, 0, 0);
      zipWriteInFileInZip(zip, content.data(), static_cast<unsigned>(content.size()));
      zipCloseFileInZip(zip);
    }
    zipClose(zip, nullptr);
  }
};

fixture_t const& fixture() {
  static fixture_t const f;
  return f;
}

void BM_zip_write_ours(benchmark::State& state) {
  auto const& f = fixture();
  q2::path_t const path(kesmet2::utf8_to_utf16(f.root + "/ours.zip"));
  std::vector<std::wstring> names;
  for (auto const& name : f.names) names.push_back(kesmet2::utf8_to_utf16(name));
  for (auto _ : state) {
    q2::sptr_t<q2::archive_writer_t> zip;
    if (!q2::create_zip_writer(path, zip, false)) state.SkipWithError("open");
    for (auto const& name : names) {
      zip->create_new_stream(name, 0);
      zip->write(f.content.data(), f.content.size());
      zip->close();
    }
  }
}

void BM_zip_write_minizip(benchmark::State& state) {
  auto const& f = fixture();
  for (auto _ : state) f.write_minizip(f.root + "/minizip.zip");
}

void BM_zip_write_libzip(benchmark::State& state) {
  auto const& f = fixture();
  std::string const path = f.root + "/libzip.zip";
  for (auto _ : state) {
    int error = 0;
    zip_t* zip = zip_open(path.c_str(), ZIP_CREATE | ZIP_TRUNCATE, &error);
    for (auto const& name : f.names) {
      zip_source_t* source = zip_source_buffer(zip, f.content.data(), f.content.size(), 0);
      zip_int64_t const index = zip_file_add(zip, name.c_str(), source, ZIP_FL_ENC_UTF_8);
      zip_set_file_compression(zip, static_cast<zip_uint64_t>(index), ZIP_CM_DEFLATE, 6);
    }
    if (zip_close(zip) != 0) state.SkipWithError("zip_close");
  }
}

void BM_zip_read_ours(benchmark::State& state) {
  auto const& f = fixture();
  q2::path_t const path(kesmet2::utf8_to_utf16(f.archive));
  std::string buffer(k_member_size, '\0');
  for (auto _ : state) {
    q2::sptr_t<q2::archive_reader_t> zip;
    if (!q2::create_zip_reader(path, zip)) state.SkipWithError("open");
    std::size_t total = 0;
    for (auto it = zip->enum_streams(); !it.at_end(); it.next()) {
      zip->open_stream(it.current());
      q2::u64_t got = 0;
      zip->read(buffer.data(), buffer.size(), &got);
      zip->close();
      total += got;
    }
    if (total != k_members * k_member_size) state.SkipWithError("short");
  }
}

void BM_zip_read_minizip(benchmark::State& state) {
  auto const& f = fixture();
  std::string buffer(k_member_size, '\0');
  for (auto _ : state) {
    unzFile zip = unzOpen64(f.archive.c_str());
    std::size_t total = 0;
    for (int res = unzGoToFirstFile(zip); res == UNZ_OK; res = unzGoToNextFile(zip)) {
      unzOpenCurrentFile(zip);
      total += static_cast<std::size_t>(
          unzReadCurrentFile(zip, buffer.data(), static_cast<unsigned>(buffer.size())));
      unzCloseCurrentFile(zip);
    }
    unzClose(zip);
    if (total != k_members * k_member_size) state.SkipWithError("short");
  }
}

void BM_zip_read_libzip(benchmark::State& state) {
  auto const& f = fixture();
  std::string buffer(k_member_size, '\0');
  for (auto _ : state) {
    int error = 0;
    zip_t* zip = zip_open(f.archive.c_str(), ZIP_RDONLY, &error);
    std::size_t total = 0;
    for (auto const& name : f.names) {
      zip_file_t* member = zip_fopen(zip, name.c_str(), 0);
      total += static_cast<std::size_t>(zip_fread(member, buffer.data(), buffer.size()));
      zip_fclose(member);
    }
    zip_discard(zip);
    if (total != k_members * k_member_size) state.SkipWithError("short");
  }
}

std::uint64_t sum_words(void const* data, std::size_t size) {
  auto const* words = static_cast<std::uint64_t const*>(data);
  std::uint64_t sum = 0;
  for (std::size_t i = 0; i < size / 8; ++i) sum += words[i];
  return sum;
}

void BM_mapping_read_ours(benchmark::State& state) {
  auto const& f = fixture();
  q2::path_t const path(kesmet2::utf8_to_utf16(f.big));
  for (auto _ : state) {
    q2::sptr_t<q2::file_mapping_t> map;
    if (!q2::create_file_mapping(map, path, false, 0, 0)) state.SkipWithError("map");
    benchmark::DoNotOptimize(sum_words(map->get_address(), map->get_size()));
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * f.big_size));
}

void BM_mapping_read_loop(benchmark::State& state) {
  auto const& f = fixture();
  std::vector<std::uint64_t> buffer((1 << 20) / 8);
  for (auto _ : state) {
    int const fd = ::open(f.big.c_str(), O_RDONLY | O_CLOEXEC);
    std::uint64_t sum = 0;
    for (;;) {
      ssize_t const n = ::read(fd, buffer.data(), buffer.size() * 8);
      if (n <= 0) break;
      sum += sum_words(buffer.data(), static_cast<std::size_t>(n));
    }
    ::close(fd);
    benchmark::DoNotOptimize(sum);
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * f.big_size));
}

BENCHMARK(BM_zip_write_ours)->Name("zip_write/ours")->Unit(benchmark::kMillisecond);
BENCHMARK(BM_zip_write_minizip)->Name("zip_write/minizip")->Unit(benchmark::kMillisecond);
BENCHMARK(BM_zip_write_libzip)->Name("zip_write/libzip")->Unit(benchmark::kMillisecond);
BENCHMARK(BM_zip_read_ours)->Name("zip_read/ours")->Unit(benchmark::kMillisecond);
BENCHMARK(BM_zip_read_minizip)->Name("zip_read/minizip")->Unit(benchmark::kMillisecond);
BENCHMARK(BM_zip_read_libzip)->Name("zip_read/libzip")->Unit(benchmark::kMillisecond);
BENCHMARK(BM_mapping_read_ours)->Name("mapping_read/ours")->Unit(benchmark::kMillisecond);
BENCHMARK(BM_mapping_read_loop)->Name("mapping_read/read_loop")->Unit(benchmark::kMillisecond);

}  // namespace
