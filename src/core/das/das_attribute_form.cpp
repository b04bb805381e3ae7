// Type prefixes, namespace table and value texts of the attribute form.
//
// The namespace table is a constant: it needs no building on first use and no lock, and
// its order is the order of the declarations on a document element.
#include <charconv>
#include <cmath>
#include <cstring>
#include <limits>
#include <string>

#include <quillon2/das/variant.hpp>
#include <quillon2/headers/kesmet.hpp>

#include "core/das/include/attribute_form.hpp"
#include "core/das/include/das_assert.hpp"
#include "core/das/include/utf8_codec.hpp"
#include "core/das/include/variant_text.hpp"
#include "core/das/include/xml_escape.hpp"
#include "core/das/include/xml_safety.hpp"
#include "core/miscellaneous/include/decimal.hpp"

namespace quillon2::internal {
namespace {

// The base of the URIs that this library defines itself.
#define Q2_BAG_URI_BASE "urn:quillon2"
#define Q2_XML_SCHEMA "http://www.w3.org/2001/XMLSchema"
#define Q2_ROW(prefix, uri) \
  { prefix, sizeof(prefix) - 1, uri }

constexpr namespace_row_t k_namespaces[] = {
    Q2_ROW("blob", Q2_BAG_URI_BASE "/2009/BagSchema#blob"),
    Q2_ROW("boolean", Q2_XML_SCHEMA "#boolean"),
    Q2_ROW("byte", Q2_XML_SCHEMA "#byte"),
    Q2_ROW("crypto", "http://exslt.org/crypto"),
    Q2_ROW("date", "http://exslt.org/dates-and-times"),
    Q2_ROW("double", Q2_BAG_URI_BASE "/2001/XMLSchema#double"),
    Q2_ROW("dyn", "http://exslt.org/dynamic"),
    Q2_ROW("exsl", "http://exslt.org/common"),
    Q2_ROW("float", Q2_XML_SCHEMA "#float"),
    Q2_ROW("func", "http://exslt.org/functions"),
    Q2_ROW("int", Q2_XML_SCHEMA "#int"),
    Q2_ROW("long", Q2_XML_SCHEMA "#long"),
    Q2_ROW("math", "http://exslt.org/math"),
    Q2_ROW("null", Q2_BAG_URI_BASE "/2009/BagSchema#null"),
    Q2_ROW("pointer", Q2_BAG_URI_BASE "/2009/BagSchema#pointer"),
    Q2_ROW("saxon", "http://icl.com/saxon"),
    Q2_ROW("set", "http://exslt.org/sets"),
    Q2_ROW("short", Q2_XML_SCHEMA "#short"),
    Q2_ROW("str", "http://exslt.org/strings"),
    Q2_ROW("unsignedByte", Q2_XML_SCHEMA "#unsignedByte"),
    Q2_ROW("unsignedInt", Q2_XML_SCHEMA "#unsignedInt"),
    Q2_ROW("unsignedLong", Q2_XML_SCHEMA "#unsignedLong"),
    Q2_ROW("unsignedShort", Q2_XML_SCHEMA "#unsignedShort"),
    Q2_ROW("xsl", "http://www.w3.org/1999/XSL/Transform"),
};
static_assert(sizeof k_namespaces / sizeof k_namespaces[0] <= 32, "rows are bits of a mask");

#undef Q2_ROW
#undef Q2_XML_SCHEMA
#undef Q2_BAG_URI_BASE

constexpr std::size_t k_namespace_count = sizeof k_namespaces / sizeof k_namespaces[0];

// The row of a prefix, found while compiling: the rows below follow the table.
constexpr int row_named(char const* prefix) {
  for (std::size_t i = 0; i < k_namespace_count; ++i) {
    char const* a = k_namespaces[i].prefix;
    char const* b = prefix;
    while (*a != '\0' && *a == *b) ++a, ++b;
    if (*a == *b) return static_cast<int>(i);
  }
  return -1;
}

// Row numbers of the typed prefixes, for the writer and the reader.
enum row_t : int {
  row_blob = row_named("blob"),
  row_boolean = row_named("boolean"),
  row_byte = row_named("byte"),
  row_double = row_named("double"),
  row_float = row_named("float"),
  row_int = row_named("int"),
  row_long = row_named("long"),
  row_null = row_named("null"),
  row_pointer = row_named("pointer"),
  row_short = row_named("short"),
  row_unsigned_byte = row_named("unsignedByte"),
  row_unsigned_int = row_named("unsignedInt"),
  row_unsigned_long = row_named("unsignedLong"),
  row_unsigned_short = row_named("unsignedShort"),
};
static_assert(row_blob >= 0 && row_boolean >= 0 && row_byte >= 0 && row_double >= 0 &&
                  row_float >= 0 && row_int >= 0 && row_long >= 0 && row_null >= 0 &&
                  row_pointer >= 0 && row_short >= 0 && row_unsigned_byte >= 0 &&
                  row_unsigned_int >= 0 && row_unsigned_long >= 0 && row_unsigned_short >= 0,
              "every typed prefix has a row");

bool equals(char const* text, std::size_t length, char const* word, std::size_t word_length) {
  return length == word_length && std::memcmp(text, word, length) == 0;
}

// One code point of well-formed UTF-8 at text[i], or -1 for a malformed sequence.
long next_code_point(char const* text, std::size_t length, std::size_t& i) {
  auto const* s = reinterpret_cast<unsigned char const*>(text);
  if (s[i] < 0x80) return s[i++];
  char32_t c;
  return decode_utf8_sequence(s, length, i, c) ? static_cast<long>(c) : -1;
}

// Which ASCII characters may start and continue a name: a table, since this runs over
// every name of every document.
struct ascii_classes_t {
  bool name_start[128] = {};
  bool name[128] = {};
  constexpr ascii_classes_t() {
    for (int c = 'a'; c <= 'z'; ++c) name_start[c] = true;
    for (int c = 'A'; c <= 'Z'; ++c) name_start[c] = true;
    name_start[static_cast<int>('_')] = true;
    name_start[static_cast<int>(':')] = true;
    for (int c = 0; c < 128; ++c) name[c] = name_start[c];
    for (int c = '0'; c <= '9'; ++c) name[c] = true;
    name[static_cast<int>('-')] = true;
    name[static_cast<int>('.')] = true;
  }
};
constexpr ascii_classes_t k_ascii;

// The text-layer parser of floating-point text, with a fast road for the plain numbers
// that a save writes: where from_chars reads the whole text, strtod reads the same value.
double parse_double_text(char const* text, std::size_t length) {
  double value = 0;
  auto const result = internal::read_decimal(text, text + length, value);
  if (result.ec == std::errc() && result.ptr == text + length && length != 0) return value;
  return KESMET_2_18::generic::convert::str_to_double(std::string(text, length));
}

void set_prefix(value_text_t& out, int row) {
  out.row = row;
  out.prefix = k_namespaces[row].prefix;
  out.prefix_length = k_namespaces[row].prefix_length;
}

}  // namespace

namespace_row_t const* namespace_table() { return k_namespaces; }

std::size_t namespace_table_size() { return k_namespace_count; }

int namespace_row_of(char const* prefix, std::size_t length) {
  if (prefix == nullptr || length == 0) return -1;
  for (std::size_t i = 0; i < k_namespace_count; ++i) {
    if (k_namespaces[i].prefix[0] == prefix[0] &&
        equals(prefix, length, k_namespaces[i].prefix, k_namespaces[i].prefix_length)) {
      return static_cast<int>(i);
    }
  }
  return -1;
}

int pointer_namespace_row() { return row_pointer; }

void get_type_and_value_as_string(variant_t const& value, value_text_t& out, std::string& text) {
  out = value_text_t();
  switch (value.get_type()) {
    case vtBool:
      set_prefix(out, row_boolean);
      break;
    case vtSByte:
      set_prefix(out, row_byte);
      break;
    case vtUByte:
      set_prefix(out, row_unsigned_byte);
      break;
    case vtSShort:
      set_prefix(out, row_short);
      break;
    case vtUShort:
      set_prefix(out, row_unsigned_short);
      break;
    case vtSInt:
      set_prefix(out, row_int);
      break;
    case vtUInt:
      set_prefix(out, row_unsigned_int);
      break;
    case vtSInt64:
      set_prefix(out, row_long);
      break;
    case vtUInt64:
      set_prefix(out, row_unsigned_long);
      break;
    case vtFloat:
      set_prefix(out, row_float);
      append_number_text(text, value, 9);
      return;
    case vtDouble:
      set_prefix(out, row_double);
      append_number_text(text, value, 17);
      return;
    case vtWString:
    case vtWCharPtr: {
      wchar_t const* wide = value.get<wchar_t const*>();
      out.wide = wide != nullptr ? wide : L"";
      return;
    }
    case vtBlob:
      set_prefix(out, row_blob);
      return;
    case vtNull:
      set_prefix(out, row_null);
      return;
    case vtNotypePtr:
      set_prefix(out, row_pointer);
      return;
    default:
      Q2_DAS_ASSERT_TEXT("\"variant type without an attribute form\" == NULL");
      return;
  }
  append_number_text(text, value);
}

text_type_t prefix_kind(char const* prefix, std::size_t length) {
  if (prefix == nullptr || length == 0) return text_type_t::wide_string;
  switch (namespace_row_of(prefix, length)) {
    case row_boolean:
      return text_type_t::boolean;
    case row_byte:
      return text_type_t::s8;
    case row_double:
      return text_type_t::dbl;
    case row_float:
      return text_type_t::single;
    case row_int:
      return text_type_t::s32;
    case row_long:
      return text_type_t::s64;
    case row_null:
      return text_type_t::null;
    case row_short:
      return text_type_t::s16;
    case row_unsigned_byte:
      return text_type_t::u8;
    case row_unsigned_short:
      return text_type_t::u16;
    case row_unsigned_int:
      return text_type_t::u32;
    case row_unsigned_long:
      return text_type_t::u64;
    default:
      return text_type_t::unknown;
  }
}

bool variant_from_prefixed_text(variant_t& out, text_type_t kind, char const* text,
                                std::size_t length) {
  if (text == nullptr) {
    text = "";
    length = 0;
  }
  switch (kind) {
    case text_type_t::wide_string:
      out = wide_variant_from_utf8(text, length);
      return true;
    case text_type_t::boolean:
      if (equals(text, length, "true", 4) || equals(text, length, "1", 1)) {
        out = variant_t(true);
        return true;
      }
      if (equals(text, length, "false", 5) || equals(text, length, "0", 1)) {
        out = variant_t(false);
        return true;
      }
      return false;
    case text_type_t::s8:
    case text_type_t::u8:
    case text_type_t::s16:
    case text_type_t::u16:
    case text_type_t::s32:
    case text_type_t::u32:
    case text_type_t::s64:
    case text_type_t::u64:
      return integer_from_text(out, kind, text, length);
    case text_type_t::single: {
      double const value = parse_double_text(text, length);
      // As the text layer's float parser does: beyond the range of float is infinite.
      float const infinity = std::numeric_limits<float>::infinity();
      if (std::isfinite(value) && std::fabs(value) > std::numeric_limits<float>::max()) {
        out = variant_t(value > 0 ? infinity : -infinity);
      } else {
        out = variant_t(static_cast<float>(value));
      }
      return true;
    }
    case text_type_t::dbl:
      out = variant_t(parse_double_text(text, length));
      return true;
    case text_type_t::null:
      out = variant_t();
      return true;
    case text_type_t::dummy:
    case text_type_t::blob:
    case text_type_t::pointer:
    case text_type_t::bag:
    case text_type_t::unknown:
      break;
  }
  return false;
}

long escape_wide_text(wchar_t const* text, std::size_t length, bool attribute, char* out) {
  xml_escapes_t const& escapes = attribute ? k_attribute_escapes : k_text_escapes;
  char* const start = out;
  for (std::size_t i = 0; i < length; ++i) {
    if (!put_escaped(static_cast<char32_t>(text[i]), escapes, out)) return -1;
  }
  return static_cast<long>(out - start);
}

void append_escaped_attribute_utf8(std::string& out, char const* text, std::size_t length) {
  append_escaped(out, text, length, k_attribute_escapes);
}

bool is_xml_text_utf8(char const* text, std::size_t length) {
  std::size_t i = 0;
  while (i < length) {
    long const c = next_code_point(text, length, i);
    if (c < 0 || !is_xml_char(static_cast<char32_t>(c))) return false;
  }
  return true;
}

bool is_xml_name_utf8(char const* text, std::size_t length) {
  if (text == nullptr || length == 0) return false;
  // Names are nearly always ASCII: a table decides those.
  auto const* bytes = reinterpret_cast<unsigned char const*>(text);
  if (bytes[0] < 0x80) {
    if (!k_ascii.name_start[bytes[0]]) return false;
    std::size_t i = 1;
    while (i < length && bytes[i] < 0x80 && k_ascii.name[bytes[i]]) ++i;
    if (i == length) return true;
    if (bytes[i] < 0x80) return false;
  }
  std::size_t i = 0;
  bool first = true;
  while (i < length) {
    long const c = next_code_point(text, length, i);
    if (c < 0) return false;
    auto const code = static_cast<char32_t>(c);
    if (first ? !is_xml_name_start_char(code) : !is_xml_name_char(code)) return false;
    first = false;
  }
  return true;
}

}  // namespace quillon2::internal
