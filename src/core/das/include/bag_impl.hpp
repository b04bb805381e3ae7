// The containers behind variant_bag_t: one kind of entries (values or child bags) as a
// circular doubly linked list in insertion order, plus an open-addressing hash index
// from name to the chain of entries of that name.
//
// The chain of a name runs in insertion order, so its first entry is the one a lookup
// answers with. A rename appends the renamed entry at the end of its new chain (as if it
// had just been added to the index); from then on the chains may disagree with the list
// order, which m_in_order records, and the name iterators walk the list instead until
// the index is rebuilt from the list.
#pragma once

#include <cstddef>
#include <cstdint>
#include <new>
#include <string>
#include <type_traits>
#include <utility>

#include <quillon2/das/variant_bag.hpp>

namespace quillon2::internal {

struct bag_slot_t {
  bag_node_base_t* m_first;
  bag_node_base_t* m_last;
  std::uint32_t m_count;
  std::uint32_t m_hash;  // the first node's, so that probing passes other names unread
};

std::uint32_t hash_name(wchar_t const* name, std::size_t length);
// Names are short: compared in place rather than through a library call.
inline bool same_name(bag_node_base_t const* node, wchar_t const* name, std::size_t length) {
  return node->m_length == length && bytes_equal(node->m_name, name, length * sizeof(wchar_t));
}
inline bool is_hidden_name(wchar_t const* name) { return name[0] == L'#'; }
// The first node from `n` on whose name is not hidden, or `end`.
inline bag_node_base_t const* first_visible(bag_node_base_t const* n, bag_node_base_t const* end) {
  while (n != end && n->m_hidden) n = n->m_next;
  return n;
}

class bag_index_t {
 public:
  bag_index_t();
  ~bag_index_t();
  bag_index_t(bag_index_t const&) = delete;
  bag_index_t& operator=(bag_index_t const&) = delete;

  bag_node_base_t* end() { return &m_head; }
  bag_node_base_t const* end() const { return &m_head; }
  bag_node_base_t* first() const { return m_head.m_next; }
  u64_t size() const { return m_size; }
  // The entries whose names are not hidden, counted without reading a name.
  u64_t visible() const { return m_size - m_hidden; }
  bool in_order() const { return m_in_order; }

  bag_slot_t* find(wchar_t const* name, std::size_t length, std::uint32_t hash) const;
  bag_slot_t* find(wchar_t const* name) const;
  // Appends a node at the end of the list and of its name's chain.
  void link_back(bag_node_base_t* node);
  // The same for a node whose name has no entry in the list: the index is not searched.
  void link_back_new(bag_node_base_t* node);
  // Takes a node out of the list and the index; the node itself is left alone.
  void unlink(bag_node_base_t* node);
  // Gives a node a new name in place, keeping its place in the list.
  void rename(bag_node_base_t* node, wchar_t const* name);
  // Makes the chains follow the list order again.
  void rebuild_index();
  void reserve(u64_t names);
  // Forgets every node (the caller frees them).
  void reset();

  static void set_name(bag_node_base_t* node, wchar_t const* name, std::size_t length);

 private:
  void chain_append(bag_node_base_t* node);
  void new_slot(bag_node_base_t* node);
  void list_append(bag_node_base_t* node);
  void chain_remove(bag_node_base_t* node);
  void erase_slot(bag_slot_t* slot);
  void grow(std::uint32_t capacity);

  // A table of up to this many slots (three names) lives in the index itself, so that
  // the many small bags need no table of their own on the heap.
  static constexpr std::uint32_t inline_slots = 4;

  void free_slots() {
    if (m_slots != m_inline) delete[] m_slots;
  }

  bag_node_base_t m_head;  // sentinel of the circular list; must stay the first member
  u64_t m_size;
  u64_t m_hidden;        // the entries among m_size whose names are hidden
  bag_slot_t* m_slots;   // m_inline, a table on the heap, or null
  std::uint32_t m_mask;  // capacity - 1; the capacity is 0 or a power of two
  std::uint32_t m_used;
  bool m_in_order;
  bag_slot_t m_inline[inline_slots];
};

// The index of the list that a sentinel belongs to.
inline bag_index_t* index_of(bag_node_base_t const* sentinel) {
  return reinterpret_cast<bag_index_t*>(const_cast<bag_node_base_t*>(sentinel));
}

// Node memory handed out from large slabs, for the readers that build a whole document at
// once: one bump of a pointer instead of a heap allocation a node, and the nodes of a
// document side by side. A slab counts its live nodes (atomically: the bag may go to
// another thread) and is freed with the last of them, once the arena has moved on from
// it or has gone. An arena belongs to one reader on one thread.
//
// While the arena fills a slab, the slab's count holds a reserve larger than any number
// of nodes that fit, and the arena counts what it hands out in a plain integer: a node
// costs no atomic operation, which would wait for the stores of the nodes before it to
// reach the cache. Nodes freed meanwhile take from the reserve; the arena gives back
// what it did not hand out when it moves on.
class node_arena_t {
 public:
  node_arena_t() = default;
  ~node_arena_t();
  node_arena_t(node_arena_t const&) = delete;
  node_arena_t& operator=(node_arena_t const&) = delete;

  // Memory for a node of `bytes`, or null when it does not fit a slab.
  void* allocate(std::size_t bytes);

 private:
  // Gives back the reserve of the slab being filled, less the nodes handed out from it.
  void leave_slab() noexcept;

  char* m_slab = nullptr;  // the slab being filled, whose count holds the arena's reserve
  char* m_next = nullptr;
  char* m_end = nullptr;
  std::size_t m_handed = 0;  // nodes handed out from m_slab
};

// Gives back the memory of a node that an arena handed out.
void release_arena_node(void* node) noexcept;

template <class T>
class bag_impl_base_t : public bag_index_t {
 public:
  using node_t = bag_node_t<T>;

  bag_impl_base_t() = default;
  ~bag_impl_base_t() { remove_all(); }

  static node_t* node_of(bag_node_base_t* n) { return static_cast<node_t*>(n); }
  static node_t const* node_of(bag_node_base_t const* n) { return static_cast<node_t const*>(n); }

  // Makes a detached node holding a copy of value; the name text follows the node.
  static node_t* make_node(wchar_t const* name, std::size_t length, std::uint32_t hash,
                           T const& value) {
    return emplace_node(name, length, hash, value);
  }

  // Makes a detached node whose value is made from `args` in place (moved in, or
  // default-constructed without arguments).
  template <class... Args>
  static node_t* emplace_node(wchar_t const* name, std::size_t length, std::uint32_t hash,
                              Args&&... args) {
    return emplace_node_in(nullptr, name, length, hash, std::forward<Args>(args)...);
  }

  // The same with the node's memory from `arena` when there is one and the node fits.
  template <class... Args>
  static node_t* emplace_node_in(node_arena_t* arena, wchar_t const* name, std::size_t length,
                                 std::uint32_t hash, Args&&... args) {
    std::size_t const bytes = sizeof(node_t) + (length + 1) * sizeof(wchar_t);
    void* raw = arena ? arena->allocate(bytes) : nullptr;
    bool const in_arena = raw != nullptr;
    if (!in_arena) raw = ::operator new(bytes);
    node_t* node;
    try {
      node = new (raw) node_t(std::in_place, std::forward<Args>(args)...);
    } catch (...) {
      if (in_arena) {
        release_arena_node(raw);
      } else {
        ::operator delete(raw);
      }
      throw;
    }
    node->m_name = reinterpret_cast<wchar_t*>(static_cast<char*>(raw) + sizeof(node_t));
    for (std::size_t i = 0; i < length; ++i) node->m_name[i] = name[i];
    node->m_name[length] = 0;
    node->m_hidden = is_hidden_name(node->m_name);
    node->m_length = static_cast<std::uint32_t>(length);
    node->m_capacity = static_cast<std::uint32_t>(length);
    node->m_hash = hash;
    node->m_name_on_heap = false;
    node->m_in_arena = in_arena;
    return node;
  }

  static void destroy_node(bag_node_base_t* n) {
    node_t* node = node_of(n);
    if (node->m_name_on_heap) delete[] node->m_name;
    bool const in_arena = node->m_in_arena;
    node->~node_t();
    if (in_arena) {
      release_arena_node(node);
    } else {
      ::operator delete(static_cast<void*>(node));
    }
  }

  node_t* append(wchar_t const* name, T const& value) {
    std::size_t const length = std::char_traits<wchar_t>::length(name);
    node_t* node = make_node(name, length, hash_name(name, length), value);
    link_back(node);
    return node;
  }

  void remove_node(bag_node_base_t* node) {
    unlink(node);
    destroy_node(node);
  }

  // Removes every entry of the name.
  void remove_name(wchar_t const* name) {
    bag_slot_t* slot = find(name);
    if (!slot) return;
    bag_node_base_t* n = slot->m_first;
    while (n) {
      bag_node_base_t* const next = n->m_next_same;
      remove_node(n);
      n = next;
    }
  }

  void remove_all() {
    bag_node_base_t* n = first();
    bag_node_base_t* const stop = end();
    reset();
    while (n != stop) {
      bag_node_base_t* const next = n->m_next;
      destroy_node(n);
      n = next;
    }
  }

  // Appends copies of all entries of other, hidden ones included, in list order.
  void append_copies(bag_impl_base_t const& other) {
    reserve(size() + other.size());
    for (bag_node_base_t* n = other.first(); n != other.end(); n = n->m_next)
      link_back(make_node(n->m_name, n->m_length, n->m_hash, node_of(n)->m_value));
  }

  // The node that holds the value at that address, or null.
  node_t* find_address(T const* value) const {
    for (bag_node_base_t* n = first(); n != end(); n = n->m_next)
      if (&node_of(n)->m_value == value) return node_of(n);
    return nullptr;
  }
};

// Both lists of a bag in one allocation, side by side: a bag costs one allocation less,
// and a walk finds both heads close together. A bag's two lists always move together
// (swap and assignment exchange both), so the pair is freed through its first member.
// The readers take the pairs of the bags they build from their node arena, like the
// nodes; such a pair keeps its slab alive by itself, whichever bag it ends up in.
struct bag_lists_t {
  bag_impl_base_t<variant_t> values;
  bag_impl_base_t<variant_bag_t> bags;
  bool in_arena = false;

  static bag_lists_t* of(bag_impl_base_t<variant_t>* values) {
    static_assert(std::is_standard_layout_v<bag_lists_t>);
    return reinterpret_cast<bag_lists_t*>(values);
  }

  // A new pair, from `arena` when there is one.
  static bag_lists_t* make(node_arena_t* arena) {
    if (void* raw = arena ? arena->allocate(sizeof(bag_lists_t)) : nullptr) {
      auto* const lists = new (raw) bag_lists_t();
      lists->in_arena = true;
      return lists;
    }
    return new bag_lists_t();
  }

  static void release(bag_lists_t* lists) noexcept {
    if (!lists->in_arena) {
      delete lists;
      return;
    }
    lists->~bag_lists_t();
    release_arena_node(lists);
  }
};

}  // namespace quillon2::internal

namespace quillon2 {

// The preconditions of add and put: a name, and a value that is not the bag itself.
template <class T>
bool variant_bag_t::check_entry(wchar_t const* name, T const& value) const {
  QUILLON_ASSERT(name != NULL);
  QUILLON_ASSERT(static_cast<const void*>(&value) != static_cast<const void*>(this));
  return name != nullptr;
}

}  // namespace quillon2
