// path_t as a value: the shapes of the grammar, printing, validation, normalisation,
// relative paths, wildcard matching, equality and order. No file system here.
#include <list>
#include <string>

#include <gtest/gtest.h>

#include <quillon2/core/file_system/file_operations.hpp>
#include <quillon2/core/file_system/path.hpp>

namespace {

using quillon2::path_t;
using list_t = std::list<std::wstring>;

TEST(PathGrammar, ShapesParseAndPrint) {
  struct shape_t {
    std::wstring text;
    std::wstring printed;
    list_t elements;
    bool absolute, posix, windows;
  };
  for (auto const& c :
       {shape_t{L"", L"", {}, false, false, false},
        shape_t{L"a\\b", L"a\\b", {L"a", L"b"}, false, true, true},
        shape_t{L"\\\\?\\a\\b", L"a\\b", {L"a", L"b"}, false, false, true},
        shape_t{L"C:\\a", L"C:\\a", {L"C:", L"a"}, true, false, true},
        shape_t{L"/a", L"\\a", {L"a"}, true, true, false},
        shape_t{L"\\\\?\\\\a", L"\\a", {L"a"}, true, false, false},
        shape_t{L"\\\\srv\\a", L"\\\\srv\\a", {L"\\\\srv", L"a"}, true, false, true},
        shape_t{L"C:", L"C:\\", {L"C:"}, true, false, true},
        shape_t{L"C:\\a\\", L"C:\\a", {L"C:", L"a"}, true, false, true},
        shape_t{L"C:a", L"C:\\a", {L"C:", L"a"}, true, false, true},
        shape_t{L"a:b", L"a:\\b", {L"a:", L"b"}, true, false, true},
        shape_t{L"a/b\\\\c//", L"a\\b\\c", {L"a", L"b", L"c"}, false, true, true},
        shape_t{L"\"C:\\a\"", L"C:\\a", {L"C:", L"a"}, true, false, true},
        shape_t{L"\"C:\\a", L"C:\\a", {L"C:", L"a"}, true, false, true},
        shape_t{L"  a", L"a", {L"a"}, false, true, true},
        shape_t{L"a\\  ", L"a\\  ", {L"a", L"  "}, false, true, true},
        shape_t{L"\ta b\t", L"a b\t", {L"a b\t"}, false, true, true},
        shape_t{L"/", L"\\", {}, true, true, false}, shape_t{L"\\\\", L"\\", {}, true, true, false},
        shape_t{L"\\\\\\a", L"\\a", {L"a"}, true, true, false},
        shape_t{L"//srv/share", L"\\\\srv\\share", {L"\\\\srv", L"share"}, true, false, true},
        shape_t{L"\\\\srv", L"\\\\srv", {L"\\\\srv"}, true, false, true},
        shape_t{L"\\\\?\\C:\\a", L"C:\\a", {L"C:", L"a"}, true, false, true},
        shape_t{L"\\\\?\\\\\\srv\\a", L"\\\\srv\\a", {L"\\\\srv", L"a"}, true, false, true},
        shape_t{L"\\\\?\\UNC\\srv\\a", L"UNC\\srv\\a", {L"UNC", L"srv", L"a"}, false, false, true},
        // A host "?" is only reachable behind the long prefix, and prints like one.
        shape_t{L"\\\\?\\\\\\?\\a", L"\\\\?\\a", {L"\\\\?", L"a"}, true, false, true},
        shape_t{L"a?c", L"a?c", {L"a?c"}, false, true, true},
        shape_t{L"\u00e9\\\u65e5", L"\u00e9\\\u65e5", {L"\u00e9", L"\u65e5"}, false, true, true},
        // The text ends at a NUL.
        shape_t{std::wstring(L"a\0|b", 4), L"a", {L"a"}, false, true, true},
        shape_t{std::wstring(L"\"a\0b\"", 5), L"a", {L"a"}, false, true, true}}) {
    SCOPED_TRACE(::testing::PrintToString(c.text));
    path_t const p(c.text);
    EXPECT_EQ(c.printed, p.as_string());
    EXPECT_EQ(c.elements, p.as_string_list());
    EXPECT_EQ(c.absolute, p.is_absolute());
    EXPECT_EQ(c.posix, p.is_posix());
    EXPECT_EQ(c.windows, p.is_windows());
    // The printed form parses again to the same path, unless the text had a long
    // prefix, which the printed form of a short path drops (and with it the shape).
    if (c.text.rfind(L"\\\\?\\", 0) != 0) {
      EXPECT_EQ(p, path_t(p.as_string()));
    }
  }
  EXPECT_TRUE(path_t(static_cast<wchar_t const*>(nullptr)).is_empty());
}

TEST(PathGrammar, RefusedTextGivesTheEmptyPathAndItsOffset) {
  struct refused_t {
    std::wstring text;
    int offset;
  };
  for (auto const& r : {refused_t{L"", 0}, refused_t{L"   ", 3}, refused_t{L"ab:c", 2},
                        refused_t{L"C:\\a:b", 4}, refused_t{L"a|b", 1}, refused_t{L"\"a|b\"", 1},
                        refused_t{L"a\"b", 1}, refused_t{L"x\\<y", 2}, refused_t{L"a>", 1},
                        refused_t{L"\\\\?\\", 4}, refused_t{L"\"\"", 0}}) {
    SCOPED_TRACE(r.text);
    EXPECT_EQ(path_t(), path_t(r.text));
    int position = 0;
    EXPECT_FALSE(path_t::validate(r.text, false, position));
    EXPECT_EQ(r.offset, position);
  }
  // Without wildcards; the "?" of the long prefix is no wildcard.
  for (auto const& r :
       {refused_t{L"a?c", 1}, refused_t{L"dir\\*.txt", 4}, refused_t{L"\\\\?\\C:\\a", -1}}) {
    int position = 0;
    EXPECT_EQ(r.offset < 0, path_t::validate(r.text, true, position)) << r.text;
    EXPECT_EQ(r.offset, position) << r.text;
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

  EXPECT_EQ("a/b", path_t(L"a\\b").native_string());
  EXPECT_EQ("/a/b", path_t(L"\\a/b\\").native_string());
  EXPECT_EQ("/", path_t(L"/").native_string());
  EXPECT_EQ("/x", path_t(L"\\\\?\\\\x").native_string());
  EXPECT_EQ("/" + std::string(300, 'z'), path_t(L"/" + std::wstring(300, L'z')).native_string());
  EXPECT_EQ("", path_t(L"C:\\a").native_string());
  EXPECT_EQ("", path_t(L"\\\\srv\\a").native_string());
  EXPECT_EQ("", path_t().native_string());
  EXPECT_EQ("d/\xc3\xa9", path_t(L"d\\\u00e9").native_string());
}

TEST(PathParts, LeafBranchAndExtension) {
  struct parts_t {
    std::wstring text, leaf, branch, ext;
  };
  for (auto const& c :
       {parts_t{L"a\\b\\c", L"c", L"a\\b", L""}, parts_t{L"a", L"a", L"", L""},
        parts_t{L"\\a", L"a", L"\\", L""}, parts_t{L"C:\\a.txt", L"a.txt", L"C:\\", L"txt"},
        parts_t{L"C:\\a\\b", L"b", L"C:\\a", L""}, parts_t{L"\\\\srv", L"srv", L"\\\\", L""},
        parts_t{L"\\\\srv\\a\\b", L"b", L"\\\\srv\\a", L""}, parts_t{L"C:\\", L"", L"", L""},
        parts_t{L"", L"", L"", L""}, parts_t{L"d\\a.tar.gz", L"a.tar.gz", L"d", L"gz"},
        parts_t{L"a.", L"a.", L"", L""},
        parts_t{L"\\h\\.profile", L".profile", L"\\h", L"profile"}}) {
    SCOPED_TRACE(c.text);
    EXPECT_EQ(c.leaf, path_t(c.text).get_leaf());
    EXPECT_EQ(c.branch, path_t(c.text).get_branch());
    EXPECT_EQ(c.ext, path_t(c.text).get_ext());
  }
}

TEST(PathParts, ChangeExtension) {
  auto changed = [](std::wstring const& text, std::wstring const& ext) {
    path_t p(text);
    EXPECT_TRUE(p.change_ext(ext));
    return p.as_string();
  };
  EXPECT_EQ(L"a", changed(L"a.txt", L""));
  EXPECT_EQ(L"a.", changed(L"a", L""));
  EXPECT_EQ(L".", changed(L".txt", L""));
  EXPECT_EQ(L"C:\\d\\a.md", changed(L"C:\\d\\a.txt", L"md"));
  EXPECT_EQ(L"a.b.c", changed(L"a.b.x", L"c"));
  EXPECT_EQ(L"d\\a.xml", changed(L"d\\a", L"xml"));
  path_t root(L"C:\\");
  EXPECT_FALSE(root.change_ext(L"x"));
  EXPECT_EQ(L"C:\\", root.as_string());
}

TEST(PathEdit, AppendAndAssign) {
  path_t p(L"C:\\a");
  EXPECT_FALSE(p.append(path_t(L"C:\\x")));
  EXPECT_FALSE(p.append(path_t(L"\\x")));
  EXPECT_FALSE(p.append(path_t(L"\\\\srv\\x")));
  EXPECT_TRUE(p.append(path_t()));
  EXPECT_EQ(L"C:\\a", p.as_string());
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
  auto normalized = [](std::wstring const& text) {
    path_t p(text);
    EXPECT_TRUE(p.normalize()) << p.as_string();
    return p.as_string();
  };
  EXPECT_EQ(L"..\\b", normalized(L"a\\..\\..\\b"));
  EXPECT_EQ(L"..\\..\\a", normalized(L"..\\..\\a"));
  EXPECT_EQ(L"a\\c", normalized(L"a\\.\\b\\..\\c\\."));
  EXPECT_EQ(L"C:\\", normalized(L"C:\\a\\.."));
  EXPECT_EQ(L"\\b", normalized(L"/a/../b"));
  EXPECT_EQ(L"\\\\x", normalized(L"\\\\srv\\..\\x"));  // the host is an ordinary element here
  path_t too_high(L"C:\\a\\..\\..");
  EXPECT_FALSE(too_high.normalize());
  EXPECT_EQ(L"C:\\a\\..\\..", too_high.as_string());
  path_t dot(L".");
  EXPECT_FALSE(dot.is_empty());
  EXPECT_TRUE(dot.normalize());
  EXPECT_TRUE(dot.is_empty());
  EXPECT_NE(path_t(), dot);  // the flags stay

  path_t p(L"C:\\Ab\\CD.TXT");
  p.to_lower();
  EXPECT_EQ(L"C:\\ab\\cd.txt", p.as_string());
  path_t unc(L"\\\\SRV\\ShARe");
  unc.to_lower();
  EXPECT_EQ(L"\\\\srv\\share", unc.as_string());
}

TEST(PathRelative, AgainstAnotherPath) {
  auto relative = [](std::wstring const& a, std::wstring const& b) {
    return path_t(a).get_relative(path_t(b)).as_string();
  };
  EXPECT_EQ(L"b", relative(L"C:\\a\\b", L"C:\\a"));
  EXPECT_EQ(L"..", relative(L"C:\\a", L"C:\\a\\b"));
  EXPECT_EQ(L".", relative(L"C:\\a", L"C:\\A"));
  EXPECT_EQ(L"", relative(L"C:\\a", L"c:\\a"));
  EXPECT_EQ(L"", relative(L"C:\\a", L"\\\\srv\\a"));
  EXPECT_EQ(L"", relative(L"\\a", L"a"));
  EXPECT_EQ(L"b", relative(L"C:\\a\\b", L"C:\\a\\c"));
  EXPECT_EQ(L"b\\c", relative(L"\\a\\b\\c", L"\\a\\x"));
  EXPECT_EQ(L"..\\b", relative(L"\\a\\b", L"\\a\\x\\y"));
  EXPECT_EQ(L"..\\..", relative(L"x", L"x\\y\\z"));
  EXPECT_EQ(L"C:\\q", relative(L"", L"C:\\q"));
  EXPECT_EQ(L"C:\\q", relative(L"C:\\q", L""));
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
  EXPECT_FALSE(path_t(L"d\\aab").match(L"d\\a+b"));
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
  EXPECT_EQ(path_t(L"a/b"), path_t(L"A\\B"));
  EXPECT_NE(path_t(L"a\\.\\b"), path_t(L"a\\b"));
  EXPECT_NE(path_t(L"a\\b"), path_t(L"a\\b\\c"));
  EXPECT_NE(path_t(L"\\a"), path_t(L"a"));
  EXPECT_NE(path_t(L"/a"), path_t(L"\\\\?\\\\a"));  // the long prefix makes it non-POSIX
  EXPECT_NE(path_t(L"C:\\a"), path_t(L"D:\\a"));
  EXPECT_FALSE(path_t(L"a") != path_t(L"A"));
  // Order sees the printed form, long prefix included.
  EXPECT_TRUE(path_t(L"C:\\b") < path_t(L"C:\\" + std::wstring(250, L'a')));
}

TEST(PathMake, MinusOneAndNormalisation) {
  path_t const q = quillon2::make_path(std::wstring(L"-1"));
  EXPECT_EQ(L"?", q.as_string());
  EXPECT_FALSE(q.is_absolute());
  EXPECT_EQ(L"b", quillon2::make_path(std::wstring(L"a\\..\\b")).as_string());
  EXPECT_EQ(L"C:\\a\\..\\..", quillon2::make_path(std::wstring(L"C:\\a\\..\\..")).as_string());
  EXPECT_EQ(L"d\\\u00e9.txt", quillon2::make_path(std::string("d/./\xc3\xa9.txt")).as_string());
}

}  // namespace
