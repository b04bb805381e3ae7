// Arithmetic, logic and printing over variant values.
#include <cfloat>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <cwchar>
#include <ostream>
#include <string>
#include <vector>

#include <quillon2/das/variant.hpp>
#include <quillon2/das/variant_bag.hpp>
#include <quillon2/das/variant_bag_serialization.hpp>
#include <quillon2/das/variant_operations.hpp>
#include <quillon2/headers/kesmet.hpp>

#include "core/das/include/das_assert.hpp"
#include "core/das/include/variant_text.hpp"
#include "core/das/include/xml_safety.hpp"

namespace quillon2 {
namespace {

enum class operand_class_t { null, integer, floating, other };

operand_class_t class_of(variant_t const& v) {
  das_variant_type_t const type = v.get_type();
  if (type == vtNull) return operand_class_t::null;
  if (type >= vtBool && type <= vtUInt64) return operand_class_t::integer;
  if (type == vtFloat || type == vtDouble) return operand_class_t::floating;
  return operand_class_t::other;
}

bool is_number(operand_class_t c) {
  return c == operand_class_t::integer || c == operand_class_t::floating;
}

// Blobs, object pointers and anything past them.
bool is_object(variant_t const& v) {
  das_variant_type_t const type = v.get_type();
  return type == vtBlob || type >= vtNotypePtr;
}

bool is_signed(variant_t const& v) { return (static_cast<int>(v.get_type()) & 1) == 0; }

u64_t word_of(variant_t const& v) { return v.get<u64_t>(); }

double double_of(variant_t const& v) {
  if (class_of(v) == operand_class_t::integer) {
    u64_t const word = word_of(v);
    return is_signed(v) ? static_cast<double>(static_cast<s64_t>(word)) : static_cast<double>(word);
  }
  return v.get<double>();
}

std::wstring text_of(variant_t const& v, std::wstring const& null_text) {
  if (v.get_type() == vtNull) return null_text;
  variant_t const text = get_value_string(v);
  wchar_t const* s = text.get<wchar_t const*>();
  return s != nullptr ? s : L"";
}

variant_t wide(std::wstring const& text) { return variant_t(text.c_str(), false); }

variant_t unsupported() {
  Q2_DAS_ASSERT_TEXT("Unsupported variant types in arithmetic operation");
  return variant_t();
}

variant_t floating_with_other() {
  Q2_DAS_ASSERT_TEXT("can_get<double>()");
  return variant_t();
}

bool floating_with_other_pair(operand_class_t a, operand_class_t b) {
  return (a == operand_class_t::floating && b == operand_class_t::other) ||
         (a == operand_class_t::other && b == operand_class_t::floating);
}

bool floating_pair(operand_class_t a, operand_class_t b) {
  return is_number(a) && is_number(b) &&
         (a == operand_class_t::floating || b == operand_class_t::floating);
}

variant_t integer_result(bool both_signed, u64_t word) {
  return both_signed ? variant_t(static_cast<s64_t>(word)) : variant_t(word);
}

bool bool_from_variant(variant_t const& v) {
  switch (class_of(v)) {
    case operand_class_t::null:
      return false;
    case operand_class_t::integer:
      return word_of(v) != 0;
    case operand_class_t::floating:
      return std::fabs(v.get<double>()) >= DBL_EPSILON;
    case operand_class_t::other:
      break;
  }
  das_variant_type_t const type = v.get_type();
  if (type == vtWString || type == vtWCharPtr) {
    wchar_t const* text = v.get<wchar_t const*>();
    return text != nullptr && *text != L'\0';
  }
  if (type == vtString || type == vtCharPtr) {
    Q2_DAS_ASSERT_TEXT("can_get<const wchar_t*>()");
    char const* text = v.get<char const*>();
    return text != nullptr && *text != '\0';
  }
  Q2_DAS_ASSERT_TEXT("Incorrect variant type for boolean conversion");
  return false;
}

std::wstring print_text(variant_t const& value, bool annotate) {
  std::wstring out;
  das_variant_type_t const type = value.get_type();
  // A vtFloat holds the float it was made from, widened: six digits print it as a float.
  std::string number;
  internal::append_number_text(number, value);
  if (!number.empty()) {
    out.assign(number.begin(), number.end());
    if (annotate) {
      out += L" !";
      out += internal::element_type_word_wide(type);
    }
    return out;
  }
  switch (type) {
    case vtWString:
    case vtWCharPtr: {
      wchar_t const* text = value.get<wchar_t const*>();
      if (text != nullptr) out = text;
      if (annotate) out += type == vtWString ? L" !ustring" : L" !ucharPtr";
      break;
    }
    case vtNull:
      out = L"null";
      break;
    default:
      break;
  }
  return out;
}

void write_stdout(std::wstring const& text) {
  std::string utf8;
  internal::append_wide_as_utf8(utf8, text.data(), text.size());
  std::fwrite(utf8.data(), 1, utf8.size(), stdout);
}

}  // namespace

variant_t variant_add(variant_t const& a, variant_t const& b, std::wstring const& null_text) {
  operand_class_t const ca = class_of(a);
  operand_class_t const cb = class_of(b);
  using oc = operand_class_t;
  if (ca == oc::null && cb == oc::null) return variant_t();
  if (ca == oc::null && is_number(cb)) return b;
  if (is_number(ca) && cb == oc::null) return a;
  if (ca == oc::null || cb == oc::null) return wide(text_of(a, null_text) + text_of(b, null_text));
  if (floating_pair(ca, cb)) return variant_t(double_of(a) + double_of(b));
  if (floating_with_other_pair(ca, cb)) return floating_with_other();
  if (ca == oc::integer && cb == oc::integer) {
    return integer_result(is_signed(a) && is_signed(b), word_of(a) + word_of(b));
  }
  if (is_object(a) && is_object(b)) return unsupported();
  return wide(text_of(a, null_text) + text_of(b, null_text));
}

variant_t variant_sub(variant_t const& a, variant_t const& b) {
  operand_class_t const ca = class_of(a);
  operand_class_t const cb = class_of(b);
  using oc = operand_class_t;
  if (ca == oc::null && cb == oc::null) return variant_t();
  if (cb == oc::null) return a;
  if (ca == oc::null && is_number(cb)) return variant_sub(variant_t(0), b);
  if ((ca == oc::null || is_object(a)) && is_object(b)) return unsupported();
  if (floating_pair(ca, cb)) return variant_t(double_of(a) - double_of(b));
  if (floating_with_other_pair(ca, cb)) return floating_with_other();
  if (ca == oc::integer && cb == oc::integer) {
    return variant_t(static_cast<s64_t>(word_of(a) - word_of(b)));
  }
  std::wstring text = text_of(a, std::wstring());
  if (text.empty()) return wide(text);
  std::wstring const remove = text_of(b, std::wstring());
  if (!remove.empty()) KESMET_2_18::strings::replace_all(text, remove, std::wstring());
  return wide(text);
}

namespace {

enum class product_op_t { mult, div };

variant_t product(variant_t const& a, variant_t const& b, product_op_t op) {
  operand_class_t const ca = class_of(a);
  operand_class_t const cb = class_of(b);
  using oc = operand_class_t;
  if (ca == oc::null || cb == oc::null) return variant_t();
  if (floating_pair(ca, cb)) {
    return variant_t(op == product_op_t::mult ? double_of(a) * double_of(b)
                                              : double_of(a) / double_of(b));
  }
  if (floating_with_other_pair(ca, cb)) return floating_with_other();
  if (ca != oc::integer || cb != oc::integer) return unsupported();

  bool const both_signed = is_signed(a) && is_signed(b);
  u64_t const x = word_of(a);
  u64_t const y = word_of(b);
  if (op == product_op_t::mult) return integer_result(both_signed, x * y);
  if (y == 0) {
    Q2_DAS_ASSERT_TEXT("divisor != 0");
    return variant_t();
  }
  if (!both_signed) return variant_t(x / y);
  auto const sx = static_cast<s64_t>(x);
  auto const sy = static_cast<s64_t>(y);
  // The one quotient that does not fit wraps around, as the products do.
  if (sy == -1) return variant_t(static_cast<s64_t>(0 - x));
  return variant_t(static_cast<s64_t>(sx / sy));
}

}  // namespace

variant_t variant_mult(variant_t const& a, variant_t const& b) {
  return product(a, b, product_op_t::mult);
}

variant_t variant_div(variant_t const& a, variant_t const& b) {
  return product(a, b, product_op_t::div);
}

bool variant_not(variant_t const& value) { return !bool_from_variant(value); }

bool variant_or(variant_t const& a, variant_t const& b) {
  bool const x = bool_from_variant(a);
  bool const y = bool_from_variant(b);
  return x || y;
}

bool variant_and(variant_t const& a, variant_t const& b) {
  bool const x = bool_from_variant(a);
  bool const y = bool_from_variant(b);
  return x && y;
}

void print_variant(variant_t const& value, variant_t& text, bool annotate) {
  std::wstring const printed = print_text(value, annotate);
  text = variant_t(printed.c_str(), false);
}

void debug_print_variant(variant_t const& value, bool annotate) {
  write_stdout(print_text(value, annotate));
}

void debug_print_variant_bag(variant_bag_t const& bag, bool annotate, wchar_t const* prefix) {
  // An explicit stack: a bag may nest deeper than the call stack reaches.
  struct frame_t {
    variant_bag_t const* bag;
    std::wstring prefix;
    variant_bag_t::const_iterator_t<variant_bag_t> children;
    bool started;
  };
  std::vector<frame_t> stack;
  stack.push_back({&bag, prefix != nullptr ? prefix : L"", {}, false});
  std::wstring line;
  while (!stack.empty()) {
    frame_t& frame = stack.back();
    if (!frame.started) {
      frame.started = true;
      for (auto it = frame.bag->begin<variant_t>(); !it.at_end(); it.next()) {
        line = frame.prefix;
        line += L" <";
        line += it.get_name();
        line += L"> = ";
        line += print_text(it.get_value(), annotate);
        line += L'\n';
        write_stdout(line);
      }
      frame.children = frame.bag->begin<variant_bag_t>();
    }
    if (frame.children.at_end()) {
      stack.pop_back();
      continue;
    }
    variant_bag_t const& child = frame.children.get_value();
    line = frame.prefix;
    line += L" [";
    line += frame.children.get_name();
    line += L"]\n";
    write_stdout(line);
    frame.children.next();
    std::wstring child_prefix = frame.prefix + L"\t";
    stack.push_back({&child, std::move(child_prefix), {}, false});
  }
}

wchar_t const* debug_get_variant_type(das_variant_type_t type) {
  static wchar_t const* const names[] = {L"vtBool",   L"vtDummy",   L"vtSByte",     L"vtUByte",
                                         L"vtSShort", L"vtUShort",  L"vtSInt",      L"vtUInt",
                                         L"vtSInt64", L"vtUInt64",  L"vtFloat",     L"vtDouble",
                                         L"vtString", L"vtWString", L"vtCharPtr",   L"vtWCharPtr",
                                         L"vtBlob",   L"vtNull",    L"vtNotypePtr", L"vtLast_Used"};
  auto const index = static_cast<long>(type);
  if (index < 0 || index >= static_cast<long>(sizeof names / sizeof names[0])) return nullptr;
  return names[index];
}

std::ostream& operator<<(std::ostream& stream, variant_t const& value) {
  std::wstring const text = print_text(value, true);
  std::string utf8;
  internal::append_wide_as_utf8(utf8, text.data(), text.size());
  return stream << utf8;
}

}  // namespace quillon2
