// Dynamic libraries: the library's loader and manager against the bare loader calls.
//   lib_cycle/<impl>:    load a library from a directory, look up a symbol, unload it
//   lib_add_path/<impl>: a directory of 1,000 decoy files and 20 libraries in 3 versions
//                        each: find the newest version of each and load it, then unload
// The libraries are copies of the system's zlib, made once in a temporary directory.
#include <dirent.h>
#include <dlfcn.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <map>
#include <string>
#include <tuple>
#include <vector>

#include <benchmark/benchmark.h>
#include <boost/regex.hpp>

#include <quillon2/core/file_system/lib_manager.hpp>
#include <quillon2/core/file_system/shared_lib.hpp>
#include <quillon2/headers/kesmet.hpp>

namespace {

std::string find_zlib() {
  for (char const* candidate : {"/usr/lib/x86_64-linux-gnu/libz.so.1", "/lib/x86_64-linux-gnu/libz.so.1",
                                "/usr/lib64/libz.so.1", "/usr/lib/libz.so.1"})
    if (::access(candidate, R_OK) == 0) return candidate;
  return {};
}

void copy_file(std::string const& from, std::string const& to) {
  std::ifstream in(from, std::ios::binary);
  std::ofstream out(to, std::ios::binary);
  out << in.rdbuf();
}

// The directory of the benchmark: made on first use, removed at exit.
struct fixture_t {
  std::string dir;
  fixture_t() {
    char name[] = "/tmp/q2bench-libs-XXXXXX";
    if (::mkdtemp(name) == nullptr) return;
    dir = name;
    std::string const zlib = find_zlib();
    if (zlib.empty()) return;
    copy_file(zlib, dir + "/libcycle.so");
    int const decoys = std::getenv("Q2_BENCH_QUICK") != nullptr ? 50 : 1000;
    for (int i = 0; i < decoys; ++i) std::ofstream(dir + "/decoy" + std::to_string(i) + ".txt") << i;
    for (int lib = 0; lib < 20; ++lib)
      for (int version = 1; version <= 3; ++version)
        copy_file(zlib, dir + "/plug" + std::to_string(lib) + "_1." + std::to_string(version) + ".so");
  }
  ~fixture_t() { std::system(("rm -rf '" + dir + "'").c_str()); }
};

fixture_t& fixture() {
  static fixture_t f;
  return f;
}

void lib_cycle_ours(benchmark::State& state) {
  quillon2::path_t const dir(kesmet2::utf8_to_utf16(fixture().dir));
  for (auto _ : state) {
    quillon2::shared_lib_t lib(L"libcycle.so", dir);
    benchmark::DoNotOptimize(lib.get_symbol(L"zlibVersion"));
  }
}

void lib_cycle_dlopen(benchmark::State& state) {
  std::string const path = fixture().dir + "/libcycle.so";
  for (auto _ : state) {
    void* module = ::dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    benchmark::DoNotOptimize(::dlsym(module, "zlibVersion"));
    ::dlclose(module);
  }
}

void lib_add_path_ours(benchmark::State& state) {
  std::wstring const dir = kesmet2::utf8_to_utf16(fixture().dir);
  for (auto _ : state) {
    auto manager = quillon2::create_lib_manager();
    manager->add_path(dir.c_str(), L"plug.*\\.");
    benchmark::DoNotOptimize(manager->get_count());
  }
}

// What a caller would write without the manager: list, match, keep the newest of each
// name, load it.
void lib_add_path_bare(benchmark::State& state) {
  std::string const dir = fixture().dir;
  boost::regex const expression(R"((^plug.*)_(\d+)\.(\d+)\.so$)");
  for (auto _ : state) {
    std::map<std::string, std::tuple<int, int, std::string>> newest;
    if (DIR* d = ::opendir(dir.c_str())) {
      while (dirent* entry = ::readdir(d)) {
        boost::smatch match;
        std::string const name = entry->d_name;
        if (!boost::regex_match(name, match, expression)) continue;
        auto const version = std::make_tuple(std::stoi(match.str(2)), std::stoi(match.str(3)), name);
        auto& slot = newest[match.str(1)];
        if (std::get<2>(slot).empty() || version > slot) slot = version;
      }
      ::closedir(d);
    }
    std::vector<void*> modules;
    for (auto const& item : newest)
      modules.push_back(::dlopen((dir + "/" + std::get<2>(item.second)).c_str(), RTLD_NOW | RTLD_LOCAL));
    benchmark::DoNotOptimize(modules.size());
    for (void* module : modules)
      if (module != nullptr) ::dlclose(module);
  }
}

BENCHMARK(lib_cycle_ours)->Name("lib_cycle/ours");
BENCHMARK(lib_cycle_dlopen)->Name("lib_cycle/dlopen");
BENCHMARK(lib_add_path_ours)->Name("lib_add_path/ours")->Unit(benchmark::kMillisecond);
BENCHMARK(lib_add_path_bare)->Name("lib_add_path/bare")->Unit(benchmark::kMillisecond);

}  // namespace
