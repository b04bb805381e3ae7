// Fuzzing the ZIP reader. Each input is written to a file of its own process and read
// as a client would: open the archive, list its members, open each one by its listed
// name, read it to the end in small steps and close it; also read each member through
// a mapping on the stream.
//
// What must hold for every file: no crash, no hang, no assertion report, and no
// allocation beyond what the data delivers. Every step may fail with a code; a read
// that succeeds either makes progress or the member is at its end, so the loop below
// always ends.
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include <quillon2/core/streams/archive.hpp>
#include <quillon2/core/streams/file_mapping.hpp>
#include <quillon2/headers/kesmet.hpp>

namespace {

namespace q2 = quillon2;

// The file of this process, removed at exit.
struct scratch_t {
  std::string name;
  scratch_t() {
    char const* base = std::getenv("TMPDIR");
    name = std::string(base && *base ? base : "/tmp") + "/q2_zip_fuzz_" +
           std::to_string(::getpid()) + ".zip";
  }
  ~scratch_t() { ::unlink(name.c_str()); }
};

std::string const& scratch_file() {
  static scratch_t const scratch;
  return scratch.name;
}

void read_member(q2::archive_reader_t& zip, std::wstring const& name) {
  if (zip.open_stream(name).failed()) return;
  char buffer[4096];
  while (zip.has_data().is_ok()) {
    q2::u64_t got = 0;
    if (zip.read(buffer, sizeof buffer, &got).failed()) break;
    if (got == 0) std::abort();  // Ok, nothing read and not at the end: a client would spin
  }
  zip.close();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  FILE* file = std::fopen(scratch_file().c_str(), "wbe");
  if (file == nullptr) return 0;
  std::fwrite(data, 1, size, file);
  std::fclose(file);

  q2::sptr_t<q2::archive_reader_t> zip;
  q2::path_t const path(kesmet2::utf8_to_utf16(scratch_file()));
  if (q2::create_zip_reader(path, zip).failed()) return 0;
  for (auto it = zip->enum_streams(); !it.at_end(); it.next()) {
    read_member(*zip, it.current());
    if (zip->open_stream(it.current()).is_ok()) {
      q2::sptr_t<q2::file_mapping_t> block;
      q2::create_mapping_on_stream(block, q2::sptr_t<q2::read_stream_t>(zip), 0);
      zip->close();
    }
  }
  q2::error_code_t::clean_last();
  return 0;
}
