// The SAX2 reader of the attribute form: libxml2's parser events become visitor events.
//
// Every element is one frame on a stack that is reused from element to element. A frame
// notes whether the element lies on the filter path; elements shallower than the path, or
// off it, reach the visitor not at all, and the element that the path's last step
// selects gives its attributes and content but no start or end of its own.
//
// Safety: the handler resolves no entity but the five predefined ones, so a document can
// declare entities but never expand them; external subsets are never loaded (the refusing
// loader stands behind any attempt); libxml2's depth and size limits stay in force. An
// exception of the visitor stops the parser and fails the read, so it never unwinds
// through libxml2.
#include <algorithm>
#include <array>
#include <climits>
#include <cstdint>
#include <cstring>
#include <exception>
#include <new>
#include <string>
#include <vector>

#include <libxml/entities.h>
#include <libxml/parser.h>
#include <libxml/parserInternals.h>
#include <libxml/xmlerror.h>

#include <quillon2/das/type_factory.hpp>
#include <quillon2/das/variant.hpp>
#include <quillon2/das/variant_bag_visitor.hpp>

#include "core/das/include/attribute_form.hpp"
#include "core/das/include/bag_builder.hpp"
#include "core/das/include/das_assert.hpp"
#include "core/das/include/sax_to_visitor.hpp"
#include "core/das/include/variant_text.hpp"
#include "core/das/include/xml_safety.hpp"

namespace quillon2 {

namespace {

// Substitute entities, no error output, compact nodes.
char const k_no_prefix[] = "";
constexpr int k_read_options =
    XML_PARSE_NOENT | XML_PARSE_NOERROR | XML_PARSE_NOWARNING | XML_PARSE_COMPACT;

char const* text_of(xmlChar const* text) { return reinterpret_cast<char const*>(text); }

bool is_blank(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; }

// One character of UTF-8 text (a lead byte and its continuation bytes).
std::size_t character_length(char const* text, std::size_t length) {
  std::size_t n = 1;
  while (n < length && (static_cast<unsigned char>(text[n]) & 0xC0) == 0x80) ++n;
  return n;
}

// Whether the whole of `name` matches the wildcard `pattern`: "?" is one character, "*"
// any run, "/" and "\" the path separator, everything else itself. Greedy with one
// backtracking point, which is enough for patterns with "*".
bool wildcard_match(std::string const& pattern, char const* name) {
  std::size_t const name_length = std::strlen(name);
  std::size_t p = 0;
  std::size_t n = 0;
  std::size_t star = std::string::npos;
  std::size_t star_n = 0;
  while (n < name_length) {
    if (p < pattern.size() && pattern[p] == '*') {
      star = ++p;
      star_n = n;
      continue;
    }
    if (p < pattern.size()) {
      if (pattern[p] == '?') {
        n += character_length(name + n, name_length - n);
        ++p;
        continue;
      }
      char const expected = pattern[p] == '\\' ? '/' : pattern[p];
      if (expected == name[n]) {
        ++p;
        ++n;
        continue;
      }
    }
    if (star == std::string::npos) return false;
    star_n += character_length(name + star_n, name_length - star_n);
    n = star_n;
    p = star;
  }
  while (p < pattern.size() && pattern[p] == '*') ++p;
  return p == pattern.size();
}

class sax_to_visitor_t {
 public:
  sax_to_visitor_t(variant_bag_visitor_t* visitor, char const* path)
      : m_visitor(visitor), m_builder(dynamic_cast<variant_bag_builder_t*>(visitor)) {
    std::memset(&m_sax, 0, sizeof m_sax);
    m_sax.initialized = XML_SAX2_MAGIC;
    m_sax.startElementNs = &start_element;
    m_sax.endElementNs = &end_element;
    m_sax.characters = &characters;
    m_sax.getEntity = &get_entity;
    if (path != nullptr && *path != '\0') {
      std::string step;
      for (char const* p = path;; ++p) {
        if (*p == '.' || *p == '\0') {
          m_path.push_back(step);
          if (*p == '\0') break;
          step.clear();
        } else {
          step.push_back(*p);
        }
      }
    }
  }

  int parse(char const* data, std::size_t size, bool is_utf8, std::string& why);

 private:
  struct frame_t {
    char const* prefix = nullptr;  // the parser's dictionary keeps names for the whole parse
    char const* name = nullptr;
    internal::text_type_t kind = internal::text_type_t::wide_string;
    bool is_pointer = false;
    bool matched = true;
    std::string text;
  };
  struct attribute_t {
    char const* prefix;  // k_no_prefix when there is none
    char const* name;
    char const* value;
    std::size_t length;
    internal::text_type_t kind;
    bool skipped;  // "xmlns" and "pointer" attributes give no value
  };
  // What a prefix means, found once for each of the parser's dictionary strings.
  struct prefix_info_t {
    char const* prefix = nullptr;
    internal::text_type_t kind = internal::text_type_t::wide_string;
    bool is_pointer = false;
    bool skipped = false;
  };

  static void start_element(void* context, xmlChar const* localname, xmlChar const* prefix,
                            xmlChar const* uri, int nb_namespaces, xmlChar const** namespaces,
                            int nb_attributes, int nb_defaulted, xmlChar const** attributes);
  static void end_element(void* context, xmlChar const* localname, xmlChar const* prefix,
                          xmlChar const* uri);
  static void characters(void* context, xmlChar const* text, int length);
  static xmlEntityPtr get_entity(void*, xmlChar const* name) {
    return xmlGetPredefinedEntity(name);
  }

  prefix_info_t info_of(char const* prefix) {
    for (prefix_info_t const& info : m_prefixes) {
      if (info.prefix == prefix) return info;
    }
    prefix_info_t info;
    info.prefix = prefix;
    std::size_t const length = std::strlen(prefix);
    info.kind = internal::prefix_kind(prefix, length);
    info.is_pointer = std::strcmp(prefix, "pointer") == 0;
    info.skipped = info.is_pointer || std::strcmp(prefix, "xmlns") == 0;
    // Documents use a handful of prefixes; a flood of them only makes this a cache.
    if (m_prefixes.size() >= 64) m_prefixes.clear();
    m_prefixes.push_back(info);
    return info;
  }

  // A name of the parser's dictionary in wide text, converted once in a parse: the
  // dictionary keeps each name at one address until the parse ends. One slot an address,
  // so that a document with many names only converts some of them again.
  struct wide_name_t {
    char const* key = nullptr;
    std::wstring text;
    std::uint32_t hash = 0;
  };
  wide_name_t const& wide_name_of(char const* dictionary_name) {
    // The dictionary packs its names byte by byte: the address is mixed, not shifted.
    std::uint64_t const address = reinterpret_cast<std::uintptr_t>(dictionary_name);
    wide_name_t& slot = m_wide_names[(address * 0x9E3779B97F4A7C15ull) >> 58];
    if (slot.key != dictionary_name) {
      slot.key = nullptr;  // stays empty if the conversion throws
      slot.hash = variant_bag_builder_t::widen_name(slot.text, dictionary_name);
      slot.key = dictionary_name;
    }
    return slot;
  }

  // Hands a value that is not needed afterwards to the visitor.
  void deliver(char const* name, variant_t& value) {
    if (m_builder != nullptr) {
      m_builder->take_variant(name, value);
    } else {
      m_visitor->on_variant(name, value);
    }
  }
  // The same for a name of the parser's dictionary.
  void deliver_dictionary_name(char const* name, variant_t& value) {
    if (m_builder == nullptr) {
      m_visitor->on_variant(name, value);
      return;
    }
    wide_name_t const& wide = wide_name_of(name);
    m_builder->take_variant(wide.text.c_str(), wide.text.size(), wide.hash, value);
  }

  bool is_active() const {
    if (m_depth < m_path.size()) return false;
    return m_depth == 0 || m_frames[m_depth - 1].matched;
  }
  void on_start(char const* localname, char const* prefix, int count, xmlChar const** attributes);
  void on_end();
  char const* qualified(char const* prefix, char const* name) {
    m_name.assign(prefix).push_back(':');
    m_name.append(name);
    return m_name.c_str();
  }
  // Stops the parse at a name that declares a namespace: no save could write it back.
  void refuse_name(char const* name) {
    fail(std::string("a name that no bag can hold: ").append(name).c_str());
  }
  // Stops the parse after an exception of the visitor or of memory.
  void fail(char const* why) {
    if (!m_failed) m_why = why;
    m_failed = true;
    if (m_parser != nullptr) xmlStopParser(m_parser);
  }
  template <class F>
  static void guarded(void* context, F&& body) {
    auto* self = static_cast<sax_to_visitor_t*>(context);
    if (self->m_failed) return;
    // libxml2 still hands out some character data after a fatal error; the document is
    // lost by then, and the visitor has had the events up to the error.
    xmlParserCtxtPtr parser = self->m_parser;
    if (parser != nullptr && (parser->disableSAX != 0 || parser->wellFormed == 0)) return;
    try {
      body(*self);
    } catch (std::bad_alloc const&) {
      self->fail("out of memory");
    } catch (...) {
      self->fail("the visitor threw an exception");
    }
  }

  xmlSAXHandler m_sax;
  variant_bag_visitor_t* m_visitor;
  // The visitor when it is the library's own builder, which can take values over.
  variant_bag_builder_t* m_builder;
  std::vector<std::string> m_path;
  std::vector<frame_t> m_frames;  // frames beyond m_depth are kept for their text buffers
  std::size_t m_depth = 0;
  std::vector<attribute_t> m_attributes;
  std::vector<prefix_info_t> m_prefixes;
  std::array<wide_name_t, 64> m_wide_names;  // 64: the top six bits of the mixed address
  std::string m_name;
  std::string m_type_id;
  std::string m_ptr_type;
  xmlParserCtxtPtr m_parser = nullptr;
  bool m_failed = false;
  std::string m_why;
};

void sax_to_visitor_t::start_element(void* context, xmlChar const* localname, xmlChar const* prefix,
                                     xmlChar const*, int, xmlChar const**, int nb_attributes, int,
                                     xmlChar const** attributes) {
  guarded(context, [&](sax_to_visitor_t& self) {
    self.on_start(text_of(localname), text_of(prefix), nb_attributes, attributes);
  });
}

void sax_to_visitor_t::end_element(void* context, xmlChar const*, xmlChar const*, xmlChar const*) {
  guarded(context, [](sax_to_visitor_t& self) { self.on_end(); });
}

void sax_to_visitor_t::characters(void* context, xmlChar const* text, int length) {
  guarded(context, [&](sax_to_visitor_t& self) {
    if (self.m_depth == 0) {
      Q2_DAS_ASSERT_TEXT("m_current_stack.size()");
      return;
    }
    if (self.is_active()) self.m_frames[self.m_depth - 1].text.append(text_of(text), length);
  });
}

void sax_to_visitor_t::on_start(char const* localname, char const* prefix, int count,
                                xmlChar const** attributes) {
  bool const was_active = is_active();
  bool const below_matched = m_depth == 0 || m_frames[m_depth - 1].matched;
  if (m_frames.size() == m_depth) m_frames.emplace_back();
  frame_t& frame = m_frames[m_depth++];
  frame.prefix = prefix;
  frame.name = localname;
  frame.text.clear();
  frame.matched = below_matched;
  if (m_depth <= m_path.size() && frame.matched) {
    frame.matched = wildcard_match(m_path[m_depth - 1], localname);
  }
  if (!is_active() || m_visitor == nullptr) return;

  prefix_info_t const element = info_of(prefix != nullptr ? prefix : k_no_prefix);
  frame.kind = element.kind;
  frame.is_pointer = element.is_pointer;
  // A name with colons beyond its prefix is no qualified name (libxml2 reports it and goes
  // on): the prefix is part of the name then, and says no type.
  bool const whole_name = prefix != nullptr && std::strchr(localname, ':') != nullptr;
  if (whole_name && !frame.is_pointer) frame.kind = internal::text_type_t::unknown;

  // The attributes in the order of their prefix and name. The parser's names are
  // dictionary strings, so equal prefixes are nearly always equal pointers.
  m_attributes.clear();
  for (int i = 0; i < count; ++i) {
    xmlChar const** a = attributes + 5 * i;
    // A namespace declaration that the parser could not take (its prefix is no name)
    // arrives as an attribute; it is no value, and no save could write it back.
    char const* const attribute_name = text_of(a[0]);
    if ((a[1] != nullptr && std::strcmp(text_of(a[1]), "xmlns") == 0) ||
        (a[1] == nullptr && std::strncmp(attribute_name, "xmlns", 5) == 0 &&
         (attribute_name[5] == '\0' || attribute_name[5] == ':')))
      continue;
    prefix_info_t const info = info_of(a[1] != nullptr ? text_of(a[1]) : k_no_prefix);
    m_attributes.push_back(attribute_t{info.prefix, text_of(a[0]), text_of(a[3]),
                                       static_cast<std::size_t>(a[4] - a[3]), info.kind,
                                       info.skipped});
  }
  if (m_attributes.size() > 1) {
    std::sort(m_attributes.begin(), m_attributes.end(),
              [](attribute_t const& x, attribute_t const& y) {
                if (x.prefix != y.prefix) {
                  int const by_prefix = std::strcmp(x.prefix, y.prefix);
                  if (by_prefix != 0) return by_prefix < 0;
                }
                return std::strcmp(x.name, y.name) < 0;
              });
  }

  if (was_active) {
    char const* const name =
        frame.is_pointer || prefix == nullptr || internal::is_type_prefix(frame.kind)
            ? localname  // a type prefix says nothing of a bag
            : qualified(prefix, localname);
    if (internal::is_namespace_declaration_name(name, std::strlen(name))) {
      refuse_name(name);
      return;
    }
    if (frame.is_pointer) {
      m_type_id.clear();
      m_ptr_type.clear();
      for (attribute_t const& a : m_attributes) {
        if (!a.skipped || std::strcmp(a.prefix, "pointer") != 0) continue;
        if (std::strcmp(a.name, "type_id") == 0) m_type_id.assign(a.value, a.length);
        if (std::strcmp(a.name, "ptr_type") == 0) m_ptr_type.assign(a.value, a.length);
      }
      if (m_type_id.empty()) Q2_DAS_ASSERT_TEXT("!type_id.empty()");
      m_visitor->on_start_pointer(name, m_type_id.c_str(), m_ptr_type.c_str());
    } else {
      if (m_builder != nullptr && name == localname) {
        wide_name_t const& wide = wide_name_of(localname);
        m_builder->start_variant_bag(wide.text.c_str(), wide.text.size(), wide.hash);
      } else {
        m_visitor->on_start_variant_bag(name);
      }
      // The new bag holds its tag name and a value for each attribute: its index is
      // made that large at once instead of growing on the way.
      if (m_builder != nullptr) m_builder->reserve_values(m_attributes.size() + 1);
    }
  }

  for (attribute_t const& a : m_attributes) {
    if (a.skipped) continue;
    variant_t value;
    char const* name = a.name;
    if (!internal::variant_from_prefixed_text(value, a.kind, a.value, a.length)) {
      value = internal::wide_variant_from_utf8(a.value, a.length);
      name = qualified(a.prefix, a.name);
    }
    if (internal::is_namespace_declaration_name(name, std::strlen(name))) {
      refuse_name(name);
      return;
    }
    if (name == a.name) {
      deliver_dictionary_name(name, value);
    } else {
      deliver(name, value);
    }
  }
}

void sax_to_visitor_t::on_end() {
  bool const was_active = is_active();
  if (m_depth == 0) {
    Q2_DAS_ASSERT_TEXT("m_current_stack.size()");
    return;
  }
  frame_t& frame = m_frames[--m_depth];
  if (!was_active || m_visitor == nullptr) return;

  std::string const& text = frame.text;
  std::size_t begin = 0;
  std::size_t end = text.size();
  while (begin < end && is_blank(text[begin])) ++begin;
  while (end > begin && is_blank(text[end - 1])) --end;
  if (begin < end) {
    variant_t value;
    if (!internal::variant_from_prefixed_text(value, frame.kind, text.data() + begin,
                                              end - begin)) {
      value = internal::wide_variant_from_utf8(text.data() + begin, end - begin);
    }
    deliver("", value);
  }
  if (is_active()) {
    if (frame.is_pointer) {
      m_visitor->on_end_pointer();
    } else {
      m_visitor->on_end_variant_bag();
    }
  }
}

int sax_to_visitor_t::parse(char const* data, std::size_t size, bool is_utf8, std::string& why) {
  internal::ensure_xml_safety();
  if (size == 0 || data == nullptr) {
    why = "empty document";
    return DAS_E_FAIL;
  }
  if (size > static_cast<std::size_t>(INT_MAX)) {
    why = "document too large";
    return DAS_E_FAIL;
  }
  xmlParserCtxtPtr parser = xmlCreateMemoryParserCtxt(data, static_cast<int>(size));
  if (parser == nullptr) {
    why = "out of memory";
    return DAS_E_FAIL;
  }
  if (parser->sax != nullptr) xmlFree(parser->sax);
  parser->sax = &m_sax;
  parser->userData = this;
  xmlCtxtUseOptions(
      parser, internal::safe_parse_options(k_read_options | (is_utf8 ? XML_PARSE_IGNORE_ENC : 0)));
  m_parser = parser;
  internal::refusal_watch_t watch;
  xmlParseDocument(parser);
  bool const well_formed = parser->wellFormed != 0;
  int result = DAS_OK;
  if (m_failed) {
    why = m_why;
    result = DAS_E_FAIL;
  } else if (!well_formed) {
    xmlErrorPtr error = xmlCtxtGetLastError(parser);
    why = error != nullptr && error->message != nullptr
              ? "line " + std::to_string(error->line) + ": " + error->message
              : std::string("not well formed");
    while (!why.empty() && (why.back() == '\n' || why.back() == ' ')) why.pop_back();
    result = DAS_E_FAIL;
  } else if (watch.refused()) {
    why = "the document refers to external content";
    result = DAS_E_FAIL;
  }
  m_parser = nullptr;
  parser->sax = nullptr;  // ours, not the parser's to free
  // An internal subset makes libxml2 keep its declarations in a document of its own, even
  // for a SAX parse; the parser context does not free it.
  if (parser->myDoc != nullptr) {
    xmlFreeDoc(parser->myDoc);
    parser->myDoc = nullptr;
  }
  xmlFreeParserCtxt(parser);
  return result;
}

}  // namespace

int internal::read_xml_memory_to_visitor(char const* data, std::size_t size, bool is_utf8,
                                         variant_bag_visitor_t* visitor, char const* path,
                                         std::string& why) {
  sax_to_visitor_t reader(visitor, path);
  return reader.parse(data, size, is_utf8, why);
}

}  // namespace quillon2
