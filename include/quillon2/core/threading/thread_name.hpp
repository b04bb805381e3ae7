// Names of the threads that the library runs. Names begin with "Sh(TP): " (pool
// workers), "Sh(T): " (a thread per stage) or "Sh(D): " (timer threads), followed by what
// the thread does at the moment.
#pragma once

#include <string>

#include <quillon2/export.hpp>

namespace quillon2::threading {

// Names the calling thread. The name keeps at most 31 characters: the first 31, or, when
// `abbreviate` is true and the name has 32 characters or more, the name without its
// lower-case vowels ("a", "e", "i", "o", "u", "y"), blanks and underscores, cut to 31.
// While a debugger traces the process, the system's thread listing shows the first 15
// bytes (it may take a tenth of a second to notice a debugger that has just attached);
// get_thread_name() gives all 31.
QUILLON2_API void set_thread_name(char const* name, bool abbreviate);

// The name last given to the calling thread by set_thread_name, empty if none was.
QUILLON2_API std::string get_thread_name();

}  // namespace quillon2::threading
