// variant_t against std::variant<int64_t, double, std::wstring, std::vector<uint8_t>>:
// copying a string value (one atomic increment against an allocation and a copy) and
// comparing mixed values.
#include <cstdint>
#include <cstdlib>
#include <string>
#include <variant>
#include <vector>

#include <benchmark/benchmark.h>

#include <quillon2/das/variant.hpp>

namespace {

using quillon2::variant_t;
using std_variant_t = std::variant<std::int64_t, double, std::wstring, std::vector<std::uint8_t>>;

std::wstring const text = L"a string value of some forty characters..";

void variant_copy_string_ours(benchmark::State& state) {
  variant_t const source(text.c_str());
  for (auto _ : state) {
    variant_t copy(source);
    benchmark::DoNotOptimize(&copy);
  }
}
BENCHMARK(variant_copy_string_ours)->Name("variant_copy_string/ours");

void variant_copy_string_std(benchmark::State& state) {
  std_variant_t const source(text);
  for (auto _ : state) {
    std_variant_t copy(source);
    benchmark::DoNotOptimize(&copy);
  }
}
BENCHMARK(variant_copy_string_std)->Name("variant_copy_string/std_variant");

// The same mixture of numbers, short texts and small blobs for both, built twice so
// that equal texts are in different blocks.
std::size_t mixed_count() { return std::getenv("Q2_BENCH_QUICK") ? 64 : 4096; }

std::vector<variant_t> mixed_ours() {
  std::vector<variant_t> out;
  for (std::size_t i = 0; i < mixed_count(); ++i) {
    switch (i % 4) {
      case 0:
        out.emplace_back(static_cast<std::int64_t>(i));
        break;
      case 1:
        out.emplace_back(static_cast<double>(i) * 0.5);
        break;
      case 2:
        out.emplace_back((L"name " + std::to_wstring(i)).c_str());
        break;
      default: {
        std::vector<std::uint8_t> bytes(16, static_cast<std::uint8_t>(i));
        out.emplace_back(static_cast<void const*>(bytes.data()), bytes.size());
      }
    }
  }
  return out;
}

std::vector<std_variant_t> mixed_std() {
  std::vector<std_variant_t> out;
  for (std::size_t i = 0; i < mixed_count(); ++i) {
    switch (i % 4) {
      case 0:
        out.emplace_back(static_cast<std::int64_t>(i));
        break;
      case 1:
        out.emplace_back(static_cast<double>(i) * 0.5);
        break;
      case 2:
        out.emplace_back(L"name " + std::to_wstring(i));
        break;
      default:
        out.emplace_back(std::vector<std::uint8_t>(16, static_cast<std::uint8_t>(i)));
    }
  }
  return out;
}

void variant_compare_ours(benchmark::State& state) {
  auto const a = mixed_ours();
  auto const b = mixed_ours();
  for (auto _ : state) {
    std::size_t equal = 0;
    for (std::size_t i = 0; i < a.size(); ++i) equal += a[i] == b[i];
    benchmark::DoNotOptimize(equal);
  }
}
BENCHMARK(variant_compare_ours)->Name("variant_compare/ours");

void variant_compare_std(benchmark::State& state) {
  auto const a = mixed_std();
  auto const b = mixed_std();
  for (auto _ : state) {
    std::size_t equal = 0;
    for (std::size_t i = 0; i < a.size(); ++i) equal += a[i] == b[i];
    benchmark::DoNotOptimize(equal);
  }
}
BENCHMARK(variant_compare_std)->Name("variant_compare/std_variant");

}  // namespace
