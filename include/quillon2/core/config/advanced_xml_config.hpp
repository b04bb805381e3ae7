// A typed key-value store kept in memory and saved to, and loaded from, one XML file.
//
//   quillon2::advanced_xml_config_t config;
//   config.set_value(L"gui.panel.width", boost::any(100));
//   config.save(quillon2::path_t(L"/home/u/.config/tool/gui.xml"));
//   // <root><gui><panel><width type="int">100</width></panel></gui></root>
//
// A key is a dotted name, one element level a dot, always stored in lower case. A value is
// a boost::any; a list of handlers (one a value type, tried from the head) turns values into
// XML and back, and a client may append handlers of its own. Every set_value is announced
// through m_on_change with the key, the old value and the new one.
//
// Key tokens must be XML names without a colon (letters, digits, "_", "-", "." splits):
// a key holding another token is reported to on_save_value_failed and left out of the file.
// Values whose text XML cannot hold (control characters) make the whole save fail, and
// the file on disk stays as it was: saves replace the file atomically.
//
// Thread safety: none inside a store; the signal alone has its own lock. Copies share
// their handler objects, and load and save set the handlers' parent, so two copies must
// not load or save at the same time either.
#pragma once

#include <charconv>
#include <list>
#include <map>
#include <sstream>
#include <string>
#include <type_traits>
#include <typeinfo>
#include <vector>

#include <boost/any.hpp>
#include <boost/lexical_cast.hpp>

#include <quillon2/core/file_system/path.hpp>
#include <quillon2/core/functor/signal.hpp>
#include <quillon2/core/smart_pointer.hpp>
#include <quillon2/export.hpp>

// libxml2's node and document, declared as libxml2 itself declares them, so that clients
// need not include libxml2 unless they write handlers that call it.
struct _xmlNode;
struct _xmlDoc;
typedef struct _xmlNode xmlNode;
typedef struct _xmlDoc xmlDoc;

namespace quillon2 {

class advanced_xml_config_t;

// The conversion between one value type and one XML element. Derive from it (or from
// the generic handlers below) to store a type of your own, then add_handler an instance.
class QUILLON2_API handler_base_t {
 public:
  handler_base_t();
  handler_base_t(handler_base_t const& other);
  handler_base_t& operator=(handler_base_t const& other);
  virtual ~handler_base_t();

  virtual boost::any read_value(xmlNode* node) = 0;
  // Throws boost::bad_any_cast when `value` holds another type than get_type_info().
  virtual void write_value(boost::any const& value, xmlNode* node) = 0;
  // The word written in the element's "type" attribute.
  virtual std::wstring get_type_name() = 0;
  virtual std::type_info const& get_type_info() = 0;

  // The store that runs this handler; null outside a read or a write.
  void set_parent(advanced_xml_config_t const* parent);

 protected:
  // The text of the node's own text children, entities replaced; empty if none.
  std::wstring get_node_content(xmlNode* node);
  // Appends text to the node's content; the writer escapes "&", "<" and the like.
  void set_node_content(xmlNode* node, std::wstring const& text);
  // A new child element `name` holding `text` (escaped when written).
  void add_property(xmlNode* node, std::wstring const& name, std::wstring const& text);
  // A new, empty child element `name`; null if libxml2 cannot make it.
  xmlNode* add_element(xmlNode* node, std::wstring const& name);
  // The nodes that the XPath expression selects with `node` as context node. A plain
  // element name is answered by a walk of the children, without XPath.
  std::vector<xmlNode*> find_nodes(xmlNode* node, std::wstring const& xpath);
  std::wstring get_property(xmlNode* node, std::wstring const& xpath);
  void set_property(xmlNode* node, std::wstring const& xpath, std::wstring const& text);
  boost::any get_any_property(xmlNode* node, std::wstring const& xpath,
                              std::wstring const& type_name);
  bool set_any_property(xmlNode* node, std::wstring const& xpath, boost::any const& value);
  // Empty when the attribute is absent.
  std::wstring get_attribute(xmlNode* node, std::wstring const& name);
  void set_attribute(xmlNode* node, std::wstring const& name, std::wstring const& value);

  advanced_xml_config_t const* m_parent;

 private:
  friend class advanced_xml_config_t;
  class parent_scope_t;
};

namespace _internal {

// The text a wide stream with default settings gives for `value` (numbers without
// grouping, 6 significant digits for floating point, bool as 1 or 0), without building a
// stream for the common types.
template <class T>
std::wstring to_config_text(T const& value) {
  if constexpr (std::is_same_v<T, std::wstring>) {
    return value;
  } else if constexpr (std::is_same_v<T, bool>) {
    return value ? L"1" : L"0";
  } else if constexpr (std::is_integral_v<T>) {
    return std::to_wstring(value);
  } else if constexpr (std::is_floating_point_v<T>) {
    char buffer[64];
    auto const result =
        std::to_chars(buffer, buffer + sizeof buffer, value, std::chars_format::general, 6);
    return std::wstring(buffer, result.ptr);
  } else {
    std::wostringstream stream;
    stream << value;
    return stream.str();
  }
}

// Number and text values: the element's text, read with boost::lexical_cast (so " 12" and
// "12x" are no numbers and read as an empty value), written by a wide stream with its
// default settings (6 significant digits for float and double).
template <class T>
class generic_handler_t : public handler_base_t {
 public:
  explicit generic_handler_t(std::wstring const& type_name) : m_type_name(type_name) {}
  boost::any read_value(xmlNode* node) override {
    try {
      return boost::any(boost::lexical_cast<T>(get_node_content(node)));
    } catch (boost::bad_lexical_cast const&) {
      return boost::any();
    }
  }
  void write_value(boost::any const& value, xmlNode* node) override {
    set_node_content(node, to_config_text(boost::any_cast<T const&>(value)));
  }
  std::wstring get_type_name() override { return m_type_name; }
  std::type_info const& get_type_info() override { return typeid(T); }

 protected:
  std::wstring m_type_name;
};

// A sequence: one child "item" per entry, the entry as its text. An item that does not
// convert reads as E's default value.
template <class C, class E>
class generic_container_handler_t : public handler_base_t {
 public:
  explicit generic_container_handler_t(std::wstring const& type_name) : m_type_name(type_name) {}
  boost::any read_value(xmlNode* node) override {
    C container;
    for (xmlNode* item : find_nodes(node, L"item")) {
      E element = E();
      try {
        element = boost::lexical_cast<E>(get_node_content(item));
      } catch (boost::bad_lexical_cast const&) {
      }
      container.insert(container.end(), element);
    }
    return boost::any(container);
  }
  void write_value(boost::any const& value, xmlNode* node) override {
    for (E const& element : boost::any_cast<C const&>(value)) {
      add_property(node, L"item", to_config_text(element));
    }
  }
  std::wstring get_type_name() override { return m_type_name; }
  std::type_info const& get_type_info() override { return typeid(C); }

 protected:
  std::wstring m_type_name;
};

// A map: one child "item" per pair, with the attributes "key" and "value". The last of two
// equal keys wins; a missing attribute reads as the empty text.
template <class M>
class generic_map_handler_t : public handler_base_t {
 public:
  explicit generic_map_handler_t(std::wstring const& type_name) : m_type_name(type_name) {}
  boost::any read_value(xmlNode* node) override {
    M map;
    for (xmlNode* item : find_nodes(node, L"item")) {
      typename M::key_type key = typename M::key_type();
      typename M::mapped_type mapped = typename M::mapped_type();
      try {
        key = boost::lexical_cast<typename M::key_type>(get_attribute(item, L"key"));
      } catch (boost::bad_lexical_cast const&) {
      }
      try {
        mapped = boost::lexical_cast<typename M::mapped_type>(get_attribute(item, L"value"));
      } catch (boost::bad_lexical_cast const&) {
      }
      map[key] = mapped;
    }
    return boost::any(map);
  }
  void write_value(boost::any const& value, xmlNode* node) override {
    for (auto const& pair : boost::any_cast<M const&>(value)) {
      xmlNode* item = add_element(node, L"item");
      if (item == nullptr) continue;
      set_attribute(item, L"key", to_config_text(pair.first));
      set_attribute(item, L"value", to_config_text(pair.second));
    }
  }
  std::wstring get_type_name() override { return m_type_name; }
  std::type_info const& get_type_info() override { return typeid(M); }

 protected:
  std::wstring m_type_name;
};

// A path_t as the element's text, in its printed form (as_string(false): backslash
// separators, and the long prefix on a path of 248 characters or more). Text that is no
// valid path reads as the empty path.
class QUILLON2_API path_t_handler_t : public handler_base_t {
 public:
  boost::any read_value(xmlNode* node) override;
  void write_value(boost::any const& value, xmlNode* node) override;
  std::wstring get_type_name() override;
  std::type_info const& get_type_info() override;
};

}  // namespace _internal

class QUILLON2_API advanced_xml_config_t {
 public:
  using change_signal_t = _internal::signal_t<std::wstring const&, boost::any const&,
                                              boost::any const&, _internal::dummy_t,
                                              _internal::dummy_t, _internal::dummy_t>;

  // An empty store with the default handlers: bool, int, long, unsigned long, unsigned
  // short, unsigned int, float, double, string, string_vector, string_list, int_vector,
  // string_string_map and path_t.
  advanced_xml_config_t();
  // Values are cloned, handler objects shared, connections taken as signals copy them.
  advanced_xml_config_t(advanced_xml_config_t const& other);
  advanced_xml_config_t& operator=(advanced_xml_config_t const& other);
  virtual ~advanced_xml_config_t();

  // Appended behind the handlers already there, so it never displaces one of the same
  // word or type.
  void add_handler(smart_pointer_t<handler_base_t> handler);

  // Replaces every value by those of the file. False, with the store unchanged, if the
  // file is missing, is no regular file, is locked for writing, or is not well-formed XML.
  bool load(path_t const& path);
  // Replaces the file atomically; false, with the old file kept, on any failure.
  bool save(path_t const& path);

  // Stores a clone of `value` under the lower-case key and emits m_on_change, also when
  // the value did not change. A const char* (UTF-8) or const wchar_t* value is stored as
  // a std::wstring copy of the text.
  void set_value(std::wstring const& name, boost::any const& value);
  bool has_value(std::wstring const& name) const;
  boost::any get_value(std::wstring const& name, boost::any const& default_value) const;
  // Clears `names` and appends every key in the store's order.
  void get_names(std::vector<std::wstring>& names) const;

  // Emitted with the key, the old value (empty for a new key) and the new value, on the
  // thread that called set_value or load, after the entry was changed.
  change_signal_t m_on_change;

 protected:
  // A file's element named a type that no handler has; the value is left out.
  virtual void on_load_value_failed(std::wstring const& key, std::wstring const& type_name);
  // A value whose type no handler serves, or a key that cannot be an element path.
  virtual void on_save_value_failed(std::wstring const& key, std::type_info const& type);

 private:
  friend class handler_base_t;
  struct saver_t;

  void parse_node(xmlNode* node);

  std::map<std::wstring, boost::any> m_values;
  std::list<smart_pointer_t<handler_base_t>> m_handlers;
};

// Opens and parses a file as advanced_xml_config_t::load does; null on failure. The caller
// frees the document with xmlFreeDoc.
QUILLON2_API xmlDoc* open_xml_document(path_t const& path);
// Writes the document indented in UTF-8, replacing the file atomically. True if the
// document was written; the document stays the caller's.
QUILLON2_API bool save_xml_document(path_t const& path, xmlDoc* document);

}  // namespace quillon2
