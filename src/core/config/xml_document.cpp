// Reading and writing whole configuration documents: the parse with the library's XML
// safety rules, the check that a document reads back, and the two public document functions.
#include <libxml/tree.h>
#include <libxml/xmlsave.h>

#include <vector>

#include <quillon2/core/config/advanced_xml_config.hpp>

#include "core/config/include/config_xml.hpp"
#include "core/file_system/include/atomic_save.hpp"
#include "core/miscellaneous/include/utf8.hpp"

namespace quillon2::internal {

namespace {

// Whether `text` is well-formed UTF-8 of characters that XML holds, within the size that
// a parser reads back.
bool is_xml_text(xmlChar const* text) {
  if (text == nullptr) return true;
  auto const* p = reinterpret_cast<unsigned char const*>(text);
  std::size_t const size = xmlStrlen(text);
  if (size > k_max_text_bytes) return false;
  for (std::size_t at = 0; at < size;) {
    char32_t c = 0;
    bool valid = false;
    at += decode_utf8(p + at, size - at, c, valid);
    if (!valid || !is_xml_char(c)) return false;
  }
  return true;
}

bool is_readable_element(xmlNode* element) {
  if (element->name == nullptr ||
      static_cast<std::size_t>(xmlStrlen(element->name)) > k_max_name_bytes ||
      xmlValidateName(element->name, 0) != 0) {
    return false;
  }
  for (xmlAttr* attribute = element->properties; attribute != nullptr;
       attribute = attribute->next) {
    for (xmlNode* text = attribute->children; text != nullptr; text = text->next) {
      if (!is_xml_text(text->content)) return false;
    }
  }
  return true;
}

// Walks the tree without recursion, so that a deep document costs no stack.
bool reads_back(xmlDoc* document) {
  struct frame_t {
    xmlNode* node;
    std::size_t depth;
  };
  std::vector<frame_t> stack;
  for (xmlNode* top = document->children; top != nullptr; top = top->next) {
    stack.push_back({top, 1});
  }
  while (!stack.empty()) {
    frame_t const frame = stack.back();
    stack.pop_back();
    xmlNode* node = frame.node;
    switch (node->type) {
      case XML_ELEMENT_NODE:
        if (frame.depth > k_max_element_depth || !is_readable_element(node)) return false;
        for (xmlNode* child = node->children; child != nullptr; child = child->next) {
          stack.push_back({child, frame.depth + 1});
        }
        break;
      case XML_TEXT_NODE:
      case XML_COMMENT_NODE:
      case XML_PI_NODE:
        if (!is_xml_text(node->content)) return false;
        break;
      case XML_CDATA_SECTION_NODE:
        if (!is_xml_text(node->content) ||
            xmlStrstr(node->content, reinterpret_cast<xmlChar const*>("]]>")) != nullptr) {
          return false;
        }
        break;
      default:
        break;
    }
  }
  return true;
}

}  // namespace

xml_doc_ptr_t open_config_document(std::string const& native_name) {
  std::string content;
  if (!read_config_file(native_name, content)) return nullptr;
  return safe_read_memory(content.data(), content.size(), nullptr, k_config_parse_options);
}

bool serialize_config_document(xmlDoc* document, std::string& bytes) {
  ensure_xml_safety();
  if (document == nullptr || !reads_back(document)) return false;
  xmlChar* memory = nullptr;
  int size = 0;
  xmlDocDumpFormatMemoryEnc(document, &memory, &size, "UTF-8", 1);
  if (memory == nullptr) return false;
  bytes.assign(reinterpret_cast<char const*>(memory), size > 0 ? static_cast<std::size_t>(size) : 0);
  xmlFree(memory);
  return !bytes.empty();
}

}  // namespace quillon2::internal

namespace quillon2 {

xmlDoc* open_xml_document(path_t const& path) {
  return internal::open_config_document(path.native_string()).release();
}

bool save_xml_document(path_t const& path, xmlDoc* document) {
  std::string bytes;
  if (!internal::serialize_config_document(document, bytes)) return false;
  return internal::atomic_save(path.native_string(), bytes).ok;
}

}  // namespace quillon2
