// Evaluates arbitrary XPath expressions (UTF-8) over the mirror of one fixed bag: nested
// bags with repeated names, texts, hidden entries and names that are no XML names. Every
// node or property in a result must be one of the bag's own bags or values; atomic
// results leave both lists empty; a failed query has error 1 and nothing else. No input
// may crash, hang or leak.
//
// The one assertion that input can reach on purpose is "Unexpected!" (a query for the
// document node or a namespace node, which stand for nothing of the bag); any other
// report ends the run.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <set>
#include <string>

#include <quillon2/core/assert.hpp>
#include <quillon2/das/das_generic_xpath.hpp>
#include <quillon2/das/variant.hpp>
#include <quillon2/das/variant_bag.hpp>
#include <quillon2/headers/kesmet.hpp>

namespace {

using quillon2::variant_bag_t;
using quillon2::variant_t;

[[noreturn]] void broken(char const* what) {
  std::fprintf(stderr, "xpath_fuzzer: %s\n", what);
  std::abort();
}

void check_assertion(char const* condition, char const* file, unsigned line, char const*) {
  if (std::strcmp(condition, "Unexpected!") == 0) return;
  std::fprintf(stderr, "%s(%u): assertion failed: %s\n", file, line, condition);
  std::abort();
}

struct fixture_t {
  variant_bag_t bag;
  std::set<void const*> bags;
  std::set<void const*> values;
  quillon2::xpath_t<variant_bag_t, variant_t> xp;

  fixture_t() {
    bag.rename(L"root");
    bag.add<variant_t>(L"a", variant_t(1));
    bag.add<variant_t>(L"a", variant_t(2.5));
    bag.add<variant_t>(L"", variant_t(L"text & more"));
    bag.add<variant_t>(L"#hidden", variant_t(3));
    for (int i = 0; i < 3; ++i) {
      variant_bag_t& item = bag.add_variant_bag(L"item", variant_bag_t());
      item.add<variant_t>(L"id", variant_t(i));
      item.add<variant_t>(L"odd name", variant_t(L"x<y"));
      item.add_variant_bag(L"leaf", variant_bag_t()).add<variant_t>(L"", variant_t(L"z"));
    }
    bag.add_variant_bag(L"1bad", variant_bag_t()).add<variant_t>(L"b", variant_t(true));
    collect(bag);
    xp = quillon2::variant_bag_xpath(bag);
    xp.set_operation_limit(200000);
  }

  void collect(variant_bag_t const& node) {
    bags.insert(&node);
    for (auto v = node.begin<variant_t>(); !v.at_end(); v.next()) values.insert(&v.get_value());
    for (auto c = node.begin<variant_bag_t>(); !c.at_end(); c.next()) collect(c.get_value());
  }
};

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  unsetenv("QUILLON_ASSERT_ABORT");  // the hook decides which reports end the run
  quillon2::internal::set_assert_hook(&check_assertion);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  static fixture_t const fixture;
  std::wstring const expression =
      kesmet2::utf8_to_utf16(std::string(reinterpret_cast<char const*>(data), size));
  auto const result = fixture.xp.select(expression.c_str());
  for (auto const* node : result.get_nodes()) {
    if (fixture.bags.count(node) == 0) broken("a node that is no bag of the fixture");
  }
  for (auto const* value : result.get_properties()) {
    if (fixture.values.count(value) == 0) broken("a property that is no value of the fixture");
  }
  bool const atomic = result.get_value().get_type() != quillon2::vtNull;
  bool const listed = !result.get_nodes().empty() || !result.get_properties().empty();
  if (atomic && listed) broken("an atomic result with nodes");
  if (result.get_error() != 0 && (atomic || listed)) broken("a failed query with a result");
  return 0;
}
