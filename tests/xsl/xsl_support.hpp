// Helpers of the XSL tests: a stylesheet of the text method around a template body, a
// shortcut for one transformation, a visitor that records, a content factory over a map
// and an extension function with a fixed result.
#pragma once

#include <atomic>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <quillon2/core/threading/mutex.hpp>
#include <quillon2/das/das_transformation.hpp>
#include <quillon2/das/variant.hpp>
#include <quillon2/das/variant_bag.hpp>

namespace q2test {

// A stylesheet of the text method: `top` at its top level, `body` in the template of "/".
inline std::string text_sheet(std::string const& body, std::string const& top = "") {
  return R"~(<xsl:stylesheet version="1.0" xmlns:xsl="http://www.w3.org/1999/XSL/Transform" xmlns:exsl="http://exslt.org/common" extension-element-prefixes="exsl">
<xsl:output method="text"/>)~" +
         top + "<xsl:template match='/'>" + body + "</xsl:template></xsl:stylesheet>";
}

// Transforms, expecting `expected` as the result code; the output.
inline std::string run(quillon2::sptr_t<quillon2::xsl_t> const& xsl, int expected = 1) {
  std::string out;
  EXPECT_EQ(xsl->transform(out), expected);
  return out;
}

inline std::string narrow(std::wstring const& text) {
  std::string out;
  for (wchar_t c : text) out.push_back(c < 128 ? static_cast<char>(c) : '?');
  return out;
}

class recording_visitor_t : public quillon2::xsl_visitor_t {
 public:
  void on_start(int source_lines, int stylesheet_lines) override {
    m_starts.push_back({source_lines, stylesheet_lines});
  }
  void on_message(wchar_t const* text) override { m_messages += narrow(text); }
  bool on_progress(int source_line, int stylesheet_line) override {
    ++m_progress;
    m_last_source_line = source_line;
    m_last_stylesheet_line = stylesheet_line;
    return m_stop_after < 0 || m_progress < m_stop_after;
  }
  void on_finish(bool success) override { m_finishes.push_back(success); }

  std::vector<std::pair<int, int>> m_starts;
  std::string m_messages;
  int m_progress = 0;
  int m_stop_after = -1;  // stop at this progress call; -1 never
  int m_last_source_line = 0;
  int m_last_stylesheet_line = 0;
  std::vector<bool> m_finishes;
};

// Supplies the documents of a map by exact URI, and counts what it supplied.
class map_factory_t : public quillon2::default_content_stream_factory_t {
 public:
  explicit map_factory_t(std::map<std::string, std::string> documents)
      : m_documents(std::move(documents)) {}
  int match(char const* uri) override { return m_documents.count(uri) != 0 ? 1 : 0; }
  std::string read_content(char const* uri) override {
    m_served.push_back(uri);
    return m_documents.at(uri);
  }

  std::map<std::string, std::string> m_documents;
  std::vector<std::string> m_served;
};

// An extension function that records its arguments and gives a fixed result.
class test_function_t : public quillon2::xsl_function_base_t {
 public:
  test_function_t(std::wstring name, unsigned result_type)
      : m_name(std::move(name)), m_result_type(result_type) {}

  bool add_argument(quillon2::variant_bag_t const& value) override {
    m_bags.push_back(value);
    m_order.push_back('b');
    return true;
  }
  bool add_argument(quillon2::variant_t const& value) override {
    m_values.push_back(value);
    m_order.push_back('v');
    return true;
  }
  unsigned get_result_type() override { return m_result_type; }
  void get_result(quillon2::variant_t& out) override {
    if (m_throw) throw std::runtime_error("client failure");
    out = m_value;
  }
  void get_result(quillon2::variant_bag_t& out) override { out = m_bag; }
  void get_name(std::wstring& out) override { out = m_name; }
  quillon2::threading::mutex_t* get_mutex() override { return &m_mutex; }

  std::wstring m_name;
  unsigned m_result_type;
  bool m_throw = false;
  quillon2::variant_t m_value;
  quillon2::variant_bag_t m_bag;
  std::vector<quillon2::variant_bag_t> m_bags;
  std::vector<quillon2::variant_t> m_values;
  std::string m_order;
  quillon2::threading::mutex_t m_mutex;
};

inline quillon2::sptr_t<test_function_t> make_function(std::wstring name, unsigned type,
                                                       quillon2::variant_t value = {}) {
  quillon2::sptr_t<test_function_t> f(
      new quillon2::ref_counted_t<test_function_t>(std::move(name), type));
  f->m_value = std::move(value);
  return f;
}

}  // namespace q2test
