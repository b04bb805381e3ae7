// The element form of bags: exact documents, round trips through text and files,
// rejection of malformed and hostile input, and saves that never lose data.
#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdint>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include <quillon2/core/assert.hpp>
#include <quillon2/das/notype_ptr.hpp>
#include <quillon2/das/type_factory.hpp>
#include <quillon2/das/variant.hpp>
#include <quillon2/das/variant_bag.hpp>
#include <quillon2/das/variant_bag_serialization.hpp>
#include <quillon2/headers/kesmet.hpp>

#include "support/assert_recorder.hpp"
#include "support/temp_dir.hpp"

namespace ql2 = quillon2;
using ql2::variant_bag_t;
using ql2::variant_t;

namespace xml_test {

// An object that saves one number, or fails its save with a code of its own.
class point_t : public ql2::serializable_object_interface_t {
 public:
  int save(variant_bag_t& out) const override {
    if (m_fail != 0) return m_fail;
    out.put<variant_t>(L"x", variant_t(m_x));
    return 1;
  }
  int load(variant_bag_t const& in) override {
    m_x = in.get_variant(L"x", variant_t(-1)).get<ql2::s32_t>();
    return 1;
  }
  static int das_create_this_object(ql2::sptr_t<ql2::serializable_object_interface_t>& result) {
    result = ql2::sptr_t<ql2::serializable_object_interface_t>(new ql2::ref_counted_t<point_t>());
    return 1;
  }
  int m_x = 0;
  int m_fail = 0;

 protected:
  ql2::u32_t get_type() const override {
    return ql2::get_type_from_string(L"dasID_xml_test::point_t");
  }
};

class opaque_t : public ql2::object_interface_t {};

}  // namespace xml_test

QUILLON_DAS_REGISTER_SERIALIZABLE_TYPE(xml_test::point_t);

namespace {

constexpr int k_failure = 0x40000001;

std::wstring to_text(variant_bag_t const& bag) {
  variant_t text;
  EXPECT_EQ(1, ql2::save_variant_bag_to_string(bag, &text));
  wchar_t const* s = text.get<wchar_t const*>();
  return s != nullptr ? s : L"";
}

int from_text(variant_bag_t& bag, std::wstring const& text) {
  return ql2::load_variant_bag_from_string(bag, variant_t(text.c_str(), false));
}

std::wstring wide(std::string const& text) { return KESMET_2_18::strings::utf8_to_utf16(text); }

std::vector<std::string> directory_entries(std::string const& path) {
  std::vector<std::string> names;
  if (DIR* dir = ::opendir(path.c_str())) {
    while (dirent* entry = ::readdir(dir)) {
      std::string const name = entry->d_name;
      if (name != "." && name != "..") names.push_back(name);
    }
    ::closedir(dir);
  }
  return names;
}

variant_t blob(std::vector<unsigned char> const& bytes) {
  return variant_t(static_cast<void const*>(bytes.data()), static_cast<ql2::u64_t>(bytes.size()));
}

std::vector<unsigned char> blob_bytes(variant_t const& value) {
  std::vector<unsigned char> bytes(static_cast<std::size_t>(value.get_blob_size()));
  value.get_blob_data(bytes.data(), bytes.size());
  return bytes;
}

// A bag with one value of every type that the element form keeps.
variant_bag_t every_type() {
  variant_bag_t bag;
  bag.add<variant_t>(L"b", variant_t(true));
  bag.add<variant_t>(L"s8", variant_t(static_cast<char>(-128)));
  bag.add<variant_t>(L"u8", variant_t(static_cast<unsigned char>(255)));
  bag.add<variant_t>(L"s16", variant_t(static_cast<short>(-32768)));
  bag.add<variant_t>(L"u16", variant_t(static_cast<unsigned short>(65535)));
  bag.add<variant_t>(L"s32", variant_t(-2147483647 - 1));
  bag.add<variant_t>(L"u32", variant_t(4294967295u));
  bag.add<variant_t>(L"s64", variant_t(static_cast<ql2::s64_t>(INT64_MIN)));
  bag.add<variant_t>(L"u64", variant_t(static_cast<ql2::u64_t>(UINT64_MAX)));
  bag.add<variant_t>(L"f", variant_t(1.5f));
  bag.add<variant_t>(L"d", variant_t(-2.25e-300));
  bag.add<variant_t>(L"text",
                     variant_t(L" gr\u00fc\u00dfe \u65e5\u672c \U0001F600 <&>\"' \t\r\n ", false));
  bag.add<variant_t>(L"empty", variant_t(L"", false));
  bag.add<variant_t>(L"null", variant_t());
  bag.add<variant_t>(L"blob",
                     blob({0, 1, 0, 255, 0x7f, 0x80, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 42}));
  bag.add<variant_t>(L"no_bytes", blob({}));
  bag.add<variant_t>(L"\u00e9l\u00e8ve", variant_t(7));
  return bag;
}

void expect_every_type(variant_bag_t const& bag) {
  variant_bag_t const expected = every_type();
  for (auto it = expected.begin<variant_t>(); !it.at_end(); it.next()) {
    SCOPED_TRACE(KESMET_2_18::strings::utf16_to_utf8(it.get_name()));
    variant_t const* loaded = bag.get<variant_t>(it.get_name());
    ASSERT_NE(nullptr, loaded);
    EXPECT_EQ(it.get_value().get_type(), loaded->get_type());
    EXPECT_TRUE(it.get_value() == *loaded);
  }
  EXPECT_EQ(
      std::vector<unsigned char>({0, 1, 0, 255, 0x7f, 0x80, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 42}),
      blob_bytes(*bag.get<variant_t>(L"blob")));
}

class BagXmlFile : public q2test::temp_dir_test {
 protected:
  std::wstring name(std::string const& file) const { return wide(m_dir.file(file)); }
};

}  // namespace

// ---------------------------------------------------------------------------------------
// The exact document

TEST(BagXmlDocument, EmptyBagIsAnEmptyRoot) {
  EXPECT_EQ(L"<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<root/>\n", to_text(variant_bag_t()));
  variant_bag_t loaded;
  loaded.add<variant_t>(L"old", variant_t(1));
  EXPECT_EQ(1, from_text(loaded, to_text(variant_bag_t())));
  EXPECT_TRUE(loaded.is_empty());
}

TEST(BagXmlDocument, ValuesThenPointersThenBagsWithTypesAndBlobLines) {
  variant_bag_t bag;
  variant_bag_t child;
  child.add<variant_t>(L"id", variant_t(L"1", false));
  bag.add_variant_bag(L"child", child);
  bag.add<variant_t>(L"count", variant_t(5));
  bag.put<variant_t>(L"ptr", variant_t(ql2::notype_ptr_t()));
  bag.add<variant_t>(L"title", variant_t(L"abc", false));
  std::vector<unsigned char> bytes(20);
  for (std::size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<unsigned char>(i * 13);
  bag.add<variant_t>(L"data", blob(bytes));
  child.put<variant_t>(L"id", variant_t(L"2", false));
  bag.add_variant_bag(L"child", child);
  bag.add_variant_bag(L"none", variant_bag_t());
  bag.add<variant_t>(L"ratio", variant_t(0.123456789));
  bag.add<variant_t>(L"nothing", variant_t());

  EXPECT_EQ(
      L"<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
      L"<root>\n"
      L" <count type=\"s32_t\">5</count>\n"
      L" <title>abc</title>\n"
      L" <data type=\"blob\">\n"
      L"000d1a2734414e5b6875828f9ca9b6c3\n"
      L"d0ddeaf7\n"
      L"</data>\n"
      L" <ratio type=\"double\">0.123457</ratio>\n"
      L" <nothing type=\"null\"/>\n"
      L" <ptr type=\"pointer\" type_id=\"dasID_None\" ptr_type=\"dasID_None\"/>\n"
      L" <child>\n"
      L"  <id>1</id>\n"
      L" </child>\n"
      L" <child>\n"
      L"  <id>2</id>\n"
      L" </child>\n"
      L" <none type=\"bag\"/>\n"
      L"</root>\n",
      to_text(bag));
}

TEST(BagXmlDocument, EmptyBlobIsOneLineFeedAndHiddenNamesAreNotWritten) {
  variant_bag_t bag;
  bag.add<variant_t>(L"data", blob({}));
  bag.add<variant_t>(L"#file_name", variant_t(L"x", false));
  EXPECT_EQ(
      L"<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<root>\n <data "
      L"type=\"blob\">\n</data>\n</root>\n",
      to_text(bag));
}

TEST(BagXmlDocument, NarrowTextIsDeprecatedAndLeftOut) {
  q2test::assert_recorder_t capture;
  variant_bag_t bag;
  bag.add<variant_t>(L"narrow", variant_t("abc", false));
  bag.add<variant_t>(L"kept", variant_t(1));
  EXPECT_EQ(
      L"<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<root>\n <kept "
      L"type=\"s32_t\">1</kept>\n</root>\n",
      to_text(bag));
  EXPECT_EQ(1u, capture.count());
  EXPECT_TRUE(capture.saw("\"vtString type is deprecated on windows!\" == NULL"));
}

// ---------------------------------------------------------------------------------------
// Round trips

TEST(BagXmlRoundTrip, EveryValueTypeThroughText) {
  variant_bag_t loaded;
  ASSERT_EQ(1, from_text(loaded, to_text(every_type())));
  expect_every_type(loaded);
}

TEST_F(BagXmlFile, EveryValueTypeThroughAFile) {
  ASSERT_EQ(1, ql2::save_variant_bag(every_type(), name("all.xml").c_str()));
  variant_bag_t loaded;
  ASSERT_EQ(1, ql2::load_variant_bag(loaded, name("all.xml").c_str(), L""));
  expect_every_type(loaded);
}

TEST(BagXmlRoundTrip, RepeatedNamesAndNesting) {
  variant_bag_t bag;
  bag.add<variant_t>(L"v", variant_t(1));
  bag.add<variant_t>(L"v", variant_t(2));
  variant_bag_t first;
  first.add<variant_t>(L"n", variant_t(1));
  variant_bag_t second;
  second.add_variant_bag(L"inner", variant_bag_t());
  bag.add_variant_bag(L"c", first);
  bag.add_variant_bag(L"c", second);

  std::wstring const text = to_text(bag);
  EXPECT_NE(std::wstring::npos, text.find(L"<v type=\"s32_t\">1</v>"));
  EXPECT_NE(std::wstring::npos, text.find(L"<v type=\"s32_t\">2</v>"));
  variant_bag_t loaded;
  ASSERT_EQ(1, from_text(loaded, text));
  EXPECT_EQ(1u, loaded.count<variant_t>(L"v"));
  EXPECT_EQ(2, loaded.get<variant_t>(L"v")->get<int>());
  ASSERT_EQ(2u, loaded.count<variant_bag_t>(L"c"));
  auto it = loaded.begin_by_name<variant_bag_t>(L"c");
  EXPECT_EQ(1, it.get_value().get<variant_t>(L"n")->get<int>());
  it.next();
  ASSERT_FALSE(it.at_end());
  variant_bag_t const* inner = it.get_value().get<variant_bag_t>(L"inner");
  ASSERT_NE(nullptr, inner);
  EXPECT_TRUE(inner->is_empty());
}

TEST(BagXmlRoundTrip, DeepBagWithinTheLimit) {
  variant_bag_t bag;
  variant_bag_t* level = &bag;
  for (int i = 0; i < 200; ++i) level = &level->add_variant_bag(L"n", variant_bag_t());
  level->add<variant_t>(L"leaf", variant_t(7));
  variant_bag_t loaded;
  ASSERT_EQ(1, from_text(loaded, to_text(bag)));
  variant_bag_t const* walk = &loaded;
  for (int i = 0; i < 200 && walk != nullptr; ++i) walk = walk->get<variant_bag_t>(L"n");
  ASSERT_NE(nullptr, walk);
  EXPECT_EQ(7, walk->get<variant_t>(L"leaf")->get<int>());
}

TEST(BagXmlRoundTrip, UnknownObjectTypeSurvivesAsProxy) {
  std::wstring const text =
      L"<root><obj type=\"pointer\" type_id=\"dasID_not::registered\" "
      L"ptr_type=\"dasID_some::base\">"
      L"<x type=\"s32_t\">3</x><sub><y>t</y></sub></obj></root>";
  variant_bag_t loaded;
  ASSERT_EQ(1, from_text(loaded, text));
  ql2::notype_ptr_t const* pointer = loaded.get<ql2::notype_ptr_t>(L"obj");
  ASSERT_NE(nullptr, pointer);
  ASSERT_FALSE(pointer->is_null());
  EXPECT_STREQ(L"dasID_not::registered", pointer->get_obj_type_as_string());

  std::wstring const saved = to_text(loaded);
  EXPECT_NE(std::wstring::npos, saved.find(L"type_id=\"dasID_not::registered\""));
  EXPECT_NE(std::wstring::npos, saved.find(L"ptr_type=\"dasID_some::base\""));
  variant_bag_t again;
  ASSERT_EQ(1, from_text(again, saved));
  EXPECT_EQ(saved, to_text(again));
  EXPECT_NE(std::wstring::npos, saved.find(L"<x type=\"s32_t\">3</x>"));
}

TEST(BagXmlRoundTrip, ObjectOfARegisteredTypeIsSavedAndComesBack) {
  ql2::notype_ptr_t pointer;
  ASSERT_EQ(1, ql2::das_create(L"dasID_xml_test::point_t", pointer, nullptr));
  ql2::sptr_t<xml_test::point_t> point = pointer.get<xml_test::point_t>();
  ASSERT_TRUE(point);
  point->m_x = 7;
  variant_bag_t bag;
  bag.put<variant_t>(L"p", variant_t(pointer));
  bag.put<variant_t>(L"seen",
                     variant_t(ql2::notype_ptr_t(
                         point.get(), ql2::get_type_from_string(L"dasID_constxml_test::point_t"))));

  std::wstring const text = to_text(bag);
  EXPECT_NE(std::wstring::npos,
            text.find(L"<p type=\"pointer\" type_id=\"dasID_xml_test::point_t\">\n"
                      L"  <x type=\"s32_t\">7</x>\n </p>"));
  EXPECT_NE(std::wstring::npos,
            text.find(L"<seen type=\"pointer\" type_id=\"dasID_xml_test::point_t\" "
                      L"ptr_type=\"dasID_constxml_test::point_t\">"));
  variant_bag_t loaded;
  ASSERT_EQ(1, from_text(loaded, text));
  ql2::notype_ptr_t const* back = loaded.get<ql2::notype_ptr_t>(L"p");
  ASSERT_NE(nullptr, back);
  ql2::sptr_t<xml_test::point_t> loaded_point = back->get<xml_test::point_t>();
  ASSERT_TRUE(loaded_point);
  EXPECT_EQ(7, loaded_point->m_x);
  EXPECT_EQ(text, to_text(loaded));
}

TEST_F(BagXmlFile, ObjectsThatCannotBeSavedPassTheirCodeOnAndWriteNothing) {
  variant_bag_t good;
  good.add<variant_t>(L"v", variant_t(1));
  ASSERT_EQ(1, ql2::save_variant_bag(good, name("o.xml").c_str()));
  std::string const before = q2test::read_file(m_dir.file("o.xml"));

  ql2::sptr_t<xml_test::point_t> point(new ql2::ref_counted_t<xml_test::point_t>());
  point->m_fail = 0x40000123;
  variant_bag_t failing;
  failing.add<variant_t>(L"p", variant_t(ql2::notype_ptr_t(point)));
  EXPECT_EQ(0x40000123, ql2::save_variant_bag(failing, name("o.xml").c_str()));
  variant_t text(L"unchanged", false);
  EXPECT_EQ(0x40000123, ql2::save_variant_bag_to_string(failing, &text));
  EXPECT_STREQ(L"unchanged", text.get<wchar_t const*>());

  ql2::sptr_t<xml_test::opaque_t> opaque(new ql2::ref_counted_t<xml_test::opaque_t>());
  variant_bag_t unsavable;
  unsavable.add<variant_t>(L"o", variant_t(ql2::notype_ptr_t(opaque.get(), 0)));
  EXPECT_EQ(0x40000066, ql2::save_variant_bag(unsavable, name("o.xml").c_str()));
  EXPECT_EQ(before, q2test::read_file(m_dir.file("o.xml")));
}

// ---------------------------------------------------------------------------------------
// Reading

TEST(BagXmlLoad, TypesAreReadByTheirWords) {
  variant_bag_t bag;
  ASSERT_EQ(1,
            from_text(bag,
                      L"<root><a type=\"s32_t\"><b>1</b></a><w type=\"wstring\">x</w>"
                      L"<u type=\"whatever\"> y </u><d type=\"dummy\"/><t type=\"bool\">TRUE</t>"
                      L"<h type=\"blob\">0A ff\n0b</h><e type=\"bag\"/><n type=\"s8_t\"/></root>"));
  ASSERT_NE(nullptr, bag.get<variant_bag_t>(L"a"));
  EXPECT_EQ(nullptr, bag.get<variant_t>(L"a"));
  EXPECT_STREQ(L"x", bag.get<variant_t>(L"w")->get<wchar_t const*>());
  EXPECT_STREQ(L" y ", bag.get<variant_t>(L"u")->get<wchar_t const*>());
  EXPECT_EQ(ql2::vtNull, bag.get<variant_t>(L"d")->get_type());
  EXPECT_EQ(ql2::vtBool, bag.get<variant_t>(L"t")->get_type());
  EXPECT_FALSE(bag.get<variant_t>(L"t")->get<bool>());
  EXPECT_EQ(std::vector<unsigned char>({0x0a, 0xff, 0x0b}), blob_bytes(*bag.get<variant_t>(L"h")));
  ASSERT_NE(nullptr, bag.get<variant_bag_t>(L"e"));
  EXPECT_TRUE(bag.get<variant_bag_t>(L"e")->is_empty());
  EXPECT_EQ(ql2::vtSByte, bag.get<variant_t>(L"n")->get_type());
}

TEST(BagXmlLoad, OddHexDigitsFailAndKeepWhatWasRead) {
  variant_bag_t bag;
  EXPECT_EQ(k_failure, from_text(bag, L"<root><a>1</a><h type=\"blob\">abc</h><z>2</z></root>"));
  EXPECT_NE(nullptr, bag.get<variant_t>(L"a"));
  EXPECT_EQ(nullptr, bag.get<variant_t>(L"h"));
  EXPECT_EQ(nullptr, bag.get<variant_t>(L"z"));
}

TEST(BagXmlLoad, MalformedAndForeignDocumentsFailWithAnEmptyBag) {
  for (std::wstring const text :
       {L"", L"<root>", L"<root><a>1</a>", L"<root></toor>", L"<other><a>1</a></other>",
        L"not xml at all", L"<root><a type=\"s32_t\">1</a></root><root/>", L"<root>\x01</root>"}) {
    variant_bag_t bag;
    bag.add<variant_t>(L"old", variant_t(1));
    EXPECT_EQ(k_failure, from_text(bag, text)) << KESMET_2_18::strings::utf16_to_utf8(text);
    EXPECT_TRUE(bag.is_empty());
  }
  q2test::assert_recorder_t capture;
  variant_bag_t bag;
  EXPECT_EQ(k_failure, ql2::load_variant_bag_from_string(bag, variant_t(3)));
  EXPECT_EQ(1u, capture.count());
  EXPECT_TRUE(capture.saw("can_get<const wchar_t*>()"));
}

TEST(BagXmlLoad, InternalEntitiesAreSubstituted) {
  variant_bag_t bag;
  ASSERT_EQ(1, from_text(bag,
                         L"<!DOCTYPE root [<!ENTITY e \"<x>5</x>\"><!ENTITY t \"text\">]>"
                         L"<root>&e;<y>&t;&amp;&#x41;</y></root>"));
  EXPECT_STREQ(L"5", bag.get<variant_t>(L"x")->get<wchar_t const*>());
  EXPECT_STREQ(L"text&A", bag.get<variant_t>(L"y")->get<wchar_t const*>());
}

TEST_F(BagXmlFile, ExternalEntitiesBombsAndDeepNestingAreRefused) {
  q2test::write_file(m_dir.file("secret.txt"), "secret");
  std::string const url = "file://" + m_dir.file("secret.txt");
  std::vector<std::string> hostile = {
      "<!DOCTYPE root [<!ENTITY e SYSTEM \"" + url + "\">]><root><a>&e;</a></root>",
      "<!DOCTYPE root [<!ENTITY % p SYSTEM \"" + url + "\"> %p;]><root><a>1</a></root>",
      "<!DOCTYPE root [<!ENTITY e SYSTEM \"" + url + "\">]><root><a type=\"&e;\">1</a></root>",
  };
  std::string laughs = "<!DOCTYPE root [<!ENTITY a0 \"0123456789abcdef0123456789abcdef\">";
  for (int i = 1; i < 12; ++i) {
    laughs += "<!ENTITY a" + std::to_string(i) + " \"";
    for (int j = 0; j < 10; ++j) laughs += "&a" + std::to_string(i - 1) + ";";
    laughs += "\">";
  }
  hostile.push_back(laughs + "]><root><a>&a11;</a></root>");
  std::string deep = "<root>";
  for (int i = 0; i < 300; ++i) deep += "<n>";
  for (int i = 0; i < 300; ++i) deep += "</n>";
  hostile.push_back(deep + "</root>");

  for (std::string const& text : hostile) {
    variant_bag_t bag;
    EXPECT_EQ(k_failure, from_text(bag, wide(text))) << text.substr(0, 80);
    EXPECT_TRUE(bag.is_empty());
    q2test::write_file(m_dir.file("hostile.xml"), text);
    bag.add<variant_t>(L"old", variant_t(1));
    EXPECT_EQ(k_failure, ql2::load_variant_bag(bag, name("hostile.xml").c_str(), L""));
    EXPECT_TRUE(bag.is_empty());
  }
}

TEST_F(BagXmlFile, PathSelectsTheStartElement) {
  q2test::write_file(m_dir.file("p.xml"), "<root><a><x>0</x></a><a><b><v>1</v></b></a><top>2</top></root>");
  variant_bag_t bag;
  // Each step takes the first element of its name: the first "a" has no "b".
  EXPECT_EQ(k_failure, ql2::load_variant_bag(bag, name("p.xml").c_str(), L"a.b"));
  EXPECT_TRUE(bag.is_empty());

  q2test::write_file(m_dir.file("p.xml"), "<root><a><b><v>1</v></b></a><top>2</top></root>");
  ASSERT_EQ(1, ql2::load_variant_bag(bag, name("p.xml").c_str(), L"a.b"));
  EXPECT_STREQ(L"1", bag.get<variant_t>(L"v")->get<wchar_t const*>());
  ASSERT_EQ(1, ql2::load_variant_bag(bag, name("p.xml").c_str(), L""));
  EXPECT_NE(nullptr, bag.get<variant_t>(L"top"));
  EXPECT_EQ(k_failure, ql2::load_variant_bag(bag, name("p.xml").c_str(), L"a.c"));
  EXPECT_TRUE(bag.is_empty());
  bag.add<variant_t>(L"x", variant_t(1));
  EXPECT_EQ(k_failure, ql2::load_variant_bag(bag, name("p.xml").c_str(), nullptr));
  EXPECT_TRUE(bag.is_empty());
}

// ---------------------------------------------------------------------------------------
// Saves that would lose data

TEST_F(BagXmlFile, TextThatXmlCannotHoldFailsTheSaveAndKeepsTheOldFile) {
  variant_bag_t good;
  good.add<variant_t>(L"v", variant_t(1));
  ASSERT_EQ(1, ql2::save_variant_bag(good, name("keep.xml").c_str()));
  std::string const before = q2test::read_file(m_dir.file("keep.xml"));

  std::vector<variant_bag_t> bad(7);
  bad[0].add<variant_t>(L"t", variant_t(L"bell\x07", false));
  bad[1].add<variant_t>(L"t",
                        variant_t(std::wstring(1, static_cast<wchar_t>(0xD800)).c_str(), false));
  bad[2].add<variant_t>(L"a b", variant_t(1));
  bad[3].add<variant_t>(L"1x", variant_t(1));
  bad[4].add<variant_t>(L"", variant_t(1));
  bad[5].add_variant_bag(L"c", variant_bag_t()).add<variant_t>(L"t", variant_t(L"\x1b[0m", false));
  variant_bag_t* level = &bad[6];
  for (int i = 0; i < 300; ++i) level = &level->add_variant_bag(L"n", variant_bag_t());
  level->add<variant_t>(L"leaf", variant_t(1));

  for (std::size_t i = 0; i < bad.size(); ++i) {
    SCOPED_TRACE(i);
    EXPECT_EQ(k_failure, ql2::save_variant_bag(bad[i], name("keep.xml").c_str()));
    EXPECT_EQ(before, q2test::read_file(m_dir.file("keep.xml")));
    variant_t text(L"unchanged", false);
    EXPECT_EQ(k_failure, ql2::save_variant_bag_to_string(bad[i], &text));
    EXPECT_STREQ(L"unchanged", text.get<wchar_t const*>());
  }
  EXPECT_EQ(std::vector<std::string>{"keep.xml"}, directory_entries(m_dir.path()));
}

TEST(BagXmlSave, TextsBeyondWhatALoadAcceptsFailTheSave) {
  variant_bag_t bag;
  bag.add<variant_t>(L"t", variant_t(std::wstring(10000000, L'x').c_str(), false));
  variant_t text;
  EXPECT_EQ(k_failure, ql2::save_variant_bag_to_string(bag, &text));
  variant_bag_t blobs;
  blobs.add<variant_t>(L"b", blob(std::vector<unsigned char>(6000000, 1)));
  EXPECT_EQ(k_failure, ql2::save_variant_bag_to_string(blobs, &text));

  // What the parser still takes but a save would refuse is refused on loading, so that
  // everything loaded can be saved again.
  variant_bag_t loaded;
  EXPECT_EQ(k_failure,
            from_text(loaded, L"<root><t>" + std::wstring(9950000, L'x') + L"</t></root>"));
  EXPECT_TRUE(loaded.is_empty());
}

// ---------------------------------------------------------------------------------------
// Files

TEST_F(BagXmlFile, NullMissingAndUnreadableFiles) {
  variant_bag_t bag;
  bag.add<variant_t>(L"v", variant_t(1));
  EXPECT_EQ(k_failure, ql2::save_variant_bag(bag, nullptr));
  EXPECT_EQ(k_failure, ql2::load_variant_bag(bag, nullptr, L""));
  EXPECT_FALSE(bag.is_empty());
  EXPECT_EQ(k_failure, ql2::load_variant_bag(bag, name("missing.xml").c_str(), L""));
  EXPECT_TRUE(bag.is_empty());
  EXPECT_EQ(k_failure, ql2::save_variant_bag(bag, name("no/such/dir.xml").c_str()));
  EXPECT_EQ(k_failure, ql2::load_variant_bag(bag, wide(m_dir.path()).c_str(), L""));
  EXPECT_EQ(k_failure, ql2::save_variant_bag(bag, wide(m_dir.path()).c_str()));
}

TEST_F(BagXmlFile, SaveKeepsTheModeFollowsLinksAndTakesBackslashes) {
  variant_bag_t bag;
  bag.add<variant_t>(L"v", variant_t(1));
  ASSERT_EQ(1, ql2::save_variant_bag(bag, name("m.xml").c_str()));
  ASSERT_EQ(0, ::chmod(m_dir.file("m.xml").c_str(), 0640));
  ASSERT_EQ(0, ::symlink("m.xml", m_dir.file("link.xml").c_str()));
  bag.put<variant_t>(L"v", variant_t(2));
  std::wstring backslashed = name("link.xml");
  for (wchar_t& c : backslashed) c = c == L'/' ? L'\\' : c;
  ASSERT_EQ(1, ql2::save_variant_bag(bag, backslashed.c_str()));

  struct stat st;
  ASSERT_EQ(0, ::lstat(m_dir.file("link.xml").c_str(), &st));
  EXPECT_TRUE(S_ISLNK(st.st_mode));
  ASSERT_EQ(0, ::stat(m_dir.file("m.xml").c_str(), &st));
  EXPECT_EQ(0640u, st.st_mode & 07777);
  variant_bag_t loaded;
  ASSERT_EQ(1, ql2::load_variant_bag(loaded, name("m.xml").c_str(), L""));
  EXPECT_EQ(2, loaded.get<variant_t>(L"v")->get<int>());
}

TEST_F(BagXmlFile, ALockedFileIsNeitherReadNorReplaced) {
  variant_bag_t bag;
  bag.add<variant_t>(L"v", variant_t(1));
  ASSERT_EQ(1, ql2::save_variant_bag(bag, name("l.xml").c_str()));
  std::string const before = q2test::read_file(m_dir.file("l.xml"));
  int const fd = ::open(m_dir.file("l.xml").c_str(), O_RDONLY | O_CLOEXEC);
  ASSERT_LE(0, fd);
  ASSERT_EQ(0, ::flock(fd, LOCK_EX));

  variant_bag_t loaded;
  loaded.add<variant_t>(L"old", variant_t(1));
  EXPECT_EQ(k_failure, ql2::load_variant_bag(loaded, name("l.xml").c_str(), L""));
  EXPECT_TRUE(loaded.is_empty());
  bag.put<variant_t>(L"v", variant_t(2));
  EXPECT_EQ(k_failure, ql2::save_variant_bag(bag, name("l.xml").c_str()));
  EXPECT_EQ(before, q2test::read_file(m_dir.file("l.xml")));

  ::close(fd);
  EXPECT_EQ(1, ql2::load_variant_bag(loaded, name("l.xml").c_str(), L""));
  EXPECT_EQ(std::vector<std::string>{"l.xml"}, directory_entries(m_dir.path()));
}

TEST_F(BagXmlFile, ThreadsSaveAndLoadTheirOwnFilesAtOnce) {
  constexpr int k_threads = 4;
  std::vector<std::thread> threads;
  std::vector<int> failures(k_threads, 0);
  for (int t = 0; t < k_threads; ++t) {
    threads.emplace_back([&, t] {
      std::wstring const file = name("t" + std::to_string(t) + ".xml");
      for (int round = 0; round < 20; ++round) {
        variant_bag_t bag;
        bag.add<variant_t>(L"round", variant_t(round));
        variant_bag_t loaded;
        if (ql2::save_variant_bag(bag, file.c_str()) != 1 ||
            ql2::load_variant_bag(loaded, file.c_str(), L"") != 1 ||
            loaded.get<variant_t>(L"round") == nullptr ||
            loaded.get<variant_t>(L"round")->get<int>() != round) {
          ++failures[t];
        }
      }
    });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(std::vector<int>(k_threads, 0), failures);
}
