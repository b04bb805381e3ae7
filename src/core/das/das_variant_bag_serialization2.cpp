// The attribute form of bags: the public save and load calls, and the public readers of
// XML into visitors. Saving walks the bag into the XML writer visitor; loading runs the
// SAX reader into a builder.
#include <cstring>
#include <cwchar>
#include <ios>
#include <string>

#include <quillon2/core/file_system/file_content.hpp>
#include <quillon2/core/file_system/path.hpp>
#include <quillon2/das/type_factory.hpp>
#include <quillon2/das/variant.hpp>
#include <quillon2/das/variant_bag.hpp>
#include <quillon2/das/variant_bag_serialization2.hpp>
#include <quillon2/das/variant_bag_visitor.hpp>

#include "core/das/include/das_assert.hpp"
#include "core/das/include/element_form.hpp"
#include "core/das/include/sax_to_visitor.hpp"
#include "core/das/include/variant_text.hpp"
#include "core/das/include/xml_file_io.hpp"
#include "core/das/include/xml_safety.hpp"
#include "core/das/include/xml_tag_writer.hpp"
#include "core/file_system/include/atomic_save.hpp"
#include "core/miscellaneous/include/logging.hpp"

namespace quillon2 {

namespace {

std::string utf8_of(wchar_t const* text) {
  std::string utf8;
  if (text != nullptr) internal::append_wide_as_utf8(utf8, text, std::wcslen(text));
  return utf8;
}

std::wstring wide_of(std::string const& utf8) {
  std::wstring wide;
  internal::append_utf8_as_wide(wide, utf8.data(), utf8.size());
  return wide;
}

char const* or_null(std::string const& text, wchar_t const* source) {
  return source != nullptr ? text.c_str() : nullptr;
}

// The attribute form of `bag` under the root path, without the declaration.
int write_attribute_form(variant_bag_t const& bag, wchar_t const* root_path, std::string& out) {
  sptr_t<variant_bag_visitor_to_xml_t> visitor = create_visitor_to_xml(nullptr);
  std::string const root = utf8_of(root_path);
  if (!internal::open_root_path(*visitor, root.c_str())) {
    Q2_LOG(internal::main_logger(), internal::log_error,
           L"cannot save a bag: the root path \"" << (root_path != nullptr ? root_path : L"")
                                                  << L"\" is no element name");
    return DAS_E_FAIL;
  }
  int const result = internal::dump_to_own_visitor(bag, *visitor);
  if (das_failed(result)) {
    std::string why = internal::why_refused(*visitor);
    if (why.empty()) why = "an object that cannot be saved";
    Q2_LOG(internal::main_logger(), internal::log_error,
           L"cannot save a bag: " << wide_of(why) << L" (0x" << std::hex << result << L")");
    return result;
  }
  if (visitor->to_xml_string(out) != DAS_OK) {
    std::string why = internal::why_refused(*visitor);
    if (why.empty()) why = "the XML writer failed";
    Q2_LOG(internal::main_logger(), internal::log_error, L"cannot save a bag: " << wide_of(why));
    return DAS_E_FAIL;
  }
  return DAS_OK;
}

// Reads UTF-8 attribute-form text into `bag` through a builder.
int read_attribute_form(variant_bag_t& bag, char const* data, std::size_t size,
                        wchar_t const* path) {
  sptr_t<variant_bag_visitor_t> builder = create_variant_bag_builder(bag);
  std::string const utf8_path = utf8_of(path);
  std::string why;
  int const result = internal::read_xml_memory_to_visitor(data, size, true, builder.get(),
                                                          or_null(utf8_path, path), why);
  if (das_failed(result)) {
    Q2_LOG(internal::main_logger(), internal::log_info,
           L"cannot load a bag from text: " << wide_of(why));
    return result;
  }
  if (path != nullptr) {
    if (*path == L'\0') return DAS_E_FAIL;  // a path without a step names nothing
    wchar_t const* last = std::wcsrchr(path, L'.');
    bag.rename(last != nullptr ? last + 1 : path);
  }
  return DAS_OK;
}

}  // namespace

int read_xml_to_visitor(char const* xml, variant_bag_visitor_t* visitor, char const* path) {
  if (xml == nullptr) return DAS_E_FAIL;
  std::string why;
  int const result =
      internal::read_xml_memory_to_visitor(xml, std::strlen(xml), true, visitor, path, why);
  if (das_failed(result)) {
    Q2_LOG(internal::main_logger(), internal::log_info, L"cannot read XML: " << wide_of(why));
  }
  return result;
}

int read_xml_file_to_visitor(wchar_t const* file, variant_bag_visitor_t* visitor,
                             char const* path) {
  if (file == nullptr) return DAS_E_FAIL;
  std::string content;
  std::string why;
  int result = DAS_E_FAIL;
  if (internal::read_file_locked(internal::native_file_name(file), content, why)) {
    result = internal::read_xml_memory_to_visitor(content.data(), content.size(), false, visitor,
                                                  path, why);
  }
  if (das_failed(result)) {
    Q2_LOG(internal::main_logger(), internal::log_info,
           L"cannot read XML from " << file << L": " << wide_of(why));
  }
  return result;
}

int save_variant_bag_to_string2(variant_bag_t const& bag, KESMET_2_18::strings::ustring8& text,
                                wchar_t const* root_path) {
  std::string out;
  int const result = write_attribute_form(bag, root_path, out);
  if (das_failed(result)) return result;
  text.swap(out);
  return DAS_OK;
}

int save_variant_bag_to_string2(variant_bag_t const& bag, variant_t& text,
                                wchar_t const* root_path) {
  std::string out;
  int const result = write_attribute_form(bag, root_path, out);
  if (das_failed(result)) return result;
  internal::assign_wide_from_utf8(text, out.data(), out.size());
  return DAS_OK;
}

int save_variant_bag2(variant_bag_t const& bag, wchar_t const* file_name,
                      wchar_t const* root_path) {
  if (file_name == nullptr) return DAS_E_FAIL;
  std::string text;
  int const result = write_attribute_form(bag, root_path, text);
  if (das_failed(result)) return result;
  text.insert(0, "<?xml version='1.0' encoding='UTF-8'?>\n");
  internal::save_result_t const saved = internal::atomic_save(internal::native_file_name(file_name),
                                                              text, internal::save_options_t{true});
  if (!saved) {
    Q2_LOG(internal::main_logger(), internal::log_error,
           L"cannot save a bag to " << file_name << L": " << wide_of(saved.why));
    return DAS_E_FAIL;
  }
  return DAS_OK;
}

int load_variant_bag_from_string2(variant_bag_t& bag, KESMET_2_18::strings::ustring8 const& text,
                                  wchar_t const* path) {
  return read_attribute_form(bag, text.data(), text.size(), path);
}

int load_variant_bag_from_string2(variant_bag_t& bag, variant_t const& text, wchar_t const* path) {
  if (!text.can_get<KESMET_2_18::strings::uchar_t const*>()) {
    Q2_DAS_ASSERT_TEXT("can_get<const kesmet2::uchar_t*>()");
    bag.clear();
    return DAS_E_FAIL;
  }
  std::string const utf8 = utf8_of(text.get<wchar_t const*>());
  return read_attribute_form(bag, utf8.data(), utf8.size(), path);
}

int load_variant_bag2(variant_bag_t& bag, wchar_t const* file_name, wchar_t const* path,
                      bool try_element_form) {
  if (file_name == nullptr) return DAS_E_FAIL;
  bag.clear();
  // One read under the lock serves both forms.
  std::string bytes;
  std::string why;
  if (!internal::read_file_locked(internal::native_file_name(file_name), bytes, why)) {
    Q2_LOG(internal::main_logger(), internal::log_info,
           L"cannot load a bag from " << file_name << L": " << wide_of(why));
    return DAS_E_FAIL;
  }
  if (try_element_form) {
    // The element form's document element is "root" whatever the path's first step says.
    std::string rest;
    if (path != nullptr) {
      std::string const full = utf8_of(path);
      std::size_t const dot = full.find('.');
      if (dot != std::string::npos) rest = full.substr(dot + 1);
    }
    bool recognised = false;
    int const result =
        internal::read_element_form_document(bag, bytes, or_null(rest, path), why, recognised);
    if (recognised) {
      // A document of the element form is read as such or not at all.
      if (das_failed(result)) {
        bag.clear();
        Q2_LOG(internal::main_logger(), internal::log_info,
               L"cannot load a bag from " << file_name << L": " << wide_of(why));
      }
      return result;
    }
    bag.clear();
  }
  std::string const content = internal::xml_file_text(bytes);
  if (content.empty()) {
    Q2_LOG(internal::main_logger(), internal::log_info,
           L"cannot load a bag from " << file_name
                                      << L": the file cannot be read or holds no XML text");
    return DAS_E_FAIL;
  }
  int const result = load_variant_bag_from_string2(bag, content, path);
  if (das_failed(result)) return result;
  bag.put<variant_t>(L"#file_name", variant_t(file_name, false));
  return DAS_OK;
}

}  // namespace quillon2
