// Saving and loading a bag in the element form, beside peers that do the same work on
// a document of the same shape: boost::property_tree (write_xml/read_xml), pugixml
// (print/parse), and a bare libxml2 parse (xmlReadMemory) and print (xmlDocDumpMemory),
// which is the limit for a design built on libxml2.
//
// The bag has many small values of every kind, nested children, and now and then a large
// text and a blob: about 10 MB of XML (about 100 KB with Q2_BENCH_QUICK set).
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <sstream>
#include <string>

#include <benchmark/benchmark.h>
#include <boost/property_tree/ptree.hpp>
#include <boost/property_tree/xml_parser.hpp>
#include <libxml/parser.h>
#include <libxml/tree.h>
#ifdef Q2_HAVE_PUGIXML
#include <pugixml.hpp>
#endif

#include <quillon2/das/variant.hpp>
#include <quillon2/das/variant_bag.hpp>
#include <quillon2/das/variant_bag_serialization.hpp>

namespace {

using quillon2::variant_bag_t;
using quillon2::variant_t;

struct corpus_t {
  variant_bag_t bag;
  std::string utf8;  // the element form of the bag
  variant_t wide;    // the same as the wide-string variant the load takes
};

std::uint64_t next_random(std::uint64_t& state) {
  state = state * 6364136223846793005ull + 1442695040888963407ull;
  return state >> 33;
}

variant_bag_t make_bag(std::size_t target_bytes) {
  std::uint64_t seed = 42;
  variant_bag_t bag;
  std::wstring const words[] = {L"alpha",        L"beta",         L"gr\u00fc\u00dfe",
                                L"\u65e5\u672c", L"<tag & more>", L"line\nfeed"};
  std::size_t estimate = 0;
  for (int i = 0; estimate < target_bytes; ++i) {
    variant_bag_t record;
    record.add<variant_t>(L"id", variant_t(i));
    record.add<variant_t>(
        L"name",
        variant_t(
            (words[next_random(seed) % 6] + L" " + std::to_wstring(next_random(seed))).c_str()));
    record.add<variant_t>(L"active", variant_t(next_random(seed) % 2 == 0));
    record.add<variant_t>(L"ratio", variant_t(static_cast<double>(next_random(seed)) / 7.0));
    record.add<variant_t>(L"count", variant_t(static_cast<quillon2::u64_t>(next_random(seed))));
    record.add<variant_t>(L"level", variant_t(static_cast<short>(next_random(seed) % 1000)));
    record.add<variant_t>(L"scale", variant_t(static_cast<float>(next_random(seed) % 100) / 8.0f));
    record.add<variant_t>(L"empty", variant_t());
    variant_bag_t meta;
    meta.add<variant_t>(L"owner", variant_t(words[next_random(seed) % 6].c_str()));
    meta.add<variant_t>(L"version", variant_t(static_cast<unsigned>(next_random(seed) % 50)));
    meta.add<variant_t>(L"stamp", variant_t(static_cast<quillon2::s64_t>(next_random(seed))));
    record.add_variant_bag(L"meta", meta);
    estimate += 420;
    if (i % 200 == 0) {
      std::wstring big;
      while (big.size() < 20000) big += words[next_random(seed) % 6] + L" ";
      record.add<variant_t>(L"text", variant_t(big.c_str()));
      std::string bytes(8192, '\0');
      for (char& c : bytes) c = static_cast<char>(next_random(seed));
      record.add<variant_t>(L"data", variant_t(static_cast<void const*>(bytes.data()),
                                               static_cast<quillon2::u64_t>(bytes.size())));
      estimate += 20000 + 8192 * 2 + 8192 / 16 + 100;
    }
    bag.add_variant_bag(L"record", record);
  }
  return bag;
}

corpus_t const& corpus() {
  static std::unique_ptr<corpus_t> const data = [] {
    auto c = std::make_unique<corpus_t>();
    c->bag = make_bag(std::getenv("Q2_BENCH_QUICK") != nullptr ? 100000 : 10000000);
    quillon2::save_variant_bag_to_string(c->bag, &c->wide);
    std::wstring const wide = c->wide.get<wchar_t const*>();
    for (wchar_t ch : wide) {  // UTF-8 by hand: the benchmark needs no other library part
      auto const u = static_cast<std::uint32_t>(ch);
      if (u < 0x80) {
        c->utf8 += static_cast<char>(u);
      } else if (u < 0x800) {
        c->utf8 += static_cast<char>(0xC0 | (u >> 6));
        c->utf8 += static_cast<char>(0x80 | (u & 0x3F));
      } else if (u < 0x10000) {
        c->utf8 += static_cast<char>(0xE0 | (u >> 12));
        c->utf8 += static_cast<char>(0x80 | ((u >> 6) & 0x3F));
        c->utf8 += static_cast<char>(0x80 | (u & 0x3F));
      } else {
        c->utf8 += static_cast<char>(0xF0 | (u >> 18));
        c->utf8 += static_cast<char>(0x80 | ((u >> 12) & 0x3F));
        c->utf8 += static_cast<char>(0x80 | ((u >> 6) & 0x3F));
        c->utf8 += static_cast<char>(0x80 | (u & 0x3F));
      }
    }
    return c;
  }();
  return *data;
}

void set_bytes(benchmark::State& state) {
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) *
                          static_cast<std::int64_t>(corpus().utf8.size()));
}

void BM_save_ours(benchmark::State& state) {
  corpus_t const& c = corpus();
  for (auto _ : state) {
    variant_t text;
    if (quillon2::save_variant_bag_to_string(c.bag, &text) != 1) state.SkipWithError("save failed");
    benchmark::DoNotOptimize(text);
  }
  set_bytes(state);
}

void BM_load_ours(benchmark::State& state) {
  corpus_t const& c = corpus();
  for (auto _ : state) {
    variant_bag_t bag;
    if (quillon2::load_variant_bag_from_string(bag, c.wide) != 1)
      state.SkipWithError("load failed");
    benchmark::DoNotOptimize(bag);
  }
  set_bytes(state);
}

void BM_save_ptree(benchmark::State& state) {
  corpus_t const& c = corpus();
  boost::property_tree::ptree tree;
  std::istringstream in(c.utf8);
  boost::property_tree::read_xml(in, tree);
  for (auto _ : state) {
    std::ostringstream out;
    boost::property_tree::write_xml(out, tree);
    benchmark::DoNotOptimize(out);
  }
  set_bytes(state);
}

void BM_load_ptree(benchmark::State& state) {
  corpus_t const& c = corpus();
  for (auto _ : state) {
    std::istringstream in(c.utf8);
    boost::property_tree::ptree tree;
    boost::property_tree::read_xml(in, tree);
    benchmark::DoNotOptimize(tree);
  }
  set_bytes(state);
}

void BM_save_libxml2_bare(benchmark::State& state) {
  corpus_t const& c = corpus();
  xmlDocPtr doc =
      xmlReadMemory(c.utf8.data(), static_cast<int>(c.utf8.size()), nullptr, nullptr, 0);
  for (auto _ : state) {
    xmlChar* text = nullptr;
    int size = 0;
    xmlDocDumpMemory(doc, &text, &size);
    benchmark::DoNotOptimize(text);
    xmlFree(text);
  }
  xmlFreeDoc(doc);
  set_bytes(state);
}

void BM_load_libxml2_bare(benchmark::State& state) {
  corpus_t const& c = corpus();
  for (auto _ : state) {
    xmlDocPtr doc =
        xmlReadMemory(c.utf8.data(), static_cast<int>(c.utf8.size()), nullptr, nullptr, 0);
    if (doc == nullptr) state.SkipWithError("parse failed");
    xmlFreeDoc(doc);
  }
  set_bytes(state);
}

#ifdef Q2_HAVE_PUGIXML
struct string_writer_t : pugi::xml_writer {
  std::string text;
  void write(void const* data, std::size_t size) override {
    text.append(static_cast<char const*>(data), size);
  }
};

void BM_save_pugixml(benchmark::State& state) {
  corpus_t const& c = corpus();
  pugi::xml_document doc;
  doc.load_buffer(c.utf8.data(), c.utf8.size());
  for (auto _ : state) {
    string_writer_t writer;
    doc.save(writer, " ");
    benchmark::DoNotOptimize(writer.text);
  }
  set_bytes(state);
}

void BM_load_pugixml(benchmark::State& state) {
  corpus_t const& c = corpus();
  for (auto _ : state) {
    pugi::xml_document doc;
    if (!doc.load_buffer(c.utf8.data(), c.utf8.size())) state.SkipWithError("parse failed");
    benchmark::DoNotOptimize(doc);
  }
  set_bytes(state);
}

BENCHMARK(BM_save_pugixml)->Name("bag_xml_save/pugixml")->Unit(benchmark::kMillisecond);
BENCHMARK(BM_load_pugixml)->Name("bag_xml_load/pugixml")->Unit(benchmark::kMillisecond);
#endif

BENCHMARK(BM_save_ours)->Name("bag_xml_save/ours")->Unit(benchmark::kMillisecond);
BENCHMARK(BM_save_ptree)->Name("bag_xml_save/ptree")->Unit(benchmark::kMillisecond);
BENCHMARK(BM_save_libxml2_bare)->Name("bag_xml_save/libxml2_bare")->Unit(benchmark::kMillisecond);
BENCHMARK(BM_load_ours)->Name("bag_xml_load/ours")->Unit(benchmark::kMillisecond);
BENCHMARK(BM_load_ptree)->Name("bag_xml_load/ptree")->Unit(benchmark::kMillisecond);
BENCHMARK(BM_load_libxml2_bare)->Name("bag_xml_load/libxml2_bare")->Unit(benchmark::kMillisecond);

}  // namespace
