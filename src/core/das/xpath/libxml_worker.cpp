// The mirror document: building it from tree events and evaluating XPath over it.
//
// Nodes are linked by hand rather than through xmlAddChild/xmlNewProp: libxml2 walks the
// whole attribute list for each new attribute and merges adjacent text nodes, while here
// an element of 100,000 values costs linear time and every text keeps its own source.
//
// libxml2 reports XPath errors to the context's structured handler, set per query; the
// few messages it prints through its generic handler go, for the time of the query and
// on this thread only, to the same collector. Nothing reaches standard error directly.
#include "core/das/xpath/include/libxml_worker.hpp"

#include <algorithm>
#include <climits>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <cwchar>
#include <memory>
#include <string>

#include <libxml/xmlerror.h>
#include <libxml/xpath.h>

#include <quillon2/core/assert.hpp>

#include "core/das/include/das_assert.hpp"
#include "core/das/include/variant_text.hpp"
#include "core/das/include/xml_safety.hpp"
#include "core/miscellaneous/include/logging.hpp"

namespace quillon2::internal {

namespace {

// Links `node` as the last child of `parent` by hand and marks it with its source, so that
// libxml2 never merges it into a neighbour.
void append_child(xmlNodePtr parent, xmlNodePtr node, void* tag) {
  node->_private = tag;
  node->parent = parent;
  if (parent->children == nullptr) {
    parent->children = node;
  } else {
    node->prev = parent->last;
    parent->last->next = node;
  }
  parent->last = node;
}

// What libxml2 said while one query ran: the first message of each channel.
struct xpath_errors_t {
  int code = 0;
  std::string message;
  std::string generic;
};

void trim_line_ends(std::string& text) {
  while (!text.empty() && (text.back() == '\n' || text.back() == ' ')) text.pop_back();
}

void on_structured_error(void* data, xmlErrorPtr error) {
  auto* const errors = static_cast<xpath_errors_t*>(data);
  if (errors == nullptr || error == nullptr || errors->code != 0) return;
  errors->code = error->code != 0 ? error->code : -1;
  if (error->message != nullptr) errors->message = error->message;
  trim_line_ends(errors->message);
}

thread_local xpath_errors_t* t_errors = nullptr;

void on_generic_error(void*, char const* format, ...) {
  if (t_errors == nullptr || !t_errors->generic.empty() || format == nullptr) return;
  char text[512];
  va_list args;
  va_start(args, format);
  std::vsnprintf(text, sizeof text, format, args);
  va_end(args);
  t_errors->generic = text;
  trim_line_ends(t_errors->generic);
}

// Routes this thread's generic libxml2 messages to `errors` while it lives.
class generic_error_guard_t {
 public:
  explicit generic_error_guard_t(xpath_errors_t& errors)
      : m_handler(xmlGenericError), m_context(xmlGenericErrorContext), m_outer(t_errors) {
    t_errors = &errors;
    xmlSetGenericErrorFunc(nullptr, &on_generic_error);
  }
  generic_error_guard_t(generic_error_guard_t const&) = delete;
  generic_error_guard_t& operator=(generic_error_guard_t const&) = delete;
  ~generic_error_guard_t() {
    xmlSetGenericErrorFunc(m_context, m_handler);
    t_errors = m_outer;
  }

 private:
  xmlGenericErrorFunc m_handler;
  void* m_context;
  xpath_errors_t* m_outer;
};

struct context_deleter_t {
  void operator()(xmlXPathContext* context) const { xmlXPathFreeContext(context); }
};
struct object_deleter_t {
  void operator()(xmlXPathObject* object) const { xmlXPathFreeObject(object); }
};

std::wstring wide_of(std::string const& utf8) {
  std::wstring wide;
  append_utf8_as_wide(wide, utf8.data(), utf8.size());
  return wide;
}

void log_failure(wchar_t const* expression, xpath_errors_t const& errors) {
  int const code = errors.code - XML_XPATH_EXPRESSION_OK + XPATH_EXPRESSION_OK;
  bool const stopped = code == XPATH_OP_LIMIT_EXCEEDED || code == XPATH_RECURSION_LIMIT_EXCEEDED;
  std::wstring why = wide_of(!errors.message.empty() ? errors.message : errors.generic);
  if (code == XPATH_OP_LIMIT_EXCEEDED) why = L"operation limit reached";
  if (code == XPATH_RECURSION_LIMIT_EXCEEDED) why = L"expression nested too deeply";
  if (why.empty()) why = L"libxml2 XPath error " + std::to_wstring(errors.code);
  // Long expressions are cut: the log line should stay readable.
  std::wstring shown(expression, std::min<std::size_t>(std::wcslen(expression), 200));
  if (shown.size() < std::wcslen(expression)) shown += L"...";
  if (stopped) {
    Q2_LOG(main_logger(), log_error, L"XPath query stopped (" << why << L"): " << shown);
  } else {
    Q2_LOG(main_logger(), log_info,
           L"cannot evaluate XPath expression (" << why << L"): " << shown);
  }
}

void deliver_node_set(xmlNodeSetPtr set, libxml_worker_sink_t& sink) {
  if (set == nullptr) return;
  for (int i = 0; i < set->nodeNr; ++i) {
    xmlNodePtr const node = set->nodeTab[i];
    switch (node->type) {
      case XML_ELEMENT_NODE:
        sink.add_node(node->_private);
        break;
      case XML_ATTRIBUTE_NODE:
      case XML_TEXT_NODE:
        sink.add_property(node->_private);
        break;
      default:
        Q2_DAS_ASSERT_TEXT("Unexpected!");
        break;
    }
  }
}

}  // namespace

libxml_worker_impl_t::libxml_worker_impl_t() {
  ensure_xml_safety();
  m_doc = xmlNewDoc(nullptr);
  m_current_node = reinterpret_cast<xmlNodePtr>(m_doc);
}

libxml_worker_impl_t::~libxml_worker_impl_t() {
  if (m_doc != nullptr) xmlFreeDoc(m_doc);
}

void libxml_worker_impl_t::begin_element(char const* name, void* tag) {
  if (m_lost_depth != 0) {
    ++m_lost_depth;
    return;
  }
  xmlNodePtr node = xmlNewDocNode(m_doc, nullptr, reinterpret_cast<xmlChar const*>(name), nullptr);
  QUILLON_ASSERT(node != NULL);
  if (node == nullptr) {
    ++m_lost_depth;
    return;
  }
  append_child(m_current_node, node, tag);
  m_current_node = node;
  m_ordered = false;
}

void libxml_worker_impl_t::add_attribute(char const* name, char const* value, void* tag) {
  if (m_lost_depth != 0) return;
  xmlAttrPtr node = nullptr;
  if (m_current_node->type == XML_ELEMENT_NODE) {
    node = xmlNewNsProp(nullptr, nullptr, reinterpret_cast<xmlChar const*>(name),
                        reinterpret_cast<xmlChar const*>(value));
  }
  QUILLON_ASSERT(node != NULL);
  if (node == nullptr) return;
  node->_private = tag;
  node->parent = m_current_node;
  node->doc = m_doc;
  for (xmlNodePtr text = node->children; text != nullptr; text = text->next) text->doc = m_doc;
  xmlAttrPtr last = m_last_attribute_owner == m_current_node ? m_last_attribute : nullptr;
  if (last == nullptr && m_current_node->properties != nullptr) {
    last = m_current_node->properties;
    while (last->next != nullptr) last = last->next;
  }
  if (last == nullptr) {
    m_current_node->properties = node;
  } else {
    last->next = node;
    node->prev = last;
  }
  m_last_attribute = node;
  m_last_attribute_owner = m_current_node;
}

void libxml_worker_impl_t::add_text(char const* text, std::size_t length, void* tag) {
  // An empty text makes no node; the document itself holds no text.
  if (m_lost_depth != 0 || length == 0 || m_current_node->type != XML_ELEMENT_NODE) return;
  if (length > static_cast<std::size_t>(INT_MAX)) length = static_cast<std::size_t>(INT_MAX);
  xmlNodePtr node =
      xmlNewDocTextLen(m_doc, reinterpret_cast<xmlChar const*>(text), static_cast<int>(length));
  QUILLON_ASSERT(node != NULL);
  if (node == nullptr) return;
  // Linked by hand: libxml2 would merge it into a text before it and lose its source.
  append_child(m_current_node, node, tag);
}

void libxml_worker_impl_t::end_element() {
  if (m_lost_depth != 0) {
    --m_lost_depth;
    return;
  }
  m_current_node = m_current_node->parent;
}

void libxml_worker_impl_t::on_node_begin(wchar_t const* name, void* tag) {
  QUILLON_ASSERT(m_current_node);
  if (!m_current_node) return;
  m_name_text.clear();
  if (name == nullptr) {
    m_name_text = "bag";
  } else {
    append_wide_as_utf8(m_name_text, name, std::wcslen(name));
  }
  begin_element(m_name_text.c_str(), tag);
}

void libxml_worker_impl_t::on_property(wchar_t const* name, wchar_t const* value, void* tag) {
  QUILLON_ASSERT(m_current_node);
  if (!m_current_node) return;
  m_value_text.clear();
  if (value != nullptr) append_wide_as_utf8(m_value_text, value, std::wcslen(value));
  if (name == nullptr) {
    add_text(m_value_text.data(), m_value_text.size(), tag);
    return;
  }
  m_name_text.clear();
  append_wide_as_utf8(m_name_text, name, std::wcslen(name));
  add_attribute(m_name_text.c_str(), m_value_text.c_str(), tag);
}

void libxml_worker_impl_t::on_node_end() {
  QUILLON_ASSERT(m_current_node);
  if (!m_current_node) return;
  end_element();
}

void libxml_worker_impl_t::select(wchar_t const* xpathExpr, libxml_worker_sink_t& sink) {
  QUILLON_ASSERT(xpathExpr);
  if (xpathExpr == nullptr || m_doc == nullptr) {
    sink.set_error(1);
    return;
  }
  if (!m_ordered) {
    // Numbers the elements, so that sorting node sets compares two numbers instead of
    // walking up to a common ancestor (which costs the depth on deep documents).
    xmlXPathOrderDocElems(m_doc);
    m_ordered = true;
  }
  std::unique_ptr<xmlXPathContext, context_deleter_t> context(xmlXPathNewContext(m_doc));
  if (!context) {
    sink.set_error(1);
    return;
  }
  xpath_errors_t errors;
  context->error = &on_structured_error;
  context->userData = &errors;
  context->opLimit = m_operation_limit;
  context->opCount = 0;

  std::string expression;
  append_wide_as_utf8(expression, xpathExpr, std::wcslen(xpathExpr));
  std::unique_ptr<xmlXPathObject, object_deleter_t> result;
  {
    generic_error_guard_t const guard(errors);
    result.reset(xmlXPathEvalExpression(reinterpret_cast<xmlChar const*>(expression.c_str()),
                                        context.get()));
  }
  if (!result) {
    log_failure(xpathExpr, errors);
    sink.set_error(1);
    return;
  }
  switch (result->type) {
    case XPATH_NODESET:
    case XPATH_XSLT_TREE:
      deliver_node_set(result->nodesetval, sink);
      break;
    case XPATH_BOOLEAN:
      sink.set_value(variant_t(result->boolval != 0));
      break;
    case XPATH_NUMBER:
      sink.set_value(variant_t(result->floatval));
      break;
    case XPATH_STRING: {
      char const* const text = reinterpret_cast<char const*>(result->stringval);
      sink.set_value(text != nullptr ? wide_variant_from_utf8(text, std::strlen(text))
                                     : variant_t(L"", false));
      break;
    }
    default: {
      xmlChar* const text = xmlXPathCastToString(result.get());
      Q2_DAS_ASSERT_TEXT("Unexpected!");
      xmlFree(text);
      break;
    }
  }
}

sptr_t<libxml_worker_t> create_libxml_worker() {
  return sptr_t<libxml_worker_t>(new ref_counted_t<libxml_worker_impl_t, mt_ref_count_impl_t>());
}

}  // namespace quillon2::internal
