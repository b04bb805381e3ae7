// The vocabulary of the attribute form of bags: the type prefixes, the namespace table,
// the text of a value, and the value of a prefixed text. Shared by the XML writer
// visitor, the SAX reader and the public calls.
//
// Everything here is constant or per call, and may be used from any thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include <quillon2/das/variant.hpp>

#include "core/das/include/variant_text.hpp"

namespace quillon2::internal {

// One row of the namespace table: a prefix and the URI that the document element
// declares for it.
struct namespace_row_t {
  char const* prefix;
  std::size_t prefix_length;
  char const* uri;
};

// The table in declaration order (ascending by prefix). Fewer than 32 rows, so that a
// set of used rows fits in a bit mask.
namespace_row_t const* namespace_table();
std::size_t namespace_table_size();
// The row of a prefix, or -1.
int namespace_row_of(char const* prefix, std::size_t length);
// The row of the prefix "pointer".
int pointer_namespace_row();

// The type prefix and value text of a value in the attribute form. `prefix` is null for
// wide text, and null with an empty text (after an assertion) for the types that have no
// attribute form. Numbers and booleans are appended to `text` as they are (ASCII, no
// escaping needed). For wide text `wide` is set instead and `text` is left alone.
struct value_text_t {
  char const* prefix = nullptr;
  std::size_t prefix_length = 0;
  int row = -1;  // the prefix's row in the namespace table
  wchar_t const* wide = nullptr;
};
void get_type_and_value_as_string(variant_t const& value, value_text_t& out, std::string& text);

// The type that a prefix gives its text: wide_string for no prefix, one of the scalar
// types for a typed prefix, and unknown for blob, pointer and every prefix without a
// conversion.
text_type_t prefix_kind(char const* prefix, std::size_t length);
// Whether a prefix names a type that converts text ("0" converts by it).
inline bool is_type_prefix(text_type_t kind) { return kind != text_type_t::unknown; }

// Converts `text` by the prefix's rule. False (and `out` untouched) for a prefix without
// a conversion and for a boolean that is none of its four texts.
bool variant_from_prefixed_text(variant_t& out, text_type_t kind, char const* text,
                                std::size_t length);

// Writes `length` characters of wide text to `out` in UTF-8, escaped for an attribute value
// ("&", "<", ">", the quotation mark, tab, line feed and carriage return become references)
// or for element content (the same but tab and line feed). `out` must hold
// k_max_escaped_bytes (xml_escape.hpp) for each character. Returns the number of bytes
// written, or -1 when the text holds a character that XML cannot hold.
long escape_wide_text(wchar_t const* text, std::size_t length, bool attribute, char* out);

// Appends UTF-8 text, escaped for an attribute value, to `out`.
void append_escaped_attribute_utf8(std::string& out, char const* text, std::size_t length);

// Whether UTF-8 text holds only characters that XML can hold and is well-formed UTF-8.
bool is_xml_text_utf8(char const* text, std::size_t length);

// Whether a UTF-8 text is a Name of XML 1.0.
bool is_xml_name_utf8(char const* text, std::size_t length);

}  // namespace quillon2::internal
