// The text layer against its peers: UTF-8 <-> wide conversion (iconv, std::codecvt),
// replace_all (Boost.Algorithm), case mapping (std::ctype of a UTF-8 locale) and
// integer parsing (strtol).
#include <iconv.h>

#include <cstdlib>
#include <cstring>
#include <locale>
#include <string>

#include <benchmark/benchmark.h>
#include <boost/algorithm/string/replace.hpp>

#include <quillon2/headers/kesmet.hpp>

namespace {

std::size_t text_size() { return std::getenv("Q2_BENCH_QUICK") ? 256 : 16384; }

// Mostly ASCII with accented letters, CJK and an emoji: typical names and values.
std::wstring const& wide_text() {
  static std::wstring const text = [] {
    std::wstring piece = L"Stra\u00DFe M\u00FCller, file_name_01.xml \u6771\u4EAC \U0001F600 ";
    std::wstring out;
    while (out.size() < text_size()) out += piece;
    return out;
  }();
  return text;
}

std::string const& utf8_text() {
  static std::string const text = kesmet2::utf16_to_utf8(wide_text());
  return text;
}

std::string iconv_run(iconv_t cd, char const* in, std::size_t n, std::size_t out_size) {
  std::string out(out_size, '\0');
  char* src = const_cast<char*>(in);
  char* dst = out.data();
  std::size_t room = out.size();
  iconv(cd, &src, &n, &dst, &room);
  out.resize(out.size() - room);
  return out;
}

void utf8_to_wide_ours(benchmark::State& state) {
  for (auto _ : state) benchmark::DoNotOptimize(kesmet2::utf8_to_utf16(utf8_text()));
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * utf8_text().size()));
}

void utf8_to_wide_iconv(benchmark::State& state) {
  iconv_t cd = iconv_open("WCHAR_T", "UTF-8");
  for (auto _ : state) {
    std::string bytes =
        iconv_run(cd, utf8_text().data(), utf8_text().size(), utf8_text().size() * sizeof(wchar_t));
    std::wstring out(reinterpret_cast<wchar_t const*>(bytes.data()),
                     bytes.size() / sizeof(wchar_t));
    benchmark::DoNotOptimize(out);
  }
  iconv_close(cd);
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * utf8_text().size()));
}

void utf8_to_wide_codecvt(benchmark::State& state) {
  using facet_t = std::codecvt<wchar_t, char, std::mbstate_t>;
  std::locale const utf8("C.UTF-8");
  auto const& facet = std::use_facet<facet_t>(utf8);
  for (auto _ : state) {
    std::wstring out(utf8_text().size(), L'\0');
    std::mbstate_t mb{};
    char const* next_in = nullptr;
    wchar_t* next_out = nullptr;
    facet.in(mb, utf8_text().data(), utf8_text().data() + utf8_text().size(), next_in, out.data(),
             out.data() + out.size(), next_out);
    out.resize(static_cast<std::size_t>(next_out - out.data()));
    benchmark::DoNotOptimize(out);
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * utf8_text().size()));
}

void wide_to_utf8_ours(benchmark::State& state) {
  for (auto _ : state) benchmark::DoNotOptimize(kesmet2::utf16_to_utf8(wide_text()));
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * utf8_text().size()));
}

void wide_to_utf8_iconv(benchmark::State& state) {
  iconv_t cd = iconv_open("UTF-8", "WCHAR_T");
  for (auto _ : state) {
    benchmark::DoNotOptimize(iconv_run(cd, reinterpret_cast<char const*>(wide_text().data()),
                                       wide_text().size() * sizeof(wchar_t),
                                       wide_text().size() * 4));
  }
  iconv_close(cd);
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * utf8_text().size()));
}

void wide_to_utf8_codecvt(benchmark::State& state) {
  using facet_t = std::codecvt<wchar_t, char, std::mbstate_t>;
  std::locale const utf8("C.UTF-8");
  auto const& facet = std::use_facet<facet_t>(utf8);
  for (auto _ : state) {
    std::string out(wide_text().size() * 4, '\0');
    std::mbstate_t mb{};
    wchar_t const* next_in = nullptr;
    char* next_out = nullptr;
    facet.out(mb, wide_text().data(), wide_text().data() + wide_text().size(), next_in, out.data(),
              out.data() + out.size(), next_out);
    out.resize(static_cast<std::size_t>(next_out - out.data()));
    benchmark::DoNotOptimize(out);
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * utf8_text().size()));
}

void replace_all_ours(benchmark::State& state) {
  for (auto _ : state) {
    std::string text = utf8_text();
    benchmark::DoNotOptimize(kesmet2::replace_all(text, "M\xC3\xBCller", "Mueller"));
    benchmark::DoNotOptimize(kesmet2::replace_all(text, "xml", "json"));
  }
}

void replace_all_boost(benchmark::State& state) {
  for (auto _ : state) {
    std::string text = utf8_text();
    boost::algorithm::replace_all(text, "M\xC3\xBCller", "Mueller");
    boost::algorithm::replace_all(text, "xml", "json");
    benchmark::DoNotOptimize(text);
  }
}

void to_lower_ours(benchmark::State& state) {
  for (auto _ : state) benchmark::DoNotOptimize(kesmet2::to_lower(wide_text()));
}

void to_lower_ctype(benchmark::State& state) {
  std::locale const utf8("C.UTF-8");
  auto const& ctype = std::use_facet<std::ctype<wchar_t>>(utf8);
  for (auto _ : state) {
    std::wstring text = wide_text();
    ctype.tolower(text.data(), text.data() + text.size());
    benchmark::DoNotOptimize(text);
  }
}

char const* const numbers[] = {"0", "42", "-17", "123456", "2147483647", "-99999", "7", "65535"};

void parse_int_ours(benchmark::State& state) {
  for (auto _ : state)
    for (char const* n : numbers)
      benchmark::DoNotOptimize(kesmet2::generic::convert::str_to_int32(n, std::strlen(n)));
}

void parse_int_strtol(benchmark::State& state) {
  for (auto _ : state)
    for (char const* n : numbers) benchmark::DoNotOptimize(std::strtol(n, nullptr, 10));
}

}  // namespace

BENCHMARK(utf8_to_wide_ours)->Name("utf8_to_wide/ours");
BENCHMARK(utf8_to_wide_iconv)->Name("utf8_to_wide/iconv");
BENCHMARK(utf8_to_wide_codecvt)->Name("utf8_to_wide/codecvt");
BENCHMARK(wide_to_utf8_ours)->Name("wide_to_utf8/ours");
BENCHMARK(wide_to_utf8_iconv)->Name("wide_to_utf8/iconv");
BENCHMARK(wide_to_utf8_codecvt)->Name("wide_to_utf8/codecvt");
BENCHMARK(replace_all_ours)->Name("replace_all/ours");
BENCHMARK(replace_all_boost)->Name("replace_all/boost");
BENCHMARK(to_lower_ours)->Name("to_lower/ours");
BENCHMARK(to_lower_ctype)->Name("to_lower/ctype");
BENCHMARK(parse_int_ours)->Name("parse_int/ours");
BENCHMARK(parse_int_strtol)->Name("parse_int/strtol");
