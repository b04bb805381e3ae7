// The process-wide side of the XSL layer: the one-time registration with libxslt, the
// per-thread state (the thread's visitor and content factory) and the state of the run in
// progress on a thread, which the hooks libxslt calls without an object of ours use to
// find their way back.
//
// libxslt's document loader, debugger callbacks and generic error function are process-
// wide. They are installed once and act only while a run of ours is in progress on the
// calling thread (run_scope_t); otherwise they hand over to what was installed before.
// libxml2's generic error function is per thread: a run sets it for its own duration and
// puts the previous one back.
//
// No C++ exception leaves a hook: each catches everything, reports it through the failure
// check and stops the run through libxslt (xsltTransformError and XSLT_STATE_STOPPED).
#pragma once

#include <cstddef>
#include <string>

#include <libxml/tree.h>
#include <libxml/xmlerror.h>
#include <libxslt/documents.h>
#include <libxslt/xsltInternals.h>

#include <quillon2/das/das_transformation.hpp>

namespace quillon2::internal {

class extentions_t {
 public:
  // The thread's own state: both pointers not owned.
  struct tls_t {
    xsl_visitor_t* m_visitor_ptr = nullptr;
    content_stream_factory_t* m_file_reader = nullptr;
  };

  // Registers with libxslt and libexslt once per process; cheap afterwards.
  static extentions_t& instance();
  static tls_t& tls();

  ~extentions_t();

 private:
  extentions_t();
  xsltDocLoaderFunc m_previous_loader;
  xmlGenericErrorFunc m_previous_xslt_error;
  void* m_previous_xslt_error_context;
  friend struct hooks_t;
};

// What the hooks need of the run in progress on this thread.
struct run_state_t {
  xsltTransformContextPtr m_context = nullptr;  // null while a stylesheet compiles
  xsl_visitor_t* m_visitor = nullptr;           // the object's visitor, for progress
  bool m_failed = false;                        // a hook failed or refused something
  bool m_stopped = false;                       // on_progress asked to stop
};

// Marks a run of ours on this thread for its lifetime: the hooks act for it, and libxml2's
// generic error function of the thread sends messages to the thread's visitor.
class run_scope_t {
 public:
  explicit run_scope_t(run_state_t& state);
  run_scope_t(run_scope_t const&) = delete;
  run_scope_t& operator=(run_scope_t const&) = delete;
  ~run_scope_t();

 private:
  run_state_t* m_outer;
  xmlGenericErrorFunc m_previous_error;
  void* m_previous_error_context;
};

run_state_t* current_run();

// Gives a message to the thread's visitor, if any (exceptions caught and reported).
void deliver_thread_message(char const* text);
// Gives a message to a visitor (exceptions caught and reported); nothing for null.
void deliver_message(xsl_visitor_t* visitor, char const* text);

// Reports an exception that a client's code threw inside a hook, through the failure
// check, and marks the run failed.
void report_client_exception(char const* where);

// Stops the run of `context` with `message`, through libxslt's own means.
void stop_transformation(xsltTransformContextPtr context, char const* message);

// Loads a document by URI as the library loads all documents: the thread's content
// factory when it claims the URI, else a local file (path or file: URI), else refused.
// Parsed from memory with the library's options plus `options`, in `dict` when given.
// Null on failure, with the reason delivered to the thread's visitor. A client's file
// name comes as `local_name` (native): it is read when the factory does not claim `uri`.
// `refused`, when given, tells a URI of a scheme that is never loaded from one that could
// not be read or parsed.
xmlDocPtr load_document(char const* uri, xmlDictPtr dict, int options,
                        std::string const* local_name = nullptr, bool* refused = nullptr);

// Parses a document from memory with the library's safe options; `url` (may be null)
// becomes the document's base. Null on failure, the reason in `why`.
// `encoding` (may be null) overrides the document's own declaration.
xmlDocPtr parse_document(char const* data, std::size_t size, char const* url, xmlDictPtr dict,
                         int options, std::string& why, char const* encoding = nullptr);

// Reads a whole local file (native name) without locking it. False with a reason.
bool read_local_file(std::string const& native_name, std::string& content, std::string& why);

}  // namespace quillon2::internal
