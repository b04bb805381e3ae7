// vb_helper: the code that the entry operations of variant_bag_t share for both kinds of
// entries, and the access of the path accessor to the bag's containers.
#pragma once

#include <cstdint>
#include <cwchar>
#include <utility>

#include <quillon2/das/variant_bag.hpp>

#include "core/das/include/bag_impl.hpp"

namespace quillon2::internal {

// The shared code of the entry operations, for both kinds.
struct vb_helper {
  template <class T>
  static bag_impl_base_t<T>& impl(variant_bag_t const& bag);

  template <class T>
  static bool check(variant_bag_t const& bag, wchar_t const* name, T const& value) {
    return bag.check_entry(name, value);
  }

  template <class T>
  static bag_node_t<T>* add(variant_bag_t& bag, wchar_t const* name, T const& value) {
    if (!check(bag, name, value)) return nullptr;
    return impl<T>(bag).append(name, value);
  }

  template <class T>
  static bag_node_t<T>* put(variant_bag_t& bag, wchar_t const* name, T const& value) {
    if (!check(bag, name, value)) return nullptr;
    // The copy is made before the old entries go, so that a value that is itself one
    // of those entries is still intact when it is copied.
    bag_impl_base_t<T>& list = impl<T>(bag);
    std::size_t const length = std::wcslen(name);
    std::uint32_t const hash = hash_name(name, length);
    return replace_entries(list, list.make_node(name, length, hash, value));
  }

  // Removes the entries of the node's name from `list` and links the node at its end,
  // where its name then has no other entry.
  template <class T>
  static bag_node_t<T>* replace_entries(bag_impl_base_t<T>& list, bag_node_t<T>* node) {
    if (bag_slot_t* s = list.find(node->m_name, node->m_length, node->m_hash)) {
      for (bag_node_base_t* n = s->m_first; n;) {
        bag_node_base_t* const next = n->m_next_same;
        list.remove_node(n);
        n = next;
      }
    }
    list.link_back_new(node);
    return node;
  }

  // put for the readers that build fresh bags: the name comes with its length (no NUL
  // among its units) and hash, the value is moved in (`value` is left null), and the
  // node comes from `arena` unless that is null.
  static bag_node_t<variant_t>* put_moved(node_arena_t* arena, variant_bag_t& bag,
                                          wchar_t const* name, std::size_t length,
                                          std::uint32_t hash, variant_t& value);

  // add_variant_bag of an empty bag for the readers: appends a new empty child of the
  // name (with its length and hash) and links it, with `tag` (the name as a text value,
  // which copies share) as its "#tag_name"; nodes from `arena` unless that is null.
  static variant_bag_t& add_empty_child(node_arena_t* arena, variant_bag_t& bag,
                                        wchar_t const* name,
                                        std::size_t length, std::uint32_t hash,
                                        variant_t const& tag);

  template <class T>
  static void remove(variant_bag_t& bag, wchar_t const* name) {
    if (name) impl<T>(bag).remove_name(name);
  }

  template <class T>
  static bag_node_base_t* find_first(variant_bag_t const& bag, wchar_t const* name) {
    bag_slot_t* const s = impl<T>(bag).find(name);
    return s ? s->m_first : nullptr;
  }
};

template <>
inline bag_impl_base_t<variant_t>& vb_helper::impl<variant_t>(variant_bag_t const& bag) {
  return *bag.m_values;
}
template <>
inline bag_impl_base_t<variant_bag_t>& vb_helper::impl<variant_bag_t>(variant_bag_t const& bag) {
  return *bag.m_bags;
}

inline bag_node_t<variant_t>* vb_helper::put_moved(node_arena_t* arena, variant_bag_t& bag,
                                                   wchar_t const* name, std::size_t length,
                                                   std::uint32_t hash, variant_t& value) {
  bag_impl_base_t<variant_t>& list = impl<variant_t>(bag);
  return replace_entries(list, list.emplace_node_in(arena, name, length, hash, std::move(value)));
}

}  // namespace quillon2::internal

namespace quillon2::internal {

// The earliest child of a name given by pointer and length (not terminated), or null.
inline variant_bag_t* find_child(variant_bag_t const& bag, wchar_t const* name,
                                 std::size_t length) {
  bag_slot_t* const s =
      vb_helper::impl<variant_bag_t>(bag).find(name, length, hash_name(name, length));
  return s ? &static_cast<bag_node_t<variant_bag_t>*>(s->m_first)->m_value : nullptr;
}

// Removes the earliest entry of a name, the one that get answers with.
template <class T>
void remove_first(variant_bag_t& bag, wchar_t const* name) {
  bag_impl_base_t<T>& list = vb_helper::impl<T>(bag);
  if (bag_slot_t* const s = list.find(name)) list.remove_node(s->m_first);
}

}  // namespace quillon2::internal
