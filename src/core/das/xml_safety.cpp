// The process-wide refusing entity loader and the safe parse entry points of libxml2.
#include "core/das/include/xml_safety.hpp"

#include <climits>
#include <cstdio>
#include <cwchar>

#include <libxml/parserInternals.h>
#include <libxml/xmlerror.h>

#include "core/das/include/utf8_codec.hpp"
#include "core/das/include/xml_escape.hpp"

namespace quillon2::internal {

struct door_access_t {
  static xmlParserInputPtr open(entity_door_t const& door, char const* url, char const* id,
                                xmlParserCtxtPtr parser) {
    return door.m_open ? door.m_open(door.m_context, url, id, parser) : nullptr;
  }
};

namespace {

thread_local entity_door_t* t_innermost_door = nullptr;
thread_local unsigned long t_refusals = 0;
thread_local std::string t_last_error;

// How many parses of this library run on this thread; the loader refuses only for them.
thread_local unsigned t_our_parses = 0;
// The loader that was in place before ours: documents of the host program go to it.
xmlExternalEntityLoader g_previous_loader = nullptr;

xmlParserInputPtr refusing_entity_loader(char const* url, char const* id, xmlParserCtxtPtr parser) {
  if (t_our_parses == 0 && t_innermost_door == nullptr) {
    return g_previous_loader != nullptr ? g_previous_loader(url, id, parser) : nullptr;
  }
  if (t_innermost_door != nullptr) {
    if (xmlParserInputPtr input = door_access_t::open(*t_innermost_door, url, id, parser)) {
      return input;
    }
  }
  ++t_refusals;
  return nullptr;
}

void describe_failure(xmlParserCtxtPtr parser) {
  xmlErrorPtr error = parser != nullptr ? xmlCtxtGetLastError(parser) : nullptr;
  if (error == nullptr || error->message == nullptr) {
    t_last_error = "not well formed";
    return;
  }
  std::string message = error->message;
  while (!message.empty() && (message.back() == '\n' || message.back() == ' ')) {
    message.pop_back();
  }
  t_last_error = "line " + std::to_string(error->line) + ": " + message;
}

}  // namespace

void ensure_xml_safety() {
  static bool const installed = [] {
    xmlCheckVersion(20910);
    xmlInitParser();
    g_previous_loader = xmlGetExternalEntityLoader();
    xmlSetExternalEntityLoader(refusing_entity_loader);
    return true;
  }();
  (void)installed;
}

int safe_parse_options(int options) { return (options | XML_PARSE_NONET) & ~XML_PARSE_HUGE; }

std::string const& last_xml_parse_error() { return t_last_error; }

xmlTextWriterPtr new_callback_writer(xmlOutputWriteCallback write, void* context) {
  auto const close = [](void*) -> int { return 0; };
  xmlOutputBufferPtr output = xmlOutputBufferCreateIO(write, close, context, nullptr);
  if (output == nullptr) return nullptr;
  xmlTextWriterPtr writer = xmlNewTextWriter(output);  // owns `output` from here on
  if (writer == nullptr) xmlOutputBufferClose(output);
  return writer;
}

namespace {

// Parses a document held in memory with a fresh parser context, which `handler` (when
// given) sets up to read with its own callbacks. False, with the reason in t_last_error,
// when the text is not well formed, exceeds libxml2's limits, needed a refused load or
// (read into a tree) left no tree; `doc` gets the tree then only.
bool read_memory(char const* data, std::size_t size, char const* encoding, int options,
                 xmlSAXHandler const* handler, void* context, xml_doc_ptr_t& doc) {
  ensure_xml_safety();
  t_last_error.clear();
  if (size > static_cast<std::size_t>(INT_MAX)) {
    t_last_error = "document too large";
    return false;
  }
  xmlParserCtxtPtr parser = xmlNewParserCtxt();
  if (parser == nullptr) {
    t_last_error = "out of memory";
    return false;
  }
  if (handler != nullptr) {
    *parser->sax = *handler;
    parser->_private = context;
  }
  refusal_watch_t watch;
  // libxml2 prints nothing of its own: the reason of a failure is kept for the caller's log.
  doc.reset(xmlCtxtReadMemory(
      parser, data != nullptr ? data : "", static_cast<int>(size), nullptr, encoding,
      safe_parse_options(options) | XML_PARSE_NOERROR | XML_PARSE_NOWARNING));
  bool parsed = parser->wellFormed != 0 && (handler != nullptr || doc);
  if (!parsed) {
    describe_failure(parser);
  } else if (watch.refused()) {
    parsed = false;
    t_last_error = "the document refers to external content";
  }
  if (!parsed) doc.reset();
  xmlFreeParserCtxt(parser);
  return parsed;
}

}  // namespace

xml_doc_ptr_t safe_read_memory(char const* data, std::size_t size, char const* encoding,
                               int options) {
  xml_doc_ptr_t doc;
  read_memory(data, size, encoding, options, nullptr, nullptr, doc);
  return doc;
}

bool safe_sax_read_memory(xmlSAXHandler const& handler, void* context, char const* data,
                          std::size_t size, char const* encoding, int options) {
  // The same call as a read into a tree, so that encodings and options act the same.
  xml_doc_ptr_t doc;
  return read_memory(data, size, encoding, options, &handler, context, doc);
}

refusal_watch_t::refusal_watch_t() : m_start(t_refusals) {
  ensure_xml_safety();
  ++t_our_parses;
}

refusal_watch_t::~refusal_watch_t() { --t_our_parses; }

bool refusal_watch_t::refused() const { return t_refusals != m_start; }

entity_door_t::entity_door_t(open_fn_t open, void* context)
    : m_open(open), m_context(context), m_outer(t_innermost_door) {
  ensure_xml_safety();
  t_innermost_door = this;
}

entity_door_t::~entity_door_t() { t_innermost_door = m_outer; }

bool is_xml_name_start_char(char32_t c) {
  if (c < 0x80) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_' || c == ':';
  }
  return (c >= 0xC0 && c <= 0xD6) || (c >= 0xD8 && c <= 0xF6) || (c >= 0xF8 && c <= 0x2FF) ||
         (c >= 0x370 && c <= 0x37D) || (c >= 0x37F && c <= 0x1FFF) ||
         (c >= 0x200C && c <= 0x200D) || (c >= 0x2070 && c <= 0x218F) ||
         (c >= 0x2C00 && c <= 0x2FEF) || (c >= 0x3001 && c <= 0xD7FF) ||
         (c >= 0xF900 && c <= 0xFDCF) || (c >= 0xFDF0 && c <= 0xFFFD) ||
         (c >= 0x10000 && c <= 0xEFFFF);
}

bool is_xml_name_char(char32_t c) {
  if (c < 0x80) {
    return is_xml_name_start_char(c) || c == '-' || c == '.' || (c >= '0' && c <= '9');
  }
  return is_xml_name_start_char(c) || c == 0xB7 || (c >= 0x300 && c <= 0x36F) ||
         (c >= 0x203F && c <= 0x2040);
}

bool is_xml_name(wchar_t const* name, std::size_t length) {
  if (name == nullptr || length == 0) return false;
  if (!is_xml_name_start_char(static_cast<char32_t>(name[0]))) return false;
  for (std::size_t i = 1; i < length; ++i) {
    if (!is_xml_name_char(static_cast<char32_t>(name[i]))) return false;
  }
  return true;
}

namespace {

inline void put_utf8(std::string& out, char32_t c) {
  if (c < 0x80) {
    out.push_back(static_cast<char>(c));
    return;
  }
  char bytes[4];
  out.append(bytes, encode_utf8(c, bytes));
}

}  // namespace

bool append_xml_text_utf8(std::string& out, wchar_t const* text, std::size_t length) {
  out.reserve(out.size() + length);
  for (std::size_t i = 0; i < length; ++i) {
    auto const c = static_cast<char32_t>(text[i]);
    if (!is_xml_char(c)) return false;
    put_utf8(out, c);
  }
  return true;
}

bool append_escaped_xml_text(std::string& out, wchar_t const* text, std::size_t& utf8_bytes) {
  utf8_bytes = 0;
  if (text == nullptr) return true;
  return append_wide_checked_escaped<false>(out, text, std::wcslen(text), k_text_escapes,
                                            utf8_bytes);
}

bool append_xml_name_utf8(std::string& out, wchar_t const* name) {
  if (name == nullptr || !is_xml_name_start_char(static_cast<char32_t>(*name))) return false;
  for (; *name != L'\0'; ++name) {
    auto const c = static_cast<char32_t>(*name);
    if (!is_xml_name_char(c)) return false;
    put_utf8(out, c);
  }
  return true;
}

void append_wide_as_utf8(std::string& out, wchar_t const* text, std::size_t length) {
  auto const scalar = [](wchar_t w) { return scalar_or_replacement(static_cast<char32_t>(w)); };
  std::size_t bytes = length;
  for (std::size_t i = 0; i < length; ++i) {
    auto const c = static_cast<char32_t>(text[i]);
    if (c >= 0x80) {
      char32_t const s = scalar(text[i]);
      bytes += s < 0x800 ? 1 : s < 0x10000 ? 2 : 3;
    }
  }
  std::size_t const start = out.size();
  out.resize(start + bytes);
  char* p = out.data() + start;
  std::size_t i = 0;
  while (i < length) {
    // Runs of ASCII go over one unit to one byte.
    while (i < length && static_cast<char32_t>(text[i]) < 0x80) {
      *p++ = static_cast<char>(text[i++]);
    }
    if (i == length) break;
    p = encode_utf8(scalar(text[i++]), p);
  }
}

void append_utf8_as_wide(std::wstring& out, char const* text, std::size_t length) {
  out.reserve(out.size() + length);
  decode_utf8(text, length, [&out](char32_t c) { out.push_back(static_cast<wchar_t>(c)); });
}

}  // namespace quillon2::internal
