// Translation of wildcard patterns into regular expressions.
#include "core/file_system/include/wildcard.hpp"

#include <stdexcept>

#include "core/file_system/include/path_grammar.hpp"
#include "core/miscellaneous/include/regex_chars.hpp"

namespace quillon2::internal {

namespace {

std::wstring to_expression(std::wstring const& pattern) {
  std::size_t start = 0;
  // The long prefix of a printed path is no part of what it matches.
  if (pattern.compare(0, k_long_prefix.size(), k_long_prefix) == 0) start = k_long_prefix.size();
  std::wstring expression;
  expression.reserve(2 * (pattern.size() - start));
  for (std::size_t i = start; i < pattern.size(); ++i) {
    wchar_t const c = pattern[i];
    switch (c) {
      case L'?':
        expression += L'.';
        break;
      case L'*':
        expression += L".*";
        break;
      case L'/':
      case L'\\':
        expression += L"\\\\";
        break;
      default:
        if (is_regex_special(c)) expression += L'\\';
        expression += c;
    }
  }
  return expression;
}

}  // namespace

wildcard_t::wildcard_t(std::wstring const& pattern) {
  try {
    m_regex.assign(to_expression(pattern));
    m_valid = true;
  } catch (std::runtime_error const&) {
    m_valid = false;
  }
}

bool wildcard_t::matches(std::wstring const& text) const {
  if (!m_valid) return false;
  try {
    return boost::regex_match(text, m_regex);
  } catch (std::runtime_error const&) {
    return false;
  }
}

}  // namespace quillon2::internal
