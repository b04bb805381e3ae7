// The quillon2 command end to end: real runs of the built program on files in a fresh
// directory, their output, messages and exit status.
#include <sys/stat.h>
#include <sys/wait.h>

#include <algorithm>
#include <cstdlib>
#include <string>

#include <gtest/gtest.h>

#include "support/temp_dir.hpp"

namespace {

struct run_t {
  int status = -1;
  std::string out;
  std::string err;
};

class cli_test : public q2test::temp_dir_test {
 protected:
  // Runs `arguments` (shell words) with the command, in the test's directory.
  run_t run(std::string const& arguments, std::string const& input = "", std::string out = "") {
    std::string const in = m_dir.file(".in"), err = m_dir.file(".err");
    bool const own_out = out.empty();
    if (own_out) out = m_dir.file(".out");
    q2test::write_file(in, input);
    std::string const line = "cd '" + m_dir.path() + "' && '" Q2_CLI "' " + arguments + " <'" + in +
                             "' >'" + out + "' 2>'" + err + "'";
    int const raw = std::system(line.c_str());
    run_t result;
    result.status = WIFEXITED(raw) ? WEXITSTATUS(raw) : 128 + WTERMSIG(raw);
    if (own_out) result.out = q2test::read_file(out);
    result.err = q2test::read_file(err);
    return result;
  }
  std::string file(std::string const& name) { return q2test::read_file(m_dir.file(name)); }
  bool exists(std::string const& name) {
    struct stat st;
    return ::stat(m_dir.file(name).c_str(), &st) == 0;
  }
  void make(std::string const& name, std::string const& text) { q2test::write_file(m_dir.file(name), text); }

  static constexpr char const* k_bag =
      "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
      "<root><name type=\"\">caf\xC3\xA9</name><count type=\"s32_t\">42</count>"
      "<inner><flag type=\"bool\">true</flag><t type=\"s32_t\">-7</t></inner></root>\n";
};

TEST_F(cli_test, help_version_and_usage_errors) {
  run_t r = run("--version");
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.out.rfind("quillon2 ", 0), 0u);
  for (char const* help : {"--help", "bag --help", "bag convert --help", "digest --help", "ps --help"}) {
    r = run(help);
    EXPECT_EQ(r.status, 0) << help;
    EXPECT_NE(r.out.find("Usage"), std::string::npos) << help;
  }
  EXPECT_EQ(run("bag convert").status, 2);
  EXPECT_EQ(run("bag convert a.xml b.xml --no-such-option").status, 2);
  EXPECT_EQ(run("digest sha256 x").status, 2);
  r = run("bag validate - -");
  EXPECT_EQ(r.status, 2);
  EXPECT_EQ(r.err, "quillon2: bag validate: \"-\" stands for standard input only once\n");
}

TEST_F(cli_test, bags_convert_between_the_xml_forms_and_print) {
  make("start.xml", k_bag);
  ASSERT_EQ(run("bag convert start.xml middle.bag.xml").status, 0);
  // An .xml name holding the attribute form is read as what it is.
  ASSERT_EQ(run("bag convert middle.bag.xml middle2.xml --to bag.xml").status, 0);
  ASSERT_EQ(run("bag convert middle2.xml end.xml --to xml").status, 0);
  run_t const first = run("bag print start.xml");
  run_t const last = run("bag print end.xml");
  EXPECT_EQ(first.status, 0);
  EXPECT_EQ(first.out, last.out);
  EXPECT_NE(first.out.find("count = 42"), std::string::npos) << first.out;
  EXPECT_NE(first.out.find("[inner]"), std::string::npos);

  run_t const value = run("bag get end.xml inner.flag");
  EXPECT_EQ(value.status, 0);
  EXPECT_EQ(value.out, "true\n");
  run_t const piped = run("bag convert - - --from xml --to bag.xml", k_bag);
  EXPECT_EQ(piped.status, 0);
  EXPECT_EQ(piped.out, file("middle.bag.xml"));
  EXPECT_EQ(run("bag get end.xml inner.nothing").status, 1);
}

TEST_F(cli_test, element_form_to_json_to_attribute_form_and_back) {
  // JSON numbers carry no width: a negative integer reads back as s32_t, a positive one
  // as u32_t, so the start holds only types that survive the trip.
  make("start.xml",
       "<root><name type=\"\">caf\xC3\xA9</name><count type=\"s32_t\">-42</count>"
       "<inner><flag type=\"bool\">true</flag></inner></root>");
  ASSERT_EQ(run("bag convert start.xml a.json --compact").status, 0);
  ASSERT_EQ(run("bag convert a.json b.bag.xml").status, 0);
  ASSERT_EQ(run("bag convert b.bag.xml end.xml").status, 0);
  EXPECT_EQ(run("bag print start.xml").out, run("bag print end.xml").out);
  EXPECT_EQ(file("a.json").find('\n'), file("a.json").size() - 1);  // compact: one line
  run_t const pretty = run("bag convert a.json - --to json --pretty");
  EXPECT_EQ(pretty.status, 0);
  EXPECT_GT(std::count(pretty.out.begin(), pretty.out.end(), '\n'), 3);
  make("bad.json", "{\"a\": [1, 2,}");
  run_t const bad = run("bag convert bad.json out.xml");
  EXPECT_EQ(bad.status, 1);
  EXPECT_NE(bad.err.find("bad.json: "), std::string::npos);
  EXPECT_EQ(bad.err.find('\n'), bad.err.size() - 1);
  EXPECT_FALSE(exists("out.xml"));
}

TEST_F(cli_test, xpath_selects_paths_values_and_scalars) {
  make("q.json", "{\"item\": [{\"kind\": \"x\"}, {\"kind\": \"y\"}], \"n\": 3}");
  run_t r = run("bag xpath q.json \"//item[@kind='y']\"");
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_NE(r.out.find("item[position()=2]"), std::string::npos) << r.out;
  EXPECT_EQ(run("bag xpath q.json 'count(//item[@kind])'").out, "2\n");
  EXPECT_EQ(run("bag xpath q.json '//@kind'").out, "x\ny\n");
  EXPECT_EQ(run("bag xpath q.json '//item[('").status, 1);
}

TEST_F(cli_test, bad_input_gives_one_line_and_no_output_file) {
  make("broken.xml", "<root><a type=\"s32_t\">1</a>");
  run_t r = run("bag convert broken.xml out.bag.xml");
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.err, "quillon2: bag convert: broken.xml: not a bag file of that form\n");
  EXPECT_FALSE(exists("out.bag.xml"));
  r = run("bag convert missing.xml out.bag.xml");
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.err.rfind("quillon2: bag convert: missing.xml: ", 0), 0u) << r.err;
  EXPECT_EQ(run("bag convert broken.xml out.txt").status, 2);  // no form for .txt
  // An old output stays when a conversion fails.
  make("kept.bag.xml", "old");
  EXPECT_EQ(run("bag convert broken.xml kept.bag.xml").status, 1);
  EXPECT_EQ(file("kept.bag.xml"), "old");
}

TEST_F(cli_test, validate_against_relax_ng) {
  make("schema.rng",
       "<element name=\"root\" xmlns=\"http://relaxng.org/ns/structure/1.0\"><zeroOrMore>"
       "<element><anyName/><attribute name=\"type\"/><text/></element></zeroOrMore></element>");
  make("good.xml", "<root><a type=\"s32_t\">1</a></root>");
  make("bad.xml", "<root><a>1</a></root>");
  EXPECT_EQ(run("bag validate good.xml schema.rng").status, 0);
  run_t const r = run("bag validate bad.xml schema.rng");
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.err.rfind("quillon2: bag validate: bad.xml: not valid", 0), 0u) << r.err;
}

TEST_F(cli_test, digests_read_like_md5sum_and_go_on_after_a_failure) {
  make("a.txt", "abc");
  make("b.txt", "123456789");
  run_t r = run("digest md5 a.txt b.txt");
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.out, "900150983cd24fb0d6963f7d28e17f72  a.txt\n25f9e794323b453885f5181f1b624d0b  b.txt\n");
  make("sums", r.out);
  EXPECT_EQ(std::system(("cd '" + m_dir.path() + "' && md5sum --quiet -c sums").c_str()), 0);
  r = run("digest crc32 b.txt missing a.txt");
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.out, "cbf43926  b.txt\n352441c2  a.txt\n");
  EXPECT_EQ(r.err, "quillon2: digest: missing: cannot read the file\n");
  r = run("digest sha1 -", "abc");
  EXPECT_EQ(r.out, "a9993e364706816aba3e25717850c26c9cd0d89d  -\n");
}

TEST_F(cli_test, processes_paths_volumes_and_libraries) {
  run_t r = run("ps");
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.out.rfind("    PID    PPID NLWP COMMAND\n", 0), 0u);
  EXPECT_NE(r.out.find(" quillon2\n"), std::string::npos);
  EXPECT_EQ(run("ps", "", "/dev/full").status, 1);
  EXPECT_EQ(run("ps | head -1").status, 0);

  r = run("path native '\\a\\b\\..\\c.txt'");
  EXPECT_EQ(r.out, "/a/b/../c.txt\n");
  EXPECT_EQ(run("path normalize '\\a\\b\\..\\c.txt'").out, "\\a\\c.txt\n");
  EXPECT_EQ(run("path native 'C:\\x'").status, 1);

  r = run("fsinfo .");
  EXPECT_EQ(r.status, 0);
  EXPECT_NE(r.out.find("executable: not executable"), std::string::npos) << r.out;
  EXPECT_EQ(run("fsinfo missing").status, 1);

  EXPECT_EQ(run("libs scan .").status, 0);
  EXPECT_EQ(run("libs scan . '('").status, 1);
}

TEST_F(cli_test, zip_archives_round_trip_and_pass_unzip) {
  make("a.txt", "first");
  ::mkdir(m_dir.file("sub").c_str(), 0700);
  make("sub/b.txt", "second");
  ASSERT_EQ(run("zip create out.zip a.txt sub/b.txt").status, 0);
  EXPECT_EQ(std::system(("unzip -tq '" + m_dir.file("out.zip") + "' >/dev/null").c_str()), 0);
  EXPECT_EQ(run("zip list out.zip").out, "a.txt\nsub/b.txt\n");
  EXPECT_EQ(run("zip cat out.zip sub/b.txt a.txt").out, "secondfirst");
  ::mkdir(m_dir.file("x").c_str(), 0700);
  ASSERT_EQ(run("zip extract out.zip x").status, 0);
  EXPECT_EQ(file("x/sub/b.txt"), "second");
  // A member that climbs out of the target is refused; the others are written.
  ASSERT_EQ(std::system(("cd '" + m_dir.path() + "/sub' && zip -q ../evil.zip ../a.txt b.txt").c_str()), 0);
  ::mkdir(m_dir.file("y").c_str(), 0700);
  run_t const r = run("zip extract evil.zip y");
  EXPECT_EQ(r.status, 1);
  EXPECT_NE(r.err.find("would leave the target"), std::string::npos) << r.err;
  EXPECT_EQ(file("y/b.txt"), "second");
  EXPECT_FALSE(exists("a.txt.bak"));
  make("bad.zip", "PK\x03\x04 not really");
  EXPECT_EQ(run("zip list bad.zip").status, 1);
  EXPECT_EQ(run("zip create none.zip missing.txt").status, 1);
  EXPECT_FALSE(exists("none.zip"));
}

TEST_F(cli_test, xslt_with_string_and_xpath_parameters) {
  make("in.xml", "<list><i>1</i><i>2</i></list>");
  make("s.xsl",
       "<xsl:stylesheet version='1.0' xmlns:xsl='http://www.w3.org/1999/XSL/Transform'>"
       "<xsl:output method='text'/><xsl:param name='who'/><xsl:param name='n'/>"
       "<xsl:template match='/'><xsl:value-of select='$who'/>:<xsl:value-of select='sum(//i) + $n'/>"
       "</xsl:template></xsl:stylesheet>");
  run_t r = run("xslt s.xsl in.xml --param who=a/b --xpath-param n=2*5");
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(r.out.find("a/b:13"), r.out.find_first_not_of("\n")) << r.out;
  ASSERT_EQ(run("xslt s.xsl in.xml result.txt --param who=x --xpath-param n=0").status, 0);
  EXPECT_NE(file("result.txt").find("x:3"), std::string::npos);
  make("broken.xsl", "<xsl:stylesheet");
  EXPECT_EQ(run("xslt broken.xsl in.xml").status, 1);
  EXPECT_EQ(run("xslt s.xsl in.xml --param novalue").status, 2);
}

TEST_F(cli_test, config_store_set_get_list) {
  ASSERT_EQ(run("config set app.xml window.width 640 --type int").status, 0);
  ASSERT_EQ(run("config set app.xml window.title 'a & <b>'").status, 0);
  EXPECT_EQ(run("config get app.xml Window.Width").out, "640\n");
  EXPECT_EQ(run("config get app.xml window.title").out, "a & <b>\n");
  EXPECT_EQ(run("config list app.xml").out, "window.title = a & <b>\nwindow.width = 640\n");
  EXPECT_EQ(run("config get app.xml window.height").status, 1);
  EXPECT_EQ(run("config set app.xml x.y notanumber --type int").status, 2);
  EXPECT_EQ(run("config get missing.xml a").status, 1);
}

}  // namespace
