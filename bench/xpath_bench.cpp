// XPath over a bag of 100,000 values (1,000 children of 100 values each), beside peers on
// the same document:
// - xpath_mirror: building the mirror of the bag (and freeing it) against building the
//   same libxml2 document with direct xmlNewDocNode/xmlNewProp calls from names and
//   texts held ready in UTF-8 (the limit for a mirror built on libxml2);
// - xpath_query/<n>: one query over a built mirror against bare xmlXPathEval over the
//   direct document (a context per query as well, results read once) and against
//   pugixml's XPath over the same XML. Queries: 0 named steps, 1 a predicate, 2 a
//   descendant scan, 3 count().
// Both libxml2 documents are numbered for document order (xmlXPathOrderDocElems), as
// the mirror does before its first query.
#include <cstdlib>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>
#include <libxml/tree.h>
#include <libxml/xpath.h>
#ifdef Q2_HAVE_PUGIXML
#include <pugixml.hpp>
#endif

#include <quillon2/das/das_generic_xpath.hpp>
#include <quillon2/das/variant.hpp>
#include <quillon2/das/variant_bag.hpp>
#include <quillon2/das/variant_bag_serialization.hpp>

namespace {

using quillon2::variant_bag_t;
using quillon2::variant_t;

std::string utf8_of(std::wstring const& wide) {
  std::string out;
  for (wchar_t c : wide) out += static_cast<char>(c);  // the bench's texts are ASCII
  return out;
}

struct corpus_t {
  variant_bag_t bag;
  std::vector<std::string> names;               // the value names, v0 ... v99
  std::vector<std::vector<std::string>> texts;  // each child's value texts
  xmlDocPtr direct = nullptr;
  quillon2::xpath_t<variant_bag_t, variant_t> mirror;
  std::string xml;

  corpus_t() {
    bool const quick = std::getenv("Q2_BENCH_QUICK") != nullptr;
    int const children = quick ? 10 : 1000;
    int const values = 100;
    bag.rename(L"root");
    for (int j = 0; j < values; ++j) names.push_back("v" + std::to_string(j));
    for (int i = 0; i < children; ++i) {
      variant_bag_t& child = bag.add_variant_bag(L"c", variant_bag_t());
      texts.emplace_back();
      for (int j = 0; j < values; ++j) {
        int const k = i * values + j;
        variant_t const value = j % 3 == 0   ? variant_t(i)
                                : j % 3 == 1 ? variant_t(k * 0.25)
                                             : variant_t((L"text " + std::to_wstring(k)).c_str());
        child.add<variant_t>(utf8_wide(names[j]).c_str(), value);
        texts.back().push_back(utf8_of(quillon2::get_value_string(value).get<wchar_t const*>()));
      }
    }
    // Both documents are built here, one after the other on the same heap, so that
    // neither is scattered over the blocks freed by the build benchmarks.
    direct = build_direct();
    xmlXPathOrderDocElems(direct);
    mirror = quillon2::variant_bag_xpath(bag);
    mirror.select(L"/root");  // numbers its elements too
    xmlChar* text = nullptr;
    int size = 0;
    xmlDocDumpMemory(direct, &text, &size);
    xml.assign(reinterpret_cast<char const*>(text), static_cast<std::size_t>(size));
    xmlFree(text);
  }

  static std::wstring utf8_wide(std::string const& s) { return std::wstring(s.begin(), s.end()); }

  xmlDocPtr build_direct() const {
    xmlDocPtr doc = xmlNewDoc(nullptr);
    xmlNodePtr root = xmlNewDocNode(doc, nullptr, BAD_CAST "root", nullptr);
    xmlAddChild(reinterpret_cast<xmlNodePtr>(doc), root);
    for (auto const& child_texts : texts) {
      xmlNodePtr child = xmlNewDocNode(doc, nullptr, BAD_CAST "c", nullptr);
      xmlAddChild(root, child);
      for (std::size_t j = 0; j < child_texts.size(); ++j) {
        xmlNewProp(child, BAD_CAST names[j].c_str(), BAD_CAST child_texts[j].c_str());
      }
    }
    return doc;
  }
};

corpus_t const& corpus() {
  static corpus_t const c;
  return c;
}

wchar_t const* const k_queries[] = {L"/root/c/@v7", L"/root/c[@v0 = 500]", L"//@v99",
                                    L"count(//c/@*)"};

void xpath_mirror_ours(benchmark::State& state) {
  corpus_t const& c = corpus();
  for (auto _ : state) {
    auto const xp = quillon2::variant_bag_xpath(c.bag);
    benchmark::DoNotOptimize(xp.get_worker().get());
  }
}
BENCHMARK(xpath_mirror_ours)->Name("xpath_mirror/ours")->Unit(benchmark::kMillisecond);

void xpath_mirror_libxml2_direct(benchmark::State& state) {
  corpus_t const& c = corpus();
  for (auto _ : state) {
    xmlDocPtr doc = c.build_direct();
    benchmark::DoNotOptimize(doc);
    xmlFreeDoc(doc);
  }
}
BENCHMARK(xpath_mirror_libxml2_direct)
    ->Name("xpath_mirror/libxml2_direct")
    ->Unit(benchmark::kMillisecond);

void xpath_query_ours(benchmark::State& state) {
  auto const& xp = corpus().mirror;
  wchar_t const* const query = k_queries[state.range(0)];
  for (auto _ : state) {
    auto const result = xp.select(query);
    benchmark::DoNotOptimize(result.get_nodes().size() + result.get_properties().size());
  }
}
BENCHMARK(xpath_query_ours)
    ->Name("xpath_query/ours")
    ->DenseRange(0, 3)
    ->Unit(benchmark::kMicrosecond);

void xpath_query_libxml2_bare(benchmark::State& state) {
  corpus_t const& c = corpus();
  std::string const query = utf8_of(k_queries[state.range(0)]);
  for (auto _ : state) {
    xmlXPathContextPtr context = xmlXPathNewContext(c.direct);
    xmlXPathObjectPtr result = xmlXPathEval(BAD_CAST query.c_str(), context);
    std::size_t seen = 0;
    if (result->type == XPATH_NODESET && result->nodesetval != nullptr) {
      for (int i = 0; i < result->nodesetval->nodeNr; ++i) {
        seen += result->nodesetval->nodeTab[i]->_private == nullptr;
      }
    } else {
      seen = static_cast<std::size_t>(result->floatval);
    }
    benchmark::DoNotOptimize(seen);
    xmlXPathFreeObject(result);
    xmlXPathFreeContext(context);
  }
}
BENCHMARK(xpath_query_libxml2_bare)
    ->Name("xpath_query/libxml2_bare")
    ->DenseRange(0, 3)
    ->Unit(benchmark::kMicrosecond);

#ifdef Q2_HAVE_PUGIXML
void xpath_query_pugixml(benchmark::State& state) {
  static pugi::xml_document const& doc = *[] {
    auto* d = new pugi::xml_document();
    d->load_buffer(corpus().xml.data(), corpus().xml.size());
    return d;
  }();
  std::wstring const wide = k_queries[state.range(0)];
  std::string const query(wide.begin(), wide.end());
  for (auto _ : state) {
    pugi::xpath_query const compiled(query.c_str());
    if (compiled.return_type() == pugi::xpath_type_node_set) {
      benchmark::DoNotOptimize(compiled.evaluate_node_set(doc).size());
    } else {
      benchmark::DoNotOptimize(compiled.evaluate_number(doc));
    }
  }
}
BENCHMARK(xpath_query_pugixml)
    ->Name("xpath_query/pugixml")
    ->DenseRange(0, 3)
    ->Unit(benchmark::kMicrosecond);
#endif

}  // namespace
