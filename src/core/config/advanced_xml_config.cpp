// The XML store: values in memory, the walk that reads a file into them, and the save that
// builds a document from them.
#include <algorithm>
#include <cstring>
#include <string_view>
#include <unordered_map>
#include <unordered_set>

#include <libxml/tree.h>

#include <quillon2/core/config/advanced_xml_config.hpp>
#include <quillon2/headers/kesmet.hpp>

#include "core/config/include/config_xml.hpp"
#include "core/file_system/include/atomic_save.hpp"
#include "core/miscellaneous/include/utf8.hpp"

namespace quillon2::internal {

namespace {

bool is_ascii_name_char(wchar_t c, bool first) {
  return (c >= L'a' && c <= L'z') || (c >= L'A' && c <= L'Z') || c == L'_' ||
         (!first && ((c >= L'0' && c <= L'9') || c == L'-'));
}

}  // namespace

// One pass over the key: split, checked and converted as it goes.
bool key_tokens(std::wstring const& key, std::vector<std::string>& tokens) {
  tokens.clear();
  wchar_t const* p = key.data();
  wchar_t const* const end = p + key.size();
  while (p < end) {
    if (*p == L'.') {
      ++p;
      continue;
    }
    std::string& token = tokens.emplace_back();
    for (bool first = true; p < end && *p != L'.'; ++p, first = false) {
      auto const c = static_cast<char32_t>(*p);
      if (c < 0x80) {
        if (!is_ascii_name_char(*p, first)) return false;  // ":" among the refused
        token += static_cast<char>(c);
      } else {
        if (!(first ? is_xml_name_start_char(c) : is_xml_name_char(c))) return false;
        char buffer[4];
        token.append(buffer, encode_utf8(c, buffer));
      }
    }
    if (token.size() > k_max_name_bytes) return false;
  }
  return tokens.size() + 2 <= k_max_element_depth;
}

value_kind_t value_kind_of(handler_base_t& handler) {
  using namespace _internal;
  std::type_info const& type = typeid(handler);
  if (type == typeid(generic_handler_t<bool>)) return value_kind_t::boolean;
  if (type == typeid(generic_handler_t<int>)) return value_kind_t::int_number;
  if (type == typeid(generic_handler_t<long>)) return value_kind_t::long_number;
  if (type == typeid(generic_handler_t<unsigned long>)) return value_kind_t::unsigned_long_number;
  if (type == typeid(generic_handler_t<unsigned short>)) return value_kind_t::unsigned_short_number;
  if (type == typeid(generic_handler_t<unsigned int>)) return value_kind_t::unsigned_int_number;
  if (type == typeid(generic_handler_t<float>)) return value_kind_t::float_number;
  if (type == typeid(generic_handler_t<double>)) return value_kind_t::double_number;
  if (type == typeid(generic_handler_t<std::wstring>)) return value_kind_t::string;
  if (type == typeid(generic_container_handler_t<std::vector<std::wstring>, std::wstring>)) {
    return value_kind_t::string_vector;
  }
  if (type == typeid(generic_container_handler_t<std::list<std::wstring>, std::wstring>)) {
    return value_kind_t::string_list;
  }
  if (type == typeid(generic_container_handler_t<std::vector<int>, int>)) {
    return value_kind_t::int_vector;
  }
  if (type == typeid(generic_map_handler_t<std::map<std::wstring, std::wstring>>)) {
    return value_kind_t::string_map;
  }
  if (type == typeid(path_t_handler_t)) return value_kind_t::path;
  return value_kind_t::client;
}

}  // namespace quillon2::internal

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

// The lower-case key of a name: the name itself when it is one already (ASCII in lower
// case, the usual case, and no copy made), else `storage` holding it lowered (ASCII here,
// other text by the text layer).
std::wstring const& key_of(std::wstring const& name, std::wstring& storage) {
  std::size_t at = 0;
  while (at < name.size() && static_cast<std::make_unsigned_t<wchar_t>>(name[at]) < 0x80 &&
         !(name[at] >= L'A' && name[at] <= L'Z')) {
    ++at;
  }
  if (at == name.size()) return name;
  storage = name;
  for (wchar_t& c : storage) {
    if (static_cast<std::make_unsigned_t<wchar_t>>(c) >= 0x80) return storage = tolower(name);
    if (c >= L'A' && c <= L'Z') c = static_cast<wchar_t>(c + (L'a' - L'A'));
  }
  return storage;
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
  std::wstring storage;
  std::wstring const& key = key_of(name, storage);
  boost::any const converted = stored_form(value);
  boost::any const& stored = converted.empty() ? value : converted;
  // A load sets its keys mostly in order: one after the last needs no search.
  auto entry = !m_values.empty() && m_values.rbegin()->first < key ? m_values.end()
                                                                    : m_values.lower_bound(key);
  boost::any old;
  if (entry != m_values.end() && entry->first == key) {
    old.swap(entry->second);
    entry->second = stored;
  } else {
    entry = m_values.emplace_hint(entry, key, stored);
  }
  m_on_change(entry->first, old, stored);
}

bool advanced_xml_config_t::has_value(std::wstring const& name) const {
  std::wstring storage;
  return m_values.find(key_of(name, storage)) != m_values.end();
}

boost::any advanced_xml_config_t::get_value(std::wstring const& name,
                                            boost::any const& default_value) const {
  std::wstring storage;
  auto const entry = m_values.find(key_of(name, storage));
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
  // Each value's handler, the first whose type is the value's, found once for each type.
  struct handler_info_t {
    handler_base_t* handler;
    std::type_info const* type;
    internal::value_kind_t kind;
    std::string word;  // the type name in UTF-8, known for the store's own handlers
  };
  std::vector<handler_info_t> handlers;
  handlers.reserve(m_handlers.size());
  for (auto const& handler : m_handlers) {
    handlers.push_back({handler.get(), &handler->get_type_info(), internal::value_kind_of(*handler),
                        std::string()});
    if (handlers.back().kind != internal::value_kind_t::client) {
      std::wstring const name = handler->get_type_name();
      std::string& word = handlers.back().word;
      internal::append_wide_as_utf8(word, name.data(), name.size());
      word.resize(std::strlen(word.c_str()));  // as libxml2 takes it
    }
  }
  std::vector<std::pair<std::type_info const*, handler_info_t const*>> seen;
  std::vector<internal::store_entry_t> entries;
  entries.reserve(m_values.size());
  bool own_handlers = internal::default_formatter_settings();
  for (auto const& [key, value] : m_values) {
    std::type_info const& type = value.type();
    auto known =
        std::find_if(seen.begin(), seen.end(), [&](auto const& s) { return s.first == &type; });
    if (known == seen.end()) {
      auto const first = std::find_if(handlers.begin(), handlers.end(),
                                      [&](handler_info_t const& h) { return *h.type == type; });
      known = seen.insert(seen.end(), {&type, first == handlers.end() ? nullptr : &*first});
    }
    handler_info_t const* const info = known->second;
    entries.push_back({&key, &value, info != nullptr ? info->handler : nullptr,
                       info != nullptr ? info->kind : internal::value_kind_t::none,
                       info != nullptr ? &info->word : nullptr});
    if (info != nullptr && info->kind == internal::value_kind_t::client) own_handlers = false;
  }

  std::string bytes;
  if (own_handlers) {
    internal::print_outcome_t const printed = internal::print_store(
        entries, bytes,
        [&](std::size_t i) { on_save_value_failed(*entries[i].key, entries[i].value->type()); });
    if (printed != internal::print_outcome_t::printed) return false;
    return internal::atomic_save(path.native_string(), bytes).ok;
  }

  internal::xml_doc_ptr_t const document(xmlNewDoc(xml("1.0")));
  if (document == nullptr) return false;
  xmlNode* root = xmlNewDocNode(document.get(), nullptr, xml("root"), nullptr);
  if (root == nullptr) return false;
  xmlDocSetRootElement(document.get(), root);

  saver_t saver(m_values.size());
  std::vector<std::string> tokens;
  for (internal::store_entry_t const& entry : entries) {
    std::wstring const& key = *entry.key;
    boost::any const& value = *entry.value;
    if (!internal::key_tokens(key, tokens)) {
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

    handler_base_t* const handler = entry.handler;
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

  if (!internal::serialize_config_document(document.get(), bytes)) return false;
  return internal::atomic_save(path.native_string(), bytes).ok;
}

}  // namespace quillon2
