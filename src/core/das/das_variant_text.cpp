// Text form of single values: type words, number texts and their parsing.
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <string>

#include <quillon2/das/variant.hpp>
#include <quillon2/das/variant_bag_serialization.hpp>
#include <quillon2/headers/kesmet.hpp>

#include "core/das/include/utf8_codec.hpp"
#include "core/das/include/variant_buddy.hpp"
#include "core/das/include/variant_text.hpp"
#include "core/miscellaneous/include/decimal.hpp"

namespace quillon2::internal {
namespace {

struct type_word_t {
  char const* word;
  wchar_t const* wide;
  text_type_t type;
};

constexpr type_word_t k_type_words[] = {
    {"bool", L"bool", text_type_t::boolean},
    {"dummy", L"dummy", text_type_t::dummy},
    {"s8_t", L"s8_t", text_type_t::s8},
    {"u8_t", L"u8_t", text_type_t::u8},
    {"s16_t", L"s16_t", text_type_t::s16},
    {"u16_t", L"u16_t", text_type_t::u16},
    {"s32_t", L"s32_t", text_type_t::s32},
    {"u32_t", L"u32_t", text_type_t::u32},
    {"s64_t", L"s64_t", text_type_t::s64},
    {"u64_t", L"u64_t", text_type_t::u64},
    {"float", L"float", text_type_t::single},
    {"double", L"double", text_type_t::dbl},
    {"blob", L"blob", text_type_t::blob},
    {"null", L"null", text_type_t::null},
    {"pointer", L"pointer", text_type_t::pointer},
    {"bag", L"bag", text_type_t::bag},
    {"wstring", L"wstring", text_type_t::wide_string},
};

template <class Char>
bool word_equals(Char const* text, std::size_t length, char const* word) {
  std::size_t i = 0;
  for (; i < length; ++i) {
    if (word[i] == '\0' || static_cast<char32_t>(text[i]) != static_cast<unsigned char>(word[i])) {
      return false;
    }
  }
  return word[i] == '\0';
}

template <class Char>
text_type_t lookup_word(Char const* word, std::size_t length) {
  if (word == nullptr || length == 0) return text_type_t::wide_string;
  // Every word is short and most differ in their first letter: look only where it fits.
  for (auto const& entry : k_type_words) {
    if (static_cast<char32_t>(word[0]) == static_cast<unsigned char>(entry.word[0]) &&
        word_equals(word, length, entry.word)) {
      return entry.type;
    }
  }
  return text_type_t::unknown;
}

// Copies the ASCII part of a text into a narrow buffer for the number parsers; any other
// character ends a number anyway, so it is replaced by one that no number holds.
template <class Char>
std::string narrow_number_text(Char const* text, std::size_t length) {
  std::string narrow(length, ' ');
  for (std::size_t i = 0; i < length; ++i) {
    auto const c = static_cast<char32_t>(text[i]);
    narrow[i] = c < 0x80 ? static_cast<char>(c) : '~';
  }
  return narrow;
}

bool is_space(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }

template <class Float>
Float parse_floating(char const* text, std::size_t length) {
  char const* first = text;
  char const* last = text + length;
  while (first != last && is_space(*first)) ++first;
  bool negative = false;
  if (first != last && (*first == '+' || *first == '-')) {
    negative = *first == '-';
    ++first;
    if (first != last && (*first == '+' || *first == '-')) return 0;
  }
  Float value = 0;
  if (internal::read_decimal(first, last, value).ec != std::errc()) return 0;
  return negative ? -value : value;
}

template <class Char>
bool integer_from(variant_t& out, text_type_t type, Char const* text, std::size_t length) {
  using namespace KESMET_2_18::generic::convert;
  switch (type) {
    case text_type_t::s8:
      out = variant_t(static_cast<signed char>(str_to_int8(text, length)));
      return true;
    case text_type_t::u8:
      out = variant_t(static_cast<unsigned char>(str_to_uint8(text, length)));
      return true;
    case text_type_t::s16:
      out = variant_t(static_cast<short>(str_to_int16(text, length)));
      return true;
    case text_type_t::u16:
      out = variant_t(static_cast<unsigned short>(str_to_uint16(text, length)));
      return true;
    case text_type_t::s32:
      out = variant_t(static_cast<int>(str_to_int32(text, length)));
      return true;
    case text_type_t::u32:
      out = variant_t(static_cast<unsigned int>(str_to_uint32(text, length)));
      return true;
    case text_type_t::s64:
      out = variant_t(static_cast<s64_t>(str_to_int64(text, length)));
      return true;
    case text_type_t::u64:
      out = variant_t(static_cast<u64_t>(str_to_uint64(text, length)));
      return true;
    default:
      return false;
  }
}

template <class Char>
bool scalar_from(variant_t& out, text_type_t type, Char const* text, std::size_t length) {
  if (text == nullptr) length = 0;
  Char const empty[1] = {0};
  Char const* const s = text != nullptr ? text : empty;
  switch (type) {
    case text_type_t::wide_string: {
      std::wstring wide(s, s + length);
      out = variant_t(wide.c_str(), false);
      return true;
    }
    case text_type_t::boolean:
      out = variant_t(word_equals(s, length, "true"));
      return true;
    case text_type_t::dummy:
    case text_type_t::null:
      out = variant_t();
      return true;
    case text_type_t::s8:
    case text_type_t::u8:
    case text_type_t::s16:
    case text_type_t::u16:
    case text_type_t::s32:
    case text_type_t::u32:
    case text_type_t::s64:
    case text_type_t::u64:
      return integer_from(out, type, s, length);
    case text_type_t::single: {
      std::string const narrow = narrow_number_text(s, length);
      out = variant_t(parse_float(narrow.data(), narrow.size()));
      return true;
    }
    case text_type_t::dbl: {
      std::string const narrow = narrow_number_text(s, length);
      out = variant_t(parse_double(narrow.data(), narrow.size()));
      return true;
    }
    case text_type_t::blob:
    case text_type_t::pointer:
    case text_type_t::bag:
    case text_type_t::unknown:
      break;
  }
  return false;
}

}  // namespace

text_type_t text_type_from_word(char const* word, std::size_t length) {
  return lookup_word(word, length);
}

text_type_t text_type_from_word(wchar_t const* word, std::size_t length) {
  return lookup_word(word, length);
}

namespace {

struct element_word_t {
  char const* narrow;
  wchar_t const* wide;
};

element_word_t element_word(das_variant_type_t type) {
  switch (type) {
    case vtBool:
      return {"bool", L"bool"};
    case vtSByte:
      return {"s8_t", L"s8_t"};
    case vtUByte:
      return {"u8_t", L"u8_t"};
    case vtSShort:
      return {"s16_t", L"s16_t"};
    case vtUShort:
      return {"u16_t", L"u16_t"};
    case vtSInt:
      return {"s32_t", L"s32_t"};
    case vtUInt:
      return {"u32_t", L"u32_t"};
    case vtSInt64:
      return {"s64_t", L"s64_t"};
    case vtUInt64:
      return {"u64_t", L"u64_t"};
    case vtFloat:
      return {"float", L"float"};
    case vtDouble:
      return {"double", L"double"};
    case vtWString:
      return {"", L""};
    case vtNull:
      return {"null", L"null"};
    default:
      return {nullptr, nullptr};
  }
}

}  // namespace

char const* element_type_word(das_variant_type_t type) { return element_word(type).narrow; }

wchar_t const* element_type_word_wide(das_variant_type_t type) { return element_word(type).wide; }

bool append_number_text(std::string& out, variant_t const& value, int precision) {
  char buffer[64];
  std::to_chars_result result{};
  das_variant_type_t const type = value.get_type();
  switch (type) {
    case vtBool:
      out += value.get<bool>() ? "true" : "false";
      return true;
    case vtSByte:
    case vtSShort:
    case vtSInt:
    case vtSInt64:
      result = std::to_chars(buffer, buffer + sizeof buffer, value.get<s64_t>());
      break;
    case vtUByte:
    case vtUShort:
    case vtUInt:
    case vtUInt64:
      result = std::to_chars(buffer, buffer + sizeof buffer, value.get<u64_t>());
      break;
    case vtFloat:
    case vtDouble:
      result = std::to_chars(buffer, buffer + sizeof buffer, value.get<double>(),
                             std::chars_format::general, precision);
      break;
    default:
      return false;
  }
  out.append(buffer, result.ptr);
  return true;
}

bool integer_from_text(variant_t& out, text_type_t type, char const* text, std::size_t length) {
  return integer_from(out, type, text, length);
}

bool scalar_from_text(variant_t& out, text_type_t type, char const* text, std::size_t length) {
  return scalar_from(out, type, text, length);
}

bool scalar_from_text(variant_t& out, text_type_t type, wchar_t const* text, std::size_t length) {
  return scalar_from(out, type, text, length);
}

namespace {

// Well-formed UTF-8 has one unit for each byte that does not continue a sequence
// (10xxxxxx): counted eight bytes at a time.
std::size_t units_if_well_formed(unsigned char const* s, std::size_t length) {
  std::size_t continuations = 0;
  std::size_t i = 0;
  for (; i + 8 <= length; i += 8) {
    std::uint64_t word;
    std::memcpy(&word, s + i, sizeof word);
    std::uint64_t const marks = (word & ~(word << 1) & 0x8080808080808080ull) >> 7;
    continuations += static_cast<std::size_t>((marks * 0x0101010101010101ull) >> 56);
  }
  for (; i < length; ++i) continuations += (s[i] & 0xC0) == 0x80 ? 1 : 0;
  return length - continuations;
}

// Writes the units of well-formed text to `out`, which has room for `units` of them.
// False at the first malformed sequence, or when the text holds another number of units.
bool decode_well_formed(unsigned char const* s, std::size_t length, wchar_t* out,
                        std::size_t units) {
  wchar_t* const end = out + units;
  std::size_t i = 0;
  while (i < length) {
    if (i + 8 <= length) {
      std::uint64_t word;
      std::memcpy(&word, s + i, sizeof word);
      if ((word & 0x8080808080808080ull) == 0) {
        for (int k = 0; k < 8; ++k) out[k] = static_cast<wchar_t>(s[i + k]);
        out += 8;
        i += 8;
        continue;
      }
    }
    if (s[i] < 0x80) {
      *out++ = static_cast<wchar_t>(s[i++]);
      continue;
    }
    // Every unit written stands for a distinct lead byte, so the count bounds the writes.
    char32_t c;
    if (!decode_utf8_sequence(s, length, i, c)) return false;
    *out++ = static_cast<wchar_t>(c);
  }
  if (out != end) return false;
  *out = L'\0';
  return true;
}

}  // namespace

void assign_wide_from_utf8(variant_t& value, char const* text, std::size_t length) {
  // The block is the value's alone: this is its filling. Text from a parser is
  // well-formed and decoded in one pass; anything else takes the general decoder, which
  // counts its units first and replaces what is malformed.
  auto const* s = reinterpret_cast<unsigned char const*>(text);
  std::size_t units = units_if_well_formed(s, length);
  auto* out = static_cast<wchar_t*>(
      variant_buddy_t::set_block(value, vtWString, (units + 1) * sizeof(wchar_t)));
  if (decode_well_formed(s, length, out, units)) return;
  units = 0;
  decode_utf8(text, length, [&units](char32_t) { ++units; });
  out = static_cast<wchar_t*>(
      variant_buddy_t::set_block(value, vtWString, (units + 1) * sizeof(wchar_t)));
  decode_utf8(text, length, [&out](char32_t c) { *out++ = static_cast<wchar_t>(c); });
  *out = L'\0';
}

variant_t wide_variant_from_utf8(char const* text, std::size_t length) {
  variant_t value;
  assign_wide_from_utf8(value, text, length);
  return value;
}

double parse_double(char const* text, std::size_t length) {
  return parse_floating<double>(text, length);
}

float parse_float(char const* text, std::size_t length) {
  return parse_floating<float>(text, length);
}

}  // namespace quillon2::internal

namespace quillon2 {

bool create_variant_from_string(variant_t& out, wchar_t const* type, wchar_t const* value) {
  std::size_t const type_length = type != nullptr ? std::wcslen(type) : 0;
  internal::text_type_t const kind = internal::text_type_from_word(type, type_length);
  return internal::scalar_from_text(out, kind, value, value != nullptr ? std::wcslen(value) : 0);
}

wchar_t const* get_type_string(variant_t const& value) {
  return internal::element_type_word_wide(value.get_type());
}

variant_t get_value_string(variant_t const& value) {
  std::string narrow;
  if (internal::append_number_text(narrow, value)) {
    std::wstring const wide(narrow.begin(), narrow.end());
    return variant_t(wide.c_str(), false);
  }
  // Only a wide string has a text of its own here; a by-reference one, like every other
  // type, gives the empty text.
  if (value.get_type() == vtWString) return value;
  return variant_t(L"", false);
}

}  // namespace quillon2
