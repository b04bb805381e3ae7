// The document that the XML benchmarks save and load, so that the two bag forms and
// their peers are measured on one shape: about 10 MB of XML, or about 100 KB with
// Q2_BENCH_QUICK set.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <sstream>
#include <string>

#include <benchmark/benchmark.h>
#include <boost/property_tree/ptree.hpp>
#include <boost/property_tree/xml_parser.hpp>
#ifdef Q2_HAVE_PUGIXML
#include <pugixml.hpp>
#endif

#include <quillon2/das/variant.hpp>
#include <quillon2/das/variant_bag.hpp>

namespace q2_bench {

using quillon2::variant_bag_t;
using quillon2::variant_t;

inline std::size_t document_bytes() {
  return std::getenv("Q2_BENCH_QUICK") != nullptr ? 100000 : 10000000;
}

inline std::uint64_t next_random(std::uint64_t& state) {
  state = state * 6364136223846793005ull + 1442695040888963407ull;
  return state >> 33;
}

// Records of small values of every kind with a nested bag each, and now and then a large
// text and a blob of 8 KiB, until the estimated XML reaches `target_bytes`.
// `blob_text_bytes` is what the form at hand writes for one such blob.
inline variant_bag_t make_record_document(std::size_t target_bytes, std::size_t blob_text_bytes) {
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
      estimate += 20000 + blob_text_bytes + 100;
    }
    bag.add_variant_bag(L"record", record);
  }
  return bag;
}

// The peers that a user would otherwise pick, run on the text of the form at hand.
inline void save_with_ptree(benchmark::State& state, std::string const& utf8) {
  boost::property_tree::ptree tree;
  std::istringstream in(utf8);
  boost::property_tree::read_xml(in, tree);
  for (auto _ : state) {
    std::ostringstream out;
    boost::property_tree::write_xml(out, tree);
    benchmark::DoNotOptimize(out);
  }
}

#ifdef Q2_HAVE_PUGIXML
struct string_writer_t : pugi::xml_writer {
  std::string text;
  void write(void const* data, std::size_t size) override {
    text.append(static_cast<char const*>(data), size);
  }
};

inline void save_with_pugixml(benchmark::State& state, std::string const& utf8) {
  pugi::xml_document doc;
  doc.load_buffer(utf8.data(), utf8.size());
  for (auto _ : state) {
    string_writer_t writer;
    doc.save(writer, " ");
    benchmark::DoNotOptimize(writer.text);
  }
}

inline void load_with_pugixml(benchmark::State& state, std::string const& utf8) {
  for (auto _ : state) {
    pugi::xml_document doc;
    if (!doc.load_buffer(utf8.data(), utf8.size())) state.SkipWithError("parse failed");
    benchmark::DoNotOptimize(doc);
  }
}
#endif

}  // namespace q2_bench
