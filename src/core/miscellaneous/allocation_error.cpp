// The report of a failed pool allocation.
#include <string>

#include <quillon2/core/check.hpp>
#include <quillon2/core/pool_allocator.hpp>

namespace quillon2::alloc {

void reportAllocationError(u64_t size) {
  // The failed check of the unconditional alert, which never holds: it logs, asserts
  // when so configured, and raises the error on this thread. Its result has nowhere to
  // go, since the caller throws std::bad_alloc on.
  std::string const message = "Failed memory allocation, alloc_size=" + std::to_string(size);
  QUILLON2_CHECK_FAILED("ql2::internal::unconditional_alert()",
                        "error::FailedTo.Get.Enough.Memory(message)",
                        error::FailedTo.Get.Enough.Memory(message));
}

}  // namespace quillon2::alloc
