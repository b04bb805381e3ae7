// The operations that every generic tree has (select, get_xpath, find), the results of
// queries, variant_bag_xpath, and the one place where the library's forms of the
// templates are compiled and exported.
//
// Every walk here keeps its own stack of child iterators instead of recursing, so trees
// of any depth are safe; each level holds the views that its iterator made.
#include <cstddef>
#include <cwchar>
#include <string>
#include <utility>
#include <vector>

#include <boost/make_shared.hpp>

#include <quillon2/core/assert.hpp>
#include <quillon2/das/das_generic_xpath.hpp>

#include "core/das/xpath/include/libxml_worker.hpp"

namespace quillon2 {

namespace {

wchar_t const* const k_nameless = L"bag";

template <class B, class V>
wchar_t const* name_of(generic_tree_t<B, V> const& node) {
  wchar_t const* const name = node.get_name();
  return name != nullptr ? name : k_nameless;
}

// One level of a walk: the children still to visit. (A plain struct around the iterator,
// whose class has virtual members but no virtual destructor, for the containers' sake.)
template <class B, class V>
struct level_t {
  generic_iterator_t<sptr_t<generic_tree_t<B, V>>> children;
};

wchar_t const* text_of(variant_t const& text) {
  return text.can_get<wchar_t const*>() ? text.get<wchar_t const*>() : nullptr;
}

// The generic walk: the same events as the direct walk of a bag, through the five
// virtual operations of the view.
template <class B, class V>
void walk_tree(generic_tree_t<B, V> const& root, internal::libxml_worker_t& out) {
  using tree_ptr_t = sptr_t<generic_tree_t<B, V>>;
  std::vector<level_t<B, V>> pending;
  auto const open = [&](generic_tree_t<B, V> const& node) {
    out.on_node_begin(name_of(node),
                      const_cast<void*>(static_cast<void const*>(&node.get_value())));
    for (auto properties = node.get_properties(); !properties.at_end(); properties.next()) {
      auto const* const property = properties.current();
      wchar_t const* name = text_of(property->name);
      if (name != nullptr && name[0] == L'\0') name = nullptr;
      wchar_t const* const value = text_of(property->value);
      out.on_property(name, value != nullptr ? value : L"",
                      const_cast<void*>(static_cast<void const*>(property->source)));
    }
    pending.push_back({node.get_children()});
  };
  open(root);
  while (!pending.empty()) {
    auto& children = pending.back().children;
    if (children.at_end()) {
      pending.pop_back();
      out.on_node_end();
      continue;
    }
    tree_ptr_t const child = children.current();
    children.next();
    open(*child);  // the view stays alive in its parent's iterator
  }
}

}  // namespace

template <class B, class V>
xpath_result_t<B, V> generic_tree_t<B, V>::select(wchar_t const* xpath_expr) {
  if (xpath_expr == nullptr) return xpath_result_t<B, V>(nullptr, xpath_expr);
  sptr_t<internal::libxml_worker_t> const worker = internal::create_libxml_worker();
  walk_tree(*this, *worker);
  return xpath_result_t<B, V>(worker, xpath_expr);
}

template <class B, class V>
variant_t generic_tree_t<B, V>::get_xpath() const {
  // This node and its ancestors, nearest first; `parents` keeps the ancestors' views.
  std::vector<sptr_t<generic_tree_t>> parents;
  std::vector<generic_tree_t const*> chain{this};
  for (sptr_t<generic_tree_t> parent = get_parent(); parent; parent = parent->get_parent()) {
    parents.push_back(parent);
    chain.push_back(parent.get());
  }
  std::wstring path;
  for (std::size_t i = chain.size(); i-- > 0;) {
    generic_tree_t const& node = *chain[i];
    wchar_t const* const name = name_of(node);
    path += L'/';
    path += name;
    if (i + 1 == chain.size()) continue;  // the root
    // Its position among the siblings of its name, if it has any.
    void const* const self = &node.get_value();
    unsigned long index = 0;
    unsigned long count = 0;
    for (auto children = chain[i + 1]->get_children(); !children.at_end(); children.next()) {
      sptr_t<generic_tree_t> const sibling = children.current();
      if (static_cast<void const*>(&sibling->get_value()) == self) {
        index = count;
      } else if (std::wcscmp(name_of(*sibling), name) == 0) {
        ++count;
      }
    }
    if (count > 0) path += L"[position()=" + std::to_wstring(index + 1) + L"]";
  }
  return variant_t(path.c_str(), false);
}

template <class B, class V>
sptr_t<generic_tree_t<B, V>> generic_tree_t<B, V>::find(variant_bag_t const* bag) const {
  std::vector<level_t<B, V>> pending;
  pending.push_back({get_children()});
  while (!pending.empty()) {
    auto& children = pending.back().children;
    if (children.at_end()) {
      pending.pop_back();
      continue;
    }
    sptr_t<generic_tree_t> child = children.current();
    children.next();
    if (static_cast<void const*>(&child->get_value()) == static_cast<void const*>(bag)) {
      return child;
    }
    pending.push_back({child->get_children()});
  }
  return nullptr;
}

template <class B, class V>
xpath_result_base_t<B, V>::xpath_result_base_t()
    : m_nodes(boost::make_shared<std::vector<B*>>()),
      m_properties(boost::make_shared<std::vector<V*>>()),
      m_value(),
      m_error(0) {}

template <class B, class V>
void xpath_result_base_t<B, V>::add_node(void* tag) {
  m_nodes->push_back(static_cast<B*>(tag));
}

template <class B, class V>
void xpath_result_base_t<B, V>::add_property(void* tag) {
  m_properties->push_back(static_cast<V*>(tag));
}

template <class B, class V>
void xpath_result_base_t<B, V>::set_value(variant_t const& value) {
  m_value = value;
}

template <class B, class V>
void xpath_result_base_t<B, V>::set_error(unsigned error) {
  m_error = error;
}

template <class B, class V>
xpath_result_t<B, V>::xpath_result_t(sptr_t<internal::libxml_worker_t> const& worker,
                                     wchar_t const* xpath_expr) {
  QUILLON_ASSERT(xpath_expr != NULL);
  if (xpath_expr == nullptr || !worker) {
    this->set_error(1);
    return;
  }
  worker->select(xpath_expr, *this);
}

xpath_t<variant_bag_t, variant_t> variant_bag_xpath(variant_bag_t const& bag) {
  auto* const worker = new ref_counted_t<internal::libxml_worker_impl_t, mt_ref_count_impl_t>();
  sptr_t<internal::libxml_worker_t> held(worker);
  worker->mirror(bag);
  return xpath_t<variant_bag_t, variant_t>(std::move(held));
}

xpath_t<variant_bag_t, variant_t> variant_bag_xpath(variant_bag_t& bag, wchar_t const* root_name) {
  if (root_name != nullptr) bag.rename(root_name);
  return variant_bag_xpath(static_cast<variant_bag_t const&>(bag));
}

template class generic_tree_visitor_t<void, void>;
template class generic_tree_visitor_t<variant_bag_t, variant_t>;
template class generic_tree_t<variant_bag_t, variant_t>;
template class generic_tree_t<variant_bag_t const, variant_t const>;
template class xpath_result_base_t<variant_bag_t, variant_t>;
template class xpath_result_base_t<variant_bag_t const, variant_t const>;
template class xpath_result_t<variant_bag_t, variant_t>;
template class xpath_result_t<variant_bag_t const, variant_t const>;
template class xpath_t<variant_bag_t, variant_t>;

}  // namespace quillon2
