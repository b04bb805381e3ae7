// What the environment table needs from the platform (posix/environ_posix.cpp).
// Names reach these functions already checked: not empty, without '=' or a zero byte.
#pragma once

#include <string>
#include <vector>

namespace quillon2::internal {

// The variable's value (UTF-8 text); false when it is not set.
bool os_get_environ(std::string const& name, std::string& value);

// Sets the variable, or removes it for an empty value. False when the system refused.
bool os_set_environ(std::string const& name, std::string const& value);

}  // namespace quillon2::internal

namespace quillon2::internal {

// Every entry of the process environment, as it stands.
void os_copy_environ(std::vector<std::string>& entries);

}  // namespace quillon2::internal
