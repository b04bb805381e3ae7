// A sparse file beyond 4 GiB, so that byte counts and bit counts pass 32 bits, against
// the system's md5sum and sha1sum.
#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <string>

#include <gtest/gtest.h>

#include <quillon2/core/digest.hpp>
#include <quillon2/core/file_system/path.hpp>
#include <quillon2/headers/kesmet.hpp>

#include "support/temp_dir.hpp"

namespace {

std::string first_word_of(std::string const& command) {
  std::string output;
  if (FILE* pipe = ::popen(command.c_str(), "r")) {
    char buffer[256];
    while (std::fgets(buffer, sizeof buffer, pipe) != nullptr) output += buffer;
    ::pclose(pipe);
  }
  return output.substr(0, output.find(' '));
}

TEST(digest_stress, sparse_file_beyond_4_gib_matches_md5sum_and_sha1sum) {
  q2test::temp_dir_t dir;
  std::string const file = dir.file("sparse.bin");
  int const fd = ::open(file.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
  ASSERT_GE(fd, 0);
  std::uint64_t const size = (std::uint64_t{4} << 30) + 12345;
  ASSERT_EQ(::ftruncate(fd, static_cast<off_t>(size)), 0);
  ASSERT_EQ(::pwrite(fd, "head", 4, 0), 4);
  ASSERT_EQ(::pwrite(fd, "tail", 4, static_cast<off_t>(size - 4)), 4);
  ::close(fd);

  quillon2::path_t const path = quillon2::make_path(file);
  quillon2::md5_t md5;
  ASSERT_TRUE(md5.update_from_file(path, 1 << 20));
  quillon2::sha1_t sha1;
  ASSERT_TRUE(sha1.update_from_file(path, 1 << 20));
  EXPECT_EQ(kesmet2::utf16_to_utf8(md5.get_digest_base16()), first_word_of("md5sum " + file));
  EXPECT_EQ(kesmet2::utf16_to_utf8(sha1.get_digest_base16()), first_word_of("sha1sum " + file));
}

}  // namespace
