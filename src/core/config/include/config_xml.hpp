// What the XML store and the two document functions share: reading a configuration file
// and turning a document into the bytes of a file.
#pragma once

#include <string>

#include <quillon2/core/config/advanced_xml_config.hpp>

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
