// Helpers of the XPath tests: the text of a value, and tree views of a bag held by the
// library's own pointer.
#pragma once

#include <string>

#include <quillon2/das/das_generic_xpath.hpp>
#include <quillon2/das/variant.hpp>
#include <quillon2/das/variant_bag.hpp>

namespace q2test {

using tree_t = quillon2::generic_tree_t<quillon2::variant_bag_t, quillon2::variant_t>;
using const_tree_t =
    quillon2::generic_tree_t<quillon2::variant_bag_t const, quillon2::variant_t const>;

inline std::wstring text(quillon2::variant_t const& value) {
  return value.can_get<wchar_t const*>() ? value.get<wchar_t const*>() : L"<not text>";
}

inline quillon2::sptr_t<tree_t> view_of(quillon2::variant_bag_t& bag) {
  auto* view = new quillon2::ref_counted_t<quillon2::variant_bag_generic_tree_t>();
  view->init(bag);
  return quillon2::sptr_t<tree_t>(view);
}

inline quillon2::sptr_t<const_tree_t> const_view_of(quillon2::variant_bag_t const& bag) {
  auto* view = new quillon2::ref_counted_t<quillon2::const_variant_bag_generic_tree_t>();
  view->init(bag);
  return quillon2::sptr_t<const_tree_t>(view);
}

}  // namespace q2test
