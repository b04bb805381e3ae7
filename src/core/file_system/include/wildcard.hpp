// The wildcard language of path_t::match, compiled once so that a search can test
// many paths against one pattern.
//
// "?" stands for one character and "*" for any run, separators included; "/" and
// "\" both stand for the backslash of printed paths; everything else is literal.
// Matching is case-sensitive and covers the whole text.
#pragma once

#include <string>

#include <boost/regex.hpp>

namespace quillon2::internal {

class wildcard_t {
 public:
  explicit wildcard_t(std::wstring const& pattern);

  // Whether the whole text matches. False for a pattern that could not be compiled
  // and for a match that the regular-expression engine gave up on.
  bool matches(std::wstring const& text) const;

 private:
  boost::wregex m_regex;
  bool m_valid = false;
};

}  // namespace quillon2::internal
