// The process-wide page pool behind alloc::pool_allocate and alloc::pool_deallocate.
//
// Layout. A page starts with a page_header_t and is followed by the blocks cut from it.
// Every block starts at an 8-byte aligned address, and the 4 bytes in front of it hold
// the block's distance from the page's start: that record is how a returned block finds
// its page. Block sizes are not stored; the caller passes the size back.
//
// Pages form a list from the current page (the newest, where blocks are cut) through
// next_page to the oldest. A page other than the current one goes back to the heap when
// its last live block comes back; the current page is reset and used again instead.
//
// Reuse. A block freed right after it was cut moves free_position back (stack-like
// return). Any other freed block is remembered in the 5-entry cache of its page, and
// pool_allocate takes it back only for a request of exactly the same size, and only
// from the current page's cache. A freed block that finds the cache full stays unused
// until its page goes.
//
// Locking. One spin lock (the library's threading::spin_lock_t) guards every field,
// page and cache entry. The heap is called with the lock held only to get a new page;
// pages are returned to the heap after the lock is released.
//
// Lifetime. The pool is a constant-initialised global without a destructor: it is
// usable before any static initialiser runs, in the library or in a client. Its pages are
// never returned: threads that outlive main (the readers of a dropped child process, a
// client's own detached threads) may still use counted objects while the process exits,
// and the system takes the pages back with the process.
#include <atomic>
#include <cstdint>
#include <cstring>
#include <new>

#include <quillon2/core/assert.hpp>
#include <quillon2/core/pool_allocator.hpp>
#include <quillon2/core/threading/spin_lock.hpp>

#define Q2_LIKELY(x) __builtin_expect(!!(x), 1)
#define Q2_UNLIKELY(x) __builtin_expect(!!(x), 0)

namespace quillon2::internal {
namespace {

struct page_header_t {
  page_header_t* next_page;  // the next older page
  page_header_t* prev_page;  // the next newer page; null for the current page
  std::uint32_t live_blocks;
  struct cache_entry_t {
    std::uint64_t size;  // 0 marks an empty entry
    char* block;
  } free_cache[5];
};

class memory_pool_t {
 public:
  constexpr memory_pool_t() noexcept = default;
  memory_pool_t(memory_pool_t const&) = delete;
  memory_pool_t& operator=(memory_pool_t const&) = delete;

  // Frees every page, whatever lives in it, and leaves the pool empty.

  inline void* allocate(std::uint64_t size);
  inline void deallocate(char* block, std::uint64_t size) noexcept;

 private:
  // The room in front of each block for its distance from the page's start.
  static constexpr std::uint64_t block_header_size = 4;
  static constexpr std::uint64_t page_size = 0x80000;
  // The room that aligning a block to 8 bytes can take.
  static constexpr std::uint64_t alignment_slack = 7;
  // Requests above this fail with std::bad_alloc without asking the heap; no machine
  // this runs on can serve them, and bounding them keeps the size arithmetic exact.
  static constexpr std::uint64_t max_request = (std::uint64_t{1} << 40) - page_size;

  void lock() noexcept { m_lock.lock(); }
  void unlock() noexcept { m_lock.unlock(); }

  static char* first_byte(page_header_t* page) noexcept {
    return reinterpret_cast<char*>(page) + sizeof(page_header_t);
  }
  // Cuts a block of `size` bytes at free_position of the current page.
  inline char* cut_block(page_header_t* page, std::uint64_t size) noexcept;
  // Called with the lock held; releases it on every way out.
  [[gnu::noinline]] void* allocate_on_new_page(std::uint64_t size);
  // Takes an empty page out of the list; returns the page for the caller to free
  // once the lock is released.
  [[gnu::noinline]] void unlink_page(page_header_t* page) noexcept;

  page_header_t* m_current_page = nullptr;
  char* m_free_position = nullptr;
  // How many cache entries of the current page are taken: the common case of an empty
  // cache skips the search.
  std::uint64_t m_cached_in_current = 0;
  // The lock keeps an 8-byte word of its own: a load from the same word as the lock
  // measurably waits for the exchange that took it.
  alignas(8) threading::spin_lock_t m_lock;
};

inline char* memory_pool_t::cut_block(page_header_t* page, std::uint64_t size) noexcept {
  auto const position = reinterpret_cast<std::uintptr_t>(m_free_position);
  char* block = reinterpret_cast<char*>((position + block_header_size + alignment_slack) &
                                        ~std::uintptr_t{alignment_slack});
  m_free_position = block + size;
  auto const offset = static_cast<std::uint32_t>(block - reinterpret_cast<char*>(page));
  std::memcpy(block - block_header_size, &offset, sizeof offset);
  ++page->live_blocks;
  return block;
}

inline void* memory_pool_t::allocate(std::uint64_t size) {
  lock();
  page_header_t* page = m_current_page;
  if (Q2_LIKELY(page != nullptr)) {
    if (m_cached_in_current != 0) {
      for (auto& entry : page->free_cache) {
        if (entry.size == size) {
          entry.size = 0;
          --m_cached_in_current;
          ++page->live_blocks;
          char* block = entry.block;
          unlock();
          return block;
        }
      }
    }
    auto const used = static_cast<std::uint64_t>(m_free_position - reinterpret_cast<char*>(page));
    // The first test keeps the sum below from overflowing.
    if (Q2_LIKELY(size <= page_size &&
                  used + block_header_size + size + alignment_slack <= page_size)) {
      char* block = cut_block(page, size);
      unlock();
      return block;
    }
  }
  return allocate_on_new_page(size);
}

void* memory_pool_t::allocate_on_new_page(std::uint64_t size) {
  void* memory;
  try {
    if (size > max_request) throw std::bad_alloc();
    std::uint64_t const needed = block_header_size + size + sizeof(page_header_t) + alignment_slack;
    memory = ::operator new(needed > page_size ? needed : page_size);
  } catch (std::bad_alloc const&) {
    unlock();
    alloc::reportAllocationError(size);
    throw;
  } catch (...) {
    unlock();
    throw;
  }
  auto* page = static_cast<page_header_t*>(memory);
  page->next_page = m_current_page;
  page->prev_page = nullptr;
  page->live_blocks = 0;
  for (auto& entry : page->free_cache) entry = {0, nullptr};
  if (m_current_page != nullptr) m_current_page->prev_page = page;
  m_current_page = page;
  m_free_position = first_byte(page);
  m_cached_in_current = 0;
  char* block = cut_block(page, size);
  unlock();
  return block;
}

inline void memory_pool_t::deallocate(char* block, std::uint64_t size) noexcept {
  std::uint32_t offset;
  std::memcpy(&offset, block - block_header_size, sizeof offset);
  // A record that does not place the block behind a page header and inside the page's
  // regular size cannot belong to the pool; such a pointer is ignored.
  if (Q2_UNLIKELY(offset < sizeof(page_header_t) || offset >= page_size)) return;
  auto* page = reinterpret_cast<page_header_t*>(block - offset);

  lock();
  if (Q2_UNLIKELY(--page->live_blocks == 0)) {
    if (page == m_current_page) {
      m_free_position = first_byte(page);
      for (auto& entry : page->free_cache) entry.size = 0;
      m_cached_in_current = 0;
      unlock();
    } else {
      unlink_page(page);
    }
    return;
  }
  if (Q2_LIKELY(page == m_current_page && block + size == m_free_position)) {
    m_free_position = block - block_header_size;
  } else {
    for (auto& entry : page->free_cache) {
      if (entry.size == 0) {
        entry.size = size;
        entry.block = block;
        if (page == m_current_page) ++m_cached_in_current;
        break;
      }
    }
  }
  unlock();
}

void memory_pool_t::unlink_page(page_header_t* page) noexcept {
  page_header_t* const prev_page = page->prev_page;
  page_header_t* const next_page = page->next_page;
  if (prev_page != nullptr) prev_page->next_page = next_page;
  if (next_page != nullptr) next_page->prev_page = prev_page;
  unlock();
  // Every page but the current one has a newer neighbour.
  QUILLON_ASSERT(prev_page);
  ::operator delete(page);
}

memory_pool_t the_pool;

}  // namespace
}  // namespace quillon2::internal

namespace quillon2::alloc {

[[gnu::hot]] void* pool_allocate(u64_t size) {
  // An empty cache entry is marked by size 0, so a request for 0 bytes is served as 1.
  return internal::the_pool.allocate(size + (size == 0));
}

[[gnu::hot]] void pool_deallocate(void* block, u64_t size) noexcept {
  if (block == nullptr) return;
  internal::the_pool.deallocate(static_cast<char*>(block), size + (size == 0));
}

}  // namespace quillon2::alloc
