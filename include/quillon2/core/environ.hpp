// Access to environment variables that remembers what the process read.
//
// The first get_environ_value of a name reads the process environment and remembers
// the value; later reads give the remembered value and count the read, whatever
// happened to the environment by other means. set_environ_value changes the
// environment and the remembered value of a name that was read before.
// iterate_environ_values lists every name read, in ascending order of name
// (case-sensitive), with its value and read count.
//
// All three are safe from any thread. The table lives until the process ends.
#pragma once

#include <string>

#include <quillon2/export.hpp>

namespace quillon2 {

// The remembered value of `name`; an unset variable reads as the empty text.
QUILLON2_API std::wstring get_environ_value(std::wstring const& name);

// Sets the variable (as UTF-8) and the remembered value of a name read before. An
// empty value removes the variable from the environment; the remembered value becomes
// empty. A name that the system cannot hold (empty, or with '=' or a zero unit) leaves
// the environment as it is, yet the remembered value still changes.
QUILLON2_API void set_environ_value(std::wstring const& name, std::wstring const& value);

// What iterate_environ_values calls for each remembered variable.
struct QUILLON2_API environ_value_callback_t {
  // Both pointers are valid only during the call. Return false to stop the walk.
  virtual bool on_value(wchar_t const* name, wchar_t const* value, unsigned read_count) = 0;
  virtual ~environ_value_callback_t();
};

// Calls `callback` for each remembered variable in ascending order of name, holding
// the table's (recursive) lock meanwhile: the callback may read and set variables on
// its own thread, but must not wait for another thread that does.
QUILLON2_API void iterate_environ_values(environ_value_callback_t& callback);

}  // namespace quillon2
