// The environment of a child process: a table of variables that starts empty or as a
// copy of this process's environment, takes further variables from "NAME=value" lines
// with %NAME% references expanded, prepends or appends to list values such as PATH
// (separator ":"), and yields the block handed to the child.
//
// Names keep their own spelling; Linux names are case-sensitive and both `http_proxy`
// and `HTTP_PROXY` may be set. A name given to get(), a %NAME% reference and the name of
// a line of addLines() find a variable this way: an exact match wins; otherwise a match
// that ignores case, when there is exactly one. A line whose name finds nothing adds a
// variable under the name as written; addValues() always writes under the name as given.
//
// A variable copied from the process keeps its bytes until it is changed, so a value
// that is not UTF-8 reaches the child unaltered. Names that are empty or contain "=" are
// kept in the table but never reach the block.
//
// An environment has no lock: it belongs to one thread at a time.
#pragma once

#include <string>

#include <quillon2/core/error_code.hpp>
#include <quillon2/core/object_interface.hpp>
#include <quillon2/export.hpp>
#include <quillon2/headers/iterator.hpp>

namespace quillon2::process {

class QUILLON2_API IEnvironment : public object_interface_t {
 public:
  // Empties the table and copies the environment of the current process into it.
  virtual error_code_t loadFromProcess() = 0;
  // Adds the "NAME=value" lines of `text` (split at line feeds; a carriage return stays
  // in the value). Values are expanded against the table as it stands: %X% gives X's
  // value or nothing, %% gives "%", an unclosed "%" stays. With `merge`, a non-empty
  // value goes in front of an existing non-empty one, joined by ":", and an empty value
  // leaves an existing variable alone.
  virtual error_code_t addLines(std::wstring const& text, bool merge) = 0;
  // The value of the variable, or the empty text.
  virtual std::wstring get(std::wstring const& name) = 0;
  // The block: "NAME=value" and a zero character for each variable, in ascending order
  // of name, then the zero that ends the text. Valid until the next build or the
  // object's end. On Linux `with_system_root` adds nothing.
  virtual wchar_t const* build(bool with_system_root) = 0;
  // Joins the non-empty `values` with ":" behind (append) or in front of the current
  // value and stores the result under `name` exactly as given; nothing when it is empty.
  virtual error_code_t addValues(std::wstring const& name, generic_iterator_t<std::wstring> values,
                                 bool append) = 0;

  // A new environment, empty or (`from_process`) a copy of the current process's.
  static sptr_t<IEnvironment> create(bool from_process);
};

}  // namespace quillon2::process
