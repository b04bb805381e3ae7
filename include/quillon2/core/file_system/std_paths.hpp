// Where things live: the configuration roots, the user's documents, the temporary
// directory, the directories of the running program and of a loaded module, and the
// working directory. The empty path is the only failure result; nothing throws or logs.
//
// On Linux: user configuration is $XDG_CONFIG_HOME when absolute, else $HOME/.config
// (the password database when HOME is unset); shared configuration is the first absolute
// entry of $XDG_CONFIG_DIRS, else /etc/xdg; documents are $XDG_DOCUMENTS_DIR, else the
// XDG_DOCUMENTS_DIR line of user-dirs.dirs, else $HOME/Documents when it exists, else
// $HOME; the temporary directory is $TMPDIR when it is an absolute directory, else /tmp.
//
// Thread safety: no state of its own; set_working_dir changes the whole process.
#pragma once

#include <string>

#include <quillon2/core/file_system/path.hpp>
#include <quillon2/export.hpp>

namespace quillon2::stdpaths {

// The configuration roots, or with a relative `subdirectory` (several levels allowed) that
// directory below them, created when missing (levels of the user's side with mode 0700).
// The result exists, or is empty; a subdirectory that is absolute or holds ".." gives the
// empty path.
QUILLON2_API path_t get_shared_config_dir(std::wstring const& subdirectory);
QUILLON2_API path_t get_user_config_dir(std::wstring const& subdirectory);
// The user's documents directory; never created.
QUILLON2_API path_t get_documents_dir();
QUILLON2_API path_t get_temp_dir();
// The directory of the running program's file.
QUILLON2_API path_t get_executable_dir();
// The directory of the module (the program or a shared library) holding `address`; the
// program's directory for an address that no module holds.
QUILLON2_API path_t get_module_dir(void const* address);
// The directory from which this library was loaded.
QUILLON2_API path_t get_dynamic_lib_dir();
QUILLON2_API path_t get_working_dir();
QUILLON2_API bool set_working_dir(path_t const& path);

}  // namespace quillon2::stdpaths
