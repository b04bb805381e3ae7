// The XML store: every handler type through a file and back, keys, the change signal,
// the reading rules, hostile keys and values, and refused files.
#include <sys/stat.h>

#include <cstdint>
#include <list>
#include <map>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <libxml/tree.h>

#include <quillon2/core/config/advanced_xml_config.hpp>

#include "support/temp_dir.hpp"

namespace {

using quillon2::advanced_xml_config_t;
using quillon2::path_t;

path_t wide_path(std::string const& native) { return path_t(std::wstring(native.begin(), native.end())); }

template <class T>
T value_of(advanced_xml_config_t const& config, std::wstring const& key) {
  boost::any const value = config.get_value(key, boost::any());
  EXPECT_EQ(value.type(), typeid(T)) << std::string(key.begin(), key.end());
  return value.type() == typeid(T) ? boost::any_cast<T>(value) : T();
}

// Records what the store reports through its hooks.
class recording_config_t : public advanced_xml_config_t {
 public:
  std::vector<std::wstring> load_failures;
  std::vector<std::wstring> save_failures;

 protected:
  void on_load_value_failed(std::wstring const& key, std::wstring const& type) override {
    load_failures.push_back(key + L"|" + type);
  }
  void on_save_value_failed(std::wstring const& key, std::type_info const&) override {
    save_failures.push_back(key);
  }
};

struct listener_t : quillon2::_internal::subscriber_base_t {
  void on_change(std::wstring const& key, boost::any const& old_value,
                 boost::any const& new_value) {
    keys.push_back(key);
    old_ints.push_back(old_value.empty() ? -100 : boost::any_cast<int>(old_value));
    new_ints.push_back(boost::any_cast<int>(new_value));
  }
  std::vector<std::wstring> keys;
  std::vector<int> old_ints;
  std::vector<int> new_ints;
};

struct point_t {
  int x = 0;
  std::wstring label;
};

// A client's own handler, built from the helpers: children read and written through
// the store's other handlers, and a path expression.
class point_handler_t : public quillon2::handler_base_t {
 public:
  boost::any read_value(xmlNode* node) override {
    point_t point;
    boost::any const x = get_any_property(node, L"x", L"int");
    point.x = x.empty() ? -1 : boost::any_cast<int>(x);
    point.label = get_property(node, L"tags/tag[2]") + get_attribute(node, L"unit");
    return point;
  }
  void write_value(boost::any const& value, xmlNode* node) override {
    point_t const& point = boost::any_cast<point_t const&>(value);
    set_any_property(node, L"x", point.x);
    set_property(node, L"tags", L"");  // makes the child
    set_property(node, L"tags", L"");  // finds it
    set_attribute(node, L"unit", L"&");
    std::vector<xmlNode*> const tags = find_nodes(node, L"tags");
    ASSERT_EQ(tags.size(), 1u);
    add_property(tags.front(), L"tag", L"first");
    add_property(tags.front(), L"tag", point.label);
  }
  std::wstring get_type_name() override { return L"point"; }
  std::type_info const& get_type_info() override { return typeid(point_t); }
};

class XmlConfigTest : public q2test::temp_dir_test {
 protected:
  std::string file_ = m_dir.file("config.xml");
  path_t path_ = wide_path(file_);
};

TEST_F(XmlConfigTest, EveryHandlerTypeRoundTrips) {
  advanced_xml_config_t config;
  std::wstring const hostile = L"a & b < c > d \"q\" 'a' &amp; \r\n\t ]]> \u00e9\u4e2d\U0001F600";
  config.set_value(L"t.bool", true);
  config.set_value(L"t.int", -1);
  config.set_value(L"t.long", static_cast<long>(INT64_C(-5000000000)));
  config.set_value(L"t.ulong", static_cast<unsigned long>(UINT64_C(9000000000)));
  config.set_value(L"t.ushort", static_cast<unsigned short>(65535));
  config.set_value(L"t.uint", 4294967295u);
  config.set_value(L"t.float", 2.5f);
  config.set_value(L"t.double", 3.14159265);
  config.set_value(L"t.string", hostile);
  config.set_value(L"t.blank", std::wstring(L"  padded  "));
  config.set_value(L"t.empty", std::wstring());
  config.set_value(L"t.vector", std::vector<std::wstring>{L"x", hostile, L""});
  config.set_value(L"t.list", std::list<std::wstring>{L"&amp;", L"<tag/>"});
  config.set_value(L"t.ints", std::vector<int>{1, -1, 2147483647});
  config.set_value(L"t.map", std::map<std::wstring, std::wstring>{{L"k", hostile}, {hostile, L"v"}});
  config.set_value(L"t.path", path_t(L"/home/u/a b.txt"));
  ASSERT_TRUE(config.save(path_));

  advanced_xml_config_t loaded;
  ASSERT_TRUE(loaded.load(path_));
  EXPECT_EQ(value_of<bool>(loaded, L"t.bool"), true);
  EXPECT_EQ(value_of<int>(loaded, L"t.int"), -1);
  EXPECT_EQ(value_of<long>(loaded, L"t.long"), INT64_C(-5000000000));
  EXPECT_EQ(value_of<unsigned long>(loaded, L"t.ulong"), UINT64_C(9000000000));
  EXPECT_EQ(value_of<unsigned short>(loaded, L"t.ushort"), 65535);
  EXPECT_EQ(value_of<unsigned int>(loaded, L"t.uint"), 4294967295u);
  EXPECT_EQ(value_of<float>(loaded, L"t.float"), 2.5f);
  EXPECT_EQ(value_of<double>(loaded, L"t.double"), 3.14159);  // six significant digits
  EXPECT_EQ(value_of<std::wstring>(loaded, L"t.string"), hostile);
  EXPECT_EQ(value_of<std::wstring>(loaded, L"t.blank"), L"  padded  ");
  EXPECT_EQ(value_of<std::wstring>(loaded, L"t.empty"), L"");
  EXPECT_EQ(value_of<std::vector<std::wstring>>(loaded, L"t.vector"),
            (std::vector<std::wstring>{L"x", hostile, L""}));
  EXPECT_EQ(value_of<std::list<std::wstring>>(loaded, L"t.list"),
            (std::list<std::wstring>{L"&amp;", L"<tag/>"}));
  EXPECT_EQ(value_of<std::vector<int>>(loaded, L"t.ints"), (std::vector<int>{1, -1, 2147483647}));
  EXPECT_EQ((value_of<std::map<std::wstring, std::wstring>>(loaded, L"t.map")),
            (std::map<std::wstring, std::wstring>{{L"k", hostile}, {hostile, L"v"}}));
  EXPECT_EQ(value_of<path_t>(loaded, L"t.path"), path_t(L"/home/u/a b.txt"));

  std::string const text = q2test::read_file(file_);
  EXPECT_NE(text.find("<root>"), std::string::npos);
  EXPECT_NE(text.find("<int type=\"int\">-1</int>"), std::string::npos);
  EXPECT_NE(text.find("<item>&amp;amp;</item>"), std::string::npos);
}

TEST_F(XmlConfigTest, ClientHandlersUseTheHelpers) {
  advanced_xml_config_t config;
  config.add_handler(quillon2::smart_pointer_t<quillon2::handler_base_t>(new point_handler_t));
  config.set_value(L"p", point_t{42, L"<second>"});
  ASSERT_TRUE(config.save(path_));
  advanced_xml_config_t loaded(config);
  loaded.set_value(L"p", 0);
  ASSERT_TRUE(loaded.load(path_));
  point_t const point = value_of<point_t>(loaded, L"p");
  EXPECT_EQ(point.x, 42);
  EXPECT_EQ(point.label, L"<second>&");
}

TEST_F(XmlConfigTest, KeysIgnoreCaseAndTextPointersAreCopied) {
  advanced_xml_config_t config;
  config.set_value(L"Gui.Width", 5);
  EXPECT_TRUE(config.has_value(L"GUI.WIDTH"));
  std::wstring wide_text = L"wide";
  config.set_value(L"w", wide_text.c_str());
  std::string narrow_text = "n\xc3\xa9";
  config.set_value(L"n", narrow_text.c_str());
  wide_text.assign(L"XXXX");
  narrow_text.assign("XXX");
  EXPECT_EQ(value_of<std::wstring>(config, L"W"), L"wide");
  EXPECT_EQ(value_of<std::wstring>(config, L"n"), L"n\u00e9");
  EXPECT_EQ(boost::any_cast<int>(config.get_value(L"missing", 7)), 7);

  std::vector<std::wstring> names{L"stale"};
  config.get_names(names);
  EXPECT_EQ(names, (std::vector<std::wstring>{L"gui.width", L"n", L"w"}));

  advanced_xml_config_t copy(config);
  copy.set_value(L"gui.width", 6);
  EXPECT_EQ(value_of<int>(config, L"gui.width"), 5);
}

TEST_F(XmlConfigTest, EveryChangeIsAnnounced) {
  advanced_xml_config_t config;
  listener_t listener;
  config.m_on_change.connect(&listener, &listener_t::on_change);
  config.set_value(L"A", 1);
  config.set_value(L"a", 1);
  config.set_value(L"a", 2);
  ASSERT_TRUE(config.save(path_));
  ASSERT_TRUE(config.load(path_));
  EXPECT_EQ(listener.keys, (std::vector<std::wstring>{L"a", L"a", L"a", L"a"}));
  EXPECT_EQ(listener.old_ints, (std::vector<int>{-100, 1, 1, -100}));  // load starts empty
  EXPECT_EQ(listener.new_ints, (std::vector<int>{1, 1, 2, 2}));
}

TEST_F(XmlConfigTest, ReadingFollowsTheConversionRules) {
  q2test::write_file(file_,
                     "<?xml version=\"1.0\"?>\n<any><G><w type=\"int\"> 12</w><x type=\"int\">12x</x>"
                     "<b1 type=\"bool\">true</b1><b2 type=\"bool\">+01</b2><b3 type=\"bool\">-0</b3>"
                     "<v type=\"int_vector\"><item>1</item><item>x</item><item>3</item></v>"
                     "<m type=\"string_string_map\"><item key=\"k\"/><item key=\"k\" value=\"2\"/></m>"
                     "<u type=\"colour\">red</u><a type=\"int\">4<b type=\"int\">5</b></a>"
                     "</G></any>");
  recording_config_t config;
  config.set_value(L"old", 1);
  ASSERT_TRUE(config.load(path_));
  EXPECT_FALSE(config.has_value(L"old"));
  EXPECT_TRUE(config.has_value(L"g.w"));
  EXPECT_TRUE(config.get_value(L"g.w", 7).empty());
  EXPECT_TRUE(config.get_value(L"g.x", 7).empty());
  EXPECT_TRUE(config.get_value(L"g.b1", 7).empty());
  EXPECT_EQ(value_of<bool>(config, L"g.b2"), true);
  EXPECT_EQ(value_of<bool>(config, L"g.b3"), false);
  EXPECT_EQ(value_of<std::vector<int>>(config, L"g.v"), (std::vector<int>{1, 0, 3}));
  EXPECT_EQ((value_of<std::map<std::wstring, std::wstring>>(config, L"g.m")),
            (std::map<std::wstring, std::wstring>{{L"k", L"2"}}));
  EXPECT_EQ(value_of<int>(config, L"g.a"), 4);
  EXPECT_FALSE(config.has_value(L"g.a.b"));
  // The hook gets the key as the file spells it.
  EXPECT_EQ(config.load_failures, (std::vector<std::wstring>{L"G.u|colour"}));
}

TEST_F(XmlConfigTest, TenThousandSiblingsSaveAndLoad) {
  advanced_xml_config_t config;
  for (int i = 0; i < 10000; ++i) config.set_value(L"p.k" + std::to_wstring(i), i);
  ASSERT_TRUE(config.save(path_));
  advanced_xml_config_t loaded;
  ASSERT_TRUE(loaded.load(path_));
  std::vector<std::wstring> names;
  loaded.get_names(names);
  ASSERT_EQ(names.size(), 10000u);
  EXPECT_EQ(value_of<int>(loaded, L"p.k9999"), 9999);
}

TEST_F(XmlConfigTest, KeysThatAreNoElementPathsAreReportedAndLeftOut) {
  recording_config_t config;
  for (std::wstring const key : {L"*", L"x[1]", L"a b", L"1abc", L"a:b", L"../x", L"a.<b>",
                                 L"p/q", L"a.&amp;"}) {
    config.set_value(key, 1);
  }
  std::wstring deep = L"d";
  for (int i = 0; i < 300; ++i) deep += L".d";
  config.set_value(deep, 1);
  config.set_value(L"a", 1);
  config.set_value(L"a.b", 2);
  config.set_value(L"a..b", 3);
  config.set_value(L"", 4);
  config.set_value(L"...", 5);
  config.set_value(L"none", boost::any());
  ASSERT_TRUE(config.save(path_));
  EXPECT_EQ(config.save_failures.size(), 11u);

  recording_config_t loaded;
  ASSERT_TRUE(loaded.load(path_));
  std::vector<std::wstring> names;
  loaded.get_names(names);
  EXPECT_EQ(names, (std::vector<std::wstring>{L"a"}));  // "a.b" sits inside a typed element
  EXPECT_EQ(value_of<int>(loaded, L"a"), 1);
}

TEST_F(XmlConfigTest, TextXmlCannotHoldFailsTheSaveAndKeepsTheFile) {
  advanced_xml_config_t config;
  config.set_value(L"good", std::wstring(L"kept"));
  ASSERT_TRUE(config.save(path_));
  std::string const before = q2test::read_file(file_);
  for (std::wstring const& bad : {std::wstring(L"a\x01z"), std::wstring(L"\uFFFE"),
                                 std::wstring(1, L'\0') + L"x"}) {
    advanced_xml_config_t hostile(config);
    hostile.set_value(L"bad", std::vector<std::wstring>{bad});
    EXPECT_FALSE(hostile.save(path_));
    EXPECT_EQ(q2test::read_file(file_), before);
  }
}

TEST_F(XmlConfigTest, RefusedFilesLeaveTheStoreAsItWas) {
  advanced_xml_config_t config;
  config.set_value(L"kept", 1);
  EXPECT_FALSE(config.load(wide_path(m_dir.file("missing.xml"))));
  EXPECT_FALSE(config.load(wide_path(m_dir.path())));
  ASSERT_EQ(::mkfifo(m_dir.file("fifo").c_str(), 0600), 0);
  EXPECT_FALSE(config.load(wide_path(m_dir.file("fifo"))));
  q2test::write_file(file_, "<root><a type=\"int\">1</a>");
  EXPECT_FALSE(config.load(path_));
  q2test::write_file(m_dir.file("secret"), "secret");
  q2test::write_file(file_, "<!DOCTYPE root [<!ENTITY e SYSTEM \"file://" + m_dir.file("secret") +
                                "\">]><root><a type=\"string\">&e;</a></root>");
  EXPECT_FALSE(config.load(path_));
  EXPECT_EQ(value_of<int>(config, L"kept"), 1);

  q2test::write_file(file_, "<r/>");
  EXPECT_TRUE(config.load(path_));
  std::vector<std::wstring> names;
  config.get_names(names);
  EXPECT_TRUE(names.empty());
}

TEST_F(XmlConfigTest, DocumentsOpenAndSaveLikeTheStore) {
  q2test::write_file(file_, "<root><a type=\"int\">1</a></root>");
  xmlDoc* document = quillon2::open_xml_document(path_);
  ASSERT_NE(document, nullptr);
  path_t const copy = wide_path(m_dir.file("copy.xml"));
  EXPECT_TRUE(quillon2::save_xml_document(copy, document));
  EXPECT_FALSE(quillon2::save_xml_document(copy, nullptr));
  xmlFreeDoc(document);
  advanced_xml_config_t config;
  ASSERT_TRUE(config.load(copy));
  EXPECT_EQ(value_of<int>(config, L"a"), 1);
  EXPECT_EQ(quillon2::open_xml_document(wide_path(m_dir.file("missing.xml"))), nullptr);
}

}  // namespace
