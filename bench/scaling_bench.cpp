// How costs grow with size: a name lookup in bags of 1,000 to 1,000,000 names (beside
// std::unordered_map), and the element form's save and load from 100 KB to 100 MB of
// text. Each family runs at its smallest and largest size; scripts/bench compares the
// time of one item (one lookup, one byte) at the largest size with that at the smallest,
// against a goal of flatness ("scale" in bench/goals.tsv). Quick runs stop at 10,000
// names and 1 MB.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <random>
#include <string>
#include <unordered_map>
#include <vector>

#include <benchmark/benchmark.h>

#include <quillon2/das/variant.hpp>
#include <quillon2/das/variant_bag.hpp>
#include <quillon2/das/variant_bag_serialization.hpp>

namespace {

using quillon2::variant_bag_t;
using quillon2::variant_t;

bool quick() { return std::getenv("Q2_BENCH_QUICK") != nullptr; }

// Names of one length at every size ("name_0000042"), so that only the table grows.
std::vector<std::wstring> names_of(std::size_t count) {
  std::vector<std::wstring> names;
  names.reserve(count);
  for (std::size_t i = 0; i < count; ++i) {
    std::wstring digits = std::to_wstring(i);
    names.push_back(L"name_" + std::wstring(7 - std::min<std::size_t>(7, digits.size()), L'0') +
                    digits);
  }
  return names;
}

// Each iteration looks up the same 100 names, spread evenly over the bag and shuffled, so
// that the figure shows what the table itself costs as it grows. With every name of a
// large table looked up, each lookup waits for memory and for a page walk, and so does
// any table's (bag_lookup_cold); with 1,000 names spread over a million, the three pages
// of each lookup already overflow the TLB.
constexpr std::size_t working_set = 100;

std::vector<std::wstring> lookups_of(std::vector<std::wstring> const& names, std::size_t count) {
  std::vector<std::wstring> lookups;
  std::size_t const step = std::max<std::size_t>(1, names.size() / count);
  for (std::size_t i = 0; i < names.size() && lookups.size() < count; i += step) {
    lookups.push_back(names[i]);
  }
  std::shuffle(lookups.begin(), lookups.end(), std::mt19937(7));
  return lookups;
}

template <typename Lookup>
void look_up(benchmark::State& state, std::vector<std::wstring> const& lookups, Lookup lookup) {
  for (auto _ : state) {
    for (auto const& name : lookups) lookup(name);
  }
  state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * lookups.size()));
}

void lookup_ours(benchmark::State& state, std::size_t looked_up) {
  std::size_t const count = static_cast<std::size_t>(state.range(0));
  std::vector<std::wstring> const names = names_of(count);
  variant_bag_t bag;
  for (std::size_t i = 0; i < count; ++i) bag.add(names[i].c_str(), variant_t(static_cast<int>(i)));
  variant_t const missing;
  look_up(state, lookups_of(names, looked_up), [&](std::wstring const& name) {
    benchmark::DoNotOptimize(bag.get_variant(name.c_str(), missing));
  });
}

void lookup_unordered_map(benchmark::State& state, std::size_t looked_up) {
  std::size_t const count = static_cast<std::size_t>(state.range(0));
  std::vector<std::wstring> const names = names_of(count);
  std::unordered_map<std::wstring, variant_t> map;
  for (std::size_t i = 0; i < count; ++i) map.emplace(names[i], variant_t(static_cast<int>(i)));
  variant_t const missing;
  look_up(state, lookups_of(names, looked_up), [&](std::wstring const& name) {
    auto const found = map.find(name);
    benchmark::DoNotOptimize(found == map.end() ? missing : found->second);
  });
}

void bag_lookup_scale_ours(benchmark::State& state) { lookup_ours(state, working_set); }
void bag_lookup_scale_unordered_map(benchmark::State& state) {
  lookup_unordered_map(state, working_set);
}
void bag_lookup_cold_ours(benchmark::State& state) { lookup_ours(state, state.range(0)); }
void bag_lookup_cold_unordered_map(benchmark::State& state) {
  lookup_unordered_map(state, state.range(0));
}

void name_counts(benchmark::internal::Benchmark* b) {
  b->Arg(1000)->Arg(quick() ? 10000 : 1000000)->Unit(benchmark::kMillisecond);
}
BENCHMARK(bag_lookup_scale_ours)->Name("bag_lookup_scale/ours")->Apply(name_counts);
BENCHMARK(bag_lookup_scale_unordered_map)
    ->Name("bag_lookup_scale/unordered_map")
    ->Apply(name_counts);
BENCHMARK(bag_lookup_cold_ours)->Name("bag_lookup_cold/ours")->Apply(name_counts);
BENCHMARK(bag_lookup_cold_unordered_map)
    ->Name("bag_lookup_cold/unordered_map")
    ->Apply(name_counts);

// A document of about `bytes` bytes of element-form text: child bags of ten text values.
variant_bag_t document_of(std::size_t bytes) {
  variant_bag_t root;
  std::size_t const children = std::max<std::size_t>(1, bytes / 420);
  for (std::size_t i = 0; i < children; ++i) {
    variant_bag_t& child = root.add_variant_bag(L"record", variant_bag_t());
    for (int j = 0; j < 10; ++j) {
      child.add((L"field_" + std::to_wstring(j)).c_str(),
                variant_t((L"value " + std::to_wstring(i * 10 + j)).c_str()));
    }
  }
  return root;
}

std::int64_t text_bytes(variant_t const& text) {
  return static_cast<std::int64_t>(std::wcslen(text.get<wchar_t const*>()));
}

// Both sizes save again and again into one value, as a program that saves a document of
// one size repeatedly does. The first save, which the timing leaves out, takes the
// memory of the text from the system: at 100 MB that is 500 MB of fresh pages that the
// kernel zeroes, a cost of the first call at that size and none of the save's MB/s
// (at 100 KB, the heap hands back warm memory every time).
void xml_save_scale_ours(benchmark::State& state) {
  variant_bag_t const bag = document_of(static_cast<std::size_t>(state.range(0)));
  variant_t text;
  if (quillon2::save_variant_bag_to_string(bag, &text) != 1) state.SkipWithError("save failed");
  for (auto _ : state) {
    if (quillon2::save_variant_bag_to_string(bag, &text) != 1) state.SkipWithError("save failed");
  }
  state.SetBytesProcessed(state.iterations() * text_bytes(text));
}

void xml_load_scale_ours(benchmark::State& state) {
  variant_t text;
  quillon2::save_variant_bag_to_string(document_of(static_cast<std::size_t>(state.range(0))), &text);
  for (auto _ : state) {
    variant_bag_t bag;
    if (quillon2::load_variant_bag_from_string(bag, text) != 1) state.SkipWithError("load failed");
  }
  state.SetBytesProcessed(state.iterations() * text_bytes(text));
}

// A save or load of 100 MB takes about half a second: with the default half second per
// figure, one pass made each figure, and a pass that met another process's burst of
// memory traffic swung the median by a third. Three seconds average several passes.
void document_sizes(benchmark::internal::Benchmark* b) {
  b->Arg(100 << 10)->Arg(quick() ? 1 << 20 : 100 << 20)->Unit(benchmark::kMillisecond);
  if (!quick()) b->MinTime(3.0);
}
BENCHMARK(xml_save_scale_ours)->Name("xml_save_scale/ours")->Apply(document_sizes);
BENCHMARK(xml_load_scale_ours)->Name("xml_load_scale/ours")->Apply(document_sizes);

}  // namespace
