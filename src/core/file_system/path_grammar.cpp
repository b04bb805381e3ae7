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
// reaches the end of the text.
#include "core/file_system/include/path_grammar.hpp"

#include <cwctype>

namespace quillon2::internal {

namespace {

enum char_class_t : unsigned char { k_ordinary, k_separator, k_refused, k_wildcard };

struct char_table_t {
  char_class_t classes[128];
  constexpr char_table_t() : classes() {
    for (auto& c : classes) c = k_ordinary;
    classes[static_cast<unsigned>('\\')] = k_separator;
    classes[static_cast<unsigned>('/')] = k_separator;
    classes[static_cast<unsigned>('|')] = k_refused;
    classes[static_cast<unsigned>('>')] = k_refused;
    classes[static_cast<unsigned>('<')] = k_refused;
    classes[static_cast<unsigned>(':')] = k_refused;
    classes[static_cast<unsigned>('"')] = k_refused;
    classes[static_cast<unsigned>('*')] = k_wildcard;
    classes[static_cast<unsigned>('?')] = k_wildcard;
  }
};
constexpr char_table_t k_table;

inline char_class_t class_of(wchar_t c) {
  auto const u = static_cast<std::make_unsigned_t<wchar_t>>(c);
  return u < 128 ? k_table.classes[u] : k_ordinary;
}

inline bool is_separator(wchar_t c) { return c == L'\\' || c == L'/'; }
inline bool is_blank(wchar_t c) { return c == L' ' || c == L'\t'; }

class parser_t {
 public:
  parser_t(wchar_t const* text, std::size_t length, bool no_wildcards, path_data_t* out)
      : m_text(text), m_length(length), m_no_wildcards(no_wildcards), m_out(out) {}

  bool run(std::size_t& stop) {
    std::size_t pos = 0;
    while (pos < m_length && is_blank(m_text[pos])) ++pos;

    bool windows = true;
    bool posix = true;
    if (has_long_prefix(pos)) {
      pos += 4;
      posix = false;
    }

    if (m_out) m_out->components.reserve(m_length - pos + 1);
    bool relative = false;
    bool absolute = false;
    bool unc = false;
    std::size_t end = 0;
    if (at(pos) && at(pos + 1) && is_separator(m_text[pos]) && is_separator(m_text[pos + 1]) &&
        (end = component_end(pos + 2)) > pos + 2) {
      // UNC: the host is the first component as well.
      if (m_out) m_out->host.assign(m_text + pos + 2, end - pos - 2);
      take(pos + 2, end);
      posix = false;
      unc = absolute = true;
      pos = end;
    } else if (at(pos + 1) && m_text[pos + 1] == L':' &&
               std::iswalpha(static_cast<wint_t>(m_text[pos]))) {
      if (m_out) m_out->drive.assign(1, m_text[pos]);
      posix = false;
      absolute = true;
      pos += 2;
    } else if (at(pos) && is_separator(m_text[pos])) {
      ++pos;
      end = component_end(pos);
      take(pos, end);
      windows = false;
      absolute = true;
      pos = end;
    } else if ((end = component_end(pos)) > pos) {
      take(pos, end);
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
      take(next, end);
      pos = end;
    }
    while (pos < m_length && is_separator(m_text[pos])) ++pos;
    while (pos < m_length && is_blank(m_text[pos])) ++pos;
    if (pos != m_length) {
      stop = pos;
      return false;
    }

    if (m_out) {
      m_out->relative = relative;
      m_out->windows = windows;
      m_out->posix = posix;
      m_out->absolute = absolute;
      m_out->unc = unc;
    }
    return true;
  }

 private:
  bool at(std::size_t pos) const { return pos < m_length; }

  bool has_long_prefix(std::size_t pos) const {
    return m_length - pos >= 4 && is_separator(m_text[pos]) && is_separator(m_text[pos + 1]) &&
           m_text[pos + 2] == L'?' && is_separator(m_text[pos + 3]);
  }

  // The end of the run of component characters that starts at pos.
  std::size_t component_end(std::size_t pos) const {
    while (pos < m_length) {
      switch (class_of(m_text[pos])) {
        case k_ordinary:
          break;
        case k_wildcard:
          if (m_no_wildcards) return pos;
          break;
        default:
          return pos;
      }
      ++pos;
    }
    return pos;
  }

  void take(std::size_t begin, std::size_t end) {
    if (m_out && end > begin) m_out->components.push_back(m_text + begin, end - begin);
  }

  wchar_t const* m_text;
  std::size_t m_length;
  bool m_no_wildcards;
  path_data_t* m_out;
};

}  // namespace

bool parse_path(std::wstring_view text, bool no_wildcards, path_data_t* out, std::size_t& stop) {
  // Quotes go at both ends independently, unbalanced ones too; then the NUL cut.
  std::size_t first = 0;
  std::size_t last = text.size();
  while (first < last && text[first] == L'"') ++first;
  while (last > first && text[last - 1] == L'"') --last;
  std::wstring_view body = text.substr(first, last - first);
  std::size_t const nul = body.find(L'\0');
  if (nul != std::wstring_view::npos) body = body.substr(0, nul);

  parser_t parser(body.data(), body.size(), no_wildcards, out);
  return parser.run(stop);
}

}  // namespace quillon2::internal
