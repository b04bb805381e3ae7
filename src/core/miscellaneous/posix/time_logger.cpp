// The scope timer's line: "<message> <nanoseconds>\n", one write to standard error.
#include <quillon2/core/time_logger.hpp>

#include <cstdint>
#include <string>

#include <quillon2/headers/kesmet.hpp>

#include "core/miscellaneous/include/posix_io.hpp"

namespace quillon2::debugging {

time_logger_t::time_logger_t(std::wstring const& message)
    : m_start(std::chrono::steady_clock::now()), m_message(message) {}

time_logger_t::time_logger_t(char const* message) : m_start(std::chrono::steady_clock::now()) {
  if (message == nullptr) return;
  std::string const text(message);
  m_message = text == "-1" ? std::wstring(L"?") : kesmet2::utf8_to_utf16(text);
}

time_logger_t::~time_logger_t() {
  auto const elapsed = std::chrono::duration_cast<std::chrono::nanoseconds>(
                           std::chrono::steady_clock::now() - m_start)
                           .count();
  // std::to_wstring of an integer doesn't depend on the locale.
  debug_print(m_message + L" " + std::to_wstring(static_cast<std::int64_t>(elapsed)));
}

void time_logger_t::debug_print(std::wstring const& text) {
  std::string line = kesmet2::utf16_to_utf8(text);
  line += '\n';
  internal::posix::write_all(2, line.data(), line.size());
}

}  // namespace quillon2::debugging
