// Bags as event streams: the walk of a bag, the builder, the XML writer visitor, the
// readers of XML into visitors, and RELAX NG checks.
#include <cstdint>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <quillon2/das/das_proxy.hpp>
#include <quillon2/das/notype_ptr.hpp>
#include <quillon2/das/type_factory.hpp>
#include <quillon2/das/variant.hpp>
#include <quillon2/das/variant_bag.hpp>
#include <quillon2/das/variant_bag_serialization.hpp>
#include <quillon2/das/variant_bag_serialization2.hpp>
#include <quillon2/das/variant_bag_visitor.hpp>
#include <quillon2/headers/kesmet.hpp>

#include "support/assert_recorder.hpp"
#include "support/temp_dir.hpp"

namespace ql2 = quillon2;
using ql2::variant_bag_t;
using ql2::variant_t;

namespace visitor_test {

// An object that saves one number, or fails its save with a code of its own.
class marker_t : public ql2::serializable_object_interface_t {
 public:
  int save(variant_bag_t& out) const override {
    if (m_fail != 0) return m_fail;
    out.put<variant_t>(L"mark", variant_t(m_mark));
    return 1;
  }
  int load(variant_bag_t const& in) override {
    m_mark = in.get_variant(L"mark", variant_t(-1)).get<ql2::s32_t>();
    return 1;
  }
  static int das_create_this_object(ql2::sptr_t<ql2::serializable_object_interface_t>& result) {
    result = ql2::sptr_t<ql2::serializable_object_interface_t>(new ql2::ref_counted_t<marker_t>());
    return 1;
  }
  int m_mark = 0;
  int m_fail = 0;

 protected:
  ql2::u32_t get_type() const override {
    return ql2::get_type_from_string(L"dasID_visitor_test::marker_t");
  }
};

}  // namespace visitor_test

QUILLON_DAS_REGISTER_SERIALIZABLE_TYPE(visitor_test::marker_t);

namespace {

constexpr int k_failure = 0x40000001;

std::string narrow(wchar_t const* text) {
  return KESMET_2_18::strings::utf16_to_utf8(text != nullptr ? text : L"");
}

// "type:text" of a value, for comparing event logs.
std::string describe(variant_t const& value) {
  if (value.get_type() == ql2::vtWString) return "w:" + narrow(value.get<wchar_t const*>());
  if (value.get_type() == ql2::vtNotypePtr) return "ptr";
  return std::to_string(value.get_type()) + ":" +
         narrow(ql2::get_value_string(value).get<wchar_t const*>());
}

// Writes every event into a log; answers false from the event numbered `refuse_at`.
class recorder_t : public ql2::variant_bag_visitor_t {
 public:
  bool on_start_variant_bag(char const* name) override {
    return note("start " + std::string(name));
  }
  bool on_end_variant_bag() override { return note("end"); }
  bool on_start_pointer(char const* name, char const* type_id, char const* ptr_type) override {
    return note("pointer " + std::string(name) + " " + type_id + " " + ptr_type);
  }
  bool on_end_pointer() override { return note("end pointer"); }
  bool on_variant(char const* name, variant_t const& value) override {
    return note("value " + std::string(name) + "=" + describe(value));
  }
  std::vector<std::string> log;
  std::size_t refuse_at = SIZE_MAX;

 private:
  bool note(std::string const& event) {
    log.push_back(event);
    return log.size() - 1 != refuse_at;
  }
};

ql2::sptr_t<recorder_t> make_recorder() {
  return ql2::sptr_t<recorder_t>(new ql2::ref_counted_t<recorder_t>());
}

ql2::notype_ptr_t marker(int mark, int fail = 0) {
  auto* object = new ql2::ref_counted_t<visitor_test::marker_t>();
  object->m_mark = mark;
  object->m_fail = fail;
  return ql2::notype_ptr_t(ql2::sptr_t<visitor_test::marker_t>(object));
}

using log_t = std::vector<std::string>;

std::string const k_marker = "dasID_visitor_test::marker_t";

}  // namespace

// ---------------------------------------------------------------------------------------
// The walk

TEST(DumpVariantBag, ValuesAndPointersInBagOrderThenChildBags) {
  variant_bag_t bag;
  variant_bag_t child;
  child.add<variant_t>(L"x", variant_t(1.5));
  bag.add_variant_bag(L"c", child);
  bag.add<variant_t>(L"a", variant_t(1));
  bag.add<variant_t>(L"p", variant_t(ql2::notype_ptr_t()));
  bag.add<variant_t>(L"b", variant_t(L"text", false));
  bag.add<variant_t>(L"q", variant_t(marker(7)));
  bag.add<variant_t>(L"#hidden", variant_t(2));
  bag.add_variant_bag(L"d", variant_bag_t());
  auto recorder = make_recorder();
  EXPECT_EQ(1, ql2::dump_variant_bag(bag, recorder));
  EXPECT_EQ(recorder->log,
            (log_t{"value a=6:1", "pointer p dasID_None ", "end pointer", "value b=w:text",
                   "pointer q " + k_marker + " " + k_marker, "value mark=6:7", "end pointer",
                   "start c", "value x=11:1.5", "end", "start d", "end"}));
}

TEST(DumpVariantBag, NullVisitorDoesNothing) {
  variant_bag_t bag;
  bag.add<variant_t>(L"a", variant_t(1));
  EXPECT_EQ(1, ql2::dump_variant_bag(bag, ql2::sptr_t<ql2::variant_bag_visitor_t>()));
}

TEST(DumpVariantBag, FalseStopsTheWalk) {
  variant_bag_t bag;
  variant_bag_t child;
  child.add<variant_t>(L"x", variant_t(1));
  child.add<variant_t>(L"y", variant_t(2));
  bag.add_variant_bag(L"c", child);
  bag.add_variant_bag(L"d", child);
  auto recorder = make_recorder();
  recorder->refuse_at = 2;
  EXPECT_EQ(k_failure, ql2::dump_variant_bag(bag, recorder));
  EXPECT_EQ(recorder->log, (log_t{"start c", "value x=6:1", "value y=6:2"}));
}

TEST(DumpVariantBag, AnObjectThatCannotSaveEndsTheWalkWithItsCode) {
  variant_bag_t bag;
  bag.add<variant_t>(L"q", variant_t(marker(1, 0x40000123)));
  bag.add<variant_t>(L"after", variant_t(1));
  auto recorder = make_recorder();
  EXPECT_EQ(0x40000123, ql2::dump_variant_bag(bag, recorder));
  EXPECT_TRUE(recorder->log.empty());
}

// ---------------------------------------------------------------------------------------
// The builder

TEST(VariantBagBuilder, RebuildsValuesFirstBagsLastAndPointersAsProxies) {
  variant_bag_t source;
  variant_bag_t child;
  child.add<variant_t>(L"x", variant_t(1));
  source.add_variant_bag(L"c", child);
  source.add<variant_t>(L"a", variant_t(1));
  source.add<variant_t>(L"a", variant_t(2));
  source.add<variant_t>(L"q", variant_t(marker(9)));
  source.add_variant_bag(L"c", variant_bag_t());

  variant_bag_t target;
  target.add<variant_t>(L"old", variant_t(0));
  auto builder = ql2::create_variant_bag_builder(target);
  EXPECT_FALSE(target.has<variant_t>(L"old"));
  EXPECT_EQ(1, ql2::dump_variant_bag(source, builder));

  auto values = target.begin<variant_t>();
  EXPECT_EQ(std::wstring(L"a"), values.get_name());
  EXPECT_EQ(2, values.get_value().get<ql2::s32_t>());
  values.next();
  EXPECT_EQ(std::wstring(L"q"), values.get_name());
  EXPECT_FALSE(values.next());
  EXPECT_EQ(2u, target.count<variant_bag_t>(L"c"));
  EXPECT_EQ(1, target.get<variant_bag_t>(L"c")->get_variant(L"x", variant_t()).get<ql2::s32_t>());

  ql2::notype_ptr_t const* pointer = target.get<ql2::notype_ptr_t>(L"q");
  ASSERT_NE(nullptr, pointer);
  EXPECT_EQ(k_marker, narrow(pointer->get_obj_type_as_string()));
  auto object = pointer->get<visitor_test::marker_t>();  // the proxy gives way to the object
  ASSERT_TRUE(object);
  EXPECT_EQ(9, object->m_mark);
}

TEST(VariantBagBuilder, UnbalancedEndsAreReportedAndChangeNothing) {
  q2test::assert_recorder_t asserts;
  variant_bag_t target;
  auto builder = ql2::create_variant_bag_builder(target);
  EXPECT_FALSE(builder->on_end_variant_bag());
  EXPECT_TRUE(asserts.saw("!m_bag_stack.empty()"));
  EXPECT_FALSE(builder->on_end_pointer());
  EXPECT_TRUE(builder->on_start_variant_bag("c"));
  EXPECT_FALSE(builder->on_end_pointer());  // a bag is open, not a pointer
  EXPECT_TRUE(builder->on_variant("x", variant_t(1)));
  EXPECT_TRUE(builder->on_end_variant_bag());
  EXPECT_TRUE(builder->on_variant("y", variant_t(2)));
  EXPECT_TRUE(target.get<variant_bag_t>(L"c")->has<variant_t>(L"x"));
  EXPECT_TRUE(target.has<variant_t>(L"y"));
}

TEST(ToUstringConverter, KeepsEveryConvertedNameAlive) {
  ql2::to_ustring_converter_t converter;
  wchar_t const* first = converter.convert("caf\xc3\xa9");
  std::vector<wchar_t const*> more;
  for (int i = 0; i < 1000; ++i) more.push_back(converter.convert(std::to_string(i).c_str()));
  EXPECT_EQ(std::wstring(L"caf\u00e9"), first);
  EXPECT_EQ(std::wstring(L"999"), more.back());
  EXPECT_EQ(std::wstring(L"\uFFFDx"), converter.convert("\xffx"));
  EXPECT_EQ(std::wstring(), converter.convert(nullptr));
}

// ---------------------------------------------------------------------------------------
// The XML writer visitor

namespace {

std::string xml_of(ql2::sptr_t<ql2::variant_bag_visitor_to_xml_t> const& visitor) {
  std::string out;
  EXPECT_EQ(1, visitor->to_xml_string(out));
  return out;
}

}  // namespace

TEST(VisitorToXml, TheFirstBagNamesTheRootAndEarlierValuesStayOnIt) {
  auto visitor = ql2::create_visitor_to_xml(nullptr);
  EXPECT_TRUE(visitor->on_variant("early", variant_t(L"1", false)));
  EXPECT_TRUE(visitor->on_start_variant_bag("top"));
  EXPECT_TRUE(visitor->on_variant("late", variant_t(L"2", false)));
  EXPECT_TRUE(visitor->on_start_variant_bag("inner"));
  EXPECT_TRUE(visitor->on_end_variant_bag());
  EXPECT_EQ("\n<top early=\"1\" late=\"2\">\n <inner/>\n</top>\n", xml_of(visitor));
}

TEST(VisitorToXml, TextOfARootGivesItsPrefixAndDeclaration) {
  auto visitor = ql2::create_visitor_to_xml("x");
  EXPECT_TRUE(visitor->on_variant("", variant_t(5)));
  EXPECT_EQ("\n<int:x xmlns:int=\"http://www.w3.org/2001/XMLSchema#int\">5</int:x>\n",
            xml_of(visitor));
}

TEST(VisitorToXml, NamesSplitAtOneColonOnly) {
  auto visitor = ql2::create_visitor_to_xml("r");
  EXPECT_TRUE(visitor->on_variant("a:b:c", variant_t(L"v", false)));
  EXPECT_TRUE(visitor->on_variant("xsl:mode", variant_t(L"m", false)));
  EXPECT_TRUE(visitor->on_variant("own:n", variant_t(L"o", false)));
  EXPECT_EQ(
      "\n<r xmlns:xsl=\"http://www.w3.org/1999/XSL/Transform\" a:b:c=\"v\" xsl:mode=\"m\" "
      "own:n=\"o\"/>\n",
      xml_of(visitor));
}

TEST(VisitorToXml, RootPathStepsNestAndPointersNeedNoDeclaration) {
  auto visitor = ql2::create_visitor_to_xml("a.b");
  // The pointer's element is "pointer:" and the local part of its name.
  EXPECT_TRUE(visitor->on_start_pointer("boolean:p", "T", "U"));
  EXPECT_TRUE(visitor->on_variant("v", variant_t(L"1", false)));
  EXPECT_TRUE(visitor->on_end_pointer());
  EXPECT_TRUE(visitor->on_variant("v", variant_t(L"first", false)));
  EXPECT_TRUE(visitor->on_variant("w", variant_t(true)));
  EXPECT_TRUE(visitor->on_variant("v", variant_t(L"last", false)));
  EXPECT_EQ(
      "\n<a xmlns:boolean=\"http://www.w3.org/2001/XMLSchema#boolean\">\n"
      " <b v=\"last\" boolean:w=\"true\">\n"
      "  <pointer:p pointer:type_id=\"T\" pointer:ptr_type=\"U\" v=\"1\"/>\n"
      " </b>\n"
      "</a>\n",
      xml_of(visitor));
}

TEST(VisitorToXml, RefusesWhatADocumentCannotHold) {
  auto visitor = ql2::create_visitor_to_xml("r");
  for (char const* name : {"a b", "a<b", "a/b", "a>b", "1st", "a&b", ""}) {
    SCOPED_TRACE(name);
    EXPECT_FALSE(visitor->on_start_variant_bag(name));
    if (*name != '\0') {
      EXPECT_FALSE(visitor->on_variant(name, variant_t(L"v", false)));
    }
  }
  EXPECT_FALSE(visitor->on_variant("t", variant_t(L"bell\a", false)));
  EXPECT_FALSE(visitor->on_variant("t", variant_t(L"\xD800", false)));
  EXPECT_FALSE(visitor->on_start_pointer("p", "bad\x01type", ""));
  EXPECT_TRUE(visitor->on_variant("#hidden", variant_t(1)));
  EXPECT_EQ("\n<r/>\n", xml_of(visitor));

  std::string out;
  EXPECT_EQ(k_failure, ql2::create_visitor_to_xml(nullptr)->to_xml_string(out));
}

TEST(VisitorToXml, AfterTheRootIsClosedEventsFailButPrintingWorks) {
  q2test::assert_recorder_t asserts;
  auto visitor = ql2::create_visitor_to_xml("r");
  EXPECT_TRUE(visitor->on_end_variant_bag());
  EXPECT_FALSE(visitor->on_variant("a", variant_t(1)));
  EXPECT_FALSE(visitor->on_start_variant_bag("c"));
  EXPECT_TRUE(asserts.saw("m_current_tag_ptr"));
  EXPECT_EQ("\n<r/>\n", xml_of(visitor));
  EXPECT_EQ("\n<r/>\n", xml_of(visitor));
}

TEST(VisitorToXml, TypesWithoutAnAttributeFormAreReportedAndWrittenEmpty) {
  q2test::assert_recorder_t asserts;
  auto visitor = ql2::create_visitor_to_xml("r");
  EXPECT_TRUE(visitor->on_variant("narrow", variant_t("old text")));
  EXPECT_EQ(1u, asserts.count());
  EXPECT_EQ("\n<r narrow=\"\"/>\n", xml_of(visitor));
}

class VisitorToXmlFile : public q2test::temp_dir_test {};

TEST_F(VisitorToXmlFile, WritesTheDeclarationInTheCallersEncoding) {
  auto visitor = ql2::create_visitor_to_xml("r");
  EXPECT_TRUE(visitor->on_variant("t", variant_t(L"gr\u00fc\u00df", false)));
  std::string const file = m_dir.file("latin.xml");
  ASSERT_EQ(1,
            visitor->to_xml_file(KESMET_2_18::strings::utf8_to_utf16(file).c_str(), "ISO-8859-1"));
  std::ifstream in(file, std::ios::binary);
  std::stringstream bytes;
  bytes << in.rdbuf();
  EXPECT_EQ("<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?>\n<r t=\"gr\xfc\xdf\"/>\n",
            bytes.str());

  // An encoding that does not exist fails and leaves the file as it was.
  EXPECT_EQ(k_failure, visitor->to_xml_file(KESMET_2_18::strings::utf8_to_utf16(file).c_str(),
                                            "NO-SUCH-ENCODING"));
  std::ifstream again(file, std::ios::binary);
  std::stringstream still;
  still << again.rdbuf();
  EXPECT_EQ(bytes.str(), still.str());
  EXPECT_EQ(k_failure, visitor->to_xml_file(nullptr, nullptr));
}

// ---------------------------------------------------------------------------------------
// Reading XML into visitors

TEST(ReadXmlToVisitor, AttributesInPrefixOrderAndTextAfterChildren) {
  auto recorder = make_recorder();
  char const* xml =
      "<doc xmlns:int='i' zeta='z' int:n='4' alpha=' a '>\n head <int:v>5</int:v> "
      "<pointer:p pointer:type_id='T' pointer:ptr_type='U' x='1'/><own:e xmlns:own='o'/> tail"
      "<boolean:b>maybe</boolean:b><blob:c/>\t</doc>";
  EXPECT_EQ(1, ql2::read_xml_to_visitor(xml, recorder.get(), nullptr));
  EXPECT_EQ(recorder->log, (log_t{"start doc", "value alpha=w: a ", "value zeta=w:z", "value n=6:4",
                                  "start v", "value =6:5", "end", "pointer p T U", "value x=w:1",
                                  "end pointer", "start own:e", "end", "start b", "value =w:maybe",
                                  "end", "start blob:c", "end", "value =w:head   tail", "end"}));
}

TEST(ReadXmlToVisitor, ThePathSelectsASubtreeByWildcards) {
  char const* xml =
      "<root a='0'><config b='1'><inner c='2'/></config><other d='3'/>"
      "<config b='4'>text</config></root>";
  auto recorder = make_recorder();
  EXPECT_EQ(1, ql2::read_xml_to_visitor(xml, recorder.get(), "root.config"));
  EXPECT_EQ(recorder->log, (log_t{"value b=w:1", "start inner", "value c=w:2", "end", "value b=w:4",
                                  "value =w:text"}));
  recorder = make_recorder();
  EXPECT_EQ(1, ql2::read_xml_to_visitor(xml, recorder.get(), "r*t.?th*"));
  EXPECT_EQ(recorder->log, (log_t{"value d=w:3"}));
  recorder = make_recorder();
  EXPECT_EQ(1, ql2::read_xml_to_visitor(xml, recorder.get(), "other"));
  EXPECT_TRUE(recorder->log.empty());
  recorder = make_recorder();
  EXPECT_EQ(1, ql2::read_xml_to_visitor(xml, recorder.get(), "root"));
  EXPECT_EQ("value a=w:0", recorder->log.front());
  EXPECT_EQ("start config", recorder->log[1]);
}

TEST(ReadXmlToVisitor, FalseFromTheVisitorDoesNotStopTheParse) {
  auto recorder = make_recorder();
  recorder->refuse_at = 0;
  EXPECT_EQ(1, ql2::read_xml_to_visitor("<a x='1'><b/></a>", recorder.get(), nullptr));
  EXPECT_EQ(5u, recorder->log.size());
}

TEST(ReadXmlToVisitor, IllFormedXmlFailsAfterTheEventsSoFar) {
  auto recorder = make_recorder();
  EXPECT_EQ(k_failure, ql2::read_xml_to_visitor("<a x='1'><b y='2'></a>", recorder.get(), nullptr));
  EXPECT_EQ(recorder->log, (log_t{"start a", "value x=w:1", "start b", "value y=w:2"}));
  EXPECT_EQ(k_failure, ql2::read_xml_to_visitor("", recorder.get(), nullptr));
  EXPECT_EQ(k_failure, ql2::read_xml_to_visitor(nullptr, recorder.get(), nullptr));
  EXPECT_EQ(1, ql2::read_xml_to_visitor("<only/>", nullptr, nullptr));
  EXPECT_EQ(k_failure, ql2::read_xml_to_visitor("<only>", nullptr, nullptr));
}

namespace {

class throwing_t : public recorder_t {
 public:
  bool on_variant(char const*, variant_t const&) override { throw std::runtime_error("no"); }
};

// Counts values and adds up numbers without keeping anything.
class summing_t : public ql2::variant_bag_visitor_t {
 public:
  bool on_start_variant_bag(char const*) override { return ++bags, true; }
  bool on_end_variant_bag() override { return true; }
  bool on_start_pointer(char const*, char const*, char const*) override { return true; }
  bool on_end_pointer() override { return true; }
  bool on_variant(char const*, variant_t const& value) override {
    if (value.get_type() == ql2::vtSInt64) sum += value.get<ql2::s64_t>();
    return ++values, true;
  }
  std::int64_t sum = 0;
  int bags = 0;
  int values = 0;
};

}  // namespace

TEST(ReadXmlToVisitor, AnExceptionOfTheVisitorFailsTheRead) {
  ql2::sptr_t<throwing_t> visitor(new ql2::ref_counted_t<throwing_t>());
  EXPECT_EQ(k_failure, ql2::read_xml_to_visitor("<a x='1'><b/></a>", visitor.get(), nullptr));
  EXPECT_EQ(visitor->log, (log_t{"start a"}));
}

TEST(ReadXmlToVisitor, AClientReadsALargeDocumentWithoutABag) {
  variant_bag_t bag;
  for (int i = 0; i < 5000; ++i) {
    variant_bag_t record;
    record.add<variant_t>(L"n", variant_t(static_cast<ql2::s64_t>(i)));
    record.add<variant_t>(L"label", variant_t(L"x", false));
    bag.add_variant_bag(L"record", record);
  }
  std::string text;
  ASSERT_EQ(1, ql2::save_variant_bag_to_string2(bag, text, L"big"));
  ql2::sptr_t<summing_t> visitor(new ql2::ref_counted_t<summing_t>());
  EXPECT_EQ(1, ql2::read_xml_to_visitor(text.c_str(), visitor.get(), "big"));
  EXPECT_EQ(5000, visitor->bags);
  EXPECT_EQ(10000, visitor->values);
  EXPECT_EQ(std::int64_t{4999} * 5000 / 2, visitor->sum);
}

class ReadXmlFileToVisitor : public q2test::temp_dir_test {};

TEST_F(ReadXmlFileToVisitor, ReadsFilesInTheirOwnEncoding) {
  std::string const file = m_dir.file("doc.xml");
  std::ofstream(file, std::ios::binary)
      << "<?xml version='1.0' encoding='ISO-8859-1'?>\n<doc t='gr\xfc\xdf'/>";
  auto recorder = make_recorder();
  std::wstring const name = KESMET_2_18::strings::utf8_to_utf16(file);
  EXPECT_EQ(1, ql2::read_xml_file_to_visitor(name.c_str(), recorder.get(), "doc"));
  EXPECT_EQ(recorder->log, (log_t{"value t=w:gr\u00fc\u00df"}));
  EXPECT_EQ(k_failure, ql2::read_xml_file_to_visitor(
                           KESMET_2_18::strings::utf8_to_utf16(m_dir.file("none.xml")).c_str(),
                           recorder.get(), nullptr));
  EXPECT_EQ(k_failure, ql2::read_xml_file_to_visitor(nullptr, recorder.get(), nullptr));
}

// ---------------------------------------------------------------------------------------
// RELAX NG

namespace {

char const k_schema[] =
    "<element name='config' xmlns='http://relaxng.org/ns/structure/1.0'>"
    "  <attribute name='version'/>"
    "  <zeroOrMore><element name='item'><text/></element></zeroOrMore>"
    "</element>";

class messages_t : public ql2::check_relaxng_callback_t {
 public:
  void on_message(int severity, char const* message) override {
    (severity == 1 ? errors : warnings).push_back(message);
  }
  std::vector<std::string> errors;
  std::vector<std::string> warnings;
};

}  // namespace

TEST(CheckRelaxNg, ValidDocumentsPassAndInvalidOnesAreExplained) {
  messages_t messages;
  EXPECT_EQ(1,
            ql2::check_relaxng("<config version='1'><item>a</item></config>", k_schema, &messages));
  EXPECT_TRUE(messages.errors.empty());
  EXPECT_EQ(k_failure, ql2::check_relaxng("<config><stray/></config>", k_schema, &messages));
  ASSERT_FALSE(messages.errors.empty());
  for (std::string const& message : messages.errors) EXPECT_LT(message.size(), 1024u);
  EXPECT_EQ(1, ql2::check_relaxng(L"<config version='\u00e9'/>",
                                  KESMET_2_18::strings::utf8_to_utf16(k_schema).c_str(), nullptr));
  EXPECT_EQ(k_failure,
            ql2::check_relaxng(L"<config/>", KESMET_2_18::strings::utf8_to_utf16(k_schema).c_str(),
                               nullptr));
}

TEST(CheckRelaxNg, BrokenSchemasAndDocumentsFail) {
  messages_t messages;
  EXPECT_EQ(k_failure, ql2::check_relaxng("<config version='1'/>", "<element name=", &messages));
  EXPECT_EQ(k_failure, ql2::check_relaxng("<config version='1'/>",
                                          "<grammar xmlns='http://relaxng.org/ns/structure/1.0'/>",
                                          &messages));
  EXPECT_FALSE(messages.errors.empty());
  EXPECT_EQ(k_failure, ql2::check_relaxng("<config version='1'>", k_schema, nullptr));
  EXPECT_EQ(k_failure, ql2::check_relaxng(static_cast<char const*>(nullptr), k_schema, nullptr));
}

TEST(CheckRelaxNg, EntityBombsAreNotExpanded) {
  std::string bomb = "<!DOCTYPE config [<!ENTITY a 'aaaaaaaaaaaaaaaa'>";
  std::string previous = "a";
  for (char c = 'b'; c <= 'k'; ++c) {
    bomb += std::string("<!ENTITY ") + c + " '";
    for (int i = 0; i < 16; ++i) bomb += "&" + previous + ";";
    bomb += "'>";
    previous = std::string(1, c);
  }
  bomb += "]><config version='&k;'><item>&k;</item></config>";
  EXPECT_EQ(k_failure, ql2::check_relaxng(bomb.c_str(), k_schema, nullptr));
}

TEST_F(ReadXmlFileToVisitor, SchemasCannotReachForFiles) {
  std::string const included = m_dir.file("part.rng");
  std::ofstream(included) << "<element name='config' "
                             "xmlns='http://relaxng.org/ns/structure/1.0'><empty/></element>";
  std::string const schema =
      "<externalRef href='file://" + included + "' xmlns='http://relaxng.org/ns/structure/1.0'/>";
  EXPECT_EQ(k_failure, ql2::check_relaxng("<config/>", schema.c_str(), nullptr));
}

TEST(TomlForm, DoesNothing) {
  variant_bag_t bag;
  bag.add<variant_t>(L"a", variant_t(1));
  EXPECT_EQ(k_failure, ql2::load_variant_bag_from_toml(bag, L"x.toml", L"p"));
  EXPECT_EQ(k_failure, ql2::save_variant_bag_to_toml(bag, nullptr, nullptr));
  EXPECT_TRUE(bag.has<variant_t>(L"a"));
}
