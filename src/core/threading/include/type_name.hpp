// Readable run-time class names, as the scheduler shows them in display and thread
// names.
#pragma once

#include <string>
#include <typeinfo>

namespace quillon2::internal {

// The demangled name of `type` with every "class " removed. Cached per type, so that a
// pool worker can name itself after an unnamed task for every job; the text stays where
// it is until the process ends.
std::string const& type_display_name(std::type_info const& type);

}  // namespace quillon2::internal
