// Extension functions: the XPath function libxslt calls, node sets to bags, bags to
// documents of the run, and values both ways.
//
// This code runs between libxslt's frames: nothing may throw out of it. A client's
// exception or a failed conversion is reported through the failure check and stops the
// run through libxslt (an XPath error for the expression, the stopped state for the run).
#include <cstring>
#include <string>
#include <vector>

#include <libxml/xpathInternals.h>
#include <libxslt/extensions.h>
#include <libxslt/transform.h>

#include <quillon2/core/check.hpp>
#include <quillon2/core/threading/mutex.hpp>
#include <quillon2/das/variant.hpp>
#include <quillon2/das/variant_bag.hpp>
#include <quillon2/das/variant_bag_serialization2.hpp>

#include "core/das/include/das_assert.hpp"
#include "core/das/include/variant_text.hpp"
#include "core/das/include/xml_safety.hpp"
#include "core/das/xsl/include/xsl_extensions.hpp"
#include "core/das/xsl/include/xsl_impl.hpp"

namespace quillon2 {

namespace {

bool is_success(int result) { return (result & 0x40000000) == 0; }

// A failed conversion between libxslt's frames: reported through the failure check; the
// caller then fails the expression.
void report_failure(char const* condition, std::string const& text) {
  QUILLON2_CHECK_FAILED(condition, "error::FailedTo.Convert.The.Value(text)",
                        error::FailedTo.Convert.The.Value(text));
}

// A node set as the bag "bag" holding the nodes; empty for a null or empty set.
bool to_variant_bag(xmlNodeSetPtr nodes, variant_bag_t& bag) {
  std::string text = "<bag>";
  for (int i = 0; nodes != nullptr && i < nodes->nodeNr; ++i) {
    xmlNodePtr const node = nodes->nodeTab[i];
    if (node == nullptr) continue;
    xmlBufferPtr buffer = xmlBufferCreate();
    QUILLON_ASSERT(buffer != NULL);
    if (buffer == nullptr) return false;
    xmlNodeDump(buffer, node->doc, node, 0, 1);
    std::string dump(reinterpret_cast<char const*>(xmlBufferContent(buffer)),
                     static_cast<std::size_t>(xmlBufferLength(buffer)));
    xmlBufferFree(buffer);
    std::size_t const declaration_end = dump.find("?>");
    if (declaration_end != std::string::npos) dump.erase(0, declaration_end + 2);
    text += dump;
  }
  text += "</bag>";
  int const err = load_variant_bag_from_string2(bag, text, L"bag");
  if (!is_success(err)) {
    report_failure("is_success(err)", "a node set that is no bag");
    return false;
  }
  return true;
}

variant_t to_variant(xmlXPathObjectPtr object) {
  switch (object->type) {
    case XPATH_BOOLEAN:
      return variant_t(object->boolval != 0);
    case XPATH_NUMBER:
      return variant_t(object->floatval);
    case XPATH_STRING: {
      char const* const text = reinterpret_cast<char const*>(object->stringval);
      return internal::wide_variant_from_utf8(text != nullptr ? text : "",
                                              text != nullptr ? std::strlen(text) : 0);
    }
    default:
      return variant_t();
  }
}

// A value as an XPath object; null for a type that has none.
xmlXPathObjectPtr to_xpath_object(variant_t const& value) {
  das_variant_type_t const type = value.get_type();
  if (type == vtBool) return xmlXPathNewBoolean(value.get<bool>() ? 1 : 0);
  if (type >= vtSByte && type <= vtDouble) return xmlXPathNewFloat(value.get<double>());
  if (type == vtWString || type == vtWCharPtr) {
    std::string text;
    wchar_t const* const wide = value.get<wchar_t const*>();
    internal::append_wide_as_utf8(text, wide, wide != nullptr ? std::wcslen(wide) : 0);
    return xmlXPathNewCString(text.c_str());
  }
  // Narrow text is UTF-8 in this library: it becomes a string too.
  if (type == vtString || type == vtCharPtr) {
    char const* const narrow = value.get<char const*>();
    return xmlXPathNewCString(narrow != nullptr ? narrow : "");
  }
  if (type == vtNull) return xmlXPathNewCString("");
  report_failure("can_get<s64_t>()", "a result value without an XPath form");
  return nullptr;
}

// A bag result as a document of the run: libxslt frees it with the run's other result
// tree fragments, whoever still refers to it (variables, keys).
xmlXPathObjectPtr to_node_set(xsltTransformContextPtr context, variant_bag_t const& bag) {
  std::string text;
  int const err = save_variant_bag_to_string2(bag, text, L"bag");
  if (!is_success(err)) {
    report_failure("is_success(err)", "a result bag that cannot be saved");
    return nullptr;
  }
  std::string why;
  xmlDocPtr parsed = internal::parse_document(text.data(), text.size(), nullptr, nullptr, 0, why);
  if (parsed == nullptr) {
    report_failure("is_success(err)", "a result bag that cannot be read: " + why);
    return nullptr;
  }
  xmlDocPtr fragment = xsltCreateRVT(context);
  xmlNodePtr const root = xmlDocGetRootElement(parsed);
  xmlNodePtr const copy = fragment != nullptr && root != nullptr ? xmlDocCopyNode(root, fragment, 1)
                                                                 : nullptr;
  xmlFreeDoc(parsed);
  if (copy == nullptr) {
    if (fragment != nullptr) xsltReleaseRVT(context, fragment);
    return nullptr;
  }
  xmlAddChild(reinterpret_cast<xmlNodePtr>(fragment), copy);
  xsltRegisterLocalRVT(context, fragment);
  return xmlXPathNewNodeSet(reinterpret_cast<xmlNodePtr>(fragment));
}

// Pops a function's arguments and frees them whatever happens.
struct arguments_t {
  std::vector<xmlXPathObjectPtr> m_objects;  // last argument first
  ~arguments_t() {
    for (xmlXPathObjectPtr object : m_objects) xmlXPathFreeObject(object);
  }
};

void fail_expression(xmlXPathParserContextPtr ctxt, int code) {
  xmlXPatherror(ctxt, __FILE__, __LINE__, code);
  ctxt->error = code;
}

}  // namespace

void xsl_impl_t::call_extension_function(std::string const& name, int nargs,
                                         xmlXPathParserContextPtr ctxt) {
  auto const it = m_functions.find(name);
  QUILLON_ASSERT(it != m_functions.end());
  if (it == m_functions.end()) return fail_expression(ctxt, XPATH_UNKNOWN_FUNC_ERROR);
  sptr_t<xsl_function_base_t> const fun = it->second;
  if (!fun) {
    Q2_DAS_ASSERT_TEXT("!fun.is_null()");
    return fail_expression(ctxt, XPATH_UNKNOWN_FUNC_ERROR);
  }
  threading::mutex_t* const mutex = fun->get_mutex();
  struct lock_t {
    threading::mutex_t* m_mutex;
    explicit lock_t(threading::mutex_t* mutex) : m_mutex(mutex) {
      if (m_mutex != nullptr) m_mutex->acquire();
    }
    ~lock_t() {
      if (m_mutex != nullptr) m_mutex->release();
    }
  } lock(mutex);

  arguments_t arguments;
  for (int i = 0; i < nargs; ++i) {
    xmlXPathObjectPtr const obj = valuePop(ctxt);
    QUILLON_ASSERT(obj != NULL);
    if (obj == nullptr) return fail_expression(ctxt, XPATH_INVALID_ARITY);
    arguments.m_objects.push_back(obj);
  }
  for (xmlXPathObjectPtr const object : arguments.m_objects) {
    bool accepted = false;
    if (object->type == XPATH_NODESET || object->type == XPATH_XSLT_TREE) {
      variant_bag_t bag;
      if (!to_variant_bag(object->nodesetval, bag)) return fail_expression(ctxt, XPATH_INVALID_TYPE);
      accepted = fun->add_argument(bag);
    } else {
      accepted = fun->add_argument(to_variant(object));
    }
    if (!accepted) return fail_expression(ctxt, XPATH_INVALID_ARITY);
  }

  unsigned const result_type = fun->get_result_type();
  xmlXPathObjectPtr result = nullptr;
  if (result_type == 0) return fail_expression(ctxt, XPATH_INVALID_TYPE);
  if (result_type == 1) {
    variant_t value;
    fun->get_result(value);
    result = to_xpath_object(value);
  } else if (result_type == 2) {
    variant_bag_t bag;
    fun->get_result(bag);
    result = to_node_set(xsltXPathGetTransformContext(ctxt), bag);
  } else {
    Q2_DAS_ASSERT_TEXT("unexpected!");
  }
  if (result == nullptr) return fail_expression(ctxt, XPATH_INVALID_TYPE);
  valuePush(ctxt, result);
}

namespace internal {

void extension_function(xmlXPathParserContextPtr ctxt, int nargs) {
  if (ctxt == nullptr) return;
  xsltTransformContextPtr const transform_context = xsltXPathGetTransformContext(ctxt);
  QUILLON_ASSERT(transform_context != NULL);
  if (transform_context == nullptr || transform_context->_private == nullptr) {
    return fail_expression(ctxt, XPATH_UNKNOWN_FUNC_ERROR);
  }
  auto* const self = static_cast<xsl_impl_t*>(transform_context->_private);
  char const* const name = reinterpret_cast<char const*>(ctxt->context->function);
  try {
    self->call_extension_function(name != nullptr ? name : "", nargs, ctxt);
  } catch (...) {
    report_client_exception("xsl_function_base_t");
    fail_expression(ctxt, XPATH_EXPR_ERROR);
    stop_transformation(transform_context, "an extension function failed");
  }
}

}  // namespace internal
}  // namespace quillon2
