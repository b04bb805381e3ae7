// JSON text to bags: the reader's SAX handler and the load functions.
//
// RapidJSON's reader runs in its iterative mode (its recursive mode overflows the stack
// on deep input long before any limit of ours), validates UTF-8 and transcodes all text
// to UTF-32, so the handler receives wide text. The handler builds into a fresh bag; only
// a successful parse moves the result into the caller's bag, so a failed load leaves it
// as it was.
#include "core/das/json/include/rapidjson_setup.hpp"

#include <algorithm>
#include <charconv>
#include <climits>
#include <cstddef>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <cwchar>
#include <string>
#include <type_traits>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include <quillon2/core/check.hpp>
#include <quillon2/core/error_code.hpp>
#include <quillon2/das/json.hpp>
#include <quillon2/das/variant.hpp>
#include <quillon2/das/variant_bag.hpp>

#include "core/das/include/bag_impl.hpp"
#include "core/das/include/das_assert.hpp"
#include "core/das/include/variant_bag_buddy.hpp"
#include "core/das/include/variant_buddy.hpp"
#include "core/das/include/vb_helper.hpp"
#include "core/das/json/include/json_names.hpp"
#include "core/miscellaneous/include/decimal.hpp"

namespace quillon2::internal {

struct json_reader_access_t {
  static void set_arena(json::Handler& handler, node_arena_t* arena) { handler.m_arena = arena; }
};

}  // namespace quillon2::internal

namespace quillon2::json {

namespace {

using internal_names::array_of_hash;
using internal_names::array_of_length;
using internal_names::array_of_name;
using internal_names::empty_name_hash;
using internal_names::is_array_of;

wchar_t const default_item_name[] = L"item";

// The most values that an array element's index is sized for in advance.
constexpr std::size_t max_reserved_values = 64;

}  // namespace

Handler::Handler(variant_bag_t& root)
    : Handler(root, nullptr) {}

Handler::Handler(variant_bag_t& root, rapidjson::StringStream const* source)
    : m_root(root), m_currentNode(nullptr), m_source(source), m_lone_surrogate(false) {
  m_frames.reserve(16);
}

// Every event catches everything: no exception may travel through the reader.
template <class F>
bool guarded(F&& event) noexcept {
  try {
    return event();
  } catch (...) {
    return false;
  }
}

variant_bag_t& Handler::add_child(wchar_t const* name, std::size_t length) {
  std::uint32_t const hash = internal::hash_name(name, length);
  tag_cache_entry_t& tag = m_tags[hash % tag_cache_size];
  if (tag.m_hash != hash || tag.m_length != length || tag.m_text.get_type() != vtWString ||
      std::wmemcmp(tag.m_text.get<const wchar_t*>(), name, length) != 0) {
    internal::variant_buddy_t::set_data(tag.m_text, vtWString, name,
                                        (length + 1) * sizeof(wchar_t));
    tag.m_hash = hash;
    tag.m_length = length;
  }
  return internal::vb_helper::add_empty_child(m_arena, *m_currentNode, name, length, hash,
                                              tag.m_text);
}

bool Handler::startNode() {
  if (m_frames.size() >= max_depth) return false;
  if (m_currentNode == nullptr) {
    m_currentNode = &m_root;
  } else {
    frame_t const& parent = m_frames.back();
    if (parent.m_child_name != nullptr) {
      m_currentNode = &add_child(parent.m_child_name, parent.m_child_length);
      // An index grown name by name is reallocated on the way; one sized like the last
      // element's is not. Larger elements are left to grow, so that a long one does not
      // make every later short one large.
      if (parent.m_element_values > 3 && parent.m_element_values <= max_reserved_values) {
        internal::vb_helper::impl<variant_t>(*m_currentNode).reserve(parent.m_element_values);
      }
    } else {
      m_currentNode = &add_child(m_key.data(), m_key.size());
    }
  }
  m_frames.push_back(frame_t{nullptr, 0});
  return true;
}

void Handler::endNode() {
  if (!m_frames.empty()) m_frames.pop_back();
  // An element of an array tells the array how many values it had.
  if (!m_frames.empty() && m_frames.back().m_child_name != nullptr) {
    m_frames.back().m_element_values =
        m_currentNode != nullptr ? internal::vb_helper::impl<variant_t>(*m_currentNode).size() : 0;
  }
  if (m_currentNode == &m_root) return;
  m_currentNode = m_currentNode != nullptr ? m_currentNode->get_parent() : nullptr;
  if (m_currentNode == nullptr) {
    ::KESMET_2_18::debug::_private::____________________ASSERT____________________(
        "m_currentNode", __FILE__, __LINE__, "quillon2::json::Handler::endNode");
    m_currentNode = &m_root;
  }
}

bool Handler::scalar(variant_t& value) {
  if (m_currentNode == nullptr) {
    m_root.put<variant_t>(L"", value);
    return true;
  }
  frame_t& frame = m_frames.back();
  if (frame.m_child_name) {
    variant_bag_t& item = add_child(frame.m_child_name, frame.m_child_length);
    internal::vb_helper::put_moved(m_arena, item, L"", 0, empty_name_hash(), value);
    return true;
  }
  variant_t const& stored =
      internal::vb_helper::put_moved(m_arena, *m_currentNode, m_key.data(), m_key.size(),
                                     internal::hash_name(m_key.data(), m_key.size()), value)
          ->m_value;
  if (is_array_of(m_key.data(), m_key.size())) {
    // From here on the scalars and structures of this object are elements of an array.
    frame.m_child_name =
        stored.can_get<const wchar_t*>() ? stored.get<const wchar_t*>() : default_item_name;
    frame.m_child_length = std::wcslen(frame.m_child_name);
  }
  return true;
}

// RapidJSON combines a high surrogate escape with the low one that must follow it, but
// lets a lone low surrogate escape through as a code point of its own.
std::ptrdiff_t Handler::checked_length(wchar_t const* text, rapidjson::SizeType length) {
  rapidjson::SizeType i = 0;
#if defined(__SSE2__)
  // Four units at a time while there is neither a surrogate nor a NUL among them: a unit
  // is a surrogate when unit - 0xD800 < 0x800 unsigned, which the signed comparison
  // tells once both sides are shifted by INT_MIN.
  static_assert(sizeof(wchar_t) == 4, "four units fill a vector");
  __m128i const zero = _mm_setzero_si128();
  __m128i const shift = _mm_set1_epi32(static_cast<int>(0x80000000u - 0xD800u));
  __m128i const limit = _mm_set1_epi32(static_cast<int>(0x80000000u + 0x800u));
  for (; i + 4 <= length; i += 4) {
    __m128i const units = _mm_loadu_si128(reinterpret_cast<__m128i const*>(text + i));
    __m128i const odd = _mm_or_si128(_mm_cmpeq_epi32(units, zero),
                                     _mm_cmplt_epi32(_mm_add_epi32(units, shift), limit));
    if (_mm_movemask_epi8(odd) != 0) break;
  }
#endif
  std::ptrdiff_t end = -1;
  for (; i < length; ++i) {
    if (text[i] >= 0xD800 && text[i] <= 0xDFFF) {
      m_lone_surrogate = true;
      return -1;
    }
    if (text[i] == 0 && end < 0) end = static_cast<std::ptrdiff_t>(i);
  }
  return end < 0 ? static_cast<std::ptrdiff_t>(length) : end;
}

template <class T>
bool Handler::value_event(T value) {
  return guarded([&] {
    variant_t v(value);
    return scalar(v);
  });
}

bool Handler::Null() {
  return guarded([&] {
    variant_t v;
    return scalar(v);
  });
}
bool Handler::Bool(bool value) { return value_event(value); }
bool Handler::Int(int value) { return value_event(value); }
bool Handler::Uint(unsigned value) { return value_event(value); }
bool Handler::Int64(std::int64_t value) { return value_event(static_cast<s64_t>(value)); }
bool Handler::Uint64(std::uint64_t value) { return value_event(static_cast<u64_t>(value)); }

namespace {
bool is_number_char(char c) {
  return (c >= '0' && c <= '9') || c == '+' || c == '-' || c == '.' || c == 'e' || c == 'E';
}
}  // namespace

// With the source at hand, the number's text is converted again, exactly (correctly
// rounded) and independent of the locale; RapidJSON's value is only an approximation. The reader works on a copy of the stream
// while it reads a number, so the source still stands at the number's first character.
bool Handler::Double(double value) {
  if (m_source != nullptr) {
    char const* const begin = m_source->src_;
    char const* end = begin;
    while (is_number_char(*end)) ++end;
    double exact = 0;
    auto const [stop, ec] = internal::read_decimal(begin, end, exact);
    if (ec == std::errc() && stop == end) value = exact;
  }
  return value_event(value);
}
// Only called for the numbers-as-text mode, which this reader does not use.
bool Handler::RawNumber(wchar_t const*, rapidjson::SizeType, bool) { return false; }

// Text, like every wide text of a bag, ends at its first NUL character.
bool Handler::String(wchar_t const* text, rapidjson::SizeType length, bool) {
  return guarded([&] {
    std::ptrdiff_t const used = checked_length(text, length);
    if (used < 0) return false;
    // Straight from the reader's buffer into the value's block (zero-filled, so the
    // terminator is there).
    auto const units = static_cast<std::size_t>(used);
    variant_t value;
    internal::variant_buddy_t::set_data(value, vtWString, nullptr, (units + 1) * sizeof(wchar_t));
    void const* const block = internal::variant_buddy_t::payload(value);
    std::wmemcpy(static_cast<wchar_t*>(const_cast<void*>(block)), text, units);
    return scalar(value);
  });
}

bool Handler::Key(wchar_t const* text, rapidjson::SizeType length, bool) {
  return guarded([&] {
    std::ptrdiff_t const used = checked_length(text, length);
    if (used < 0) return false;
    m_key.assign(text, static_cast<std::size_t>(used));
    return true;
  });
}

bool Handler::StartObject() {
  return guarded([&] { return startNode(); });
}

bool Handler::EndObject(rapidjson::SizeType) {
  endNode();
  return true;
}

bool Handler::StartArray() {
  return guarded([&] {
    if (!startNode()) return false;
    // Every array's marker shares one text.
    static variant_t const* const item_text = new variant_t(default_item_name);
    variant_t marker(*item_text);
    internal::vb_helper::put_moved(m_arena, *m_currentNode, array_of_name, array_of_length,
                                   array_of_hash(), marker);
    m_frames.back().m_child_name = default_item_name;
    m_frames.back().m_child_length = 4;
    return true;
  });
}

bool Handler::EndArray(rapidjson::SizeType) {
  endNode();
  return true;
}

namespace {

using reader_t = rapidjson::GenericReader<rapidjson::UTF8<>, rapidjson::UTF32<wchar_t>>;

// Full precision comes from the handler, which converts every number with a fraction or
// exponent again from its text: RapidJSON 1.1's own full-precision conversion
// (kParseFullPrecisionFlag) misreads zeros with large exponents and has undefined
// behaviour on them, so the reader's quick conversion is all it is asked for.
constexpr unsigned parse_flags =
    rapidjson::kParseValidateEncodingFlag | rapidjson::kParseIterativeFlag;

// Texts from here on are refused before parsing: RapidJSON counts string lengths in
// 32 bits, and no sensible document comes near.
constexpr std::size_t max_text_bytes = std::size_t{1} << 31;

// The reasons, by RapidJSON's error code, in the words users see.
char const* parse_error_text(rapidjson::ParseErrorCode code) {
  switch (code) {
    case rapidjson::kParseErrorNone:
      return "No error.";
    case rapidjson::kParseErrorDocumentEmpty:
      return "The document is empty.";
    case rapidjson::kParseErrorDocumentRootNotSingular:
      return "The document root must not follow by other values.";
    case rapidjson::kParseErrorValueInvalid:
      return "Invalid value.";
    case rapidjson::kParseErrorObjectMissName:
      return "Missing a name for object member.";
    case rapidjson::kParseErrorObjectMissColon:
      return "Missing a colon after a name of object member.";
    case rapidjson::kParseErrorObjectMissCommaOrCurlyBracket:
      return "Missing a comma or '}' after an object member.";
    case rapidjson::kParseErrorArrayMissCommaOrSquareBracket:
      return "Missing a comma or ']' after an array element.";
    case rapidjson::kParseErrorStringUnicodeEscapeInvalidHex:
      return "Incorrect hex digit after \\u escape in string.";
    case rapidjson::kParseErrorStringUnicodeSurrogateInvalid:
      return "The surrogate pair in string is invalid.";
    case rapidjson::kParseErrorStringEscapeInvalid:
      return "Invalid escape character in string.";
    case rapidjson::kParseErrorStringMissQuotationMark:
      return "Missing a closing quotation mark in string.";
    case rapidjson::kParseErrorStringInvalidEncoding:
      return "Invalid encoding in string.";
    case rapidjson::kParseErrorNumberTooBig:
      return "Number too big to be stored in double.";
    case rapidjson::kParseErrorNumberMissFraction:
      return "Miss fraction part in number.";
    case rapidjson::kParseErrorNumberMissExponent:
      return "Miss exponent in number.";
    case rapidjson::kParseErrorTermination:
      return "Terminate parsing due to Handler error.";
    case rapidjson::kParseErrorUnspecificSyntaxError:
      break;
  }
  return "Unspecific syntax error.";
}

std::string parse_error_message(rapidjson::ParseResult const& result) {
  std::string text = "JSON deserialization error at position ";
  text += std::to_string(result.Offset());
  text += ": ";
  text += parse_error_text(result.Code());
  return text;
}

rapidjson::ParseResult parse(KESMET_2_18::strings::ustring8 const& text, variant_bag_t& bag) {
  rapidjson::ParseResult result;
  if (text.size() >= max_text_bytes) {
    result.Set(rapidjson::kParseErrorUnspecificSyntaxError, max_text_bytes);
    return result;
  }
  reader_t reader;
  // RapidJSON 1.1 takes every byte that a UTF-8 lead byte announces before it checks
  // them, so a sequence cut off by the end of the text would read past the terminator:
  // such a text is parsed from a copy with room behind it.
  char const* source = text.c_str();
  std::string padded;
  for (std::size_t i = text.size() > 3 ? text.size() - 3 : 0; i < text.size(); ++i) {
    if (static_cast<unsigned char>(text[i]) >= 0x80) {
      padded.reserve(text.size() + 4);
      padded.assign(text).append(4, '\0');
      source = padded.c_str();
      break;
    }
  }
  // The reader stops at the terminating NUL; a NUL inside the text shows as a parse that
  // ended early.
  rapidjson::StringStream in(source);
  internal::node_arena_t arena;
  Handler handler(bag, &in);
  internal::json_reader_access_t::set_arena(handler, &arena);
  result = reader.Parse<parse_flags>(in, handler);
  if (result.Code() == rapidjson::kParseErrorTermination && handler.saw_lone_surrogate()) {
    result.Set(rapidjson::kParseErrorStringUnicodeSurrogateInvalid, result.Offset());
  } else if (!result.IsError() && in.Tell() != text.size()) {
    result.Set(rapidjson::kParseErrorDocumentRootNotSingular, in.Tell());
  }
  return result;
}

// Moves every entry of `from` to the end of `to` without copying: values replace those
// of the same name in `to` (only hidden ones can be there), child bags are relinked.
template <class T>
void move_entries(variant_bag_t& from, variant_bag_t& to) {
  internal::bag_impl_base_t<T>& source = internal::vb_helper::impl<T>(from);
  internal::bag_impl_base_t<T>& target = internal::vb_helper::impl<T>(to);
  internal::bag_node_base_t* node = source.first();
  internal::bag_node_base_t* const end = source.end();
  source.reset();
  while (node != end) {
    internal::bag_node_base_t* const next = node->m_next;
    if constexpr (std::is_same_v<T, variant_t>) {
      target.remove_name(node->m_name);
    } else {
      internal::variant_bag_buddy_t::set_parent_only(
          internal::bag_impl_base_t<T>::node_of(node)->m_value, &to);
    }
    target.link_back(node);
    node = next;
  }
}

}  // namespace

error_code_t load_variant_bag_from_json_string(KESMET_2_18::strings::ustring8 const& text,
                                               variant_bag_t& bag) {
  QUILLON_CHECK(bag.is_empty(), error::IsNot.Valid.Argument("Expected empty variant bag"));
  variant_bag_t fresh;
  rapidjson::ParseResult const result = parse(text, fresh);
  QUILLON_CHECK(!result.IsError(),
                error::FailedTo.Execute.This.Operation(parse_error_message(result)));
  move_entries<variant_t>(fresh, bag);
  move_entries<variant_bag_t>(fresh, bag);
  return error_code_t();
}

error_code_t load_variant_bag_from_json_string(std::wstring const& text, variant_bag_t& bag) {
  return load_variant_bag_from_json_string(KESMET_2_18::strings::utf16_to_utf8(text), bag);
}

}  // namespace quillon2::json
