// Saving and loading bags in the element form, to and from files and text.
#include <algorithm>
#include <atomic>
#include <cstring>
#include <deque>
#include <string>
#include <unordered_map>
#include <vector>

#include <libxml/parser.h>
#include <libxml/tree.h>
#include <libxml/xmlwriter.h>

#include <quillon2/das/das_proxy.hpp>
#include <quillon2/das/notype_ptr.hpp>
#include <quillon2/das/type_factory.hpp>
#include <quillon2/das/variant.hpp>
#include <quillon2/das/variant_bag.hpp>
#include <quillon2/das/variant_bag_serialization.hpp>

#include "core/das/include/das_assert.hpp"
#include "core/das/include/element_form.hpp"
#include "core/das/include/variant_text.hpp"
#include "core/das/include/xml_file_io.hpp"
#include "core/das/include/xml_safety.hpp"
#include "core/file_system/include/atomic_save.hpp"
#include "core/miscellaneous/include/logging.hpp"

namespace quillon2 {
namespace {

std::wstring wide_text(std::string const& utf8) {
  std::wstring wide;
  internal::append_utf8_as_wide(wide, utf8.data(), utf8.size());
  return wide;
}

}  // namespace

int save_variant_bag(variant_bag_t const& bag, wchar_t const* file_name) {
  if (file_name == nullptr) return DAS_E_FAIL;
  internal::ensure_xml_safety();
  std::string text;
  std::string why;
  int const result = internal::write_element_form(bag, text, why);
  if (das_failed(result)) {
    Q2_LOG(internal::main_logger(), internal::log_error,
           L"cannot save a bag to " << file_name << L": " << wide_text(why));
    return result;
  }
  internal::save_result_t const saved = internal::atomic_save(
      internal::native_file_name(file_name), text, internal::save_options_t{true});
  if (!saved) {
    Q2_LOG(internal::main_logger(), internal::log_error,
           L"cannot save a bag to " << file_name << L": " << wide_text(saved.why));
    return DAS_E_FAIL;
  }
  return DAS_OK;
}

int save_variant_bag_to_string(variant_bag_t const& bag, variant_t* text) {
  if (text == nullptr) return DAS_E_FAIL;
  internal::ensure_xml_safety();
  std::string utf8;
  std::string why;
  int const result = internal::write_element_form(bag, utf8, why);
  if (das_failed(result)) {
    Q2_LOG(internal::main_logger(), internal::log_error,
           L"cannot save a bag to text: " << wide_text(why));
    return result;
  }
  internal::assign_wide_from_utf8(*text, utf8.data(), utf8.size());
  return DAS_OK;
}

int load_variant_bag(variant_bag_t& bag, wchar_t const* file_name, wchar_t const* path) {
  if (file_name == nullptr) return DAS_E_FAIL;
  bag.clear();
  std::string utf8_path;
  if (path != nullptr) internal::append_wide_as_utf8(utf8_path, path, std::wcslen(path));
  std::string why;
  int const result =
      internal::read_element_form_file(bag, internal::native_file_name(file_name),
                                       path != nullptr ? utf8_path.c_str() : nullptr, why);
  if (das_failed(result)) {
    Q2_LOG(internal::main_logger(), internal::log_info,
           L"cannot load a bag from " << file_name << L": " << wide_text(why));
  }
  return result;
}

int load_variant_bag_from_string(variant_bag_t& bag, variant_t const& text) {
  bag.clear();
  if (!text.can_get<wchar_t const*>()) {
    Q2_DAS_ASSERT_TEXT("can_get<const wchar_t*>()");
    return DAS_E_FAIL;
  }
  wchar_t const* wide = text.get<wchar_t const*>();
  std::string utf8;
  if (wide != nullptr) internal::append_wide_as_utf8(utf8, wide, std::wcslen(wide));
  std::string why;
  int const result = internal::read_element_form_text(bag, utf8.data(), utf8.size(), why);
  if (das_failed(result)) {
    Q2_LOG(internal::main_logger(), internal::log_info,
           L"cannot load a bag from text: " << wide_text(why));
  }
  return result;
}

}  // namespace quillon2
