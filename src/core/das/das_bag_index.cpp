// The name index of a bag's list: an open-addressing hash table of the first node of
// each name, with the nodes of one name chained in list order.
#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <new>

#include "core/das/include/bag_impl.hpp"

namespace quillon2 {
namespace internal {

namespace {
wchar_t g_index_no_name[1] = {0};
}  // namespace

// Names are hashed two characters (one 64-bit word) per multiplication; an odd last
// character counts as a pair with a zero. The terminated and the counted forms agree.
namespace {

constexpr std::uint64_t hash_seed = 0x9e3779b97f4a7c15ull;
constexpr std::uint64_t hash_step = 0xbf58476d1ce4e5b9ull;

inline std::uint64_t hash_pair(std::uint64_t h, wchar_t first, wchar_t second) {
  std::uint64_t const word = static_cast<std::uint32_t>(first) |
                             (std::uint64_t{static_cast<std::uint32_t>(second)} << 32);
  return (h ^ word) * hash_step;
}

// The probe uses the low bits: every bit of the word reaches them.
inline std::uint32_t hash_finish(std::uint64_t h) {
  h ^= h >> 32;
  h *= 0x94d049bb133111ebull;
  h ^= h >> 29;
  return static_cast<std::uint32_t>(h);
}

// The hash and the length of a terminated name in one pass.
std::uint32_t hash_terminated(wchar_t const* name, std::size_t& length) {
  std::uint64_t h = hash_seed;
  std::size_t i = 0;
  for (;;) {
    wchar_t const first = name[i];
    if (first == 0) break;
    wchar_t const second = name[i + 1];
    h = hash_pair(h, first, second);
    if (second == 0) {
      ++i;
      break;
    }
    i += 2;
  }
  length = i;
  return hash_finish(h);
}

}  // namespace

std::uint32_t hash_name(wchar_t const* name, std::size_t length) {
  std::uint64_t h = hash_seed;
  std::size_t i = 0;
  for (; i + 2 <= length; i += 2) h = hash_pair(h, name[i], name[i + 1]);
  if (i < length) h = hash_pair(h, name[i], 0);
  return hash_finish(h);
}

bag_index_t::bag_index_t()
    : m_head(), m_size(0), m_hidden(0), m_slots(nullptr), m_mask(0), m_used(0), m_in_order(true) {
  m_head.m_prev = m_head.m_next = &m_head;
  m_head.m_name = g_index_no_name;
}

bag_index_t::~bag_index_t() { free_slots(); }

bag_slot_t* bag_index_t::find(wchar_t const* name, std::size_t length, std::uint32_t hash) const {
  if (!m_slots) return nullptr;
  for (std::uint32_t i = hash & m_mask;; i = (i + 1) & m_mask) {
    bag_slot_t* const s = &m_slots[i];
    if (!s->m_first) return nullptr;
    if (s->m_hash == hash && same_name(s->m_first, name, length)) return s;
  }
}

bag_slot_t* bag_index_t::find(wchar_t const* name) const {
  if (!name || !m_slots) return nullptr;
  std::size_t length = 0;
  std::uint32_t const hash = hash_terminated(name, length);
  return find(name, length, hash);
}

void bag_index_t::grow(std::uint32_t capacity) {
  std::uint32_t const old_capacity = m_slots ? m_mask + 1 : 0;
  // The slots in place are refilled below: their entries move out first.
  bag_slot_t saved[inline_slots];
  bag_slot_t* old = m_slots;
  if (old == m_inline) {
    std::copy(m_inline, m_inline + old_capacity, saved);
    old = saved;
  }
  if (capacity <= inline_slots) {
    for (std::uint32_t i = 0; i < capacity; ++i) m_inline[i] = bag_slot_t{};
    m_slots = m_inline;
  } else {
    m_slots = new bag_slot_t[capacity]();
  }
  m_mask = capacity - 1;
  for (std::uint32_t i = 0; i < old_capacity; ++i) {
    if (!old[i].m_first) continue;
    std::uint32_t j = old[i].m_hash & m_mask;
    while (m_slots[j].m_first) j = (j + 1) & m_mask;
    m_slots[j] = old[i];
  }
  if (old != saved) delete[] old;
}

void bag_index_t::reserve(u64_t names) {
  std::uint64_t capacity = m_slots ? m_mask + 1 : 0;
  std::uint64_t wanted = capacity ? capacity : inline_slots;
  while (names * 4 > wanted * 3) wanted *= 2;
  if (wanted > capacity) grow(static_cast<std::uint32_t>(wanted));
}

void bag_index_t::chain_append(bag_node_base_t* node) {
  node->m_next_same = nullptr;
  if (bag_slot_t* s = find(node->m_name, node->m_length, node->m_hash)) {
    s->m_last->m_next_same = node;
    s->m_last = node;
    ++s->m_count;
    return;
  }
  new_slot(node);
}

void bag_index_t::new_slot(bag_node_base_t* node) {
  reserve(std::uint64_t(m_used) + 1);
  std::uint32_t i = node->m_hash & m_mask;
  while (m_slots[i].m_first) i = (i + 1) & m_mask;
  m_slots[i] = bag_slot_t{node, node, 1, node->m_hash};
  ++m_used;
}

void bag_index_t::erase_slot(bag_slot_t* slot) {
  // Backward-shift deletion keeps every probe sequence unbroken without tombstones.
  std::uint32_t i = static_cast<std::uint32_t>(slot - m_slots);
  std::uint32_t j = i;
  for (;;) {
    j = (j + 1) & m_mask;
    if (!m_slots[j].m_first) break;
    std::uint32_t const home = m_slots[j].m_hash & m_mask;
    bool const movable = (i <= j) ? (home <= i || home > j) : (home <= i && home > j);
    if (movable) {
      m_slots[i] = m_slots[j];
      i = j;
    }
  }
  m_slots[i] = bag_slot_t{};
  --m_used;
}

void bag_index_t::chain_remove(bag_node_base_t* node) {
  bag_slot_t* const s = find(node->m_name, node->m_length, node->m_hash);
  if (!s) return;
  bag_node_base_t* prev = nullptr;
  for (bag_node_base_t* n = s->m_first; n && n != node; n = n->m_next_same) prev = n;
  if (prev) {
    prev->m_next_same = node->m_next_same;
  } else {
    s->m_first = node->m_next_same;
  }
  if (s->m_last == node) s->m_last = prev;
  node->m_next_same = nullptr;
  if (--s->m_count == 0) erase_slot(s);
}

void bag_index_t::link_back(bag_node_base_t* node) {
  chain_append(node);
  list_append(node);
}

void bag_index_t::link_back_new(bag_node_base_t* node) {
  node->m_next_same = nullptr;
  new_slot(node);
  list_append(node);
}

void bag_index_t::list_append(bag_node_base_t* node) {
  node->m_prev = m_head.m_prev;
  node->m_next = &m_head;
  m_head.m_prev->m_next = node;
  m_head.m_prev = node;
  ++m_size;
  if (node->m_hidden) ++m_hidden;
}

void bag_index_t::unlink(bag_node_base_t* node) {
  chain_remove(node);
  node->m_prev->m_next = node->m_next;
  node->m_next->m_prev = node->m_prev;
  node->m_prev = node->m_next = nullptr;
  --m_size;
  if (node->m_hidden) --m_hidden;
}

void bag_index_t::set_name(bag_node_base_t* node, wchar_t const* name, std::size_t length) {
  if (length > node->m_capacity) {
    auto* text = new wchar_t[length + 1];
    if (node->m_name_on_heap) delete[] node->m_name;
    node->m_name = text;
    node->m_name_on_heap = true;
    node->m_capacity = static_cast<std::uint32_t>(length);
  }
  std::wmemmove(node->m_name, name, length);
  node->m_name[length] = 0;
  node->m_hidden = is_hidden_name(node->m_name);
  node->m_length = static_cast<std::uint32_t>(length);
  node->m_hash = hash_name(node->m_name, length);
}

void bag_index_t::rename(bag_node_base_t* node, wchar_t const* name) {
  chain_remove(node);
  if (node->m_hidden) --m_hidden;
  set_name(node, name, std::wcslen(name));
  if (node->m_hidden) ++m_hidden;
  if (find(node->m_name, node->m_length, node->m_hash)) m_in_order = false;
  chain_append(node);
}

void bag_index_t::rebuild_index() {
  if (m_slots) {
    for (std::uint32_t i = 0; i <= m_mask; ++i) m_slots[i] = bag_slot_t{};
  }
  m_used = 0;
  for (bag_node_base_t* n = m_head.m_next; n != &m_head; n = n->m_next) chain_append(n);
  m_in_order = true;
}

void bag_index_t::reset() {
  m_head.m_prev = m_head.m_next = &m_head;
  m_size = 0;
  m_hidden = 0;
  free_slots();
  m_slots = nullptr;
  m_mask = 0;
  m_used = 0;
  m_in_order = true;
}

namespace {

// Slabs are aligned to their size, so a node finds its slab's header from its own address.
constexpr std::size_t slab_bytes = std::size_t{1} << 16;
constexpr std::size_t node_alignment = alignof(std::max_align_t);

struct slab_header_t {
  std::atomic<std::size_t> m_live;
};
constexpr std::size_t slab_header_bytes =
    (sizeof(slab_header_t) + node_alignment - 1) / node_alignment * node_alignment;

// The count of a slab that an arena fills: more than the nodes that fit in it.
constexpr std::size_t arena_reserve = slab_bytes;
static_assert(slab_bytes / node_alignment < arena_reserve,
              "the reserve outnumbers any slab's nodes");

// Takes `count` from the slab's count; frees the slab when nothing is left.
void release_slab(char* slab, std::size_t count) noexcept {
  auto* const header = reinterpret_cast<slab_header_t*>(slab);
  if (header->m_live.fetch_sub(count, std::memory_order_acq_rel) == count) {
    header->~slab_header_t();
    std::free(slab);
  }
}

}  // namespace

node_arena_t::~node_arena_t() { leave_slab(); }

void node_arena_t::leave_slab() noexcept {
  if (m_slab) release_slab(m_slab, arena_reserve - m_handed);
  m_slab = nullptr;
}

void* node_arena_t::allocate(std::size_t bytes) {
  bytes = (bytes + node_alignment - 1) / node_alignment * node_alignment;
  if (bytes > slab_bytes - slab_header_bytes) return nullptr;
  if (static_cast<std::size_t>(m_end - m_next) < bytes) {
    char* const slab = static_cast<char*>(std::aligned_alloc(slab_bytes, slab_bytes));
    if (!slab) throw std::bad_alloc();
    new (slab) slab_header_t{arena_reserve};
    leave_slab();
    m_slab = slab;
    m_next = slab + slab_header_bytes;
    m_end = slab + slab_bytes;
    m_handed = 0;
  }
  ++m_handed;
  void* const node = m_next;
  m_next += bytes;
  return node;
}

void release_arena_node(void* node) noexcept {
  auto const address = reinterpret_cast<std::uintptr_t>(node);
  release_slab(reinterpret_cast<char*>(address & ~(slab_bytes - 1)), 1);
}

bag_node_base_t* bag_next_same(bag_node_base_t const* node, bag_node_base_t const* end) {
  bag_index_t const* const index = index_of(end);
  if (index->in_order()) {
    return node->m_next_same ? node->m_next_same : const_cast<bag_node_base_t*>(end);
  }
  bag_node_base_t* n = node->m_next;
  while (n != end && !(n->m_hash == node->m_hash && same_name(n, node->m_name, node->m_length)))
    n = n->m_next;
  return n;
}

}  // namespace internal
}  // namespace quillon2
