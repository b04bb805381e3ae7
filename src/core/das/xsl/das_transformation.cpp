// xsl_impl_t: documents, stylesheets, parameters and the transformation itself.
#include <charconv>
#include <cstdarg>
#include <cstdio>
#include <cmath>
#include <cstring>
#include <string>

#include <boost/numeric/conversion/cast.hpp>
#include <libxml/xmlsave.h>
#include <libxslt/extensions.h>
#include <libxslt/imports.h>
#include <libxslt/security.h>
#include <libxslt/transform.h>
#include <libxslt/variables.h>
#include <libxslt/xsltutils.h>

#include <quillon2/das/variant.hpp>
#include <quillon2/das/variant_bag.hpp>
#include <quillon2/das/variant_bag_serialization.hpp>
#include <quillon2/das/variant_bag_serialization2.hpp>

#include "core/das/include/das_assert.hpp"
#include "core/das/include/variant_text.hpp"
#include "core/das/include/xml_file_io.hpp"
#include "core/das/include/xml_safety.hpp"
#include "core/das/xsl/include/xsl_extensions.hpp"
#include "core/das/xsl/include/xsl_impl.hpp"
#include "core/miscellaneous/include/logging.hpp"

namespace quillon2 {

namespace {

constexpr int k_done = 1;
constexpr int k_failed = 0x40000001;
constexpr int k_parameter_rejected = 0x40000069;
constexpr int k_not_ready = 0x4000006B;

// The EXSLT common namespace, under which the stylesheet calls extension functions.
constexpr char const* k_exslt_common = "http://exslt.org/common";

std::string to_utf8(wchar_t const* text) {
  std::string out;
  if (text != nullptr) internal::append_wide_as_utf8(out, text, std::wcslen(text));
  return out;
}

// The line number of a document's last node: the total that progress lines are read
// against.
int get_biggest_line(xmlDocPtr doc) {
  if (doc == nullptr) return 0;
  xmlNodePtr node = doc->last;
  if (node == nullptr) return 0;
  while (node->last != nullptr) {
    QUILLON_ASSERT(!node->next);
    node = node->last;
  }
  return static_cast<int>(xmlGetLineNo(node));
}

// Whether the stylesheet, or one it imports, says <xsl:output method="text">.
bool has_text_method(xsltStylesheetPtr style) {
  xmlChar const* method = nullptr;
  XSLT_GET_IMPORT_PTR(method, style, method);
  return method != nullptr && xmlStrEqual(method, BAD_CAST "text");
}

void log_unreadable(char const* xml, int line) {
  Q2_LOG(internal::main_logger(), internal::log_error,
         L"failed to read xml!" << xml << L", at file: " << __FILE__ << L"(" << line << L")");
}

// The transformation error function of our contexts: the object's visitor hears it.
void transform_error(void* context, char const* format, ...) {
  auto* const visitor = static_cast<xsl_visitor_t*>(context);
  if (visitor == nullptr || format == nullptr || std::strcmp(format, "\n") == 0) return;
  char buffer[8192];
  std::memset(buffer, 0, sizeof buffer);
  va_list args;
  va_start(args, format);
  std::vsnprintf(buffer, sizeof buffer - 1, format, args);
  va_end(args);
  internal::deliver_message(visitor, buffer);
}

// Security preferences of one run: reading is gated by our loader; writing and directory
// creation only when the client opted in.
xsltSecurityPrefsPtr make_security_prefs(unsigned permissions) {
  xsltSecurityPrefsPtr prefs = xsltNewSecurityPrefs();
  if (prefs == nullptr) return nullptr;
  auto const rule = [permissions](unsigned bit) {
    return (permissions & bit) != 0 ? xsltSecurityAllow : xsltSecurityForbid;
  };
  xsltSetSecurityPrefs(prefs, XSLT_SECPREF_WRITE_FILE, rule(xsl_allow_write_file));
  xsltSetSecurityPrefs(prefs, XSLT_SECPREF_CREATE_DIRECTORY, rule(xsl_allow_create_directory));
  xsltSetSecurityPrefs(prefs, XSLT_SECPREF_WRITE_NETWORK, rule(xsl_allow_write_network));
  xsltSetSecurityPrefs(prefs, XSLT_SECPREF_READ_FILE, xsltSecurityAllow);
  xsltSetSecurityPrefs(prefs, XSLT_SECPREF_READ_NETWORK, xsltSecurityAllow);
  return prefs;
}

}  // namespace

sptr_t<xsl_t> xsl_t::create() {
  internal::extentions_t::instance();
  return sptr_t<xsl_t>(new ref_counted_t<xsl_impl_t, mt_ref_count_impl_t>());
}

xsl_impl_t::xsl_impl_t() = default;

xsl_impl_t::~xsl_impl_t() {
  free_document();
  if (m_stylesheet != nullptr) xsltFreeStylesheet(m_stylesheet);
  m_stylesheet = nullptr;
  if (m_visitor_replaced) internal::extentions_t::tls().m_visitor_ptr = m_previous_visitor;
  if (m_reader_replaced) internal::extentions_t::tls().m_file_reader = m_previous_reader;
  m_parameters.clear();
  m_functions.clear();
}

void xsl_impl_t::free_document() {
  if (m_docXml != nullptr) xmlFreeDoc(m_docXml);
  m_docXml = nullptr;
}

int xsl_impl_t::add_parameter(wchar_t const* name, wchar_t const* value_xpath, bool is_xpath) {
  parameter_t& parameter = m_parameters[to_utf8(name)];
  parameter.value = to_utf8(value_xpath);
  parameter.is_xpath = is_xpath;
  return k_done;
}

int xsl_impl_t::add_parameter(wchar_t const* name, variant_t const& value_xpath) {
  QUILLON_ASSERT(value_xpath.get_type() != ql2::vtBlob);
  if (value_xpath.get_type() == vtBlob) return k_failed;
  parameter_t parameter;
  switch (value_xpath.get_type()) {
    case vtWString:
    case vtWCharPtr:
      parameter.value = to_utf8(value_xpath.get<wchar_t const*>());
      break;
    case vtString:
    case vtCharPtr:
      // Narrow text is UTF-8 in this library: a string like wide text.
      parameter.value = value_xpath.get<char const*>();
      break;
    case vtNull:
      break;
    case vtBool:
      parameter.value = value_xpath.get<bool>() ? "true()" : "false()";
      parameter.is_xpath = true;
      break;
    case vtFloat:
    case vtDouble:
      parameter.value = internal::xpath_number_literal(value_xpath);
      parameter.is_xpath = true;
      break;
    default:
      internal::append_number_text(parameter.value, value_xpath);
      parameter.is_xpath = true;
      break;
  }
  m_parameters[to_utf8(name)] = std::move(parameter);
  return k_done;
}

bool xsl_impl_t::add_function(sptr_t<xsl_function_base_t> function_ptr) {
  if (!function_ptr) {
    Q2_DAS_ASSERT_TEXT("!function_ptr.is_null()");
    return false;
  }
  std::wstring name;
  function_ptr->get_name(name);
  return m_functions.emplace(to_utf8(name.c_str()), std::move(function_ptr)).second;
}

bool xsl_impl_t::add_function(void const*, xsl_function_base_t* function) {
  return add_function(sptr_t<xsl_function_base_t>(function));
}

bool xsl_impl_t::add_functions(generic_iterator_t<sptr_t<xsl_function_base_t>> functions) {
  if (functions.get_handler() == nullptr) return false;
  for (; !functions.at_end(); functions.next()) add_function(functions.current());
  return true;
}

void xsl_impl_t::clear_parameters() { m_parameters.clear(); }

void xsl_impl_t::clear_functions() { m_functions.clear(); }

bool xsl_impl_t::set_xml(char const* xml) {
  free_document();
  internal::run_state_t state;
  internal::run_scope_t scope(state);
  std::string why;
  char const* const text = xml != nullptr ? xml : "";
  m_docXml = internal::parse_document(text, std::strlen(text), nullptr, nullptr, 0, why, "utf-8");
  if (m_docXml == nullptr) {
    log_unreadable(text, __LINE__);
    internal::deliver_thread_message(("failed to read xml: " + why + "\n").c_str());
    return false;
  }
  return true;
}

bool xsl_impl_t::set_xml_path(wchar_t const* path) {
  free_document();
  internal::run_state_t state;
  internal::run_scope_t scope(state);
  std::string const uri = to_utf8(path);
  std::string const native = internal::native_file_name(path != nullptr ? path : L"");
  xmlDocPtr const ptr = internal::load_document(uri.c_str(), nullptr, 0, &native);
  QUILLON_ASSERT(ptr);
  m_docXml = ptr;
  return ptr != nullptr;
}

bool xsl_impl_t::set_xml(variant_bag_t const& bag) {
  std::string text;
  if ((save_variant_bag_to_string2(bag, text, L"bag") & 0x40000000) != 0) return false;
  return set_xml(text.c_str());
}

bool xsl_impl_t::set_stylesheet(char const* xml) {
  internal::run_state_t state;
  internal::run_scope_t scope(state);
  std::string why;
  char const* const text = xml != nullptr ? xml : "";
  xmlDocPtr doc = internal::parse_document(text, std::strlen(text), nullptr, nullptr, 0, why, "utf-8");
  if (doc == nullptr) {
    log_unreadable(text, __LINE__);
    internal::deliver_thread_message(("failed to read xml: " + why + "\n").c_str());
    return false;
  }
  return update_stylesheet(doc);
}

bool xsl_impl_t::set_stylesheet_path(wchar_t const* path) {
  internal::run_state_t state;
  internal::run_scope_t scope(state);
  std::string const uri = to_utf8(path);
  std::string const native = internal::native_file_name(path != nullptr ? path : L"");
  xmlDocPtr const ptr = internal::load_document(uri.c_str(), nullptr, 0, &native);
  QUILLON_ASSERT(ptr);
  if (ptr == nullptr) return false;
  return update_stylesheet(ptr);
}

bool xsl_impl_t::set_stylesheet(variant_bag_t const& bag) {
  std::string text;
  if ((save_variant_bag_to_string2(bag, text, bag.get_name()) & 0x40000000) != 0) return false;
  // A bag without an element of the XSLT prefix holds no stylesheet.
  if (text.find("<xsl:") == std::string::npos) return false;
  kesmet2::replace_all(text, "<stylesheet", "<xsl:stylesheet");
  kesmet2::replace_all(text, "</stylesheet>", "</xsl:stylesheet>");
  return set_stylesheet(text.c_str());
}

bool xsl_impl_t::update_stylesheet(xmlDocPtr doc) {
  if (m_stylesheet != nullptr) xsltFreeStylesheet(m_stylesheet);
  // Imports and includes load through our loader while the scope of the caller lasts.
  m_stylesheet = xsltParseStylesheetDoc(doc);
  QUILLON_ASSERT(m_stylesheet);
  // A refused document stays the caller's (libxslt 1.1).
  if (m_stylesheet == nullptr) xmlFreeDoc(doc);
  return m_stylesheet != nullptr;
}

namespace {

// Puts `value` in the calling thread's slot. The first replacement remembers what was there
// before this object, to be put back when it dies; clearing an empty slot that this object
// never filled touches nothing.
template <class T>
void replace_thread_slot(T* value, T*& slot, T*& previous, bool& replaced) {
  if (value == nullptr && !replaced && slot == nullptr) return;
  if (!replaced) previous = slot;
  replaced = true;
  slot = value;
}

}  // namespace

void xsl_impl_t::set_visitor(xsl_visitor_t* visitor) {
  m_visitor = visitor;
  replace_thread_slot(visitor, internal::extentions_t::tls().m_visitor_ptr, m_previous_visitor,
                      m_visitor_replaced);
}

void xsl_impl_t::set_reader(content_stream_factory_t* reader) {
  m_reader = reader;
  replace_thread_slot(reader, internal::extentions_t::tls().m_file_reader, m_previous_reader,
                      m_reader_replaced);
}

void xsl_impl_t::allow(unsigned permissions) { m_permissions = permissions; }

void xsl_impl_t::set_limits(int max_template_depth, int max_template_vars,
                            unsigned long max_xpath_operations) {
  if (max_template_depth > 0) m_max_template_depth = max_template_depth;
  if (max_template_vars > 0) m_max_template_vars = max_template_vars;
  if (max_xpath_operations > 0) m_max_xpath_operations = max_xpath_operations;
}

int xsl_impl_t::transform(KESMET_2_18::strings::ustring8& result) {
  if (m_stylesheet == nullptr || m_docXml == nullptr) {
    QUILLON_ASSERT(m_stylesheet && m_docXml);
    return k_not_ready;
  }
  internal::run_state_t state;
  state.m_visitor = m_visitor;
  internal::run_scope_t scope(state);
  auto const finish = [this](bool success) {
    if (m_visitor == nullptr) return;
    try {
      m_visitor->on_finish(success);
    } catch (...) {
      internal::report_client_exception("xsl_visitor_t::on_finish");
    }
  };
  if (m_visitor != nullptr) {
    try {
      m_visitor->on_start(get_biggest_line(m_docXml), get_biggest_line(m_stylesheet->doc));
    } catch (...) {
      internal::report_client_exception("xsl_visitor_t::on_start");
      finish(false);
      return k_failed;
    }
  }

  xsltTransformContextPtr context = xsltNewTransformContext(m_stylesheet, m_docXml);
  if (context == nullptr) {
    finish(false);
    return k_failed;
  }
  struct context_guard_t {
    xsltTransformContextPtr m_context;
    xsltSecurityPrefsPtr m_prefs = nullptr;
    ~context_guard_t() {
      xsltFreeTransformContext(m_context);
      if (m_prefs != nullptr) xsltFreeSecurityPrefs(m_prefs);
    }
  } guard{context};
  state.m_context = context;
  xsltSetTransformErrorFunc(context, m_visitor, &transform_error);
  guard.m_prefs = make_security_prefs(m_permissions);
  if (guard.m_prefs == nullptr || xsltSetCtxtSecurityPrefs(guard.m_prefs, context) != 0) {
    finish(false);
    return k_failed;
  }
  context->maxTemplateDepth = m_max_template_depth;
  context->maxTemplateVars = m_max_template_vars;
  if (context->xpathCtxt != nullptr) {
    context->xpathCtxt->opLimit = m_max_xpath_operations;
    context->xpathCtxt->opCount = 0;
  }
  // Only a run with a visitor pays for the per-instruction hook.
  context->debugStatus = m_visitor != nullptr ? XSLT_DEBUG_RUN : XSLT_DEBUG_NONE;
  // The context keeps the object for the extension functions.
  context->_private = this;

  for (auto const& [name, parameter] : m_parameters) {
    int const rc = parameter.is_xpath
                       ? xsltEvalOneUserParam(context, BAD_CAST name.c_str(),
                                              BAD_CAST parameter.value.c_str())
                       : xsltQuoteOneUserParam(context, BAD_CAST name.c_str(),
                                               BAD_CAST parameter.value.c_str());
    if (rc != 0) return k_parameter_rejected;
  }
  for (auto const& entry : m_functions) {
    xsltRegisterExtFunction(context, BAD_CAST entry.first.c_str(), BAD_CAST k_exslt_common,
                            &internal::extension_function);
  }

  xmlDocPtr const output = xsltApplyStylesheetUser(m_stylesheet, m_docXml, nullptr, nullptr,
                                                   nullptr, context);
  bool const stopped = state.m_stopped || context->debugStatus == XSLT_DEBUG_QUIT;
  bool const failed = state.m_failed || context->state != XSLT_STATE_OK;
  if (output == nullptr) {
    finish(false);
    return k_failed;
  }
  struct doc_guard_t {
    xmlDocPtr m_doc;
    ~doc_guard_t() { xmlFreeDoc(m_doc); }
  } output_guard{output};
  xmlChar* text = nullptr;
  int size = 0;
  xmlDocDumpMemoryEnc(output, &text, &size, "utf-8");
  if (text != nullptr) {
    result.assign(reinterpret_cast<char const*>(text));
    xmlFree(text);
    if (has_text_method(m_stylesheet)) internal::strip_text_output(result);
  }
  bool const success = !stopped && !failed;
  finish(success);
  return success ? k_done : k_failed;
}

namespace internal {

void strip_text_output(std::string& text) {
  std::size_t const declaration_end = text.find("?>");
  if (declaration_end != std::string::npos) text.erase(0, declaration_end + 2);
  kesmet2::replace_all(text, "&amp;", "&");
  kesmet2::replace_all(text, "&lt;", "<");
  kesmet2::replace_all(text, "&gt;", ">");
  if (text.find("&#x") == std::string::npos) return;
  // Each "&#x" followed by two to four hex digits and ";" becomes the one byte of that value.
  std::string out;
  out.reserve(text.size());
  std::size_t i = 0;
  auto const hex = [](char c) {
    return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
  };
  while (i < text.size()) {
    std::size_t const at = text.find("&#x", i);
    if (at == std::string::npos) break;
    out.append(text, i, at - i);
    std::size_t digits = 0;
    while (digits < 5 && at + 3 + digits < text.size() && hex(text[at + 3 + digits])) ++digits;
    std::size_t const semicolon = at + 3 + digits;
    if (digits >= 2 && digits <= 4 && semicolon < text.size() && text[semicolon] == ';') {
      unsigned value = 0;
      std::from_chars(text.data() + at + 3, text.data() + semicolon, value, 16);
      out.push_back(boost::numeric_cast<char>(value));
      i = semicolon + 1;
    } else {
      out.append("&#x");
      i = at + 3;
    }
  }
  out.append(text, i, std::string::npos);
  text.swap(out);
}

std::string xpath_number_literal(variant_t const& value) {
  double const number = value.get<double>();
  if (std::isnan(number)) return "number('NaN')";
  if (std::isinf(number)) return number > 0 ? "(1 div 0)" : "(-1 div 0)";
  // The value as the text form of values has it (six significant digits), written out
  // in full: XPath 1.0 has no exponents.
  std::string rounded;
  append_number_text(rounded, value);
  double const shown = parse_double(rounded.data(), rounded.size());
  char buffer[400];
  auto const result = std::to_chars(buffer, buffer + sizeof buffer, shown, std::chars_format::fixed);
  return std::string(buffer, result.ptr);
}

}  // namespace internal
}  // namespace quillon2
