// Text file content: encoding detection, each encoding written and read back, the
// XML declaration rules, and saves that replace a file whole or not at all.
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>
#include <string>

#include <gtest/gtest.h>

#include <quillon2/core/file_system/file_content.hpp>
#include <quillon2/core/file_system/file_operations.hpp>
#include <quillon2/headers/kesmet.hpp>

#include "file_system/private_mount.hpp"
#include "support/temp_dir.hpp"

namespace {

using quillon2::path_t;
namespace q2 = quillon2;

class FileContent : public q2test::temp_dir_test {
 protected:
  path_t at(std::string const& name) const {
    return path_t(kesmet2::utf8_to_utf16(m_dir.file(name)));
  }
  void write(std::string const& name, std::string const& bytes) const {
    q2test::write_file(m_dir.file(name), bytes);
  }
  std::string read(std::string const& name) const { return q2test::read_file(m_dir.file(name)); }
  q2::code_page_t cp_of_bytes(std::string const& bytes, q2::u64_t max_bytes = 0) const {
    write("probe", bytes);
    return q2::get_file_cp(at("probe"), max_bytes);
  }
};

// Text beyond ASCII, beyond Latin-1 and beyond 16 bits.
std::wstring const k_text = L"caf\u00e9 \u65e5\u672c \U0001F600\r\nline two";

TEST_F(FileContent, EachEncodingReadsBackIdentically) {
  for (auto const cp : {q2::CP_UTF8, q2::CP_UTF16}) {
    SCOPED_TRACE(cp);
    ASSERT_TRUE(q2::set_file_content(k_text, cp, at("t")));
    EXPECT_EQ(cp, q2::get_file_cp(at("t")));
    EXPECT_EQ(k_text, q2::get_file_content(cp, at("t")));
  }
  // The local encoding is 8-bit: Latin-1 under the C locale.
  std::wstring const latin = L"\u00e9t\u00e9 \u00fc";
  ASSERT_TRUE(q2::set_file_content(latin, q2::CP_LOCAL, at("l")));
  EXPECT_EQ("\xe9t\xe9 \xfc", read("l"));
  EXPECT_EQ(q2::CP_LOCAL, q2::get_file_cp(at("l")));
  EXPECT_EQ(latin, q2::get_file_content(q2::CP_LOCAL, at("l")));
}

TEST_F(FileContent, WrittenBytes) {
  ASSERT_TRUE(q2::set_file_content(L"A\u00e9", q2::CP_UTF8, at("u8")));
  EXPECT_EQ("A\xc3\xa9", read("u8"));  // no mark
  ASSERT_TRUE(q2::set_file_content(L"A\U0001F600", q2::CP_UTF16, at("u16")));
  EXPECT_EQ(std::string("\xff\xfe"
                        "A\0"
                        "\x3d\xd8\x00\xde",
                        8),
            read("u16"));
  ASSERT_TRUE(q2::set_file_content(L"", q2::CP_UTF16, at("empty16")));
  EXPECT_EQ("\xff\xfe", read("empty16"));
}

TEST_F(FileContent, DetectionRules) {
  EXPECT_EQ(q2::CP_LOCAL, cp_of_bytes(""));
  EXPECT_EQ(q2::CP_UTF8, cp_of_bytes("\xff"));
  EXPECT_EQ(q2::CP_UTF16, cp_of_bytes("\xff\xfe"));
  EXPECT_EQ(q2::CP_UTF16, cp_of_bytes("\xfe\xff"));
  EXPECT_EQ(q2::CP_UTF8, cp_of_bytes("\xef\xbb\xbf\xff\xff"));
  EXPECT_EQ(q2::CP_UTF8, cp_of_bytes("plain ascii"));
  EXPECT_EQ(q2::CP_UTF8, cp_of_bytes("caf\xc3\xa9"));
  EXPECT_EQ(q2::CP_UTF8, cp_of_bytes("abc\xe9"));  // the last byte is never examined
  EXPECT_EQ(q2::CP_LOCAL, cp_of_bytes("ab\xe9z"));
  EXPECT_EQ(q2::CP_UTF8, cp_of_bytes("\xff\xfe"
                                     "a\0",
                                     1));  // one byte seen
  EXPECT_EQ(q2::CP_LOCAL, cp_of_bytes("a\xe9\xe9\xe9", 3));
  EXPECT_EQ(q2::CP_UNKNOWN, q2::get_file_cp(at("missing")));
  EXPECT_EQ(q2::CP_UNKNOWN, q2::get_file_cp(path_t(kesmet2::utf8_to_utf16(m_dir.path()))));
}

TEST_F(FileContent, ReadingRules) {
  write("bom8", "\xef\xbb\xbfhi");
  EXPECT_EQ(L"hi", q2::get_file_content(q2::CP_UTF8, at("bom8")));
  write("be16", std::string("\xfe\xff\0A\0B", 6));
  EXPECT_EQ(L"AB", q2::get_file_content(q2::CP_UTF16, at("be16")));
  write("odd16", std::string("\xff\xfe"
                             "A\0"
                             "B",
                             5));  // a last odd byte is dropped
  EXPECT_EQ(L"A", q2::get_file_content(q2::CP_UTF16, at("odd16")));
  write("lone16", std::string("\xff\xfe\x3d\xd8"
                              "A\0",
                              6));  // an unpaired surrogate
  EXPECT_EQ(L"\uFFFDA", q2::get_file_content(q2::CP_UTF16, at("lone16")));
  write("mark", "\xff\xfe");
  EXPECT_EQ(L"", q2::get_file_content(q2::CP_UTF16, at("mark")));
  write("long", "0123456789");
  EXPECT_EQ(L"0123", q2::get_file_content(q2::CP_UTF8, at("long"), 4));
  EXPECT_EQ(L"", q2::get_file_content(q2::CP_UTF8, at("missing")));
  // Big-endian text read and written back comes out little-endian.
  ASSERT_TRUE(q2::set_file_content(q2::get_file_content(q2::CP_UTF16, at("be16")), q2::CP_UTF16,
                                   at("be16")));
  EXPECT_EQ(std::string("\xff\xfe"
                        "A\0B\0",
                        6),
            read("be16"));
}

TEST_F(FileContent, XmlDeclarations) {
  ASSERT_TRUE(q2::set_xml_file_content("<a>\xc3\xa9</a>", q2::CP_UTF8, at("x8")));
  EXPECT_EQ("<?xml version='1.0' encoding='UTF-8'?>\n<a>\xc3\xa9</a>", read("x8"));
  EXPECT_EQ("\n<a>\xc3\xa9</a>", q2::get_xml_file_content(at("x8")));
  ASSERT_TRUE(q2::set_xml_file_content("<b/>", q2::CP_UTF16, at("x16")));
  EXPECT_EQ(q2::CP_UTF16, q2::get_file_cp(at("x16")));
  EXPECT_EQ("\n<b/>", q2::get_xml_file_content(at("x16")));

  write("lower", "<?xml version=\"1.0\" encoding=\"utf-8\"?><c/>");
  EXPECT_EQ("<c/>", q2::get_xml_file_content(at("lower")));
  write("latin", "<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?><c/>");
  EXPECT_EQ("", q2::get_xml_file_content(at("latin")));
  write("none", "<c>no declaration</c>");
  EXPECT_EQ("<c>no declaration</c>", q2::get_xml_file_content(at("none")));
  write("local", "<?xml version=\"1.0\" encoding=\"UTF-8\"?><c>\xe9t\xe9</c>");
  EXPECT_EQ("", q2::get_xml_file_content(at("local")));  // the bytes aren't UTF-8

  EXPECT_FALSE(q2::set_xml_file_content("<d/>", q2::CP_LOCAL, at("refused")));
  EXPECT_FALSE(q2::set_xml_file_content("<?xml version='1.0'?><d/>", q2::CP_UTF8, at("refused")));
  EXPECT_FALSE(path_t::exists(at("refused").as_string()));
}

TEST_F(FileContent, SavesReplaceTheFileWhole) {
  write("f", "old");
  ::chmod(m_dir.file("f").c_str(), 0604);
  ASSERT_EQ(0, ::symlink(m_dir.file("f").c_str(), m_dir.file("link").c_str()));
  ASSERT_TRUE(q2::set_file_content(L"new", q2::CP_UTF8, at("link")));
  struct stat st {};
  ASSERT_EQ(0, ::lstat(m_dir.file("link").c_str(), &st));
  EXPECT_TRUE(S_ISLNK(st.st_mode));  // the link stays a link
  EXPECT_EQ("new", read("f"));
  ASSERT_EQ(0, ::stat(m_dir.file("f").c_str(), &st));
  EXPECT_EQ(0604u, st.st_mode & 07777);
  // Nothing else is left in the directory.
  EXPECT_EQ(2u, q2::find_files(at(""), L"*", false).size());
  EXPECT_FALSE(q2::set_file_content(L"x", q2::CP_UTF8, at("missing/dir/f")));
  EXPECT_FALSE(q2::set_file_content(L"x", q2::CP_UTF8, at("")));  // a directory
  EXPECT_FALSE(q2::set_file_content(L"x", q2::CP_UTF8, path_t()));
}

TEST_F(FileContent, FailedSaveLeavesTheOldFile) {
  ASSERT_EQ(0, ::mkdir(m_dir.file("ro").c_str(), 0777));
  std::string const mount = m_dir.file("ro");
  path_t const file = at("ro/f");
  Q2_EXPECT_ON_READ_ONLY_MOUNT(
      mount, [&] { std::ofstream(mount + "/f") << "old"; },
      [&]() -> std::string {
        std::string failures;
        if (q2::set_file_content(L"new", q2::CP_UTF8, file)) failures += "the save succeeded; ";
        if (q2::set_xml_file_content("<a/>", q2::CP_UTF16, file)) failures += "xml save; ";
        if (q2::get_file_content(q2::CP_UTF8, file) != L"old") failures += "the old text went; ";
        return failures;
      });
}

TEST_F(FileContent, SaveOnAFullDiskLeavesTheOldFile) {
  ASSERT_EQ(0, ::mkdir(m_dir.file("small").c_str(), 0777));
  std::string const mount = m_dir.file("small");
  path_t const file = at("small/f");
  Q2_EXPECT_ON_PRIVATE_MOUNT(
      mount, "size=64k", false, [&] { std::ofstream(mount + "/f") << "old"; },
      [&]() -> std::string {
        std::string failures;
        std::wstring const big(200000, L'x');
        if (q2::set_file_content(big, q2::CP_UTF8, file)) failures += "the save succeeded; ";
        if (q2::get_file_content(q2::CP_UTF8, file) != L"old") failures += "the old text went; ";
        if (q2::find_files(path_t(kesmet2::utf8_to_utf16(mount)), L"*", false).size() != 1) {
          failures += "a temporary file was left; ";
        }
        return failures;
      });
}

}  // namespace
