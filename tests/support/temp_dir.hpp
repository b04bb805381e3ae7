// A fresh temporary directory for one test, removed with everything in it at the
// end of the test. A test that leaves files behind outside it is not caught here.
#pragma once

#include <string>

#include <gtest/gtest.h>

namespace q2test {

// Makes a new directory under $TMPDIR (or /tmp) and removes it in the destructor.
class temp_dir_t {
 public:
  temp_dir_t();
  ~temp_dir_t();
  temp_dir_t(temp_dir_t const&) = delete;
  temp_dir_t& operator=(temp_dir_t const&) = delete;

  // The directory's POSIX path, without a trailing slash.
  std::string const& path() const { return m_path; }
  // path() + "/" + name.
  std::string file(std::string const& name) const { return m_path + "/" + name; }

 private:
  std::string m_path;
};

// The whole content of a file, or the empty text when it cannot be read.
std::string read_file(std::string const& path);
// Replaces the content of a file (made if missing) by `text`.
void write_file(std::string const& path, std::string const& text);

// A fixture that gives each test its own temporary directory.
class temp_dir_test : public ::testing::Test {
 protected:
  temp_dir_t m_dir;
};

}  // namespace q2test
