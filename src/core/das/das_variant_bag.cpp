// variant_bag_t: the list containers, the operations on entries, names and
// parents, copying, swapping and comparison.
#include <algorithm>
#include <cstring>
#include <cwchar>
#include <utility>
#include <vector>

#include <quillon2/das/notype_ptr.hpp>
#include <quillon2/das/variant_bag.hpp>

#include "core/das/include/bag_impl.hpp"
#include "core/das/include/variant_bag_buddy.hpp"
#include "core/das/include/variant_buddy.hpp"
#include "core/das/include/vb_helper.hpp"

namespace quillon2 {
namespace internal {

namespace {
wchar_t g_no_name[1] = {0};
constexpr wchar_t const tag_name[] = L"#tag_name";

// The list of a default-constructed iterator: always empty, never written after its
// one-time initialisation.
bag_node_base_t* empty_sentinel() {
  static bag_node_base_t sentinel{};
  static bool const ready = [] {
    sentinel.m_next = sentinel.m_prev = &sentinel;
    sentinel.m_name = g_no_name;
    return true;
  }();
  (void)ready;
  return &sentinel;
}
}  // namespace

bag_node_base_t* bag_first_visible(bag_node_base_t const* end) {
  bag_node_base_t* n = end->m_next;
  while (n != end && n->m_hidden) n = n->m_next;
  return n;
}

bag_node_base_t* bag_first_of_name(bag_node_base_t const* end, wchar_t const* name) {
  if (end == empty_sentinel()) return const_cast<bag_node_base_t*>(end);
  bag_slot_t* const s = index_of(end)->find(name);
  return s ? s->m_first : const_cast<bag_node_base_t*>(end);
}

bag_node_base_t const* bag_empty_list() { return empty_sentinel(); }

variant_t& bag_end_value(variant_t*) {
  static variant_t empty;
  return empty;
}

variant_bag_t& bag_end_value(variant_bag_t*) {
  static variant_bag_t* empty = new variant_bag_t();
  return *empty;
}

void variant_bag_buddy_t::set_parent(variant_bag_t& child, variant_bag_t* parent,
                                     wchar_t const* name) {
  QUILLON_ASSERT(parent);
  child.m_parent = parent;
  child.put<variant_t>(tag_name, variant_t(name ? name : L""));
}

}  // namespace internal

using internal::bag_impl_base_t;
using internal::bag_node_base_t;
using internal::bag_node_t;
using internal::vb_helper;

namespace {

template <class T>
T& value_of(bag_node_base_t* n) {
  return static_cast<bag_node_t<T>*>(n)->m_value;
}

// Sets the parent of every child reached by the whole-kind iteration.
void adopt_visible_children(variant_bag_t& bag) {
  for (auto it = bag.begin<variant_bag_t>(); !it.at_end(); it.next())
    internal::variant_bag_buddy_t::set_parent_only(it.get_value(), &bag);
}

}  // namespace

variant_bag_t::variant_bag_t() : variant_bag_t(new internal::bag_lists_t()) {}

variant_bag_t::variant_bag_t(internal::bag_lists_t* lists) noexcept
    : m_values(&lists->values), m_bags(&lists->bags), m_parent(nullptr) {}

// Deep bags are copied, destroyed and compared with work lists rather than recursion, so
// that the depth of a bag is bounded by memory, not by the stack.

void variant_bag_t::copy_tree(variant_bag_t const& source) {
  static variant_bag_t const empty;
  std::vector<std::pair<variant_bag_t const*, variant_bag_t*>> work{{&source, this}};
  while (!work.empty()) {
    auto const [from, to] = work.back();
    work.pop_back();
    to->m_values->append_copies(*from->m_values);
    to->m_bags->reserve(from->m_bags->size());
    std::size_t const first_child = work.size();
    for (bag_node_base_t* n = from->m_bags->first(); n != from->m_bags->end(); n = n->m_next) {
      auto* const node =
          bag_impl_base_t<variant_bag_t>::make_node(n->m_name, n->m_length, n->m_hash, empty);
      to->m_bags->link_back(node);
      if (!n->m_hidden) node->m_value.m_parent = to;
      work.emplace_back(&value_of<variant_bag_t>(n), &node->m_value);
    }
    // The children are filled in their own order, so that the copy lies in memory in the
    // order in which a walk reads it.
    std::reverse(work.begin() + static_cast<std::ptrdiff_t>(first_child), work.end());
  }
}

variant_bag_t::variant_bag_t(variant_bag_t const& other) : variant_bag_t() { copy_tree(other); }

variant_bag_t::~variant_bag_t() {
  std::vector<bag_node_base_t*> pending;
  auto const take_children = [&pending](bag_impl_base_t<variant_bag_t>& bags) {
    for (bag_node_base_t* n = bags.first(); n != bags.end(); n = n->m_next) pending.push_back(n);
    bags.reset();
  };
  take_children(*m_bags);
  while (!pending.empty()) {
    bag_node_base_t* const n = pending.back();
    pending.pop_back();
    take_children(*value_of<variant_bag_t>(n).m_bags);
    bag_impl_base_t<variant_bag_t>::destroy_node(n);
  }
  internal::bag_lists_t::release(internal::bag_lists_t::of(m_values));
}

variant_bag_t& variant_bag_t::operator=(variant_bag_t const& other) {
  if (this == &other) return *this;
  // Copy first, replace after: the source may live inside this bag.
  variant_bag_t copy;
  copy.copy_tree(other);
  std::swap(m_values, copy.m_values);
  std::swap(m_bags, copy.m_bags);
  adopt_visible_children(*this);
  return *this;
}

void variant_bag_t::add_entry(wchar_t const* name, variant_t const& value) {
  vb_helper::add(*this, name, value);
}

void variant_bag_t::add_entry(wchar_t const* name, variant_bag_t const& value) {
  vb_helper::add(*this, name, value);
}

variant_bag_t& vb_helper::add_empty_child(internal::node_arena_t* arena, variant_bag_t& bag,
                                          wchar_t const* name, std::size_t length,
                                          std::uint32_t hash, variant_t const& tag) {
  static std::uint32_t const tag_hash = internal::hash_name(internal::tag_name, 9);
  internal::bag_lists_t* const lists = internal::bag_lists_t::make(arena);
  bag_node_t<variant_bag_t>* node = nullptr;
  try {
    node = bag_impl_base_t<variant_bag_t>::emplace_node_in(arena, name, length, hash, lists);
  } catch (...) {
    internal::bag_lists_t::release(lists);
    throw;
  }
  bag.m_bags->link_back(node);
  variant_bag_t& child = node->m_value;
  child.m_parent = &bag;
  child.m_values->link_back(
      bag_impl_base_t<variant_t>::emplace_node_in(arena, internal::tag_name, 9, tag_hash, tag));
  return child;
}

variant_bag_t& variant_bag_t::add_variant_bag(wchar_t const* name, variant_bag_t const& value) {
  bag_node_t<variant_bag_t>* const node = vb_helper::add(*this, name, value);
  if (!node) return internal::bag_end_value(static_cast<variant_bag_t*>(nullptr));
  internal::variant_bag_buddy_t::set_parent(node->m_value, this, name);
  return node->m_value;
}

variant_t& variant_bag_t::put_entry(wchar_t const* name, variant_t const& value) {
  bag_node_t<variant_t>* const node = vb_helper::put(*this, name, value);
  if (!node) return internal::bag_end_value(static_cast<variant_t*>(nullptr));
  return node->m_value;
}

variant_bag_t& variant_bag_t::put_entry(wchar_t const* name, variant_bag_t const& value) {
  bag_node_t<variant_bag_t>* const node = vb_helper::put(*this, name, value);
  if (!node) return internal::bag_end_value(static_cast<variant_bag_t*>(nullptr));
  internal::variant_bag_buddy_t::set_parent(node->m_value, this, name);
  return node->m_value;
}

notype_ptr_t& variant_bag_t::put_entry(wchar_t const* name, notype_ptr_t const& value) {
  variant_t& v = put_entry(name, variant_t(value));
  notype_ptr_t* const p = internal::variant_buddy_t::notype_ptr(v);
  QUILLON_ASSERT(v.can_get<notype_ptr_t>());
  if (!p) {
    static notype_ptr_t* none = new notype_ptr_t();
    return *none;
  }
  return *p;
}

variant_t* variant_bag_t::get_entry(wchar_t const* name, variant_t*) {
  bag_node_base_t* const n = vb_helper::find_first<variant_t>(*this, name);
  return n ? &value_of<variant_t>(n) : nullptr;
}

variant_bag_t* variant_bag_t::get_entry(wchar_t const* name, variant_bag_t*) {
  bag_node_base_t* const n = vb_helper::find_first<variant_bag_t>(*this, name);
  return n ? &value_of<variant_bag_t>(n) : nullptr;
}

notype_ptr_t* variant_bag_t::get_entry(wchar_t const* name, notype_ptr_t*) {
  variant_t* const v = get_entry(name, static_cast<variant_t*>(nullptr));
  return v ? internal::variant_buddy_t::notype_ptr(*v) : nullptr;
}

bool variant_bag_t::has_entry(wchar_t const* name, variant_t*) const {
  return vb_helper::find_first<variant_t>(*this, name) != nullptr;
}

bool variant_bag_t::has_entry(wchar_t const* name, variant_bag_t*) const {
  return vb_helper::find_first<variant_bag_t>(*this, name) != nullptr;
}

bool variant_bag_t::has_entry(wchar_t const* name, notype_ptr_t*) const {
  bag_node_base_t* const n = vb_helper::find_first<variant_t>(*this, name);
  return n && value_of<variant_t>(n).get_type() == vtNotypePtr;
}

u64_t variant_bag_t::count_entries(wchar_t const* name, variant_t*) const {
  if (!name) return m_values->size();
  internal::bag_slot_t* const s = m_values->find(name);
  return s ? s->m_count : 0;
}

u64_t variant_bag_t::count_entries(wchar_t const* name, variant_bag_t*) const {
  if (!name) return m_bags->size();
  internal::bag_slot_t* const s = m_bags->find(name);
  return s ? s->m_count : 0;
}

void variant_bag_t::remove_entries(wchar_t const* name, variant_t*) {
  vb_helper::remove<variant_t>(*this, name);
}

void variant_bag_t::remove_entries(wchar_t const* name, variant_bag_t*) {
  vb_helper::remove<variant_bag_t>(*this, name);
}

void variant_bag_t::remove_entries(wchar_t const* name, notype_ptr_t*) {
  vb_helper::remove<variant_t>(*this, name);
}

void variant_bag_t::remove_entry(variant_t const* value) {
  QUILLON_ASSERT(value);
  if (!value) return;
  if (auto* node = m_values->find_address(value)) m_values->remove_node(node);
}

void variant_bag_t::remove_entry(variant_bag_t const* value) {
  QUILLON_ASSERT(value);
  if (!value) return;
  if (auto* node = m_bags->find_address(value)) m_bags->remove_node(node);
}

void variant_bag_t::remove_all_entries(variant_t*) { m_values->remove_all(); }

void variant_bag_t::remove_all_entries(variant_bag_t*) { m_bags->remove_all(); }

internal::bag_node_base_t const* variant_bag_t::list_of(variant_t*) const {
  return m_values->end();
}

internal::bag_node_base_t const* variant_bag_t::list_of(variant_bag_t*) const {
  return m_bags->end();
}

internal::bag_node_base_t* variant_bag_t::find_first(wchar_t const* name, variant_t*) const {
  bag_node_base_t* const n = vb_helper::find_first<variant_t>(*this, name);
  return n ? n : const_cast<bag_node_base_t*>(m_values->end());
}

internal::bag_node_base_t* variant_bag_t::find_first(wchar_t const* name, variant_bag_t*) const {
  bag_node_base_t* const n = vb_helper::find_first<variant_bag_t>(*this, name);
  return n ? n : const_cast<bag_node_base_t*>(m_bags->end());
}

variant_t variant_bag_t::get_variant(wchar_t const* name, variant_t const& default_value) const {
  bag_node_base_t* const n = vb_helper::find_first<variant_t>(*this, name);
  return n ? value_of<variant_t>(n) : default_value;
}

wchar_t const* variant_bag_t::get_name() const {
  if (variant_t const* tag = get<variant_t>(internal::tag_name)) {
    QUILLON_ASSERT(tag->can_get<const wchar_t*>());
    if (tag->can_get<const wchar_t*>()) return tag->get<const wchar_t*>();
  }
  if (m_parent) {
    if (auto* node = m_parent->m_bags->find_address(this)) {
      auto* self = const_cast<variant_bag_t*>(this);
      return self->put<variant_t>(internal::tag_name, variant_t(node->m_name))
          .get<const wchar_t*>();
    }
  }
  QUILLON_ASSERT(false);
  return nullptr;
}

void variant_bag_t::rename(wchar_t const* name) {
  QUILLON_ASSERT(name != NULL);
  if (!name) return;
  if (m_parent) {
    if (auto* node = m_parent->m_bags->find_address(this)) m_parent->m_bags->rename(node, name);
  }
  put<variant_t>(internal::tag_name, variant_t(name));
}

bool variant_bag_t::is_empty() const {
  return m_values->visible() == 0 && m_bags->visible() == 0;
}

void variant_bag_t::clear() {
  m_values->remove_all();
  m_bags->remove_all();
}

void variant_bag_t::swap(variant_bag_t& other) {
  if (this == &other) return;
  for (variant_bag_t const* p = other.m_parent; p; p = p->m_parent) {
    QUILLON_ASSERT(p != this);
    if (p == this) return;
  }
  for (variant_bag_t const* p = m_parent; p; p = p->m_parent) {
    QUILLON_ASSERT(p != &other);
    if (p == &other) return;
  }
  std::swap(m_parent, other.m_parent);
  std::swap(m_values, other.m_values);
  std::swap(m_bags, other.m_bags);
  for (variant_bag_t* bag : {this, &other}) {
    if (!bag->m_values->in_order()) bag->m_values->rebuild_index();
    if (!bag->m_bags->in_order()) bag->m_bags->rebuild_index();
    for (bag_node_base_t* n = bag->m_bags->first(); n != bag->m_bags->end(); n = n->m_next)
      internal::variant_bag_buddy_t::set_parent_only(value_of<variant_bag_t>(n), bag);
  }
}

namespace {

// Walks two lists by position: hidden names are passed over, empty names are compared
// apart (the last of each list), and both lists must end together.
template <class T, class Equal>
bool lists_equal(bag_node_base_t const* end_a, bag_node_base_t const* end_b, Equal equal) {
  bag_node_base_t* a = end_a->m_next;
  bag_node_base_t* b = end_b->m_next;
  bag_node_base_t* empty_a = nullptr;
  bag_node_base_t* empty_b = nullptr;
  for (;;) {
    for (; a != end_a && (a->m_length == 0 || a->m_hidden); a = a->m_next)
      if (a->m_length == 0) empty_a = a;
    for (; b != end_b && (b->m_length == 0 || b->m_hidden); b = b->m_next)
      if (b->m_length == 0) empty_b = b;
    if (a == end_a || b == end_b) break;
    if (!equal(value_of<T>(a), value_of<T>(b))) return false;
    a = a->m_next;
    b = b->m_next;
  }
  if ((empty_a == nullptr) != (empty_b == nullptr)) return false;
  if (empty_a && !equal(value_of<T>(empty_a), value_of<T>(empty_b))) return false;
  return a == end_a && b == end_b;
}

}  // namespace

bool variant_bag_t::operator==(variant_bag_t const& other) const {
  std::vector<std::pair<variant_bag_t const*, variant_bag_t const*>> work{{this, &other}};
  auto const values_equal = [](variant_t const& x, variant_t const& y) { return x == y; };
  // Children are matched by position here and compared when their pair comes up.
  auto const defer = [&work](variant_bag_t const& x, variant_bag_t const& y) {
    work.emplace_back(&x, &y);
    return true;
  };
  while (!work.empty()) {
    auto const [a, b] = work.back();
    work.pop_back();
    if (!lists_equal<variant_t>(a->m_values->end(), b->m_values->end(), values_equal) ||
        !lists_equal<variant_bag_t>(a->m_bags->end(), b->m_bags->end(), defer))
      return false;
  }
  return true;
}

}  // namespace quillon2
