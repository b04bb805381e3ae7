// Small descriptor helpers of the process layer's POSIX side.
#pragma once

namespace quillon2::process::internal {

// Moves a descriptor to a number of 3 or more, close-on-exec, closing the original.
// Descriptors 0 to 2 are left to the standard streams even when this process runs with
// them closed: a pipe end there would be taken for a standard stream of the next child.
// Returns the new descriptor, or -1 (the original is closed either way).
int move_above_standard(int fd);

}  // namespace quillon2::process::internal
