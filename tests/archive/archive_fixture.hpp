// What the archive tests share: a fresh directory per test, paths in it, whole reads of
// streams, and the small helpers that patch or run external tools on archive files.
#pragma once

#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <string>

#include <gtest/gtest.h>

#include <quillon2/core/error_code.hpp>
#include <quillon2/core/streams/archive.hpp>
#include <quillon2/core/streams/file_mapping.hpp>
#include <quillon2/headers/kesmet.hpp>

#include "support/assert_recorder.hpp"
#include "support/temp_dir.hpp"

namespace q2test {

namespace q2 = quillon2;

class archive_test : public temp_dir_test {
 protected:
  void SetUp() override { q2::error_code_t::clean_last(); }

  q2::path_t at(std::string const& name) const {
    return q2::path_t(kesmet2::utf8_to_utf16(m_dir.file(name)));
  }
  std::string file(std::string const& name) const { return m_dir.file(name); }

  // Runs a shell command in the test directory; its exit status.
  int run(std::string const& command) const {
    return std::system(("cd '" + m_dir.path() + "' && " + command + " >/dev/null 2>&1").c_str());
  }
};

// Reads the open stream to its end in small steps, checking has_data on the way.
inline std::string read_rest(q2::read_stream_t& stream) {
  std::string out;
  char buffer[333];
  while (stream.has_data().is_ok()) {
    q2::u64_t got = 0;
    if (stream.read(buffer, sizeof buffer, &got).failed()) return out + "<failed>";
    if (got == 0) return out + "<stuck>";
    out.append(buffer, got);
  }
  return out;
}

// Opens, reads whole and closes one stream of an archive.
inline std::string read_stream(q2::archive_reader_t& archive, std::wstring const& name) {
  if (archive.open_stream(name).failed()) return "<missing>";
  std::string const content = read_rest(archive);
  if (archive.close().failed()) return content + "<close failed>";
  return content;
}

inline std::string make_text(std::size_t size, unsigned seed = 1) {
  std::string text;
  text.reserve(size);
  while (text.size() < size) {
    seed = seed * 1103515245u + 12345u;
    text += "lorem ipsum dolor sit amet "[(seed >> 16) % 27];
  }
  return text;
}

}  // namespace q2test
