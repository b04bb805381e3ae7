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
#include <ostream>
#include <string>
#include <vector>

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
  explicit json_printer_t(bool pretty, std::ostream* out = nullptr)
      : m_out(out), m_pretty(pretty) {
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
    prefix_member();
    put_text(name, length);
    after_key();
  }
  void Key(char const* name) {
    prefix_member();
    put_ascii(name);
    after_key();
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
  // or an element; a value behind its key needs none.
  void separate() {
    if (m_has_members.empty()) return;
    char* p = room(2 + 4 * m_has_members.size());
    if (m_has_members.back()) *p++ = ',';
    m_has_members.back() = true;
    if (m_pretty) {
      *p++ = '\n';
      std::memset(p, ' ', 4 * m_has_members.size());
      p += 4 * m_has_members.size();
    }
    m_used = static_cast<std::size_t>(p - m_buffer.data());
  }
  void prefix_member() { separate(); }
  void prefix_value() {
    if (m_after_key) {
      m_after_key = false;
    } else {
      separate();
    }
  }
  void after_key() {
    char* p = room(2);
    *p++ = ':';
    if (m_pretty) *p++ = ' ';
    m_used = static_cast<std::size_t>(p - m_buffer.data());
    m_after_key = true;
  }
  void start(char bracket) {
    prefix_value();
    *room(1) = bracket;
    ++m_used;
    m_has_members.push_back(false);
  }
  void end(char bracket) {
    bool const had_members = m_has_members.back();
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

  // Quoted text of `length` units.
  void put_text(wchar_t const* text, std::size_t length) {
    char* p = room(6 * length + 2);
    *p++ = '"';
    for (std::size_t i = 0; i < length; ++i) p = put_unit(static_cast<std::uint32_t>(text[i]), p);
    *p++ = '"';
    m_used = static_cast<std::size_t>(p - m_buffer.data());
  }
  // Quoted text up to its first NUL, in blocks of units with room made once a block.
  void put_text(wchar_t const* text) {
    constexpr std::size_t block = 64;
    char* p = room(1);
    *p = '"';
    ++m_used;
    for (;;) {
      p = room(6 * block + 1);
      std::size_t i = 0;
      for (; i < block && text[i] != 0; ++i) p = put_unit(static_cast<std::uint32_t>(text[i]), p);
      if (i < block) {
        *p++ = '"';
        m_used = static_cast<std::size_t>(p - m_buffer.data());
        return;
      }
      m_used = static_cast<std::size_t>(p - m_buffer.data());
      text += block;
    }
  }

  std::ostream* const m_out;  // null: the whole text stays in the buffer
  std::string m_buffer;       // the text is its first m_used bytes
  std::size_t m_used = 0;
  std::vector<bool> m_has_members;  // of each open structure, outermost first
  bool m_after_key = false;
  bool const m_pretty;
};

}  // namespace quillon2::json::internal_printer
