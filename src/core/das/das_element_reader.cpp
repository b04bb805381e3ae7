// The element form of bags. A document is read as libxml2 parses it, with no tree in
// between; only a document with a document type declaration goes through libxml2's tree,
// which substitutes the entities the declaration defines. Both ways hand the same
// element events to one builder.
#include <cstdint>
#include <cstring>
#include <exception>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include <libxml/parser.h>
#include <libxml/tree.h>

#include <quillon2/das/das_proxy.hpp>
#include <quillon2/das/notype_ptr.hpp>
#include <quillon2/das/type_factory.hpp>
#include <quillon2/das/variant.hpp>
#include <quillon2/das/variant_bag.hpp>
#include <quillon2/das/variant_bag_serialization.hpp>

#include "core/das/include/bag_impl.hpp"
#include "core/das/include/das_assert.hpp"
#include "core/das/include/element_form.hpp"
#include "core/das/include/variant_text.hpp"
#include "core/das/include/vb_helper.hpp"
#include "core/das/include/xml_file_io.hpp"
#include "core/das/include/xml_safety.hpp"

namespace quillon2 {
namespace {

using internal::text_type_t;

char const k_not_root[] = "the document element is not \"root\"";

// Read options: entities are substituted. Small texts of a tree are stored inside their
// nodes (XML_PARSE_COMPACT), which saves allocations and changes nothing that the reader
// sees, the tree being read only; the text form uses it as the file form does.
constexpr int k_file_read_options =
    XML_PARSE_NOENT | XML_PARSE_NOERROR | XML_PARSE_NOWARNING | XML_PARSE_COMPACT;
constexpr int k_string_read_options = XML_PARSE_NOENT | XML_PARSE_COMPACT;

// An entry name as the bag keeps it: the text, its hash, the text as a value for the
// "#tag_name" of child bags (which all children of one name share), and the size of the
// UTF-8 name it came from.
struct name_t {
  std::wstring text;
  std::uint32_t hash = 0;
  variant_t tag;
  std::size_t utf8_size = 0;
};

// The entry names of one read. libxml2 keeps names in a dictionary, so one name is one
// pointer: each is converted once. The maps never drop an entry, so a returned name
// stays valid for the whole read.
class name_cache_t {
 public:
  // The name of an element: `prefix` (null for none) and `local` are dictionary strings.
  name_t const& get(xmlChar const* prefix, xmlChar const* local) {
    if (prefix != nullptr) {
      // A name with a prefix is kept whole, as the entry was named.
      std::string qualified = reinterpret_cast<char const*>(prefix);
      qualified += ':';
      qualified += reinterpret_cast<char const*>(local);
      auto found = m_qualified.find(qualified);
      if (found == m_qualified.end()) {
        name_t name = make(qualified.data(), qualified.size());
        found = m_qualified.emplace(std::move(qualified), std::move(name)).first;
      }
      return found->second;
    }
    auto found = m_names.find(local);
    if (found == m_names.end()) {
      char const* text = reinterpret_cast<char const*>(local);
      found = m_names.emplace(local, make(text, std::strlen(text))).first;
    }
    return found->second;
  }

 private:
  static name_t make(char const* utf8, std::size_t size) {
    name_t name;
    internal::append_utf8_as_wide(name.text, utf8, size);
    name.hash = internal::hash_name(name.text.data(), name.text.size());
    name.tag = variant_t(name.text.c_str());
    name.utf8_size = size;
    return name;
  }

  std::unordered_map<xmlChar const*, name_t> m_names;
  std::unordered_map<std::string, name_t> m_qualified;
};

// The text of an attribute that a start event passes on: not terminated, null when the
// element has no such attribute.
struct attribute_text_t {
  char const* text = nullptr;
  std::size_t size = 0;
};

// Builds the entries of a bag from the events of the elements below the one whose
// children are read, in document order: start and end of each element, the text before
// its first child of any other kind, and the end of that text. Whether an element is a
// bag is known at its first child element, so a child bag is added then, where the entry
// would stand. A failure ends the building: the value being read is not added, and the
// outermost child bag being read is taken out again, so that the bag keeps what came
// before the failing top-level element.
class element_builder_t {
 public:
  explicit element_builder_t(variant_bag_t& bag) : m_bag(bag) {}

  bool failed() const { return !m_why.empty(); }
  std::string const& why() const { return m_why; }

  void start(name_t const& name, attribute_text_t type, attribute_text_t type_id,
             attribute_text_t ptr_type);
  void text(char const* utf8, std::size_t size) {
    if (m_depth == 0 || failed()) return;
    frame_t& frame = m_frames[m_depth - 1];
    if (!frame.text_open) return;
    if (frame.text.size() + size > internal::k_max_text_bytes) {
      frame.text_too_long = true;
      frame.text_open = false;
      return;
    }
    frame.text.append(utf8, size);
  }
  // Another kind of child (element, comment, CDATA section, processing instruction)
  // ends the text that counts.
  void end_text() {
    if (m_depth != 0) m_frames[m_depth - 1].text_open = false;
  }
  void end();

 private:
  struct frame_t {
    name_t const* name = nullptr;
    text_type_t type = text_type_t::unknown;
    bool text_open = true;
    bool text_too_long = false;
    std::string text;
    variant_bag_t* bag = nullptr;         // the element's bag, once it is one
    std::unique_ptr<variant_bag_t> data;  // a pointer's data, kept for the next pointer
    bool has_type_id = false;
    bool has_ptr_type = false;
    std::string type_id;
    std::string ptr_type;
  };

  // Where the children of the element of `frame` go, making it a bag when it is not one.
  variant_bag_t& container_of(std::size_t depth);
  void fail(char const* why);
  static bool blob_from_text(char const* text, std::vector<unsigned char>& bytes);

  variant_bag_t& m_bag;
  std::vector<frame_t> m_frames;  // frames beyond m_depth are kept for their buffers
  std::size_t m_depth = 0;
  std::vector<unsigned char> m_bytes;
  std::string m_why;
  // The nodes of the bags read, side by side in large blocks instead of one allocation each.
  internal::node_arena_t m_arena;
};

variant_bag_t& element_builder_t::container_of(std::size_t depth) {
  if (depth == 0) return m_bag;
  frame_t& frame = m_frames[depth - 1];
  if (frame.type == text_type_t::pointer) return *frame.data;
  if (frame.bag == nullptr) {
    // Its own container was made when it started.
    name_t const& name = *frame.name;
    frame.bag = &internal::vb_helper::add_empty_child(
        &m_arena, container_of(depth - 1), name.text.data(), name.text.size(), name.hash, name.tag);
  }
  return *frame.bag;
}

void element_builder_t::fail(char const* why) {
  m_why = why;
  if (m_depth != 0 && m_frames[0].bag != nullptr) m_bag.remove<variant_bag_t>(m_frames[0].bag);
}

void element_builder_t::start(name_t const& name, attribute_text_t type, attribute_text_t type_id,
                              attribute_text_t ptr_type) {
  if (failed()) return;
  if (m_depth != 0) {
    m_frames[m_depth - 1].text_open = false;
    container_of(m_depth);
  }
  if (m_frames.size() == m_depth) m_frames.emplace_back();
  frame_t& frame = m_frames[m_depth++];
  frame.name = &name;
  frame.text_open = true;
  frame.text_too_long = false;
  frame.text.clear();
  frame.bag = nullptr;
  if (name.utf8_size > internal::k_max_name_bytes) {
    fail("a name longer than a save may write");
    return;
  }
  frame.type = internal::text_type_from_word(type.text, type.size);
  if (frame.type == text_type_t::pointer) {
    if (frame.data) {
      frame.data->clear();
    } else {
      frame.data = std::make_unique<variant_bag_t>();
    }
    frame.has_type_id = type_id.text != nullptr;
    frame.has_ptr_type = ptr_type.text != nullptr;
    frame.type_id.assign(frame.has_type_id ? type_id.text : "", type_id.size);
    frame.ptr_type.assign(frame.has_ptr_type ? ptr_type.text : "", ptr_type.size);
  } else if (frame.type == text_type_t::bag) {
    container_of(m_depth);
  }
}

void element_builder_t::end() {
  if (failed() || m_depth == 0) return;
  frame_t& frame = m_frames[m_depth - 1];
  name_t const& name = *frame.name;
  if (frame.type == text_type_t::pointer) {
    if (frame.type_id.size() > internal::k_max_text_bytes ||
        frame.ptr_type.size() > internal::k_max_text_bytes) {
      fail("a type name longer than a save may write");
      return;
    }
    std::wstring type_id;
    std::wstring ptr_type;
    internal::append_utf8_as_wide(type_id, frame.type_id.data(), frame.type_id.size());
    internal::append_utf8_as_wide(ptr_type, frame.ptr_type.data(), frame.ptr_type.size());
    notype_ptr_t pointer;
    pointer.create_from_runtime_info(*frame.data, frame.has_type_id ? type_id.c_str() : nullptr,
                                     frame.has_ptr_type ? ptr_type.c_str() : nullptr);
    variant_t value(pointer);
    --m_depth;
    internal::vb_helper::put_moved(&m_arena, container_of(m_depth), name.text.data(),
                                   name.text.size(), name.hash, value);
    return;
  }
  if (frame.bag != nullptr) {
    --m_depth;
    return;
  }
  if (frame.text_too_long) {
    fail("a text longer than a save may write");
    return;
  }
  char const* const text = frame.text.c_str();
  std::size_t const length = frame.text.size();
  variant_t value;
  if (frame.type == text_type_t::blob) {
    if (!blob_from_text(text, m_bytes)) {
      fail("a blob with an odd number of hexadecimal digits");
      return;
    }
    if (internal::blob_text_length(m_bytes.size()) > internal::k_max_text_bytes) {
      fail("a blob larger than a save may write");
      return;
    }
    value = variant_t(static_cast<void const*>(m_bytes.data()), static_cast<u64_t>(m_bytes.size()));
  } else if (frame.type == text_type_t::wide_string || frame.type == text_type_t::unknown) {
    value = internal::wide_variant_from_utf8(text, length);
  } else {
    internal::scalar_from_text(value, frame.type, text, length);
  }
  --m_depth;
  internal::vb_helper::put_moved(&m_arena, container_of(m_depth), name.text.data(),
                                 name.text.size(), name.hash, value);
}

// Hexadecimal digits, two to a byte; every character that is neither a letter nor a
// digit is passed over. A pair that is no hexadecimal number gives 0, and a pair whose
// second character is none gives the value of the first.
bool element_builder_t::blob_from_text(char const* text, std::vector<unsigned char>& bytes) {
  auto hex_value = [](char c) -> int {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
  };
  auto is_alnum = [](char c) {
    return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
  };
  bytes.clear();
  char pending = 0;
  bool have_pending = false;
  for (char const* p = text != nullptr ? text : ""; *p != '\0'; ++p) {
    if (!is_alnum(*p)) continue;
    if (!have_pending) {
      pending = *p;
      have_pending = true;
      continue;
    }
    int const high = hex_value(pending);
    int const low = hex_value(*p);
    int byte = 0;
    if (high >= 0) byte = low >= 0 ? high * 16 + low : high;
    bytes.push_back(static_cast<unsigned char>(byte));
    have_pending = false;
  }
  return !have_pending;
}

// The text of an attribute without a namespace, as a read of the tree sees it.
attribute_text_t attribute_of(xmlNode const* node, char const* name) {
  for (xmlAttr const* attribute = node->properties; attribute != nullptr;
       attribute = attribute->next) {
    if (attribute->ns != nullptr ||
        std::strcmp(reinterpret_cast<char const*>(attribute->name), name) != 0) {
      continue;
    }
    xmlNode const* value = attribute->children;
    if (value != nullptr && value->next == nullptr && value->type == XML_TEXT_NODE &&
        value->content != nullptr) {
      char const* text = reinterpret_cast<char const*>(value->content);
      return attribute_text_t{text, std::strlen(text)};
    }
    return attribute_text_t{};
  }
  return attribute_text_t{};
}

// Hands the elements below `parent` in libxml2's tree to the builder. Recurses only as
// deep as libxml2 lets a document nest (its default limit, which is never lifted).
void walk_children(xmlNode* parent, name_cache_t& names, element_builder_t& builder) {
  for (xmlNode* node = parent->children; node != nullptr && !builder.failed(); node = node->next) {
    if (node->type != XML_ELEMENT_NODE) continue;
    builder.start(names.get(node->ns != nullptr ? node->ns->prefix : nullptr, node->name),
                  attribute_of(node, "type"), attribute_of(node, "type_id"),
                  attribute_of(node, "ptr_type"));
    xmlNode const* first = node->children;
    if (first != nullptr && first->type == XML_TEXT_NODE && first->content != nullptr) {
      char const* text = reinterpret_cast<char const*>(first->content);
      builder.text(text, std::strlen(text));
    }
    builder.end_text();
    walk_children(node, names, builder);
    builder.end();
  }
}

// The document element "root" of a parsed element-form document, or null with the
// reason in `why` (also when the parse failed and there is no document).
xmlNode* document_root(internal::xml_doc_ptr_t const& doc, std::string& why) {
  if (!doc) {
    why = internal::last_xml_parse_error();
    return nullptr;
  }
  xmlNode* root = xmlDocGetRootElement(doc.get());
  if (root == nullptr || root->ns != nullptr ||
      std::strcmp(reinterpret_cast<char const*>(root->name), "root") != 0) {
    why = k_not_root;
    return nullptr;
  }
  return root;
}

// The steps of a path below "root": separated by ".", each the name of an element.
std::vector<std::string> path_steps(char const* path) {
  std::vector<std::string> steps;
  if (path == nullptr || *path == '\0') return steps;
  char const* begin = path;
  for (char const* p = path;; ++p) {
    if (*p == '.' || *p == '\0') {
      steps.emplace_back(begin, p);
      if (*p == '\0') return steps;
      begin = p + 1;
    }
  }
}

// Whether an element of `prefix` (null for none) and `local` has the name `step`.
bool has_name(std::string const& step, xmlChar const* prefix, xmlChar const* local) {
  char const* const name = reinterpret_cast<char const*>(local);
  if (prefix == nullptr) return step == name;
  std::size_t const prefix_size = std::strlen(reinterpret_cast<char const*>(prefix));
  return step.size() > prefix_size &&
         step.compare(0, prefix_size, reinterpret_cast<char const*>(prefix)) == 0 &&
         step[prefix_size] == ':' && step.compare(prefix_size + 1, std::string::npos, name) == 0;
}

// The element that `steps` name below "root", each the first child element of exactly
// that name; "root" itself for no steps.
xmlNode* find_start(xmlNode* root, std::vector<std::string> const& steps) {
  xmlNode* current = root;
  for (std::string const& step : steps) {
    xmlNode* next = nullptr;
    for (xmlNode* child = current->children; child != nullptr; child = child->next) {
      if (child->type == XML_ELEMENT_NODE &&
          has_name(step, child->ns != nullptr ? child->ns->prefix : nullptr, child->name)) {
        next = child;
        break;
      }
    }
    if (next == nullptr) return nullptr;
    current = next;
  }
  return current;
}

// Reads an element-form document as libxml2 parses it, without a tree: the elements
// below the one that the path names go to the builder as they come. A document with a
// document type declaration is left to the reader of the tree (see saw_doctype), which
// substitutes the entities that the declaration may define as the tree has them.
class element_sax_reader_t {
 public:
  // `path` as for read_element_form_document; `stop_when_foreign` ends the parse at a
  // document element other than "root", for a caller that does not need to know why.
  element_sax_reader_t(variant_bag_t& bag, char const* path, bool stop_when_foreign)
      : m_builder(bag),
        m_steps(path_steps(path)),
        m_has_path(path != nullptr),
        m_stop_when_foreign(stop_when_foreign) {
    std::memset(&m_sax, 0, sizeof m_sax);
    m_sax.initialized = XML_SAX2_MAGIC;
    m_sax.startElementNs = &start_element;
    m_sax.endElementNs = &end_element;
    m_sax.characters = &characters;
    m_sax.ignorableWhitespace = &characters;
    m_sax.cdataBlock = &other_child;
    m_sax.comment = [](void* context, xmlChar const*) { guarded(context, &end_text); };
    m_sax.processingInstruction = [](void* context, xmlChar const*, xmlChar const*) {
      guarded(context, &end_text);
    };
    m_sax.reference = [](void* context, xmlChar const*) { guarded(context, &end_text); };
    m_sax.internalSubset = &doctype;
    m_sax.getEntity = [](void*, xmlChar const* name) { return xmlGetPredefinedEntity(name); };
  }

  xmlSAXHandler const& handler() const { return m_sax; }
  bool saw_doctype() const { return m_saw_doctype; }
  bool foreign() const { return m_foreign; }
  bool found() const { return m_has_path && m_matched == m_steps.size() && !m_foreign; }
  element_builder_t const& builder() const { return m_builder; }
  // What a callback threw (memory running out), which could not pass through libxml2.
  bool threw() const { return m_exception != nullptr; }
  void rethrow() const { std::rethrow_exception(m_exception); }

 private:
  static element_sax_reader_t& of(void* context) {
    return *static_cast<element_sax_reader_t*>(static_cast<xmlParserCtxtPtr>(context)->_private);
  }
  template <class F>
  static void guarded(void* context, F&& body) {
    element_sax_reader_t& self = of(context);
    if (self.m_exception) return;
    try {
      body(self);
    } catch (...) {
      self.m_exception = std::current_exception();
      xmlStopParser(static_cast<xmlParserCtxtPtr>(context));
    }
  }
  bool reading() const { return m_read_depth != 0 && m_depth > m_read_depth; }
  static void end_text(element_sax_reader_t& self) {
    if (self.reading()) self.m_builder.end_text();
  }

  static void start_element(void* context, xmlChar const* local, xmlChar const* prefix,
                            xmlChar const* uri, int, xmlChar const**, int count, int,
                            xmlChar const** attributes);
  static void end_element(void* context, xmlChar const*, xmlChar const*, xmlChar const*);
  static void characters(void* context, xmlChar const* text, int length) {
    guarded(context, [&](element_sax_reader_t& self) {
      if (self.reading()) self.m_builder.text(reinterpret_cast<char const*>(text), length);
    });
  }
  static void other_child(void* context, xmlChar const*, int) { guarded(context, &end_text); }
  static void doctype(void* context, xmlChar const*, xmlChar const*, xmlChar const*) {
    of(context).m_saw_doctype = true;
    xmlStopParser(static_cast<xmlParserCtxtPtr>(context));
  }

  xmlSAXHandler m_sax;
  element_builder_t m_builder;
  name_cache_t m_names;
  std::vector<std::string> const m_steps;
  bool const m_has_path;
  bool const m_stop_when_foreign;
  std::size_t m_depth = 0;       // of the element open last; "root" is at 1
  std::size_t m_matched = 0;     // steps of the path found so far
  std::size_t m_read_depth = 0;  // of the element whose children are read, while open
  bool m_search_over = false;
  bool m_foreign = false;
  bool m_saw_doctype = false;
  std::exception_ptr m_exception;
};

void element_sax_reader_t::start_element(void* context, xmlChar const* local, xmlChar const* prefix,
                                         xmlChar const* uri, int, xmlChar const**, int count, int,
                                         xmlChar const** attributes) {
  guarded(context, [&](element_sax_reader_t& self) {
    std::size_t const depth = ++self.m_depth;
    if (depth == 1) {
      self.m_foreign = prefix != nullptr || uri != nullptr ||
                       std::strcmp(reinterpret_cast<char const*>(local), "root") != 0;
      if (self.m_foreign) {
        self.m_search_over = true;
        if (self.m_stop_when_foreign) xmlStopParser(static_cast<xmlParserCtxtPtr>(context));
      } else if (!self.m_has_path) {
        self.m_search_over = true;
      } else if (self.m_steps.empty()) {
        self.m_read_depth = 1;
      }
      return;
    }
    if (self.m_read_depth != 0) {
      // Attributes come as five pointers each: name, prefix, namespace, value, its end.
      attribute_text_t type;
      attribute_text_t type_id;
      attribute_text_t ptr_type;
      for (int i = 0; i < count; ++i) {
        xmlChar const** a = attributes + 5 * i;
        if (a[1] != nullptr) continue;
        char const* const name = reinterpret_cast<char const*>(a[0]);
        attribute_text_t const text{reinterpret_cast<char const*>(a[3]),
                                    static_cast<std::size_t>(a[4] - a[3])};
        if (std::strcmp(name, "type") == 0) {
          type = text;
        } else if (std::strcmp(name, "type_id") == 0) {
          type_id = text;
        } else if (std::strcmp(name, "ptr_type") == 0) {
          ptr_type = text;
        }
      }
      self.m_builder.start(self.m_names.get(prefix, local), type, type_id, ptr_type);
      return;
    }
    if (!self.m_search_over && depth == self.m_matched + 2 &&
        has_name(self.m_steps[self.m_matched], prefix, local)) {
      if (++self.m_matched == self.m_steps.size()) self.m_read_depth = depth;
    }
  });
}

void element_sax_reader_t::end_element(void* context, xmlChar const*, xmlChar const*,
                                       xmlChar const*) {
  guarded(context, [](element_sax_reader_t& self) {
    std::size_t const depth = self.m_depth--;
    if (self.m_read_depth != 0) {
      if (depth > self.m_read_depth) {
        self.m_builder.end();
        return;
      }
      self.m_read_depth = 0;
      self.m_search_over = true;
    } else if (!self.m_search_over && depth == self.m_matched + 1 && self.m_matched != 0) {
      // Only the first element of a step's name is searched.
      self.m_search_over = true;
    }
  });
}

// The result of a read of an element-form document: `found` tells whether the path named
// an element, `builder` read its children.
int read_result(char const* path, bool found, element_builder_t const& builder, std::string& why) {
  if (path == nullptr) {
    why = "no path";
    return DAS_E_FAIL;
  }
  if (!found) {
    why = std::string("no element at the path \"") + path + "\"";
    return DAS_E_FAIL;
  }
  if (!builder.failed()) return DAS_OK;
  why = builder.why();
  return DAS_E_FAIL;
}

// Reads the document with libxml2's tree: for a document with a document type declaration.
int read_through_tree(variant_bag_t& bag, char const* data, std::size_t size, char const* encoding,
                      int options, char const* path, std::string& why, bool& recognised) {
  internal::xml_doc_ptr_t doc = internal::safe_read_memory(data, size, encoding, options);
  xmlNode* const root = document_root(doc, why);
  if (root == nullptr) return DAS_E_FAIL;
  recognised = true;
  xmlNode* const start = path != nullptr ? find_start(root, path_steps(path)) : nullptr;
  name_cache_t names;
  element_builder_t builder(bag);
  if (start != nullptr) walk_children(start, names, builder);
  return read_result(path, start != nullptr, builder, why);
}

// Reads an element-form document into `bag` (empty). `path` as for
// read_element_form_document, where null is a failure of a document that is read.
int read_document(variant_bag_t& bag, char const* data, std::size_t size, char const* encoding,
                  int options, char const* path, bool stop_when_foreign, std::string& why,
                  bool& recognised) {
  recognised = false;
  element_sax_reader_t reader(bag, path, stop_when_foreign);
  bool const parsed =
      internal::safe_sax_read_memory(reader.handler(), &reader, data, size, encoding, options);
  if (reader.saw_doctype() || !parsed || reader.threw()) bag.clear();
  if (reader.threw()) reader.rethrow();
  if (reader.saw_doctype()) {
    return read_through_tree(bag, data, size, encoding, options, path, why, recognised);
  }
  if (!parsed && !(reader.foreign() && stop_when_foreign)) {
    why = internal::last_xml_parse_error();
    return DAS_E_FAIL;
  }
  if (reader.foreign()) {
    why = k_not_root;
    return DAS_E_FAIL;
  }
  recognised = true;
  return read_result(path, reader.found(), reader.builder(), why);
}

}  // namespace

int internal::read_element_form_file(variant_bag_t& bag, std::string const& native_name,
                                     char const* path, std::string& why) {
  std::string content;
  if (!read_file_locked(native_name, content, why)) return DAS_E_FAIL;
  bool recognised = false;
  return read_document(bag, content.data(), content.size(), nullptr, k_file_read_options, path,
                       false, why, recognised);
}

int internal::read_element_form_document(variant_bag_t& bag, std::string const& content,
                                         char const* path, std::string& why, bool& recognised) {
  // The caller reads a document of another form its own way, and needs no reason.
  return read_document(bag, content.data(), content.size(), nullptr, k_file_read_options, path,
                       true, why, recognised);
}

int internal::read_element_form_text(variant_bag_t& bag, char const* utf8, std::size_t size,
                                     std::string& why) {
  // The bytes are UTF-8 whatever the declaration says.
  bool recognised = false;
  return read_document(bag, utf8, size, "UTF-8", k_string_read_options, "", false, why, recognised);
}

}  // namespace quillon2
