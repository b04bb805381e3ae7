// The failure check behind QUILLON_CHECK: compose the message, log it, assert when the
// error-handling variable asks for it, and raise the error.
//
// Logging and assertion have no way to report their own failure; whatever goes wrong in
// them is dropped, and the error is raised all the same.
#include <string>

#include <quillon2/core/check.hpp>
#include <quillon2/core/environ.hpp>
#include <quillon2/headers/kesmet.hpp>

#include "core/miscellaneous/include/logging.hpp"

namespace quillon2::internal {
namespace {

std::string text_of(char const* text) { return text != nullptr ? text : ""; }

}  // namespace

bool read_error_handling_setting(char const* logger_name) {
  std::wstring name = KESMET_2_18::strings::utf8_to_utf16(text_of(logger_name));
  name += L"_ERROR_HANDLING";
  return get_environ_value(name).find(L"assert") != std::wstring::npos;
}

bool failed_checks_assert() noexcept {
  // Read once: the environment may be changed by another thread at any time after.
  static bool const assert_too = [] {
    try {
      return read_error_handling_setting("QUILLON");
    } catch (...) {
      return false;
    }
  }();
  return assert_too;
}

std::string compose_check_message(char const* condition, char const* expression,
                                  std::string const& text, char const* file, unsigned line,
                                  char const* function) {
  // The text goes through the wide form and back, as every text shown to a user does, so
  // that a malformed byte sequence shows up as U+FFFD rather than as raw bytes.
  std::string detail = text_of(expression);
  detail += ':';
  detail += KESMET_2_18::strings::utf16_to_utf8(KESMET_2_18::strings::utf8_to_utf16(text));

  std::string message = text_of(condition);
  if (!detail.empty()) {
    message += " '";
    message += detail;
    message += '\'';
  }
  message += '\n';
  message += text_of(file);
  message += '(';
  message += std::to_string(line);
  message += "): ";
  message += text_of(function);
  message += '\n';
  return message;
}

error::code_t const* check_failed(char const* condition, char const* expression,
                                  error::code_t const& code, char const* function, char const* file,
                                  unsigned line, bool assert_too) {
  try {
    std::string const message =
        compose_check_message(condition, expression, code.text, file, line, function);
    log4cplus::Logger& logger = main_logger();
    if (logger.isEnabledFor(log_error)) {
      std::string logged = message;
      logged += ", at file: ";
      logged += text_of(file);
      logged += ':';
      logged += std::to_string(line);
      forced_log(logger, log_error, KESMET_2_18::strings::utf8_to_utf16(logged), file,
                 static_cast<int>(line));
    }
    if (assert_too) {
      KESMET_2_18::debug::_private::____________________ASSERT____________________(
          message.c_str(), file, line, function);
    }
  } catch (...) {
    // Nothing to report to: the raised error below is what the caller sees.
  }
  return error_code_t::raise(code, function, file, line);
}

}  // namespace quillon2::internal
