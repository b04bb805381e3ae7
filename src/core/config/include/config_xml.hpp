// What the XML store and the two document functions share: reading a configuration file
// and turning a document into the bytes of a file.
#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

#include <quillon2/core/config/advanced_xml_config.hpp>

#include "core/config/include/config_format.hpp"
#include "core/das/include/xml_safety.hpp"

namespace quillon2::internal {

// The parser options of every configuration read: errors and warnings silenced, compact
// text nodes, entities replaced by the parser (under libxml2's expansion limits, so that
// reading an element's text never expands anything itself).
constexpr int k_config_parse_options =
    XML_PARSE_NOERROR | XML_PARSE_NOWARNING | XML_PARSE_COMPACT | XML_PARSE_NOENT;

// Reads the whole regular file under a shared lock (waiting a little while another
// holder writes it). False if it is missing, is no regular file, stays locked or fails
// to read. Implemented in posix/.
bool read_config_file(std::string const& native_name, std::string& content);

// Parses a configuration file with the library's XML safety rules; null on failure.
xml_doc_ptr_t open_config_document(std::string const& native_name);

// The document as indented UTF-8 text. False when it holds what a parser would not read
// back: characters XML cannot hold, texts or names beyond libxml2's limits, nesting
// deeper than it reads.
bool serialize_config_document(xmlDoc* document, std::string& bytes);

// The tokens of a key as UTF-8 element names: split at ".", empty tokens dropped. False
// when a token cannot be an element name, or when the elements would nest deeper than a
// parser reads back (the root and one level of a handler's own children come on top).
bool key_tokens(std::wstring const& key, std::vector<std::string>& tokens);

// What a store's handler writes, for the handlers that the store itself makes: their
// writing is known, so that the store's document can be printed without a libxml2 tree.
// `client` for any other handler, `none` where no handler serves a value.
enum class value_kind_t {
  none,
  client,
  boolean,
  int_number,
  long_number,
  unsigned_long_number,
  unsigned_short_number,
  unsigned_int_number,
  float_number,
  double_number,
  string,
  string_vector,
  string_list,
  int_vector,
  string_map,
  path,
};

value_kind_t value_kind_of(handler_base_t& handler);

// One value of a store, in key order, as the save found its handler.
struct store_entry_t {
  std::wstring const* key;
  boost::any const* value;
  handler_base_t* handler;  // null when none serves the value
  value_kind_t kind;
  std::string const* type_word;  // the handler's type name in UTF-8; null without a handler
};

// Prints the document of a store whose handlers are all the store's own (no entry of kind
// `client`), the same bytes as the libxml2 tree that a save builds from it. Calls
// `left_out`, in order, with each entry that the file leaves out. Refused when the document
// would not read back.
print_outcome_t print_store(std::vector<store_entry_t> const& entries, std::string& out,
                            std::function<void(std::size_t)> const& left_out);

}  // namespace quillon2::internal

namespace quillon2 {

// Selects a handler's parent for the length of one call, then puts back the one it had
// (a handler may hand a part of its value to a handler of its own type).
class handler_base_t::parent_scope_t {
 public:
  parent_scope_t(handler_base_t& handler, advanced_xml_config_t const* parent)
      : m_handler(handler), m_previous(handler.m_parent) {
    m_handler.set_parent(parent);
  }
  ~parent_scope_t() { m_handler.set_parent(m_previous); }
  parent_scope_t(parent_scope_t const&) = delete;
  parent_scope_t& operator=(parent_scope_t const&) = delete;

 private:
  handler_base_t& m_handler;
  advanced_xml_config_t const* m_previous;
};

}  // namespace quillon2
