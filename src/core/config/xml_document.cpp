// Reading and writing whole configuration documents: the parse with the library's XML
// safety rules, the printing of a libxml2 document that checks as it prints that the
// document reads back (libxml2's own formatter, after a separate check, for the node kinds
// that printing leaves to it), and the two public document functions.
#include <cstring>
#include <string_view>
#include <vector>

#include <libxml/globals.h>
#include <libxml/parserInternals.h>
#include <libxml/tree.h>
#include <libxml/xmlsave.h>

#include <quillon2/core/config/advanced_xml_config.hpp>

#include "core/config/include/config_format.hpp"
#include "core/config/include/config_xml.hpp"
#include "core/das/include/xml_escape.hpp"
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

char const* text_of(xmlChar const* text) { return reinterpret_cast<char const*>(text); }

// Appends UTF-8 text of a document that a parser reads back, escaped for its place.
print_outcome_t append_text(std::string& out, xmlChar const* text, xml_escapes_t const& escapes) {
  std::size_t const size = std::strlen(text_of(text));
  if (size > k_max_text_bytes || !append_checked_escaped(out, text_of(text), size, escapes)) {
    return print_outcome_t::refused;
  }
  return print_outcome_t::printed;
}

// A libxml2 document as print_formatted walks it. Namespaces, entity references, DTDs and
// other rare kinds are left to libxml2's formatter.
struct libxml_tree_t {
  using node_t = xmlNode*;
  static constexpr xmlNode* none = nullptr;

  xmlDoc* document;

  static node_kind_t kind(xmlNode* node) {
    switch (node->type) {
      case XML_ELEMENT_NODE:
        return node->ns == nullptr && node->nsDef == nullptr ? node_kind_t::element
                                                             : node_kind_t::unsupported;
      case XML_TEXT_NODE:  // text printed unescaped is libxml2's own affair
        return node->name == xmlStringTextNoenc ? node_kind_t::unsupported : node_kind_t::text;
      case XML_CDATA_SECTION_NODE:
        return node_kind_t::cdata;
      case XML_COMMENT_NODE:
        return node_kind_t::comment;
      case XML_PI_NODE:
        return node_kind_t::pi;
      default:
        return node_kind_t::unsupported;
    }
  }
  static xmlNode* first_child(xmlNode* node) { return node->children; }
  static xmlNode* next(xmlNode* node) { return node->next; }
  static xmlNode* parent(xmlNode* node) { return node->parent; }

  print_outcome_t open(xmlNode* element, std::string& out) const {
    if (element->name == nullptr) return print_outcome_t::refused;
    std::size_t const length = std::strlen(text_of(element->name));
    if (length > k_max_name_bytes || xmlValidateName(element->name, 0) != 0) {
      return print_outcome_t::refused;
    }
    out += '<';
    out.append(text_of(element->name), length);
    for (xmlAttr* attribute = element->properties; attribute != nullptr;
         attribute = attribute->next) {
      // Another document's attribute would be printed with character references.
      if (attribute->ns != nullptr || attribute->doc != document || attribute->name == nullptr) {
        return print_outcome_t::unsupported;
      }
      out += ' ';
      out.append(text_of(attribute->name));
      out.append("=\"", 2);
      for (xmlNode* text = attribute->children; text != nullptr; text = text->next) {
        if (text->type != XML_TEXT_NODE || text->content == nullptr) {
          return print_outcome_t::unsupported;
        }
        print_outcome_t const printed = append_text(out, text->content, k_attribute_escapes);
        if (printed != print_outcome_t::printed) return printed;
      }
      out += '"';
    }
    return print_outcome_t::printed;
  }

  static void close(xmlNode* element, std::string& out) {
    out.append("</", 2);
    out.append(text_of(element->name));
    out += '>';
  }

  static print_outcome_t leaf(xmlNode* node, std::string& out) {
    xmlChar const* const content = node->content;
    switch (node->type) {
      case XML_TEXT_NODE:
        return content == nullptr ? print_outcome_t::printed
                                  : append_text(out, content, k_content_escapes);
      case XML_CDATA_SECTION_NODE:
        out.append("<![CDATA[", 9);
        if (content != nullptr) {
          if (std::strstr(text_of(content), "]]>") != nullptr) return print_outcome_t::refused;
          if (append_text(out, content, k_verbatim_escapes) != print_outcome_t::printed) {
            return print_outcome_t::refused;
          }
        }
        out.append("]]>", 3);
        return print_outcome_t::printed;
      case XML_COMMENT_NODE:
        if (content == nullptr) return print_outcome_t::printed;
        out.append("<!--", 4);
        if (append_text(out, content, k_verbatim_escapes) != print_outcome_t::printed) {
          return print_outcome_t::refused;
        }
        out.append("-->", 3);
        return print_outcome_t::printed;
      default:  // a processing instruction
        out.append("<?", 2);
        out.append(node->name != nullptr ? text_of(node->name) : "");
        if (content != nullptr) {
          out += ' ';
          if (append_text(out, content, k_verbatim_escapes) != print_outcome_t::printed) {
            return print_outcome_t::refused;
          }
        }
        out.append("?>", 2);
        return print_outcome_t::printed;
    }
  }
};

// The document printed as libxml2's formatter prints it in UTF-8.
print_outcome_t print_config_document(xmlDoc* document, std::string& out) {
  if (document->type != XML_DOCUMENT_NODE || !default_formatter_settings()) {
    return print_outcome_t::unsupported;
  }
  append_declaration(out, text_of(document->version), document->standalone);
  libxml_tree_t tree{document};
  for (xmlNode* top = document->children; top != nullptr; top = top->next) {
    print_outcome_t const printed = print_formatted(tree, top, out);
    if (printed != print_outcome_t::printed) return printed;
    out += '\n';
  }
  return print_outcome_t::printed;
}

}  // namespace

bool default_formatter_settings() {
  return xmlIndentTreeOutput != 0 && xmlSaveNoEmptyTags == 0 && xmlTreeIndentString != nullptr &&
         std::strcmp(xmlTreeIndentString, "  ") == 0;
}

void append_declaration(std::string& out, char const* version, int standalone) {
  out.append("<?xml version=");
  std::string_view const number = version != nullptr ? version : "1.0";
  if (number.find('"') == std::string_view::npos) {
    out.append(1, '"').append(number).append(1, '"');
  } else if (number.find('\'') == std::string_view::npos) {
    out.append(1, '\'').append(number).append(1, '\'');
  } else {
    out += '"';
    for (char const c : number) {
      if (c == '"') {
        out.append("&quot;", 6);
      } else {
        out += c;
      }
    }
    out += '"';
  }
  out.append(" encoding=\"UTF-8\"");
  if (standalone == 0) out.append(" standalone=\"no\"");
  if (standalone == 1) out.append(" standalone=\"yes\"");
  out.append("?>\n", 3);
}

xml_doc_ptr_t open_config_document(std::string const& native_name) {
  std::string content;
  if (!read_config_file(native_name, content)) return nullptr;
  return safe_read_memory(content.data(), content.size(), nullptr, k_config_parse_options);
}

bool serialize_config_document(xmlDoc* document, std::string& bytes) {
  ensure_xml_safety();
  if (document == nullptr) return false;
  bytes.clear();
  print_outcome_t const printed = print_config_document(document, bytes);
  if (printed != print_outcome_t::unsupported) return printed == print_outcome_t::printed;
  if (!reads_back(document)) return false;
  xmlChar* memory = nullptr;
  int size = 0;
  xmlDocDumpFormatMemoryEnc(document, &memory, &size, "UTF-8", 1);
  if (memory == nullptr) return false;
  bytes.assign(reinterpret_cast<char const*>(memory), size > 0 ? static_cast<std::size_t>(size) : 0);
  xmlFree(memory);
  // What libxml2 prints of the kinds it is left with can fail to read back beyond what the
  // walk sees: an entity's text counts only where a reference puts it ("]]>" is no
  // content), under the options of a configuration read. Those documents are rare, and a
  // read of the text settles it.
  if (bytes.empty() ||
      !safe_read_memory(bytes.data(), bytes.size(), nullptr, k_config_parse_options)) {
    bytes.clear();
    return false;
  }
  return true;
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
