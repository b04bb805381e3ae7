// The visitor that rebuilds a bag from events, for the readers that feed it.
//
// Values go in with put (a later value of one name replaces the earlier), bags with
// add_variant_bag (bags of one name stay side by side), and an object pointer collects
// its bag in a frame of its own until its end, where it becomes a proxy in the enclosing
// bag. The nesting lives on explicit stacks, however deep the events go.
#pragma once

#include <array>
#include <cstdint>
#include <deque>
#include <string>
#include <vector>

#include <quillon2/das/variant.hpp>
#include <quillon2/das/variant_bag.hpp>
#include <quillon2/das/variant_bag_visitor.hpp>
#include <quillon2/headers/kesmet.hpp>

#include "core/das/include/bag_impl.hpp"

namespace quillon2 {

class variant_bag_builder_t : public variant_bag_visitor_t {
 public:
  // Clears `target`, which must outlive the builder.
  explicit variant_bag_builder_t(variant_bag_t& target);

  bool on_start_variant_bag(char const* name) override;
  bool on_end_variant_bag() override;
  bool on_start_pointer(char const* name, char const* type_id, char const* ptr_type) override;
  bool on_end_pointer() override;
  bool on_variant(char const* name, variant_t const& value) override;

  // on_variant for a value that the caller gives away: it is moved into the bag, and
  // `value` is left null.
  void take_variant(char const* name, variant_t& value);

  // Makes room in the current bag's index for `names` names of values, for a reader
  // that knows how many are coming.
  void reserve_values(std::size_t names);

  // For a reader that keeps the names it has converted: the wide text of a UTF-8 name
  // into `wide`, and the hash that the bag's index gives it.
  static std::uint32_t widen_name(std::wstring& wide, char const* name);
  // take_variant and on_start_variant_bag for a name in wide text (`wide` ends with a
  // NUL at `length`) with that hash.
  void take_variant(wchar_t const* wide, std::size_t length, std::uint32_t hash, variant_t& value);
  void start_variant_bag(wchar_t const* wide, std::size_t length, std::uint32_t hash);

 private:
  struct level_t {
    variant_bag_t* parent;
    bool is_pointer;
  };
  struct pointer_frame_t {
    KESMET_2_18::strings::ustring8 name;
    KESMET_2_18::strings::ustring8 type_id;
    KESMET_2_18::strings::ustring8 ptr_type;
    variant_bag_t bag;
  };

  // A child's "#tag_name" text, shared by the children of one name: one slot per hash.
  struct tag_slot_t {
    std::uint32_t hash = 0;
    variant_t text;
  };

  static void report(char const* condition, char const* function);
  void put_value(char const* name, variant_t& value);

  variant_bag_t* m_current;
  // Where each open bag or pointer returns to, innermost last.
  std::vector<level_t> m_levels;
  // The open pointers; a deque keeps each frame's bag in place while m_current points
  // into it.
  std::deque<pointer_frame_t> m_frames;
  std::wstring m_name;
  std::array<tag_slot_t, 64> m_tags;
  // The nodes of the bags built, side by side in large blocks.
  internal::node_arena_t m_arena;
};

}  // namespace quillon2
