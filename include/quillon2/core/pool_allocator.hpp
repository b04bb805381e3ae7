// The process-wide pool that small counted objects take their memory from.
//
// The pool cuts 8-byte aligned blocks from pages of 512 KiB and keeps only a 4-byte
// record in front of each block, so the caller hands the block's size back when it
// returns the block. It is safe to use from any thread: a spin lock guards it, held
// only for a pointer bump or a short list update. A page goes back to the heap as soon
// as its last block comes back, and every page goes when the library is unloaded, so
// no block may outlive the library.
#pragma once

#include <quillon2/export.hpp>
#include <quillon2/headers/kesmet.hpp>

namespace quillon2::alloc {

// Returns a block of at least `size` bytes, aligned to 8 bytes. A size of 0 is served
// as a size of 1 (and must then be returned with the size 0 or 1). Throws std::bad_alloc,
// after reportAllocationError, when no page can be had; the pool is then unchanged.
QUILLON2_API void* pool_allocate(u64_t size);

// Returns a block to the pool. `size` must be the value that pool_allocate received.
// A null block is accepted and ignored, and so is a pointer whose record does not lie
// inside a page.
QUILLON2_API void pool_deallocate(void* block, u64_t size) noexcept;

// Reports a failed allocation of `size` bytes through the library's failure check.
QUILLON2_API void reportAllocationError(u64_t size);

}  // namespace quillon2::alloc
