// The element form of bags, read from libxml2's tree. The reader recurses, but only as
// deep as libxml2 lets a document nest (its default limit, which is never lifted).
#include <cstdint>
#include <cstring>
#include <string>
#include <unordered_map>
#include <vector>

#include <libxml/parser.h>
#include <libxml/tree.h>

#include <quillon2/das/das_proxy.hpp>
#include <quillon2/das/notype_ptr.hpp>
#include <quillon2/das/type_factory.hpp>
#include <quillon2/das/variant.hpp>
#include <quillon2/das/variant_bag.hpp>
#include <quillon2/das/variant_bag_serialization.hpp>

#include "core/das/include/bag_impl.hpp"
#include "core/das/include/das_assert.hpp"
#include "core/das/include/element_form.hpp"
#include "core/das/include/vb_helper.hpp"
#include "core/das/include/variant_text.hpp"
#include "core/das/include/xml_file_io.hpp"
#include "core/das/include/xml_safety.hpp"

namespace quillon2 {
namespace {

using internal::text_type_t;

// Read options: entities are substituted. Small texts are stored inside their nodes
// (XML_PARSE_COMPACT), which saves allocations and changes nothing that the reader sees,
// the tree being read only; the text form uses it as the file form does.
constexpr int k_file_read_options =
    XML_PARSE_NOENT | XML_PARSE_NOERROR | XML_PARSE_NOWARNING | XML_PARSE_COMPACT;
constexpr int k_string_read_options = XML_PARSE_NOENT | XML_PARSE_COMPACT;

class element_reader_t {
 public:
  int read_children(xmlNode* parent, variant_bag_t& bag);
  std::string const& why() const { return m_why; }

 private:
  // An entry name as the bag keeps it: the text, its hash, and the text as a value for
  // the "#tag_name" of child bags, which all children of one name share.
  struct name_t {
    std::wstring text;
    std::uint32_t hash;
    variant_t tag;
  };

  name_t const& wide_name(xmlNode const* node);
  static name_t make_name(char const* utf8, std::size_t size);
  static xmlChar const* attribute_text(xmlNode const* node, char const* name);
  static std::size_t text_length(xmlChar const* text) {
    return text != nullptr ? std::strlen(reinterpret_cast<char const*>(text)) : 0;
  }
  // Whether the element's name fits in what a save may write.
  static bool name_within_limits(xmlNode const* node);
  static bool blob_from_text(char const* text, std::vector<unsigned char>& bytes);

  // libxml2 keeps names in a dictionary, so one name is one pointer: converted once.
  // The maps never drop an entry, so a returned name stays valid for the whole read.
  std::unordered_map<xmlChar const*, name_t> m_names;
  std::unordered_map<std::string, name_t> m_qualified;
  std::vector<unsigned char> m_bytes;
  std::string m_why;
  // The nodes of the bags read, side by side in large blocks instead of one allocation each.
  internal::node_arena_t m_arena;
};

element_reader_t::name_t element_reader_t::make_name(char const* utf8, std::size_t size) {
  name_t name;
  internal::append_utf8_as_wide(name.text, utf8, size);
  name.hash = internal::hash_name(name.text.data(), name.text.size());
  name.tag = variant_t(name.text.c_str());
  return name;
}

element_reader_t::name_t const& element_reader_t::wide_name(xmlNode const* node) {
  if (node->ns != nullptr && node->ns->prefix != nullptr) {
    // A name with a bound prefix is kept whole, as the entry was named.
    std::string qualified = reinterpret_cast<char const*>(node->ns->prefix);
    qualified += ':';
    qualified += reinterpret_cast<char const*>(node->name);
    auto found = m_qualified.find(qualified);
    if (found == m_qualified.end()) {
      name_t name = make_name(qualified.data(), qualified.size());
      found = m_qualified.emplace(std::move(qualified), std::move(name)).first;
    }
    return found->second;
  }
  auto found = m_names.find(node->name);
  if (found == m_names.end()) {
    char const* name = reinterpret_cast<char const*>(node->name);
    found = m_names.emplace(node->name, make_name(name, std::strlen(name))).first;
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
  return length <= internal::k_max_name_bytes;
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
    name_t const& name = wide_name(node);

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
      if (text_length(type_id_text) > internal::k_max_text_bytes ||
          text_length(ptr_type_text) > internal::k_max_text_bytes) {
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
      variant_t value(pointer);
      internal::vb_helper::put_moved(&m_arena, bag, name.text.data(), name.text.size(), name.hash,
                                     value);
      continue;
    }
    if (type == text_type_t::bag || has_elements) {
      variant_bag_t& child = internal::vb_helper::add_empty_child(
          &m_arena, bag, name.text.data(), name.text.size(), name.hash, name.tag);
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
    if (length > internal::k_max_text_bytes) {
      m_why = "a text longer than a save may write";
      return DAS_E_FAIL;
    }
    variant_t value;
    if (type == text_type_t::blob) {
      if (!blob_from_text(s, m_bytes)) {
        m_why = "a blob with an odd number of hexadecimal digits";
        return DAS_E_FAIL;
      }
      if (internal::blob_text_length(m_bytes.size()) > internal::k_max_text_bytes) {
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
    internal::vb_helper::put_moved(&m_arena, bag, name.text.data(), name.text.size(), name.hash,
                                   value);
  }
  return DAS_OK;
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

}  // namespace quillon2
