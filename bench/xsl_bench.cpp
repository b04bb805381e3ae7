// XSL transformation of a document of about 6 MB (about 100 KB with Q2_BENCH_QUICK set),
// ours beside bare libxslt doing the same work: parse the text, apply the compiled
// stylesheet, save the result to memory. Two stylesheets: the identity transform, and a
// grouping by key() (the first record of each group, then the group's members).
//
// Families: xsl_identity, xsl_grouping (no visitor), and xsl_identity_visited,
// xsl_grouping_visited (ours with a visitor that sees every instruction).
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

#include <benchmark/benchmark.h>
#include <libxml/parser.h>
#include <libxml/tree.h>
#include <libxslt/transform.h>
#include <libxslt/xslt.h>
#include <libxslt/xsltInternals.h>
#include <libxslt/xsltutils.h>

#include <quillon2/das/das_transformation.hpp>

namespace {

constexpr char const* k_identity = R"~(<xsl:stylesheet version="1.0" xmlns:xsl="http://www.w3.org/1999/XSL/Transform">
  <xsl:template match="@*|node()"><xsl:copy><xsl:apply-templates select="@*|node()"/></xsl:copy></xsl:template>
</xsl:stylesheet>)~";

constexpr char const* k_grouping = R"~(<xsl:stylesheet version="1.0" xmlns:xsl="http://www.w3.org/1999/XSL/Transform">
  <xsl:key name="by-group" match="r" use="@group"/>
  <xsl:template match="/"><groups>
    <xsl:for-each select="records/r[generate-id() = generate-id(key('by-group', @group)[1])]">
      <g name="{@group}" count="{count(key('by-group', @group))}" sum="{sum(key('by-group', @group)/v)}">
        <xsl:for-each select="key('by-group', @group)"><m id="{@id}"><xsl:value-of select="name"/></m></xsl:for-each>
      </g>
    </xsl:for-each></groups></xsl:template>
</xsl:stylesheet>)~";

std::string const& document() {
  static std::string const text = [] {
    std::size_t const target = std::getenv("Q2_BENCH_QUICK") != nullptr ? 100000 : 6000000;
    std::string xml = "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n<records>\n";
    std::uint64_t seed = 7;
    for (int i = 0; xml.size() < target; ++i) {
      seed = seed * 6364136223846793005ull + 1442695040888963407ull;
      unsigned const group = static_cast<unsigned>(seed >> 33) % 500;
      xml += "  <r id=\"r" + std::to_string(i) + "\" group=\"g" + std::to_string(group) +
             "\"><name>record number " + std::to_string(i) + " &amp; co</name><v>" +
             std::to_string((seed >> 40) % 1000) + "</v><note kind=\"plain\">text " +
             std::to_string(seed % 97) + "</note></r>\n";
    }
    return xml + "</records>\n";
  }();
  return text;
}

class quiet_visitor_t : public quillon2::xsl_visitor_t {
 public:
  void on_start(int, int) override {}
  void on_message(wchar_t const*) override {}
  bool on_progress(int source_line, int) override {
    m_last = source_line;
    return true;
  }
  void on_finish(bool) override {}
  int m_last = 0;
};

void set_bytes(benchmark::State& state) {
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) *
                          static_cast<std::int64_t>(document().size()));
}

void run_ours(benchmark::State& state, char const* stylesheet, bool visited) {
  auto xsl = quillon2::xsl_t::create();
  quiet_visitor_t visitor;
  if (visited) xsl->set_visitor(&visitor);
  if (!xsl->set_stylesheet(stylesheet)) state.SkipWithError("stylesheet refused");
  std::string const& text = document();
  for (auto _ : state) {
    std::string result;
    if (!xsl->set_xml(text.c_str()) || xsl->transform(result) != 1) {
      state.SkipWithError("transform failed");
      break;
    }
    benchmark::DoNotOptimize(result);
  }
  set_bytes(state);
}

void run_bare(benchmark::State& state, char const* stylesheet) {
  xmlDocPtr sheet_doc = xmlReadMemory(stylesheet, static_cast<int>(std::strlen(stylesheet)),
                                      nullptr, "utf-8", 0);
  xsltStylesheetPtr style = sheet_doc != nullptr ? xsltParseStylesheetDoc(sheet_doc) : nullptr;
  if (style == nullptr) {
    state.SkipWithError("stylesheet refused");
    return;
  }
  std::string const& text = document();
  for (auto _ : state) {
    xmlDocPtr doc = xmlReadMemory(text.data(), static_cast<int>(text.size()), nullptr, "utf-8", 0);
    xmlDocPtr out = doc != nullptr ? xsltApplyStylesheet(style, doc, nullptr) : nullptr;
    xmlChar* bytes = nullptr;
    int size = 0;
    if (out == nullptr || xsltSaveResultToString(&bytes, &size, out, style) != 0) {
      state.SkipWithError("transform failed");
    }
    std::string result(reinterpret_cast<char const*>(bytes), static_cast<std::size_t>(size));
    benchmark::DoNotOptimize(result);
    xmlFree(bytes);
    xmlFreeDoc(out);
    xmlFreeDoc(doc);
  }
  xsltFreeStylesheet(style);
  set_bytes(state);
}

void BM_identity_ours(benchmark::State& state) { run_ours(state, k_identity, false); }
void BM_identity_bare(benchmark::State& state) { run_bare(state, k_identity); }
void BM_grouping_ours(benchmark::State& state) { run_ours(state, k_grouping, false); }
void BM_grouping_bare(benchmark::State& state) { run_bare(state, k_grouping); }
void BM_identity_visited_ours(benchmark::State& state) { run_ours(state, k_identity, true); }
void BM_grouping_visited_ours(benchmark::State& state) { run_ours(state, k_grouping, true); }

}  // namespace

BENCHMARK(BM_identity_ours)->Name("xsl_identity/ours")->Unit(benchmark::kMillisecond);
BENCHMARK(BM_identity_bare)->Name("xsl_identity/libxslt")->Unit(benchmark::kMillisecond);
BENCHMARK(BM_grouping_ours)->Name("xsl_grouping/ours")->Unit(benchmark::kMillisecond);
BENCHMARK(BM_grouping_bare)->Name("xsl_grouping/libxslt")->Unit(benchmark::kMillisecond);
BENCHMARK(BM_identity_visited_ours)->Name("xsl_identity_visited/ours")->Unit(benchmark::kMillisecond);
BENCHMARK(BM_identity_bare)->Name("xsl_identity_visited/libxslt")->Unit(benchmark::kMillisecond);
BENCHMARK(BM_grouping_visited_ours)->Name("xsl_grouping_visited/ours")->Unit(benchmark::kMillisecond);
BENCHMARK(BM_grouping_bare)->Name("xsl_grouping_visited/libxslt")->Unit(benchmark::kMillisecond);
