// find_files over a tree of 10,000 files (100 directories of 100 files, half of
// them matching), against std::filesystem::recursive_directory_iterator with a
// std::regex match of each file's path. Q2_BENCH_QUICK makes the tree 400 files.
// The tree is made once in a temporary directory and removed at exit.
#include <stdlib.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <regex>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

#include <quillon2/core/file_system/file_operations.hpp>
#include <quillon2/core/file_system/path.hpp>

namespace {

struct tree_t {
  std::string root;
  std::size_t matching = 0;

  tree_t() {
    char const* base = std::getenv("TMPDIR");
    std::string pattern = std::string(base && *base ? base : "/tmp") + "/q2bench-XXXXXX";
    if (!::mkdtemp(pattern.data())) std::abort();
    root = pattern;
    int const side = std::getenv("Q2_BENCH_QUICK") ? 20 : 100;
    for (int d = 0; d < side; ++d) {
      std::string const dir = root + "/dir" + std::to_string(d / 10) + "/sub" + std::to_string(d);
      std::filesystem::create_directories(dir);
      for (int f = 0; f < side; ++f) {
        std::string const name = dir + "/file" + std::to_string(f) + (f % 2 ? ".txt" : ".dat");
        std::ofstream(name) << f;
        matching += f % 2;
      }
    }
  }
  ~tree_t() {
    std::error_code ec;
    std::filesystem::remove_all(root, ec);
  }
};

tree_t const& tree() {
  static tree_t const t;
  return t;
}

void BM_find_ours(benchmark::State& state) {
  quillon2::path_t const root(std::wstring(tree().root.begin(), tree().root.end()));
  for (auto _ : state) {
    std::vector<quillon2::path_t> found = quillon2::find_files(root, L"*.txt", true);
    if (found.size() != tree().matching) state.SkipWithError("wrong number of hits");
    benchmark::DoNotOptimize(found);
  }
}

void BM_find_std(benchmark::State& state) {
  std::regex const expression(".*\\.txt");
  for (auto _ : state) {
    std::vector<std::filesystem::path> found;
    for (auto const& entry : std::filesystem::recursive_directory_iterator(tree().root)) {
      if (entry.is_regular_file() && std::regex_match(entry.path().native(), expression)) {
        found.push_back(entry.path());
      }
    }
    if (found.size() != tree().matching) state.SkipWithError("wrong number of hits");
    benchmark::DoNotOptimize(found);
  }
}

BENCHMARK(BM_find_ours)->Name("find_files/ours")->Unit(benchmark::kMillisecond);
BENCHMARK(BM_find_std)->Name("find_files/std")->Unit(benchmark::kMillisecond);

}  // namespace
