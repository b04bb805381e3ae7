// quillon2 bag xpath: the nodes an expression selects, as location paths, or its value.
#include <string>

#include "common.hpp"

namespace q2cli {

namespace {

std::string value_text(quillon2::variant_t const& value) {
  quillon2::variant_t const text = quillon2::get_value_string(value);
  return text.get_type() == quillon2::vtWString ? utf8(text.get<wchar_t const*>()) : "";
}

}  // namespace

quillon2::variant_bag_t load_bag_for_query(std::string const& file, std::string const& from);

void add_bag_xpath_command(CLI::App* bag) {
  auto* sub = bag->add_subcommand(
      "xpath",
      "Evaluate an XPath expression over a bag (each bag an element, each value an "
      "attribute). Selected bags print as location paths, values as @name=value, and a "
      "number, string or boolean as itself.");
  static std::string file, expression, from;
  sub->add_option("FILE", file, "Bag file, or - for standard input")->required();
  sub->add_option("EXPR", expression, "XPath expression")->required();
  sub->add_option("--from", from, "Form of FILE: xml, bag.xml or json");
  on_run(sub, "bag xpath", [] {
    quillon2::variant_bag_t root = load_bag_for_query(file, from);
    auto const xp = quillon2::variant_bag_xpath(root);
    auto const result = xp.select(wide(expression).c_str());
    if (result.get_error() != 0) throw failure_t{file, "the expression \"" + expression + "\" can't be evaluated"};
    quillon2::sptr_t<quillon2::variant_bag_generic_tree_t> view(
        new quillon2::ref_counted_t<quillon2::variant_bag_generic_tree_t>());
    view->init(root);
    std::string text;
    for (quillon2::variant_bag_t* node : result.get_nodes()) {
      quillon2::sptr_t<quillon2::variant_bag_generic_tree_t::tree_t> found;
      if (node != &root) found = view->find(node);
      quillon2::variant_t const path = found ? found->get_xpath() : view->get_xpath();
      text += (path.get_type() == quillon2::vtWString ? utf8(path.get<wchar_t const*>()) : "?") + "\n";
    }
    for (quillon2::variant_t* value : result.get_properties()) text += value_text(*value) + "\n";
    if (result.get_nodes().empty() && result.get_properties().empty()) {
      quillon2::variant_t const& value = result.get_value();
      if (value.get_type() != quillon2::vtNull) text += value_text(value) + "\n";
    }
    out(text);
  });
}

}  // namespace q2cli
