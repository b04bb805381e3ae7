// Safe use of libxml2, shared by every part of the library that reads or writes XML.
//
// libxml2 substitutes entities when asked to (XML_PARSE_NOENT), and with that it also
// reads external entities and DTDs from file:// URLs, XML_PARSE_NONET or not. The first
// call of any function here installs, once for the whole process, an external entity
// loader that refuses every such load made by a parse of this library (one running under
// a refusal_watch_t), unless the calling thread has opened a door for content it supplies
// itself (entity_door_t). Loads for any other parse go to the loader that was in place
// before, so that the host program's own documents load as they did. A parse that asked the loader for anything
// it refused counts as failed, so that a document never loads with silent holes.
//
// Parser options always get XML_PARSE_NONET and never XML_PARSE_HUGE, so libxml2's own
// limits on entity expansion and nesting depth stay in force.
//
// Thread safety: everything here may be used from any thread; the door and the refusal
// count are per thread.
#pragma once

#include <cstddef>
#include <memory>
#include <string>

#include <libxml/parser.h>
#include <libxml/tree.h>
#include <libxml/xmlwriter.h>

namespace quillon2::internal {

// Initialises libxml2 and installs the refusing external entity loader. Idempotent and
// cheap after the first call; every function below calls it.
void ensure_xml_safety();

// The options a parse really runs with: `options` plus XML_PARSE_NONET, less XML_PARSE_HUGE.
int safe_parse_options(int options);

// What libxml2 reads back without XML_PARSE_HUGE, less a margin for how it splits long
// texts; the writers of both bag forms refuse anything larger, so that every saved
// document loads. The largest UTF-8 size of one text (an element's text, or an escaped
// attribute value) and of one name, and the deepest nesting of elements.
constexpr std::size_t k_max_text_bytes = 9900000;
constexpr std::size_t k_max_name_bytes = 50000;
constexpr std::size_t k_max_element_depth = 257;

struct xml_doc_deleter_t {
  void operator()(xmlDoc* doc) const { xmlFreeDoc(doc); }
};
using xml_doc_ptr_t = std::unique_ptr<xmlDoc, xml_doc_deleter_t>;

// Why the last safe parse on this thread failed, for log messages; empty after a success.
std::string const& last_xml_parse_error();

// Parses a document held in memory. `encoding` may be null (detect from the document).
// Null when the text is not well formed, exceeds libxml2's limits, or needed an external
// load that was refused. libxml2 reports nothing itself on standard error: the reason is
// kept in last_xml_parse_error() for the caller's log.
xml_doc_ptr_t safe_read_memory(char const* data, std::size_t size, char const* encoding,
                               int options);

// Parses a document held in memory as safe_read_memory does, with the callbacks of
// `handler` instead of libxml2's tree builder: nothing is built. The callbacks get the
// parser context, whose `_private` is `context`. False, with the reason in
// last_xml_parse_error(), when the text is not well formed, exceeds libxml2's limits or
// needed an external load that was refused; a parse that a callback stopped may count
// as either.
bool safe_sax_read_memory(xmlSAXHandler const& handler, void* context, char const* data,
                          std::size_t size, char const* encoding, int options);

// A text writer that hands everything it prints to `write` with `context` (a close
// callback that does nothing goes with it). Null when libxml2 cannot make one.
// xmlFreeTextWriter flushes what is left and frees the output too.
xmlTextWriterPtr new_callback_writer(xmlOutputWriteCallback write, void* context);

// Marks a parse of this library on this thread and counts the external loads refused
// while it lives. Every parse runs under one (safe_read_memory makes its own); a SAX-driven
// parse wraps itself in one and fails when refused() holds.
class refusal_watch_t {
 public:
  refusal_watch_t();
  ~refusal_watch_t();
  refusal_watch_t(refusal_watch_t const&) = delete;
  refusal_watch_t& operator=(refusal_watch_t const&) = delete;
  bool refused() const;

 private:
  unsigned long m_start;
};

// A door in the loader for content that the caller supplies itself: while an entity_door_t
// lives, the loader first asks `open` on this thread. A null result falls back to the
// refusal. Doors nest; the innermost one is asked first and only it.
class entity_door_t {
 public:
  using open_fn_t = xmlParserInputPtr (*)(void* context, char const* url, char const* id,
                                          xmlParserCtxtPtr parser);
  entity_door_t(open_fn_t open, void* context);
  entity_door_t(entity_door_t const&) = delete;
  entity_door_t& operator=(entity_door_t const&) = delete;
  ~entity_door_t();

 private:
  friend struct door_access_t;
  open_fn_t m_open;
  void* m_context;
  entity_door_t* m_outer;
};

// XML 1.0 character classes. A document can hold only characters for which is_xml_char
// is true; libxml2's writer copies any other character and so writes a document that no
// parser reads back.
inline bool is_xml_char(char32_t c) {
  if (c < 0x20) return c == 0x9 || c == 0xA || c == 0xD;
  if (c <= 0xD7FF) return true;
  if (c < 0xE000) return false;  // surrogates
  if (c <= 0xFFFD) return true;
  return c >= 0x10000 && c <= 0x10FFFF;
}

bool is_xml_name_start_char(char32_t c);
bool is_xml_name_char(char32_t c);

// Whether a UTF-8 name is "xmlns" or starts with "xmlns:": such a name declares a namespace
// and can't name an element or a value.
inline bool is_namespace_declaration_name(char const* name, std::size_t length) {
  return length >= 5 && name[0] == 'x' && name[1] == 'm' && name[2] == 'l' && name[3] == 'n' &&
         name[4] == 's' && (length == 5 || name[5] == ':');
}

// Whether `name` is a Name of XML 1.0, so that it can stand as an element or attribute name.
bool is_xml_name(wchar_t const* name, std::size_t length);

// Appends `text` in UTF-8 to `out`. False, with `out` partly extended, when the text holds
// a character that XML cannot hold.
bool append_xml_text_utf8(std::string& out, wchar_t const* text, std::size_t length);

// The same for a terminated text, escaped as libxml2's text writer escapes element
// content ("&", "<", ">", the quotation mark and carriage return become references), so
// that it can go to the writer as raw text. `utf8_bytes` receives the length of the text
// in UTF-8 before escaping, which is what a parser counts against its limits.
bool append_escaped_xml_text(std::string& out, wchar_t const* text, std::size_t& utf8_bytes);

// Appends a terminated name in UTF-8 to `out` if it is a Name of XML 1.0; false otherwise.
bool append_xml_name_utf8(std::string& out, wchar_t const* name);

// Appends `text` in UTF-8 to `out`; a character that is no Unicode scalar value gives
// U+FFFD.
void append_wide_as_utf8(std::string& out, wchar_t const* text, std::size_t length);

// Appends UTF-8 text (as libxml2 hands it out) to a wide string; malformed sequences give
// U+FFFD.
void append_utf8_as_wide(std::wstring& out, char const* text, std::size_t length);

}  // namespace quillon2::internal
