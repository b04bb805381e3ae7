// path_accessor_t and the bag algebra: merge and subtract.
#include <cwchar>
#include <deque>
#include <string>
#include <utility>
#include <vector>

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

// Both operations walk the source with explicit work lists, so that the depth of the
// bags is bounded by memory rather than by the stack.

void merge(variant_bag_t& destination, variant_bag_t const& source) {
  if (overlaps(destination, source)) {
    variant_bag_t const copy(source);
    merge(destination, copy);
    return;
  }
  // First in, first out: the merges into any one destination bag happen in the order
  // that a depth-first walk of the source would make them. Merging never removes a
  // child bag, so the queued destinations stay valid.
  std::deque<std::pair<variant_bag_t*, variant_bag_t const*>> work{{&destination, &source}};
  while (!work.empty()) {
    auto const [to, from] = work.front();
    work.pop_front();
    for (auto it = from->begin<variant_t>(); !it.at_end(); it.next())
      to->put<variant_t>(it.get_name(), it.get_value());
    for (auto it = from->begin<variant_bag_t>(); !it.at_end(); it.next()) {
      if (variant_bag_t* child = to->get<variant_bag_t>(it.get_name())) {
        work.emplace_back(child, &it.get_value());
      } else {
        to->add_variant_bag(it.get_name(), it.get_value());
      }
    }
  }
}

void merge(variant_bag_t const& a, variant_bag_t const& b, variant_bag_t& result) {
  result = a;
  merge(result, b);
}

namespace {

// One bag of a subtraction in progress: the source children are taken one at a time,
// and a child's own subtraction must finish before the next sibling is looked up.
struct subtraction_t {
  variant_bag_t* destination;
  variant_bag_t::const_iterator_t<variant_bag_t> next_child;
  bool found;
};

// Takes the values of source out of destination; true if all were found equal.
bool subtract_values(variant_bag_t& destination, variant_bag_t const& source) {
  bool found = true;
  for (auto it = source.begin<variant_t>(); !it.at_end(); it.next()) {
    variant_t const* const mine = destination.get<variant_t>(it.get_name());
    if (mine && *mine == it.get_value()) {
      internal::remove_first<variant_t>(destination, it.get_name());
    } else {
      found = false;
    }
  }
  return found;
}

}  // namespace

bool subtract(variant_bag_t& destination, variant_bag_t const& source) {
  if (overlaps(destination, source)) {
    variant_bag_t const copy(source);
    return subtract(destination, copy);
  }
  std::vector<subtraction_t> stack;
  stack.push_back(
      {&destination, source.begin<variant_bag_t>(), subtract_values(destination, source)});
  bool result = true;
  while (!stack.empty()) {
    subtraction_t& top = stack.back();
    if (top.next_child.at_end()) {
      result = top.found;
      stack.pop_back();
      if (stack.empty()) break;
      // The child just finished: remove it whole if all of it was found.
      subtraction_t& parent = stack.back();
      if (result) {
        internal::remove_first<variant_bag_t>(*parent.destination, parent.next_child.get_name());
      } else {
        parent.found = false;
      }
      parent.next_child.next();
      continue;
    }
    variant_bag_t* const mine = top.destination->get<variant_bag_t>(top.next_child.get_name());
    if (!mine) {
      top.found = false;
      top.next_child.next();
      continue;
    }
    variant_bag_t const& from = top.next_child.get_value();
    stack.push_back({mine, from.begin<variant_bag_t>(), subtract_values(*mine, from)});
  }
  return result;
}

bool subtract(variant_bag_t const& a, variant_bag_t const& b, variant_bag_t& result) {
  result = a;
  return subtract(result, b);
}

}  // namespace quillon2
