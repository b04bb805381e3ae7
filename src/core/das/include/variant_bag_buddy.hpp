// Library-internal access to the parts of variant_bag_t that linking a child needs.
#pragma once

#include <quillon2/das/variant_bag.hpp>

namespace quillon2::internal {

struct variant_bag_buddy_t {
  // Makes child a linked child of parent: sets its parent and writes name into its
  // "#tag_name".
  static void set_parent(variant_bag_t& child, variant_bag_t* parent, wchar_t const* name);
  // Only the parent pointer, for children whose name is already in place.
  static void set_parent_only(variant_bag_t& child, variant_bag_t* parent) {
    child.m_parent = parent;
  }
};

}  // namespace quillon2::internal
