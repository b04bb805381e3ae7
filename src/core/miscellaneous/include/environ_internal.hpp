// Reading a variable for the library's own set-up (such as the logging configuration)
// without entering it into the environment table. The read is serialised with the
// table's reads and writes, so it never races with set_environ_value.
#pragma once

#include <string>
#include <vector>

namespace quillon2::internal {

// The variable's value as UTF-8; false when it is not set.
bool read_environ_unrecorded(std::string const& name, std::string& value);

}  // namespace quillon2::internal

namespace quillon2::internal {

// Copies every "NAME=value" entry of the process environment, as bytes, serialised with
// the table's reads and writes (a setenv of another thread may free the array meanwhile).
void copy_environ_unrecorded(std::vector<std::string>& entries);

}  // namespace quillon2::internal
