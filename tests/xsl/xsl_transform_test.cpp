// xsl_t: documents and stylesheets from texts, files and bags, parameters, results and
// the text output rules.
#include <gtest/gtest.h>

#include <boost/numeric/conversion/cast.hpp>

#include <quillon2/das/das_transformation.hpp>
#include <quillon2/das/variant.hpp>
#include <quillon2/das/variant_bag.hpp>

#include "support/assert_recorder.hpp"
#include "support/temp_dir.hpp"
#include "xsl_support.hpp"

namespace ql2 = quillon2;

namespace {

constexpr char const* k_copy_xsl = R"~(<xsl:stylesheet version="1.0" xmlns:xsl="http://www.w3.org/1999/XSL/Transform">
  <xsl:template match="@*|node()"><xsl:copy><xsl:apply-templates select="@*|node()"/></xsl:copy></xsl:template>
</xsl:stylesheet>)~";

std::string text_xsl(std::string const& body, std::string const& params = "") {
  return R"~(<xsl:stylesheet version="1.0" xmlns:xsl="http://www.w3.org/1999/XSL/Transform" xmlns:exsl="http://exslt.org/common">
<xsl:output method="text"/>)~" + params +
         R"~(<xsl:template match="/">)~" + body + R"~(</xsl:template></xsl:stylesheet>)~";
}

std::string run(ql2::sptr_t<ql2::xsl_t> const& xsl, int expected = 1) {
  std::string out;
  EXPECT_EQ(xsl->transform(out), expected);
  return out;
}

}  // namespace

TEST(XslTransform, MissingPartsGiveNotReadyAndLeaveResult) {
  q2test::assert_recorder_t asserts;
  auto xsl = ql2::xsl_t::create();
  std::string out = "untouched";
  EXPECT_EQ(xsl->transform(out), 0x4000006B);
  ASSERT_TRUE(xsl->set_xml("<a/>"));
  EXPECT_EQ(xsl->transform(out), 0x4000006B);
  EXPECT_EQ(out, "untouched");
  EXPECT_TRUE(asserts.saw("m_stylesheet && m_docXml"));
}

TEST(XslTransform, CopiesTextsAndRunsAgain) {
  auto xsl = ql2::xsl_t::create();
  ASSERT_TRUE(xsl->set_stylesheet(k_copy_xsl));
  ASSERT_TRUE(xsl->set_xml("<a x=\"1\"><b>t\xC3\xA9</b></a>"));
  std::string const first = run(xsl);
  EXPECT_EQ(first, "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n<a x=\"1\"><b>t\xC3\xA9</b></a>\n");
  EXPECT_EQ(run(xsl), first);
}

TEST(XslTransform, MalformedInputLeavesNoDocument) {
  auto xsl = ql2::xsl_t::create();
  ASSERT_TRUE(xsl->set_stylesheet(k_copy_xsl));
  ASSERT_TRUE(xsl->set_xml("<a/>"));
  EXPECT_FALSE(xsl->set_xml("<a><b></a>"));
  q2test::assert_recorder_t asserts;
  std::string out;
  EXPECT_EQ(xsl->transform(out), 0x4000006B);
}

TEST(XslTransform, BadStylesheetTextKeepsTheOldOneAndBadXsltLeavesNone) {
  auto xsl = ql2::xsl_t::create();
  ASSERT_TRUE(xsl->set_stylesheet(text_xsl("old").c_str()));
  ASSERT_TRUE(xsl->set_xml("<a/>"));
  EXPECT_FALSE(xsl->set_stylesheet("<xsl:stylesheet"));
  EXPECT_EQ(run(xsl), "\nold\n");
  q2test::assert_recorder_t asserts;
  EXPECT_FALSE(xsl->set_stylesheet("<not-a-stylesheet/>"));
  EXPECT_TRUE(asserts.saw("m_stylesheet"));
  std::string out;
  EXPECT_EQ(xsl->transform(out), 0x4000006B);
}

using XslFiles = q2test::temp_dir_test;

TEST_F(XslFiles, TransformFromFiles) {
  q2test::write_file(m_dir.file("in.xml"), "<list><i>2</i><i>1</i></list>");
  q2test::write_file(m_dir.file("lib.xsl"), R"~(<xsl:stylesheet version="1.0" xmlns:xsl="http://www.w3.org/1999/XSL/Transform">
  <xsl:template match="i"><xsl:value-of select="."/>;</xsl:template></xsl:stylesheet>)~");
  q2test::write_file(m_dir.file("main.xsl"), R"~(<xsl:stylesheet version="1.0" xmlns:xsl="http://www.w3.org/1999/XSL/Transform">
  <xsl:import href="lib.xsl"/><xsl:output method="text"/>
  <xsl:template match="/"><xsl:apply-templates select="list/i"><xsl:sort/></xsl:apply-templates></xsl:template></xsl:stylesheet>)~");
  auto xsl = ql2::xsl_t::create();
  std::wstring const dir(m_dir.path().begin(), m_dir.path().end());
  ASSERT_TRUE(xsl->set_xml_path((dir + L"/in.xml").c_str()));
  ASSERT_TRUE(xsl->set_stylesheet_path((dir + L"/main.xsl").c_str()));
  EXPECT_EQ(run(xsl), "\n1;2;\n");

  q2test::assert_recorder_t asserts;
  EXPECT_FALSE(xsl->set_xml_path((dir + L"/missing.xml").c_str()));
  EXPECT_TRUE(asserts.saw("ptr"));
}

TEST(XslTransform, BagsAsDocumentAndStylesheet) {
  ql2::variant_bag_t data;
  data.add(L"name", ql2::variant_t(L"box"));
  data.add(L"count", ql2::variant_t(3));
  ql2::variant_bag_t child;
  child.add(L"v", ql2::variant_t(L"x"));
  data.add_variant_bag(L"item", child);

  ql2::variant_bag_t sheet;
  sheet.rename(L"stylesheet");
  sheet.add(L"version", ql2::variant_t(L"1.0"));
  ql2::variant_bag_t output;
  output.add(L"method", ql2::variant_t(L"text"));
  sheet.add_variant_bag(L"xsl:output", output);
  ql2::variant_bag_t templ;
  templ.add(L"match", ql2::variant_t(L"/bag"));
  ql2::variant_bag_t value_of;
  value_of.add(L"select", ql2::variant_t(L"concat(@name, '/', @*[local-name()='count'], '/', item/@v, '/', name(/*))"));
  templ.add_variant_bag(L"xsl:value-of", value_of);
  sheet.add_variant_bag(L"xsl:template", templ);

  auto xsl = ql2::xsl_t::create();
  ASSERT_TRUE(xsl->set_xml(data));
  ASSERT_TRUE(xsl->set_stylesheet(sheet));
  EXPECT_EQ(run(xsl), "\nbox/3/x/bag\n");

  // A bag without any element of the prefix "xsl" holds no stylesheet: the old one stays.
  ql2::variant_bag_t plain;
  plain.rename(L"stylesheet");
  plain.add_variant_bag(L"template", ql2::variant_bag_t());
  EXPECT_FALSE(xsl->set_stylesheet(plain));
  EXPECT_EQ(run(xsl), "\nbox/3/x/bag\n");
}

TEST(XslTransform, ParametersFromValues) {
  auto xsl = ql2::xsl_t::create();
  ASSERT_TRUE(xsl->set_xml("<a/>"));
  ASSERT_TRUE(xsl->set_stylesheet(text_xsl(
      "<xsl:value-of select=\"concat(boolean($b), '|', $s, '|', $n + 1, '|', string-length($e), "
      "'|', $d, '|', $big = 150000000000000000000, '|', $tiny * 1000000000, '|', $neg, '|', $x, '|', $narrow)\"/>",
      "<xsl:param name='b'/><xsl:param name='s'/><xsl:param name='n'/><xsl:param name='e' "
      "select=\"'unset'\"/><xsl:param name='d'/><xsl:param name='big'/><xsl:param "
      "name='tiny'/><xsl:param name='neg'/><xsl:param name='x'/><xsl:param name='narrow'/>").c_str()));
  EXPECT_EQ(xsl->add_parameter(L"b", ql2::variant_t(true)), 1);
  EXPECT_EQ(xsl->add_parameter(L"s", ql2::variant_t(L"a'b\"c")), 1);
  EXPECT_EQ(xsl->add_parameter(L"n", ql2::variant_t(42)), 1);
  EXPECT_EQ(xsl->add_parameter(L"e", ql2::variant_t()), 1);
  EXPECT_EQ(xsl->add_parameter(L"d", ql2::variant_t(2.5)), 1);
  EXPECT_EQ(xsl->add_parameter(L"big", ql2::variant_t(1.5e20)), 1);
  EXPECT_EQ(xsl->add_parameter(L"tiny", ql2::variant_t(2e-9)), 1);
  EXPECT_EQ(xsl->add_parameter(L"neg", ql2::variant_t(-7)), 1);
  EXPECT_EQ(xsl->add_parameter(L"x", L"3 - 2", true), 1);
  EXPECT_EQ(xsl->add_parameter(L"narrow", ql2::variant_t("n")), 1);
  EXPECT_EQ(run(xsl), "\ntrue|a'b\"c|43|0|2.5|true|2|-7|1|n\n");

  // A later value of a name replaces the earlier one; false() is a boolean too.
  xsl->add_parameter(L"b", ql2::variant_t(false));
  EXPECT_EQ(run(xsl).substr(0, 6), "\nfalse");

  // An expression that libxslt rejects fails the run before it starts.
  q2test::recording_visitor_t visitor;
  xsl->set_visitor(&visitor);
  xsl->add_parameter(L"x", L"count(", true);
  EXPECT_EQ(run(xsl, 0x40000069), "");
  EXPECT_TRUE(visitor.m_finishes.empty());
  xsl->clear_parameters();
  EXPECT_EQ(run(xsl), "\nfalse||NaN|5||false|NaN|||\n");
}

TEST(XslTransform, TextOutputUnescapes) {
  auto xsl = ql2::xsl_t::create();
  ASSERT_TRUE(xsl->set_xml("<a/>"));
  auto const text_of = [&](std::string const& literal) {
    EXPECT_TRUE(xsl->set_stylesheet(text_xsl("<xsl:value-of select=\"'" + literal + "'\"/>").c_str()));
    return run(xsl);
  };
  EXPECT_EQ(text_of("a&lt;b"), "\na<b\n");
  EXPECT_EQ(text_of("&amp;lt;"), "\n<\n");
  EXPECT_EQ(text_of("x&gt;y &amp;amp;"), "\nx>y &amp;\n");
  EXPECT_EQ(text_of("&amp;#x41;"), "\nA\n");
  EXPECT_EQ(text_of("&amp;#x0041;"), "\nA\n");
  EXPECT_EQ(text_of("&amp;#x7;"), "\n&#x7;\n");
  EXPECT_EQ(text_of("&amp;#x12345;"), "\n&#x12345;\n");
  EXPECT_TRUE(xsl->set_stylesheet(text_xsl("<xsl:value-of select=\"'&amp;#xE9;'\"/>").c_str()));
  std::string out;
  EXPECT_THROW(xsl->transform(out), boost::numeric::positive_overflow);
}
