// path_t as a value: the shapes of the grammar, printing, validation, normalisation,
// relative paths, wildcard matching, equality and order. No file system here.
#include <array>
#include <list>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include <quillon2/core/file_system/file_operations.hpp>
#include <quillon2/core/file_system/path.hpp>

namespace {

using quillon2::path_t;
using list_t = std::list<std::wstring>;
// Rows of texts: an input, what an operation makes of it, and more operands.
using two_t = std::array<std::wstring, 2>;
using three_t = std::array<std::wstring, 3>;
using four_t = std::array<std::wstring, 4>;

TEST(PathGrammar, ShapesParseAndPrint) {
  using shape_t = std::tuple<std::wstring, std::wstring, list_t, bool, bool, bool>;
  for (auto const& [text, printed, elements, absolute, posix, windows] :
       {shape_t{L"", L"", {}, false, false, false},
        shape_t{L"\\\\?\\a\\b", L"a\\b", {L"a", L"b"}, false, false, true},
        shape_t{L"C:\\a", L"C:\\a", {L"C:", L"a"}, true, false, true},
        shape_t{L"/a", L"\\a", {L"a"}, true, true, false},
        shape_t{L"\\\\?\\\\a", L"\\a", {L"a"}, true, false, false},
        shape_t{L"C:", L"C:\\", {L"C:"}, true, false, true},
        shape_t{L"a:b", L"a:\\b", {L"a:", L"b"}, true, false, true},
        shape_t{L"a/b\\\\c//", L"a\\b\\c", {L"a", L"b", L"c"}, false, true, true},
        shape_t{L"\"C:\\a\"", L"C:\\a", {L"C:", L"a"}, true, false, true},
        shape_t{L"a\\  ", L"a\\  ", {L"a", L"  "}, false, true, true},
        shape_t{L"\ta b\t", L"a b\t", {L"a b\t"}, false, true, true},
        shape_t{L"/", L"\\", {}, true, true, false},
        shape_t{L"//srv/share", L"\\\\srv\\share", {L"\\\\srv", L"share"}, true, false, true},
        shape_t{L"\\\\srv", L"\\\\srv", {L"\\\\srv"}, true, false, true},
        shape_t{L"\\\\?\\UNC\\s\\a", L"UNC\\s\\a", {L"UNC", L"s", L"a"}, false, false, true},
        // A host "?" is only reachable behind the long prefix, and prints like one.
        shape_t{L"\\\\?\\\\\\?\\a", L"\\\\?\\a", {L"\\\\?", L"a"}, true, false, true},
        shape_t{std::wstring(L"a\0|b", 4), L"a", {L"a"}, false, true, true}}) {  // ends at NUL
    SCOPED_TRACE(::testing::PrintToString(text));
    path_t const p(text);
    EXPECT_EQ(printed, p.as_string());
    EXPECT_EQ(elements, p.as_string_list());
    EXPECT_EQ(absolute, p.is_absolute());
    EXPECT_EQ(posix, p.is_posix());
    EXPECT_EQ(windows, p.is_windows());
    // The printed form parses again to the same path, unless the text had a long
    // prefix, which the printed form of a short path drops (and with it the shape).
    if (text.rfind(L"\\\\?\\", 0) != 0) {
      EXPECT_EQ(p, path_t(p.as_string()));
    }
  }
  EXPECT_TRUE(path_t(static_cast<wchar_t const*>(nullptr)).is_empty());
}

TEST(PathGrammar, RefusedTextGivesTheEmptyPathAndItsOffset) {
  using offset_t = std::pair<std::wstring, int>;
  for (auto const& [text, offset] :
       {offset_t{L"", 0}, offset_t{L"   ", 3}, offset_t{L"ab:c", 2}, offset_t{L"C:\\a:b", 4},
        offset_t{L"a|b", 1}, offset_t{L"\"a|b\"", 1}, offset_t{L"a\"b", 1}, offset_t{L"x\\<y", 2},
        offset_t{L"a>", 1}, offset_t{L"\\\\?\\", 4}, offset_t{L"\"\"", 0}}) {
    EXPECT_EQ(path_t(), path_t(text)) << text;
    int position = 0;
    EXPECT_FALSE(path_t::validate(text, false, position));
    EXPECT_EQ(offset, position) << text;
  }
  // Without wildcards; the "?" of the long prefix is no wildcard.
  for (auto const& [text, offset] :
       {offset_t{L"a?c", 1}, offset_t{L"dir\\*.txt", 4}, offset_t{L"\\\\?\\C:\\a", -1}}) {
    int position = 0;
    EXPECT_EQ(offset < 0, path_t::validate(text, true, position)) << text;
    EXPECT_EQ(offset, position) << text;
  }
}

TEST(PathPrint, LongPrefixFrom248CharactersAndTheNativeForm) {
  std::wstring const text247 = L"C:\\" + std::wstring(244, L'x');
  std::wstring const text248 = text247 + L"y";
  EXPECT_EQ(text247, path_t(text247).as_string());
  EXPECT_EQ(L"\\\\?\\" + text248, path_t(text248).as_string());
  EXPECT_EQ(text248, path_t(text248).as_string(true));
  // Relative paths get it too, and a drive path reads back as it was.
  std::wstring const relative(300, L'r');
  EXPECT_EQ(L"\\\\?\\" + relative, path_t(relative).as_string());
  EXPECT_EQ(path_t(text248), path_t(path_t(text248).as_string()));
  using native_t = std::pair<std::wstring, std::string>;
  for (auto const& [text, native] :
       {native_t{L"a\\b", "a/b"}, native_t{L"\\a/b\\", "/a/b"}, native_t{L"/", "/"},
        native_t{L"\\\\?\\\\x", "/x"}, native_t{L"/" + relative, "/" + std::string(300, 'r')},
        native_t{L"C:\\a", ""}, native_t{L"\\\\srv\\a", ""}, native_t{L"", ""},
        native_t{L"d\\\u00e9", "d/\xc3\xa9"}}) {
    EXPECT_EQ(native, path_t(text).native_string());
  }
}

TEST(PathParts, LeafBranchExtension) {
  for (auto const& [text, leaf, branch, ext] :
       {four_t{L"a\\b\\c", L"c", L"a\\b", L""}, four_t{L"a", L"a", L"", L""},
        four_t{L"\\a", L"a", L"\\", L""}, four_t{L"C:\\a.txt", L"a.txt", L"C:\\", L"txt"},
        four_t{L"C:\\a\\b", L"b", L"C:\\a", L""}, four_t{L"\\\\srv", L"srv", L"\\\\", L""},
        four_t{L"\\\\srv\\a\\b", L"b", L"\\\\srv\\a", L""}, four_t{L"C:\\", L"", L"", L""},
        four_t{L"", L"", L"", L""}, four_t{L"d\\a.tar.gz", L"a.tar.gz", L"d", L"gz"},
        four_t{L"a.", L"a.", L"", L""},
        four_t{L"\\h\\.profile", L".profile", L"\\h", L"profile"}}) {
    EXPECT_EQ(leaf, path_t(text).get_leaf()) << text;
    EXPECT_EQ(branch, path_t(text).get_branch()) << text;
    EXPECT_EQ(ext, path_t(text).get_ext()) << text;
  }
  for (auto const& [text, expected, ext] :
       {three_t{L"a.txt", L"a", L""}, three_t{L"a", L"a.", L""}, three_t{L".txt", L".", L""},
        three_t{L"C:\\d\\a.txt", L"C:\\d\\a.md", L"md"}, three_t{L"a.b.x", L"a.b.c", L"c"},
        three_t{L"d\\a", L"d\\a.xml", L"xml"}}) {
    path_t p(text);
    EXPECT_TRUE(p.change_ext(ext));
    EXPECT_EQ(expected, p.as_string());
  }
  path_t root(L"C:\\");
  EXPECT_FALSE(root.change_ext(L"x"));
  EXPECT_EQ(L"C:\\", root.as_string());
}

TEST(PathEdit, AppendAndAssign) {
  path_t p(L"C:\\a");
  EXPECT_FALSE(p.append(path_t(L"C:\\x")));
  EXPECT_FALSE(p.append(path_t(L"\\x")));
  EXPECT_TRUE(p.append(path_t(L"b/c")));
  EXPECT_EQ(L"C:\\a\\b\\c", p.as_string());
  path_t r(L"x\\y");
  EXPECT_TRUE(r.append(r));
  EXPECT_EQ(L"x\\y\\x\\y", r.as_string());
  // A path that prints nothing takes over the whole of what is appended.
  path_t dot(L".");
  ASSERT_TRUE(dot.normalize());
  EXPECT_TRUE(dot.append(path_t(L"\\\\?\\y")));
  EXPECT_FALSE(dot.is_posix());
  path_t q;
  EXPECT_TRUE(q.assign(list_t{L"C:", L"a", L"b"}));
  EXPECT_EQ(L"C:\\a\\b", q.as_string());
  EXPECT_TRUE(q.assign(list_t{L"a|"}));
  EXPECT_TRUE(q.is_empty());
  // A path moved from is empty and usable.
  q = path_t(L"\\\\srv\\s");
  path_t moved(std::move(q));
  EXPECT_EQ(L"\\\\srv\\s", moved.as_string());
  EXPECT_TRUE(q.is_empty());  // NOLINT(bugprone-use-after-move)
  EXPECT_TRUE(q.append(path_t(L"z")));
  EXPECT_EQ(L"z", q.as_string());
}

TEST(PathEdit, NormalizeAndToLower) {
  // The UNC host is an ordinary element here.
  for (auto const& [text, expected] :
       {two_t{L"a\\..\\..\\b", L"..\\b"}, two_t{L"..\\..\\a", L"..\\..\\a"},
        two_t{L"a\\.\\b\\..\\c\\.", L"a\\c"}, two_t{L"C:\\a\\..", L"C:\\"},
        two_t{L"/a/../b", L"\\b"}, two_t{L"\\\\srv\\..\\x", L"\\\\x"}}) {
    path_t p(text);
    EXPECT_TRUE(p.normalize()) << text;
    EXPECT_EQ(expected, p.as_string());
  }
  path_t too_high(L"C:\\a\\..\\..");
  EXPECT_FALSE(too_high.normalize());
  EXPECT_EQ(L"C:\\a\\..\\..", too_high.as_string());
  path_t dot(L".");
  EXPECT_FALSE(dot.is_empty());
  EXPECT_TRUE(dot.normalize());
  EXPECT_TRUE(dot.is_empty());
  EXPECT_NE(path_t(), dot);  // the flags stay
  for (auto const& [text, expected] :
       {two_t{L"C:\\Ab\\CD.TXT", L"C:\\ab\\cd.txt"}, two_t{L"\\\\SRV\\ShARe", L"\\\\srv\\share"}}) {
    path_t p(text);
    p.to_lower();
    EXPECT_EQ(expected, p.as_string());
  }
}

TEST(PathRelative, AgainstAnotherPath) {
  for (auto const& [text, expected, base] :
       {three_t{L"C:\\a\\b", L"b", L"C:\\a"}, three_t{L"C:\\a", L"..", L"C:\\a\\b"},
        three_t{L"C:\\a", L".", L"C:\\A"}, three_t{L"C:\\a", L"", L"c:\\a"},
        three_t{L"C:\\a", L"", L"\\\\srv\\a"}, three_t{L"\\a", L"", L"a"},
        three_t{L"C:\\a\\b", L"b", L"C:\\a\\c"}, three_t{L"\\a\\b\\c", L"b\\c", L"\\a\\x"},
        three_t{L"\\a\\b", L"..\\b", L"\\a\\x\\y"}, three_t{L"x", L"..\\..", L"x\\y\\z"},
        three_t{L"", L"C:\\q", L"C:\\q"}, three_t{L"C:\\q", L"C:\\q", L""}}) {
    EXPECT_EQ(expected, path_t(text).get_relative(path_t(base)).as_string()) << text << " " << base;
  }
}

TEST(PathMatch, WildcardsOverTheWholePath) {
  path_t const file(L"C:\\a\\b\\c.txt");
  EXPECT_TRUE(file.match(L"C:\\a\\*.txt"));  // "*" spans separators
  EXPECT_TRUE(file.match(L"C:/a/b/?.txt"));
  EXPECT_FALSE(file.match(L"C:\\a\\?.txt"));
  EXPECT_FALSE(path_t(L"C:\\a.txt").match(L"*.TXT"));  // case matters here
  EXPECT_FALSE(file.match(L"C:\\a"));                  // the whole path must match
  EXPECT_TRUE(path_t(L"d\\a+b(1)[x]{2}$^.txt").match(L"d\\a+b(1)[x]{2}$^.txt"));
  EXPECT_FALSE(path_t(L"a").match(L"a|b"));  // "|" is literal, no alternative
  path_t const long_path(L"C:\\" + std::wstring(260, L'l'));
  EXPECT_TRUE(long_path.match(long_path.as_string()));  // the long prefix is dropped
  EXPECT_TRUE(quillon2::match_pattern(path_t(L"*.txt"), path_t(L"x.txt")));
  EXPECT_FALSE(quillon2::match_pattern(path_t(L"x.txt"), path_t(L"*.txt")));
}

TEST(PathCompare, EqualityIgnoresCaseButOrderDoesNot) {
  EXPECT_EQ(path_t(L"C:\\A"), path_t(L"c:\\a"));
  EXPECT_TRUE(path_t(L"C:\\A") < path_t(L"c:\\a"));
  EXPECT_FALSE(path_t(L"c:\\a") < path_t(L"C:\\A"));
  EXPECT_EQ(path_t(L"\\\\SRV\\x"), path_t(L"//srv/X"));
  EXPECT_FALSE(path_t(L"a/b") != path_t(L"A\\B"));
  EXPECT_NE(path_t(L"a\\.\\b"), path_t(L"a\\b"));
  EXPECT_NE(path_t(L"\\a"), path_t(L"a"));
  EXPECT_NE(path_t(L"/a"), path_t(L"\\\\?\\\\a"));  // the long prefix makes it non-POSIX
  // Order sees the printed form, long prefix included.
  EXPECT_TRUE(path_t(L"C:\\b") < path_t(L"C:\\" + std::wstring(250, L'a')));
}

TEST(PathMake, MinusOneAndNormalisation) {
  path_t const q = quillon2::make_path(std::wstring(L"-1"));
  EXPECT_EQ(L"?", q.as_string());
  EXPECT_FALSE(q.is_absolute());
  // Normalised where it can be.
  EXPECT_EQ(L"C:\\a\\..\\..", quillon2::make_path(std::wstring(L"C:\\a\\..\\..")).as_string());
  EXPECT_EQ(L"d\\\u00e9.txt", quillon2::make_path(std::string("d/./\xc3\xa9.txt")).as_string());
}

}  // namespace
