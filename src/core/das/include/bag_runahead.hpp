// Prefetching for the writers that walk a whole bag: a bag is a few lists of nodes of
// their own, so a walk over a bag larger than the caches waits for memory at every node.
//
// bag_runahead_t brings the next sibling of the bag being written into the cache while
// the writer is busy with the current one: its two lists at once, then its values one
// node a step, each step fetching the node after the one that the step before fetched,
// and the block (text or blob) behind that one's value, which has arrived by then. A
// step reads only what an earlier step fetched, so it never waits for memory itself.
// A writer steps it for every entry that it writes; whatever the next bag then holds
// beyond the steps is read the slow way.
//
// It reads bags that the walk has not reached yet, so it serves only walks during which
// nothing changes the bag: no code of a caller runs between its steps that might.
#pragma once

#include <quillon2/das/variant.hpp>
#include <quillon2/das/variant_bag.hpp>

#include "core/das/include/bag_impl.hpp"
#include "core/das/include/variant_buddy.hpp"
#include "core/das/include/vb_helper.hpp"

namespace quillon2::internal {

class bag_runahead_t {
 public:
  // The writer starts on a child bag whose next sibling (the next visible node of the
  // list of bags that ends at `end`) is `sibling`. The runahead goes on where it is when
  // it is already in that list, at that sibling or past it; otherwise it starts over at
  // `sibling`, whose node an earlier call fetched as the node after.
  void start(bag_node_base_t const* sibling, bag_node_base_t const* end) {
    if (sibling == end) {
      stop();
      return;
    }
    if (end == m_end && (m_ahead > 0 || m_sibling == sibling)) {
      if (m_ahead > 0) --m_ahead;
      if (m_paused && m_ahead < max_ahead) {
        m_paused = false;
        next_sibling();
      }
      return;
    }
    m_end = end;
    m_ahead = 0;
    m_paused = false;
    enter(sibling);
  }

  // For a walk that knows the next bag it writes but no list of its siblings: the
  // runahead goes on with `bag` if it is already there, else starts over on it. The
  // bag itself (not its lists) must be in the cache already.
  void follow(variant_bag_t const& bag) {
    if (m_end == nullptr && m_bag == &bag) return;
    stop();
    enter_bag(bag);
  }

  void step() {
    if (m_values == nullptr) return;
    bag_node_base_t const* const next = m_node == nullptr ? m_values->first() : m_node->m_next;
    if (m_node != nullptr) {
      variant_t const& value =
          bag_impl_base_t<variant_t>::node_of(const_cast<bag_node_base_t*>(m_node))->m_value;
      if (void const* block = variant_buddy_t::payload(value)) {
        // Its first two lines: a text of a dozen units already reaches the second.
        __builtin_prefetch(block);
        __builtin_prefetch(static_cast<char const*>(block) + 64);
      }
    }
    if (next != m_values->end()) {
      fetch_node(next);
      m_node = next;
      return;
    }
    // No further than one sibling ahead of the writer, so that what was fetched is
    // still in the cache when the writer gets there: the next start goes on.
    m_values = nullptr;
    if (m_end == nullptr) return;  // following single bags: no list to go on in
    if (m_ahead == max_ahead) {
      m_paused = true;
    } else {
      next_sibling();
    }
  }

 private:
  static constexpr int max_ahead = 1;

  void stop() {
    m_values = nullptr;
    m_end = nullptr;
    m_ahead = 0;
    m_paused = false;
  }

  // On to the sibling after, whose node was fetched when this one was entered.
  void next_sibling() {
    bag_node_base_t const* const after = first_visible(m_sibling->m_next, m_end);
    if (after == m_end) return;
    ++m_ahead;
    enter(after);
  }

  void enter(bag_node_base_t const* sibling) {
    m_sibling = sibling;
    enter_bag(
        bag_impl_base_t<variant_bag_t>::node_of(const_cast<bag_node_base_t*>(sibling))->m_value);
    if (sibling->m_next != m_end) fetch_node(sibling->m_next);
  }

  void enter_bag(variant_bag_t const& bag) {
    m_bag = &bag;
    m_values = &vb_helper::impl<variant_t>(bag);
    __builtin_prefetch(m_values);
    __builtin_prefetch(&vb_helper::impl<variant_bag_t>(bag));
    m_node = nullptr;
  }

  // A node and the line after it, where its name usually starts.
  static void fetch_node(bag_node_base_t const* node) {
    __builtin_prefetch(node);
    __builtin_prefetch(reinterpret_cast<char const*>(node) + 64);
  }

  bag_node_base_t const* m_end = nullptr;      // of the list of bags, null when stopped
  bag_node_base_t const* m_sibling = nullptr;  // the node of m_bag in that list
  variant_bag_t const* m_bag = nullptr;        // the bag whose values are fetched
  int m_ahead = 0;        // how many siblings past the writer's next one m_sibling is
  bool m_paused = false;  // done with m_sibling, which is as far ahead as it may be
  bag_impl_base_t<variant_t> const* m_values = nullptr;  // null: nothing to fetch
  bag_node_base_t const* m_node = nullptr;  // the last node fetched, null before the first
};

}  // namespace quillon2::internal
