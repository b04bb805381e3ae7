// Bags against boost::property_tree::wptree, the closest peer (ordered, repeated keys,
// lookup by name): building 100,000 values spread over 1,000 child bags, looking every
// two-level name up, iterating, copying and comparing.
#include <cstdlib>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>
#include <boost/property_tree/ptree.hpp>

#include <quillon2/das/path_accessor.hpp>
#include <quillon2/das/variant_bag.hpp>

namespace {

using boost::property_tree::wptree;
using quillon2::path_accessor_t;
using quillon2::variant_bag_t;
using quillon2::variant_t;

struct bag_input_t {
  std::vector<std::wstring> children;
  std::vector<std::wstring> values;
  std::vector<std::wstring> texts;
  std::vector<std::wstring> paths;

  bag_input_t() {
    bool const quick = std::getenv("Q2_BENCH_QUICK") != nullptr;
    std::size_t const child_count = quick ? 10 : 1000;
    std::size_t const value_count = quick ? 10 : 100;
    for (std::size_t i = 0; i < child_count; ++i)
      children.push_back(L"child_" + std::to_wstring(i));
    for (std::size_t j = 0; j < value_count; ++j) values.push_back(L"value_" + std::to_wstring(j));
    for (std::size_t i = 0; i < child_count; ++i) {
      for (std::size_t j = 0; j < value_count; ++j) {
        texts.push_back(L"text of value " + std::to_wstring(i * value_count + j));
        paths.push_back(children[i] + L"." + values[j]);
      }
    }
  }
};

bag_input_t const& input() {
  static bag_input_t const in;
  return in;
}

variant_bag_t build_ours() {
  bag_input_t const& in = input();
  variant_bag_t root;
  std::size_t k = 0;
  for (auto const& child_name : in.children) {
    variant_bag_t& child = root.add_variant_bag(child_name.c_str(), variant_bag_t());
    for (auto const& value_name : in.values)
      child.add(value_name.c_str(), variant_t(in.texts[k++].c_str()));
  }
  return root;
}

wptree build_ptree() {
  bag_input_t const& in = input();
  wptree root;
  std::size_t k = 0;
  for (auto const& child_name : in.children) {
    wptree& child = root.push_back(wptree::value_type(child_name, wptree()))->second;
    for (auto const& value_name : in.values)
      child.push_back(wptree::value_type(value_name, wptree(in.texts[k++])));
  }
  return root;
}

void bag_build_ours(benchmark::State& state) {
  for (auto _ : state) {
    variant_bag_t root = build_ours();
    benchmark::DoNotOptimize(&root);
  }
  state.SetItemsProcessed(state.iterations() * input().texts.size());
}
BENCHMARK(bag_build_ours)->Name("bag_build/ours")->Unit(benchmark::kMillisecond);

void bag_build_ptree(benchmark::State& state) {
  for (auto _ : state) {
    wptree root = build_ptree();
    benchmark::DoNotOptimize(&root);
  }
  state.SetItemsProcessed(state.iterations() * input().texts.size());
}
BENCHMARK(bag_build_ptree)->Name("bag_build/ptree")->Unit(benchmark::kMillisecond);

void bag_lookup_ours(benchmark::State& state) {
  variant_bag_t root = build_ours();
  path_accessor_t const path(root);
  variant_t const missing;
  for (auto _ : state) {
    for (auto const& p : input().paths) {
      variant_t const v = path.get_variant(p.c_str(), missing);
      benchmark::DoNotOptimize(v.get_type());
    }
  }
  state.SetItemsProcessed(state.iterations() * input().paths.size());
}
BENCHMARK(bag_lookup_ours)->Name("bag_lookup/ours")->Unit(benchmark::kMillisecond);

void bag_lookup_ptree(benchmark::State& state) {
  wptree const root = build_ptree();
  for (auto _ : state) {
    for (auto const& p : input().paths) {
      wptree const& v = root.get_child(wptree::path_type(p, L'.'));
      benchmark::DoNotOptimize(v.data().size());
    }
  }
  state.SetItemsProcessed(state.iterations() * input().paths.size());
}
BENCHMARK(bag_lookup_ptree)->Name("bag_lookup/ptree")->Unit(benchmark::kMillisecond);

void bag_iterate_ours(benchmark::State& state) {
  variant_bag_t const root = build_ours();
  for (auto _ : state) {
    std::size_t n = 0;
    for (auto c = root.begin<variant_bag_t>(); !c.at_end(); c.next()) {
      n += static_cast<std::size_t>(c.get_name()[0]);
      for (auto v = c.get_value().begin<variant_t>(); !v.at_end(); v.next())
        n += static_cast<std::size_t>(v.get_name()[0]) + v.get_value().get_type();
    }
    benchmark::DoNotOptimize(n);
  }
}
BENCHMARK(bag_iterate_ours)->Name("bag_iterate/ours")->Unit(benchmark::kMicrosecond);

void bag_iterate_ptree(benchmark::State& state) {
  wptree const root = build_ptree();
  for (auto _ : state) {
    std::size_t n = 0;
    for (auto const& c : root) {
      n += static_cast<std::size_t>(c.first[0]);
      for (auto const& v : c.second)
        n += static_cast<std::size_t>(v.first[0]) + v.second.data().size();
    }
    benchmark::DoNotOptimize(n);
  }
}
BENCHMARK(bag_iterate_ptree)->Name("bag_iterate/ptree")->Unit(benchmark::kMicrosecond);

void bag_copy_ours(benchmark::State& state) {
  variant_bag_t const root = build_ours();
  for (auto _ : state) {
    variant_bag_t copy(root);
    benchmark::DoNotOptimize(&copy);
  }
}
BENCHMARK(bag_copy_ours)->Name("bag_copy/ours")->Unit(benchmark::kMillisecond);

void bag_copy_ptree(benchmark::State& state) {
  wptree const root = build_ptree();
  for (auto _ : state) {
    wptree copy(root);
    benchmark::DoNotOptimize(&copy);
  }
}
BENCHMARK(bag_copy_ptree)->Name("bag_copy/ptree")->Unit(benchmark::kMillisecond);

// Two bags built apart, so that no text block is shared between them.
void bag_compare_ours(benchmark::State& state) {
  variant_bag_t const a = build_ours();
  variant_bag_t const b = build_ours();
  for (auto _ : state) benchmark::DoNotOptimize(a == b);
}
BENCHMARK(bag_compare_ours)->Name("bag_compare/ours")->Unit(benchmark::kMicrosecond);

void bag_compare_ptree(benchmark::State& state) {
  wptree const a = build_ptree();
  wptree const b = build_ptree();
  for (auto _ : state) benchmark::DoNotOptimize(a == b);
}
BENCHMARK(bag_compare_ptree)->Name("bag_compare/ptree")->Unit(benchmark::kMicrosecond);

}  // namespace
