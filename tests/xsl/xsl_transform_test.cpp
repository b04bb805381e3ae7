// xsl_t: documents and stylesheets from texts and bags, loads that fail, parameters,
// results and the text output rules.
#include <gtest/gtest.h>

#include <boost/numeric/conversion/cast.hpp>

#include "support/assert_recorder.hpp"
#include "xsl_support.hpp"

namespace ql2 = quillon2;
using q2test::run;
using q2test::text_sheet;

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
  ASSERT_TRUE(xsl->set_stylesheet(R"~(<xsl:stylesheet version="1.0" xmlns:xsl="http://www.w3.org/1999/XSL/Transform">
  <xsl:template match="@*|node()"><xsl:copy><xsl:apply-templates select="@*|node()"/></xsl:copy></xsl:template>
</xsl:stylesheet>)~"));
  ASSERT_TRUE(xsl->set_xml("<a x=\"1\"><b>t\xC3\xA9</b></a>"));
  std::string const first = run(xsl);
  EXPECT_EQ(first, "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n<a x=\"1\"><b>t\xC3\xA9</b></a>\n");
  EXPECT_EQ(run(xsl), first);
}

// A stylesheet text that does not parse keeps the old one; a document that does not, or
// a parsed stylesheet that is no XSLT, leaves none.
TEST(XslTransform, FailedLoadsKeepOrDropWhatWasThere) {
  auto xsl = ql2::xsl_t::create();
  ASSERT_TRUE(xsl->set_stylesheet(text_sheet("old").c_str()));
  ASSERT_TRUE(xsl->set_xml("<a/>"));
  EXPECT_FALSE(xsl->set_stylesheet("<xsl:stylesheet"));
  EXPECT_EQ(run(xsl), "\nold\n");
  q2test::assert_recorder_t asserts;
  EXPECT_FALSE(xsl->set_xml_path(L"/q2-no-such-directory/in.xml"));
  EXPECT_TRUE(asserts.saw("ptr"));
  EXPECT_FALSE(xsl->set_xml("<a><b></a>"));
  EXPECT_EQ(run(xsl, 0x4000006B), "");
  ASSERT_TRUE(xsl->set_xml("<a/>"));
  EXPECT_FALSE(xsl->set_stylesheet("<not-a-stylesheet/>"));
  EXPECT_TRUE(asserts.saw("m_stylesheet"));
  EXPECT_EQ(run(xsl, 0x4000006B), "");
}

TEST(XslTransform, BagsAsDocumentAndStylesheet) {
  ql2::variant_bag_t data;
  data.add(L"name", ql2::variant_t(L"box"));
  data.add(L"count", ql2::variant_t(3));
  data.add_variant_bag(L"item", ql2::variant_bag_t()).add(L"v", ql2::variant_t(L"x"));

  ql2::variant_bag_t sheet;
  sheet.rename(L"stylesheet");
  sheet.add(L"version", ql2::variant_t(L"1.0"));
  sheet.add_variant_bag(L"xsl:output", ql2::variant_bag_t()).add(L"method", ql2::variant_t(L"text"));
  ql2::variant_bag_t& templ = sheet.add_variant_bag(L"xsl:template", ql2::variant_bag_t());
  templ.add(L"match", ql2::variant_t(L"/bag"));
  templ.add_variant_bag(L"xsl:value-of", ql2::variant_bag_t())
      .add(L"select", ql2::variant_t(L"concat(@name, '/', @*[local-name()='count'], '/', item/@v, '/', name(/*))"));

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
  ASSERT_TRUE(xsl->set_stylesheet(text_sheet(
      "<xsl:value-of select=\"concat(boolean($b), '|', $s, '|', $n + 1, '|', string-length($e), "
      "'|', $d, '|', $big = 150000000000000000000, '|', $tiny * 1000000000, '|', $neg, '|', $x, '|', $narrow)\"/>",
      "<xsl:param name='b'/><xsl:param name='s'/><xsl:param name='n'/><xsl:param name='e' "
      "select=\"'unset'\"/><xsl:param name='d'/><xsl:param name='big'/><xsl:param "
      "name='tiny'/><xsl:param name='neg'/><xsl:param name='x'/><xsl:param name='narrow'/>").c_str()));
  std::pair<wchar_t const*, ql2::variant_t> const values[] = {
      {L"b", ql2::variant_t(true)},   {L"s", ql2::variant_t(L"a'b\"c")},   {L"n", ql2::variant_t(42)},
      {L"e", ql2::variant_t()},       {L"d", ql2::variant_t(2.5)},         {L"big", ql2::variant_t(1.5e20)},
      {L"tiny", ql2::variant_t(2e-9)}, {L"neg", ql2::variant_t(-7)},       {L"narrow", ql2::variant_t("n")}};
  for (auto const& [name, value] : values) EXPECT_EQ(xsl->add_parameter(name, value), 1) << name;
  EXPECT_EQ(xsl->add_parameter(L"x", L"3 - 2", true), 1);
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
  std::pair<char const*, char const*> const cases[] = {
      {"a&lt;b", "a<b"}, {"&amp;lt;", "<"}, {"x&gt;y &amp;amp;", "x>y &amp;"}, {"&amp;#x41;", "A"},
      {"&amp;#x0041;", "A"}, {"&amp;#x7;", "&#x7;"}, {"&amp;#x12345;", "&#x12345;"}};
  for (auto const& [literal, text] : cases) {
    std::string const sheet = text_sheet("<xsl:value-of select=\"'" + std::string(literal) + "'\"/>");
    ASSERT_TRUE(xsl->set_stylesheet(sheet.c_str()));
    EXPECT_EQ(run(xsl), "\n" + std::string(text) + "\n") << literal;
  }
  EXPECT_TRUE(xsl->set_stylesheet(text_sheet("<xsl:value-of select=\"'&amp;#xE9;'\"/>").c_str()));
  std::string out;
  EXPECT_THROW(xsl->transform(out), boost::numeric::positive_overflow);
}
