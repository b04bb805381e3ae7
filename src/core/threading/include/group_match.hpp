// Matching of group names, shared by the scheduler and the batch cancel.
#pragma once

#include <string>

namespace quillon2::internal {

// True when `pattern` names `group` or a group below it: the empty pattern matches every
// group, "a" matches "a" and "a/b" but not "ab". Case-sensitive.
inline bool group_matches(std::wstring const& pattern, std::wstring const& group) {
  if (pattern.empty()) return true;
  if (group.size() < pattern.size()) return false;
  if (group.compare(0, pattern.size(), pattern) != 0) return false;
  return group.size() == pattern.size() || group[pattern.size()] == L'/';
}

}  // namespace quillon2::internal
