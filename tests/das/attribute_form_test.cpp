// The attribute form of bags: exact documents, round trips of every type through text
// and files, the filter path, both forms through load_variant_bag2, hostile input, and
// saves that never lose data.
#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <fstream>
#include <mutex>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include <quillon2/das/notype_ptr.hpp>
#include <quillon2/das/type_factory.hpp>
#include <quillon2/das/variant.hpp>
#include <quillon2/das/variant_bag.hpp>
#include <quillon2/das/variant_bag_serialization.hpp>
#include <quillon2/das/variant_bag_serialization2.hpp>
#include <quillon2/headers/kesmet.hpp>

#include "support/assert_recorder.hpp"
#include "support/temp_dir.hpp"

namespace ql2 = quillon2;
using ql2::variant_bag_t;
using ql2::variant_t;

namespace form_test {

// An object that keeps one text.
class note_t : public ql2::serializable_object_interface_t {
 public:
  int save(variant_bag_t& out) const override {
    out.put<variant_t>(L"text", variant_t(m_text.c_str(), false));
    return 1;
  }
  int load(variant_bag_t const& in) override {
    variant_t const text = in.get_variant(L"text", variant_t(L"", false));
    m_text = text.can_get<wchar_t const*>() ? text.get<wchar_t const*>() : L"?";
    return 1;
  }
  static int das_create_this_object(ql2::sptr_t<ql2::serializable_object_interface_t>& result) {
    result = ql2::sptr_t<ql2::serializable_object_interface_t>(new ql2::ref_counted_t<note_t>());
    return 1;
  }
  std::wstring m_text;

 protected:
  ql2::u32_t get_type() const override {
    return ql2::get_type_from_string(L"dasID_form_test::note_t");
  }
};

}  // namespace form_test

QUILLON_DAS_REGISTER_SERIALIZABLE_TYPE(form_test::note_t);

namespace {

constexpr int k_failure = 0x40000001;

std::wstring wide(std::string const& text) { return KESMET_2_18::strings::utf8_to_utf16(text); }

std::string save(variant_bag_t const& bag, wchar_t const* root = L"root") {
  std::string text;
  EXPECT_EQ(1, ql2::save_variant_bag_to_string2(bag, text, root));
  return text;
}

variant_bag_t load(std::string const& text, wchar_t const* path = L"root") {
  variant_bag_t bag;
  EXPECT_EQ(1, ql2::load_variant_bag_from_string2(bag, text, path));
  return bag;
}

variant_t blob(std::string const& bytes) {
  return variant_t(static_cast<void const*>(bytes.data()), static_cast<ql2::u64_t>(bytes.size()));
}

// One value of every type that the attribute form keeps, in the order a load gives them
// back (wide strings first, then by prefix).
variant_bag_t every_type() {
  variant_bag_t bag;
  bag.add<variant_t>(L"text", variant_t(L" gr\u00fc\u00dfe \U0001F600 <&>\"' \t\r\n x", false));
  bag.add<variant_t>(L"b", variant_t(true));
  bag.add<variant_t>(L"s8", variant_t(static_cast<signed char>(-128)));
  bag.add<variant_t>(L"d", variant_t(0.123456789));
  bag.add<variant_t>(L"f", variant_t(1.1f));
  bag.add<variant_t>(L"s32", variant_t(-2147483647 - 1));
  bag.add<variant_t>(L"s64", variant_t(static_cast<ql2::s64_t>(INT64_MIN)));
  bag.add<variant_t>(L"nothing", variant_t());
  bag.add<variant_t>(L"s16", variant_t(static_cast<short>(-32768)));
  bag.add<variant_t>(L"u8", variant_t(static_cast<unsigned char>(255)));
  bag.add<variant_t>(L"u32", variant_t(4294967295u));
  bag.add<variant_t>(L"u64", variant_t(static_cast<ql2::u64_t>(UINT64_MAX)));
  bag.add<variant_t>(L"u16", variant_t(static_cast<unsigned short>(65535)));
  return bag;
}

void expect_same_values(variant_bag_t const& expected, variant_bag_t const& actual) {
  for (auto it = expected.begin<variant_t>(); !it.at_end(); it.next()) {
    SCOPED_TRACE(KESMET_2_18::strings::utf16_to_utf8(it.get_name()));
    variant_t const* loaded = actual.get<variant_t>(it.get_name());
    ASSERT_NE(nullptr, loaded);
    EXPECT_EQ(it.get_value().get_type(), loaded->get_type());
    EXPECT_TRUE(it.get_value() == *loaded);
  }
}

class AttributeFormFile : public q2test::temp_dir_test {
 protected:
  std::wstring name(std::string const& file) const { return wide(m_dir.file(file)); }
};

}  // namespace

// ---------------------------------------------------------------------------------------
// The exact document

TEST(AttributeFormDocument, ValuesAreTypedAttributesAndBagsAreChildren) {
  variant_bag_t bag;
  bag.add<variant_t>(L"count", variant_t(5));
  bag.add<variant_t>(L"title", variant_t(L"abc", false));
  bag.add<variant_t>(L"data", blob("\x01\x02"));
  variant_bag_t child;
  child.add<variant_t>(L"id", variant_t(L"1", false));
  bag.add_variant_bag(L"child", child);
  child.put<variant_t>(L"id", variant_t(L"2", false));
  bag.add_variant_bag(L"child", child);
  EXPECT_EQ(
      "\n<project xmlns:blob=\"urn:quillon2/2009/BagSchema#blob\" "
      "xmlns:int=\"http://www.w3.org/2001/XMLSchema#int\" int:count=\"5\" title=\"abc\" "
      "blob:data=\"\">\n"
      " <child id=\"1\"/>\n"
      " <child id=\"2\"/>\n"
      "</project>\n",
      save(bag, L"project"));
}

TEST(AttributeFormDocument, DeclaresUsedPrefixesInTableOrder) {
  variant_bag_t bag;
  bag.add<variant_t>(L"z", variant_t(static_cast<unsigned short>(1)));
  bag.add<variant_t>(L"y", variant_t(2.5));
  bag.add<variant_t>(L"x", variant_t());
  bag.add_variant_bag(L"date:when", variant_bag_t());
  bag.add<variant_t>(L"p", variant_t(ql2::notype_ptr_t()));
  EXPECT_EQ(
      "\n<r xmlns:date=\"http://exslt.org/dates-and-times\" "
      "xmlns:double=\"urn:quillon2/2001/XMLSchema#double\" "
      "xmlns:null=\"urn:quillon2/2009/BagSchema#null\" "
      "xmlns:unsignedShort=\"http://www.w3.org/2001/XMLSchema#unsignedShort\" "
      "unsignedShort:z=\"1\" double:y=\"2.5\" null:x=\"\">\n"
      " <pointer:p pointer:type_id=\"dasID_None\" pointer:ptr_type=\"\"/>\n"
      " <date:when/>\n"
      "</r>\n",
      save(bag, L"r"));
}

TEST(AttributeFormDocument, TextEntriesHiddenEntriesAndRepeatedNames) {
  variant_bag_t bag;
  variant_bag_t x;
  x.add<variant_t>(L"", variant_t(5));
  bag.add_variant_bag(L"x", x);
  bag.add<variant_t>(L"", variant_t(L"a<b", false));
  bag.add<variant_t>(L"#file_name", variant_t(L"f", false));
  bag.add<variant_t>(L"v", variant_t(1));
  bag.add<variant_t>(L"w", variant_t(2));
  bag.add<variant_t>(L"v", variant_t(3));
  bag.add_variant_bag(L"#hidden", variant_bag_t());
  EXPECT_EQ(
      "\n<r xmlns:int=\"http://www.w3.org/2001/XMLSchema#int\" int:v=\"3\" int:w=\"2\">a&lt;b"
      " <int:x>5</int:x>\n"
      "</r>\n",
      save(bag, L"r"));
}

TEST(AttributeFormDocument, RootPathStepsNest) {
  variant_bag_t bag;
  bag.add<variant_t>(L"v", variant_t(L"1", false));
  EXPECT_EQ("\n<a>\n <b>\n  <c v=\"1\"/>\n </b>\n</a>\n", save(bag, L"a.b.c"));
}

TEST(AttributeFormDocument, SavesRefuseWhatADocumentCannotHold) {
  std::string text = "untouched";
  variant_bag_t bag;
  EXPECT_EQ(k_failure, ql2::save_variant_bag_to_string2(bag, text, L""));
  EXPECT_EQ(k_failure, ql2::save_variant_bag_to_string2(bag, text, nullptr));
  EXPECT_EQ(k_failure, ql2::save_variant_bag_to_string2(bag, text, L"a..b"));
  EXPECT_EQ(k_failure, ql2::save_variant_bag_to_string2(bag, text, L"two words"));
  for (wchar_t const* name : {L"a b", L"a<b", L"a/b", L"x>", L"9lives", L"a&b"}) {
    variant_bag_t named;
    named.add<variant_t>(name, variant_t(L"v", false));
    EXPECT_EQ(k_failure, ql2::save_variant_bag_to_string2(named, text, L"r"));
    variant_bag_t child;
    child.add_variant_bag(name, variant_bag_t());
    EXPECT_EQ(k_failure, ql2::save_variant_bag_to_string2(child, text, L"r"));
  }
  for (wchar_t const* value : {L"bell\a", L"nul\x1f", L"\xDC00", L"\xFFFE"}) {
    variant_bag_t bad;
    bad.add<variant_t>(L"v", variant_t(value, false));
    EXPECT_EQ(k_failure, ql2::save_variant_bag_to_string2(bad, text, L"r"));
  }
  EXPECT_EQ("untouched", text);
}

// ---------------------------------------------------------------------------------------
// Round trips

TEST(AttributeFormRoundTrip, EveryTypeComesBackThroughText) {
  variant_bag_t const bag = every_type();
  std::string const text = save(bag);
  variant_bag_t const loaded = load(text);
  expect_same_values(bag, loaded);
  EXPECT_TRUE(loaded == bag);  // every_type() lists the values in the order a load gives
  EXPECT_EQ(std::wstring(L"root"), loaded.get_name());
  EXPECT_EQ(text, save(loaded));
}

TEST(AttributeFormRoundTrip, ThroughWideStringVariants) {
  variant_t text;
  ASSERT_EQ(1, ql2::save_variant_bag_to_string2(every_type(), text, L"root"));
  ASSERT_EQ(ql2::vtWString, text.get_type());
  variant_bag_t loaded;
  ASSERT_EQ(1, ql2::load_variant_bag_from_string2(loaded, text, L"root"));
  expect_same_values(every_type(), loaded);

  q2test::assert_recorder_t asserts;
  EXPECT_EQ(k_failure, ql2::load_variant_bag_from_string2(loaded, variant_t(5), L"root"));
  EXPECT_TRUE(asserts.saw("can_get<const kesmet2::uchar_t*>()"));
}

TEST(AttributeFormRoundTrip, NestedBagsEmptyBagsAndRepeatedNames) {
  variant_bag_t bag;
  variant_bag_t first;
  first.add<variant_t>(L"i", variant_t(1));
  variant_bag_t grand;
  grand.add<variant_t>(L"deep", variant_t(L"yes", false));
  first.add_variant_bag(L"grand", grand);
  bag.add_variant_bag(L"item", first);
  bag.add_variant_bag(L"empty", variant_bag_t());
  variant_bag_t second;
  second.add<variant_t>(L"i", variant_t(2));
  bag.add_variant_bag(L"item", second);
  variant_bag_t const loaded = load(save(bag));
  EXPECT_TRUE(loaded == bag);
  ASSERT_EQ(2u, loaded.count<variant_bag_t>(L"item"));
  auto items = loaded.begin_by_name(L"item");
  EXPECT_EQ(1, items.get_value().get_variant(L"i", variant_t()).get<ql2::s32_t>());
  items.next();
  EXPECT_EQ(2, items.get_value().get_variant(L"i", variant_t()).get<ql2::s32_t>());
  EXPECT_TRUE(loaded.get<variant_bag_t>(L"empty")->is_empty());
}

TEST(AttributeFormRoundTrip, BlobsComeBackAsEmptyTextUnderTheirPrefixedName) {
  variant_bag_t bag;
  bag.add<variant_t>(L"data", blob("bytes"));
  std::string const text = save(bag);
  variant_bag_t const loaded = load(text);
  variant_t const* data = loaded.get<variant_t>(L"blob:data");
  ASSERT_NE(nullptr, data);
  EXPECT_EQ(ql2::vtWString, data->get_type());
  EXPECT_EQ(std::wstring(), data->get<wchar_t const*>());
  EXPECT_EQ(text, save(loaded));
}

TEST(AttributeFormRoundTrip, PointersComeBackAsProxiesOfTheirObjects) {
  auto* note = new ql2::ref_counted_t<form_test::note_t>();
  note->m_text = L"remember";
  variant_bag_t bag;
  bag.add<variant_t>(L"n", variant_t(ql2::notype_ptr_t(ql2::sptr_t<form_test::note_t>(note))));
  bag.add<variant_t>(L"none", variant_t(ql2::notype_ptr_t()));
  std::string const text = save(bag);
  EXPECT_NE(std::string::npos,
            text.find("<pointer:n pointer:type_id=\"dasID_form_test::note_t\" "
                      "pointer:ptr_type=\"dasID_form_test::note_t\" text=\"remember\"/>"));
  variant_bag_t const loaded = load(text);
  ql2::notype_ptr_t const* pointer = loaded.get<ql2::notype_ptr_t>(L"n");
  ASSERT_NE(nullptr, pointer);
  auto object = pointer->get<form_test::note_t>();
  ASSERT_TRUE(object);
  EXPECT_EQ(L"remember", object->m_text);
  ql2::notype_ptr_t const* none = loaded.get<ql2::notype_ptr_t>(L"none");
  ASSERT_NE(nullptr, none);
  EXPECT_EQ(std::wstring(L"dasID_None"), none->get_obj_type_as_string());
  EXPECT_EQ(text, save(loaded));
}

TEST(AttributeFormRoundTrip, NumbersAreExactAndFloatsKeepNineDigits) {
  variant_bag_t bag;
  bag.add<variant_t>(L"d", variant_t(0.123456789));
  bag.add<variant_t>(L"tiny", variant_t(4.9406564584124654e-324));
  bag.add<variant_t>(L"third", variant_t(1.0 / 3.0));
  bag.add<variant_t>(L"f", variant_t(0.1f));
  std::string const text = save(bag);
  EXPECT_NE(std::string::npos, text.find("float:f=\"0.100000001\""));
  variant_bag_t const loaded = load(text);
  EXPECT_EQ(0.123456789, loaded.get<variant_t>(L"d")->get<double>());
  EXPECT_EQ(4.9406564584124654e-324, loaded.get<variant_t>(L"tiny")->get<double>());
  EXPECT_EQ(1.0 / 3.0, loaded.get<variant_t>(L"third")->get<double>());
  EXPECT_EQ(0.1f, loaded.get<variant_t>(L"f")->get<float>());
}

TEST_F(AttributeFormFile, EveryTypeComesBackThroughAFileWithItsName) {
  std::wstring const file = name("bag.xml");
  ASSERT_EQ(1, ql2::save_variant_bag2(every_type(), file.c_str(), L"settings"));
  std::string const bytes = q2test::read_file(m_dir.file("bag.xml"));
  EXPECT_EQ(0u, bytes.find("<?xml version='1.0' encoding='UTF-8'?>\n\n<settings "));
  variant_bag_t loaded;
  ASSERT_EQ(1, ql2::load_variant_bag2(loaded, file.c_str(), L"settings", false));
  expect_same_values(every_type(), loaded);
  EXPECT_EQ(file, loaded.get_variant(L"#file_name", variant_t()).get<wchar_t const*>());
  EXPECT_EQ(std::wstring(L"settings"), loaded.get_name());
}

// ---------------------------------------------------------------------------------------
// Reading

TEST(AttributeFormLoad, PrefixesGiveTypesAndUnknownOnesStayText) {
  variant_bag_t const bag = load(
      "<root xmlns:boolean='b' xmlns:own='o' boolean:t='1' boolean:f='0' boolean:m='maybe' "
      "own:x='y' byte:n='300' int:junk='12abc' double:w=' 2.5 '/>");
  EXPECT_EQ(variant_t(true), *bag.get<variant_t>(L"t"));
  EXPECT_EQ(variant_t(false), *bag.get<variant_t>(L"f"));
  EXPECT_EQ(std::wstring(L"maybe"), bag.get<variant_t>(L"boolean:m")->get<wchar_t const*>());
  EXPECT_EQ(std::wstring(L"y"), bag.get<variant_t>(L"own:x")->get<wchar_t const*>());
  // Numbers that do not parse are not failures: the converters decide.
  EXPECT_EQ(ql2::vtSByte, bag.get<variant_t>(L"n")->get_type());
  EXPECT_EQ(127, bag.get<variant_t>(L"n")->get<ql2::s8_t>());
  EXPECT_EQ(ql2::vtSInt, bag.get<variant_t>(L"junk")->get_type());
  EXPECT_EQ(2.5, bag.get<variant_t>(L"w")->get<double>());
}

TEST(AttributeFormLoad, WideStringsNamedLikeTypesComeBackTyped) {
  variant_bag_t bag;
  bag.add<variant_t>(L"boolean:x", variant_t(L"true", false));
  variant_bag_t const loaded = load(save(bag));
  EXPECT_EQ(variant_t(true), loaded.get_variant(L"x", variant_t()));
}

TEST(AttributeFormLoad, TextLosesItsSurroundingWhiteSpace) {
  variant_bag_t const bag = load("<root><v>  two words \n</v><int:n> 7 </int:n><e>   </e></root>");
  EXPECT_EQ(std::wstring(L"two words"),
            bag.get<variant_bag_t>(L"v")->get<variant_t>(L"")->get<wchar_t const*>());
  EXPECT_EQ(variant_t(7), *bag.get<variant_bag_t>(L"n")->get<variant_t>(L""));
  EXPECT_TRUE(bag.get<variant_bag_t>(L"e")->is_empty());
}

TEST(AttributeFormLoad, NamesThatAreNoQualifiedNamesComeBackAsTheyWere) {
  // libxml2 reads these with a namespace error and goes on; the prefix stays in the name.
  std::string const text =
      "<root><int:a:b>7</int:a:b><null:c:d/><pointer:e:f pointer:type_id='T'/><g:/>"
      "<int:1st/></root>";
  variant_bag_t const bag = load(text);
  EXPECT_EQ(variant_t(L"7", false),
            bag.get<variant_bag_t>(L"int:a:b")->get_variant(L"", variant_t()));
  EXPECT_TRUE(bag.get<variant_bag_t>(L"null:c:d")->is_empty());
  EXPECT_TRUE(bag.has<ql2::notype_ptr_t>(L"e:f"));
  EXPECT_NE(nullptr, bag.get<variant_bag_t>(L"g:"));
  EXPECT_NE(nullptr, bag.get<variant_bag_t>(L"int:1st"));
  std::string const saved = save(bag);
  EXPECT_NE(std::string::npos, saved.find("<int:a:b>7</int:a:b>"));
  // A pointer's element is "pointer:" and the local part of its name, as for bags.
  EXPECT_NE(std::string::npos, saved.find("<pointer:f pointer:type_id=\"T\""));
}

TEST(AttributeFormLoad, ANullTextIsItsPrefixAndLoadsAsNoValue) {
  variant_bag_t bag;
  variant_bag_t holder;
  holder.add<variant_t>(L"", variant_t());
  bag.add_variant_bag(L"x", holder);
  std::string const text = save(bag);
  EXPECT_NE(std::string::npos, text.find("<null:x/>"));
  // Only text converts: the element without text gives an empty bag.
  variant_bag_t const loaded = load(text);
  ASSERT_NE(nullptr, loaded.get<variant_bag_t>(L"x"));
  EXPECT_TRUE(loaded.get<variant_bag_t>(L"x")->is_empty());
  // A text's prefix is declared even under an element with a prefix of its own.
  variant_bag_t named;
  variant_bag_t number;
  number.add<variant_t>(L"", variant_t(5));
  named.add_variant_bag(L"own:y", number);
  EXPECT_EQ("\n<root xmlns:int=\"http://www.w3.org/2001/XMLSchema#int\">\n <own:y>5</own:y>\n</root>\n",
            save(named));
}

TEST(AttributeFormLoad, PathsSelectRenameAndMayBeOmitted) {
  std::string const text = "<top><mid a='1'/><mid a='2'/></top>";
  variant_bag_t whole;
  ASSERT_EQ(1, ql2::load_variant_bag_from_string2(whole, text, nullptr));
  ASSERT_NE(nullptr, whole.get<variant_bag_t>(L"top"));
  EXPECT_EQ(2u, whole.get<variant_bag_t>(L"top")->count<variant_bag_t>(L"mid"));

  variant_bag_t mid = load(text, L"top.mid");
  EXPECT_EQ(std::wstring(L"mid"), mid.get_name());
  EXPECT_EQ(std::wstring(L"2"), mid.get<variant_t>(L"a")->get<wchar_t const*>());

  variant_bag_t wild = load(text, L"t?p.*");
  EXPECT_EQ(std::wstring(L"*"), wild.get_name());
  EXPECT_TRUE(wild.has<variant_t>(L"a"));

  variant_bag_t none;
  EXPECT_EQ(1, ql2::load_variant_bag_from_string2(none, text, L"other"));
  EXPECT_TRUE(none.is_empty());
  EXPECT_EQ(k_failure, ql2::load_variant_bag_from_string2(none, text, L""));
}

TEST(AttributeFormLoad, IllFormedTextFailsWithWhatWasRead) {
  variant_bag_t bag;
  bag.add<variant_t>(L"old", variant_t(1));
  EXPECT_EQ(k_failure,
            ql2::load_variant_bag_from_string2(bag, std::string("<root a='1'><b/>"), L"root"));
  EXPECT_FALSE(bag.has<variant_t>(L"old"));
  EXPECT_TRUE(bag.has<variant_t>(L"a"));
  for (char const* text : {"", "plain", "<root a='1' a='2'/>", "<root>&undefined;</root>",
                           "<root>\x80</root>", "<a></b>", "<root/><second/>"}) {
    SCOPED_TRACE(text);
    EXPECT_EQ(k_failure, ql2::load_variant_bag_from_string2(bag, std::string(text), L"root"));
  }
  EXPECT_EQ(k_failure,
            ql2::load_variant_bag_from_string2(bag, std::string("<root a='x\0'/>", 14), L"root"));
}

TEST(AttributeFormLoad, EveryTruncationFailsCleanly) {
  std::string const text = save(every_type());
  for (std::size_t length = 0; length + 2 < text.size(); ++length) {
    variant_bag_t bag;
    ASSERT_EQ(k_failure, ql2::load_variant_bag_from_string2(bag, text.substr(0, length), L"root"))
        << length;
  }
}

TEST(AttributeFormLoad, EntitiesAreNeverExpanded) {
  std::string bomb = "<?xml version='1.0'?><!DOCTYPE root [<!ENTITY a 'aaaaaaaaaa'>";
  for (char c = 'b'; c <= 'j'; ++c) {
    std::string const previous(1, static_cast<char>(c - 1));
    bomb += std::string("<!ENTITY ") + c + " '" + [&] {
      std::string refs;
      for (int i = 0; i < 10; ++i) refs += "&" + previous + ";";
      return refs;
    }() + "'>";
  }
  bomb += "]><root v='&j;'>&j;</root>";
  variant_bag_t bag;
  EXPECT_EQ(k_failure, ql2::load_variant_bag_from_string2(bag, bomb, L"root"));
  // The predefined entities and character references still work.
  variant_bag_t const fine = load("<root v='&lt;&amp;&#x263A;&#10;'/>");
  EXPECT_EQ(std::wstring(L"<&\u263A\n"), fine.get<variant_t>(L"v")->get<wchar_t const*>());
}

TEST_F(AttributeFormFile, ExternalEntitiesAndDtdsAreNeverRead) {
  q2test::write_file(m_dir.file("secret.txt"), "SECRET");
  std::string const secret = m_dir.file("secret.txt");
  variant_bag_t bag;
  for (std::string const& text :
       {"<!DOCTYPE root [<!ENTITY s SYSTEM 'file://" + secret + "'>]><root v='&s;'>&s;</root>",
        "<!DOCTYPE root SYSTEM 'file://" + secret + "'><root v='&s;'/>",
        "<!DOCTYPE root [<!ENTITY % p SYSTEM 'file://" + secret + "'> %p;]><root/>"}) {
    SCOPED_TRACE(text);
    int const result = ql2::load_variant_bag_from_string2(bag, text, L"root");
    if (result == 1) {
      variant_t const v = bag.get_variant(L"v", variant_t(L"", false));
      EXPECT_EQ(std::wstring::npos, std::wstring(v.get<wchar_t const*>()).find(L"SECRET"));
      EXPECT_FALSE(bag.has<variant_t>(L""));
    }
  }
}

// ---------------------------------------------------------------------------------------
// Files, both forms

TEST_F(AttributeFormFile, BothFormsLoadThroughOneCall) {
  variant_bag_t settings;
  settings.add<variant_t>(L"level", variant_t(3));
  variant_bag_t bag;
  bag.add_variant_bag(L"settings", settings);
  std::wstring const element = name("element.xml");
  ASSERT_EQ(1, ql2::save_variant_bag(bag, element.c_str()));

  // The element form is found below "root", whatever the path's first step says.
  variant_bag_t loaded;
  ASSERT_EQ(1, ql2::load_variant_bag2(loaded, element.c_str(), L"project.settings", true));
  EXPECT_EQ(variant_t(3), loaded.get_variant(L"level", variant_t()));
  EXPECT_FALSE(loaded.has<variant_t>(L"#file_name"));

  // Read as the attribute form it still parses, every element a bag.
  ASSERT_EQ(1, ql2::load_variant_bag2(loaded, element.c_str(), L"root", false));
  ASSERT_NE(nullptr, loaded.get<variant_bag_t>(L"settings"));
  EXPECT_NE(nullptr, loaded.get<variant_bag_t>(L"settings")->get<variant_bag_t>(L"level"));
  EXPECT_TRUE(loaded.has<variant_t>(L"#file_name"));

  // An attribute-form file with the flag set falls back to the attribute form.
  std::wstring const attribute = name("attribute.xml");
  ASSERT_EQ(1, ql2::save_variant_bag2(settings, attribute.c_str(), L"project.settings"));
  ASSERT_EQ(1, ql2::load_variant_bag2(loaded, attribute.c_str(), L"project.settings", true));
  EXPECT_EQ(variant_t(3), loaded.get_variant(L"level", variant_t()));
  EXPECT_EQ(attribute, loaded.get_variant(L"#file_name", variant_t()).get<wchar_t const*>());
}

TEST_F(AttributeFormFile, MissingAndUnreadableFilesFail) {
  variant_bag_t bag;
  bag.add<variant_t>(L"kept", variant_t(1));
  EXPECT_EQ(k_failure, ql2::load_variant_bag2(bag, nullptr, L"root", true));
  EXPECT_TRUE(bag.has<variant_t>(L"kept"));
  EXPECT_EQ(k_failure, ql2::load_variant_bag2(bag, name("missing.xml").c_str(), L"root", true));
  EXPECT_TRUE(bag.is_empty());
  q2test::write_file(m_dir.file("latin.xml"), "<?xml version='1.0' encoding='ISO-8859-1'?><root/>");
  EXPECT_EQ(k_failure, ql2::load_variant_bag2(bag, name("latin.xml").c_str(), L"root", false));
  EXPECT_EQ(k_failure, ql2::save_variant_bag2(every_type(), nullptr, L"root"));
  EXPECT_EQ(k_failure,
            ql2::save_variant_bag2(every_type(), name("no/such/dir.xml").c_str(), L"root"));
}

TEST_F(AttributeFormFile, AFailedSaveLeavesTheOldFile) {
  std::wstring const file = name("keep.xml");
  ASSERT_EQ(1, ql2::save_variant_bag2(every_type(), file.c_str(), L"root"));
  std::string const before = q2test::read_file(m_dir.file("keep.xml"));
  variant_bag_t bad = every_type();
  bad.add<variant_t>(L"zzz", variant_t(L"\x01", false));
  EXPECT_EQ(k_failure, ql2::save_variant_bag2(bad, file.c_str(), L"root"));
  EXPECT_EQ(k_failure, ql2::save_variant_bag2(every_type(), file.c_str(), L"bad name"));
  EXPECT_EQ(before, q2test::read_file(m_dir.file("keep.xml")));
}

// ---------------------------------------------------------------------------------------
// Threads

TEST(AttributeFormThreads, SavesAndLoadsRunSideBySide) {
  constexpr int k_threads = 4;
  std::mutex mutex;
  std::condition_variable start;
  int waiting = 0;
  std::atomic<int> failures{0};
  std::vector<std::thread> threads;
  for (int t = 0; t < k_threads; ++t) {
    threads.emplace_back([&, t] {
      {
        std::unique_lock<std::mutex> lock(mutex);
        if (++waiting == k_threads) start.notify_all();
        start.wait(lock, [&] { return waiting == k_threads; });
      }
      for (int i = 0; i < 50; ++i) {
        variant_bag_t bag = every_type();
        bag.add<variant_t>(L"who", variant_t(t * 1000 + i));
        std::string text;
        variant_bag_t loaded;
        if (ql2::save_variant_bag_to_string2(bag, text, L"root") != 1 ||
            ql2::load_variant_bag_from_string2(loaded, text, L"root") != 1 ||
            loaded.get_variant(L"who", variant_t()) != variant_t(t * 1000 + i)) {
          ++failures;
        }
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(0, failures.load());
}
