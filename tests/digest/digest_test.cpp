// Digests of strings and files and the scope timer's line, against published vectors.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <stdexcept>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <quillon2/core/digest.hpp>
#include <quillon2/core/file_system/path.hpp>
#include <quillon2/core/time_logger.hpp>

#include "support/temp_dir.hpp"

namespace {

using quillon2::generate_hash;
using quillon2::md5_t;
using quillon2::path_t;
using quillon2::sha1_t;

path_t as_path(std::string const& native) { return quillon2::make_path(native); }

std::wstring md5_of(std::string const& text) {
  md5_t md5;
  md5.update(text);
  return md5.get_digest_base16();
}

std::wstring md5_of_bytes(std::string const& bytes) { return md5_of(bytes); }

class digest_test : public q2test::temp_dir_test {};

TEST(md5, rfc1321_vectors) {
  EXPECT_EQ(md5_t().get_digest_base16(), L"d41d8cd98f00b204e9800998ecf8427e");
  EXPECT_EQ(md5_of("a"), L"0cc175b9c0f1b6a831c399e269772661");
  EXPECT_EQ(md5_of("abc"), L"900150983cd24fb0d6963f7d28e17f72");
  EXPECT_EQ(md5_of("message digest"), L"f96b697d7cb7938d525a2f31aaf161d0");
  EXPECT_EQ(md5_of("abcdefghijklmnopqrstuvwxyz"), L"c3fcd3d76192e4007dfb496cca67e13b");
  EXPECT_EQ(md5_of("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789"),
            L"d174ab98d277d9f5a5611c2c9f419d9f");
  EXPECT_EQ(md5_of("1234567890123456789012345678901234567890123456789012345678901234567890"
                   "1234567890"),
            L"57edf4a22be3c955ac49da2e2107b67a");
}

TEST(md5, every_split_of_a_message_gives_one_digest) {
  std::string message;
  for (int i = 0; i < 200; ++i) message += static_cast<char>('a' + i * 7 % 26);
  std::wstring const whole = md5_of(message);
  for (std::size_t cut = 0; cut <= message.size(); ++cut) {
    md5_t md5;
    md5.update(message.substr(0, cut));
    md5_t const fork = md5;  // a copy continues on its own
    md5.update(message.substr(cut));
    ASSERT_EQ(md5.get_digest_base16(), whole) << cut;
    EXPECT_EQ(fork.get_digest(), md5_t(fork).get_digest());
  }
}

TEST(md5, digest_leaves_the_message_open) {
  md5_t md5;
  md5.update(std::string("ab"));
  EXPECT_EQ(md5.get_digest_base16(), md5_of("ab"));
  md5.update(std::string("c"));
  EXPECT_EQ(md5.get_digest_base16(), md5_of("abc"));
  EXPECT_NE(md5.get_digest(), md5_t().get_digest());
}

TEST(md5, wide_text_is_hashed_as_utf16le) {
  md5_t wide;
  wide.update(std::wstring(L"abc"));
  EXPECT_EQ(wide.get_digest_base16(), md5_of_bytes(std::string("a\0b\0c\0", 6)));
  // U+1F600 is the surrogate pair D83D DE00.
  md5_t emoji;
  emoji.update(std::wstring(L"x\U0001F600"));
  EXPECT_EQ(emoji.get_digest_base16(), md5_of_bytes(std::string("x\0\x3D\xD8\x00\xDE", 6)));
}

TEST_F(digest_test, file_digests_read_the_whole_file_whatever_the_chunk) {
  std::string content;
  for (int i = 0; i < 1024; ++i) content += static_cast<char>(i * 31 + 7);
  std::string const file = m_dir.file("data.bin");
  q2test::write_file(file, content);
  std::wstring const expected = md5_of(content);
  for (quillon2::u64_t chunk = 1; chunk <= 130; ++chunk) {
    md5_t md5;
    ASSERT_TRUE(md5.update_from_file(as_path(file), chunk)) << chunk;
    ASSERT_EQ(md5.get_digest_base16(), expected) << chunk;
  }
  // Two files in a row give the digest of their concatenation.
  md5_t twice;
  ASSERT_TRUE(twice.update_from_file(as_path(file), 4096));
  ASSERT_TRUE(twice.update_from_file(as_path(file), 10));
  EXPECT_EQ(twice.get_digest_base16(), md5_of(content + content));
}

TEST_F(digest_test, unreadable_files_fail_and_change_nothing) {
  ASSERT_EQ(::mkfifo(m_dir.file("fifo").c_str(), 0600), 0);
  q2test::write_file(m_dir.file("ten"), "0123456789");
  for (std::string const& name : {m_dir.file("missing"), m_dir.path(), m_dir.file("fifo")}) {
    md5_t md5;
    md5.update(std::string("abc"));
    EXPECT_FALSE(md5.update_from_file(as_path(name), 4096)) << name;
    EXPECT_EQ(md5.get_digest_base16(), md5_of("abc"));
    sha1_t sha1;
    EXPECT_FALSE(sha1.update_from_file(as_path(name), 4096)) << name;
    EXPECT_EQ(generate_hash(as_path(name), 4096), 0ul) << name;
  }
  // A chunk size of 0 could never reach the end of the file.
  md5_t md5;
  EXPECT_FALSE(md5.update_from_file(as_path(m_dir.file("ten")), 0));
  EXPECT_EQ(md5.get_digest_base16(), md5_t().get_digest_base16());
  sha1_t sha1;
  EXPECT_FALSE(sha1.update_from_file(as_path(m_dir.file("ten")), 0));
  EXPECT_EQ(generate_hash(as_path(m_dir.file("ten")), 0), 0ul);
}

TEST_F(digest_test, sha1_vectors_and_its_padding_on_the_object) {
  q2test::write_file(m_dir.file("empty"), "");
  q2test::write_file(m_dir.file("abc"), "abc");
  q2test::write_file(m_dir.file("long"),
                     "abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq");
  auto sha1_of = [&](std::string const& name) {
    sha1_t sha1;
    EXPECT_TRUE(sha1.update_from_file(as_path(m_dir.file(name)), 7));
    return sha1.get_digest_base16();
  };
  EXPECT_EQ(sha1_of("empty"), L"da39a3ee5e6b4b0d3255bfef95601890afd80709");
  EXPECT_EQ(sha1_of("abc"), L"a9993e364706816aba3e25717850c26c9cd0d89d");
  EXPECT_EQ(sha1_of("long"), L"84983e441c3bd26ebaae4aa1f95129e5e54670f1");

  // The padding goes into the object: the second call goes on from the padded state,
  // which is the digest of the padded message followed by the same padding again.
  sha1_t sha1;
  std::wstring const first = sha1.get_digest_base16();
  std::wstring const second = sha1.get_digest_base16();
  EXPECT_EQ(first, L"da39a3ee5e6b4b0d3255bfef95601890afd80709");
  EXPECT_EQ(second, L"2485e7539b2c97a21e718525bf51d56d1559a0ee");
  EXPECT_NE(sha1.get_digest_base16(), second);
  // A copy made before the digest is independent of the original.
  sha1_t a;
  a.update("ab", 2);
  sha1_t b = a;
  a.update("c", 1);
  b.update("c", 1);
  EXPECT_EQ(a.get_digest_base16(), L"a9993e364706816aba3e25717850c26c9cd0d89d");
  EXPECT_EQ(b.get_digest_base16(), L"a9993e364706816aba3e25717850c26c9cd0d89d");
}

TEST_F(digest_test, crc32_of_text_and_files) {
  q2test::write_file(m_dir.file("digits"), "123456789");
  EXPECT_EQ(generate_hash(as_path(m_dir.file("digits")), 1), 0xCBF43926ul);
  EXPECT_EQ(generate_hash(as_path(m_dir.file("digits")), 4096), 0xCBF43926ul);
  EXPECT_EQ(generate_hash(std::wstring()), 0ul);
  // "1" as UTF-16LE is 31 00; U+10000 is D800 DC00.
  q2test::write_file(m_dir.file("w"), std::string("1\0\x00\xD8\x00\xDC", 6));
  EXPECT_EQ(generate_hash(std::wstring(L"1\U00010000")),
            generate_hash(as_path(m_dir.file("w")), 3));
  // Long texts are narrowed many units at a time: units with the top bit of their low
  // half set, across block ends, with and without a unit beyond 16 bits in the block.
  for (bool astral : {false, true}) {
    std::wstring text;
    std::string bytes;
    for (unsigned i = 0; i < 5000; ++i) {
      unsigned const unit = i == 4321 && astral ? 0x1F600u : (i * 40503u) & 0xFFFFu;
      text.push_back(static_cast<wchar_t>(unit));
      if (unit > 0xFFFF) {
        bytes.append("\x3D\xD8\x00\xDE", 4);
      } else {
        bytes.push_back(static_cast<char>(unit & 0xFF));
        bytes.push_back(static_cast<char>(unit >> 8));
      }
    }
    q2test::write_file(m_dir.file("long"), bytes);
    EXPECT_EQ(generate_hash(text), generate_hash(as_path(m_dir.file("long")), 4096)) << astral;
  }
}

TEST(time_logger, prints_the_message_and_nanoseconds_in_one_line) {
  int pipe_fds[2];
  ASSERT_EQ(::pipe(pipe_fds), 0);
  int const saved = ::dup(2);
  ::dup2(pipe_fds[1], 2);
  {
    quillon2::debugging::time_logger_t parsing("parsing");
    quillon2::debugging::time_logger_t copy(parsing);
    quillon2::debugging::time_logger_t empty(L"");
    quillon2::debugging::time_logger_t minus_one("-1");
    quillon2::debugging::time_logger_t null(static_cast<char const*>(nullptr));
  }
  ::dup2(saved, 2);
  ::close(saved);
  ::close(pipe_fds[1]);
  std::string output;
  char buffer[512];
  for (ssize_t n; (n = ::read(pipe_fds[0], buffer, sizeof buffer)) > 0;)
    output.append(buffer, static_cast<std::size_t>(n));
  ::close(pipe_fds[0]);
  // Destroyed in reverse order: null, minus_one, empty, copy, parsing.
  std::vector<std::string> lines;
  for (std::size_t at = 0, end; (end = output.find('\n', at)) != std::string::npos; at = end + 1)
    lines.push_back(output.substr(at, end - at));
  ASSERT_EQ(lines.size(), 5u) << output;
  auto number_after = [](std::string const& line, std::string const& prefix) {
    EXPECT_EQ(line.compare(0, prefix.size(), prefix), 0) << line;
    std::string const digits = line.substr(prefix.size());
    EXPECT_FALSE(digits.empty());
    EXPECT_EQ(digits.find_first_not_of("0123456789"), std::string::npos) << line;
    return digits;
  };
  number_after(lines[0], " ");
  number_after(lines[1], "? ");
  number_after(lines[2], " ");
  number_after(lines[3], "parsing ");
  number_after(lines[4], "parsing ");
}

}  // namespace
