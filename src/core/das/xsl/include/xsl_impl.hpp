// xsl_impl_t: the one implementation of xsl_t. One object serves one thread at a time; it
// owns its input document and its compiled stylesheet.
#pragma once

#include <map>
#include <string>

#include <libxml/tree.h>
#include <libxml/xpathInternals.h>
#include <libxslt/xsltInternals.h>

#include <quillon2/das/das_transformation.hpp>

namespace quillon2 {

class xsl_impl_t : public xsl_t {
 public:
  struct parameter_t {
    std::string value;  // UTF-8
    bool is_xpath = false;
  };

  xsl_impl_t();
  ~xsl_impl_t() override;
  xsl_impl_t(xsl_impl_t const&) = delete;
  xsl_impl_t& operator=(xsl_impl_t const&) = delete;

  int add_parameter(wchar_t const* name, wchar_t const* value_xpath, bool is_xpath) override;
  int add_parameter(wchar_t const* name, variant_t const& value_xpath) override;
  bool add_function(sptr_t<xsl_function_base_t> function_ptr) override;
  bool add_function(void const* unused, xsl_function_base_t* function) override;
  bool add_functions(generic_iterator_t<sptr_t<xsl_function_base_t>> functions) override;
  void clear_parameters() override;
  void clear_functions() override;
  bool set_xml(char const* xml) override;
  bool set_xml_path(wchar_t const* path) override;
  bool set_xml(variant_bag_t const& bag) override;
  bool set_stylesheet(char const* xml) override;
  bool set_stylesheet_path(wchar_t const* path) override;
  bool set_stylesheet(variant_bag_t const& bag) override;
  int transform(KESMET_2_18::strings::ustring8& result) override;
  void set_visitor(xsl_visitor_t* visitor) override;
  void set_reader(content_stream_factory_t* reader) override;
  void allow(unsigned permissions) override;
  void set_limits(int max_template_depth, int max_template_vars,
                  unsigned long max_xpath_operations) override;

  // The work of an extension function called by the stylesheet as `name`.
  void call_extension_function(std::string const& name, int nargs, xmlXPathParserContextPtr ctxt);

 private:
  bool update_stylesheet(xmlDocPtr doc);
  void free_document();

  std::map<std::string, parameter_t> m_parameters;
  xmlDocPtr m_docXml = nullptr;
  xsltStylesheetPtr m_stylesheet = nullptr;
  xsl_visitor_t* m_visitor = nullptr;
  xsl_visitor_t* m_previous_visitor = nullptr;
  content_stream_factory_t* m_previous_reader = nullptr;
  content_stream_factory_t* m_reader = nullptr;
  std::map<std::string, sptr_t<xsl_function_base_t>> m_functions;
  // Additions of ours: what the runs may do, and their bounds.
  unsigned m_permissions = xsl_allow_none;
  int m_max_template_depth = 1000;
  int m_max_template_vars = 15000;
  unsigned long m_max_xpath_operations = 500000000ul;
  bool m_visitor_replaced = false;
  bool m_reader_replaced = false;
};

namespace internal {

// Takes the XML declaration and the escapes off a document dumped as XML, for the output
// method "text". Throws boost::numeric::positive_overflow for a reference "&#xNN;" above
// 127, as the text rules have it.
void strip_text_output(std::string& text);

// The XPath expression that stands for a number value: decimal, never an exponent.
std::string xpath_number_literal(variant_t const& value);

// The XPath function that libxslt calls for every registered extension function.
void extension_function(xmlXPathParserContextPtr ctxt, int nargs);

}  // namespace internal
}  // namespace quillon2
