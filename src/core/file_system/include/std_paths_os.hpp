// What the standard directories need from the operating system (posix/std_paths_os.cpp).
// Every text is a native file name in UTF-8; the empty text means "not found".
#pragma once

#include <string>

namespace quillon2::internal::std_paths_os {

std::string user_config_root();
std::string shared_config_root();
std::string documents_dir();
std::string temp_dir();
// The file of the running program, and of the module that holds `address` (the
// program's own file when the program holds it or nothing does).
std::string executable_file();
std::string module_file(void const* address);
std::string working_dir();
bool change_dir(std::string const& native);
// Makes `native` and every missing level above it with `mode`. True when something of
// that name exists at the end.
bool make_directories(std::string const& native, unsigned mode);

}  // namespace quillon2::internal::std_paths_os
