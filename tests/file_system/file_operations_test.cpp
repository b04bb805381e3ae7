// File-system operations on real files, each test in a fresh temporary directory.
#include <algorithm>
#include <thread>

#include <boost/thread/barrier.hpp>

#include <quillon2/core/file_system/file_content.hpp>
#include <quillon2/core/file_system/file_operations.hpp>

#include "file_system/fs_support.hpp"
#include "support/assert_recorder.hpp"

namespace {

using q2test::wide;
using quillon2::path_t;
namespace q2 = quillon2;
using names_t = std::vector<std::wstring>;

class FileOps : public q2test::fs_test {
 protected:
  // The hits of a search, sorted, as names relative to the test's directory (a hit that
  // is not a full path below it has no such name: "").
  names_t relative(std::vector<path_t> const& found) const {
    names_t names;
    for (auto const& p : found) names.push_back(p.get_relative(at("")).as_string());
    std::sort(names.begin(), names.end());
    return names;
  }
};

TEST_F(FileOps, ProbesAndReadonlyTrialsOffAReadOnlyMount) {
  make({"f.txt", "d.dir/", "dangling->nowhere"});
  EXPECT_TRUE(path_t::exists(at("f.txt").as_string()));
  EXPECT_FALSE(at("f.txt").is_directory());
  EXPECT_TRUE(at("d.dir").is_directory());
  EXPECT_EQ(L"", at("d.dir").get_ext());    // a directory has no extension
  EXPECT_TRUE(at("dangling").is_exists());  // the link holds the name
  EXPECT_FALSE(at("dangling").is_directory());
  for (auto const& missing : {at("missing"), at("f.txt/below"), path_t(L"C:\\Windows")}) {
    EXPECT_FALSE(missing.is_exists()) << missing.as_string();
  }
  // Backslashes in text reach the system as slashes.
  std::wstring backslashed = wide(native("d.dir"));
  std::replace(backslashed.begin(), backslashed.end(), L'/', L'\\');
  EXPECT_TRUE(path_t::is_directory(backslashed));
  // Read-only trials off a read-only mount.
  EXPECT_FALSE(at("f.txt").is_readonly(0));
  EXPECT_FALSE(at("d.dir").is_readonly(path_t::readonly_try_directory | path_t::readonly_try_file));
  EXPECT_TRUE(q2::find_files(at("d.dir"), L"*", false).empty()) << "a trial left something";
  // A missing path is reported through an assertion, an empty one is not tried.
  q2test::assert_recorder_t asserts;
  EXPECT_FALSE(at("missing").is_readonly(3));
  EXPECT_FALSE(path_t().is_readonly(3));
  auto const reports = asserts.reports();
  ASSERT_EQ(1u, reports.size());
  EXPECT_EQ("fail == false", reports[0].condition);
  EXPECT_EQ("quillon2::path_t::is_readonly", reports[0].function);
}

TEST_F(FileOps, OnAReadOnlyFileSystem) {
  if (!in_child()) return expect_child_passes();
  make({"t/", "t/a/", "t/z/", "t/a/f", "t/z/f"});
  if (!private_tmpfs("t/ro", "size=4m", true)) return;
  EXPECT_TRUE(at("t/ro/f").is_readonly(0));
  EXPECT_TRUE(at("t/ro").is_readonly(path_t::readonly_try_directory));
  EXPECT_TRUE(at("t/ro").is_readonly(path_t::readonly_try_file));
  EXPECT_FALSE(at("t/ro").is_readonly(0));  // no trial, no verdict
  EXPECT_EQ(q2::RC_ACCESS_DENIED, q2::create_new_directory(at("t/ro").as_string()));
  EXPECT_EQ(q2::RC_ACCESS_DENIED, q2::create_new_directory(at("t/ro/sub").as_string()));
  EXPECT_FALSE(q2::create_directory(at("t/ro/sub")));
  EXPECT_FALSE(q2::remove_file(at("t/ro/f")));
  EXPECT_FALSE(q2::copy_file(at("t/ro/f"), at("t/ro/sub")));
  // A save fails and leaves the old file.
  EXPECT_FALSE(q2::set_file_content(L"new", q2::CP_UTF8, at("t/ro/f")));
  EXPECT_FALSE(q2::set_xml_file_content("<a/>", q2::CP_UTF16, at("t/ro/f")));
  // A recursive removal goes on past what it can't remove.
  EXPECT_FALSE(q2::remove_directory(at("t"), true));
  EXPECT_EQ("old", read("t/ro/f"));
  EXPECT_FALSE(present("t/a") || present("t/z"));
}

TEST_F(FileOps, FindFilesAndDirectories) {
  make({"sub.txt/", "deep/", "deep/er/", "outside/", "a/", "a/a/", "b/", "b/a/", "a.txt", "b.TXT",
        "c.log", "with blank.txt", "\xc3\xa9t\xc3\xa9.txt", "x:y.txt", "q\\r.txt"});
  // A link to a directory is listed, never descended into.
  make({"deep/b.txt", "deep/er/c.txt", "deep/er/c.log", "outside/o.txt", "link.txt->sub.txt",
        "deep/link->outside"});
  EXPECT_EQ((names_t{L"a.txt", L"link.txt", L"sub.txt", L"with blank.txt", L"\u00e9t\u00e9.txt"}),
            relative(q2::find_files(at(""), L"*.txt", false)));
  EXPECT_EQ((names_t{L"link.txt", L"sub.txt"}),
            relative(q2::find_directories(at(""), L"*.txt", false)));
  EXPECT_EQ((names_t{L"c.log"}), relative(q2::find_files(at(""), L"?.log", false)));
  // The pattern applies below each directory: "?.txt" there is one character long.
  EXPECT_EQ((names_t{L"a.txt", L"deep\\b.txt", L"deep\\er\\c.txt", L"outside\\o.txt"}),
            relative(q2::find_files(at(""), L"?.txt", true)));
  EXPECT_EQ((names_t{L"deep\\er\\c.log"}), relative(q2::find_files(at("deep"), L"*.log", true)));
  // A search for directories stops at each hit.
  EXPECT_EQ((names_t{L"a", L"b\\a"}), relative(q2::find_directories(at(""), L"a", true)));
  // Nothing to search, or nothing to search for.
  for (auto const& nothing : {at("missing"), at("a.txt"), path_t()}) {
    EXPECT_TRUE(q2::find_files(nothing, L"*", true).empty()) << nothing.as_string();
  }
  for (auto const* pattern : {L"", L"a|b", L"\\*.txt", L"*.TXT.x"}) {
    EXPECT_TRUE(q2::find_files(at(""), pattern, false).empty()) << pattern;
  }
}

TEST_F(FileOps, RemoveFilesAndDirectories) {
  make({"empty/", "full/", "outside/", "t/", "t/ro/", "t/a b/", "t/sub/", "f", "full/f",
        "outside/keep", "t/ro/locked", "t/a b/\xc3\xa9", "t/x:y"});
  ::chmod(native("t/ro/locked").c_str(), 0444);
  ::chmod(native("t/ro").c_str(), 0555);
  make({"link->f", "dangling->nowhere", "t/sub/link->outside", "t/file_link->outside/keep",
        "top_link->outside"});
  EXPECT_TRUE(q2::remove_file(at("link")));  // the link goes, not its target
  EXPECT_TRUE(q2::remove_file(at("dangling")));
  EXPECT_TRUE(q2::remove_file(at("f")));
  EXPECT_TRUE(q2::remove_directory(at("empty"), false));
  EXPECT_TRUE(q2::remove_directory(at("top_link"), true));  // a link named as the top goes
  // Read-only entries go, and links are never followed.
  EXPECT_TRUE(q2::remove_directory(at("t"), true));
  for (auto const* gone : {"f", "link", "dangling", "empty", "top_link", "t"}) {
    EXPECT_FALSE(present(gone)) << gone;
  }
  EXPECT_EQ("x", read("outside/keep"));
  for (auto const& refused : {at("f"), at("full"), path_t()}) {
    EXPECT_FALSE(q2::remove_file(refused)) << refused.as_string();
  }
  for (auto const& refused : {at("full/f"), at("missing"), path_t()}) {
    EXPECT_FALSE(q2::remove_directory(refused, true)) << refused.as_string();
  }
  EXPECT_FALSE(q2::remove_directory(at("full"), false));
  EXPECT_TRUE(present("full/f"));
}

TEST_F(FileOps, CopiesKeepModesAndLinksAndReplaceNothing) {
  make({"outside/", "src/", "src/sub/", "src/empty/"});
  write("src/f", "f");
  write("src/sub/\xc3\xa9 g", "g");
  ::chmod(native("src/sub/\xc3\xa9 g").c_str(), 0400);
  symlink("../f", "src/sub/rel_link");
  make({"src/out_link->outside"});
  write("other", "mine");
  EXPECT_TRUE(q2::copy_file(at("src/sub/\xc3\xa9 g"), at("copy")));
  EXPECT_EQ(0400u, mode_of("copy") & 07777);
  EXPECT_FALSE(q2::copy_file(at("src/f"), at("other")));
  EXPECT_EQ("mine", read("other"));
  EXPECT_FALSE(q2::copy_file(at("missing"), at("new")));
  EXPECT_FALSE(q2::copy_file(at("src"), at("new")));
  EXPECT_FALSE(q2::copy_file(at("src/f"), path_t()));
  EXPECT_FALSE(present("new"));

  EXPECT_TRUE(q2::copy_directory(at("src"), at("dst/level")));
  EXPECT_EQ("g", read("dst/level/sub/\xc3\xa9 g"));
  EXPECT_EQ(0400u, mode_of("dst/level/sub/\xc3\xa9 g") & 07777);
  EXPECT_TRUE(S_ISDIR(mode_of("dst/level/empty")));
  EXPECT_TRUE(S_ISLNK(mode_of("dst/level/out_link")));
  EXPECT_TRUE(S_ISLNK(mode_of("dst/level/sub/rel_link")));
  EXPECT_EQ("f", read("dst/level/sub/rel_link"));
  // Again onto the copy: the files are there, and nothing is replaced.
  write("src/f", "changed");
  EXPECT_FALSE(q2::copy_directory(at("src"), at("dst/level")));
  EXPECT_EQ("f", read("dst/level/f"));
  EXPECT_FALSE(q2::copy_directory(at("src/f"), at("x")));
  EXPECT_FALSE(q2::copy_directory(at("missing"), at("x")));
  // A target inside the source is not copied into itself.
  EXPECT_TRUE(q2::copy_directory(at("src"), at("src/inner")));
  EXPECT_EQ("changed", read("src/inner/f"));
  EXPECT_FALSE(present("src/inner/inner"));
}

TEST_F(FileOps, CreateAndRenameDirectories) {
  make({"file", "dir/", "dir/f", "dangling->nowhere"});
  EXPECT_TRUE(q2::create_directory(at("a/b/c")));
  EXPECT_TRUE(S_ISDIR(mode_of("a/b/c")));
  EXPECT_TRUE(q2::create_directory(at("a/b")));
  EXPECT_TRUE(q2::create_directory(at("file")));
  EXPECT_FALSE(q2::create_directory(at("file/below")));
  EXPECT_FALSE(q2::create_directory(path_t()));
  EXPECT_FALSE(q2::create_directory(path_t(L"C:\\a\\b")));
  using case_t = std::pair<std::wstring, q2::return_code_t>;
  for (auto const& [path, rc] :
       {case_t{at("new/level").as_string(), q2::RC_CREATED},
        case_t{at("new/level").as_string(), q2::RC_ALREADY_EXISTS},
        case_t{at("dir").as_string(), q2::RC_ALREADY_EXISTS},
        case_t{at("file").as_string(), q2::RC_ALREADY_EXISTS},
        case_t{at("dangling").as_string(), q2::RC_ALREADY_EXISTS},
        case_t{at("file/below").as_string(), q2::RC_INVALID}, case_t{L"", q2::RC_INVALID},
        case_t{L"C:\\x", q2::RC_PATH_NOT_FOUND}}) {
    EXPECT_EQ(rc, q2::create_new_directory(path)) << path;
  }
  EXPECT_FALSE(present("nowhere"));
  EXPECT_FALSE(q2::rename_directory(at("dir"), at("a")));
  EXPECT_FALSE(q2::rename_directory(at("missing"), at("moved")));
  EXPECT_TRUE(q2::rename_directory(at("dir"), at("moved")));
  EXPECT_EQ("x", read("moved/f"));
  EXPECT_TRUE(q2::rename_directory(at("file"), at("file2")));  // a file moves too
  EXPECT_TRUE(present("file2"));
}

TEST_F(FileOps, NameTemplates) {
  path_t const name = q2::get_unique_file_name(at(""), L"log-@@@@.txt");
  std::wstring const leaf = name.get_leaf();
  EXPECT_TRUE(leaf.size() >= 12 && leaf.rfind(L"log-", 0) == 0 &&
              leaf.substr(leaf.size() - 4) == L".txt")
      << leaf;
  EXPECT_EQ(at(""), path_t(name.get_branch()));
  EXPECT_FALSE(q2::get_unique_file_name(at(""), L"@@@@@@@@").is_empty());
  for (auto const* refused : {L"a@@@b@", L"@@@@@@@@@", L"bad|@"}) {
    EXPECT_TRUE(q2::get_unique_file_name(at(""), refused).is_empty()) << refused;
  }
  std::wstring created = L"stale";
  EXPECT_EQ(q2::RC_INVALID, q2::create_unique_dir(at("").as_string(), L"@@@@@@@@@", created));
  EXPECT_EQ(L"", created);
  ASSERT_EQ(q2::RC_CREATED, q2::create_unique_dir(at("").as_string(), L"run-@@@", created));
  EXPECT_TRUE(path_t(created).is_directory());
  EXPECT_EQ(at(""), path_t(path_t(created).get_branch()));
}

TEST_F(FileOps, UniqueDirectoriesAcrossThreads) {
  constexpr int threads = 4;
  constexpr int each = 10;
  boost::barrier start(threads);
  std::vector<std::thread> workers;
  for (int t = 0; t < threads; ++t) {
    workers.emplace_back([&] {
      start.wait();
      for (int i = 0; i < each; ++i) {
        std::wstring created;
        EXPECT_EQ(q2::RC_CREATED, q2::create_unique_dir(at("").as_string(), L"u-@@", created));
      }
    });
  }
  for (auto& w : workers) w.join();
  EXPECT_EQ(std::size_t{threads * each}, q2::find_directories(at(""), L"u-*", false).size());
}

// One contender of the race below, run only in the copies of this program that the race
// starts: it waits until the start pipe closes, then makes one directory under each of
// the parents, making each parent's missing levels anew.
TEST(FileOpsContender, MakesItsDirectories) {
  char const* const root = ::getenv("Q2_CONTENDER_ROOT");
  if (root == nullptr) GTEST_SKIP() << "runs as a contender of UniqueDirectoriesAcrossProcesses";
  int const start = std::atoi(::getenv("Q2_CONTENDER_START"));
  char go;
  ASSERT_EQ(0, ::read(start, &go, 1));
  for (int i = 0; i < std::atoi(::getenv("Q2_CONTENDER_EACH")); ++i) {
    std::wstring created;
    std::wstring const parent = wide(root) + L"\\a" + std::to_wstring(i) + L"\\b";
    EXPECT_EQ(q2::RC_CREATED, q2::create_unique_dir(parent, L"p-@@@", created)) << i;
  }
}

TEST_F(FileOps, UniqueDirectoriesAcrossProcesses) {
  // The contenders are fresh copies of this program, not forks of it: a fork copies the
  // locks that other threads of this process hold. Each one seeds the same random state,
  // so they all try the same names in the same order: only mkdir keeps them apart.
  constexpr int children = 8;
  constexpr int each = 8;
  int start[2];
  ASSERT_EQ(0, ::pipe(start));
  std::vector<std::string> env = {"Q2_CONTENDER_ROOT=" + m_dir.path(),
                                  "Q2_CONTENDER_START=" + std::to_string(start[0]),
                                  "Q2_CONTENDER_EACH=" + std::to_string(each)};
  std::vector<pid_t> pids;
  for (int c = 0; c < children; ++c) {
    pids.push_back(q2test::spawn({"/proc/self/exe", "--gtest_filter=FileOpsContender.*"}, env, {start[1]}));
    ASSERT_GT(pids.back(), 0);
  }
  ::close(start[0]);
  ::close(start[1]);  // all start now
  for (pid_t pid : pids) {
    int status = -1;
    ASSERT_EQ(pid, ::waitpid(pid, &status, 0));
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
  }
  for (int i = 0; i < each; ++i) {
    EXPECT_EQ(static_cast<std::size_t>(children),
              q2::find_directories(at("a" + std::to_string(i) + "/b"), L"p-*", false).size());
  }
}

// Moves to another file system: a tmpfs of the child's own on "other".
TEST_F(FileOps, AMoveAcrossFileSystemsCopiesThenRemovesAndMovesALinkAsALink) {
  if (!in_child()) return expect_child_passes();
  make({"d/", "d/sub/", "real/", "real/f", "link->real"});
  write("d/sub/f", "moved");
  if (!private_tmpfs("other", "size=4m", false)) return;
  EXPECT_TRUE(q2::rename_directory(at("d"), at("other/d")));
  EXPECT_FALSE(present("d"));
  EXPECT_EQ("moved", read("other/d/sub/f"));
  ASSERT_TRUE(q2::rename_directory(at("link"), at("other/link")));
  EXPECT_TRUE(S_ISLNK(mode_of("other/link")));
  EXPECT_FALSE(present("link"));
  EXPECT_EQ("x", read("real/f"));
}

TEST_F(FileOps, AMoveAcrossFileSystemsThatCantCopyEverythingRemovesNothing) {
  if (in_child()) {
    if (!private_tmpfs("other", "size=4m,mode=777", false)) return;
    // A user without the rights to override permission bits moves the tree; the real
    // user stays root, to clear up when the test ends.
    ASSERT_TRUE(::setegid(65534) == 0 && ::seteuid(65534) == 0);
    EXPECT_FALSE(q2::rename_directory(at("d"), at("other/d")));
    EXPECT_FALSE(present("other/d"));
    ASSERT_TRUE(::seteuid(0) == 0 && ::setegid(0) == 0);
    return;
  }
  make({"d/", "d/closed/"});
  write("d/f", "kept");
  write("d/closed/g", "kept too");
  ASSERT_EQ(0, ::chmod(native("d/closed").c_str(), 0));
  ASSERT_EQ(0, ::chmod(m_root.c_str(), 0755));
  for (char const* name : {"d", "d/f", "d/closed", "d/closed/g"}) {
    ASSERT_EQ(0, ::lchown(native(name).c_str(), 65534, 65534));
  }
  expect_child_passes();
  EXPECT_EQ(0u, mode_of("d/closed") & 07777);  // no mode changed to get in
  ASSERT_EQ(0, ::chmod(native("d/closed").c_str(), 0700));
  EXPECT_EQ("kept too", read("d/closed/g"));
  EXPECT_EQ("kept", read("d/f"));
}

}  // namespace
