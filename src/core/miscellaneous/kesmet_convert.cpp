// Number parsers and writers of the text layer.
#include <cmath>
#include <limits>
#include <locale>
#include <string>
#include <type_traits>

#include <quillon2/headers/kesmet.hpp>

#include "core/miscellaneous/include/text_os.hpp"

namespace KESMET_2_18::generic::convert {

namespace {

template <typename Unit>
bool is_space(Unit c) {
  return c == ' ' || c == '\t' || c == '\n' || c == '\v' || c == '\f' || c == '\r';
}

template <typename Unit>
int digit_value(Unit c) {
  if (static_cast<unsigned>(c - '0') <= 9) return static_cast<int>(c - '0');
  if (c >= 'a' && c <= 'z') return static_cast<int>(c - 'a') + 10;
  if (c >= 'A' && c <= 'Z') return static_cast<int>(c - 'A') + 10;
  return 99;
}

// The sign and magnitude of the number in the text; false for junk. `overflow` tells
// that the magnitude does not fit 64 bits.
template <typename Unit>
bool scan_integer(Unit const* text, std::size_t length, int radix, bool prefix, bool& negative,
                  u64_t& magnitude, bool& overflow) {
  negative = false;
  magnitude = 0;
  overflow = false;
  if (text == nullptr || radix < 2 || radix > 36) return false;
  std::size_t i = 0;
  while (i < length && is_space(text[i])) ++i;
  if (i < length && (text[i] == '+' || text[i] == '-')) {
    negative = text[i] == '-';
    ++i;
  }
  if (radix == 16 && i + 2 < length && text[i] == '0' &&
      (text[i + 1] == 'x' || text[i + 1] == 'X') && digit_value(text[i + 2]) < 16)
    i += 2;
  std::size_t const first_digit = i;
  for (; i < length; ++i) {
    auto const d = static_cast<unsigned>(digit_value(text[i]));
    if (d >= static_cast<unsigned>(radix)) break;
    if (__builtin_mul_overflow(magnitude, static_cast<u64_t>(radix), &magnitude) ||
        __builtin_add_overflow(magnitude, static_cast<u64_t>(d), &magnitude))
      overflow = true;
  }
  if (i == first_digit) return false;
  if (prefix) return true;
  while (i < length && is_space(text[i])) ++i;
  return i == length;
}

template <typename T, typename Unit>
T parse(Unit const* text, std::size_t length, types::radix_t::base radix, bool prefix) {
  bool negative = false;
  bool overflow = false;
  u64_t magnitude = 0;
  if (!scan_integer(text, length, static_cast<int>(radix), prefix, negative, magnitude, overflow))
    return 0;
  if constexpr (std::is_signed_v<T>) {
    if (negative) {
      u64_t const most = static_cast<u64_t>(std::numeric_limits<T>::max()) + 1;
      if (overflow || magnitude >= most) return std::numeric_limits<T>::min();
      return static_cast<T>(-static_cast<T>(magnitude));
    }
    if (overflow || magnitude > static_cast<u64_t>(std::numeric_limits<T>::max()))
      return std::numeric_limits<T>::max();
    return static_cast<T>(magnitude);
  } else {
    if (negative) return 0;
    if (overflow || magnitude > static_cast<u64_t>(std::numeric_limits<T>::max()))
      return std::numeric_limits<T>::max();
    return static_cast<T>(magnitude);
  }
}

template <typename Unit>
Unit* write_number(unsigned long long magnitude, bool negative, Unit* buffer, int radix) {
  if (buffer == nullptr) return nullptr;
  if (radix < 2 || radix > 36) {
    buffer[0] = 0;
    return buffer;
  }
  Unit digits[72];
  int n = 0;
  do {
    int const d = static_cast<int>(magnitude % static_cast<unsigned>(radix));
    digits[n++] = static_cast<Unit>(d < 10 ? '0' + d : 'a' + d - 10);
    magnitude /= static_cast<unsigned>(radix);
  } while (magnitude != 0);
  Unit* out = buffer;
  if (negative) *out++ = '-';
  while (n > 0) *out++ = digits[--n];
  *out = 0;
  return buffer;
}

template <typename Unit, typename Signed>
Unit* write_signed(Signed value, Unit* buffer, int radix) {
  using Unsigned = std::make_unsigned_t<Signed>;
  if (radix == 10 && value < 0)
    return write_number(static_cast<unsigned long long>(Unsigned(0) - static_cast<Unsigned>(value)),
                        true, buffer, radix);
  return write_number(static_cast<unsigned long long>(static_cast<Unsigned>(value)), false, buffer,
                      radix);
}

}  // namespace

#define Q2_DEFINE_PARSER(name, type)                                                            \
  type name(char const* text, std::size_t length, types::radix_t::base radix, bool prefix) {    \
    return parse<type>(text, length, radix, prefix);                                            \
  }                                                                                             \
  type name(wchar_t const* text, std::size_t length, types::radix_t::base radix, bool prefix) { \
    return parse<type>(text, length, radix, prefix);                                            \
  }

Q2_DEFINE_PARSER(str_to_int8, s8_t)
Q2_DEFINE_PARSER(str_to_int16, s16_t)
Q2_DEFINE_PARSER(str_to_int32, s32_t)
Q2_DEFINE_PARSER(str_to_int64, s64_t)
Q2_DEFINE_PARSER(str_to_uint8, u8_t)
Q2_DEFINE_PARSER(str_to_uint16, u16_t)
Q2_DEFINE_PARSER(str_to_uint32, u32_t)
Q2_DEFINE_PARSER(str_to_uint64, u64_t)

#undef Q2_DEFINE_PARSER

int str_to_int(wchar_t const* text, std::size_t length, types::radix_t::base radix, bool prefix) {
  return parse<int>(text, length, radix, prefix);
}

double str_to_double(ustring8 const& text, std::locale const& locale) {
  auto const& punct = std::use_facet<std::numpunct<char>>(locale);
  char const point = punct.decimal_point();
  char const separator = punct.thousands_sep();
  bool const grouped = !punct.grouping().empty() && separator != point;
  // The same number in the C locale's form. Characters that the C form would read
  // but the locale does not (a '.' that is not its decimal point) become junk.
  std::string c_form;
  c_form.reserve(text.size());
  bool integer_part = true;
  for (char const ch : text) {
    if (ch == point && integer_part) {
      c_form.push_back('.');
      integer_part = false;
    } else if (grouped && integer_part && ch == separator) {
      continue;
    } else if (ch == '.' || ch == '\0') {
      c_form.push_back('#');
    } else {
      c_form.push_back(ch);
    }
  }
  char* end = nullptr;
  double const value = quillon2::internal::os_parse_c_double(c_form.c_str(), &end);
  if (end == c_form.c_str()) return 0.0;
  char const* rest = end;
  while (is_space(*rest)) ++rest;
  if (rest != c_form.c_str() + c_form.size()) return 0.0;
  return value;
}

float str_to_float(ustring8 const& text, std::locale const& locale) {
  double const value = str_to_double(text, locale);
  if (std::isfinite(value) && std::fabs(value) > std::numeric_limits<float>::max())
    return value > 0 ? std::numeric_limits<float>::infinity()
                     : -std::numeric_limits<float>::infinity();
  return static_cast<float>(value);
}

char* ltoa(long value, char* buffer, int radix) { return write_signed(value, buffer, radix); }

wchar_t* ltoa(long value, wchar_t* buffer, int radix) { return write_signed(value, buffer, radix); }

char* ultoa(unsigned long value, char* buffer, int radix) {
  return write_number(value, false, buffer, radix);
}

char* lltoa(long long value, char* buffer, int radix) { return write_signed(value, buffer, radix); }

char* ulltoa(unsigned long long value, char* buffer, int radix) {
  return write_number(value, false, buffer, radix);
}

}  // namespace KESMET_2_18::generic::convert
