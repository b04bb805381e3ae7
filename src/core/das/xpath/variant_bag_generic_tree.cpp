// The two tree views of a bag, mutable and const. A view holds a plain pointer to its bag
// and owns nothing; the views and property lists it hands out are made afresh on every
// call and live as long as the pointer or iterator that holds them.
#include <memory>
#include <utility>
#include <vector>

#include <quillon2/core/assert.hpp>
#include <quillon2/das/das_generic_xpath.hpp>
#include <quillon2/das/variant_bag_serialization.hpp>

#include "core/das/xpath/include/libxml_worker.hpp"

namespace quillon2 {

namespace {

template <class View, class Bag>
sptr_t<typename View::tree_t> make_view(Bag& bag) {
  auto* const view = new ref_counted_t<View, mt_ref_count_impl_t>();
  view->init(bag);
  return sptr_t<typename View::tree_t>(view);
}

template <class View, class Bag>
sptr_t<typename View::tree_t> parent_of(Bag* bag) {
  if (bag == nullptr || bag->get_parent() == nullptr) return nullptr;
  return make_view<View>(*bag->get_parent());
}

template <class View, class Bag>
generic_iterator_t<sptr_t<typename View::tree_t>> children_of(Bag* bag) {
  using tree_ptr_t = sptr_t<typename View::tree_t>;
  std::vector<tree_ptr_t> children;
  if (bag != nullptr) {
    for (auto child = bag->template begin<variant_bag_t>(); !child.at_end(); child.next()) {
      children.push_back(make_view<View>(child.get_value()));
    }
  }
  return iterutil::make_owned_iterator_from<tree_ptr_t>(std::move(children));
}

template <class Property>
struct address_of_t {
  Property const* operator()(Property const& property) const { return &property; }
};

template <class View, class Bag>
generic_iterator_t<typename View::property_t const*> properties_of(Bag* bag) {
  using property_t = typename View::property_t;
  using list_t = std::vector<property_t>;
  auto properties = std::make_shared<list_t>();
  if (bag != nullptr) {
    for (auto value = bag->template begin<variant_t>(); !value.at_end(); value.next()) {
      properties->push_back(property_t{variant_t(value.get_name(), false),
                                       get_value_string(value.get_value()), &value.get_value()});
    }
  }
  using cursor_t =
      iterutil::owned_stl_iterator_impl_t<property_t const*, typename list_t::const_iterator,
                                          address_of_t<property_t>, std::shared_ptr<list_t>>;
  return generic_iterator_t<property_t const*>(new cursor_t(std::move(properties)));
}

// What a view without a bag gives as its bag, after reporting the missing init.
template <class Bag>
Bag& unbound_bag() {
  static variant_bag_t empty;
  return empty;
}

}  // namespace

// variant_bag_generic_tree_t

variant_bag_generic_tree_t::variant_bag_generic_tree_t(
    variant_bag_generic_tree_t const& other) noexcept
    : tree_t(other), m_bag(other.m_bag) {}
variant_bag_generic_tree_t::variant_bag_generic_tree_t(variant_bag_generic_tree_t&& other) noexcept
    : tree_t(other), m_bag(other.m_bag) {}
variant_bag_generic_tree_t& variant_bag_generic_tree_t::operator=(
    variant_bag_generic_tree_t const& other) noexcept {
  m_bag = other.m_bag;
  return *this;
}
variant_bag_generic_tree_t& variant_bag_generic_tree_t::operator=(
    variant_bag_generic_tree_t&& other) noexcept {
  m_bag = other.m_bag;
  return *this;
}
variant_bag_generic_tree_t::~variant_bag_generic_tree_t() = default;

wchar_t const* variant_bag_generic_tree_t::get_name() const {
  return m_bag != nullptr ? internal::bag_name_or_null(*m_bag) : nullptr;
}
sptr_t<variant_bag_generic_tree_t::tree_t> variant_bag_generic_tree_t::get_parent() const {
  return parent_of<variant_bag_generic_tree_t>(m_bag);
}
generic_iterator_t<sptr_t<variant_bag_generic_tree_t::tree_t>>
variant_bag_generic_tree_t::get_children() const {
  return children_of<variant_bag_generic_tree_t>(m_bag);
}
generic_iterator_t<variant_bag_generic_tree_t::property_t const*>
variant_bag_generic_tree_t::get_properties() const {
  return properties_of<variant_bag_generic_tree_t>(m_bag);
}
variant_bag_t& variant_bag_generic_tree_t::get_value() const {
  QUILLON_ASSERT(m_bag != NULL);
  return m_bag != nullptr ? *m_bag : unbound_bag<variant_bag_t>();
}

// const_variant_bag_generic_tree_t

const_variant_bag_generic_tree_t::const_variant_bag_generic_tree_t(
    const_variant_bag_generic_tree_t const& other) noexcept
    : tree_t(other), m_bag(other.m_bag) {}
const_variant_bag_generic_tree_t::const_variant_bag_generic_tree_t(
    const_variant_bag_generic_tree_t&& other) noexcept
    : tree_t(other), m_bag(other.m_bag) {}
const_variant_bag_generic_tree_t& const_variant_bag_generic_tree_t::operator=(
    const_variant_bag_generic_tree_t const& other) noexcept {
  m_bag = other.m_bag;
  return *this;
}
const_variant_bag_generic_tree_t& const_variant_bag_generic_tree_t::operator=(
    const_variant_bag_generic_tree_t&& other) noexcept {
  m_bag = other.m_bag;
  return *this;
}
const_variant_bag_generic_tree_t::~const_variant_bag_generic_tree_t() = default;

wchar_t const* const_variant_bag_generic_tree_t::get_name() const {
  return m_bag != nullptr ? internal::bag_name_or_null(*m_bag) : nullptr;
}
sptr_t<const_variant_bag_generic_tree_t::tree_t> const_variant_bag_generic_tree_t::get_parent()
    const {
  return parent_of<const_variant_bag_generic_tree_t>(m_bag);
}
generic_iterator_t<sptr_t<const_variant_bag_generic_tree_t::tree_t>>
const_variant_bag_generic_tree_t::get_children() const {
  return children_of<const_variant_bag_generic_tree_t>(m_bag);
}
generic_iterator_t<const_variant_bag_generic_tree_t::property_t const*>
const_variant_bag_generic_tree_t::get_properties() const {
  return properties_of<const_variant_bag_generic_tree_t>(m_bag);
}
variant_bag_t const& const_variant_bag_generic_tree_t::get_value() const {
  QUILLON_ASSERT(m_bag != NULL);
  return m_bag != nullptr ? *m_bag : unbound_bag<variant_bag_t const>();
}

}  // namespace quillon2
