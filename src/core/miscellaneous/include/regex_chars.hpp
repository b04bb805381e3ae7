// The characters that have a meaning of their own in a regular expression and stand for
// themselves only behind a backslash.
#pragma once

namespace quillon2::internal {

constexpr bool is_regex_special(wchar_t c) {
  switch (c) {
    case L'.':
    case L'[':
    case L']':
    case L'{':
    case L'}':
    case L'(':
    case L')':
    case L'\\':
    case L'*':
    case L'+':
    case L'?':
    case L'|':
    case L'^':
    case L'$':
      return true;
    default:
      return false;
  }
}

}  // namespace quillon2::internal
