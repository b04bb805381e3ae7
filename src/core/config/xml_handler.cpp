// handler_base_t's helpers for reading and writing elements, and the path_t handler.
#include <libxml/tree.h>
#include <libxml/xpath.h>

#include <memory>

#include <quillon2/core/assert.hpp>
#include <quillon2/core/config/advanced_xml_config.hpp>

#include "core/config/include/config_xml.hpp"

namespace quillon2 {

namespace {

// libxml2 keeps text as terminated strings, so a NUL would silently cut it. It becomes
// U+0001 instead, which XML cannot hold either, so that the save fails as it does for
// every such character.
std::string utf8(std::wstring const& text) {
  std::string out;
  internal::append_wide_as_utf8(out, text.data(), text.size());
  for (char& c : out) {
    if (c == '\0') c = '\x01';
  }
  return out;
}

xmlChar const* xml(std::string const& text) {
  return reinterpret_cast<xmlChar const*>(text.c_str());
}

// Takes an xmlChar* that libxml2 allocated, frees it and gives its wide text.
std::wstring take_wide(xmlChar* text) {
  std::wstring out;
  if (text == nullptr) return out;
  internal::append_utf8_as_wide(out, reinterpret_cast<char const*>(text), xmlStrlen(text));
  xmlFree(text);
  return out;
}

bool is_plain_name(std::wstring const& text) {
  return internal::is_xml_name(text.data(), text.size()) && text.find(L':') == std::wstring::npos;
}

}  // namespace

handler_base_t::handler_base_t() : m_parent(nullptr) {}
handler_base_t::handler_base_t(handler_base_t const& other) = default;
handler_base_t& handler_base_t::operator=(handler_base_t const& other) = default;
handler_base_t::~handler_base_t() = default;

void handler_base_t::set_parent(advanced_xml_config_t const* parent) { m_parent = parent; }

std::wstring handler_base_t::get_node_content(xmlNode* node) {
  if (node == nullptr || node->children == nullptr) return std::wstring();
  return take_wide(xmlNodeListGetString(node->doc, node->children, 1));
}

void handler_base_t::set_node_content(xmlNode* node, std::wstring const& text) {
  if (node == nullptr) return;
  std::string const bytes = utf8(text);
  xmlNodeAddContentLen(node, xml(bytes), static_cast<int>(bytes.size()));
}

void handler_base_t::add_property(xmlNode* node, std::wstring const& name,
                                  std::wstring const& text) {
  if (node == nullptr || !is_plain_name(name)) return;
  // xmlNewTextChild, unlike xmlNewChild, takes the text as text: "&" stays "&".
  xmlNewTextChild(node, nullptr, xml(utf8(name)), xml(utf8(text)));
}

xmlNode* handler_base_t::add_element(xmlNode* node, std::wstring const& name) {
  if (node == nullptr || !is_plain_name(name)) return nullptr;
  return xmlNewChild(node, nullptr, xml(utf8(name)), nullptr);
}

std::vector<xmlNode*> handler_base_t::find_nodes(xmlNode* node, std::wstring const& xpath) {
  std::vector<xmlNode*> nodes;
  if (node == nullptr) return nodes;
  if (is_plain_name(xpath)) {
    // The child axis by name, as the XPath step would select it.
    std::string const name = utf8(xpath);
    for (xmlNode* child = node->children; child != nullptr; child = child->next) {
      if (child->type == XML_ELEMENT_NODE && child->ns == nullptr &&
          xmlStrEqual(child->name, xml(name))) {
        nodes.push_back(child);
      }
    }
    return nodes;
  }
  internal::ensure_xml_safety();
  std::unique_ptr<xmlXPathContext, void (*)(xmlXPathContextPtr)> context(
      xmlXPathNewContext(node->doc), xmlXPathFreeContext);
  if (context == nullptr) {
    ::KESMET_2_18::debug::_private::____________________ASSERT____________________(
        "invalid state", __FILE__, __LINE__, __func__);
    return nodes;
  }
  context->node = node;
  std::unique_ptr<xmlXPathObject, void (*)(xmlXPathObjectPtr)> result(
      xmlXPathEval(xml(utf8(xpath)), context.get()), xmlXPathFreeObject);
  if (result == nullptr || result->type != XPATH_NODESET || result->nodesetval == nullptr) {
    return nodes;
  }
  for (int i = 0; i < result->nodesetval->nodeNr; ++i) {
    nodes.push_back(result->nodesetval->nodeTab[i]);
  }
  return nodes;
}

std::wstring handler_base_t::get_property(xmlNode* node, std::wstring const& xpath) {
  std::vector<xmlNode*> const nodes = find_nodes(node, xpath);
  return nodes.empty() ? std::wstring() : get_node_content(nodes.front());
}

void handler_base_t::set_property(xmlNode* node, std::wstring const& xpath,
                                  std::wstring const& text) {
  std::vector<xmlNode*> const nodes = find_nodes(node, xpath);
  if (!nodes.empty()) {
    set_node_content(nodes.front(), text);
  } else {
    add_property(node, xpath, text);
  }
}

boost::any handler_base_t::get_any_property(xmlNode* node, std::wstring const& xpath,
                                            std::wstring const& type_name) {
  std::vector<xmlNode*> const nodes = find_nodes(node, xpath);
  if (nodes.empty() || m_parent == nullptr) return boost::any();
  for (auto const& handler : m_parent->m_handlers) {
    if (handler->get_type_name() != type_name) continue;
    parent_scope_t const scope(*handler, m_parent);
    return handler->read_value(nodes.front());
  }
  return boost::any();
}

bool handler_base_t::set_any_property(xmlNode* node, std::wstring const& xpath,
                                      boost::any const& value) {
  std::vector<xmlNode*> const nodes = find_nodes(node, xpath);
  xmlNode* target = nodes.empty() ? add_element(node, xpath) : nodes.front();
  if (target == nullptr || m_parent == nullptr) return false;
  for (auto const& handler : m_parent->m_handlers) {
    if (handler->get_type_info() != value.type()) continue;
    parent_scope_t const scope(*handler, m_parent);
    handler->write_value(value, target);
    return true;
  }
  return false;
}

std::wstring handler_base_t::get_attribute(xmlNode* node, std::wstring const& name) {
  if (node == nullptr) return std::wstring();
  std::string const key = utf8(name);
  if (xmlHasProp(node, xml(key)) == nullptr) return std::wstring();
  return take_wide(xmlGetProp(node, xml(key)));
}

void handler_base_t::set_attribute(xmlNode* node, std::wstring const& name,
                                   std::wstring const& value) {
  if (node == nullptr || !is_plain_name(name)) return;
  xmlSetProp(node, xml(utf8(name)), xml(utf8(value)));
}

namespace _internal {

boost::any path_t_handler_t::read_value(xmlNode* node) {
  return boost::any(path_t(get_node_content(node)));
}

void path_t_handler_t::write_value(boost::any const& value, xmlNode* node) {
  set_node_content(node, boost::any_cast<path_t const&>(value).as_string(false));
}

std::wstring path_t_handler_t::get_type_name() { return L"path_t"; }

std::type_info const& path_t_handler_t::get_type_info() { return typeid(path_t); }

}  // namespace _internal

}  // namespace quillon2
