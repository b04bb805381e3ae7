// The one-time registration with libxslt, the per-thread state and the hooks that libxslt
// calls without an object of ours: messages, progress and document loading.
#include "core/das/xsl/include/xsl_extensions.hpp"

#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <exception>

#include <libexslt/exslt.h>
#include <libxml/parserInternals.h>
#include <libxml/uri.h>
#include <libxslt/documents.h>
#include <libxslt/extensions.h>
#include <libxslt/transform.h>
#include <libxslt/xslt.h>
#include <libxslt/xsltutils.h>

#include <quillon2/core/check.hpp>

#include "core/das/include/xml_file_io.hpp"
#include "core/das/include/xml_safety.hpp"
#include "core/miscellaneous/include/logging.hpp"

namespace quillon2::internal {

namespace {

thread_local extentions_t::tls_t t_tls;
thread_local run_state_t* t_run = nullptr;

// Messages are formatted into a bounded buffer on the stack, nothing allocated first.
constexpr std::size_t k_message_size = 8192;

void format_message(char (&buffer)[k_message_size], char const* format, va_list args) {
  std::memset(buffer, 0, sizeof buffer);
  std::vsnprintf(buffer, sizeof buffer - 1, format != nullptr ? format : "", args);
}

}  // namespace

// The hooks, as one friend of extentions_t so that they can reach what it keeps.
struct hooks_t {
  // libxml2's per-thread generic error function while a run of ours is in progress.
  static void thread_message(void* /*context*/, char const* format, ...) {
    char buffer[k_message_size];
    va_list args;
    va_start(args, format);
    format_message(buffer, format, args);
    va_end(args);
    deliver_thread_message(buffer);
  }

  // libxslt's generic error function, process-wide: ours during our runs, otherwise the
  // one that was there before.
  static void xslt_message(void* /*context*/, char const* format, ...) {
    char buffer[k_message_size];
    va_list args;
    va_start(args, format);
    format_message(buffer, format, args);
    va_end(args);
    if (t_run != nullptr) {
      deliver_thread_message(buffer);
      return;
    }
    extentions_t& self = extentions_t::instance();
    if (self.m_previous_xslt_error != nullptr) {
      self.m_previous_xslt_error(self.m_previous_xslt_error_context, "%s", buffer);
    }
  }

  // libxslt's debugger hook, called for each instruction of a context whose debugStatus
  // is set. Only our own contexts have it set, but a host may set its own: check.
  static void progress(xmlNodePtr stylesheet_node, xmlNodePtr source_node, xsltTemplatePtr,
                       xsltTransformContextPtr context) {
    run_state_t* const run = t_run;
    if (run == nullptr || context == nullptr || run->m_context != context) return;
    if (run->m_stopped) {
      context->state = XSLT_STATE_STOPPED;
      return;
    }
    if (run->m_visitor != nullptr) {
      bool go_on = false;
      try {
        int const source_line = source_node != nullptr ? static_cast<int>(xmlGetLineNo(source_node)) : 0;
        int const stylesheet_line =
            stylesheet_node != nullptr ? static_cast<int>(xmlGetLineNo(stylesheet_node)) : 0;
        go_on = run->m_visitor->on_progress(source_line, stylesheet_line);
      } catch (...) {
        report_client_exception("xsl_visitor_t::on_progress");
        stop_transformation(context, "the visitor's on_progress failed");
        return;
      }
      if (!go_on) {
        // The debugger's quit state alone does not end every loop of libxslt; the
        // stopped state does.
        run->m_stopped = true;
        context->debugStatus = XSLT_DEBUG_QUIT;
        context->state = XSLT_STATE_STOPPED;
        return;
      }
    }
    context->debugStatus = XSLT_DEBUG_RUN;
  }

  // libxslt's document loader: imports, includes and document() of our runs.
  static xmlDocPtr loader(xmlChar const* uri, xmlDictPtr dict, int options, void* context,
                          xsltLoadType type) {
    run_state_t* const run = t_run;
    bool const ours =
        run != nullptr && (type != XSLT_LOAD_DOCUMENT || context == run->m_context);
    if (!ours) {
      extentions_t& self = extentions_t::instance();
      return self.m_previous_loader != nullptr
                 ? self.m_previous_loader(uri, dict, options, context, type)
                 : nullptr;
    }
    // A refused URI fails the run; a document that is missing or broken is libxslt's
    // ordinary recoverable error (document() gives an empty node set).
    bool refused = false;
    xmlDocPtr doc =
        load_document(reinterpret_cast<char const*>(uri), dict, options, nullptr, &refused);
    if (refused) run->m_failed = true;
    return doc;
  }
};

extentions_t& extentions_t::instance() {
  static extentions_t self;
  return self;
}

extentions_t::tls_t& extentions_t::tls() {
  instance();
  return t_tls;
}

extentions_t::extentions_t() {
  ensure_xml_safety();
  xsltInit();
  exsltRegisterAll();
  // libxslt makes its table of dynamically loaded modules at the first lookup of an
  // extension that is not registered, without its lock: two threads doing that at once
  // each make one and one of them leaks. A lookup here makes it before any thread can.
  xsltExtModuleFunctionLookup(BAD_CAST "none", BAD_CAST "urn:quillon2:no-extension");
  // Progress goes through the debugger hook. The process-wide debug status stays as it
  // is: only our contexts that have a visitor switch it on for themselves.
  void* callbacks[3] = {reinterpret_cast<void*>(&hooks_t::progress), nullptr, nullptr};
  xsltSetDebuggerCallbacks(3, callbacks);
  m_previous_xslt_error = xsltGenericError;
  m_previous_xslt_error_context = xsltGenericErrorContext;
  xsltSetGenericErrorFunc(nullptr, &hooks_t::xslt_message);
  m_previous_loader = xsltDocDefaultLoader;
  xsltSetLoaderFunc(&hooks_t::loader);
}

extentions_t::~extentions_t() {
  // The library goes: nothing of it may stay installed.
  if (xsltDocDefaultLoader == &hooks_t::loader) xsltSetLoaderFunc(m_previous_loader);
  if (xsltGenericError == &hooks_t::xslt_message) {
    xsltSetGenericErrorFunc(m_previous_xslt_error_context, m_previous_xslt_error);
  }
  void* callbacks[3] = {nullptr, nullptr, nullptr};
  xsltSetDebuggerCallbacks(3, callbacks);
}

run_scope_t::run_scope_t(run_state_t& state)
    : m_outer(t_run),
      m_previous_error(xmlGenericError),
      m_previous_error_context(xmlGenericErrorContext) {
  extentions_t::instance();
  t_run = &state;
  xmlSetGenericErrorFunc(nullptr, &hooks_t::thread_message);
}

run_scope_t::~run_scope_t() {
  xmlSetGenericErrorFunc(m_previous_error_context, m_previous_error);
  t_run = m_outer;
}

run_state_t* current_run() { return t_run; }

void deliver_message(xsl_visitor_t* visitor, char const* text) {
  if (visitor == nullptr || text == nullptr) return;
  try {
    std::wstring wide;
    append_utf8_as_wide(wide, text, std::strlen(text));
    visitor->on_message(wide.c_str());
  } catch (...) {
    report_client_exception("xsl_visitor_t::on_message");
  }
}

void deliver_thread_message(char const* text) { deliver_message(t_tls.m_visitor_ptr, text); }

void report_client_exception(char const* where) {
  std::string text = where;
  try {
    throw;
  } catch (std::exception const& e) {
    text += ": ";
    text += e.what();
  } catch (...) {
    text += ": an exception";
  }
  if (t_run != nullptr) t_run->m_failed = true;
  QUILLON2_CHECK_FAILED("ql2::internal::unconditional_alert()",
                        "error::FailedTo.Call.Custom.Function(text)",
                        error::FailedTo.Call.Custom.Function(text));
}

void stop_transformation(xsltTransformContextPtr context, char const* message) {
  if (t_run != nullptr) t_run->m_failed = true;
  if (context == nullptr) return;
  xsltTransformError(context, nullptr, nullptr, "%s\n", message);
  context->state = XSLT_STATE_STOPPED;
}

xmlDocPtr parse_document(char const* data, std::size_t size, char const* url, xmlDictPtr dict,
                         int options, std::string& why, char const* encoding) {
  ensure_xml_safety();
  if (size > static_cast<std::size_t>(INT_MAX)) {
    why = "document too large";
    return nullptr;
  }
  xmlParserCtxtPtr parser = xmlNewParserCtxt();
  if (parser == nullptr) {
    why = "out of memory";
    return nullptr;
  }
  if (dict != nullptr) {
    // Documents of a stylesheet share its dictionary, as libxslt expects.
    if (parser->dict != nullptr) xmlDictFree(parser->dict);
    parser->dict = dict;
    xmlDictReference(dict);
  }
  refusal_watch_t watch;
  xmlDocPtr doc = xmlCtxtReadMemory(
      parser, data != nullptr ? data : "", static_cast<int>(size), url, encoding,
      safe_parse_options(options) | XML_PARSE_BIG_LINES | XML_PARSE_NOERROR | XML_PARSE_NOWARNING);
  if (doc != nullptr && watch.refused()) {
    xmlFreeDoc(doc);
    doc = nullptr;
    why = "the document refers to external content";
  } else if (doc == nullptr) {
    xmlErrorPtr error = xmlCtxtGetLastError(parser);
    why = error != nullptr && error->message != nullptr
              ? "line " + std::to_string(error->line) + ": " + error->message
              : "not well formed";
    while (!why.empty() && (why.back() == '\n' || why.back() == ' ')) why.pop_back();
  }
  xmlFreeParserCtxt(parser);
  return doc;
}

namespace {

// The scheme of a URI ("http" of "http://..."), or empty for a plain path. One letter
// before the colon is a drive name, not a scheme.
std::string uri_scheme(char const* uri) {
  std::size_t i = 0;
  auto const alpha = [](char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); };
  if (!alpha(uri[0])) return {};
  while (alpha(uri[i]) || (uri[i] >= '0' && uri[i] <= '9') || uri[i] == '+' || uri[i] == '-' ||
         uri[i] == '.') {
    ++i;
  }
  if (uri[i] != ':' || i < 2) return {};
  std::string scheme(uri, i);
  for (char& c : scheme) c = static_cast<char>(c >= 'A' && c <= 'Z' ? c - 'A' + 'a' : c);
  return scheme;
}

std::string unescape(std::string const& text) {
  char* plain = xmlURIUnescapeString(text.c_str(), static_cast<int>(text.size()), nullptr);
  if (plain == nullptr) return text;
  std::string result(plain);
  xmlFree(plain);
  return result;
}

// The local file a URI names: a plain path, or a file: URI of this host. False for a
// URI of any other scheme or host.
bool local_file_of(char const* uri, std::string& path) {
  std::string const scheme = uri_scheme(uri);
  if (scheme.empty()) {
    path = uri;
    return true;
  }
  if (scheme != "file") return false;
  std::string rest(uri + 5);
  if (rest.compare(0, 2, "//") == 0) {
    std::size_t const slash = rest.find('/', 2);
    std::string const host = rest.substr(2, slash == std::string::npos ? slash : slash - 2);
    if (!host.empty() && host != "localhost") return false;
    rest = slash == std::string::npos ? std::string("/") : rest.substr(slash);
  }
  path = unescape(rest);
  return true;
}

bool read_from_reader(content_stream_factory_t& reader, char const* uri, std::string& content,
                      std::string& why) {
  try {
    content_stream_factory_t::content_stream_t* stream = reader.create_stream(uri);
    if (stream == nullptr) {
      why = "the content factory gave no stream";
      return false;
    }
    struct closer_t {
      content_stream_factory_t::content_stream_t* m_stream;
      ~closer_t() { m_stream->close(); }
    } closer{stream};
    char buffer[65536];
    for (;;) {
      int const n = stream->read(buffer, static_cast<int>(sizeof buffer));
      if (n <= 0) break;
      content.append(buffer, static_cast<std::size_t>(n) > sizeof buffer ? sizeof buffer
                                                                           : static_cast<std::size_t>(n));
    }
    return true;
  } catch (...) {
    report_client_exception("content_stream_factory_t");
    why = "the content factory failed";
    return false;
  }
}

}  // namespace

xmlDocPtr load_document(char const* uri, xmlDictPtr dict, int options,
                        std::string const* local_name, bool* refused) {
  if (refused != nullptr) *refused = false;
  if (uri == nullptr) return nullptr;
  std::string content;
  std::string why;
  bool loaded = false;
  content_stream_factory_t* const reader = t_tls.m_file_reader;
  bool claimed = false;
  if (reader != nullptr) {
    try {
      claimed = reader->match(uri) != 0;
    } catch (...) {
      report_client_exception("content_stream_factory_t::match");
    }
  }
  if (claimed) {
    loaded = read_from_reader(*reader, uri, content, why);
  } else {
    std::string path;
    if (local_name != nullptr) {
      loaded = read_local_file(*local_name, content, why);
    } else if (!local_file_of(uri, path)) {
      why = "only local files and content supplied by the reader are loaded";
      if (refused != nullptr) *refused = true;
    } else {
      loaded = read_local_file(path, content, why);
      // libxml2 escapes the base of relative references ("a%20b/c.xml").
      if (!loaded && path.find('%') != std::string::npos) {
        std::string retry_why;
        loaded = read_local_file(unescape(path), content, retry_why);
      }
    }
  }
  xmlDocPtr doc = nullptr;
  if (loaded) {
    char const* const url = !claimed && local_name != nullptr ? local_name->c_str() : uri;
    doc = parse_document(content.data(), content.size(), url, dict, options, why);
  }
  if (doc == nullptr) {
    std::string const message = std::string("cannot load ") + uri + ": " + why + "\n";
    Q2_LOG(main_logger(), log_info, message.c_str());
    deliver_thread_message(message.c_str());
  }
  return doc;
}

}  // namespace quillon2::internal
