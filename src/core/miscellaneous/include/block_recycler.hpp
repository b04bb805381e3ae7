// Blocks of one size for objects that one thread makes and another destroys, as when a
// producer hands work to a pool of workers.
//
// The heap serves such a pattern badly: the producer never finds the blocks it made in
// its own cache, and every block that a worker returns goes back to the producer's heap
// under that heap's lock, which the producer holds for its own allocations meanwhile.
// Here each thread keeps the blocks it returned in a list of its own, a thread that has
// returned many hands a batch of them to a depot shared by all threads, and a thread
// that runs out takes a whole batch from there: one short lock per batch instead of one
// per block on either side. The depot keeps a bounded number of batches and returns the
// rest to the heap; a thread's list goes to the depot when the thread ends.
//
// Built with AddressSanitizer, every block comes from the heap and goes back to it, so
// that a use after the end of its object is still caught.
#pragma once

#include <cstddef>
#include <vector>

#include <quillon2/core/threading/spin_lock.hpp>

namespace quillon2::internal {

class block_recycler_t {
 public:
  // Blocks of `size` bytes, aligned like ::operator new's. A process has at most
  // max_recyclers of these; each lives as long as the process.
  explicit block_recycler_t(std::size_t size);
  block_recycler_t(block_recycler_t const&) = delete;
  block_recycler_t& operator=(block_recycler_t const&) = delete;

  // Throws std::bad_alloc when the heap has no block to give.
  void* allocate();
  // `block` came from allocate of this recycler; null is ignored.
  void deallocate(void* block) noexcept;

  static constexpr unsigned max_recyclers = 4;
  static constexpr unsigned batch_size = 32;
  static constexpr std::size_t max_depot_batches = 64;

  struct free_block_t {
    free_block_t* next;
  };
  // The blocks one thread returned; given to the depot when the thread ends.
  struct cache_t {
    block_recycler_t* owner = nullptr;
    free_block_t* head = nullptr;
    unsigned count = 0;
    bool ended = false;  // blocks returned later on go straight back to the heap
    ~cache_t();
  };

 private:
  cache_t& local() noexcept;
  // A chain of batch_size blocks, or null when the depot is empty.
  free_block_t* take_batch() noexcept;
  // Keeps the chain of `count` blocks in the depot, or frees it when the depot is full.
  void give_batch(free_block_t* chain, unsigned count) noexcept;
  void free_chain(free_block_t* chain) noexcept;

  std::size_t const m_size;
  unsigned const m_index;
  threading::spin_lock_t m_depot_lock;
  std::vector<free_block_t*> m_depot;  // full batches; storage reserved up front
};

}  // namespace quillon2::internal
