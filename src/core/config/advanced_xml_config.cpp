// The XML store: values in memory, the walk that reads a file into them, and the save that
// builds a document from them.
#include <libxml/tree.h>

#include <string_view>
#include <unordered_map>
#include <unordered_set>

#include <quillon2/core/config/advanced_xml_config.hpp>
#include <quillon2/headers/kesmet.hpp>

#include "core/config/include/config_xml.hpp"
#include "core/file_system/include/atomic_save.hpp"

namespace quillon2 {

namespace {

xmlChar const* xml(char const* text) { return reinterpret_cast<xmlChar const*>(text); }

std::wstring wide(xmlChar const* text) {
  std::wstring out;
  if (text != nullptr) {
    internal::append_utf8_as_wide(out, reinterpret_cast<char const*>(text), xmlStrlen(text));
  }
  return out;
}

// The lower-case key. ASCII, the usual case, is lowered here; other text by the text layer.
std::wstring key_of(std::wstring const& name) {
  std::wstring key(name);
  for (wchar_t& c : key) {
    if (static_cast<std::make_unsigned_t<wchar_t>>(c) >= 0x80) return tolower(name);
    if (c >= L'A' && c <= L'Z') c = static_cast<wchar_t>(c + (L'a' - L'A'));
  }
  return key;
}

// Text handed over as a character pointer is copied: the pointer would dangle. Empty for
// every other value, which is stored as it is.
boost::any stored_form(boost::any const& value) {
  std::type_info const& type = value.type();
  if (type == typeid(wchar_t const*) || type == typeid(wchar_t*)) {
    wchar_t const* text = type == typeid(wchar_t*) ? boost::any_cast<wchar_t*>(value)
                                                    : boost::any_cast<wchar_t const*>(value);
    return boost::any(std::wstring(text != nullptr ? text : L""));
  }
  if (type == typeid(char const*) || type == typeid(char*)) {
    char const* text = type == typeid(char*) ? boost::any_cast<char*>(value)
                                              : boost::any_cast<char const*>(value);
    std::wstring out;
    if (text != nullptr) internal::append_utf8_as_wide(out, text, std::char_traits<char>::length(text));
    return boost::any(std::move(out));
  }
  return boost::any();
}

// The tokens of a key as element names: split at ".", empty tokens dropped. False when a
// token cannot be an element name, or when the elements would nest deeper than a parser
// reads back (the root and one level of a handler's own children come on top).
bool key_tokens(std::wstring const& key, std::vector<std::string>& tokens) {
  tokens.clear();
  std::size_t start = 0;
  while (start <= key.size()) {
    std::size_t end = key.find(L'.', start);
    if (end == std::wstring::npos) end = key.size();
    if (end > start) {
      wchar_t const* token = key.data() + start;
      std::size_t const length = end - start;
      if (!internal::is_xml_name(token, length) ||
          std::wstring_view(token, length).find(L':') != std::wstring_view::npos) {
        return false;
      }
      tokens.emplace_back();
      internal::append_wide_as_utf8(tokens.back(), token, length);
      if (tokens.back().size() > internal::k_max_name_bytes) return false;
    }
    start = end + 1;
  }
  return tokens.size() + 2 <= internal::k_max_element_depth;
}

}  // namespace

// Finds child elements by name as the first match of an XPath step would, in time that
// does not grow with the number of siblings: each parent's children are indexed once,
// the first of each name, and elements made later are added to the index. One table for
// all parents, sized once, keeps the allocations few.
struct advanced_xml_config_t::saver_t {
  struct child_key_t {
    xmlNode* parent;
    std::string_view name;
    bool operator==(child_key_t const& other) const {
      return parent == other.parent && name == other.name;
    }
  };
  struct child_hash_t {
    std::size_t operator()(child_key_t const& key) const {
      return std::hash<std::string_view>()(key.name) ^
             (std::hash<void*>()(key.parent) * 0x9E3779B97F4A7C15ull);
    }
  };

  explicit saver_t(std::size_t values) {
    children.reserve(2 * values + 16);
    indexed.reserve(values + 16);
  }

  xmlNode* find(xmlNode* parent, std::string const& name) {
    index(parent);
    auto const found = children.find(child_key_t{parent, name});
    return found == children.end() ? nullptr : found->second;
  }

  xmlNode* make(xmlNode* parent, std::string const& name) {
    xmlNode* child = xmlNewChild(parent, nullptr, xml(name.c_str()), nullptr);
    if (child != nullptr) {
      index(parent);
      children.emplace(child_key_t{parent, reinterpret_cast<char const*>(child->name)}, child);
    }
    return child;
  }

  // Records the children that a parent had before the walk first met it (a handler's own
  // children, for a value element that a later key goes into).
  void index(xmlNode* parent) {
    if (!indexed.insert(parent).second) return;
    for (xmlNode* child = parent->children; child != nullptr; child = child->next) {
      if (child->type == XML_ELEMENT_NODE && child->ns == nullptr) {
        children.emplace(child_key_t{parent, reinterpret_cast<char const*>(child->name)}, child);
      }
    }
  }

  std::unordered_map<child_key_t, xmlNode*, child_hash_t> children;
  std::unordered_set<xmlNode*> indexed;
};

advanced_xml_config_t::advanced_xml_config_t() {
  using namespace _internal;
  add_handler(smart_pointer_t<handler_base_t>(new generic_handler_t<bool>(L"bool")));
  add_handler(smart_pointer_t<handler_base_t>(new generic_handler_t<int>(L"int")));
  add_handler(smart_pointer_t<handler_base_t>(new generic_handler_t<long>(L"long")));
  add_handler(smart_pointer_t<handler_base_t>(
      new generic_handler_t<unsigned long>(L"unsigned long")));
  add_handler(smart_pointer_t<handler_base_t>(
      new generic_handler_t<unsigned short>(L"unsigned short")));
  add_handler(smart_pointer_t<handler_base_t>(
      new generic_handler_t<unsigned int>(L"unsigned int")));
  add_handler(smart_pointer_t<handler_base_t>(new generic_handler_t<float>(L"float")));
  add_handler(smart_pointer_t<handler_base_t>(new generic_handler_t<double>(L"double")));
  add_handler(smart_pointer_t<handler_base_t>(new generic_handler_t<std::wstring>(L"string")));
  add_handler(smart_pointer_t<handler_base_t>(
      new generic_container_handler_t<std::vector<std::wstring>, std::wstring>(
          L"string_vector")));
  add_handler(smart_pointer_t<handler_base_t>(
      new generic_container_handler_t<std::list<std::wstring>, std::wstring>(L"string_list")));
  add_handler(smart_pointer_t<handler_base_t>(
      new generic_container_handler_t<std::vector<int>, int>(L"int_vector")));
  add_handler(smart_pointer_t<handler_base_t>(
      new generic_map_handler_t<std::map<std::wstring, std::wstring>>(L"string_string_map")));
  add_handler(smart_pointer_t<handler_base_t>(new path_t_handler_t()));
}

advanced_xml_config_t::advanced_xml_config_t(advanced_xml_config_t const& other) = default;

advanced_xml_config_t& advanced_xml_config_t::operator=(advanced_xml_config_t const& other) {
  if (this == &other) return *this;
  m_on_change = other.m_on_change;
  m_values = other.m_values;
  m_handlers = other.m_handlers;
  return *this;
}

advanced_xml_config_t::~advanced_xml_config_t() = default;

void advanced_xml_config_t::add_handler(smart_pointer_t<handler_base_t> handler) {
  m_handlers.push_back(std::move(handler));
}

void advanced_xml_config_t::set_value(std::wstring const& name, boost::any const& value) {
  std::wstring key = key_of(name);
  boost::any const converted = stored_form(value);
  boost::any const& stored = converted.empty() ? value : converted;
  auto entry = m_values.lower_bound(key);
  boost::any old;
  if (entry != m_values.end() && entry->first == key) {
    old.swap(entry->second);
    entry->second = stored;
  } else {
    entry = m_values.emplace_hint(entry, std::move(key), stored);
  }
  m_on_change(entry->first, old, stored);
}

bool advanced_xml_config_t::has_value(std::wstring const& name) const {
  return m_values.find(key_of(name)) != m_values.end();
}

boost::any advanced_xml_config_t::get_value(std::wstring const& name,
                                            boost::any const& default_value) const {
  auto const entry = m_values.find(key_of(name));
  return entry != m_values.end() ? entry->second : default_value;
}

void advanced_xml_config_t::get_names(std::vector<std::wstring>& names) const {
  names.clear();
  names.reserve(m_values.size());
  for (auto const& entry : m_values) names.push_back(entry.first);
}

void advanced_xml_config_t::on_load_value_failed(std::wstring const&, std::wstring const&) {}

void advanced_xml_config_t::on_save_value_failed(std::wstring const&, std::type_info const&) {}

bool advanced_xml_config_t::load(path_t const& path) {
  internal::xml_doc_ptr_t const document = internal::open_config_document(path.native_string());
  if (document == nullptr) return false;
  m_values.clear();
  parse_node(xmlDocGetRootElement(document.get()));
  return true;
}

void advanced_xml_config_t::parse_node(xmlNode* node) {
  if (node == nullptr || node->type != XML_ELEMENT_NODE) return;
  xmlChar* type = xmlGetProp(node, xml("type"));
  if (type == nullptr) {
    for (xmlNode* child = node->children; child != nullptr; child = child->next) {
      parse_node(child);
    }
    return;
  }
  std::wstring const type_name = wide(type);
  xmlFree(type);

  // The key: the element names from below the root element down to this node.
  std::wstring key;
  for (xmlNode* level = node; level != nullptr && level->parent != nullptr &&
                              level->parent->type == XML_ELEMENT_NODE;
       level = level->parent) {
    std::wstring name = wide(level->name);
    if (!key.empty()) name.append(1, L'.').append(key);
    key.swap(name);
  }

  for (auto const& handler : m_handlers) {
    if (handler->get_type_name() != type_name) continue;
    handler_base_t::parent_scope_t const scope(*handler, this);
    set_value(key, handler->read_value(node));
    return;
  }
  on_load_value_failed(key, type_name);
}

bool advanced_xml_config_t::save(path_t const& path) {
  internal::ensure_xml_safety();
  internal::xml_doc_ptr_t const document(xmlNewDoc(xml("1.0")));
  if (document == nullptr) return false;
  xmlNode* root = xmlNewDocNode(document.get(), nullptr, xml("root"), nullptr);
  if (root == nullptr) return false;
  xmlDocSetRootElement(document.get(), root);

  saver_t saver(m_values.size());
  std::vector<std::string> tokens;
  for (auto const& [key, value] : m_values) {
    if (!key_tokens(key, tokens)) {
      on_save_value_failed(key, value.type());
      continue;
    }
    // Follow the elements that exist, then make the rest; a key whose every level exists
    // already (or that has no level) was written by an earlier key and is passed over.
    xmlNode* element = root;
    std::size_t level = 0;
    for (; level < tokens.size(); ++level) {
      xmlNode* child = saver.find(element, tokens[level]);
      if (child == nullptr) break;
      element = child;
    }
    if (level == tokens.size()) continue;
    for (; level < tokens.size() && element != nullptr; ++level) {
      element = saver.make(element, tokens[level]);
    }
    if (element == nullptr) return false;

    handler_base_t* handler = nullptr;
    for (auto const& candidate : m_handlers) {
      if (candidate->get_type_info() == value.type()) {
        handler = candidate.get();
        break;
      }
    }
    if (handler == nullptr) {
      on_save_value_failed(key, value.type());
      continue;
    }
    std::wstring const type_name = handler->get_type_name();
    std::string type_word;
    internal::append_wide_as_utf8(type_word, type_name.data(), type_name.size());
    xmlNewProp(element, xml("type"), xml(type_word.c_str()));
    handler_base_t::parent_scope_t const scope(*handler, this);
    handler->write_value(value, element);
  }

  std::string bytes;
  if (!internal::serialize_config_document(document.get(), bytes)) return false;
  return internal::atomic_save(path.native_string(), bytes).ok;
}

}  // namespace quillon2
