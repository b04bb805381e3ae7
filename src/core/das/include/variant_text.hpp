// The text form of single values, shared by the element form, the attribute form and the
// printers: type names, number texts and their parsing.
//
// Numbers print as in the classic locale whatever the process locale: integers in
// decimal, floating-point numbers like a default-formatted stream (six significant digits
// unless a precision is given). Floating-point text is read the same way, and reads back
// what is printed: "inf", "-inf" and "nan" included.
#pragma once

#include <cstddef>
#include <string>

#include <quillon2/das/variant.hpp>

namespace quillon2::internal {

// The "type" words of the element form.
enum class text_type_t {
  wide_string,  // empty or missing type, or "wstring"
  boolean,
  dummy,
  s8,
  u8,
  s16,
  u16,
  s32,
  u32,
  s64,
  u64,
  single,
  dbl,
  blob,
  null,
  pointer,
  bag,
  unknown
};

// Looks up a type word (UTF-8 or wide). Null and the empty word give wide_string.
text_type_t text_type_from_word(char const* word, std::size_t length);
text_type_t text_type_from_word(wchar_t const* word, std::size_t length);

// The element-form type word of a variant type (empty for wide text), or null for the
// types that have no word.
char const* element_type_word(das_variant_type_t type);
wchar_t const* element_type_word_wide(das_variant_type_t type);

// Appends the value text of a number or a boolean; false (nothing appended) for any other
// type. `precision` is the number of significant digits of floating values.
bool append_number_text(std::string& out, variant_t const& value, int precision = 6);

// Builds a scalar value of a type from its text: the integers, floating types, "bool",
// "null", "dummy" and wide text. False, with `out` untouched, for blob, pointer, bag and
// unknown. A text that is no number stores what the converter makes of it.
bool scalar_from_text(variant_t& out, text_type_t type, char const* text, std::size_t length);
bool scalar_from_text(variant_t& out, text_type_t type, wchar_t const* text, std::size_t length);

// Builds a value of one of the eight integer types from decimal text by the text layer's
// rules (the whole text is the number; junk gives 0, a value beyond the range saturates).
// False, with `out` untouched, for every other type.
bool integer_from_text(variant_t& out, text_type_t type, char const* text, std::size_t length);

// A vtWString made straight from UTF-8 text, decoded into the value's own block.
variant_t wide_variant_from_utf8(char const* text, std::size_t length);
// The same into `value`, whose block serves again when nobody shares it and it fits: a
// text saved again and again into one value is not allocated (and faulted in) anew.
void assign_wide_from_utf8(variant_t& value, char const* text, std::size_t length);

// Classic-locale floating-point parsing of the leading number of a text: leading white
// space and a "+" are allowed, inf and nan are read; no number gives 0, a value beyond
// the range gives an infinity or zero.
double parse_double(char const* text, std::size_t length);
float parse_float(char const* text, std::size_t length);

}  // namespace quillon2::internal
