// Arithmetic, logic and printing over dynamically typed values.
//
// Operands fall into four classes: null (vtNull); integers (vtBool to vtUInt64, an even
// tag being signed); floating (vtFloat, vtDouble); and the rest (texts, blobs, object
// pointers, the last two being the "objects").
//
// - Two integers give a 64-bit result: vtSInt64 when both are signed, else vtUInt64 for
//   addition, multiplication and division (subtraction always gives vtSInt64); results
//   wrap around. Any floating operand makes the result a vtDouble.
// - Beside a null, variant_add and variant_sub return the other number unchanged, type
//   and all; variant_mult and variant_div return null.
// - Adding texts (or a text and a number) concatenates their texts; subtracting removes
//   every occurrence of the second text from the first.
// - Integer division by zero gives vtNull and reports the assertion "divisor != 0"; the
//   lowest vtSInt64 divided by -1 wraps around to itself.
// - Unsupported pairs report an assertion and give vtNull.
//
// All functions are reentrant. The debug printers write UTF-8 to standard output.
#pragma once

#include <iosfwd>
#include <string>

#include <quillon2/das/variant.hpp>
#include <quillon2/export.hpp>

namespace quillon2 {

class variant_bag_t;

// `null_text` stands for a null operand beside a text.
QUILLON2_API variant_t variant_add(variant_t const& a, variant_t const& b,
                                   std::wstring const& null_text);
QUILLON2_API variant_t variant_sub(variant_t const& a, variant_t const& b);
QUILLON2_API variant_t variant_mult(variant_t const& a, variant_t const& b);
QUILLON2_API variant_t variant_div(variant_t const& a, variant_t const& b);

// Truth of a value: a non-zero integer, a floating value of at least the machine epsilon
// in magnitude, a non-empty wide text. Null is false.
QUILLON2_API bool variant_not(variant_t const& value);
// Both operands are converted, a first, before they are combined; nothing short-circuits.
QUILLON2_API bool variant_or(variant_t const& a, variant_t const& b);
QUILLON2_API bool variant_and(variant_t const& a, variant_t const& b);

// The value as text into `text` (a vtWString); with `annotate`, followed by " !" and the
// type name, as in "42 !s32_t".
QUILLON2_API void print_variant(variant_t const& value, variant_t& text, bool annotate);
QUILLON2_API void debug_print_variant(variant_t const& value, bool annotate);
// Prints "<prefix> <name> = <text>" for each value, then "<prefix> [<name>]" for each child
// bag followed by the child's own lines, one tab deeper.
QUILLON2_API void debug_print_variant_bag(variant_bag_t const& bag, bool annotate,
                                          wchar_t const* prefix);
// "vtBool" ... "vtLast_Used"; null for any other number.
QUILLON2_API wchar_t const* debug_get_variant_type(das_variant_type_t type);

// The annotated text of the value, in UTF-8.
QUILLON2_API std::ostream& operator<<(std::ostream& stream, variant_t const& value);

}  // namespace quillon2
