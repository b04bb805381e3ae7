// config_manager_t: the default and the user's path of a configuration file.
#include <quillon2/core/config/config_manager.hpp>
#include <quillon2/core/file_system/file_operations.hpp>
#include <quillon2/core/file_system/std_paths.hpp>

namespace quillon2 {

config_manager_t::config_manager_t(std::wstring const& default_config_folder,
                                   std::wstring const& user_config_subfolder)
    : m_default_config_folder(default_config_folder),
      m_user_config_subfolder(user_config_subfolder),
      m_company_name(L"Veldt") {}

config_manager_t::~config_manager_t() = default;

void config_manager_t::set_company_name(std::wstring const& name) { m_company_name = name; }

void config_manager_t::override_user_config_folder(path_t const& folder) {
  m_user_config_folder = folder;
}

path_t config_manager_t::get_default_config(std::wstring const& name) const {
  path_t result(m_default_config_folder);
  result.append(path_t(name + L".xml"));
  return result;
}

path_t config_manager_t::get_user_config(std::wstring const& name) const {
  path_t folder;
  if (m_user_config_folder.is_empty()) {
    folder = stdpaths::get_user_config_dir(m_company_name);
    folder.append(path_t(m_user_config_subfolder));
  } else {
    folder = m_user_config_folder;
  }
  create_directory(folder);
  folder.append(path_t(name + L".xml"));
  return folder;
}

}  // namespace quillon2
