// Hostile stylesheets end with a clear error: writes, directories, network, endless
// recursion and exponential work. And two threads transform at once, each with its own
// visitor and content factory.
#include <unistd.h>

#include <future>
#include <thread>

#include "support/assert_recorder.hpp"
#include "support/temp_dir.hpp"
#include "xsl_support.hpp"

namespace ql2 = quillon2;
using q2test::run;
using q2test::text_sheet;

using XslSafety = q2test::temp_dir_test;

TEST_F(XslSafety, WritingFilesAndDirectoriesNeedsConsent) {
  auto xsl = ql2::xsl_t::create();
  q2test::recording_visitor_t visitor;
  xsl->set_visitor(&visitor);
  ASSERT_TRUE(xsl->set_xml("<a/>"));
  std::string const file = m_dir.file("out.txt");
  std::string const nested = m_dir.file("sub/out.txt");
  ASSERT_TRUE(xsl->set_stylesheet(
      text_sheet("<exsl:document href='" + file + "' method='text'>written</exsl:document>").c_str()));
  run(xsl, 0x40000001);
  EXPECT_NE(::access(file.c_str(), F_OK), 0);
  EXPECT_NE(visitor.m_messages.find("refused"), std::string::npos) << visitor.m_messages;

  xsl->allow(ql2::xsl_allow_write_file);
  run(xsl);
  EXPECT_EQ(q2test::read_file(file), "written");

  // Writing into a directory that is not there needs the second consent.
  ASSERT_TRUE(xsl->set_stylesheet(
      text_sheet("<exsl:document href='" + nested + "' method='text'>deep</exsl:document>").c_str()));
  visitor.m_messages.clear();
  run(xsl, 0x40000001);
  EXPECT_NE(::access(m_dir.file("sub").c_str(), F_OK), 0);
  EXPECT_NE(visitor.m_messages.find("refused"), std::string::npos) << visitor.m_messages;
  xsl->allow(ql2::xsl_allow_write_file | ql2::xsl_allow_create_directory);
  run(xsl);
  EXPECT_EQ(q2test::read_file(nested), "deep");
}

TEST_F(XslSafety, NetworkUrisAreRefused) {
  auto xsl = ql2::xsl_t::create();
  q2test::recording_visitor_t visitor;
  xsl->set_visitor(&visitor);
  ASSERT_TRUE(xsl->set_xml("<a/>"));
  ASSERT_TRUE(xsl->set_stylesheet(
      text_sheet("<xsl:value-of select=\"count(document('http://127.0.0.1:9/x.xml'))\"/>").c_str()));
  run(xsl, 0x40000001);
  EXPECT_NE(visitor.m_messages.find("cannot load http://127.0.0.1:9/x.xml"), std::string::npos)
      << visitor.m_messages;

  // A missing local document is the ordinary, recoverable case: an empty node set.
  ASSERT_TRUE(xsl->set_stylesheet(
      text_sheet("<xsl:value-of select=\"count(document('" + m_dir.file("none.xml") + "'))\"/>").c_str()));
  EXPECT_EQ(run(xsl), "\n0\n");
  EXPECT_NE(visitor.m_messages.find("cannot load " + m_dir.file("none.xml")), std::string::npos);

  q2test::assert_recorder_t asserts;
  EXPECT_FALSE(xsl->set_stylesheet(text_sheet("", "<xsl:include href='ftp://127.0.0.1:9/x.xsl'/>").c_str()));
  EXPECT_NE(visitor.m_messages.find("cannot load ftp://127.0.0.1:9/x.xsl"), std::string::npos);
}

TEST_F(XslSafety, EndlessRecursionAndExponentialWorkEndWithAnError) {
  auto xsl = ql2::xsl_t::create();
  q2test::recording_visitor_t visitor;
  xsl->set_visitor(&visitor);
  ASSERT_TRUE(xsl->set_xml("<a/>"));
  ASSERT_TRUE(xsl->set_stylesheet(
      text_sheet("<xsl:call-template name='t'/>",
            "<xsl:template name='t'><xsl:call-template name='t'/></xsl:template>")
          .c_str()));
  run(xsl, 0x40000001);
  EXPECT_NE(visitor.m_messages.find("recursion"), std::string::npos) << visitor.m_messages;

  // 2^40 calls, each evaluating XPath: the run's operation budget ends it.
  xsl->set_limits(0, 0, 200000);
  ASSERT_TRUE(xsl->set_stylesheet(
      text_sheet("<xsl:call-template name='t'><xsl:with-param name='n' select='40'/></xsl:call-template>",
            "<xsl:template name='t'><xsl:param name='n'/><xsl:if test='$n &gt; 0'>"
            "<xsl:call-template name='t'><xsl:with-param name='n' select='$n - 1'/></xsl:call-template>"
            "<xsl:call-template name='t'><xsl:with-param name='n' select='$n - 1'/></xsl:call-template>"
            "</xsl:if></xsl:template>")
          .c_str()));
  visitor.m_messages.clear();
  run(xsl, 0x40000001);
  EXPECT_NE(visitor.m_messages.find("limit"), std::string::npos) << visitor.m_messages;
}

TEST(XslThreads, TwoThreadsWithTheirOwnVisitorsAndFactories) {
  std::promise<void> go;  // lets the two threads start their runs together
  std::shared_future<void> const start = go.get_future().share();
  auto const work = [start](std::string tag, std::string& failures) {
    q2test::map_factory_t factory({{"mem://in.xml", "<r t='" + tag + "'><i/><i/></r>"},
                                   {"mem://lib.xsl",
                                    R"~(<xsl:stylesheet version="1.0" xmlns:xsl="http://www.w3.org/1999/XSL/Transform">
<xsl:template match="i"><xsl:message>m</xsl:message><xsl:value-of select="/r/@t"/></xsl:template></xsl:stylesheet>)~"}});
    q2test::recording_visitor_t visitor;
    auto xsl = ql2::xsl_t::create();
    xsl->set_visitor(&visitor);
    xsl->set_reader(&factory);
    bool ok = xsl->set_xml_path(L"mem://in.xml") &&
              xsl->set_stylesheet(text_sheet("<xsl:apply-templates select='r/i'/>",
                                        "<xsl:include href='mem://lib.xsl'/>")
                                      .c_str());
    start.wait();
    for (int i = 0; ok && i < 50; ++i) {
      std::string out;
      if (xsl->transform(out) != 1 || out != "\n" + tag + tag + "\n") failures += "bad run;";
    }
    if (!ok) failures += "setup failed;";
    if (visitor.m_messages != std::string(100, 'm')) failures += "messages: " + visitor.m_messages;
    if (visitor.m_finishes.size() != 50) failures += "finishes;";
  };
  std::string failures_a, failures_b;
  std::thread a(work, "A", std::ref(failures_a));
  std::thread b(work, "B", std::ref(failures_b));
  go.set_value();
  a.join();
  b.join();
  EXPECT_EQ(failures_a, "");
  EXPECT_EQ(failures_b, "");
}
