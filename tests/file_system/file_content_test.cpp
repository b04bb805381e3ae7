// Text file content: encoding detection, each encoding written and read back, the
// XML declaration rules, and saves that replace a file whole or not at all.
#include <tuple>

#include <quillon2/core/file_system/file_content.hpp>
#include <quillon2/core/file_system/file_operations.hpp>

#include "file_system/fs_support.hpp"

namespace {

using quillon2::path_t;
namespace q2 = quillon2;

class FileContent : public q2test::fs_test {};

TEST_F(FileContent, EachEncodingWritesItsBytesAndReadsBack) {
  using case_t = std::tuple<std::wstring, q2::code_page_t, std::string>;
  for (auto const& [text, cp, bytes] :
       {case_t{L"caf\u00e9 \U0001F600\r\n", q2::CP_UTF8, "caf\xc3\xa9 \xf0\x9f\x98\x80\r\n"},
        case_t{L"A\U0001F600", q2::CP_UTF16, std::string("\377\376A\0=\330\0\336", 8)},
        case_t{L"", q2::CP_UTF16, "\xff\xfe"},
        // The local encoding is 8-bit: Latin-1 under the C locale.
        case_t{L"\u00e9t\u00e9 \u00fc", q2::CP_LOCAL, "\xe9t\xe9 \xfc"}}) {
    SCOPED_TRACE(bytes);
    ASSERT_TRUE(q2::set_file_content(text, cp, at("t")));
    EXPECT_EQ(bytes, read("t"));
    EXPECT_EQ(cp, q2::get_file_cp(at("t")));
    EXPECT_EQ(text, q2::get_file_content(cp, at("t")));
  }
}

TEST_F(FileContent, DetectionRules) {
  auto cp_of = [&](std::string const& bytes, q2::u64_t max_bytes = 0) {
    write("probe", bytes);
    return q2::get_file_cp(at("probe"), max_bytes);
  };
  EXPECT_EQ(q2::CP_LOCAL, cp_of(""));
  EXPECT_EQ(q2::CP_UTF8, cp_of("\xff"));
  EXPECT_EQ(q2::CP_UTF16, cp_of("\xff\xfe"));
  EXPECT_EQ(q2::CP_UTF16, cp_of("\xfe\xff"));
  EXPECT_EQ(q2::CP_UTF8, cp_of("\xef\xbb\xbf\xff\xff"));
  EXPECT_EQ(q2::CP_UTF8, cp_of("abc\xe9"));  // the last byte is never examined
  EXPECT_EQ(q2::CP_LOCAL, cp_of("ab\xe9z"));
  EXPECT_EQ(q2::CP_UTF8, cp_of("\377\376a", 1));  // one byte seen
  EXPECT_EQ(q2::CP_LOCAL, cp_of("a\xe9\xe9\xe9", 3));
  EXPECT_EQ(q2::CP_UNKNOWN, q2::get_file_cp(at("missing")));
  EXPECT_EQ(q2::CP_UNKNOWN, q2::get_file_cp(at("")));
}

TEST_F(FileContent, ReadingRules) {
  using case_t = std::tuple<std::string, q2::code_page_t, std::wstring>;
  for (auto const& [bytes, cp, text] :
       {case_t{"\xef\xbb\xbfhi", q2::CP_UTF8, L"hi"},
        case_t{std::string("\xfe\xff\0A\0B", 6), q2::CP_UTF16, L"AB"},
        case_t{std::string("\377\376A\0B", 5), q2::CP_UTF16, L"A"},            // odd byte dropped
        case_t{std::string("\377\376=\330A\0", 6), q2::CP_UTF16, L"\uFFFDA"},  // lone surrogate
        case_t{"\xff\xfe", q2::CP_UTF16, L""}}) {
    write("t", bytes);
    EXPECT_EQ(text, q2::get_file_content(cp, at("t"))) << bytes;
  }
  write("long", "0123456789");
  EXPECT_EQ(L"0123", q2::get_file_content(q2::CP_UTF8, at("long"), 4));
  EXPECT_EQ(L"", q2::get_file_content(q2::CP_UTF8, at("missing")));
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
  EXPECT_FALSE(present("refused"));
}

TEST_F(FileContent, SavesReplaceTheFileWholeThroughLinks) {
  write("f", "old");
  ::chmod(native("f").c_str(), 0604);
  make({"link->f"});
  ASSERT_TRUE(q2::set_file_content(L"new", q2::CP_UTF8, at("link")));
  EXPECT_TRUE(S_ISLNK(mode_of("link")));  // the link stays a link
  EXPECT_EQ("new", read("f"));
  EXPECT_EQ(0604u, mode_of("f") & 07777);
  EXPECT_EQ(2u, q2::find_files(at(""), L"*", false).size());  // no temporary file left
  // A dangling link makes the file it names; a relative chain is followed to its end.
  symlink("target", "dangling");
  symlink("dangling", "chain");
  ASSERT_TRUE(q2::set_file_content(L"one", q2::CP_UTF8, at("chain")));
  EXPECT_EQ("one", read("target"));
  EXPECT_TRUE(S_ISLNK(mode_of("chain")));
  symlink("loop", "loop");
  for (path_t const& refused : {at("loop"), at("missing/dir/f"), at(""), path_t()}) {
    EXPECT_FALSE(q2::set_file_content(L"x", q2::CP_UTF8, refused)) << refused.as_string();
  }
}

TEST_F(FileContent, FifosFailAndCharacterDevicesAreWrittenTo) {
  ASSERT_EQ(0, ::mkfifo(native("fifo").c_str(), 0644));
  // Nothing writes to the FIFO: a read that waited would never end.
  EXPECT_EQ(q2::CP_UNKNOWN, q2::get_file_cp(at("fifo")));
  EXPECT_EQ(L"", q2::get_file_content(q2::CP_UTF8, at("fifo")));
  EXPECT_EQ("", q2::get_xml_file_content(at("fifo")));
  EXPECT_FALSE(q2::set_file_content(L"x", q2::CP_UTF8, at("fifo")));
  EXPECT_TRUE(S_ISFIFO(mode_of("fifo")));
  EXPECT_TRUE(q2::set_file_content(L"x", q2::CP_UTF8, path_t(L"/dev/null")));
}

TEST_F(FileContent, SaveOnAFullDiskLeavesTheOldFile) {
  if (!in_child()) return expect_child_passes();
  if (!private_tmpfs("small", "size=64k", false)) return;
  EXPECT_FALSE(q2::set_file_content(std::wstring(200000, L'x'), q2::CP_UTF8, at("small/f")));
  EXPECT_EQ("old", read("small/f"));
  EXPECT_EQ(1u, q2::find_files(at("small"), L"*", false).size()) << "a temporary file was left";
}

}  // namespace
