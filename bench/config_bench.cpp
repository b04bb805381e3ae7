// The configuration store beside Boost.PropertyTree on the same 10,000-key file: load and
// save on a tmpfs (/dev/shm), where fsync costs nothing, and the save again on the
// temporary directory's file system with the peer's fsync added, so that the sync is seen
// apart. Set and get of one key beside a std::map<std::string, boost::any>.
#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <map>
#include <string>

#include <benchmark/benchmark.h>
#include <boost/any.hpp>
#include <boost/property_tree/ptree.hpp>
#include <boost/property_tree/xml_parser.hpp>

#include <quillon2/core/config/advanced_xml_config.hpp>

namespace {

using quillon2::advanced_xml_config_t;
namespace pt = boost::property_tree;

constexpr int k_keys = 10000;

std::string shm_file(char const* name) {
  return std::string("/dev/shm/q2_config_bench_") + std::to_string(::getpid()) + "_" + name;
}

std::string disk_file(char const* name) {
  char const* tmp = std::getenv("TMPDIR");
  return std::string(tmp != nullptr && tmp[0] == '/' ? tmp : "/tmp") + "/q2_config_bench_" +
         std::to_string(::getpid()) + "_" + name;
}

quillon2::path_t path_of(std::string const& native) {
  return quillon2::path_t(std::wstring(native.begin(), native.end()));
}

// Groups of a hundred keys, values of several types, as a product's settings look.
advanced_xml_config_t const& store() {
  static advanced_xml_config_t const config = [] {
    advanced_xml_config_t c;
    for (int i = 0; i < k_keys; ++i) {
      std::wstring const key = L"section" + std::to_wstring(i / 100) + L".key" + std::to_wstring(i);
      switch (i % 3) {
        case 0: c.set_value(key, i); break;
        case 1: c.set_value(key, 0.5 * i); break;
        default: c.set_value(key, L"value number " + std::to_wstring(i)); break;
      }
    }
    return c;
  }();
  return config;
}

// The store's file, written once (removed at exit), and the property tree read from it.
struct stored_file_t {
  stored_file_t() : name(shm_file("source.xml")) {
    advanced_xml_config_t copy(store());
    copy.save(path_of(name));
  }
  ~stored_file_t() { ::unlink(name.c_str()); }
  std::string name;
};

std::string const& stored_file() {
  static stored_file_t const file;
  return file.name;
}

pt::ptree const& stored_tree() {
  static pt::ptree const tree = [] {
    pt::ptree t;
    pt::read_xml(stored_file(), t);
    return t;
  }();
  return tree;
}

void BM_load_ours(benchmark::State& state) {
  quillon2::path_t const path = path_of(stored_file());
  for (auto _ : state) {
    advanced_xml_config_t config;
    benchmark::DoNotOptimize(config.load(path));
  }
}

void BM_load_ptree(benchmark::State& state) {
  std::string const& file = stored_file();
  for (auto _ : state) {
    pt::ptree tree;
    pt::read_xml(file, tree);
    benchmark::DoNotOptimize(tree);
  }
}

void save_ours(benchmark::State& state, std::string const& file) {
  advanced_xml_config_t config(store());
  quillon2::path_t const path = path_of(file);
  for (auto _ : state) benchmark::DoNotOptimize(config.save(path));
  ::unlink(file.c_str());
}

void save_ptree(benchmark::State& state, std::string const& file, bool sync) {
  pt::ptree const& tree = stored_tree();
  auto const settings = pt::xml_writer_make_settings<std::string>(' ', 2);
  for (auto _ : state) {
    {
      std::ofstream out(file);
      pt::write_xml(out, tree, settings);
    }
    if (sync) {
      int const fd = ::open(file.c_str(), O_RDONLY | O_CLOEXEC);
      ::fsync(fd);
      ::close(fd);
    }
  }
  ::unlink(file.c_str());
}

void BM_save_ours(benchmark::State& state) { save_ours(state, shm_file("ours.xml")); }
void BM_save_ptree(benchmark::State& state) { save_ptree(state, shm_file("ptree.xml"), false); }
void BM_save_synced_ours(benchmark::State& state) { save_ours(state, disk_file("ours.xml")); }
void BM_save_synced_ptree(benchmark::State& state) {
  save_ptree(state, disk_file("ptree.xml"), true);
}

void BM_set_get_ours(benchmark::State& state) {
  advanced_xml_config_t config(store());
  int i = 0;
  for (auto _ : state) {
    config.set_value(L"section42.key4242", ++i);
    benchmark::DoNotOptimize(config.get_value(L"section42.key4242", 0));
  }
}

void BM_set_get_map(benchmark::State& state) {
  std::map<std::string, boost::any> map;
  for (int i = 0; i < k_keys; ++i) {
    map["section" + std::to_string(i / 100) + ".key" + std::to_string(i)] = i;
  }
  int i = 0;
  for (auto _ : state) {
    map[std::string("section42.key4242")] = ++i;
    auto const found = map.find(std::string("section42.key4242"));
    benchmark::DoNotOptimize(found != map.end() ? found->second : boost::any(0));
  }
}

}  // namespace

BENCHMARK(BM_load_ours)->Name("config_load/ours")->Unit(benchmark::kMillisecond);
BENCHMARK(BM_load_ptree)->Name("config_load/ptree")->Unit(benchmark::kMillisecond);
BENCHMARK(BM_save_ours)->Name("config_save/ours")->Unit(benchmark::kMillisecond);
BENCHMARK(BM_save_ptree)->Name("config_save/ptree")->Unit(benchmark::kMillisecond);
BENCHMARK(BM_save_synced_ours)->Name("config_save_synced/ours")->Unit(benchmark::kMillisecond);
BENCHMARK(BM_save_synced_ptree)->Name("config_save_synced/ptree")->Unit(benchmark::kMillisecond);
BENCHMARK(BM_set_get_ours)->Name("config_set_get/ours");
BENCHMARK(BM_set_get_map)->Name("config_set_get/map");
