// path_t: construction, printing and the operations on the parsed form. None of
// this touches the file system; the probes are in path_probes.cpp.
#include <locale>
#include <vector>

#include <quillon2/core/file_system/path.hpp>
#include <quillon2/headers/kesmet.hpp>

#include "core/file_system/include/path_grammar.hpp"
#include "core/file_system/include/wildcard.hpp"

namespace quillon2 {

namespace {

using internal::path_data_t;
using view_t = std::wstring_view;

// Printed forms of this length and more get the long prefix.
constexpr std::size_t k_long_path = 248;
using internal::k_long_prefix;

// What a printed form starts with, before its components.
view_t head_of(path_data_t const& p) {
  if (p.relative || !p.absolute) return view_t();
  if (!p.windows) return p.posix && p.components.empty() ? view_t(L"\\", 1) : view_t();
  if (p.unc) return view_t(L"\\", 1);
  return view_t();  // drive paths are handled by the caller: their head is not constant
}

// The drive letter as text: one character, or none.
view_t drive_of(path_data_t const& p) { return p.drive ? view_t(&p.drive, 1) : view_t(); }

// Case-insensitive comparison under the global locale, as operator== defines it.
class ignore_case_t {
 public:
  ignore_case_t() : m_locale(), m_ctype(std::use_facet<std::ctype<wchar_t>>(m_locale)) {}
  bool equal(view_t a, view_t b) const {
    if (a.size() != b.size()) return false;
    for (std::size_t i = 0; i < a.size(); ++i) {
      if (a[i] != b[i] && m_ctype.toupper(a[i]) != m_ctype.toupper(b[i])) return false;
    }
    return true;
  }

 private:
  std::locale m_locale;
  std::ctype<wchar_t> const& m_ctype;
};

}  // namespace

path_t::path_t(std::wstring const& text) {
  // A refused text leaves the path as it is: empty.
  std::size_t stop = 0;
  internal::parse_path(text, false, &m_path, stop);
}

path_t::path_t(wchar_t const* text) {
  std::size_t stop = 0;
  if (text) internal::parse_path(text, false, &m_path, stop);
}

bool path_t::validate(std::wstring const& text, bool no_wildcards, int& error_position) {
  std::size_t stop = 0;
  if (internal::parse_path(text, no_wildcards, nullptr, stop)) {
    error_position = -1;
    return true;
  }
  error_position = static_cast<int>(stop);
  return false;
}

std::size_t path_t::printed_length() const {
  auto const& p = m_path;
  std::size_t const n = p.components.size();
  if (p.relative) return p.components.text_length() + (n ? n - 1 : 0);
  if (!p.absolute) return 0;
  std::size_t length = p.components.text_length() + n;
  if (p.windows && !p.unc) {
    length += drive_of(p).size() + 1 + (n == 0 ? 1 : 0);
  } else {
    length += head_of(p).size();
  }
  return length;
}

bool path_t::is_empty() const { return printed_length() == 0; }

std::wstring path_t::as_string(bool no_long_prefix) const {
  auto const& p = m_path;
  std::size_t const length = printed_length();
  bool const prefixed = !no_long_prefix && length >= k_long_path;
  std::wstring text;
  text.reserve(length + (prefixed ? k_long_prefix.size() : 0));
  if (prefixed) text.append(k_long_prefix.data(), k_long_prefix.size());
  if (p.relative) {
    bool first = true;
    for (view_t c : p.components) {
      if (!first) text += L'\\';
      text.append(c.data(), c.size());
      first = false;
    }
    return text;
  }
  if (!p.absolute) return text;
  if (p.windows && !p.unc) {
    text += drive_of(p);
    text += L':';
    if (p.components.empty()) text += L'\\';
  } else {
    view_t const head = head_of(p);
    text.append(head.data(), head.size());
  }
  for (view_t c : p.components) {
    text += L'\\';
    text.append(c.data(), c.size());
  }
  return text;
}

std::list<std::wstring> path_t::as_string_list() const {
  auto const& p = m_path;
  std::list<std::wstring> list;
  auto it = p.components.begin();
  if (p.unc) {
    if (it == p.components.end()) return list;
    list.emplace_back(L"\\\\" + std::wstring(*it));
    ++it;
  } else if (p.windows && p.absolute) {
    list.emplace_back(std::wstring(drive_of(p)) + L":");
  }
  for (; it != p.components.end(); ++it) list.emplace_back(*it);
  return list;
}

std::string path_t::native_string() const {
  auto const& p = m_path;
  if (is_empty() || (p.absolute && p.windows)) return std::string();
  std::wstring text;
  text.reserve(printed_length() + 1);
  if (p.absolute) text += L'/';
  bool first = true;
  for (view_t c : p.components) {
    if (!first) text += L'/';
    text.append(c.data(), c.size());
    first = false;
  }
  return KESMET_2_18::strings::utf16_to_utf8(text);
}

std::wstring path_t::get_leaf() const {
  if (m_path.components.empty()) return std::wstring();
  return std::wstring(m_path.components.back());
}

std::wstring path_t::get_branch() const {
  auto const& p = m_path;
  std::size_t const n = p.components.size();
  if (n == 0 || is_empty()) return std::wstring();
  std::wstring text;
  if (p.relative) {
    std::size_t i = 0;
    for (view_t c : p.components) {
      if (++i == n) break;
      if (i > 1) text += L'\\';
      text.append(c.data(), c.size());
    }
    return text;
  }
  if (p.unc) {
    text = L"\\";
  } else if (p.windows) {
    text = std::wstring(drive_of(p)) + L":";
  }
  if (n == 1) {
    text += L'\\';
    return text;
  }
  std::size_t i = 0;
  for (view_t c : p.components) {
    if (++i == n) break;
    text += L'\\';
    text.append(c.data(), c.size());
  }
  return text;
}

std::wstring path_t::get_ext() const {
  if (m_path.components.empty() || is_directory()) return std::wstring();
  view_t const leaf = m_path.components.back();
  std::size_t const dot = leaf.rfind(L'.');
  if (dot == view_t::npos) return std::wstring();
  return std::wstring(leaf.substr(dot + 1));
}

bool path_t::change_ext(std::wstring const& ext) {
  if (m_path.components.empty()) return false;
  std::wstring leaf(m_path.components.back());
  std::size_t const dot = leaf.rfind(L'.');
  if (dot == std::wstring::npos) {
    leaf += L'.';
    leaf += ext;
  } else if (ext.empty() && dot > 0) {
    leaf.resize(dot);
  } else {
    leaf.resize(dot + 1);
    leaf += ext;
  }
  m_path.components.replace_back(leaf);
  return true;
}

bool path_t::append(path_t const& other) { return append(other.m_path); }

bool path_t::append(internal_t const& other) {
  if (other.absolute || other.unc) return false;
  if (is_empty()) {
    if (&other != &m_path) m_path = other;
    return true;
  }
  m_path.components.append(other.components);
  return true;
}

bool path_t::assign(path_t const& other) { return assign(other.m_path); }

bool path_t::assign(internal_t const& other) {
  if (&other != &m_path) m_path = other;
  return true;
}

bool path_t::assign(std::list<std::wstring> const& parts) {
  std::wstring text;
  bool first = true;
  for (auto const& part : parts) {
    if (!first) text += L'\\';
    text += part;
    first = false;
  }
  *this = path_t(text);
  return true;
}

bool path_t::normalize() {
  std::vector<view_t> kept;
  kept.reserve(m_path.components.size());
  bool const absolute = m_path.absolute;
  for (view_t c : m_path.components) {
    if (c == L".") continue;
    if (c != L"..") {
      kept.push_back(c);
    } else if (kept.empty()) {
      if (absolute) return false;
      kept.push_back(c);
    } else if (!absolute && kept.back() == L"..") {
      kept.push_back(c);
    } else {
      kept.pop_back();
    }
  }
  _internal::component_list_t<std::wstring> rebuilt;
  rebuilt.assign(m_path.components.host(), kept);
  m_path.components.swap(rebuilt);
  return true;
}

path_t path_t::get_relative(path_t const& other) const {
  if (is_empty()) return other;
  if (other.is_empty()) return *this;
  auto const& a = m_path;
  auto const& b = other.m_path;
  if (a.relative != b.relative || a.windows != b.windows || a.posix != b.posix ||
      a.drive != b.drive || a.components.host() != b.components.host() ||
      a.absolute != b.absolute || a.unc != b.unc) {
    return path_t();
  }
  ignore_case_t const ignore_case;
  auto ia = a.components.begin();
  auto ib = b.components.begin();
  while (ia != a.components.end() && ib != b.components.end() && ignore_case.equal(*ia, *ib)) {
    ++ia;
    ++ib;
  }
  std::size_t left_here = 0;
  std::size_t left_there = 0;
  for (auto it = ia; it != a.components.end(); ++it) ++left_here;
  for (auto it = ib; it != b.components.end(); ++it) ++left_there;

  // Climb out of what is left of other; when both have components left, only as far
  // as other reaches deeper than this path.
  std::size_t climbs = 0;
  if (left_here == 0) {
    climbs = left_there;
  } else if (left_there > left_here) {
    climbs = left_there - left_here;
  }
  path_t result;
  path_t const up(L"..");
  for (std::size_t i = 0; i < climbs; ++i) result.append(up);
  for (; ia != a.components.end(); ++ia) result.append(path_t(std::wstring(*ia)));
  result.normalize();
  if (result.is_empty()) result.append(path_t(L"."));
  return result;
}

void path_t::to_lower() {
  std::vector<std::wstring> texts;
  texts.reserve(m_path.components.size());
  for (view_t c : m_path.components) texts.push_back(ql2::tolower(std::wstring(c)));
  std::vector<view_t> views(texts.begin(), texts.end());
  _internal::component_list_t<std::wstring> lowered;
  lowered.assign(m_path.components.host(), views);
  m_path.components.swap(lowered);
}

bool path_t::match(std::wstring const& pattern) const {
  return internal::wildcard_t(pattern).matches(as_string(true));
}

bool path_t::operator==(path_t const& other) const {
  auto const& a = m_path;
  auto const& b = other.m_path;
  if (a.relative != b.relative || a.windows != b.windows || a.posix != b.posix ||
      a.absolute != b.absolute || a.unc != b.unc) {
    return false;
  }
  if (a.components.size() != b.components.size()) {
    // Decided before the case-insensitive work; the outcome is the same.
    return false;
  }
  ignore_case_t const ignore_case;
  if (!ignore_case.equal(a.components.host(), b.components.host()) ||
      !ignore_case.equal(drive_of(a), drive_of(b))) {
    return false;
  }
  auto ib = b.components.begin();
  for (view_t c : a.components) {
    if (!ignore_case.equal(c, *ib)) return false;
    ++ib;
  }
  return true;
}

bool path_t::operator<(path_t const& other) const { return as_string() < other.as_string(); }

path_t make_path(std::wstring const& text) {
  path_t path(text == L"-1" ? std::wstring(L"?") : text);
  path.normalize();
  return path;
}

path_t make_path(std::string const& text) {
  return make_path(KESMET_2_18::strings::utf8_to_utf16(text));
}

}  // namespace quillon2
