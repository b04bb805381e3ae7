// path_accessor_t and the bag algebra: merge and subtract.
#include <cwchar>
#include <string>

#include <quillon2/das/path_accessor.hpp>
#include <quillon2/das/type_factory.hpp>

#include "core/das/include/vb_helper.hpp"

namespace quillon2 {

namespace {

// Walks the components before the leaf. step(bag, component, length) returns the next
// bag or null to stop the walk.
template <class Bag, class Step>
Bag* walk(Bag* bag, wchar_t const* path, wchar_t const** leaf, Step step) {
  if (!path) return nullptr;
  wchar_t const* start = path;
  for (wchar_t const* p = path; *p; ++p) {
    if (*p != L'.') continue;
    if (p != start) {
      bag = step(bag, start, static_cast<std::size_t>(p - start));
      if (!bag) return nullptr;
    }
    start = p + 1;
  }
  if (leaf) *leaf = start;
  return bag;
}

// True when one bag is the other or lives inside it (as far as the parent links tell),
// so that changing destination could change or destroy source while it is read.
bool overlaps(variant_bag_t const& destination, variant_bag_t const& source) {
  for (variant_bag_t const* p = &source; p; p = p->get_parent())
    if (p == &destination) return true;
  for (variant_bag_t const* p = &destination; p; p = p->get_parent())
    if (p == &source) return true;
  return false;
}

}  // namespace

variant_bag_t const* path_accessor_t::go_to_path(wchar_t const* path, wchar_t const** leaf) const {
  return walk<variant_bag_t const>(
      m_bag, path, leaf, [](variant_bag_t const* bag, wchar_t const* name, std::size_t length) {
        return internal::find_child(*bag, name, length);
      });
}

variant_bag_t* path_accessor_t::go_to_path(wchar_t const* path, wchar_t const** leaf, bool create) {
  return walk<variant_bag_t>(
      m_bag, path, leaf, [create](variant_bag_t* bag, wchar_t const* name, std::size_t length) {
        variant_bag_t* next = internal::find_child(*bag, name, length);
        if (!next && create) {
          std::wstring const component(name, length);
          next = &bag->put<variant_bag_t>(component.c_str(), variant_bag_t());
        }
        return next;
      });
}

variant_t path_accessor_t::get_variant(wchar_t const* path, variant_t const& default_value) const {
  wchar_t const* leaf = nullptr;
  variant_bag_t const* const bag = go_to_path(path, &leaf);
  return bag ? bag->get_variant(leaf, default_value) : default_value;
}

int path_accessor_t::add_variant_bag(wchar_t const* path, variant_bag_t const& value) {
  if (!path) return DAS_E_NO_PATH;
  wchar_t const* leaf = nullptr;
  variant_bag_t* const bag = go_to_path(path, &leaf, true);
  if (!bag) return DAS_E_NO_PATH;
  bag->add_variant_bag(leaf, value);
  return DAS_OK;
}

variant_bag_t::iterator_t<variant_bag_t> path_accessor_t::begin_by_name(wchar_t const* path) {
  wchar_t const* leaf = nullptr;
  variant_bag_t* const bag = go_to_path(path, &leaf, false);
  return bag ? bag->begin_by_name<variant_bag_t>(leaf) : variant_bag_t::iterator_t<variant_bag_t>();
}

variant_bag_t::const_iterator_t<variant_bag_t> path_accessor_t::begin_by_name(
    wchar_t const* path) const {
  return const_cast<path_accessor_t*>(this)->begin_by_name(path);
}

void merge(variant_bag_t& destination, variant_bag_t const& source) {
  if (overlaps(destination, source)) {
    variant_bag_t const copy(source);
    merge(destination, copy);
    return;
  }
  for (auto it = source.begin<variant_t>(); !it.at_end(); it.next())
    destination.put<variant_t>(it.get_name(), it.get_value());
  for (auto it = source.begin<variant_bag_t>(); !it.at_end(); it.next()) {
    if (variant_bag_t* child = destination.get<variant_bag_t>(it.get_name())) {
      merge(*child, it.get_value());
    } else {
      destination.add_variant_bag(it.get_name(), it.get_value());
    }
  }
}

void merge(variant_bag_t const& a, variant_bag_t const& b, variant_bag_t& result) {
  result = a;
  merge(result, b);
}

bool subtract(variant_bag_t& destination, variant_bag_t const& source) {
  if (overlaps(destination, source)) {
    variant_bag_t const copy(source);
    return subtract(destination, copy);
  }
  bool values_found = true;
  for (auto it = source.begin<variant_t>(); !it.at_end(); it.next()) {
    variant_t const* const mine = destination.get<variant_t>(it.get_name());
    if (!mine) {
      values_found = false;
    } else if (*mine == it.get_value()) {
      destination.remove<variant_t>(mine);
    } else {
      values_found = false;
    }
  }
  bool children_found = true;
  for (auto it = source.begin<variant_bag_t>(); !it.at_end(); it.next()) {
    variant_bag_t* const mine = destination.get<variant_bag_t>(it.get_name());
    if (!mine) {
      children_found = false;
    } else if (subtract(*mine, it.get_value())) {
      destination.remove<variant_bag_t>(static_cast<variant_bag_t const*>(mine));
    } else {
      children_found = false;
    }
  }
  return values_found && children_found;
}

bool subtract(variant_bag_t const& a, variant_bag_t const& b, variant_bag_t& result) {
  result = a;
  return subtract(result, b);
}

}  // namespace quillon2
