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

#include "bench_document.hpp"

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

corpus_t const& corpus() {
  static std::unique_ptr<corpus_t> const data = [] {
    auto c = std::make_unique<corpus_t>();
    c->bag = q2_bench::make_record_document(q2_bench::document_bytes(), 8192 * 2 + 8192 / 16);
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
  q2_bench::save_with_ptree(state, corpus().utf8);
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
void BM_save_pugixml(benchmark::State& state) {
  q2_bench::save_with_pugixml(state, corpus().utf8);
  set_bytes(state);
}

void BM_load_pugixml(benchmark::State& state) {
  q2_bench::load_with_pugixml(state, corpus().utf8);
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
