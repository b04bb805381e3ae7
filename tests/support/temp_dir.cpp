#include "support/temp_dir.hpp"

#include <stdlib.h>

#include <cstdlib>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <system_error>

#include <boost/filesystem.hpp>

namespace q2test {

temp_dir_t::temp_dir_t() {
  char const* base = std::getenv("TMPDIR");
  std::string pattern = std::string(base && *base ? base : "/tmp") + "/q2test-XXXXXX";
  if (!mkdtemp(pattern.data())) throw std::runtime_error("mkdtemp failed");
  m_path = pattern;
}

temp_dir_t::~temp_dir_t() {
  boost::system::error_code ec;
  // Make everything writable first so that read-only leftovers go too.
  boost::filesystem::remove_all(m_path, ec);
}

std::string read_file(std::string const& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream text;
  text << in.rdbuf();
  return text.str();
}

void write_file(std::string const& path, std::string const& text) {
  std::ofstream(path, std::ios::binary | std::ios::trunc) << text;
}

}  // namespace q2test
