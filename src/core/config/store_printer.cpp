// The store's document printed straight from its values, for stores whose values are all
// written by the store's own handlers. The elements come in the order in which a save's
// libxml2 tree would make them (keys in order, an element per key token, found again by
// name), and every text is converted, checked and escaped once as it comes. The bytes are
// those that the libxml2 tree of the same store prints.
//
// Keys in order mostly continue the path of the key before, or open a name greater than
// every one before it under the same parent: then the document is printed as it is built,
// with only the open elements remembered. When a key may lead back into an element that
// was closed (such as "a", "a-b", "a.c": "-" sorts before "."), the document is built
// again as a light tree, which finds every element again, and printed from it.
#include <algorithm>
#include <charconv>
#include <cstdint>
#include <functional>
#include <list>
#include <map>
#include <string_view>
#include <type_traits>
#include <vector>

#include <libxml/tree.h>

#include <quillon2/core/config/advanced_xml_config.hpp>

#include "core/config/include/config_format.hpp"
#include "core/config/include/config_xml.hpp"
#include "core/das/include/xml_escape.hpp"

namespace quillon2::internal {

namespace {

constexpr std::uint32_t k_none = 0xFFFFFFFFu;

using string_map_t = std::map<std::wstring, std::wstring>;

class store_tree_t {
 public:
  using node_t = std::uint32_t;
  static constexpr node_t none = k_none;

  explicit store_tree_t(std::size_t entries) {
    m_nodes.reserve(entries + entries / 8 + 16);
    m_names.reserve(entries * 8);
    m_texts.reserve(entries * 32);
    add_node(k_none, "root", false);
  }

  // What print_formatted asks.
  node_kind_t kind(node_t n) const {
    return m_nodes[n].is_text ? node_kind_t::text : node_kind_t::element;
  }
  node_t first_child(node_t n) const { return m_nodes[n].first_child; }
  node_t next(node_t n) const { return m_nodes[n].next; }
  node_t parent(node_t n) const { return m_nodes[n].parent; }
  print_outcome_t open(node_t n, std::string& out) const {
    out += '<';
    out.append(name(n));
    out.append(m_texts, m_nodes[n].text_at, m_nodes[n].text_size);  // the attributes
    return print_outcome_t::printed;
  }
  void close(node_t n, std::string& out) const {
    out.append("</", 2);
    out.append(name(n));
    out += '>';
  }
  print_outcome_t leaf(node_t n, std::string& out) const {
    out.append(m_texts, m_nodes[n].text_at, m_nodes[n].text_size);
    return print_outcome_t::printed;
  }

  // The first child element of `parent` named `name`, k_none if there is none. Keys come
  // in order, so that a new name is mostly greater than every name before it under the
  // same parent; only a parent where that proves nothing has its children indexed.
  node_t find(node_t parent, std::string_view name) {
    node_record_t& above = m_nodes[parent];
    if (above.greatest_child == k_none || name > this->name(above.greatest_child)) return k_none;
    if (!above.indexed) {
      above.indexed = true;
      for (node_t child = above.first_child; child != k_none; child = m_nodes[child].next) {
        if (!m_nodes[child].is_text) index(child);
      }
    }
    for (std::size_t slot = hash(parent, name) & mask();; slot = (slot + 1) & mask()) {
      node_t const found = m_slots[slot];
      if (found == k_none) return k_none;
      if (m_nodes[found].parent == parent && this->name(found) == name) return found;
    }
  }

  // A new last child element of `parent`, with the attributes that follow in the texts.
  node_t add_element(node_t parent, std::string_view name) {
    node_t const n = add_node(parent, name, false);
    m_nodes[n].text_at = m_texts.size();
    node_record_t& above = m_nodes[parent];
    if (above.greatest_child == k_none || name > this->name(above.greatest_child)) {
      above.greatest_child = n;
    }
    if (above.indexed) index(n);
    return n;
  }
  // Ends the attributes of the element that was added last.
  void end_attributes(node_t element) {
    m_nodes[element].text_size =
        static_cast<std::uint32_t>(m_texts.size() - m_nodes[element].text_at);
  }
  // A text child of `parent` holding what `text()` receives from now to end_text().
  void begin_text(node_t) { m_text_start = m_texts.size(); }
  void end_text(node_t parent) {
    node_t const n = add_node(parent, std::string_view(), true);
    m_nodes[n].text_at = m_text_start;
    m_nodes[n].text_size = static_cast<std::uint32_t>(m_texts.size() - m_text_start);
  }
  node_t new_element(node_t parent, std::string_view name) { return add_element(parent, name); }
  void close_element(node_t) {}
  static bool gave_up() { return false; }

  // The element of a key's tokens below the root, made where missing; k_none when every
  // level was there already.
  node_t element_of(std::vector<std::string> const& tokens) {
    // Keys come in order, so a key often shares its first levels with the one before.
    std::size_t level = 0;
    while (level < tokens.size() && level < m_path_tokens.size() &&
           tokens[level] == m_path_tokens[level]) {
      ++level;
    }
    m_path.resize(level);
    node_t element = level == 0 ? 0 : m_path[level - 1];
    for (; level < tokens.size(); ++level) {
      node_t const child = find(element, tokens[level]);
      if (child == k_none) break;
      element = child;
      m_path.push_back(child);
    }
    bool const found = level == tokens.size();
    for (; level < tokens.size(); ++level) {
      element = add_element(element, tokens[level]);
      end_attributes(element);
      m_path.push_back(element);
    }
    m_path_tokens = tokens;
    return found ? k_none : element;
  }

  std::string& text() { return m_texts; }

  // The whole document.
  print_outcome_t print(std::string& out) {
    out.reserve(out.size() + m_texts.size() + 2 * m_names.size() + 16 * m_nodes.size());
    print_outcome_t const printed = print_formatted(*this, 0, out);
    out += '\n';
    return printed;
  }

 private:
  struct node_record_t {
    std::size_t name_at = 0;
    std::uint32_t name_size = 0;
    std::size_t text_at = 0;  // its text, or an element's attributes
    std::uint32_t text_size = 0;
    node_t parent = k_none, first_child = k_none, last_child = k_none, next = k_none;
    node_t greatest_child = k_none;  // the child element of the greatest name
    bool is_text = false;
    bool indexed = false;  // its child elements are in the table
  };

  std::string_view name(node_t n) const {
    return std::string_view(m_names.data() + m_nodes[n].name_at, m_nodes[n].name_size);
  }
  std::size_t mask() const { return m_slots.size() - 1; }
  static std::size_t hash(node_t parent, std::string_view name) {
    std::size_t hash = 14695981039346656037ull ^ parent;  // FNV-1a: names are short
    for (char const c : name) hash = (hash ^ static_cast<unsigned char>(c)) * 1099511628211ull;
    return hash ^ (hash >> 29);
  }

  node_t add_node(node_t parent, std::string_view name, bool is_text) {
    auto const n = static_cast<node_t>(m_nodes.size());
    node_record_t& record = m_nodes.emplace_back();
    record.name_at = m_names.size();
    record.name_size = static_cast<std::uint32_t>(name.size());
    record.parent = parent;
    record.is_text = is_text;
    m_names.append(name);
    if (parent != k_none) {
      node_record_t& above = m_nodes[parent];
      (above.last_child == k_none ? above.first_child : m_nodes[above.last_child].next) = n;
      above.last_child = n;
    }
    return n;
  }

  // Records an element for find() unless its parent has an earlier one of its name.
  void index(node_t n) {
    if (2 * m_indexed >= m_slots.size()) grow();
    node_t const parent = m_nodes[n].parent;
    std::string_view const key = name(n);
    for (std::size_t slot = hash(parent, key) & mask();; slot = (slot + 1) & mask()) {
      node_t const found = m_slots[slot];
      if (found == k_none) {
        m_slots[slot] = n;
        ++m_indexed;
        return;
      }
      if (m_nodes[found].parent == parent && name(found) == key) return;
    }
  }
  void grow() {
    std::vector<node_t> old(std::max<std::size_t>(2 * m_slots.size(), 1024), k_none);
    old.swap(m_slots);
    for (node_t const n : old) {
      if (n == k_none) continue;
      std::size_t slot = hash(m_nodes[n].parent, name(n)) & mask();
      while (m_slots[slot] != k_none) slot = (slot + 1) & mask();
      m_slots[slot] = n;
    }
  }

  std::vector<node_record_t> m_nodes;
  std::string m_names;
  std::string m_texts;          // printed texts and attributes, escaped
  std::vector<node_t> m_slots;  // open addressing over (parent, name)
  std::size_t m_indexed = 0;
  std::size_t m_text_start = 0;
  std::vector<std::string> m_path_tokens;  // the tokens of the last key placed
  std::vector<node_t> m_path;              // and their elements
};

// The document printed as it is built: the open elements are a stack, the root at the
// bottom and the last key's elements above it. An element's start tag stays open until
// its first child comes or it ends as an empty element.
class stream_sink_t {
 public:
  using node_t = std::uint32_t;  // the depth of an open element, the root's 0

  explicit stream_sink_t(std::string& out) : m_out(out) { open("root", true); }

  // True when a key may have led into an element that was closed already.
  bool gave_up() const { return m_gave_up; }

  node_t element_of(std::vector<std::string> const& tokens) {
    std::size_t level = 0;
    while (level < tokens.size() && level < m_tokens.size() && tokens[level] == m_tokens[level]) {
      ++level;
    }
    if (level == tokens.size()) return k_none;  // every level is open already
    while (m_count > level + 1) close_top();
    m_tokens.resize(level);
    // A name greater than those of all the parent's children proves that it has no child
    // of that name; the elements below the one made here are new all the more.
    open_t const& parent = top();
    if (!parent.greatest_child.empty() && tokens[level] <= parent.greatest_child) {
      m_gave_up = true;
      return k_none;
    }
    for (; level < tokens.size(); ++level) {
      open(tokens[level], false);
      m_tokens.push_back(tokens[level]);
    }
    return static_cast<node_t>(m_count - 1);
  }
  node_t new_element(node_t, std::string_view name) {
    open(name, false);
    return static_cast<node_t>(m_count - 1);
  }
  void close_element(node_t) { close_top(); }
  void end_attributes(node_t) {}
  void begin_text(node_t) {
    open_t& element = top();
    m_out += '>';
    element.tag_open = false;
    element.format_inside = false;  // an element with text is printed as it stands
  }
  void end_text(node_t) {}
  std::string& text() { return m_out; }

  void finish() {
    while (m_count > 0) close_top();
    m_out += '\n';
  }

 private:
  struct open_t {
    std::string name;
    std::string greatest_child;  // the greatest name of a child element so far
    bool tag_open = true;        // the start tag still takes attributes
    bool format_inside = true;   // children go on lines of their own, indented
  };

  void indent(std::size_t level) { m_out.append(2 * std::min<std::size_t>(level, 30), ' '); }
  open_t& top() { return m_open[m_count - 1]; }

  void open(std::string_view name, bool root) {
    bool format = true;
    if (!root) {
      open_t& parent = top();
      if (parent.tag_open) {
        m_out.append(">\n", parent.format_inside ? 2 : 1);
        parent.tag_open = false;
      }
      if (name > parent.greatest_child) parent.greatest_child.assign(name);
      format = parent.format_inside;
      if (format) indent(m_count);
    }
    m_out += '<';
    m_out.append(name);
    if (m_count == m_open.size()) m_open.emplace_back();  // the records and their names stay
    open_t& element = m_open[m_count++];
    element.name.assign(name);
    element.greatest_child.clear();
    element.tag_open = true;
    element.format_inside = format;
  }

  void close_top() {
    open_t const& element = top();
    if (element.tag_open) {
      m_out.append("/>", 2);
    } else {
      if (element.format_inside) indent(m_count - 1);
      m_out.append("</", 2);
      m_out.append(element.name);
      m_out += '>';
    }
    --m_count;
    if (m_count > 0 && top().format_inside) m_out += '\n';
  }

  std::string& m_out;
  std::vector<open_t> m_open;
  std::size_t m_count = 0;            // of open elements, at the head of m_open
  std::vector<std::string> m_tokens;  // the tokens of the open elements above the root
  bool m_gave_up = false;
};

// Writes a store's entries into a sink (the light tree or the printing stack), checking
// every name and text as a save of the libxml2 tree would.
template <class Sink>
class store_builder_t {
 public:
  using node_t = typename Sink::node_t;

  explicit store_builder_t(Sink& sink) : m_sink(sink) {}

  bool refused() const { return m_refused; }

  // Places every entry; `left_out` receives those that the file leaves out.
  void build(std::vector<store_entry_t> const& entries, std::vector<std::size_t>& left_out) {
    for (std::size_t i = 0; i < entries.size() && !m_sink.gave_up(); ++i) {
      store_entry_t const& entry = entries[i];
      if (!key_tokens(*entry.key, m_tokens)) {
        left_out.push_back(i);
        continue;
      }
      check_names();
      node_t const element = m_sink.element_of(m_tokens);
      if (element == k_none) continue;  // an earlier key wrote it
      if (entry.kind == value_kind_t::none) {
        left_out.push_back(i);
        continue;
      }
      if (!m_refused) write(element, entry.kind, *entry.type_word, *entry.value);
    }
  }

 private:
  // Names beyond ASCII are checked by libxml2's own rule, as a parser applies it.
  void check_names() {
    for (std::string const& token : m_tokens) {
      for (char const c : token) {
        if (static_cast<unsigned char>(c) < 0x80) continue;
        if (xmlValidateName(reinterpret_cast<xmlChar const*>(token.c_str()), 0) != 0) {
          m_refused = true;
        }
        break;
      }
    }
  }

  // Writes a value into its element as its handler (of kind `kind`) does.
  void write(node_t element, value_kind_t kind, std::string const& type_word,
             boost::any const& value) {
    m_sink.text().append(" type=\"", 7);
    if (type_word.size() > k_max_text_bytes ||
        !append_checked_escaped(m_sink.text(), type_word.data(), type_word.size(),
                                k_attribute_escapes)) {
      m_refused = true;
    }
    m_sink.text() += '"';
    m_sink.end_attributes(element);
    switch (kind) {
      case value_kind_t::boolean:
        return number_text(element, boost::any_cast<bool const&>(value) ? 1 : 0);
      case value_kind_t::int_number:
        return number_text(element, boost::any_cast<int const&>(value));
      case value_kind_t::long_number:
        return number_text(element, boost::any_cast<long const&>(value));
      case value_kind_t::unsigned_long_number:
        return number_text(element, boost::any_cast<unsigned long const&>(value));
      case value_kind_t::unsigned_short_number:
        return number_text(element, boost::any_cast<unsigned short const&>(value));
      case value_kind_t::unsigned_int_number:
        return number_text(element, boost::any_cast<unsigned int const&>(value));
      case value_kind_t::float_number:
        return number_text(element, boost::any_cast<float const&>(value));
      case value_kind_t::double_number:
        return number_text(element, boost::any_cast<double const&>(value));
      case value_kind_t::string:
        return wide_text(element, boost::any_cast<std::wstring const&>(value));
      case value_kind_t::path:
        return wide_text(element, boost::any_cast<path_t const&>(value).as_string(false));
      case value_kind_t::string_vector:
        for (auto const& item : boost::any_cast<std::vector<std::wstring> const&>(value)) {
          item_text(element, item);
        }
        return;
      case value_kind_t::string_list:
        for (auto const& item : boost::any_cast<std::list<std::wstring> const&>(value)) {
          item_text(element, item);
        }
        return;
      case value_kind_t::int_vector:
        for (int const item : boost::any_cast<std::vector<int> const&>(value)) {
          node_t const child = m_sink.new_element(element, "item");
          m_sink.end_attributes(child);
          number_text(child, item);
          m_sink.close_element(child);
        }
        return;
      case value_kind_t::string_map:
        for (auto const& [key, mapped] : boost::any_cast<string_map_t const&>(value)) {
          node_t const child = m_sink.new_element(element, "item");
          m_sink.text().append(" key=\"", 6);
          wide_attribute(key);
          m_sink.text().append("\" value=\"", 9);
          wide_attribute(mapped);
          m_sink.text() += '"';
          m_sink.end_attributes(child);
          m_sink.close_element(child);
        }
        return;
      default:
        return;
    }
  }

  template <class T>
  void number_text(node_t element, T number) {
    char buffer[64];
    std::to_chars_result result;
    if constexpr (std::is_floating_point_v<T>) {
      result = std::to_chars(buffer, buffer + sizeof buffer, number, std::chars_format::general, 6);
    } else {
      result = std::to_chars(buffer, buffer + sizeof buffer, number);
    }
    m_sink.begin_text(element);
    m_sink.text().append(buffer, result.ptr);
    m_sink.end_text(element);
  }

  // An element's content: an empty text adds no text node.
  void wide_text(node_t element, std::wstring const& text) {
    if (text.empty()) return;
    m_sink.begin_text(element);
    checked(append_wide_checked_escaped(m_sink.text(), text.data(), text.size(), k_content_escapes,
                                        m_utf8_bytes));
    m_sink.end_text(element);
  }
  // A child "item" holding the text, even an empty one.
  void item_text(node_t element, std::wstring const& text) {
    node_t const child = m_sink.new_element(element, "item");
    m_sink.end_attributes(child);
    m_sink.begin_text(child);
    checked(append_wide_checked_escaped(m_sink.text(), text.data(), text.size(), k_content_escapes,
                                        m_utf8_bytes));
    m_sink.end_text(child);
    m_sink.close_element(child);
  }
  void wide_attribute(std::wstring const& text) {
    checked(append_wide_checked_escaped(m_sink.text(), text.data(), text.size(),
                                        k_attribute_escapes, m_utf8_bytes));
  }
  void checked(bool valid) {
    if (!valid || m_utf8_bytes > k_max_text_bytes) m_refused = true;
  }

  Sink& m_sink;
  std::vector<std::string> m_tokens;
  std::size_t m_utf8_bytes = 0;
  bool m_refused = false;
};

}  // namespace

print_outcome_t print_store(std::vector<store_entry_t> const& entries, std::string& out,
                            std::function<void(std::size_t)> const& left_out) {
  std::vector<std::size_t> left;
  bool refused = false;
  out.clear();
  out.reserve(64 * entries.size() + 64);
  append_declaration(out, "1.0", -1);
  std::size_t const declaration = out.size();
  bool gave_up = false;
  {
    stream_sink_t sink(out);
    store_builder_t<stream_sink_t> builder(sink);
    builder.build(entries, left);
    gave_up = sink.gave_up();
    if (!gave_up) {
      sink.finish();
      refused = builder.refused();
    }
  }
  if (gave_up) {
    out.resize(declaration);
    left.clear();
    store_tree_t tree(entries.size());
    store_builder_t<store_tree_t> builder(tree);
    builder.build(entries, left);
    refused = builder.refused() || tree.print(out) != print_outcome_t::printed;
  }
  for (std::size_t const i : left) left_out(i);
  return refused ? print_outcome_t::refused : print_outcome_t::printed;
}

}  // namespace quillon2::internal
