// The assertion function: reports on standard error (or to the test hook) and
// returns, unless QUILLON_ASSERT_ABORT=1 asks for an abort.
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include <quillon2/core/assert.hpp>

namespace quillon2::internal {

namespace {
std::atomic<assert_hook_t> g_assert_hook{nullptr};
}

assert_hook_t set_assert_hook(assert_hook_t hook) { return g_assert_hook.exchange(hook); }

}  // namespace quillon2::internal

namespace KESMET_2_18::debug::_private {

void ____________________ASSERT____________________(char const* condition, char const* file,
                                                    unsigned line, char const* function) {
  if (condition == nullptr) condition = "";
  if (file == nullptr) file = "?";
  if (function == nullptr) function = "?";
  if (auto const hook = quillon2::internal::g_assert_hook.load()) {
    hook(condition, file, line, function);
  } else {
    std::string report;
    report.reserve(64 + std::strlen(condition) + std::strlen(file) + std::strlen(function));
    report.append(file).append("(").append(std::to_string(line)).append("): ");
    report.append(function).append(": assertion failed: ").append(condition).append("\n");
    std::fwrite(report.data(), 1, report.size(), stderr);
    std::fflush(stderr);
  }
  // Read once, at the first report: the environment may be changed by another thread at
  // any time after.
  static bool const abort_too = [] {
    char const* setting = std::getenv("QUILLON_ASSERT_ABORT");
    return setting != nullptr && std::strcmp(setting, "1") == 0;
  }();
  if (abort_too) std::abort();
}

}  // namespace KESMET_2_18::debug::_private
