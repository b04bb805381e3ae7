// Assertions that report and return. The library's code goes on behind every
// assertion, so an asserted condition always has its fallback as well.
//
// A failed assertion writes one report to standard error:
//   <file>(<line>): <function>: assertion failed: <condition>
// and returns. When the environment variable QUILLON_ASSERT_ABORT is "1" at the first
// report of the process (it is read then, once), the process aborts after writing it.
// A hook set with quillon2::internal::set_assert_hook receives the report instead of
// standard error (tests count and inspect reports this way); the abort rule still holds.
#pragma once

#include <quillon2/export.hpp>
#include <quillon2/headers/kesmet.hpp>

// Reports `cond` with its source position when it is false, then goes on.
#define QUILLON_ASSERT(cond)                                                             \
  (static_cast<bool>(cond)                                                               \
       ? static_cast<void>(0)                                                            \
       : ::KESMET_2_18::debug::_private::____________________ASSERT____________________( \
             #cond, __FILE__, __LINE__, __func__))

namespace quillon2::internal {

using assert_hook_t = void (*)(char const* condition, char const* file, unsigned line,
                               char const* function);

// Sets the hook that receives assertion reports (null restores the report on standard
// error) and returns the previous one. The hook may be called from any thread.
QUILLON2_API assert_hook_t set_assert_hook(assert_hook_t hook);

}  // namespace quillon2::internal
