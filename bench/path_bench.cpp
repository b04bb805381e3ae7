// path_t against boost::filesystem::path and std::filesystem::path: building a path
// from wide text, printing it back to wide text, and appending a relative path. All
// three work on the same texts, a million paths of mixed shapes (drive, rooted,
// relative and UNC paths of seven components each); Q2_BENCH_QUICK makes it ten
// thousand. Each iteration handles every text once.
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>
#include <boost/filesystem/path.hpp>

#include <quillon2/core/file_system/path.hpp>

namespace {

std::size_t path_count() { return std::getenv("Q2_BENCH_QUICK") ? 10000 : 1000000; }

std::vector<std::wstring> const& texts() {
  static std::vector<std::wstring> const all = [] {
    std::vector<std::wstring> v;
    std::size_t const n = path_count();
    v.reserve(n);
    for (std::size_t i = 0; i < n; ++i) {
      std::wstring const k = std::to_wstring(i);
      switch (i % 4) {
        case 0:
          v.push_back(L"C:\\Users\\user" + k + L"\\AppData\\Local\\Vendor\\Tool\\config.xml");
          break;
        case 1:
          v.push_back(L"/home/user" + k + L"/projects/quill/src/core/path.cpp");
          break;
        case 2:
          v.push_back(L"docs\\guide\\part" + k + L"\\chapter\\section\\figures\\a.png");
          break;
        default:
          v.push_back(L"\\\\server" + std::to_wstring(i % 10) + L"\\share\\dept\\team\\reports" +
                      L"\\2024\\q" + k + L".xml");
          break;
      }
    }
    return v;
  }();
  return all;
}

template <class Path>
std::vector<Path> parsed() {
  std::vector<Path> v;
  v.reserve(texts().size());
  for (auto const& t : texts()) v.emplace_back(t);
  return v;
}

void finish(benchmark::State& state) {
  state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * texts().size()));
}

// --- parse -----------------------------------------------------------------------------

template <class Path>
void parse(benchmark::State& state) {
  auto const& input = texts();
  for (auto _ : state) {
    for (auto const& t : input) {
      Path p(t);
      benchmark::DoNotOptimize(p);
    }
  }
  finish(state);
}

void BM_parse_ours(benchmark::State& state) { parse<quillon2::path_t>(state); }
void BM_parse_boost(benchmark::State& state) { parse<boost::filesystem::path>(state); }
void BM_parse_std(benchmark::State& state) { parse<std::filesystem::path>(state); }
BENCHMARK(BM_parse_ours)->Name("path_parse/ours")->Unit(benchmark::kMillisecond);
BENCHMARK(BM_parse_boost)->Name("path_parse/boost")->Unit(benchmark::kMillisecond);
BENCHMARK(BM_parse_std)->Name("path_parse/std")->Unit(benchmark::kMillisecond);

// --- print -----------------------------------------------------------------------------

template <class Path, class Print>
void print(benchmark::State& state, Print print_one) {
  std::vector<Path> const paths = parsed<Path>();
  for (auto _ : state) {
    for (auto const& p : paths) {
      std::wstring text = print_one(p);
      benchmark::DoNotOptimize(text);
    }
  }
  finish(state);
}

void BM_print_ours(benchmark::State& state) {
  print<quillon2::path_t>(state, [](quillon2::path_t const& p) { return p.as_string(); });
}
void BM_print_boost(benchmark::State& state) {
  print<boost::filesystem::path>(state,
                                 [](boost::filesystem::path const& p) { return p.wstring(); });
}
void BM_print_std(benchmark::State& state) {
  print<std::filesystem::path>(state, [](std::filesystem::path const& p) { return p.wstring(); });
}
BENCHMARK(BM_print_ours)->Name("path_print/ours")->Unit(benchmark::kMillisecond);
BENCHMARK(BM_print_boost)->Name("path_print/boost")->Unit(benchmark::kMillisecond);
BENCHMARK(BM_print_std)->Name("path_print/std")->Unit(benchmark::kMillisecond);

// --- append ----------------------------------------------------------------------------

template <class Path, class Append>
void append(benchmark::State& state, Append append_one) {
  std::vector<Path> const paths = parsed<Path>();
  Path const tail(std::wstring(L"sub\\file.txt"));
  for (auto _ : state) {
    for (auto const& p : paths) {
      Path joined = p;
      append_one(joined, tail);
      benchmark::DoNotOptimize(joined);
    }
  }
  finish(state);
}

void BM_append_ours(benchmark::State& state) {
  append<quillon2::path_t>(state,
                           [](quillon2::path_t& p, quillon2::path_t const& t) { p.append(t); });
}
void BM_append_boost(benchmark::State& state) {
  append<boost::filesystem::path>(
      state, [](boost::filesystem::path& p, boost::filesystem::path const& t) { p /= t; });
}
void BM_append_std(benchmark::State& state) {
  append<std::filesystem::path>(
      state, [](std::filesystem::path& p, std::filesystem::path const& t) { p /= t; });
}
BENCHMARK(BM_append_ours)->Name("path_append/ours")->Unit(benchmark::kMillisecond);
BENCHMARK(BM_append_boost)->Name("path_append/boost")->Unit(benchmark::kMillisecond);
BENCHMARK(BM_append_std)->Name("path_append/std")->Unit(benchmark::kMillisecond);

}  // namespace
