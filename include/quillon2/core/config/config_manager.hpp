// Where a product's configuration files lie: a default copy in a folder of the product,
// and one copy for each user below the user's configuration directory
// (<user configuration>/<company>/<subfolder>, or a folder set by
// override_user_config_folder). A configuration name goes in, the full path of
// "<name>.xml" comes out; nothing is read.
//
// Thread safety: none; do not change a manager while another thread asks it for paths.
#pragma once

#include <string>

#include <quillon2/core/file_system/path.hpp>
#include <quillon2/export.hpp>

namespace quillon2 {

class QUILLON2_API config_manager_t {
 public:
  config_manager_t(std::wstring const& default_config_folder,
                   std::wstring const& user_config_subfolder);
  virtual ~config_manager_t();

  // The company's folder in the user's configuration directory; "Veldt" until set.
  void set_company_name(std::wstring const& name);
  // Puts the user's files into `folder` instead; an empty path switches that off again.
  void override_user_config_folder(path_t const& folder);

  // <default folder>/<name>.xml; the file system is not touched.
  path_t default_config_path(std::wstring const& name) const { return get_default_config(name); }
  // <user folder>/<name>.xml, after creating the user folder (never the file). With no
  // user configuration directory the result is the relative <subfolder>/<name>.xml.
  path_t user_config_path(std::wstring const& name) const { return get_user_config(name); }

 private:
  path_t get_default_config(std::wstring const& name) const;
  path_t get_user_config(std::wstring const& name) const;

  std::wstring m_default_config_folder;
  std::wstring m_user_config_subfolder;
  std::wstring m_company_name;
  path_t m_user_config_folder;
};

}  // namespace quillon2
