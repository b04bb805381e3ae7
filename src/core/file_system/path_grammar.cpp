// The path grammar, written out by hand as a recursive-descent parser without
// backtracking into repetitions. In order, the text is:
//
//   blank*  long-prefix?  head  ( separator* component )*  separator*  blank*
//
//   blank       space or tab
//   separator   "\" or "/"
//   refused     | > < : "   (with no_wildcards also * and ?)
//   component   one or more characters that are neither separators nor refused;
//               blanks are ordinary component characters
//   long-prefix separator separator "?" separator; it makes the path non-POSIX
//   head        the first that matches of
//                 UNC       separator separator component  (the component is the host)
//                 drive     a letter (iswalpha) and ":"
//                 rooted    separator component?
//                 relative  component
//
// A repetition stops at the first round that doesn't match whole, and gives back
// the separators of that round to the tail; the parse succeeds only when the tail
// reaches the end of the text, which is its first NUL. Every loop stops at a NUL,
// since it is neither a blank, nor a separator, nor a component character.
#include "core/file_system/include/path_grammar.hpp"

#include <cwctype>
#include <type_traits>
#include <vector>

namespace quillon2::internal {

namespace {

using view_t = std::wstring_view;

// Which characters end a component: separators, refused characters and NUL (where
// the text ends). One table allows wildcards, the other refuses them.
struct stop_table_t {
  bool stops[2][128];
  constexpr stop_table_t() : stops() {
    for (int wild = 0; wild < 2; ++wild) {
      for (char c : {'\\', '/', '|', '>', '<', ':', '"', '\0'}) {
        stops[wild][static_cast<unsigned char>(c)] = true;
      }
    }
    stops[1][static_cast<unsigned char>('*')] = true;
    stops[1][static_cast<unsigned char>('?')] = true;
  }
};
constexpr stop_table_t k_stops;

inline bool is_separator(wchar_t c) { return c == L'\\' || c == L'/'; }
inline bool is_blank(wchar_t c) { return c == L' ' || c == L'\t'; }

// Components found so far, as offsets into the text. Most paths have few, so they
// stay on the stack, in storage that is not cleared first.
class found_parts_t {
 public:
  explicit found_parts_t(wchar_t const* text) : m_text(text) {}
  void add(std::size_t begin, std::size_t end) {
    if (m_count < k_inline) {
      m_inline[m_count] = part_t{begin, end - begin};
    } else {
      if (m_count == k_inline) m_more.assign(m_inline, m_inline + k_inline);
      m_more.push_back(part_t{begin, end - begin});
    }
    ++m_count;
  }
  std::size_t size() const { return m_count; }
  view_t operator[](std::size_t i) const {
    part_t const& p = m_count <= k_inline ? m_inline[i] : m_more[i];
    return view_t(m_text + p.begin, p.length);
  }

 private:
  struct part_t {
    std::size_t begin;
    std::size_t length;
  };
  static constexpr std::size_t k_inline = 24;
  wchar_t const* m_text;
  part_t m_inline[k_inline];
  std::vector<part_t> m_more;
  std::size_t m_count = 0;
};

class parser_t {
 public:
  parser_t(wchar_t const* text, std::size_t length, bool no_wildcards)
      : m_text(text),
        m_length(length),
        m_stops(k_stops.stops[no_wildcards ? 1 : 0]),
        m_parts(text) {}

  bool run(path_data_t* out, std::size_t& stop) {
    std::size_t pos = 0;
    while (pos < m_length && is_blank(m_text[pos])) ++pos;

    bool windows = true;
    bool posix = true;
    if (has_long_prefix(pos)) {
      pos += 4;
      posix = false;
    }

    bool relative = false;
    bool absolute = false;
    bool unc = false;
    wchar_t drive = 0;
    view_t host;
    std::size_t end = 0;
    if (is_separator(at(pos)) && is_separator(at(pos + 1)) &&
        (end = component_end(pos + 2)) > pos + 2) {
      // UNC: the host is the first component as well.
      host = view_t(m_text + pos + 2, end - pos - 2);
      m_parts.add(pos + 2, end);
      posix = false;
      unc = absolute = true;
      pos = end;
    } else if (at(pos + 1) == L':' && at(pos) != 0 &&
               std::iswalpha(static_cast<wint_t>(m_text[pos]))) {
      drive = m_text[pos];
      posix = false;
      absolute = true;
      pos += 2;
    } else if (is_separator(at(pos))) {
      ++pos;
      end = component_end(pos);
      if (end > pos) m_parts.add(pos, end);
      windows = false;
      absolute = true;
      pos = end;
    } else if ((end = component_end(pos)) > pos) {
      m_parts.add(pos, end);
      relative = true;
      pos = end;
    } else {
      stop = pos;
      return false;
    }

    for (;;) {
      std::size_t next = pos;
      while (next < m_length && is_separator(m_text[next])) ++next;
      end = component_end(next);
      if (end == next) break;
      m_parts.add(next, end);
      pos = end;
    }
    while (pos < m_length && is_separator(m_text[pos])) ++pos;
    while (pos < m_length && is_blank(m_text[pos])) ++pos;
    // The text ends at its first NUL.
    if (pos != m_length && m_text[pos] != 0) {
      stop = pos;
      return false;
    }

    if (out) {
      out->components.assign(host, m_parts);
      out->relative = relative;
      out->windows = windows;
      out->posix = posix;
      out->drive = drive;
      out->absolute = absolute;
      out->unc = unc;
    }
    return true;
  }

 private:
  // The character at pos, or NUL past the end.
  wchar_t at(std::size_t pos) const { return pos < m_length ? m_text[pos] : 0; }

  bool has_long_prefix(std::size_t pos) const {
    return is_separator(at(pos)) && is_separator(at(pos + 1)) && at(pos + 2) == L'?' &&
           is_separator(at(pos + 3));
  }

  // The end of the run of component characters that starts at pos.
  std::size_t component_end(std::size_t pos) const {
    while (pos < m_length) {
      auto const u = static_cast<std::make_unsigned_t<wchar_t>>(m_text[pos]);
      if (u < 128 && m_stops[u]) break;
      ++pos;
    }
    return pos;
  }

  wchar_t const* m_text;
  std::size_t m_length;
  bool const* m_stops;
  found_parts_t m_parts;
};

}  // namespace

bool parse_path(std::wstring_view text, bool no_wildcards, path_data_t* out, std::size_t& stop) {
  // Quotes go at both ends independently, unbalanced ones too. The NUL that ends
  // the text is found by the parse itself.
  std::size_t first = 0;
  std::size_t last = text.size();
  while (first < last && text[first] == L'"') ++first;
  while (last > first && text[last - 1] == L'"') --last;
  parser_t parser(text.data() + first, last - first, no_wildcards);
  return parser.run(out, stop);
}

}  // namespace quillon2::internal
