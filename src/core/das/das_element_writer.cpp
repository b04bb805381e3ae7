// The element form of bags, printed straight into one UTF-8 buffer in the layout of an
// indenting XML writer: one element a line, one blank of indent a level, empty elements
// closed with "/>", text inside its element's line. The writer walks the bag with an
// explicit stack, so that the depth of a bag in memory never reaches the depth of the
// call stack.
#include <algorithm>
#include <atomic>
#include <cstring>
#include <deque>
#include <string>
#include <vector>

#include <quillon2/das/das_proxy.hpp>
#include <quillon2/das/notype_ptr.hpp>
#include <quillon2/das/type_factory.hpp>
#include <quillon2/das/variant.hpp>
#include <quillon2/das/variant_bag.hpp>
#include <quillon2/das/variant_bag_serialization.hpp>

#include "core/das/include/bag_runahead.hpp"
#include "core/das/include/das_assert.hpp"
#include "core/das/include/element_form.hpp"
#include "core/das/include/variant_text.hpp"
#include "core/das/include/xml_escape.hpp"
#include "core/das/include/xml_safety.hpp"
#include "core/miscellaneous/include/posix_io.hpp"

namespace quillon2 {
namespace {

using internal::blob_text_length;
using internal::text_type_t;

// The limits of what libxml2 reads back. The writer refuses anything larger, so that every
// saved document loads, and the reader refuses it too, so that everything loaded can be
// saved again. A text is measured in UTF-8 bytes, unescaped; "root" is level 1.
using internal::k_max_element_depth;
using internal::k_max_name_bytes;
using internal::k_max_text_bytes;

constexpr char k_hex_digits[] = "0123456789abcdef";

// Prints elements into `out`. An element's start tag stays open until its first child
// or its text comes, or it ends as an empty element.
class printer_t {
 public:
  explicit printer_t(std::string& out) : m_out(out) {}

  void declaration() { m_out.append("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"); }
  void start(char const* name, std::size_t length) {
    if (m_open) m_out.append(">\n", 2);
    m_out.append(m_names.size(), ' ');
    m_out += '<';
    m_out.append(name, length);
    m_names.emplace_back(name, length);
    m_open = true;
  }
  // An attribute of the open start tag; `value` is UTF-8, escaped here.
  void attribute(char const* name, char const* value) {
    m_out += ' ';
    m_out.append(name);
    m_out.append("=\"", 2);
    internal::append_escaped(m_out, value, std::strlen(value), internal::k_attribute_escapes);
    m_out += '"';
  }
  // Text that is ready for the document, as it stands.
  void text(char const* data, std::size_t size) {
    if (m_open) m_out += '>';
    m_open = false;
    m_out.append(data, size);
    m_indent_end = false;
  }
  void end() {
    if (m_open) {
      m_out.append("/>", 2);
      m_open = false;
    } else {
      if (m_indent_end) m_out.append(m_names.size() - 1, ' ');
      m_out.append("</", 2);
      m_out.append(m_names.back());
      m_out += '>';
    }
    m_indent_end = true;
    m_out += '\n';
    m_names.pop_back();
  }

 private:
  std::string& m_out;
  std::vector<std::string> m_names;  // of the open elements, outermost first
  bool m_open = false;               // the innermost start tag still takes attributes
  bool m_indent_end = true;          // its end tag goes on a line of its own
};

// Writes a bag as the children of the element that is open in the printer.
class element_writer_t {
 public:
  explicit element_writer_t(std::string& out) : m_printer(out) {}

  // The whole document: declaration, "root", the bag.
  int write_document(variant_bag_t const& bag);
  std::string const& why() const { return m_why; }

 private:
  struct frame_t {
    variant_bag_t const* bag = nullptr;
    variant_bag_t object_data;  // what a pointer's object saved, when the frame is one
    int pass = 0;               // 0: plain values, 1: pointers, 2: child bags
    variant_bag_t::const_iterator_t<variant_t> values;
    // The next child bag to write and the end of the list of child bags.
    internal::bag_node_base_t const* child = nullptr;
    internal::bag_node_base_t const* children_end = nullptr;
    // Fetches the child bags after the one being written. Each level keeps its own, so
    // that a walk down into a child does not lose what was fetched of its siblings.
    internal::bag_runahead_t runahead;
  };

  int write_bag(variant_bag_t const& bag);
  int fail(char const* why) {
    if (m_why.empty()) m_why = why;
    return DAS_E_FAIL;
  }
  bool start_element(wchar_t const* name);
  bool attribute(char const* name, char const* value) {
    m_printer.attribute(name, value);
    return true;
  }
  bool wide_attribute(char const* name, wchar_t const* value);
  bool end_element();
  bool write_raw(std::string const& text) {
    m_printer.text(text.data(), text.size());
    return true;
  }
  int write_value(wchar_t const* name, variant_t const& value);
  int write_blob(variant_t const& value);
  // Opens the element of a pointer; `data` receives what the object saved and `open` says
  // whether the element stays open for that data.
  int start_pointer(wchar_t const* name, variant_t const& value, variant_bag_t& data, bool& open);

  // Steps the runahead of the parent of the bag whose values are written, if any.
  void step() {
    if (m_ahead != nullptr) m_ahead->step();
  }

  printer_t m_printer;
  internal::bag_runahead_t* m_ahead = nullptr;
  std::size_t m_depth = 0;
  std::string m_scratch;
  std::vector<unsigned char> m_bytes;
  std::string m_why;
};

bool element_writer_t::start_element(wchar_t const* name) {
  if (m_depth + 1 > k_max_element_depth) {
    m_why = "nesting deeper than a document may be";
    return false;
  }
  m_scratch.clear();
  if (!internal::append_xml_name_utf8(m_scratch, name) ||
      internal::is_namespace_declaration_name(m_scratch.data(), m_scratch.size())) {
    m_why = "an entry name that XML cannot hold";
    return false;
  }
  if (m_scratch.size() > k_max_name_bytes) {
    m_why = "an entry name too long for a document";
    return false;
  }
  m_printer.start(m_scratch.data(), m_scratch.size());
  ++m_depth;
  return true;
}

bool element_writer_t::wide_attribute(char const* name, wchar_t const* value) {
  m_scratch.clear();
  if (value != nullptr && !internal::append_xml_text_utf8(m_scratch, value, std::wcslen(value))) {
    m_why = "a type name with characters that XML cannot hold";
    return false;
  }
  if (m_scratch.size() > k_max_text_bytes) {
    m_why = "a type name too long for a document";
    return false;
  }
  return attribute(name, m_scratch.c_str());
}

bool element_writer_t::end_element() {
  --m_depth;
  m_printer.end();
  return true;
}

int element_writer_t::write_blob(variant_t const& value) {
  u64_t const size = value.get_blob_size();
  if (size > k_max_text_bytes ||
      blob_text_length(static_cast<std::size_t>(size)) > k_max_text_bytes) {
    return fail("a blob too large for a document");
  }
  m_bytes.resize(static_cast<std::size_t>(size));
  if (size != 0) value.get_blob_data(m_bytes.data(), size);
  m_scratch.assign(blob_text_length(m_bytes.size()), '\n');
  char* out = m_scratch.data();
  for (std::size_t i = 0; i < m_bytes.size(); ++i) {
    if (i % 16 == 0) ++out;  // the line feed that is already there
    *out++ = k_hex_digits[m_bytes[i] >> 4];
    *out++ = k_hex_digits[m_bytes[i] & 0xF];
  }
  if (!write_raw(m_scratch)) return DAS_E_FAIL;
  return DAS_OK;
}

int element_writer_t::write_value(wchar_t const* name, variant_t const& value) {
  das_variant_type_t const type = value.get_type();
  if (type == vtString || type == vtCharPtr) {
    Q2_DAS_ASSERT_TEXT("\"vtString type is deprecated on windows!\" == NULL");
    return DAS_OK;
  }
  char const* word = type == vtDummy  ? "dummy"
                     : type == vtBlob ? "blob"
                                      : internal::element_type_word(type);
  if (word == nullptr && type == vtWCharPtr) word = "";
  if (word == nullptr) return DAS_OK;  // no element form for this type

  if (!start_element(name)) return fail("an entry name that XML cannot hold");
  if (*word != '\0' && !attribute("type", word)) return DAS_E_FAIL;
  // A second step of the runahead, with the work of a name between it and the last one:
  // each of its two lanes then moves on a node for every value written.
  step();

  if (type == vtBlob) {
    int const result = write_blob(value);
    if (das_failed(result)) return result;
  } else if (type == vtWString || type == vtWCharPtr) {
    wchar_t const* text = value.get<wchar_t const*>();
    if (text != nullptr && *text != L'\0') {
      // Escaped here as the writer would escape it, in the same pass that checks it.
      m_scratch.clear();
      std::size_t utf8_bytes = 0;
      if (!internal::append_escaped_xml_text(m_scratch, text, utf8_bytes)) {
        return fail("text with characters that XML cannot hold");
      }
      if (utf8_bytes > k_max_text_bytes) return fail("a text too long for a document");
      if (!write_raw(m_scratch)) {
        return DAS_E_FAIL;
      }
    }
  } else if (type != vtNull && type != vtDummy) {
    m_scratch.clear();
    internal::append_number_text(m_scratch, value);
    if (!write_raw(m_scratch)) {
      return DAS_E_FAIL;
    }
  }
  return end_element() ? DAS_OK : DAS_E_FAIL;
}

int element_writer_t::start_pointer(wchar_t const* name, variant_t const& value,
                                    variant_bag_t& data, bool& open) {
  open = false;
  notype_ptr_t const pointer = value.get<notype_ptr_t>();
  if (!start_element(name)) return fail("an entry name that XML cannot hold");
  if (!attribute("type", "pointer")) return DAS_E_FAIL;
  if (pointer.is_null()) {
    wchar_t const* ptr_type = pointer.get_ptr_type_as_string();
    if (!attribute("type_id", "dasID_None") ||
        !wide_attribute("ptr_type", ptr_type != nullptr ? ptr_type : L"dasID_None")) {
      return fail("a type name with characters that XML cannot hold");
    }
    return end_element() ? DAS_OK : DAS_E_FAIL;
  }
  if (!wide_attribute("type_id", pointer.get_obj_type_as_string())) {
    return fail("a type name with characters that XML cannot hold");
  }
  if (pointer.get_ptr_type() != pointer.get_object_type()) {
    if (wchar_t const* ptr_type = pointer.get_ptr_type_as_string()) {
      if (!wide_attribute("ptr_type", ptr_type)) {
        return fail("a type name with characters that XML cannot hold");
      }
    }
  }
  sptr_t<serializable_object_interface_t> object;
  int result = pointer.get_serializable_object(object);
  if (das_failed(result)) {
    m_why = "an object that cannot be saved";
    return result;
  }
  result = object->save(data);
  if (das_failed(result)) {
    m_why = "an object whose save failed";
    return result;
  }
  open = true;
  return DAS_OK;
}

int element_writer_t::write_bag(variant_bag_t const& top) {
  std::deque<frame_t> stack;
  stack.emplace_back();
  stack.back().bag = &top;
  while (!stack.empty()) {
    frame_t& frame = stack.back();
    variant_bag_t const& bag = *frame.bag;
    m_ahead = stack.size() >= 2 ? &stack[stack.size() - 2].runahead : nullptr;
    if (frame.pass == 0) {
      for (auto it = bag.begin<variant_t>(); !it.at_end(); it.next()) {
        if (it.get_value().get_type() == vtNotypePtr) continue;
        int const result = write_value(it.get_name(), it.get_value());
        if (das_failed(result)) return result;
        step();
      }
      frame.values = bag.begin<variant_t>();
      frame.pass = 1;
    }
    if (frame.pass == 1) {
      while (!frame.values.at_end() && frame.values.get_value().get_type() != vtNotypePtr) {
        frame.values.next();
      }
      if (!frame.values.at_end()) {
        variant_t const& value = frame.values.get_value();
        wchar_t const* name = frame.values.get_name();
        frame.values.next();
        // The object's data lives in the frame that writes it (a deque keeps it in place).
        frame_t& inner = stack.emplace_back();
        inner.bag = &inner.object_data;
        bool open = false;
        int const result = start_pointer(name, value, inner.object_data, open);
        if (das_failed(result)) return result;
        if (!open) stack.pop_back();
        continue;
      }
      internal::bag_impl_base_t<variant_bag_t> const& children =
          internal::vb_helper::impl<variant_bag_t>(bag);
      frame.children_end = children.end();
      frame.child = internal::first_visible(children.first(), frame.children_end);
      frame.pass = 2;
    }
    if (frame.child != frame.children_end) {
      internal::bag_node_base_t const* const node = frame.child;
      variant_bag_t const& child = internal::bag_impl_base_t<variant_bag_t>::node_of(node)->m_value;
      wchar_t const* name = node->m_name;
      frame.child = internal::first_visible(node->m_next, frame.children_end);
      frame.runahead.start(frame.child, frame.children_end);
      if (!start_element(name)) return fail("an entry name that XML cannot hold");
      if (child.is_empty()) {
        if (!attribute("type", "bag") || !end_element()) return DAS_E_FAIL;
      } else {
        stack.emplace_back();
        stack.back().bag = &child;
      }
      continue;
    }
    stack.pop_back();
    if (!stack.empty() && !end_element()) return DAS_E_FAIL;
  }
  return DAS_OK;
}

int element_writer_t::write_document(variant_bag_t const& bag) {
  m_printer.declaration();
  m_printer.start("root", 4);
  m_depth = 1;
  int const result = write_bag(bag);
  if (das_failed(result)) return result;
  m_printer.end();
  return DAS_OK;
}

}  // namespace

int internal::write_element_form(variant_bag_t const& bag, std::string& out, std::string& why) {
  // Documents of one program tend to be of one size: room for the last one saves the
  // copies of a growing buffer. Untouched room costs address space only.
  static std::atomic<std::size_t> last_size{0};
  out.clear();
  out.reserve(std::max<std::size_t>(65536, last_size.load(std::memory_order_relaxed)));
  internal::posix::advise_huge_pages(out.data(), out.capacity());
  element_writer_t element_writer(out);
  int const result = element_writer.write_document(bag);
  why = element_writer.why();
  if (das_failed(result)) {
    out.clear();
  } else {
    last_size.store(out.size() + out.size() / 8, std::memory_order_relaxed);
  }
  return result;
}

}  // namespace quillon2
