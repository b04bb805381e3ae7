// The element form of bags: writing with libxml2's text writer, reading from its tree.
//
// The writer walks the bag with an explicit stack, so that the depth of a bag in memory
// never reaches the depth of the call stack. The reader recurses, but only as deep as
// libxml2 lets a document nest (its default limit, which is never lifted).
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

using internal::text_type_t;

// The limits of what libxml2 reads back. The writer refuses anything larger, so that every
// saved document loads, and the reader refuses it too, so that everything loaded can be
// saved again. A text is measured in UTF-8 bytes, unescaped; "root" is level 1.
using internal::k_max_element_depth;
using internal::k_max_name_bytes;
using internal::k_max_text_bytes;

// The length of the text of a blob of `size` bytes: a line feed before every run of 16
// bytes and one at the end, two digits for each byte.
std::size_t blob_text_length(std::size_t size) { return 2 * size + (size + 15) / 16 + 1; }

// Read options: entities are substituted. Small texts are stored inside their nodes
// (XML_PARSE_COMPACT), which saves allocations and changes nothing that the reader sees,
// the tree being read only; the text form uses it as the file form does.
constexpr int k_file_read_options =
    XML_PARSE_NOENT | XML_PARSE_NOERROR | XML_PARSE_NOWARNING | XML_PARSE_COMPACT;
constexpr int k_string_read_options = XML_PARSE_NOENT | XML_PARSE_COMPACT;

constexpr char k_hex_digits[] = "0123456789abcdef";

xmlChar const* xml_text(char const* text) { return reinterpret_cast<xmlChar const*>(text); }

// Writes a bag as the children of the element that is open in the text writer.
class element_writer_t {
 public:
  explicit element_writer_t(xmlTextWriterPtr writer) : m_writer(writer) {}

  // The whole document: declaration, "root", the bag.
  int write_document(variant_bag_t const& bag);
  std::string const& why() const { return m_why; }

 private:
  struct frame_t {
    variant_bag_t const* bag = nullptr;
    variant_bag_t object_data;  // what a pointer's object saved, when the frame is one
    int pass = 0;               // 0: plain values, 1: pointers, 2: child bags
    variant_bag_t::const_iterator_t<variant_t> values;
    variant_bag_t::const_iterator_t<variant_bag_t> children;
  };

  int write_bag(variant_bag_t const& bag);
  int fail(char const* why) {
    if (m_why.empty()) m_why = why;
    return DAS_E_FAIL;
  }
  bool start_element(wchar_t const* name);
  bool attribute(char const* name, char const* value);
  bool wide_attribute(char const* name, wchar_t const* value);
  bool end_element();
  // Text that is ready for the document, as it stands.
  bool write_raw(std::string const& text) {
    return xmlTextWriterWriteRawLen(m_writer, xml_text(text.data()),
                                    static_cast<int>(text.size())) >= 0;
  }
  int write_value(wchar_t const* name, variant_t const& value);
  int write_blob(variant_t const& value);
  // Opens the element of a pointer; `data` receives what the object saved and `open` says
  // whether the element stays open for that data.
  int start_pointer(wchar_t const* name, variant_t const& value, variant_bag_t& data, bool& open);

  xmlTextWriterPtr m_writer;
  std::size_t m_depth = 0;
  std::string m_scratch;
  std::vector<unsigned char> m_bytes;
  std::string m_why;
};

bool element_writer_t::start_element(wchar_t const* name) {
  if (m_depth + 1 > k_max_element_depth) {
    m_why = "nesting deeper than a document may be";
    return false;
  }
  m_scratch.clear();
  if (!internal::append_xml_name_utf8(m_scratch, name) ||
      internal::is_namespace_declaration_name(m_scratch.data(), m_scratch.size())) {
    m_why = "an entry name that XML cannot hold";
    return false;
  }
  if (m_scratch.size() > k_max_name_bytes) {
    m_why = "an entry name too long for a document";
    return false;
  }
  if (xmlTextWriterStartElement(m_writer, xml_text(m_scratch.c_str())) < 0) return false;
  ++m_depth;
  return true;
}

bool element_writer_t::attribute(char const* name, char const* value) {
  return xmlTextWriterWriteAttribute(m_writer, xml_text(name), xml_text(value)) >= 0;
}

bool element_writer_t::wide_attribute(char const* name, wchar_t const* value) {
  m_scratch.clear();
  if (value != nullptr && !internal::append_xml_text_utf8(m_scratch, value, std::wcslen(value))) {
    m_why = "a type name with characters that XML cannot hold";
    return false;
  }
  if (m_scratch.size() > k_max_text_bytes) {
    m_why = "a type name too long for a document";
    return false;
  }
  return attribute(name, m_scratch.c_str());
}

bool element_writer_t::end_element() {
  --m_depth;
  return xmlTextWriterEndElement(m_writer) >= 0;
}

int element_writer_t::write_blob(variant_t const& value) {
  u64_t const size = value.get_blob_size();
  if (size > k_max_text_bytes ||
      blob_text_length(static_cast<std::size_t>(size)) > k_max_text_bytes) {
    return fail("a blob too large for a document");
  }
  m_bytes.resize(static_cast<std::size_t>(size));
  if (size != 0) value.get_blob_data(m_bytes.data(), size);
  m_scratch.assign(blob_text_length(m_bytes.size()), '\n');
  char* out = m_scratch.data();
  for (std::size_t i = 0; i < m_bytes.size(); ++i) {
    if (i % 16 == 0) ++out;  // the line feed that is already there
    *out++ = k_hex_digits[m_bytes[i] >> 4];
    *out++ = k_hex_digits[m_bytes[i] & 0xF];
  }
  if (!write_raw(m_scratch)) return DAS_E_FAIL;
  return DAS_OK;
}

int element_writer_t::write_value(wchar_t const* name, variant_t const& value) {
  das_variant_type_t const type = value.get_type();
  if (type == vtString || type == vtCharPtr) {
    Q2_DAS_ASSERT_TEXT("\"vtString type is deprecated on windows!\" == NULL");
    return DAS_OK;
  }
  char const* word = type == vtDummy  ? "dummy"
                     : type == vtBlob ? "blob"
                                      : internal::element_type_word(type);
  if (word == nullptr && type == vtWCharPtr) word = "";
  if (word == nullptr) return DAS_OK;  // no element form for this type

  if (!start_element(name)) return fail("an entry name that XML cannot hold");
  if (*word != '\0' && !attribute("type", word)) return DAS_E_FAIL;

  if (type == vtBlob) {
    int const result = write_blob(value);
    if (das_failed(result)) return result;
  } else if (type == vtWString || type == vtWCharPtr) {
    wchar_t const* text = value.get<wchar_t const*>();
    if (text != nullptr && *text != L'\0') {
      // Escaped here as the writer would escape it, in the same pass that checks it.
      m_scratch.clear();
      std::size_t utf8_bytes = 0;
      if (!internal::append_escaped_xml_text(m_scratch, text, utf8_bytes)) {
        return fail("text with characters that XML cannot hold");
      }
      if (utf8_bytes > k_max_text_bytes) return fail("a text too long for a document");
      if (!write_raw(m_scratch)) {
        return DAS_E_FAIL;
      }
    }
  } else if (type != vtNull && type != vtDummy) {
    m_scratch.clear();
    internal::append_number_text(m_scratch, value);
    if (!write_raw(m_scratch)) {
      return DAS_E_FAIL;
    }
  }
  return end_element() ? DAS_OK : DAS_E_FAIL;
}

int element_writer_t::start_pointer(wchar_t const* name, variant_t const& value,
                                    variant_bag_t& data, bool& open) {
  open = false;
  notype_ptr_t const pointer = value.get<notype_ptr_t>();
  if (!start_element(name)) return fail("an entry name that XML cannot hold");
  if (!attribute("type", "pointer")) return DAS_E_FAIL;
  if (pointer.is_null()) {
    wchar_t const* ptr_type = pointer.get_ptr_type_as_string();
    if (!attribute("type_id", "dasID_None") ||
        !wide_attribute("ptr_type", ptr_type != nullptr ? ptr_type : L"dasID_None")) {
      return fail("a type name with characters that XML cannot hold");
    }
    return end_element() ? DAS_OK : DAS_E_FAIL;
  }
  if (!wide_attribute("type_id", pointer.get_obj_type_as_string())) {
    return fail("a type name with characters that XML cannot hold");
  }
  if (pointer.get_ptr_type() != pointer.get_object_type()) {
    if (wchar_t const* ptr_type = pointer.get_ptr_type_as_string()) {
      if (!wide_attribute("ptr_type", ptr_type)) {
        return fail("a type name with characters that XML cannot hold");
      }
    }
  }
  sptr_t<serializable_object_interface_t> object;
  int result = pointer.get_serializable_object(object);
  if (das_failed(result)) {
    m_why = "an object that cannot be saved";
    return result;
  }
  result = object->save(data);
  if (das_failed(result)) {
    m_why = "an object whose save failed";
    return result;
  }
  open = true;
  return DAS_OK;
}

int element_writer_t::write_bag(variant_bag_t const& top) {
  std::deque<frame_t> stack;
  stack.emplace_back();
  stack.back().bag = &top;
  while (!stack.empty()) {
    frame_t& frame = stack.back();
    variant_bag_t const& bag = *frame.bag;
    if (frame.pass == 0) {
      for (auto it = bag.begin<variant_t>(); !it.at_end(); it.next()) {
        if (it.get_value().get_type() == vtNotypePtr) continue;
        int const result = write_value(it.get_name(), it.get_value());
        if (das_failed(result)) return result;
      }
      frame.values = bag.begin<variant_t>();
      frame.pass = 1;
    }
    if (frame.pass == 1) {
      while (!frame.values.at_end() && frame.values.get_value().get_type() != vtNotypePtr) {
        frame.values.next();
      }
      if (!frame.values.at_end()) {
        variant_t const& value = frame.values.get_value();
        wchar_t const* name = frame.values.get_name();
        frame.values.next();
        // The object's data lives in the frame that writes it (a deque keeps it in place).
        frame_t& inner = stack.emplace_back();
        inner.bag = &inner.object_data;
        bool open = false;
        int const result = start_pointer(name, value, inner.object_data, open);
        if (das_failed(result)) return result;
        if (!open) stack.pop_back();
        continue;
      }
      frame.children = bag.begin<variant_bag_t>();
      frame.pass = 2;
    }
    if (!frame.children.at_end()) {
      variant_bag_t const& child = frame.children.get_value();
      wchar_t const* name = frame.children.get_name();
      frame.children.next();
      if (!start_element(name)) return fail("an entry name that XML cannot hold");
      if (child.is_empty()) {
        if (!attribute("type", "bag") || !end_element()) return DAS_E_FAIL;
      } else {
        stack.emplace_back();
        stack.back().bag = &child;
      }
      continue;
    }
    stack.pop_back();
    if (!stack.empty() && !end_element()) return DAS_E_FAIL;
  }
  return DAS_OK;
}

int element_writer_t::write_document(variant_bag_t const& bag) {
  if (xmlTextWriterSetIndent(m_writer, 1) < 0 ||
      xmlTextWriterStartDocument(m_writer, nullptr, "UTF-8", nullptr) < 0 ||
      xmlTextWriterStartElement(m_writer, xml_text("root")) < 0) {
    return DAS_E_FAIL;
  }
  m_depth = 1;
  int const result = write_bag(bag);
  if (das_failed(result)) return result;
  if (xmlTextWriterEndElement(m_writer) < 0 || xmlTextWriterEndDocument(m_writer) < 0) {
    return DAS_E_FAIL;
  }
  return DAS_OK;
}

}  // namespace

int internal::write_element_form(variant_bag_t const& bag, std::string& out, std::string& why) {
  // Documents of one program tend to be of one size: room for the last one saves the
  // copies of a growing buffer. Untouched room costs address space only.
  static std::atomic<std::size_t> last_size{0};
  out.clear();
  out.reserve(std::max<std::size_t>(65536, last_size.load(std::memory_order_relaxed)));
  // The writer prints straight into `out`; libxml2 flushes its own buffer into it in
  // chunks, and on closing.
  auto const append = [](void* context, char const* data, int size) {
    static_cast<std::string*>(context)->append(data, static_cast<std::size_t>(size));
    return size;
  };
  xmlTextWriterPtr writer = new_callback_writer(append, &out);
  if (writer == nullptr) return DAS_E_FAIL;
  element_writer_t element_writer(writer);
  int const result = element_writer.write_document(bag);
  xmlFreeTextWriter(writer);
  why = element_writer.why();
  if (das_failed(result)) {
    out.clear();
  } else {
    last_size.store(out.size() + out.size() / 8, std::memory_order_relaxed);
  }
  return result;
}

namespace {

// ---------------------------------------------------------------------------------------
// Reading

class element_reader_t {
 public:
  int read_children(xmlNode* parent, variant_bag_t& bag);
  std::string const& why() const { return m_why; }

 private:
  std::wstring const& wide_name(xmlNode const* node);
  static xmlChar const* attribute_text(xmlNode const* node, char const* name);
  static std::size_t text_length(xmlChar const* text) {
    return text != nullptr ? std::strlen(reinterpret_cast<char const*>(text)) : 0;
  }
  // Whether the element's name fits in what a save may write.
  static bool name_within_limits(xmlNode const* node);
  static bool blob_from_text(char const* text, std::vector<unsigned char>& bytes);

  // libxml2 keeps names in a dictionary, so one name is one pointer: converted once.
  // The maps never drop an entry, so a returned name stays valid for the whole read.
  std::unordered_map<xmlChar const*, std::wstring> m_names;
  std::unordered_map<std::string, std::wstring> m_qualified;
  std::vector<unsigned char> m_bytes;
  std::string m_why;
};

std::wstring const& element_reader_t::wide_name(xmlNode const* node) {
  if (node->ns != nullptr && node->ns->prefix != nullptr) {
    // A name with a bound prefix is kept whole, as the entry was named.
    std::string qualified = reinterpret_cast<char const*>(node->ns->prefix);
    qualified += ':';
    qualified += reinterpret_cast<char const*>(node->name);
    auto found = m_qualified.find(qualified);
    if (found == m_qualified.end()) {
      std::wstring wide;
      internal::append_utf8_as_wide(wide, qualified.data(), qualified.size());
      found = m_qualified.emplace(std::move(qualified), std::move(wide)).first;
    }
    return found->second;
  }
  auto found = m_names.find(node->name);
  if (found == m_names.end()) {
    std::wstring wide;
    char const* name = reinterpret_cast<char const*>(node->name);
    internal::append_utf8_as_wide(wide, name, std::strlen(name));
    found = m_names.emplace(node->name, std::move(wide)).first;
  }
  return found->second;
}

xmlChar const* element_reader_t::attribute_text(xmlNode const* node, char const* name) {
  for (xmlAttr const* attribute = node->properties; attribute != nullptr;
       attribute = attribute->next) {
    if (attribute->ns != nullptr ||
        std::strcmp(reinterpret_cast<char const*>(attribute->name), name) != 0) {
      continue;
    }
    xmlNode const* value = attribute->children;
    if (value != nullptr && value->next == nullptr && value->type == XML_TEXT_NODE) {
      return value->content;
    }
    return nullptr;
  }
  return nullptr;
}

bool element_reader_t::name_within_limits(xmlNode const* node) {
  std::size_t length = text_length(node->name);
  if (node->ns != nullptr && node->ns->prefix != nullptr) {
    length += text_length(node->ns->prefix) + 1;
  }
  return length <= k_max_name_bytes;
}

// Hexadecimal digits, two to a byte; every character that is neither a letter nor a
// digit is passed over. A pair that is no hexadecimal number gives 0, and a pair whose
// second character is none gives the value of the first.
bool element_reader_t::blob_from_text(char const* text, std::vector<unsigned char>& bytes) {
  auto hex_value = [](char c) -> int {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
  };
  auto is_alnum = [](char c) {
    return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
  };
  bytes.clear();
  char pending = 0;
  bool have_pending = false;
  for (char const* p = text != nullptr ? text : ""; *p != '\0'; ++p) {
    if (!is_alnum(*p)) continue;
    if (!have_pending) {
      pending = *p;
      have_pending = true;
      continue;
    }
    int const high = hex_value(pending);
    int const low = hex_value(*p);
    int byte = 0;
    if (high >= 0) byte = low >= 0 ? high * 16 + low : high;
    bytes.push_back(static_cast<unsigned char>(byte));
    have_pending = false;
  }
  return !have_pending;
}

int element_reader_t::read_children(xmlNode* parent, variant_bag_t& bag) {
  for (xmlNode* node = parent->children; node != nullptr; node = node->next) {
    if (node->type != XML_ELEMENT_NODE) continue;
    xmlChar const* type_word = attribute_text(node, "type");
    xmlChar const* text = nullptr;
    if (node->children != nullptr && node->children->type == XML_TEXT_NODE) {
      text = node->children->content;
    }
    bool has_elements = false;
    for (xmlNode const* child = node->children; child != nullptr; child = child->next) {
      if (child->type == XML_ELEMENT_NODE) {
        has_elements = true;
        break;
      }
    }
    char const* word = reinterpret_cast<char const*>(type_word);
    if (!name_within_limits(node)) {
      m_why = "a name longer than a save may write";
      return DAS_E_FAIL;
    }
    text_type_t const type =
        internal::text_type_from_word(word, word != nullptr ? std::strlen(word) : 0);
    std::wstring const& name = wide_name(node);

    if (type == text_type_t::pointer) {
      variant_bag_t data;
      if (has_elements) {
        int const result = read_children(node, data);
        if (das_failed(result)) return result;
      }
      std::wstring type_id;
      std::wstring ptr_type;
      xmlChar const* type_id_text = attribute_text(node, "type_id");
      xmlChar const* ptr_type_text = attribute_text(node, "ptr_type");
      if (text_length(type_id_text) > k_max_text_bytes ||
          text_length(ptr_type_text) > k_max_text_bytes) {
        m_why = "a type name longer than a save may write";
        return DAS_E_FAIL;
      }
      if (type_id_text != nullptr) {
        char const* s = reinterpret_cast<char const*>(type_id_text);
        internal::append_utf8_as_wide(type_id, s, std::strlen(s));
      }
      if (ptr_type_text != nullptr) {
        char const* s = reinterpret_cast<char const*>(ptr_type_text);
        internal::append_utf8_as_wide(ptr_type, s, std::strlen(s));
      }
      notype_ptr_t pointer;
      pointer.create_from_runtime_info(data, type_id_text != nullptr ? type_id.c_str() : nullptr,
                                       ptr_type_text != nullptr ? ptr_type.c_str() : nullptr);
      bag.put<variant_t>(name.c_str(), variant_t(pointer));
      continue;
    }
    if (type == text_type_t::bag || has_elements) {
      variant_bag_t& child = bag.add_variant_bag(name.c_str(), variant_bag_t());
      if (has_elements) {
        int const result = read_children(node, child);
        if (das_failed(result)) {
          bag.remove<variant_bag_t>(&child);
          return result;
        }
      }
      continue;
    }
    char const* s = reinterpret_cast<char const*>(text);
    std::size_t const length = text_length(text);
    if (length > k_max_text_bytes) {
      m_why = "a text longer than a save may write";
      return DAS_E_FAIL;
    }
    variant_t value;
    if (type == text_type_t::blob) {
      if (!blob_from_text(s, m_bytes)) {
        m_why = "a blob with an odd number of hexadecimal digits";
        return DAS_E_FAIL;
      }
      if (blob_text_length(m_bytes.size()) > k_max_text_bytes) {
        m_why = "a blob larger than a save may write";
        return DAS_E_FAIL;
      }
      value =
          variant_t(static_cast<void const*>(m_bytes.data()), static_cast<u64_t>(m_bytes.size()));
    } else if (type == text_type_t::wide_string || type == text_type_t::unknown) {
      value = internal::wide_variant_from_utf8(s, length);
    } else {
      internal::scalar_from_text(value, type, s, length);
    }
    // Stored as a null first and then swapped in: no second reference to count.
    bag.put<variant_t>(name.c_str(), variant_t()).swap(value);
  }
  return DAS_OK;
}

std::wstring wide_text(std::string const& utf8) {
  std::wstring wide;
  internal::append_utf8_as_wide(wide, utf8.data(), utf8.size());
  return wide;
}

// The document element "root" of a parsed element-form document, or null with the
// reason in `why` (also when the parse failed and there is no document).
xmlNode* document_root(internal::xml_doc_ptr_t const& doc, std::string& why) {
  if (!doc) {
    why = internal::last_xml_parse_error();
    return nullptr;
  }
  xmlNode* root = xmlDocGetRootElement(doc.get());
  if (root == nullptr || root->ns != nullptr ||
      std::strcmp(reinterpret_cast<char const*>(root->name), "root") != 0) {
    why = "the document element is not \"root\"";
    return nullptr;
  }
  return root;
}

// The element that `path` names below "root": steps separated by ".", each the first
// child element of exactly that name. The empty path names "root" itself.
xmlNode* find_start(xmlNode* root, std::string const& path) {
  xmlNode* current = root;
  if (path.empty()) return current;
  std::string::size_type begin = 0;
  for (;;) {
    std::string::size_type const end = path.find('.', begin);
    std::string const step =
        path.substr(begin, end == std::string::npos ? std::string::npos : end - begin);
    xmlNode* next = nullptr;
    for (xmlNode* child = current->children; child != nullptr; child = child->next) {
      if (child->type != XML_ELEMENT_NODE) continue;
      std::string name;
      if (child->ns != nullptr && child->ns->prefix != nullptr) {
        name = reinterpret_cast<char const*>(child->ns->prefix);
        name += ':';
      }
      name += reinterpret_cast<char const*>(child->name);
      if (name == step) {
        next = child;
        break;
      }
    }
    if (next == nullptr) return nullptr;
    current = next;
    if (end == std::string::npos) return current;
    begin = end + 1;
  }
}

}  // namespace

int internal::read_element_form_file(variant_bag_t& bag, std::string const& native_name,
                                     char const* path, std::string& why) {
  std::string content;
  if (!read_file_locked(native_name, content, why)) return DAS_E_FAIL;
  bool recognised = false;
  return read_element_form_document(bag, content, path, why, recognised);
}

int internal::read_element_form_document(variant_bag_t& bag, std::string const& content,
                                         char const* path, std::string& why,
                                         bool& recognised) {
  ensure_xml_safety();
  recognised = false;
  xml_doc_ptr_t doc =
      safe_read_memory(content.data(), content.size(), nullptr, k_file_read_options);
  xmlNode* const root = document_root(doc, why);
  if (root == nullptr) return DAS_E_FAIL;
  recognised = true;
  if (path == nullptr) {
    why = "no path";
    return DAS_E_FAIL;
  }
  xmlNode* start = find_start(root, path);
  if (start == nullptr) {
    why = std::string("no element at the path \"") + path + "\"";
    return DAS_E_FAIL;
  }
  element_reader_t reader;
  int const result = reader.read_children(start, bag);
  if (das_failed(result)) why = reader.why();
  return result;
}

int internal::read_element_form_text(variant_bag_t& bag, char const* utf8, std::size_t size,
                                     std::string& why) {
  // The bytes are UTF-8 whatever the declaration says.
  xml_doc_ptr_t doc = safe_read_memory(utf8, size, "UTF-8", k_string_read_options);
  xmlNode* const root = document_root(doc, why);
  if (root == nullptr) return DAS_E_FAIL;
  element_reader_t reader;
  int const result = reader.read_children(root, bag);
  if (das_failed(result)) why = reader.why();
  return result;
}

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
  *text = internal::wide_variant_from_utf8(utf8.data(), utf8.size());
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
