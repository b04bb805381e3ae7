// quillon2 xslt: run a stylesheet over a document.
#include <string>
#include <vector>

#include "common.hpp"

namespace q2cli {

namespace {

struct messages_t : quillon2::xsl_visitor_t {
  void on_start(int, int) override {}
  void on_message(wchar_t const* text) override {
    std::string line = utf8(text);
    while (!line.empty() && line.back() == '\n') line.pop_back();
    std::fprintf(stderr, "%s\n", line.c_str());
  }
  bool on_progress(int, int) override { return true; }
  void on_finish(bool) override {}
};

void split_parameter(std::string const& text, std::string& name, std::string& value) {
  std::size_t const equals = text.find('=');
  if (equals == std::string::npos || equals == 0) throw usage_t{"a parameter is NAME=VALUE, not " + text};
  name = text.substr(0, equals);
  value = text.substr(equals + 1);
}

}  // namespace

void add_xslt_command(CLI::App& app) {
  auto* sub = app.add_subcommand(
      "xslt", "Transform IN with STYLESHEET and write the result to OUT (default: standard "
              "output). --param passes a string; --xpath-param an XPath expression.");
  static std::string stylesheet, in, out_name = "-";
  static std::vector<std::string> params, xpath_params;
  sub->add_option("STYLESHEET", stylesheet, "The XSL stylesheet, or - for standard input")->required();
  sub->add_option("IN", in, "The document, or - for standard input")->required();
  sub->add_option("OUT", out_name, "The result file, or - for standard output");
  sub->add_option("--param", params, "NAME=VALUE, a string parameter");
  sub->add_option("--xpath-param", xpath_params, "NAME=EXPR, a parameter given as XPath");
  on_run(sub, "xslt", [] {
    at_most_one_stdin({&stylesheet, &in});
    auto xsl = quillon2::xsl_t::create();
    messages_t messages;
    xsl->set_visitor(&messages);
    for (auto const& p : params) {
      std::string name, value;
      split_parameter(p, name, value);
      xsl->add_parameter(wide(name).c_str(), wide(value).c_str(), false);
    }
    for (auto const& p : xpath_params) {
      std::string name, value;
      split_parameter(p, name, value);
      xsl->add_parameter(wide(name).c_str(), wide(value).c_str(), true);
    }
    // Files are given by name, so that imports and document() resolve beside them.
    bool const compiled = stylesheet == "-"
                              ? xsl->set_stylesheet(read_input("-").c_str())
                              : xsl->set_stylesheet_path(file_path(stylesheet).as_string(true).c_str());
    if (!compiled) throw failure_t{stylesheet, "not a stylesheet that can be read and compiled"};
    bool const parsed = in == "-" ? xsl->set_xml(read_input("-").c_str())
                                  : xsl->set_xml_path(file_path(in).as_string(true).c_str());
    if (!parsed) throw failure_t{in, "not a well-formed XML document that can be read"};
    std::string result;
    if (xsl->transform(result) != 1) throw failure_t{in, "the transformation failed"};
    write_output(out_name, result);
  });
}

}  // namespace q2cli
