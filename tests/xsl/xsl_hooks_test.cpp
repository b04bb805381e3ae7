// xsl_t's hooks: extension functions of every result type, the visitor's progress, stop
// and messages, and content factories supplying the input, an import and document().
#include "support/assert_recorder.hpp"
#include "xsl_support.hpp"

namespace ql2 = quillon2;
using q2test::make_function;
using q2test::run;
using q2test::text_sheet;

TEST(XslFunctions, NamesAreUniqueUntilCleared) {
  auto xsl = ql2::xsl_t::create();
  auto first = make_function(L"f", 1, ql2::variant_t(L"first"));
  auto second = make_function(L"f", 1, ql2::variant_t(L"second"));
  EXPECT_TRUE(xsl->add_function(first));
  EXPECT_FALSE(xsl->add_function(second));
  ASSERT_TRUE(xsl->set_xml("<a/>"));
  ASSERT_TRUE(xsl->set_stylesheet(text_sheet("<xsl:value-of select='exsl:f()'/>").c_str()));
  EXPECT_EQ(run(xsl), "\nfirst\n");
  xsl->clear_functions();
  EXPECT_TRUE(xsl->add_function(nullptr, second.get()));
  EXPECT_EQ(run(xsl), "\nsecond\n");

  EXPECT_FALSE(xsl->add_functions(ql2::generic_iterator_t<ql2::sptr_t<ql2::xsl_function_base_t>>()));
  std::vector<ql2::sptr_t<ql2::xsl_function_base_t>> none;
  EXPECT_TRUE(xsl->add_functions(ql2::iterutil::make_iterator<ql2::sptr_t<ql2::xsl_function_base_t>>(
      none.begin(), none.end())));
}

TEST(XslFunctions, ArgumentsArriveLastFirstWithNodeSetsAsBags) {
  auto xsl = ql2::xsl_t::create();
  auto f = make_function(L"f", 1, ql2::variant_t(7));
  ASSERT_TRUE(xsl->add_function(f));
  ASSERT_TRUE(xsl->set_xml("<r><a x='1'/><b>t</b></r>"));
  ASSERT_TRUE(xsl->set_stylesheet(
      text_sheet("<xsl:value-of select=\"exsl:f(r/*, 'w\xC3\xA9', 2.5, true()) + 1\"/>").c_str()));
  EXPECT_EQ(run(xsl), "\n8\n");
  EXPECT_EQ(f->m_order, "vvvb");
  EXPECT_EQ(f->m_values, (std::vector<ql2::variant_t>{ql2::variant_t(true), ql2::variant_t(2.5),
                                                      ql2::variant_t(L"w\u00e9")}));
  ASSERT_EQ(f->m_bags.size(), 1u);
  ql2::variant_bag_t const& bag = f->m_bags[0];
  EXPECT_STREQ(bag.get_name(), L"bag");
  ASSERT_NE(bag.get<ql2::variant_bag_t>(L"a"), nullptr);
  ASSERT_NE(bag.get<ql2::variant_bag_t>(L"b"), nullptr);
  EXPECT_EQ(*bag.get<ql2::variant_bag_t>(L"a")->get<ql2::variant_t>(L"x"), ql2::variant_t(L"1"));
}

TEST(XslFunctions, EveryResultType) {
  auto xsl = ql2::xsl_t::create();
  auto number = make_function(L"number", 1, ql2::variant_t(2.25));
  auto flag = make_function(L"flag", 1, ql2::variant_t(true));
  auto wide = make_function(L"wide", 1, ql2::variant_t(L"w"));
  auto narrow = make_function(L"narrow", 1, ql2::variant_t("n"));
  auto null = make_function(L"null", 1);
  auto bag = make_function(L"bag", 2);
  ql2::variant_bag_t item;
  item.add(L"id", ql2::variant_t(L"i1"));
  item.add(L"", ql2::variant_t(L"text"));
  bag->m_bag.add_variant_bag(L"item", item);
  bag->m_bag.add(L"size", ql2::variant_t(3));
  for (auto const& f : {number, flag, wide, narrow, null, bag}) ASSERT_TRUE(xsl->add_function(f));
  ASSERT_TRUE(xsl->set_xml("<a/>"));
  // The bag's document is used by a variable, a key and twice over: it lives for the run.
  ASSERT_TRUE(xsl->set_stylesheet(text_sheet(
      "<xsl:variable name='doc' select='exsl:bag()'/>"
      "<xsl:value-of select=\"concat(exsl:number() * 2, '|', exsl:flag(), '|', exsl:wide(), '|', "
      "exsl:narrow(), '|[', exsl:null(), ']|', name($doc/*), '|', $doc/bag/@*[local-name()='size'], "
      "'|', count(exsl:bag()/bag/item))\"/>"
      "<xsl:for-each select='$doc'>|<xsl:value-of select=\"key('k', 'i1')\"/></xsl:for-each>",
      "<xsl:key name='k' match='item' use='@id'/>").c_str()));
  EXPECT_EQ(run(xsl), "\n4.5|true|w|n|[]|bag|3|1|text\n");
  EXPECT_EQ(run(xsl), "\n4.5|true|w|n|[]|bag|3|1|text\n");
}

TEST(XslFunctions, FailuresStopTheExpression) {
  q2test::assert_recorder_t asserts;
  auto xsl = ql2::xsl_t::create();
  q2test::recording_visitor_t visitor;
  xsl->set_visitor(&visitor);
  auto none = make_function(L"none", 0);
  auto thrower = make_function(L"thrower", 1);
  thrower->m_throw = true;
  auto blob = make_function(L"blob", 1, ql2::variant_t(static_cast<void const*>("xy"), 2u));
  for (auto const& f : {none, thrower, blob}) ASSERT_TRUE(xsl->add_function(f));
  ASSERT_TRUE(xsl->set_xml("<a/>"));

  ASSERT_TRUE(xsl->set_stylesheet(text_sheet("<xsl:value-of select='exsl:none()'/>").c_str()));
  run(xsl, 0x40000001);
  EXPECT_NE(visitor.m_messages.find("Invalid type"), std::string::npos) << visitor.m_messages;

  visitor.m_messages.clear();
  ASSERT_TRUE(xsl->set_stylesheet(text_sheet("<xsl:value-of select='exsl:thrower()'/>after").c_str()));
  EXPECT_EQ(run(xsl, 0x40000001).find("after"), std::string::npos);
  EXPECT_NE(visitor.m_messages.find("an extension function failed"), std::string::npos);

  ASSERT_TRUE(xsl->set_stylesheet(text_sheet("<xsl:value-of select='exsl:blob()'/>").c_str()));
  run(xsl, 0x40000001);
  EXPECT_EQ(visitor.m_finishes, (std::vector<bool>{false, false, false}));
}

TEST(XslVisitor, SeesStartProgressMessagesAndFinishAndStops) {
  auto xsl = ql2::xsl_t::create();
  q2test::recording_visitor_t visitor;
  xsl->set_visitor(&visitor);
  ASSERT_TRUE(xsl->set_xml("<r>\n<i/>\n<i/>\n<i/>\n</r>"));
  ASSERT_TRUE(xsl->set_stylesheet(text_sheet("<xsl:for-each select='r/i'>\n<xsl:message>seen</xsl:message>"
                                           "<xsl:value-of select='position()'/></xsl:for-each>")
                                      .c_str()));
  EXPECT_EQ(run(xsl), "\n123\n");
  ASSERT_EQ(visitor.m_starts.size(), 1u);
  EXPECT_EQ(visitor.m_starts[0].first, 5);
  EXPECT_EQ(visitor.m_starts[0].second, 3);
  EXPECT_GE(visitor.m_progress, 6);
  EXPECT_EQ(visitor.m_last_source_line, 4);
  EXPECT_EQ(visitor.m_last_stylesheet_line, 3);
  // A message's closing line feed comes alone, and a lone line feed is not passed on.
  EXPECT_EQ(visitor.m_messages, "seenseenseen");
  EXPECT_EQ(visitor.m_finishes, std::vector<bool>{true});

  // Stopping ends the run.
  std::string many = "<r>";
  for (int i = 0; i < 1000; ++i) many += "<i/>";
  ASSERT_TRUE(xsl->set_xml((many + "</r>").c_str()));
  visitor.m_stop_after = visitor.m_progress + 3;
  EXPECT_LT(run(xsl, 0x40000001).size(), 20u);
  EXPECT_EQ(visitor.m_progress, visitor.m_stop_after);
  EXPECT_EQ(visitor.m_finishes, (std::vector<bool>{true, false}));
}

TEST(XslReader, SuppliesInputImportAndDocument) {
  q2test::map_factory_t factory({
      {"mem://x/in.xml", "<r><k>ref.xml</k></r>"},
      {"mem://x/main.xsl",
       R"~(<xsl:stylesheet version="1.0" xmlns:xsl="http://www.w3.org/1999/XSL/Transform">
<xsl:import href="lib.xsl"/><xsl:output method="text"/>
<xsl:template match="/"><xsl:apply-templates select="document(r/k)/doc"/></xsl:template>
</xsl:stylesheet>)~"},
      {"mem://x/lib.xsl",
       R"~(<xsl:stylesheet version="1.0" xmlns:xsl="http://www.w3.org/1999/XSL/Transform">
<xsl:template match="doc">from <xsl:value-of select="@name"/></xsl:template></xsl:stylesheet>)~"},
      {"mem://x/ref.xml", "<doc name='ref'/>"},
  });
  q2test::recording_visitor_t visitor;
  {
    auto xsl = ql2::xsl_t::create();
    xsl->set_visitor(&visitor);
    xsl->set_reader(&factory);
    ASSERT_TRUE(xsl->set_xml_path(L"mem://x/in.xml"));
    ASSERT_TRUE(xsl->set_stylesheet_path(L"mem://x/main.xsl"));
    EXPECT_EQ(run(xsl), "\nfrom ref\n");
    EXPECT_EQ(factory.m_served, (std::vector<std::string>{"mem://x/in.xml", "mem://x/main.xsl",
                                                          "mem://x/lib.xsl", "mem://x/ref.xml"}));
    // What the factory does not claim is refused: no other scheme is fetched.
    q2test::assert_recorder_t asserts;
    EXPECT_FALSE(xsl->set_xml_path(L"mem://x/unknown.xml"));
    EXPECT_NE(visitor.m_messages.find("cannot load mem://x/unknown.xml"), std::string::npos);
  }
  // The object put the thread's previous (no) reader back.
  auto later = ql2::xsl_t::create();
  q2test::assert_recorder_t asserts;
  EXPECT_FALSE(later->set_xml_path(L"mem://x/in.xml"));
}

TEST(XslVisitor, HearsCompileErrorsOnItsThread) {
  auto xsl = ql2::xsl_t::create();
  q2test::recording_visitor_t visitor;
  xsl->set_visitor(&visitor);
  q2test::assert_recorder_t asserts;
  EXPECT_FALSE(xsl->set_stylesheet(text_sheet("<xsl:value-of select='1'/></xsl:template>"
                                            "<xsl:template match='a[['>")
                                       .c_str()));
  EXPECT_FALSE(visitor.m_messages.empty());
  EXPECT_FALSE(xsl->set_xml("<a><b></a>"));
  EXPECT_NE(visitor.m_messages.find("failed to read xml"), std::string::npos);
}
