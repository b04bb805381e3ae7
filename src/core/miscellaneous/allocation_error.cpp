// The report of a failed pool allocation.
#include <quillon2/core/pool_allocator.hpp>

#include "core/miscellaneous/include/logging.hpp"

namespace quillon2::alloc {

void reportAllocationError(u64_t size) {
  Q2_LOG(internal::main_logger(), internal::log_error,
         L"Failed memory allocation, alloc_size=" << size);
}

}  // namespace quillon2::alloc
