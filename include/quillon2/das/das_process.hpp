// The processes of the running system, and the query for registered editors.
//
// process_t::get_process_list takes a snapshot of the system's processes. Identifier,
// executable name, parent, thread count and priority come with the snapshot; the owner's
// name and the command line are read when first asked for, and a failure (a process of
// another user, or one that has ended) gives a vtNull value and is tried again at the next
// request. On Linux the priority is the nice value: its sign is the reverse of a priority
// class (a lower value runs first). An object belongs to one thread at a time.
#pragma once

#include <string>

#include <quillon2/core/error_code.hpp>
#include <quillon2/core/object_interface.hpp>
#include <quillon2/das/variant.hpp>
#include <quillon2/export.hpp>
#include <quillon2/headers/iterator.hpp>

namespace quillon2 {

class path_t;

class QUILLON2_API process_t : public object_interface_t {
 public:
  // The properties of get_value.
  enum property_t {
    ppProcessId = 0,        // vtUInt
    ppExeName = 1,          // vtWString: the file name of the executable
    ppUser = 2,             // vtWString, or vtNull when it can't be read
    ppCommandLine = 3,      // vtWString, or vtNull when it can't be read or is empty
    ppParentProcessId = 4,  // vtUInt
    ppThreadCount = 5,      // vtUInt
    ppBasePriority = 6,     // vtSInt: the nice value
  };

  process_t() = default;
  process_t(process_t const&) = default;
  process_t(process_t&&) = default;
  process_t& operator=(process_t const&) = default;
  process_t& operator=(process_t&&) = default;
  ~process_t() override;

  // Any other property gives vtNull.
  virtual variant_t get_value(int property) = 0;

  // An iterator over the processes of a fresh snapshot. A process that ends while the
  // snapshot is taken is left out.
  static error_code_t get_process_list(generic_iterator_t<sptr_t<process_t>>& list);
};

// An editor registered for a file: four texts whose meaning a platform that answers the
// query defines. None does here.
struct QUILLON2_API system_editor_t {
  std::wstring m_name;
  std::wstring m_command;
  std::wstring m_arguments;
  std::wstring m_description;

  system_editor_t() = default;
  system_editor_t(std::wstring const& name, std::wstring const& command,
                  std::wstring const& arguments, std::wstring const& description);
  system_editor_t(system_editor_t const&) = default;
  system_editor_t(system_editor_t&&) = default;
  system_editor_t& operator=(system_editor_t const&) = default;
  system_editor_t& operator=(system_editor_t&&) = default;
  ~system_editor_t() = default;

  // All four fields equal, case-sensitive.
  bool operator==(system_editor_t const& other) const;
};

enum system_editor_type_t : int {};

// Always error::FailedTo.Find.Any.Editor, without a log line; `editors` stays as it was.
QUILLON2_API error_code_t get_system_editors(path_t const& file,
                                             generic_iterator_t<system_editor_t>& editors,
                                             system_editor_type_t type);

}  // namespace quillon2
