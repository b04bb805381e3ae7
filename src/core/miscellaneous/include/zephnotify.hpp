// The process-wide switch of the tracing annotations (see enable_zephnotify).
#pragma once

namespace quillon2::internal {

// True once enable_zephnotify has been called; it is never switched off.
bool zephnotify_enabled() noexcept;

}  // namespace quillon2::internal
