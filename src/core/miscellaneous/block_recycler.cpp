// block_recycler_t: per-thread lists of returned blocks and a shared depot of batches.
#include "core/miscellaneous/include/block_recycler.hpp"

#include <atomic>
#include <mutex>
#include <new>

#include <quillon2/core/assert.hpp>

#if defined(__SANITIZE_ADDRESS__)
#define Q2_RECYCLE_BLOCKS 0
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define Q2_RECYCLE_BLOCKS 0
#endif
#endif
#ifndef Q2_RECYCLE_BLOCKS
#define Q2_RECYCLE_BLOCKS 1
#endif

namespace quillon2::internal {

namespace {

std::atomic<unsigned> g_recyclers{0};

thread_local block_recycler_t::cache_t t_caches[block_recycler_t::max_recyclers];

}  // namespace

block_recycler_t::cache_t::~cache_t() {
  ended = true;
  if (owner == nullptr || head == nullptr) return;
  owner->give_batch(head, count);
  head = nullptr;
  count = 0;
}

block_recycler_t::block_recycler_t(std::size_t size)
    : m_size(size < sizeof(free_block_t) ? sizeof(free_block_t) : size),
      m_index(g_recyclers.fetch_add(1, std::memory_order_relaxed)) {
  QUILLON_ASSERT(m_index < max_recyclers);
  m_depot.reserve(max_depot_batches);
}

block_recycler_t::cache_t& block_recycler_t::local() noexcept {
  cache_t& cache = t_caches[m_index];
  cache.owner = this;
  return cache;
}

void* block_recycler_t::allocate() {
  if (!Q2_RECYCLE_BLOCKS || m_index >= max_recyclers) return ::operator new(m_size);
  cache_t& cache = local();
  if (cache.ended) return ::operator new(m_size);
  if (cache.head == nullptr) {
    cache.head = take_batch();
    if (cache.head == nullptr) return ::operator new(m_size);
    cache.count = batch_size;
  }
  free_block_t* const block = cache.head;
  cache.head = block->next;
  --cache.count;
  return block;
}

void block_recycler_t::deallocate(void* block) noexcept {
  if (block == nullptr) return;
  if (!Q2_RECYCLE_BLOCKS || m_index >= max_recyclers) {
    ::operator delete(block);
    return;
  }
  cache_t& cache = local();
  if (cache.ended) {
    ::operator delete(block);
    return;
  }
  auto* const freed = static_cast<free_block_t*>(block);
  freed->next = cache.head;
  cache.head = freed;
  if (++cache.count < 2 * batch_size) return;
  // The list keeps a batch for this thread's own next allocations and gives one away.
  free_block_t* last = cache.head;
  for (unsigned i = 1; i < batch_size; ++i) last = last->next;
  free_block_t* const batch = cache.head;
  cache.head = last->next;
  last->next = nullptr;
  cache.count -= batch_size;
  give_batch(batch, batch_size);
}

block_recycler_t::free_block_t* block_recycler_t::take_batch() noexcept {
  std::lock_guard<threading::spin_lock_t> guard(m_depot_lock);
  if (m_depot.empty()) return nullptr;
  free_block_t* const batch = m_depot.back();
  m_depot.pop_back();
  return batch;
}

void block_recycler_t::give_batch(free_block_t* chain, unsigned count) noexcept {
  if (count == batch_size) {
    std::lock_guard<threading::spin_lock_t> guard(m_depot_lock);
    if (m_depot.size() < max_depot_batches) {
      m_depot.push_back(chain);  // within the reserved storage: does not throw
      return;
    }
  }
  // A thread's short remainder, or a full depot: back to the heap.
  free_chain(chain);
}

void block_recycler_t::free_chain(free_block_t* chain) noexcept {
  while (chain != nullptr) {
    free_block_t* const next = chain->next;
    ::operator delete(chain);
    chain = next;
  }
}

}  // namespace quillon2::internal
