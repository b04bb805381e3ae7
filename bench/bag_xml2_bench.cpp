// Saving and loading a bag in the attribute form, and reading the form into a visitor
// without building a bag, beside peers that do the same work on the same text:
// - libxml2_writer: libxml2's text writer printing the same tree of elements, attributes
//   and texts, held ready in plain strings: the limit for a writer built on it;
// - libxml2_sax2: a bare SAX2 parse of the same text with handlers that do nothing: the
//   limit for a reader built on it;
// - boost::property_tree (write_xml/read_xml) and pugixml (print/parse) on the same text.
//
// The bag has the shape of the element-form benchmark: many small values of every kind,
// nested children, and now and then a large text and a blob; about 10 MB of XML in the
// attribute form (about 100 KB with Q2_BENCH_QUICK set). The blobs are written empty in
// this form, so the text is mostly values and elements.
//
// The loads are timed up to the finished bag or tree; destroying it afterwards is left
// out of the time, for ours and the property tree alike.
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>
#include <boost/property_tree/ptree.hpp>
#include <boost/property_tree/xml_parser.hpp>
#include <libxml/parser.h>
#include <libxml/tree.h>
#include <libxml/xmlwriter.h>

#include "bench_document.hpp"

#include <quillon2/das/variant.hpp>
#include <quillon2/das/variant_bag.hpp>
#include <quillon2/das/variant_bag_serialization2.hpp>
#include <quillon2/das/variant_bag_visitor.hpp>

namespace {

using quillon2::variant_bag_t;
using quillon2::variant_t;

// An element as the bare writer gets it: qualified names, unescaped UTF-8 texts.
struct plain_tag_t {
  std::string name;
  std::vector<std::pair<std::string, std::string>> attributes;
  std::string text;
  std::vector<plain_tag_t> children;
};

struct corpus_t {
  variant_bag_t bag;
  std::string utf8;  // the attribute form of the bag
  plain_tag_t tree;  // the same document as a plain tree
};


std::string node_text(xmlNode const* node) {
  std::string text;
  for (xmlNode const* child = node->children; child != nullptr; child = child->next) {
    if (child->type == XML_TEXT_NODE && child->content != nullptr) {
      text += reinterpret_cast<char const*>(child->content);
    }
  }
  std::size_t const begin = text.find_first_not_of(" \t\r\n");
  if (begin == std::string::npos) return std::string();
  return text.substr(begin, text.find_last_not_of(" \t\r\n") + 1 - begin);
}

std::string qualified(xmlNs const* ns, xmlChar const* name) {
  std::string q;
  if (ns != nullptr && ns->prefix != nullptr) {
    q = reinterpret_cast<char const*>(ns->prefix);
    q += ':';
  }
  return q + reinterpret_cast<char const*>(name);
}

plain_tag_t plain_tree(xmlNode const* node) {
  plain_tag_t tag;
  tag.name = qualified(node->ns, node->name);
  if (node->parent != nullptr && node->parent->type == XML_DOCUMENT_NODE) {
    for (xmlNs const* ns = node->nsDef; ns != nullptr; ns = ns->next) {
      tag.attributes.emplace_back(std::string("xmlns:") + reinterpret_cast<char const*>(ns->prefix),
                                  reinterpret_cast<char const*>(ns->href));
    }
  }
  for (xmlAttr const* a = node->properties; a != nullptr; a = a->next) {
    xmlChar* value = xmlNodeGetContent(reinterpret_cast<xmlNode const*>(a));
    tag.attributes.emplace_back(qualified(a->ns, a->name), reinterpret_cast<char const*>(value));
    xmlFree(value);
  }
  tag.text = node_text(node);
  for (xmlNode const* child = node->children; child != nullptr; child = child->next) {
    if (child->type == XML_ELEMENT_NODE) tag.children.push_back(plain_tree(child));
  }
  return tag;
}

corpus_t const& corpus() {
  static std::unique_ptr<corpus_t> const data = [] {
    auto c = std::make_unique<corpus_t>();
    c->bag = q2_bench::make_record_document(q2_bench::document_bytes(), 0);
    quillon2::save_variant_bag_to_string2(c->bag, c->utf8, L"project");
    xmlDocPtr doc = xmlReadMemory(c->utf8.data(), static_cast<int>(c->utf8.size()), nullptr,
                                  nullptr, XML_PARSE_HUGE);
    c->tree = plain_tree(xmlDocGetRootElement(doc));
    xmlFreeDoc(doc);
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
    std::string text;
    if (quillon2::save_variant_bag_to_string2(c.bag, text, L"project") != 1) {
      state.SkipWithError("save failed");
    }
    benchmark::DoNotOptimize(text);
  }
  set_bytes(state);
}

xmlChar const* x(char const* s) { return reinterpret_cast<xmlChar const*>(s); }

void write_plain(xmlTextWriterPtr writer, plain_tag_t const& tag) {
  xmlTextWriterStartElement(writer, x(tag.name.c_str()));
  for (auto const& a : tag.attributes) {
    xmlTextWriterWriteAttribute(writer, x(a.first.c_str()), x(a.second.c_str()));
  }
  if (!tag.text.empty()) xmlTextWriterWriteString(writer, x(tag.text.c_str()));
  for (plain_tag_t const& child : tag.children) write_plain(writer, child);
  xmlTextWriterEndElement(writer);
}

void BM_save_libxml2_writer(benchmark::State& state) {
  corpus_t const& c = corpus();
  for (auto _ : state) {
    std::string text;
    auto const append = [](void* context, char const* data, int size) {
      static_cast<std::string*>(context)->append(data, static_cast<std::size_t>(size));
      return size;
    };
    xmlOutputBufferPtr output = xmlOutputBufferCreateIO(append, nullptr, &text, nullptr);
    xmlTextWriterPtr writer = xmlNewTextWriter(output);
    xmlTextWriterSetIndent(writer, 1);
    xmlTextWriterStartDocument(writer, nullptr, nullptr, nullptr);
    write_plain(writer, c.tree);
    xmlTextWriterEndDocument(writer);
    xmlFreeTextWriter(writer);
    benchmark::DoNotOptimize(text);
  }
  set_bytes(state);
}

void BM_save_ptree(benchmark::State& state) {
  q2_bench::save_with_ptree(state, corpus().utf8);
  set_bytes(state);
}

// ---------------------------------------------------------------------------------------
// Load and visit

void BM_load_ours(benchmark::State& state) {
  corpus_t const& c = corpus();
  for (auto _ : state) {
    auto bag = std::make_unique<variant_bag_t>();
    if (quillon2::load_variant_bag_from_string2(*bag, c.utf8, L"project") != 1) {
      state.SkipWithError("load failed");
    }
    benchmark::DoNotOptimize(bag);
    state.PauseTiming();  // a load ends with the bag made; its end is not the load's
    bag.reset();
    state.ResumeTiming();
  }
  set_bytes(state);
}

// Counts what it sees and adds up the integers: a client that reads a document without
// building a bag.
class counting_visitor_t : public quillon2::variant_bag_visitor_t {
 public:
  bool on_start_variant_bag(char const*) override {
    ++bags;
    return true;
  }
  bool on_end_variant_bag() override { return true; }
  bool on_start_pointer(char const*, char const*, char const*) override { return true; }
  bool on_end_pointer() override { return true; }
  bool on_variant(char const*, variant_t const& value) override {
    ++values;
    if (value.get_type() == quillon2::vtSInt) sum += value.get<quillon2::s32_t>();
    return true;
  }
  std::uint64_t bags = 0;
  std::uint64_t values = 0;
  std::int64_t sum = 0;
};

void BM_visit_ours(benchmark::State& state) {
  corpus_t const& c = corpus();
  quillon2::sptr_t<counting_visitor_t> visitor(
      new quillon2::ref_counted_t<counting_visitor_t, quillon2::mt_ref_count_impl_t>());
  for (auto _ : state) {
    if (quillon2::read_xml_to_visitor(c.utf8.c_str(), visitor.get(), "project") != 1) {
      state.SkipWithError("read failed");
    }
  }
  benchmark::DoNotOptimize(visitor->sum);
  set_bytes(state);
}

void ignore_start(void*, xmlChar const*, xmlChar const*, xmlChar const*, int, xmlChar const**, int,
                  int, xmlChar const**) {}
void ignore_end(void*, xmlChar const*, xmlChar const*, xmlChar const*) {}
void ignore_characters(void*, xmlChar const*, int) {}

void BM_sax2_bare(benchmark::State& state) {
  corpus_t const& c = corpus();
  xmlSAXHandler handler{};
  handler.initialized = XML_SAX2_MAGIC;
  handler.startElementNs = ignore_start;
  handler.endElementNs = ignore_end;
  handler.characters = ignore_characters;
  for (auto _ : state) {
    if (xmlSAXUserParseMemory(&handler, nullptr, c.utf8.data(), static_cast<int>(c.utf8.size())) !=
        0) {
      state.SkipWithError("parse failed");
    }
  }
  set_bytes(state);
}

void BM_load_ptree(benchmark::State& state) {
  corpus_t const& c = corpus();
  for (auto _ : state) {
    std::istringstream in(c.utf8);
    auto tree = std::make_unique<boost::property_tree::ptree>();
    boost::property_tree::read_xml(in, *tree);
    benchmark::DoNotOptimize(tree);
    state.PauseTiming();
    tree.reset();
    state.ResumeTiming();
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

BENCHMARK(BM_save_pugixml)->Name("bag_xml2_save/pugixml")->Unit(benchmark::kMillisecond);
BENCHMARK(BM_load_pugixml)->Name("bag_xml2_load/pugixml")->Unit(benchmark::kMillisecond);
#endif

BENCHMARK(BM_save_ours)->Name("bag_xml2_save/ours")->Unit(benchmark::kMillisecond);
BENCHMARK(BM_save_libxml2_writer)
    ->Name("bag_xml2_save/libxml2_writer")
    ->Unit(benchmark::kMillisecond);
BENCHMARK(BM_save_ptree)->Name("bag_xml2_save/ptree")->Unit(benchmark::kMillisecond);
BENCHMARK(BM_load_ours)->Name("bag_xml2_load/ours")->Unit(benchmark::kMillisecond);
BENCHMARK(BM_sax2_bare)->Name("bag_xml2_load/libxml2_sax2")->Unit(benchmark::kMillisecond);
BENCHMARK(BM_load_ptree)->Name("bag_xml2_load/ptree")->Unit(benchmark::kMillisecond);
BENCHMARK(BM_visit_ours)->Name("bag_xml2_visit/ours")->Unit(benchmark::kMillisecond);
BENCHMARK(BM_sax2_bare)->Name("bag_xml2_visit/libxml2_sax2")->Unit(benchmark::kMillisecond);

}  // namespace
