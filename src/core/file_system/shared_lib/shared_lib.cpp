// shared_lib_t: the two candidate files, the failure kinds, and the module's lifetime.
#include <quillon2/core/file_system/shared_lib.hpp>

#include <algorithm>

#include <boost/make_shared.hpp>

#include <quillon2/headers/kesmet.hpp>

#include "core/file_system/shared_lib/include/loader.hpp"

namespace quillon2 {

namespace _internal {

// Owns one loaded module; unloads it with the last shared_lib_t that shares it.
class shared_lib_handle_t {
 public:
  explicit shared_lib_handle_t(path_t const& path) {
    internal::loader::open_result_t const result = internal::loader::open(path.native_string());
    m_module = result.module;
    if (m_module == nullptr) {
      m_status = result.not_found ? shared_lib_t::LOAD_NOT_FOUND : shared_lib_t::LOAD_FAILED;
      m_text = kesmet2::utf8_to_utf16(result.text);
    }
  }
  shared_lib_handle_t(shared_lib_handle_t const&) = delete;
  shared_lib_handle_t& operator=(shared_lib_handle_t const&) = delete;
  ~shared_lib_handle_t() {
    if (m_module == nullptr) return;
    std::string text;
    if (!internal::loader::close(m_module, text))
      ::KESMET_2_18::debug::_private::____________________ASSERT____________________(
          "ret", __FILE__, __LINE__,
          "quillon2::_internal::shared_lib_handle_t::~shared_lib_handle_t");
  }

  void* module() const { return m_module; }
  shared_lib_t::error_status_t status() const { return m_status; }
  std::wstring const& text() const { return m_text; }

 private:
  void* m_module = nullptr;
  shared_lib_t::error_status_t m_status = shared_lib_t::LOAD_FAILED;
  std::wstring m_text;
};

}  // namespace _internal

namespace {

path_t candidate(path_t const& directory, std::wstring const& leaf) {
  path_t path = directory;
  path.append(path_t(leaf));
  return path;
}

}  // namespace

shared_lib_t::shared_lib_t() = default;

shared_lib_t::shared_lib_t(std::wstring const& name, path_t const& directory) {
  if (!name.empty()) load(name, directory);
}

shared_lib_t::shared_lib_t(shared_lib_t const& other) = default;
shared_lib_t& shared_lib_t::operator=(shared_lib_t const& other) = default;
shared_lib_t::~shared_lib_t() = default;

void shared_lib_t::load(std::wstring const& name, path_t const& directory) {
  auto first = boost::make_shared<_internal::shared_lib_handle_t>(candidate(directory, name));
  m_error_status = first->status();
  m_error_text = first->text();
  if (first->module() != nullptr) {
    m_handle = first;
    return;
  }
  auto second = boost::make_shared<_internal::shared_lib_handle_t>(
      candidate(directory, L"lib" + suffixize_lib_name(name) + L".so"));
  if (second->module() != nullptr) {
    m_handle = second;
    return;
  }
  // The more serious kind wins: a failure to load beats a file not found.
  if (second->status() >= m_error_status) {
    m_error_status = second->status();
    m_error_text = second->text();
  }
}

bool shared_lib_t::initialize(std::wstring const& name, path_t const& directory) {
  m_handle.reset();
  if (name.empty()) return false;
  load(name, directory);
  return static_cast<bool>(m_handle);
}

void shared_lib_t::uninitialize() { m_handle.reset(); }

shared_lib_t::operator bool() const { return static_cast<bool>(m_handle); }

void* shared_lib_t::get_symbol(std::wstring const& name) const {
  if (!m_handle) return nullptr;
  return internal::loader::symbol(m_handle->module(), kesmet2::utf16_to_utf8(name));
}

std::wstring suffixize_lib_name(std::wstring const& name) { return name; }

void* (*get_function_by_type_name(std::string const& name, addon_map_entry_t* table,
                                  int count))() {
  if (table == nullptr || count < 1) return nullptr;
  for (int i = 0; i < count; ++i)
    if (table[i].type_name == name) return table[i].function;
  return nullptr;
}

}  // namespace quillon2
