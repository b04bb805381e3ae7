// The text layer: string types, UTF-8 <-> wide conversion, case mapping, byte-order
// marks, code pages, and the number parsers and writers that the rest of quillon2
// uses.
//
// Wide text is UTF-32 on this platform (wchar_t is 32 bits): a wide string holds code
// points. Every conversion accepts any input: what is not valid text turns into
// U+FFFD (or '?' in an 8-bit code page) and nothing throws for bad input.
//
// All functions here are reentrant and may be used from any thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <locale>
#include <string>
#include <vector>

#include <quillon2/export.hpp>

namespace quillon2 {}

namespace KESMET_2_18 {
namespace strings {

using ustring8 = std::string;    // UTF-8
using ustring16 = std::wstring;  // wide text: one code point per unit
using uchar_t = wchar_t;

using s8_t = std::int8_t;
using s16_t = std::int16_t;
using s32_t = std::int32_t;
using s64_t = std::int64_t;
using u8_t = std::uint8_t;
using u16_t = std::uint16_t;
using u32_t = std::uint32_t;
using u64_t = std::uint64_t;

// Lets the text layer's users write strings::ql2::tolower and the like.
namespace ql2 = ::quillon2;

// UTF-8 of wide text. Units that are no Unicode scalar value (negative, above
// 0x10FFFF, or a lone surrogate) become U+FFFD. A high surrogate followed by a low
// one, as UTF-16 text read unit by unit gives, is joined into one code point.
QUILLON2_API ustring8 utf16_to_utf8(ustring16 const& text);

// Wide text of UTF-8. Every maximal ill-formed part (bad lead byte, truncated
// sequence, overlong form, encoded surrogate, value above 0x10FFFF) becomes one U+FFFD.
QUILLON2_API ustring16 utf8_to_utf16(ustring8 const& text);

// Replaces every occurrence of `from` by `to`, scanning left to right without
// rescanning replaced text. Returns the number of replacements; an empty `from`
// replaces nothing and gives 0.
QUILLON2_API long replace_all(ustring8& text, ustring8 const& from, ustring8 const& to);
QUILLON2_API long replace_all(ustring16& text, ustring16 const& from, ustring16 const& to);

// Options of split_string.
enum split_options_t : int {
  split_keep_empty = 0,  // every occurrence separates, empty parts are kept
  split_skip_empty = 1,  // empty parts are left out
};

// The parts of `text` between occurrences of `separator`. With options 0 a text with n
// separators gives n + 1 parts, empty ones included; an empty text gives one empty
// part. An empty separator gives the whole text as the only part.
QUILLON2_API std::vector<ustring8> split_string(ustring8 const& text, ustring8 const& separator,
                                                int options = split_keep_empty);
QUILLON2_API std::vector<ustring16> split_string(ustring16 const& text, ustring16 const& separator,
                                                 int options = split_keep_empty);

// Length in units up to the terminating zero; 0 for a null pointer.
QUILLON2_API std::size_t string_length(char const* text);
QUILLON2_API std::size_t string_length(wchar_t const* text);

// Unicode simple case mapping, one code point to one code point, independent of the
// process locale.
QUILLON2_API ustring16 to_upper(ustring16 const& text);
QUILLON2_API ustring16 to_lower(ustring16 const& text);

// The text without a leading byte-order mark (EF BB BF, or U+FEFF).
QUILLON2_API ustring8 remove_BOM(ustring8 const& text);
QUILLON2_API ustring16 remove_BOM(ustring16 const& text);

// Puts a byte-swapped text into host order when its first unit is a swapped mark and
// returns whether it did. Units are 32 bits wide, so two kinds of text are recognised:
// - first unit 0xFFFE: UTF-16 read unit by unit from the other byte order. The two
//   low bytes of every unit are exchanged (0xFFFE becomes 0xFEFF, 0x4100 becomes 0x41);
// - first unit 0xFFFE0000: UTF-32 from the other byte order. All four bytes of every
//   unit are reversed.
// The mark itself stays (as U+FEFF); remove_BOM takes it away.
QUILLON2_API bool check_BOM_and_modify_swap(ustring16& text);

// Names an 8-bit (or other) character encoding for code_page: either a name that
// iconv knows ("UTF-8", "ISO-8859-1", "CP1252", ...) or a number.
// Numbers: 0 and 1 stand for the local 8-bit encoding (the codeset of the current
// locale, ISO-8859-1 under the C/POSIX locale), 65001 for UTF-8, 1200/1201 for
// UTF-16LE/BE, 20127 for ASCII, 28591-28599 for ISO-8859-1 to -9, any other n for
// "CP<n>".
class QUILLON2_API encoding_type {
 public:
  static constexpr int local = 1;

  encoding_type(int id);  // NOLINT: numbers convert implicitly
  encoding_type(char const* name);
  encoding_type(std::string name);

  // The iconv name, resolved when the object is made.
  std::string const& name() const { return m_name; }

 private:
  std::string m_name;
};

// Conversion between UTF-8 and one code page, through iconv. Characters that the code
// page cannot hold, and bytes that are not valid in it, become '?'; nothing throws.
// An encoding that the system does not know keeps ASCII and turns every other
// character into '?'. Objects are immutable and may be shared between threads.
class QUILLON2_API code_page {
 public:
  explicit code_page(encoding_type const& encoding);
  ~code_page();
  code_page(code_page const&);
  code_page& operator=(code_page const&);

  // UTF-8 text as bytes of this code page.
  std::string encode(ustring8 const& text) const;
  // Bytes of this code page as UTF-8.
  ustring8 as_utf8(std::string const& bytes) const;

  std::string const& name() const { return m_name; }
  // Whether the system knows the encoding.
  bool is_known() const { return m_known; }

 private:
  std::string m_name;
  bool m_known = false;
};

}  // namespace strings

using namespace strings;

namespace types {
// The radix that the number parsers read. Only these four are supported.
struct radix_t {
  enum base { decimal = 10, hexadecimal = 16, octal = 8, binary = 2 };
};
}  // namespace types

namespace generic::convert {

// Number parsers. Arguments: the text, its length in units, the radix, and whether a
// number at the start of the text is enough (`prefix`).
// - The number is: optional white space, an optional sign, one or more digits of the
//   radix (hexadecimal may start with 0x), optional white space. With `prefix` false
//   (what the library passes) that must be the whole text; with `prefix` true the
//   parse stops at the first unit that does not fit, and needs only one digit.
// - Junk (no digits, or anything but the number in the text) gives 0.
// - A value beyond the type's range saturates to its minimum or maximum; a negative
//   number gives 0 for the unsigned types.
// - A null text gives 0. Units after a zero unit inside `length` count as junk.
QUILLON2_API s8_t str_to_int8(char const* text, std::size_t length,
                              types::radix_t::base radix = types::radix_t::decimal,
                              bool prefix = false);
QUILLON2_API s16_t str_to_int16(char const* text, std::size_t length,
                                types::radix_t::base radix = types::radix_t::decimal,
                                bool prefix = false);
QUILLON2_API s32_t str_to_int32(char const* text, std::size_t length,
                                types::radix_t::base radix = types::radix_t::decimal,
                                bool prefix = false);
QUILLON2_API s64_t str_to_int64(char const* text, std::size_t length,
                                types::radix_t::base radix = types::radix_t::decimal,
                                bool prefix = false);
QUILLON2_API u8_t str_to_uint8(char const* text, std::size_t length,
                               types::radix_t::base radix = types::radix_t::decimal,
                               bool prefix = false);
QUILLON2_API u16_t str_to_uint16(char const* text, std::size_t length,
                                 types::radix_t::base radix = types::radix_t::decimal,
                                 bool prefix = false);
QUILLON2_API u32_t str_to_uint32(char const* text, std::size_t length,
                                 types::radix_t::base radix = types::radix_t::decimal,
                                 bool prefix = false);
QUILLON2_API u64_t str_to_uint64(char const* text, std::size_t length,
                                 types::radix_t::base radix = types::radix_t::decimal,
                                 bool prefix = false);

QUILLON2_API s8_t str_to_int8(wchar_t const* text, std::size_t length,
                              types::radix_t::base radix = types::radix_t::decimal,
                              bool prefix = false);
QUILLON2_API s16_t str_to_int16(wchar_t const* text, std::size_t length,
                                types::radix_t::base radix = types::radix_t::decimal,
                                bool prefix = false);
QUILLON2_API s32_t str_to_int32(wchar_t const* text, std::size_t length,
                                types::radix_t::base radix = types::radix_t::decimal,
                                bool prefix = false);
QUILLON2_API s64_t str_to_int64(wchar_t const* text, std::size_t length,
                                types::radix_t::base radix = types::radix_t::decimal,
                                bool prefix = false);
QUILLON2_API u8_t str_to_uint8(wchar_t const* text, std::size_t length,
                               types::radix_t::base radix = types::radix_t::decimal,
                               bool prefix = false);
QUILLON2_API u16_t str_to_uint16(wchar_t const* text, std::size_t length,
                                 types::radix_t::base radix = types::radix_t::decimal,
                                 bool prefix = false);
QUILLON2_API u32_t str_to_uint32(wchar_t const* text, std::size_t length,
                                 types::radix_t::base radix = types::radix_t::decimal,
                                 bool prefix = false);
QUILLON2_API u64_t str_to_uint64(wchar_t const* text, std::size_t length,
                                 types::radix_t::base radix = types::radix_t::decimal,
                                 bool prefix = false);

// `int` of wide text, with the rules above.
QUILLON2_API int str_to_int(wchar_t const* text, std::size_t length,
                            types::radix_t::base radix = types::radix_t::decimal,
                            bool prefix = false);

// Floating-point text with the decimal point (and, where the locale groups digits,
// the thousands separator in the integer part) of `locale`. White space around the
// number is allowed; "inf", "nan" and exponents are read. Junk gives 0; a value too
// large gives +-infinity, one too small 0.
QUILLON2_API double str_to_double(ustring8 const& text,
                                  std::locale const& locale = std::locale::classic());
QUILLON2_API float str_to_float(ustring8 const& text,
                                std::locale const& locale = std::locale::classic());

// Number writers: the value as zero-terminated text in `buffer`, which must hold the
// longest result (65 units for radix 2 and 64-bit values, plus the sign). Digits above
// 9 are lower-case letters. A negative value is written with '-' in radix 10 and as
// its two's complement in other radices. A radix outside 2..36 writes the empty text.
// Returns `buffer`; a null buffer writes nothing and gives null.
QUILLON2_API char* ltoa(long value, char* buffer, int radix);
QUILLON2_API wchar_t* ltoa(long value, wchar_t* buffer, int radix);
QUILLON2_API char* ultoa(unsigned long value, char* buffer, int radix);
QUILLON2_API char* lltoa(long long value, char* buffer, int radix);
QUILLON2_API char* ulltoa(unsigned long long value, char* buffer, int radix);

}  // namespace generic::convert

namespace debug::_private {
// Reports a failed assertion (condition, file, line, function) and returns; see
// <quillon2/core/assert.hpp> for where the report goes.
QUILLON2_API void ____________________ASSERT____________________(char const* condition,
                                                                 char const* file, unsigned line,
                                                                 char const* function);
}  // namespace debug::_private

}  // namespace KESMET_2_18

namespace kesmet2 = KESMET_2_18;

namespace quillon2 {

using KESMET_2_18::strings::s16_t;
using KESMET_2_18::strings::s32_t;
using KESMET_2_18::strings::s64_t;
using KESMET_2_18::strings::s8_t;
using KESMET_2_18::strings::u16_t;
using KESMET_2_18::strings::u32_t;
using KESMET_2_18::strings::u64_t;
using KESMET_2_18::strings::u8_t;

// Lower case of wide text, as KESMET_2_18::strings::to_lower.
QUILLON2_API std::wstring tolower(std::wstring const& text);

// The text in the local 8-bit encoding (the codeset of the current locale, ISO-8859-1
// under the C/POSIX locale); characters that it cannot hold become '?'.
QUILLON2_API std::string to_ansi(std::wstring const& text);

// Whether a complete, valid UTF-8 sequence starts at `bytes` within `size` bytes. A
// sequence cut off by `size` is not valid.
QUILLON2_API bool validate_utf8(unsigned char const* bytes, std::size_t size);

// How many bytes the UTF-8 sequence at `bytes` takes: its length when it is valid,
// otherwise the length of its maximal ill-formed part (at least 1), which is what a
// decoder replaces by one U+FFFD. 0 for a null pointer or a size of 0.
QUILLON2_API std::size_t get_utf8_length(unsigned char const* bytes, std::size_t size);

// The short name inside the library's namespace; a client who wants it everywhere
// defines QUILLON2_GLOBAL_ALIAS.
namespace ql2 = ::quillon2;

}  // namespace quillon2

#ifdef QUILLON2_GLOBAL_ALIAS
namespace ql2 = ::quillon2;
#endif
