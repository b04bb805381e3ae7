// Saving a bag as JSON and loading it back, beside peers that do the same work on the
// same text:
// - rapidjson_sax: RapidJSON's reader with the same flags and transcoding as ours and a
//   bare handler (which keeps RapidJSON's own approximate conversion of doubles) that builds the same bag through the public bag API: the limit for a
//   loader built on RapidJSON;
// - nlohmann: nlohmann::json parsing into its DOM, and dumping that DOM;
// - ptree: boost::property_tree's JSON reader and writer.
//
// The document: an array of records of numbers, texts, booleans, a nested object, an
// array of scalars and an array of objects, about 10 MB of compact JSON (about 100 KB with
// Q2_BENCH_QUICK set). The loads are timed up to the finished bag or tree; destroying it
// afterwards is left out of the time.
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>
#include <boost/property_tree/json_parser.hpp>
#include <boost/property_tree/ptree.hpp>
#include <nlohmann/json.hpp>
#include <rapidjson/encodings.h>
#include <rapidjson/reader.h>

#include "bench_document.hpp"

#include <quillon2/das/json.hpp>
#include <quillon2/das/variant.hpp>
#include <quillon2/das/variant_bag.hpp>

namespace {

using quillon2::variant_bag_t;
using quillon2::variant_t;

struct corpus_t {
  variant_bag_t bag;
  std::string utf8;  // the compact JSON of the bag
};

std::string save_compact(variant_bag_t const& bag) {
  std::ostringstream out;
  quillon2::json::save_variant_bag_to_json_string(bag, out, quillon2::json::Compact);
  return out.str();
}

variant_bag_t make_document(std::size_t target_bytes) {
  std::uint64_t seed = 7;
  std::wstring const words[] = {L"alpha", L"beta", L"gr\u00fc\u00dfe", L"\u65e5\u672c",
                                L"quote \" and \\", L"line\nfeed"};
  variant_bag_t root;  // an array of records: no repeated keys, which a DOM would merge
  root.add<variant_t>(L"arrayOf", variant_t(L"record"));
  std::size_t estimate = 0;
  for (int i = 0; estimate < target_bytes; ++i) {
    variant_bag_t record;
    record.add<variant_t>(L"id", variant_t(i));
    record.add<variant_t>(
        L"name", variant_t((words[q2_bench::next_random(seed) % 6] + L" " +
                            std::to_wstring(q2_bench::next_random(seed)))
                               .c_str()));
    record.add<variant_t>(L"active", variant_t(q2_bench::next_random(seed) % 2 == 0));
    record.add<variant_t>(L"ratio",
                          variant_t(static_cast<double>(q2_bench::next_random(seed)) / 7.0));
    record.add<variant_t>(L"count",
                          variant_t(static_cast<quillon2::u64_t>(q2_bench::next_random(seed))));
    record.add<variant_t>(L"delta", variant_t(-static_cast<int>(q2_bench::next_random(seed) % 1000)));
    record.add<variant_t>(L"empty", variant_t());
    variant_bag_t& meta = record.add_variant_bag(L"meta", variant_bag_t());
    meta.add<variant_t>(L"owner", variant_t(words[q2_bench::next_random(seed) % 6].c_str()));
    meta.add<variant_t>(L"version", variant_t(static_cast<unsigned>(i % 50)));
    variant_bag_t& tags = record.add_variant_bag(L"tags", variant_bag_t());
    tags.add<variant_t>(L"arrayOf", variant_t(L"item"));
    for (int t = 0; t < 3; ++t) {
      tags.add_variant_bag(L"item", variant_bag_t())
          .add<variant_t>(L"", variant_t(words[(i + t) % 6].c_str()));
    }
    variant_bag_t& points = record.add_variant_bag(L"points", variant_bag_t());
    points.add<variant_t>(L"arrayOf", variant_t(L"item"));
    for (int p = 0; p < 2; ++p) {
      variant_bag_t& point = points.add_variant_bag(L"item", variant_bag_t());
      point.add<variant_t>(L"x", variant_t(static_cast<double>(q2_bench::next_random(seed) % 1000) / 8));
      point.add<variant_t>(L"y", variant_t(static_cast<int>(q2_bench::next_random(seed) % 1000)));
    }
    root.add_variant_bag(L"record", record);
    estimate += 330;
  }
  return root;
}

corpus_t const& corpus() {
  static std::unique_ptr<corpus_t> const data = [] {
    auto c = std::make_unique<corpus_t>();
    c->bag = make_document(q2_bench::document_bytes());
    c->utf8 = save_compact(c->bag);
    return c;
  }();
  return *data;
}

void set_bytes(benchmark::State& state) {
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) *
                          static_cast<std::int64_t>(corpus().utf8.size()));
}

// ---------------------------------------------------------------------------------------
// Save

void BM_save_ours(benchmark::State& state) {
  corpus_t const& c = corpus();
  for (auto _ : state) {
    std::ostringstream out;
    quillon2::json::save_variant_bag_to_json_string(c.bag, out, quillon2::json::Compact);
    benchmark::DoNotOptimize(out);
  }
  set_bytes(state);
}

void BM_save_nlohmann(benchmark::State& state) {
  nlohmann::json const doc = nlohmann::json::parse(corpus().utf8);
  for (auto _ : state) {
    std::string text = doc.dump();
    benchmark::DoNotOptimize(text);
  }
  set_bytes(state);
}

void BM_save_ptree(benchmark::State& state) {
  boost::property_tree::ptree tree;
  std::istringstream in(corpus().utf8);
  boost::property_tree::read_json(in, tree);
  for (auto _ : state) {
    std::ostringstream out;
    boost::property_tree::write_json(out, tree, false);
    benchmark::DoNotOptimize(out);
  }
  set_bytes(state);
}

// ---------------------------------------------------------------------------------------
// Load

void BM_load_ours(benchmark::State& state) {
  corpus_t const& c = corpus();
  for (auto _ : state) {
    auto bag = std::make_unique<variant_bag_t>();
    if (!quillon2::json::load_variant_bag_from_json_string(c.utf8, *bag).is_ok()) {
      state.SkipWithError("load failed");
    }
    benchmark::DoNotOptimize(bag);
    state.PauseTiming();
    bag.reset();
    state.ResumeTiming();
  }
  set_bytes(state);
}

// The least a RapidJSON handler does to build the same bag: objects and arrays become
// child bags, array elements children "item", scalars values of the current key.
class bare_handler_t {
 public:
  explicit bare_handler_t(variant_bag_t& root) : m_root(root) {}

  bool Null() { return scalar(variant_t()); }
  bool Bool(bool v) { return scalar(variant_t(v)); }
  bool Int(int v) { return scalar(variant_t(v)); }
  bool Uint(unsigned v) { return scalar(variant_t(v)); }
  bool Int64(std::int64_t v) { return scalar(variant_t(static_cast<quillon2::s64_t>(v))); }
  bool Uint64(std::uint64_t v) { return scalar(variant_t(static_cast<quillon2::u64_t>(v))); }
  bool Double(double v) { return scalar(variant_t(v)); }
  bool RawNumber(wchar_t const*, rapidjson::SizeType, bool) { return false; }
  bool String(wchar_t const* s, rapidjson::SizeType, bool) { return scalar(variant_t(s)); }
  bool Key(wchar_t const* s, rapidjson::SizeType n, bool) {
    m_key.assign(s, n);
    return true;
  }
  bool StartObject() { return open(false); }
  bool StartArray() { return open(true); }
  bool EndObject(rapidjson::SizeType) { return close(); }
  bool EndArray(rapidjson::SizeType) { return close(); }

 private:
  struct level_t {
    variant_bag_t* bag;
    bool array;
  };

  bool open(bool array) {
    variant_bag_t* bag = &m_root;
    if (!m_levels.empty()) {
      level_t const& top = m_levels.back();
      bag = &top.bag->add_variant_bag(top.array ? L"item" : m_key.c_str(), m_empty);
    }
    if (array) bag->put<variant_t>(L"arrayOf", variant_t(L"item"));
    m_levels.push_back({bag, array});
    return true;
  }
  bool close() {
    m_levels.pop_back();
    return true;
  }
  bool scalar(variant_t const& v) {
    if (m_levels.empty()) {
      m_root.put<variant_t>(L"", v);
    } else if (m_levels.back().array) {
      m_levels.back().bag->add_variant_bag(L"item", m_empty).put<variant_t>(L"", v);
    } else {
      m_levels.back().bag->put<variant_t>(m_key.c_str(), v);
    }
    return true;
  }

  variant_bag_t& m_root;
  variant_bag_t const m_empty;
  std::vector<level_t> m_levels;
  std::wstring m_key;
};

void BM_load_rapidjson_sax(benchmark::State& state) {
  corpus_t const& c = corpus();
  constexpr unsigned flags = rapidjson::kParseValidateEncodingFlag | rapidjson::kParseIterativeFlag;
  for (auto _ : state) {
    auto bag = std::make_unique<variant_bag_t>();
    bare_handler_t handler(*bag);
    rapidjson::GenericReader<rapidjson::UTF8<>, rapidjson::UTF32<wchar_t>> reader;
    rapidjson::StringStream in(c.utf8.c_str());
    if (reader.Parse<flags>(in, handler).IsError()) state.SkipWithError("parse failed");
    benchmark::DoNotOptimize(bag);
    state.PauseTiming();
    bag.reset();
    state.ResumeTiming();
  }
  set_bytes(state);
}

void BM_load_nlohmann(benchmark::State& state) {
  corpus_t const& c = corpus();
  for (auto _ : state) {
    auto doc = std::make_unique<nlohmann::json>(nlohmann::json::parse(c.utf8));
    benchmark::DoNotOptimize(doc);
    state.PauseTiming();
    doc.reset();
    state.ResumeTiming();
  }
  set_bytes(state);
}

void BM_load_ptree(benchmark::State& state) {
  corpus_t const& c = corpus();
  for (auto _ : state) {
    std::istringstream in(c.utf8);
    auto tree = std::make_unique<boost::property_tree::ptree>();
    boost::property_tree::read_json(in, *tree);
    benchmark::DoNotOptimize(tree);
    state.PauseTiming();
    tree.reset();
    state.ResumeTiming();
  }
  set_bytes(state);
}

// One iteration takes a few hundred milliseconds: without Q2_BENCH_QUICK each repetition
// runs for at least two seconds, so that a median of five is not that of single iterations.
void steady(benchmark::internal::Benchmark* b) {
  b->Unit(benchmark::kMillisecond);
  if (std::getenv("Q2_BENCH_QUICK") == nullptr) b->MinTime(2.0);
}

BENCHMARK(BM_save_ours)->Name("json_save/ours")->Apply(steady);
BENCHMARK(BM_save_nlohmann)->Name("json_save/nlohmann")->Apply(steady);
BENCHMARK(BM_save_ptree)->Name("json_save/ptree")->Apply(steady);
BENCHMARK(BM_load_ours)->Name("json_load/ours")->Apply(steady);
BENCHMARK(BM_load_rapidjson_sax)->Name("json_load/rapidjson_sax")->Apply(steady);
BENCHMARK(BM_load_nlohmann)->Name("json_load/nlohmann")->Apply(steady);
BENCHMARK(BM_load_ptree)->Name("json_load/ptree")->Apply(steady);

}  // namespace
