// The library's one reader of decimal floating-point text: exact (correctly rounded),
// independent of the locale, and with an answer for numbers beyond the range of the type.
// The text layer's str_to_double, which follows a locale's decimal point and grouping,
// is the other way in and stays separate.
#pragma once

#include <charconv>
#include <limits>
#include <system_error>

namespace quillon2::internal {

// Whether a number that from_chars found out of range is too large rather than too
// small: the decimal exponent of its first significant digit tells.
inline bool decimal_beyond_range_is_large(char const* first, char const* last) {
  long exponent10 = 0;
  bool seen_point = false;
  bool seen_digit = false;
  char const* p = first;
  if (p != last && *p == '-') ++p;
  for (; p != last; ++p) {
    if (*p == '.') {
      seen_point = true;
    } else if (*p >= '0' && *p <= '9') {
      if (*p != '0' && !seen_digit) seen_digit = true;
      if (seen_digit && !seen_point) ++exponent10;
      if (!seen_digit && seen_point) --exponent10;
    } else {
      break;
    }
  }
  if (p != last && (*p == 'e' || *p == 'E')) {
    ++p;
    bool negative = false;
    if (p != last && (*p == '+' || *p == '-')) negative = *p++ == '-';
    long e = 0;
    for (; p != last && *p >= '0' && *p <= '9'; ++p) {
      if (e < 100000000) e = e * 10 + (*p - '0');
    }
    exponent10 += negative ? -e : e;
  }
  return exponent10 > 0;
}

// Reads a number at `first` as from_chars does (an optional '-', no '+', no spaces). A
// number beyond the range of Float reads as infinity, one below its smallest value as
// zero, each with its sign, and counts as read (ec is std::errc()).
template <class Float>
std::from_chars_result read_decimal(char const* first, char const* last, Float& value) {
  std::from_chars_result result = std::from_chars(first, last, value, std::chars_format::general);
  if (result.ec == std::errc::result_out_of_range) {
    bool const negative = first != last && *first == '-';
    Float const magnitude = decimal_beyond_range_is_large(first, last)
                                ? std::numeric_limits<Float>::infinity()
                                : Float(0);
    value = negative ? -magnitude : magnitude;
    result.ec = std::errc();
  }
  return result;
}

}  // namespace quillon2::internal
