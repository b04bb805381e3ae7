// XSL transformation of documents and bags, on top of libxslt and libexslt.
//
// An xsl_t holds one input document and one compiled stylesheet, each given as a file,
// as XML text or as a variant_bag_t (saved in the attribute form and read back from that
// text), plus stylesheet parameters and extension functions. transform() runs the
// stylesheet and hands back the result document as UTF-8 text.
//
// Results of transform(): 1 is success; 0x40000001 means libxslt made no result, the run
// failed or a visitor stopped it; 0x40000069 a parameter was rejected; 0x4000006B the
// document or the stylesheet is missing.
//
// Loading: every document the library loads for an xsl_t (the input, xsl:import,
// xsl:include, document()) comes from the calling thread's content_stream_factory_t when
// it claims the URI, otherwise from a local file (a path or a file: URI); every other
// URI scheme is refused. External entities and DTDs are never fetched.
//
// Safety: by default a stylesheet may not write files, create directories or write to
// the network (exsl:document and its kin fail with a message); allow() opts one xsl_t in.
// Template depth, the number of live variables and the XPath operations of one run are
// bounded (set_limits), so a hostile stylesheet ends with an error, not a crash or a hang.
//
// Threads: an xsl_t serves one thread at a time; different objects may transform on
// different threads at once. set_visitor and set_reader bind to the calling thread (see
// there). An extension function object shared between threads is serialised by the mutex
// it hands out.
#pragma once

#include <string>

#include <quillon2/core/object_interface.hpp>
#include <quillon2/export.hpp>
#include <quillon2/headers/iterator.hpp>
#include <quillon2/headers/kesmet.hpp>

namespace quillon2 {

class variant_t;
class variant_bag_t;

namespace threading {
class mutex_t;
}

// An extension function written by the client. The stylesheet calls it as exsl:<name>
// with the namespace "http://exslt.org/common". Node-set arguments arrive as a bag named
// "bag" that holds the nodes; other arguments as values (booleans, doubles, wide texts).
// Arguments arrive last first. A bag result reaches the stylesheet as a document whose
// element "bag" holds it.
class QUILLON2_API xsl_function_base_t : public object_interface_t {
 public:
  // One node-set argument; false fails the call (XPath "invalid arity").
  virtual bool add_argument(variant_bag_t const& value) = 0;
  // One other argument; false fails the call.
  virtual bool add_argument(variant_t const& value) = 0;
  // 0: no result, the call fails (XPath "invalid type"); 1: a variant_t; 2: a bag.
  virtual unsigned get_result_type() = 0;
  virtual void get_result(variant_t& out) = 0;
  virtual void get_result(variant_bag_t& out) = 0;
  // The name under which the stylesheet calls the function.
  virtual void get_name(std::wstring& out) = 0;
  // The lock held from the first argument to the result of one call; may be null.
  virtual threading::mutex_t* get_mutex() = 0;
};

// The client's observer of a transformation. Its calls come on the transforming thread.
class QUILLON2_API xsl_visitor_t {
 public:
  // Line counts of the input document and of the stylesheet.
  virtual void on_start(int source_lines, int stylesheet_lines) = 0;
  // A message of libxml2 or libxslt (errors, xsl:message), UTF-8 decoded.
  virtual void on_message(wchar_t const* text) = 0;
  // Called for every XSLT instruction run; false stops the transformation.
  virtual bool on_progress(int source_line, int stylesheet_line) = 0;
  virtual void on_finish(bool success) = 0;

 protected:
  ~xsl_visitor_t() = default;
};

// Supplies documents by URI. match() and create_stream() are asked on the thread that
// set the factory, for each document that thread loads through an xsl_t.
class QUILLON2_API content_stream_factory_t {
 public:
  class QUILLON2_API content_stream_t {
   public:
    // Copies up to `size` bytes into `buffer`; the count given, 0 at the end.
    virtual int read(char* buffer, int size) = 0;
    // Ends the stream and disposes of it.
    virtual void close() = 0;

   protected:
    virtual ~content_stream_t() = default;
  };

  content_stream_factory_t() = default;
  content_stream_factory_t(content_stream_factory_t const&) = default;
  content_stream_factory_t& operator=(content_stream_factory_t const&) = default;

  // Non-zero if this factory supplies `uri`.
  virtual int match(char const* uri) = 0;
  // A new stream over the content of `uri`, owned by the caller until its close().
  virtual content_stream_t* create_stream(char const* uri) = 0;

 protected:
  virtual ~content_stream_factory_t() = default;
};

// A factory that gives each document as one whole string; subclasses say which URIs
// they match and read them.
class QUILLON2_API default_content_stream_factory_t : public content_stream_factory_t {
 private:
  content_stream_t* create_stream(char const* uri) override;

 public:
  // The whole content of `uri`.
  virtual std::string read_content(char const* uri) = 0;
};

// What a stylesheet may do beyond reading: bits for xsl_t::allow.
enum xsl_permission_t : unsigned {
  xsl_allow_none = 0,
  xsl_allow_write_file = 1,        // exsl:document and its kin write local files
  xsl_allow_create_directory = 2,  // ... and create the directories they need
  xsl_allow_write_network = 4,     // ... and write to network URIs
};

class QUILLON2_API xsl_t : public object_interface_t {
 public:
  // A new object with no document, no stylesheet, no parameters and no functions.
  static sptr_t<xsl_t> create();

  // Sets a parameter, replacing one of that name: an XPath expression when `is_xpath`,
  // otherwise a literal string. Gives 1.
  virtual int add_parameter(wchar_t const* name, wchar_t const* value_xpath, bool is_xpath) = 0;
  // A parameter from a value: wide and narrow text as strings, null as the empty string,
  // booleans as true()/false(), numbers as decimal numbers (never with an exponent).
  virtual int add_parameter(wchar_t const* name, variant_t const& value_xpath) = 0;
  // False if a function of that name is there already (the first one stays).
  virtual bool add_function(sptr_t<xsl_function_base_t> function_ptr) = 0;
  virtual bool add_function(void const* unused, xsl_function_base_t* function) = 0;
  // Adds each function; false only for an iterator without a cursor.
  virtual bool add_functions(generic_iterator_t<sptr_t<xsl_function_base_t>> functions) = 0;
  virtual void clear_parameters() = 0;
  virtual void clear_functions() = 0;
  // The input document from UTF-8 text, a file, or a bag (root element "bag"). A failed
  // read leaves no document.
  virtual bool set_xml(char const* xml) = 0;
  virtual bool set_xml_path(wchar_t const* path) = 0;
  virtual bool set_xml(variant_bag_t const& bag) = 0;
  // The stylesheet from UTF-8 text, a file, or a bag named "stylesheet" whose children
  // are named "xsl:...". A failed read keeps the old stylesheet; a failed compile leaves
  // none.
  virtual bool set_stylesheet(char const* xml) = 0;
  virtual bool set_stylesheet_path(wchar_t const* path) = 0;
  virtual bool set_stylesheet(variant_bag_t const& bag) = 0;
  // Runs the stylesheet. The result document goes to `result` as UTF-8 text behind an
  // XML declaration; with the output method "text" the declaration and escapes are
  // taken off again. A stopped run still delivers what it produced.
  virtual int transform(KESMET_2_18::strings::ustring8& result) = 0;
  // The visitor of this object's runs, and of libxml2's messages on the calling thread;
  // not owned. It replaces the thread's visitor until this object dies, which puts the
  // previous one back: destroy objects in the reverse order of these calls, on the
  // thread that made them.
  virtual void set_visitor(xsl_visitor_t* visitor) = 0;
  // The calling thread's content factory, in the same manner; not owned.
  virtual void set_reader(content_stream_factory_t* reader) = 0;

  // Opts this object's runs in to what xsl_permission_t names (default: none).
  virtual void allow(unsigned permissions) = 0;
  // Bounds of one run: nested templates, live variables, XPath operations. Zero keeps a
  // bound as it is. Defaults: 1000, 15000, 500000000.
  virtual void set_limits(int max_template_depth, int max_template_vars,
                          unsigned long max_xpath_operations) = 0;
};

}  // namespace quillon2
