// The visitor that writes the attribute form: events build a tree of tags, and libxml2's
// text writer prints the tree.
//
// A tree is needed because a bag's values and its object pointers come interleaved while
// an element's attributes must all precede its children, because a value may replace an
// earlier one of the same name, and because the namespace declarations on the document
// element depend on the whole document.
//
// The tree is flat: tags and attributes live in vectors and refer to each other by index,
// and all their texts live in one character arena, already escaped and checked, so that
// building costs few allocations and printing hands the writer finished text. Printing
// walks the tree without recursion.
#include <cstdint>
#include <cstring>
#include <cwchar>
#include <exception>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include <libxml/xmlwriter.h>

#include <quillon2/das/type_factory.hpp>
#include <quillon2/das/variant.hpp>
#include <quillon2/das/variant_bag_visitor.hpp>

#include "core/das/include/attribute_form.hpp"
#include "core/das/include/das_assert.hpp"
#include "core/das/include/xml_file_io.hpp"
#include "core/das/include/xml_escape.hpp"
#include "core/das/include/xml_safety.hpp"
#include "core/file_system/include/atomic_save.hpp"
#include "core/das/include/xml_tag_writer.hpp"
#include "core/miscellaneous/include/logging.hpp"

namespace quillon2 {

namespace {

constexpr std::uint32_t k_none = 0xFFFFFFFFu;
// From this many attributes on, a tag finds its attributes through a hash index.
constexpr std::uint32_t k_indexed_attributes = 12;

xmlChar const* xml_text(char const* text) { return reinterpret_cast<xmlChar const*>(text); }

bool has_forbidden_character(char const* name) { return std::strpbrk(name, " </>") != nullptr; }

std::uint32_t hash_of(char const* text, std::size_t length) {
  std::uint32_t hash = 2166136261u;
  for (std::size_t i = 0; i < length; ++i) {
    hash = (hash ^ static_cast<unsigned char>(text[i])) * 16777619u;
  }
  return hash;
}

// A name split at ":": with exactly two parts the first is the prefix. A part that would
// be empty (":x", "x:") leaves the name whole, so that every element keeps a name and every
// prefix is a word.
void split_qualified(char const* name, std::size_t length, char const*& prefix,
                     std::size_t& prefix_length, char const*& local, std::size_t& local_length) {
  prefix = nullptr;
  prefix_length = 0;
  local = name;
  local_length = length;
  char const* colon = static_cast<char const*>(std::memchr(name, ':', length));
  if (colon == nullptr || colon == name || colon + 1 == name + length) return;
  char const* after = colon + 1;
  if (std::memchr(after, ':', static_cast<std::size_t>(name + length - after)) != nullptr) return;
  prefix = name;
  prefix_length = static_cast<std::size_t>(colon - name);
  local = after;
  local_length = static_cast<std::size_t>(name + length - after);
}

// A vector that grows by blocks: elements never move, and growing copies nothing.
template <class T>
class block_vector_t {
 public:
  static constexpr std::size_t k_shift = 10;
  static constexpr std::size_t k_block = std::size_t{1} << k_shift;

  std::size_t size() const { return m_size; }
  T& operator[](std::size_t i) { return m_blocks[i >> k_shift][i & (k_block - 1)]; }
  T const& operator[](std::size_t i) const { return m_blocks[i >> k_shift][i & (k_block - 1)]; }
  T& back() { return (*this)[m_size - 1]; }
  T& emplace_back() {
    if ((m_size & (k_block - 1)) == 0 && (m_size >> k_shift) == m_blocks.size()) {
      m_blocks.emplace_back(new T[k_block]);
    }
    T& slot = (*this)[m_size++];
    slot = T();
    return slot;
  }

 private:
  std::vector<std::unique_ptr<T[]>> m_blocks;
  std::size_t m_size = 0;
};

// Texts that stay where they are put: small ones share blocks, large ones get their own.
class text_arena_t {
 public:
  static constexpr std::size_t k_block = 64 * 1024;

  char const* store(char const* text, std::size_t length, bool terminate) {
    std::size_t const need = length + (terminate ? 1 : 0);
    if (need == 0) return "";
    char* place;
    if (need > k_block / 8) {
      m_large.emplace_back(new char[need]);
      place = m_large.back().get();
    } else {
      if (m_left < need) {
        m_blocks.emplace_back(new char[k_block]);
        m_next = m_blocks.back().get();
        m_left = k_block;
      }
      place = m_next;
      m_next += need;
      m_left -= need;
    }
    std::memcpy(place, text, length);
    if (terminate) place[length] = '\0';
    m_bytes += need;
    return place;
  }
  // Room for up to `most` bytes in a shared block, to be written in place and then
  // committed; null when `most` is too large to share a block, and the caller stores.
  char* reserve(std::size_t most) {
    if (most > k_block / 8) return nullptr;
    if (m_left < most) {
      m_blocks.emplace_back(new char[k_block]);
      m_next = m_blocks.back().get();
      m_left = k_block;
    }
    return m_next;
  }
  void commit(std::size_t used) {
    m_next += used;
    m_left -= used;
    m_bytes += used;
  }
  // How many bytes were stored: a measure of the document's size.
  std::size_t bytes() const { return m_bytes; }

 private:
  std::vector<std::unique_ptr<char[]>> m_blocks;
  std::vector<std::unique_ptr<char[]>> m_large;
  char* m_next = nullptr;
  std::size_t m_left = 0;
  std::size_t m_bytes = 0;
};

}  // namespace

// One element in the making.
struct xml_tag_t {
  struct text_t {
    char const* data = "";
    std::uint32_t size = 0;
  };
  std::uint32_t parent = k_none;
  std::uint32_t first_child = k_none;
  std::uint32_t last_child = k_none;
  std::uint32_t next_sibling = k_none;
  std::uint32_t first_attribute = k_none;
  std::uint32_t last_attribute = k_none;
  std::uint32_t attribute_count = 0;
  std::uint32_t depth = 1;
  text_t prefix;
  text_t name;
  text_t text;                    // escaped element content
  std::uint64_t hashes_seen = 0;  // one bit for each attribute, by its hash: a quick "new"
  bool hidden = false;
};

struct xml_attribute_t {
  xml_tag_t::text_t qualified_name;  // "prefix:name", zero-terminated in the arena
  xml_tag_t::text_t value;           // escaped
  std::uint32_t next = k_none;
  std::uint32_t hash = 0;  // of the qualified name
};

class visitor_variant_bag_to_string_t : public variant_bag_visitor_to_xml_t {
 public:
  visitor_variant_bag_to_string_t() { m_tags.emplace_back(); }

  bool on_start_variant_bag(char const* name) override;
  bool on_end_variant_bag() override;
  bool on_start_pointer(char const* name, char const* type_id, char const* ptr_type) override;
  bool on_end_pointer() override;
  bool on_variant(char const* name, variant_t const& value) override;
  int to_xml_string(KESMET_2_18::strings::ustring8& out) override;
  int to_xml_file(wchar_t const* file_name, char const* encoding) override;

 private:
  using text_t = xml_tag_t::text_t;

  bool refuse(char const* why, char const* name) {
    m_why = why;
    if (*name != '\0') m_why.append(" \"").append(name).append("\"");
    return false;
  }
  bool have_current() {
    if (m_current != k_none) return true;
    Q2_DAS_ASSERT_TEXT("m_current_tag_ptr");
    m_why = "an event after the document element was closed";
    return false;
  }
  text_t store(char const* text, std::size_t length, bool terminate) {
    text_t ref;
    ref.data = m_chars.store(text, length, terminate);
    ref.size = static_cast<std::uint32_t>(length);
    return ref;
  }
  static char const* chars(text_t ref) { return ref.data; }
  void mark_used(char const* prefix, std::size_t length) {
    mark_used(internal::namespace_row_of(prefix, length));
  }
  void mark_used(int row) {
    if (row >= 0) m_used |= 1u << row;
  }
  // Escapes wide text into the arena; false when XML cannot hold the text.
  bool store_escaped(wchar_t const* text, bool attribute, text_t& stored) {
    std::size_t const units = std::wcslen(text);
    std::size_t const most = units * internal::k_max_escaped_bytes;
    if (char* place = m_chars.reserve(most)) {
      long const written = internal::escape_wide_text(text, units, attribute, place);
      if (written < 0) return false;
      m_chars.commit(static_cast<std::size_t>(written));
      stored.data = place;
      stored.size = static_cast<std::uint32_t>(written);
      return true;
    }
    std::size_t length = 0;
    char const* escaped = escape(text, attribute, length);
    if (escaped == nullptr) return false;
    stored = store(escaped, length, false);
    return true;
  }
  // Escapes wide text into the reused buffer; null when XML cannot hold the text.
  char const* escape(wchar_t const* text, bool attribute, std::size_t& length) {
    std::size_t const units = std::wcslen(text);
    std::size_t const need = units * internal::k_max_escaped_bytes + 1;
    if (need > m_escape_capacity) {
      m_escape.reset(new char[need]);
      m_escape_capacity = need;
    }
    long const written = internal::escape_wide_text(text, units, attribute, m_escape.get());
    if (written < 0) return nullptr;
    length = static_cast<std::size_t>(written);
    return m_escape.get();
  }
  void set_attribute(std::uint32_t tag_index, char const* qualified_name, std::size_t name_length,
                     char const* value, std::size_t value_length);
  // The same with a name already in the arena and its hash, and a value stored already.
  void set_attribute(std::uint32_t tag_index, text_t qualified_name, std::uint32_t hash,
                     text_t value);
  std::uint32_t find_attribute(std::uint32_t tag_index, char const* qualified_name,
                               std::size_t name_length, std::uint32_t hash) const;
  std::uint32_t first_visible(std::uint32_t index) const {
    while (index != k_none && m_tags[index].hidden) index = m_tags[index].next_sibling;
    return index;
  }
  bool open_tag(xmlTextWriterPtr writer, std::uint32_t index);
  int write_document(xmlTextWriterPtr writer, char const* encoding);
  int print(std::string& out, char const* encoding, bool cut_declaration);

  block_vector_t<xml_tag_t> m_tags;
  block_vector_t<xml_attribute_t> m_attributes;
  text_arena_t m_chars;
  // Hash indexes of the tags with many attributes, by tag.
  std::unordered_map<std::uint32_t, std::unordered_map<std::string, std::uint32_t>> m_indexes;
  std::uint32_t m_current = 0;
  std::uint32_t m_used = 0;       // the rows of the namespace table that were used
  std::size_t m_estimate = 1024;  // what the printed document takes, at least roughly
  std::string m_scratch;
  std::string m_name;
  std::unique_ptr<char[]> m_escape;
  std::size_t m_escape_capacity = 0;

  // What a value's name gives, by the name as the event brings it and the value's type
  // prefix: a bag's values have the same names again and again.
  struct name_entry_t {
    std::string name;
    int type_row = -2;  // never a row: the entry is empty
    bool hidden = false;
    bool valid = false;
    int row = -1;  // the row that the qualified name's prefix declares
    text_t qualified_name;
    std::uint32_t hash = 0;
  };
  static constexpr std::size_t k_name_cache = 512;
  std::unique_ptr<name_entry_t[]> m_name_cache{new name_entry_t[k_name_cache]};
  name_entry_t const& name_entry(char const* name, std::size_t length,
                                 internal::value_text_t const& text);
  std::string m_why;  // why the last refused event was refused

  friend std::string internal::why_refused(variant_bag_visitor_to_xml_t const& visitor);
};

bool visitor_variant_bag_to_string_t::on_start_variant_bag(char const* name) {
  if (!have_current()) return false;
  if (name == nullptr || *name == '\0') return refuse("an element without a name", "");
  std::size_t const length = std::strlen(name);
  bool const hidden = name[0] == '#';
  char const* prefix;
  std::size_t prefix_length;
  char const* local;
  std::size_t local_length;
  split_qualified(name, length, prefix, prefix_length, local, local_length);
  // A name of XML holds none of " </>"; a hidden one is only tested for them.
  if (hidden ? has_forbidden_character(name)
             : prefix_length > internal::k_max_name_bytes ||
                   local_length > internal::k_max_name_bytes ||
                   !internal::is_xml_name_utf8(name, length) ||
                   internal::is_namespace_declaration_name(name, length)) {
    return refuse("a bag name that XML cannot hold", name);
  }
  std::uint32_t index = m_current;
  if (m_tags[index].name.size != 0) {
    if (m_tags[index].depth >= internal::k_max_element_depth) {
      return refuse("bags nested deeper than a document may be, at", name);
    }
    std::uint32_t const child = static_cast<std::uint32_t>(m_tags.size());
    xml_tag_t& tag = m_tags.emplace_back();
    xml_tag_t& parent = m_tags[index];
    tag.parent = index;
    tag.depth = parent.depth + 1;
    tag.hidden = parent.hidden;
    if (parent.last_child == k_none) {
      parent.first_child = child;
    } else {
      m_tags[parent.last_child].next_sibling = child;
    }
    parent.last_child = child;
    index = m_current = child;
  }
  xml_tag_t& tag = m_tags[index];
  tag.hidden = tag.hidden || hidden || (local_length != 0 && local[0] == '#');
  if (prefix_length != 0) {
    mark_used(prefix, prefix_length);
    tag.prefix = store(prefix, prefix_length, false);
  }
  tag.name = store(local, local_length, false);
  m_estimate += 2 * (prefix_length + local_length) + tag.depth + 12;
  return true;
}

bool visitor_variant_bag_to_string_t::on_end_variant_bag() {
  if (!have_current()) return false;
  m_current = m_tags[m_current].parent;
  return true;
}

bool visitor_variant_bag_to_string_t::on_start_pointer(char const* name, char const* type_id,
                                                       char const* ptr_type) {
  // The type names are checked first, so that a refused pointer leaves no element behind.
  char const* texts[2] = {type_id != nullptr ? type_id : "", ptr_type != nullptr ? ptr_type : ""};
  std::string escaped[2];
  for (int i = 0; i < 2; ++i) {
    std::size_t const length = std::strlen(texts[i]);
    if (!internal::is_xml_text_utf8(texts[i], length) || length > internal::k_max_text_bytes) {
      return refuse("an object type name that XML cannot hold, of", name != nullptr ? name : "");
    }
    internal::append_escaped_attribute_utf8(escaped[i], texts[i], length);
    if (escaped[i].size() > internal::k_max_text_bytes) {
      return refuse("an object type name too long for a document, of", name != nullptr ? name : "");
    }
  }
  // The element opens as a bag does (a prefix in the name is split off and counts as
  // used); its prefix then becomes "pointer", which needs no declaration.
  if (!on_start_variant_bag(name)) return false;
  static char const k_pointer[] = "pointer";
  xml_tag_t& tag = m_tags[m_current];
  tag.prefix = store(k_pointer, sizeof k_pointer - 1, false);
  static char const* const k_names[2] = {"pointer:type_id", "pointer:ptr_type"};
  for (int i = 0; i < 2; ++i) {
    set_attribute(m_current, k_names[i], std::strlen(k_names[i]), escaped[i].data(),
                  escaped[i].size());
  }
  return true;
}

bool visitor_variant_bag_to_string_t::on_end_pointer() { return on_end_variant_bag(); }

bool visitor_variant_bag_to_string_t::on_variant(char const* name, variant_t const& value) {
  if (!have_current()) return false;
  if (name == nullptr) name = "";
  std::size_t const length = std::strlen(name);

  internal::value_text_t text;
  m_scratch.clear();
  internal::get_type_and_value_as_string(value, text, m_scratch);
  if (length == 0) {
    // The text of the element, which takes the value's prefix unless it has one. Only a
    // prefix that the element takes is declared: the text itself says nothing of its type.
    text_t stored;
    if (text.wide != nullptr) {
      if (!store_escaped(text.wide, false, stored)) {
        return refuse("a text with characters that XML cannot hold", "");
      }
    } else {
      stored = store(m_scratch.data(), m_scratch.size(), false);
    }
    // The value's prefix is declared even where the element keeps a prefix of its own.
    xml_tag_t& tag = m_tags[m_current];
    if (text.prefix_length != 0) {
      if (tag.prefix.size == 0) tag.prefix = store(text.prefix, text.prefix_length, false);
      mark_used(text.row);
    }
    tag.text = stored;
    m_estimate += stored.size;
    return true;
  }
  name_entry_t const& entry = name_entry(name, length, text);
  if (entry.hidden) {  // hidden entries are not written
    return has_forbidden_character(name) ? refuse("a value name that XML cannot hold", name) : true;
  }
  if (!entry.valid) return refuse("a value name that XML cannot hold", name);
  mark_used(entry.row);
  text_t stored;
  if (text.wide != nullptr) {
    if (!store_escaped(text.wide, true, stored)) {
      return refuse("a text with characters that XML cannot hold in", name);
    }
    if (stored.size > internal::k_max_text_bytes) {
      return refuse("a text too long for a document in", name);
    }
  } else {
    stored = store(m_scratch.data(), m_scratch.size(), false);
  }
  set_attribute(m_current, entry.qualified_name, entry.hash, stored);
  return true;
}

visitor_variant_bag_to_string_t::name_entry_t const& visitor_variant_bag_to_string_t::name_entry(
    char const* name, std::size_t length, internal::value_text_t const& text) {
  std::uint32_t const key =
      hash_of(name, length) ^ static_cast<std::uint32_t>(text.row + 2) * 40503u;
  name_entry_t& entry = m_name_cache[key & (k_name_cache - 1)];
  if (entry.type_row == text.row && entry.name.size() == length &&
      std::memcmp(entry.name.data(), name, length) == 0) {
    return entry;
  }
  entry.name.assign(name, length);
  entry.type_row = text.row;
  char const* prefix = text.prefix;
  std::size_t prefix_length = text.prefix_length;
  char const* local = name;
  std::size_t local_length = length;
  entry.row = text.row;
  if (prefix_length == 0) {
    split_qualified(name, length, prefix, prefix_length, local, local_length);
    if (prefix_length != 0) entry.row = internal::namespace_row_of(prefix, prefix_length);
  }
  entry.hidden = name[0] == '#' || local[0] == '#';
  // The qualified name must be a name of XML, which also keeps out " </>".
  m_name.clear();
  if (prefix_length != 0) m_name.append(prefix, prefix_length).push_back(':');
  m_name.append(local, local_length);
  entry.valid = !entry.hidden && !internal::is_namespace_declaration_name(name, length) &&
                prefix_length <= internal::k_max_name_bytes &&
                local_length <= internal::k_max_name_bytes &&
                internal::is_xml_name_utf8(m_name.data(), m_name.size());
  if (entry.valid) {
    entry.qualified_name = store(m_name.data(), m_name.size(), true);
    entry.hash = hash_of(m_name.data(), m_name.size());
  }
  return entry;
}

std::uint32_t visitor_variant_bag_to_string_t::find_attribute(std::uint32_t tag_index,
                                                              char const* qualified_name,
                                                              std::size_t name_length,
                                                              std::uint32_t hash) const {
  xml_tag_t const& tag = m_tags[tag_index];
  if ((tag.hashes_seen & (std::uint64_t{1} << (hash & 63))) == 0) return k_none;
  if (tag.attribute_count >= k_indexed_attributes) {
    auto const index = m_indexes.find(tag_index);
    if (index == m_indexes.end()) return k_none;
    auto const found = index->second.find(std::string(qualified_name, name_length));
    return found != index->second.end() ? found->second : k_none;
  }
  for (std::uint32_t a = tag.first_attribute; a != k_none; a = m_attributes[a].next) {
    xml_attribute_t const& attribute = m_attributes[a];
    if (attribute.hash == hash && attribute.qualified_name.size == name_length &&
        std::memcmp(attribute.qualified_name.data, qualified_name, name_length) == 0) {
      return a;
    }
  }
  return k_none;
}

void visitor_variant_bag_to_string_t::set_attribute(std::uint32_t tag_index,
                                                    char const* qualified_name,
                                                    std::size_t name_length, char const* value,
                                                    std::size_t value_length) {
  std::uint32_t const hash = hash_of(qualified_name, name_length);
  text_t name;
  if (find_attribute(tag_index, qualified_name, name_length, hash) == k_none) {
    name = store(qualified_name, name_length, true);
  } else {
    name.data = qualified_name;  // not kept: the attribute that exists keeps its name
    name.size = static_cast<std::uint32_t>(name_length);
  }
  set_attribute(tag_index, name, hash, store(value, value_length, false));
}

void visitor_variant_bag_to_string_t::set_attribute(std::uint32_t tag_index, text_t qualified_name,
                                                    std::uint32_t hash, text_t value) {
  std::uint32_t const existing =
      find_attribute(tag_index, qualified_name.data, qualified_name.size, hash);
  m_estimate += value.size;
  if (existing != k_none) {
    // A later value of the same name keeps the attribute's place.
    m_attributes[existing].value = value;
    return;
  }
  m_estimate += qualified_name.size + 4;
  auto const index = static_cast<std::uint32_t>(m_attributes.size());
  xml_attribute_t& attribute = m_attributes.emplace_back();
  attribute.qualified_name = qualified_name;
  attribute.value = value;
  attribute.hash = hash;
  xml_tag_t& tag = m_tags[tag_index];
  tag.hashes_seen |= std::uint64_t{1} << (hash & 63);
  if (tag.last_attribute == k_none) {
    tag.first_attribute = index;
  } else {
    m_attributes[tag.last_attribute].next = index;
  }
  tag.last_attribute = index;
  ++tag.attribute_count;
  if (tag.attribute_count == k_indexed_attributes) {
    auto& names = m_indexes[tag_index];
    for (std::uint32_t a = tag.first_attribute; a != k_none; a = m_attributes[a].next) {
      text_t const name = m_attributes[a].qualified_name;
      names.emplace(std::string(name.data, name.size), a);
    }
  } else if (tag.attribute_count > k_indexed_attributes) {
    m_indexes[tag_index].emplace(std::string(qualified_name.data, qualified_name.size), index);
  }
}

bool visitor_variant_bag_to_string_t::open_tag(xmlTextWriterPtr writer, std::uint32_t index) {
  xml_tag_t const& tag = m_tags[index];
  m_name.clear();
  if (tag.prefix.size != 0) m_name.append(chars(tag.prefix), tag.prefix.size).push_back(':');
  m_name.append(chars(tag.name), tag.name.size);
  // An empty name is refused by the writer itself; a name made of parts that are each
  // fine can still be none as a whole (":1" split into "" and "1").
  if (!m_name.empty() && !internal::is_xml_name_utf8(m_name.data(), m_name.size())) {
    return refuse("an element name that XML cannot hold", m_name.c_str());
  }
  if (xmlTextWriterStartElement(writer, xml_text(m_name.c_str())) < 0) return false;

  // The declarations and attributes, all escaped already, go to the writer as one run:
  // the first name opens an attribute, and the run holds its value and every further
  // attribute whole, up to the last value, whose quote the writer closes.
  m_scratch.clear();
  m_name.clear();
  auto const add = [&](char const* name, std::size_t name_length, char const* value,
                       std::size_t value_length) {
    if (m_name.empty()) {
      m_name.assign(name, name_length);
    } else {
      m_scratch.append("\" ", 2).append(name, name_length).append("=\"", 2);
    }
    m_scratch.append(value, value_length);
  };
  if (index == 0) {
    internal::namespace_row_t const* rows = internal::namespace_table();
    std::string declaration;
    for (std::size_t row = 0; row < internal::namespace_table_size(); ++row) {
      if ((m_used & (1u << row)) == 0) continue;
      declaration.assign("xmlns:").append(rows[row].prefix, rows[row].prefix_length);
      add(declaration.data(), declaration.size(), rows[row].uri, std::strlen(rows[row].uri));
    }
  }
  for (std::uint32_t a = tag.first_attribute; a != k_none; a = m_attributes[a].next) {
    xml_attribute_t const& attribute = m_attributes[a];
    add(attribute.qualified_name.data, attribute.qualified_name.size, attribute.value.data,
        attribute.value.size);
  }
  if (!m_name.empty()) {
    if (xmlTextWriterStartAttribute(writer, xml_text(m_name.c_str())) < 0) return false;
    if (!m_scratch.empty() && xmlTextWriterWriteRawLen(writer, xml_text(m_scratch.data()),
                                                       static_cast<int>(m_scratch.size())) < 0) {
      return false;
    }
    if (xmlTextWriterEndAttribute(writer) < 0) return false;
  }
  if (tag.text.size != 0 && xmlTextWriterWriteRawLen(writer, xml_text(chars(tag.text)),
                                                     static_cast<int>(tag.text.size)) < 0) {
    return false;
  }
  return true;
}

int visitor_variant_bag_to_string_t::write_document(xmlTextWriterPtr writer, char const* encoding) {
  if (xmlTextWriterSetIndent(writer, 1) < 0 ||
      xmlTextWriterStartDocument(writer, nullptr, encoding, nullptr) < 0) {
    return DAS_E_FAIL;
  }
  if (m_tags[0].hidden) return DAS_E_FAIL;
  std::uint32_t index = 0;
  if (!open_tag(writer, index)) return DAS_E_FAIL;
  for (;;) {
    std::uint32_t const child = first_visible(m_tags[index].first_child);
    if (child != k_none) {
      index = child;
      if (!open_tag(writer, index)) return DAS_E_FAIL;
      continue;
    }
    // Close this tag and the ancestors that have no further children.
    for (;;) {
      if (xmlTextWriterEndElement(writer) < 0) return DAS_E_FAIL;
      if (index == 0) {
        return xmlTextWriterEndDocument(writer) < 0 ? DAS_E_FAIL : DAS_OK;
      }
      std::uint32_t const sibling = first_visible(m_tags[index].next_sibling);
      if (sibling != k_none) {
        index = sibling;
        if (!open_tag(writer, index)) return DAS_E_FAIL;
        break;
      }
      index = m_tags[index].parent;
    }
  }
}

int visitor_variant_bag_to_string_t::print(std::string& out, char const* encoding,
                                           bool cut_declaration) {
  internal::ensure_xml_safety();
  struct sink_t {
    std::string* out;
    bool cut;
    bool failed;
  } sink{&out, cut_declaration, false};
  out.clear();
  // Room that is never written costs no memory, so the estimate is generous.
  out.reserve(m_estimate + m_estimate / 4);
  // libxml2 hands its buffer over in chunks; the declaration stands in the first one, so
  // it is cut while the text is still short.
  auto const write = [](void* context, char const* data, int size) -> int {
    auto* s = static_cast<sink_t*>(context);
    try {
      s->out->append(data, static_cast<std::size_t>(size));
      if (s->cut) {
        std::size_t const end = s->out->find("?>");
        if (end != std::string::npos) {
          s->out->erase(0, end + 2);
          s->cut = false;
        }
      }
      return size;
    } catch (std::exception const&) {
      s->failed = true;
      return -1;
    }
  };
  xmlTextWriterPtr writer = internal::new_callback_writer(write, &sink);
  if (writer == nullptr) return DAS_E_FAIL;
  int result = write_document(writer, encoding);
  xmlFreeTextWriter(writer);  // flushes what is left
  if (sink.failed) result = DAS_E_FAIL;
  return result;
}

int visitor_variant_bag_to_string_t::to_xml_string(KESMET_2_18::strings::ustring8& out) {
  // The declaration is cut, so the document needs no encoding in it: without one the
  // writer prints UTF-8 directly instead of passing it through a converter.
  return print(out, nullptr, true);
}

int visitor_variant_bag_to_string_t::to_xml_file(wchar_t const* file_name, char const* encoding) {
  if (file_name == nullptr) return DAS_E_FAIL;
  std::string bytes;
  if (print(bytes, encoding, false) != DAS_OK) return DAS_E_FAIL;
  internal::save_result_t const saved = internal::atomic_save(
      internal::native_file_name(file_name), bytes, internal::save_options_t{true});
  if (!saved) {
    std::wstring why;
    internal::append_utf8_as_wide(why, saved.why.data(), saved.why.size());
    Q2_LOG(internal::main_logger(), internal::log_error,
           L"cannot write an XML file " << file_name << L": " << why);
    return DAS_E_FAIL;
  }
  return DAS_OK;
}

sptr_t<variant_bag_visitor_to_xml_t> create_visitor_to_xml(char const* root_path) {
  sptr_t<variant_bag_visitor_to_xml_t> visitor(
      new ref_counted_t<visitor_variant_bag_to_string_t, mt_ref_count_impl_t>());
  if (root_path != nullptr) internal::open_root_path(*visitor, root_path);
  return visitor;
}

std::string internal::why_refused(variant_bag_visitor_to_xml_t const& visitor) {
  auto const* writer = dynamic_cast<visitor_variant_bag_to_string_t const*>(&visitor);
  return writer != nullptr ? writer->m_why : std::string();
}

bool internal::open_root_path(variant_bag_visitor_t& visitor, char const* root_path) {
  std::string step;
  for (char const* p = root_path;; ++p) {
    if (*p == '.' || *p == '\0') {
      if (!visitor.on_start_variant_bag(step.c_str())) return false;
      if (*p == '\0') return true;
      step.clear();
    } else {
      step.push_back(*p);
    }
  }
}

}  // namespace quillon2
