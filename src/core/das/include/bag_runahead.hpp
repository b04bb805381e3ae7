// Prefetching for the writers that walk a whole bag: a bag is a few lists of nodes of
// their own, so a walk over a bag larger than the caches waits for memory at every node.
//
// bag_runahead_t brings the next siblings of the bag being written into the cache while
// the writer is busy with the current one: their two lists at once, then their values
// one node a step, each step fetching the node after the one that the step before
// fetched, and the block (text or blob) behind that one's value, which has arrived by
// then. A step reads only what an earlier step fetched, so it never waits for memory
// itself. A writer steps it for every entry that it writes; whatever a bag then holds
// beyond the steps is read the slow way.
//
// A list is walked one node per latency of memory at best, which a small bag written
// from the cache takes about as long as to write. So two siblings are fetched at once,
// the next one and the one after, in two lanes that the steps take turns at: each lane
// then has a whole step between the fetch of a node and its reading. When the writer
// moves on, the second lane becomes the first.
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
  // list of bags that ends at `end`) is `sibling`. When the second lane is already on
  // that sibling it becomes the first; otherwise both start over at `sibling`, whose
  // node an earlier call fetched as the node after.
  void start(bag_node_base_t const* sibling, bag_node_base_t const* end) {
    if (sibling == end) {
      stop();
      return;
    }
    if (end == m_end && m_lanes[1].sibling == sibling) {
      m_lanes[0] = m_lanes[1];
    } else {
      m_end = end;
      m_lanes[0].enter(sibling);
      if (sibling->m_next != end) fetch_node(sibling->m_next);
    }
    // The second lane takes the sibling after the first at its first step, when the
    // node fetched above has arrived.
    m_lanes[1] = lane_t();
    m_second_pending = true;
  }

  // For a walk that knows the next bag it writes but no list of its siblings: the first
  // lane goes on with `bag` if it is already there, else starts over on it, and every
  // step is its. The bag itself (not its lists) must be in the cache already.
  void follow(variant_bag_t const& bag) {
    if (m_end == nullptr && m_lanes[0].bag == &bag) return;
    stop();
    m_lanes[0].enter_bag(bag);
  }

  void step() {
    if (m_end == nullptr) {
      m_lanes[0].step();
      return;
    }
    m_turn ^= 1;
    if (m_turn == 0) {
      m_lanes[0].step();
    } else if (m_second_pending) {
      m_second_pending = false;
      bag_node_base_t const* const after = first_visible(m_lanes[0].sibling->m_next, m_end);
      if (after != m_end) {
        m_lanes[1].enter(after);
        if (after->m_next != m_end) fetch_node(after->m_next);
      }
    } else {
      m_lanes[1].step();
    }
  }

 private:
  // One bag whose values are being fetched.
  struct lane_t {
    bag_node_base_t const* sibling = nullptr;  // its node in a list of bags, if known
    variant_bag_t const* bag = nullptr;
    bag_impl_base_t<variant_t> const* values = nullptr;  // null: nothing (more) to fetch
    bag_node_base_t const* node = nullptr;  // the last node fetched, null before the first

    void enter(bag_node_base_t const* bag_node) {
      enter_bag(bag_impl_base_t<variant_bag_t>::node_of(bag_node)->m_value);
      sibling = bag_node;
    }

    void enter_bag(variant_bag_t const& of) {
      sibling = nullptr;
      bag = &of;
      values = &vb_helper::impl<variant_t>(of);
      __builtin_prefetch(values);
      __builtin_prefetch(&vb_helper::impl<variant_bag_t>(of));
      node = nullptr;
    }

    void step() {
      if (values == nullptr) return;
      bag_node_base_t const* const next = node == nullptr ? values->first() : node->m_next;
      if (node != nullptr) {
        variant_t const& value = bag_impl_base_t<variant_t>::node_of(node)->m_value;
        if (void const* block = variant_buddy_t::payload(value)) {
          // Its first two lines: a text of a dozen units already reaches the second.
          __builtin_prefetch(block);
          __builtin_prefetch(static_cast<char const*>(block) + 64);
        }
      }
      if (next == values->end()) {
        values = nullptr;
        return;
      }
      fetch_node(next);
      node = next;
    }
  };

  void stop() {
    m_end = nullptr;
    m_lanes[0] = lane_t();
    m_lanes[1] = lane_t();
    m_second_pending = false;
  }

  // A node and the line after it, where its name usually starts.
  static void fetch_node(bag_node_base_t const* node) {
    __builtin_prefetch(node);
    __builtin_prefetch(reinterpret_cast<char const*>(node) + 64);
  }

  bag_node_base_t const* m_end = nullptr;  // of the list of bags; null: following, or stopped
  lane_t m_lanes[2];                       // the writer's next sibling and the one after it
  bool m_second_pending = false;           // the second lane waits for the node after the first's
  unsigned m_turn = 0;
};

}  // namespace quillon2::internal
