// Raising errors with their source position, and the failure check.
//
//   return QUILLON_RAISE(error::FailedTo.Open.The.File(name));
//   return QUILLON_TRANSLATE(ec, error::FailedTo.Read.The.Archive());
//   QUILLON_CHECK(path.is_exists(), error::IsNot.Valid.Path(path.as_string()));
//
// Each stores the qualified name of the enclosing function ("quillon2::open_archive"),
// the source file and the line with the error. A failed QUILLON_CHECK logs the condition
// and the error at level ERROR on the "QUILLON" logger, asserts as well when the
// environment variable QUILLON_ERROR_HANDLING contains "assert", raises the error and
// returns it from the enclosing function; QUILLON_CHECK_THROW throws it as a
// quillon2::exception instead, for constructors.
//
// QUILLON_ERROR_HANDLING is read once, at the first failed check of the process, and
// remembered for the rest of it.
#pragma once

#include <string>

#include <quillon2/core/error_code.hpp>
#include <quillon2/export.hpp>

namespace quillon2::internal {

// The condition of a check that has none: it always fails.
constexpr bool unconditional_alert() noexcept { return false; }

// "ns::cls::fn" from a compiler's decorated signature such as "int ns::cls::fn(int) const":
// the return type, the parameters, the qualifiers and any "[with T = ...]" go. The text
// lives for the whole process; a signature it cannot take apart comes back unchanged.
QUILLON2_API char const* qualified_function_name(char const* signature) noexcept;

// Whether the error-handling variable of a logger ("<logger>_ERROR_HANDLING") asks for
// assertions, i.e. contains "assert". Read afresh on every call.
QUILLON2_API bool read_error_handling_setting(char const* logger_name);

// The text a failed check logs and asserts:
//   <condition> '<expression>:<text>'\n<file>(<line>): <function>\n
QUILLON2_API std::string compose_check_message(char const* condition, char const* expression,
                                               std::string const& text, char const* file,
                                               unsigned line, char const* function);

// The work of a failed check: log, assert when `assert_too`, then raise `code`.
QUILLON2_API error::code_t const* check_failed(char const* condition, char const* expression,
                                               error::code_t const& code, char const* function,
                                               char const* file, unsigned line, bool assert_too);

// Whether a failed check asserts: QUILLON_ERROR_HANDLING as it was at the first call.
QUILLON2_API bool failed_checks_assert() noexcept;

}  // namespace quillon2::internal

namespace quillon2 {
// The short name inside the library's namespace; a client who wants it everywhere
// defines QUILLON2_GLOBAL_ALIAS.
namespace ql2 = ::quillon2;
}  // namespace quillon2
#ifdef QUILLON2_GLOBAL_ALIAS
namespace ql2 = ::quillon2;
#endif

// The qualified name of the enclosing function, worked out once for each place it is
// used and kept for the life of the process.
#define QUILLON_FUNCTION_NAME                                              \
  ([](char const* quillon2_signature) noexcept -> char const* {            \
    static char const* const quillon2_name =                               \
        ::quillon2::internal::qualified_function_name(quillon2_signature); \
    return quillon2_name;                                                  \
  }(__PRETTY_FUNCTION__))

#define QUILLON_RAISE(code) \
  ::quillon2::error_code_t::raise((code), QUILLON_FUNCTION_NAME, __FILE__, __LINE__)

#define QUILLON_TRANSLATE(previous, code) \
  (previous).translate((code), QUILLON_FUNCTION_NAME, __FILE__, __LINE__)

// The shared body of the two checks. They pass the condition and the error expression
// already turned into text, so that the texts show them as written, before any macro
// inside them is expanded.
#define QUILLON2_CHECK_FAILED(condition_text, expression_text, error_expression)          \
  ::quillon2::internal::check_failed(condition_text, expression_text, (error_expression), \
                                     QUILLON_FUNCTION_NAME, __FILE__, __LINE__,           \
                                     ::quillon2::internal::failed_checks_assert())

#define QUILLON_CHECK(condition, error_expression)                                   \
  do {                                                                               \
    if (!(condition)) {                                                              \
      return QUILLON2_CHECK_FAILED(#condition, #error_expression, error_expression); \
    }                                                                                \
  } while (false)

#define QUILLON_CHECK_THROW(condition, error_expression)                           \
  do {                                                                             \
    if (!(condition)) {                                                            \
      throw ::quillon2::exception(                                                 \
          QUILLON2_CHECK_FAILED(#condition, #error_expression, error_expression)); \
    }                                                                              \
  } while (false)
