// A scope timer for developers: constructed with a message at the top of a block, it
// prints "<message> <elapsed nanoseconds>" when it is destroyed. The line goes to standard
// error in one write, as UTF-8, so lines from several threads never interleave. A timer
// that exists prints; there is no switch. An object belongs to one thread.
#pragma once

#include <chrono>
#include <string>

#include <quillon2/export.hpp>

namespace quillon2::debugging {

class QUILLON2_API time_logger_t {
 public:
  explicit time_logger_t(std::wstring const& message);
  // UTF-8 text; a null pointer gives an empty text and "-1" becomes "?".
  explicit time_logger_t(char const* message);
  // A copy keeps the running time and the text and prints a line of its own.
  time_logger_t(time_logger_t const& other) = default;
  time_logger_t& operator=(time_logger_t const& other) = default;
  ~time_logger_t();

 protected:
  // Writes the text and a line feed to standard error.
  void debug_print(std::wstring const& text);

 private:
  std::chrono::steady_clock::time_point m_start;
  std::wstring m_message;
};

}  // namespace quillon2::debugging
