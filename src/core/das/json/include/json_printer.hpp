// The printer of the save functions: JSON text straight into one UTF-8 buffer, compact or
// readable (four spaces of indent a level, "key": value), byte for byte the
// text that RapidJSON's Writer and PrettyWriter give for the same events.
//
// Wide text (UTF-32) is escaped and encoded in one pass: '"', '\\' and the control
// characters are escaped ("\b\t\n\f\r" short, the others "\u00XX"), everything else goes
// out as raw UTF-8; a unit that is no Unicode scalar value becomes U+FFFD. Doubles use
// RapidJSON's shortest-digits conversion, so the number formats stay those of its writer.
//
// Given a stream, the printer hands the buffer to it whenever the buffer is full, so that a
// save of any size works in 64 KiB that stay in the cache; without one the buffer grows
// until the whole text is in it.
//
// One printer belongs to one save on one thread.
#pragma once

#include <charconv>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <cwchar>
#include <ostream>
#include <string>
#include <vector>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include <rapidjson/internal/dtoa.h>

#include "core/miscellaneous/include/utf8.hpp"

namespace quillon2::json::internal_printer {

// What follows a backslash for each ASCII character, 0 for the ones written as they are.
struct escape_table_t {
  char code[128];
  constexpr escape_table_t() : code() {
    for (int c = 0; c < 0x20; ++c) code[c] = 'u';
    code[int{'\b'}] = 'b';
    code[int{'\t'}] = 't';
    code[int{'\n'}] = 'n';
    code[int{'\f'}] = 'f';
    code[int{'\r'}] = 'r';
    code[int{'"'}] = '"';
    code[int{'\\'}] = '\\';
  }
};
inline constexpr escape_table_t escapes{};

class json_printer_t {
 public:
  explicit json_printer_t(bool pretty, std::ostream* out = nullptr) : m_out(out), m_pretty(pretty) {
    m_buffer.resize(1 << 16);
  }

  // The text printed so far; with a stream, only what is not yet handed to it.
  char const* data() const { return m_buffer.data(); }
  std::size_t size() const { return m_used; }

  // Hands what the buffer holds to the stream.
  void flush() {
    if (m_out == nullptr || m_used == 0) return;
    m_out->write(m_buffer.data(), static_cast<std::streamsize>(m_used));
    m_used = 0;
  }

  void Null() { literal("null", 4); }
  void Bool(bool value) { value ? literal("true", 4) : literal("false", 5); }
  template <class T>
  void Integer(T value) {
    char* p = value_room(24);
    m_used = static_cast<std::size_t>(std::to_chars(p, p + 24, value).ptr - m_buffer.data());
  }
  void Double(double value) {
    char* p = value_room(25);
    m_used = static_cast<std::size_t>(rapidjson::internal::dtoa(value, p) - m_buffer.data());
  }
  // Text up to its first NUL.
  void String(wchar_t const* text) {
    prefix_value();
    put_text(text);
  }
  // ASCII text without anything to escape.
  void String(char const* text) {
    prefix_value();
    put_ascii(text);
  }
  // A key of `length` units (no NUL among them).
  void Key(wchar_t const* name, std::size_t length) {
    char* p = room(separator_room() + 6 * length + 4);
    p = put_separator(p);
    *p++ = '"';
    p = put_units(name, length, p);
    *p++ = '"';
    end_key(p);
  }
  void Key(char const* name) {
    separate();
    put_ascii(name);
    end_key(room(2));
  }
  void StartObject() { start('{'); }
  void StartArray() { start('['); }
  void EndObject() { end('}'); }
  void EndArray() { end(']'); }

 private:
  // Room for `count` more bytes at the end of the text. Only here may the buffer be
  // flushed, so a flush never falls inside a character or an escape.
  char* room(std::size_t count) {
    if (m_buffer.size() - m_used < count) {
      flush();
      if (m_buffer.size() - m_used >= count) return m_buffer.data() + m_used;
      std::size_t size = m_buffer.size() * 2;
      while (size - m_used < count) size *= 2;
      m_buffer.resize(size);
    }
    return m_buffer.data() + m_used;
  }
  char* value_room(std::size_t count) {
    prefix_value();
    return room(count);
  }
  void literal(char const* text, std::size_t length) {
    std::memcpy(value_room(length), text, length);
    m_used += length;
  }

  // The separator (and in the readable form the line break and indent) before a member
  // or an element; a value behind its key needs none. separator_room() bytes at `p`
  // take it.
  std::size_t separator_room() const { return m_pretty ? 2 + 4 * m_has_members.size() : 1; }
  char* put_separator(char* p) {
    if (m_has_members.empty()) return p;
    char& has_members = m_has_members.back();
    if (has_members) *p++ = ',';
    has_members = 1;
    if (m_pretty) {
      *p++ = '\n';
      std::memset(p, ' ', 4 * m_has_members.size());
      p += 4 * m_has_members.size();
    }
    return p;
  }
  void separate() {
    char* const p = put_separator(room(separator_room()));
    m_used = static_cast<std::size_t>(p - m_buffer.data());
  }
  void prefix_value() {
    if (m_after_key) {
      m_after_key = false;
    } else {
      separate();
    }
  }
  // What follows a key (":", and a space in the readable form) at `p`, which has room
  // for it.
  void end_key(char* p) {
    *p++ = ':';
    if (m_pretty) *p++ = ' ';
    m_used = static_cast<std::size_t>(p - m_buffer.data());
    m_after_key = true;
  }
  void start(char bracket) {
    prefix_value();
    *room(1) = bracket;
    ++m_used;
    m_has_members.push_back(0);
  }
  void end(char bracket) {
    bool const had_members = m_has_members.back() != 0;
    m_has_members.pop_back();
    char* p = room(2 + 4 * m_has_members.size());
    if (m_pretty && had_members) {
      *p++ = '\n';
      std::memset(p, ' ', 4 * m_has_members.size());
      p += 4 * m_has_members.size();
    }
    *p++ = bracket;
    m_used = static_cast<std::size_t>(p - m_buffer.data());
  }

  // One unit of wide text at `p`, escaped or encoded; at most 6 bytes.
  static char* put_unit(std::uint32_t c, char* p) {
    if (c < 0x80) {
      char const code = escapes.code[c];
      if (code == 0) {
        *p++ = static_cast<char>(c);
      } else {
        *p++ = '\\';
        *p++ = code;
        if (code == 'u') {
          static char const hex[] = "0123456789ABCDEF";
          *p++ = '0';
          *p++ = '0';
          *p++ = hex[c >> 4];
          *p++ = hex[c & 0xF];
        }
      }
      return p;
    }
    return internal::encode_utf8(internal::scalar_or_replacement(c), p);
  }

  // Quoted ASCII text that needs no escape.
  void put_ascii(char const* text) {
    std::size_t const length = std::strlen(text);
    char* p = room(length + 2);
    *p++ = '"';
    std::memcpy(p, text, length);
    p[length] = '"';
    m_used += length + 2;
  }

  // `length` units escaped and encoded at `p`, which has room for 6 bytes a unit. Four
  // units at a time go out as they are when none of them needs an escape or encoding
  // (most text); otherwise the four go one by one.
  static char* put_units(wchar_t const* text, std::size_t length, char* p) {
    std::size_t i = 0;
#if defined(__SSE2__)
    static_assert(sizeof(wchar_t) == 4, "four units fill a vector");
    __m128i const below = _mm_set1_epi32(0x20);
    __m128i const above = _mm_set1_epi32(0x7F);
    __m128i const quote = _mm_set1_epi32('"');
    __m128i const backslash = _mm_set1_epi32('\\');
    while (i + 4 <= length) {
      __m128i const units = _mm_loadu_si128(reinterpret_cast<__m128i const*>(text + i));
      // A unit goes out as it is when 0x20 <= unit <= 0x7F (compared signed, so that no
      // unit above 0x7FFFFFFF passes) and it is neither '"' nor '\\'.
      __m128i const odd = _mm_or_si128(
          _mm_or_si128(_mm_cmplt_epi32(units, below), _mm_cmpgt_epi32(units, above)),
          _mm_or_si128(_mm_cmpeq_epi32(units, quote), _mm_cmpeq_epi32(units, backslash)));
      if (_mm_movemask_epi8(odd) != 0) {
        for (std::size_t const stop = i + 4; i < stop; ++i) {
          p = put_unit(static_cast<std::uint32_t>(text[i]), p);
        }
        continue;
      }
      __m128i const words = _mm_packs_epi32(units, units);
      std::uint32_t const bytes =
          static_cast<std::uint32_t>(_mm_cvtsi128_si32(_mm_packus_epi16(words, words)));
      std::memcpy(p, &bytes, 4);
      p += 4;
      i += 4;
    }
#endif
    for (; i < length; ++i) p = put_unit(static_cast<std::uint32_t>(text[i]), p);
    return p;
  }

  // Quoted text up to its first NUL, in blocks of units with room made once a block.
  void put_text(wchar_t const* text) {
    constexpr std::size_t block = 64;
    std::size_t left = std::wcslen(text);
    char* p = room(1);
    *p = '"';
    ++m_used;
    for (;;) {
      std::size_t const count = left < block ? left : block;
      p = put_units(text, count, room(6 * count + 1));
      text += count;
      left -= count;
      if (left == 0) break;
      m_used = static_cast<std::size_t>(p - m_buffer.data());
    }
    *p++ = '"';
    m_used = static_cast<std::size_t>(p - m_buffer.data());
  }

  std::ostream* const m_out;  // null: the whole text stays in the buffer
  std::string m_buffer;       // the text is its first m_used bytes
  std::size_t m_used = 0;
  std::vector<char> m_has_members;  // of each open structure, outermost first
  bool m_after_key = false;
  bool const m_pretty;
};

}  // namespace quillon2::json::internal_printer
