// path_accessor_t addresses nested entries of a bag by a dotted path such as
// "section.item.value": every component but the last names a child bag (the earliest
// of that name), the last one names the target in the bag reached. Empty components
// are skipped. The accessor does not own the bag.
//
// merge and subtract treat bags as sets of settings: overlaying one bag on another, and
// taking out of a bag what another bag also holds. Hidden entries take no part.
#pragma once

#include <quillon2/das/variant_bag.hpp>
#include <quillon2/export.hpp>

namespace quillon2 {

class QUILLON2_API path_accessor_t {
 public:
  path_accessor_t(variant_bag_t& bag) noexcept : m_bag(&bag) {}
  path_accessor_t(path_accessor_t&& other) noexcept : m_bag(other.m_bag) {}
  operator variant_bag_t&() const noexcept { return *m_bag; }

  // The earliest value at the path, or a copy of default_value.
  variant_t get_variant(wchar_t const* path, variant_t const& default_value) const;
  // Creates the bags along the path as needed and adds a linked copy of value under the
  // leaf. 1 on success, DAS_E_NO_PATH for a null path.
  int add_variant_bag(wchar_t const* path, variant_bag_t const& value);

  // Iterates the child bags or the values of the bag at the path (leaf included).
  template <class T>
  variant_bag_t::iterator_t<T> begin(wchar_t const* path) {
    wchar_t const* leaf = nullptr;
    variant_bag_t* bag = go_to_path(path, &leaf, false);
    variant_bag_t* target = bag ? bag->get<variant_bag_t>(leaf) : nullptr;
    return target ? target->begin<T>() : variant_bag_t::iterator_t<T>();
  }
  template <class T>
  variant_bag_t::const_iterator_t<T> begin(wchar_t const* path) const {
    return const_cast<path_accessor_t*>(this)->begin<T>(path);
  }
  // Iterates the child bags named by the leaf in the bag that holds it.
  variant_bag_t::iterator_t<variant_bag_t> begin_by_name(wchar_t const* path);
  variant_bag_t::const_iterator_t<variant_bag_t> begin_by_name(wchar_t const* path) const;

 protected:
  // The bag that holds the leaf of the path, with *leaf set to the text behind the last
  // "."; null for a null path or a missing component.
  variant_bag_t const* go_to_path(wchar_t const* path, wchar_t const** leaf) const;
  variant_bag_t* go_to_path(wchar_t const* path, wchar_t const** leaf, bool create);

 private:
  variant_bag_t* m_bag;
};

QUILLON2_API void merge(variant_bag_t& destination, variant_bag_t const& source);
QUILLON2_API void merge(variant_bag_t const& a, variant_bag_t const& b, variant_bag_t& result);
QUILLON2_API bool subtract(variant_bag_t& destination, variant_bag_t const& source);
QUILLON2_API bool subtract(variant_bag_t const& a, variant_bag_t const& b, variant_bag_t& result);

}  // namespace quillon2
