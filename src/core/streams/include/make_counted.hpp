// How the stream factories turn a constructor's failure into their result.
#pragma once

#include <exception>
#include <optional>
#include <string>

#include <quillon2/core/error_code.hpp>

namespace quillon2::internal {

// Sets `out` to what `make` returns. A constructor that fails throws a raised code or a
// library exception, which becomes the result; for any other exception `other` receives
// its text, and the caller raises its own error in its own name. `out` is null after a
// failure.
template <class Out, class Make>
error_code_t make_counted(Out& out, Make make, std::optional<std::string>& other) {
  try {
    out = make();
    return error_code_t();
  } catch (error::code_t const* code) {
    out = nullptr;
    return code;
  } catch (exception const& e) {
    out = nullptr;
    return e.code();
  } catch (std::exception const& e) {
    out = nullptr;
    other = e.what();
    return error_code_t();
  }
}

}  // namespace quillon2::internal
