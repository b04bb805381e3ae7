// The XML store: every handler type through a file and back, keys, the change signal,
// the reading rules, hostile keys and values, and refused files.
#include <cstdint>
#include <functional>
#include <list>
#include <map>
#include <type_traits>

#include <libxml/tree.h>

#include <quillon2/core/config/advanced_xml_config.hpp>

#include "file_system/fs_support.hpp"

namespace {

using quillon2::advanced_xml_config_t;
using quillon2::path_t;
using strings_t = std::vector<std::wstring>;
using string_map_t = std::map<std::wstring, std::wstring>;

template <class T>
T value_of(advanced_xml_config_t const& config, std::wstring const& key) {
  boost::any const value = config.get_value(key, boost::any());
  EXPECT_EQ(value.type(), typeid(T)) << std::string(key.begin(), key.end());
  return value.type() == typeid(T) ? boost::any_cast<T>(value) : T();
}

// Records what the store reports through its hooks and its change signal.
class recording_config_t : public advanced_xml_config_t,
                           public quillon2::_internal::subscriber_base_t {
 public:
  strings_t load_failures, save_failures, changes;
  void on_change(std::wstring const& key, boost::any const& old_value, boost::any const& value) {
    changes.push_back(
        key + L":" + (old_value.empty() ? L"-" : std::to_wstring(boost::any_cast<int>(old_value))) +
        L">" + std::to_wstring(boost::any_cast<int>(value)));
  }

 protected:
  void on_load_value_failed(std::wstring const& key, std::wstring const& type) override {
    load_failures.push_back(key + L"|" + type);
  }
  void on_save_value_failed(std::wstring const& key, std::type_info const&) override {
    save_failures.push_back(key);
  }
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

class XmlConfig : public q2test::fs_test {
 protected:
  path_t const m_path = at("config.xml");
  strings_t names_of(advanced_xml_config_t const& config) const {
    strings_t names{L"stale"};
    config.get_names(names);
    return names;
  }
};

TEST_F(XmlConfig, EveryHandlerTypeRoundTrips) {
  advanced_xml_config_t config, loaded;
  std::vector<std::function<void()>> checks;
  auto both = [&](std::wstring const& key, auto const& value) {
    config.set_value(key, value);
    checks.push_back([&loaded, key, value] {
      EXPECT_EQ(value_of<std::decay_t<decltype(value)>>(loaded, key), value);
    });
  };
  std::wstring const hostile = L"a & b < c > d \"q\" 'a' &amp; \r\n\t ]]> \u00e9\u4e2d\U0001F600";
  both(L"t.bool", true);
  both(L"t.int", -1);
  both(L"t.long", static_cast<long>(INT64_C(-5000000000)));
  both(L"t.ulong", static_cast<unsigned long>(UINT64_C(9000000000)));
  both(L"t.ushort", static_cast<unsigned short>(65535));
  both(L"t.uint", 4294967295u);
  both(L"t.float", 2.5f);
  both(L"t.string", hostile);
  both(L"t.blank", std::wstring(L"  padded  "));
  both(L"t.empty", std::wstring());
  both(L"t.vector", strings_t{L"x", hostile, L""});
  both(L"t.list", std::list<std::wstring>{L"&amp;", L"<tag/>"});
  both(L"t.ints", std::vector<int>{1, -1, 2147483647});
  both(L"t.map", string_map_t{{L"k", hostile}, {hostile, L"v"}});
  both(L"t.path", path_t(L"/home/u/a b.txt"));
  config.set_value(L"t.double", 3.14159265);
  ASSERT_TRUE(config.save(m_path));
  ASSERT_TRUE(loaded.load(m_path));
  for (auto const& check : checks) check();
  EXPECT_EQ(value_of<double>(loaded, L"t.double"), 3.14159);  // six significant digits
  std::string const text = read("config.xml");
  EXPECT_NE(text.find("<root>"), std::string::npos);
  EXPECT_NE(text.find("<int type=\"int\">-1</int>"), std::string::npos);
  EXPECT_NE(text.find("<item>&amp;amp;</item>"), std::string::npos);
}

TEST_F(XmlConfig, ClientHandlersUseTheHelpers) {
  advanced_xml_config_t config;
  config.add_handler(quillon2::smart_pointer_t<quillon2::handler_base_t>(new point_handler_t));
  config.set_value(L"p", point_t{42, L"<second>"});
  ASSERT_TRUE(config.save(m_path));
  advanced_xml_config_t loaded(config);
  loaded.set_value(L"p", 0);
  ASSERT_TRUE(loaded.load(m_path));
  point_t const point = value_of<point_t>(loaded, L"p");
  EXPECT_EQ(point.x, 42);
  EXPECT_EQ(point.label, L"<second>&");
}

TEST_F(XmlConfig, KeysIgnoreCaseAndTextPointersAreCopied) {
  advanced_xml_config_t config;
  config.set_value(L"Gui.Width", 5);
  std::wstring wide_text = L"wide";
  config.set_value(L"w", wide_text.c_str());
  std::string narrow_text = "n\xc3\xa9";
  config.set_value(L"n", narrow_text.c_str());
  wide_text.assign(L"XXXX");
  narrow_text.assign("XXX");
  EXPECT_EQ(value_of<std::wstring>(config, L"W"), L"wide");
  EXPECT_EQ(value_of<std::wstring>(config, L"n"), L"n\u00e9");
  EXPECT_EQ(names_of(config), (strings_t{L"gui.width", L"n", L"w"}));
  advanced_xml_config_t copy(config);
  copy.set_value(L"gui.width", 6);
  EXPECT_EQ(value_of<int>(config, L"gui.width"), 5);
}

TEST_F(XmlConfig, EveryChangeIsAnnounced) {
  recording_config_t config;
  config.m_on_change.connect(&config, &recording_config_t::on_change);
  config.set_value(L"A", 1);
  config.set_value(L"a", 1);
  config.set_value(L"a", 2);
  ASSERT_TRUE(config.save(m_path));
  ASSERT_TRUE(config.load(m_path));  // a load starts empty
  EXPECT_EQ(config.changes, (strings_t{L"a:->1", L"a:1>1", L"a:1>2", L"a:->2"}));
}

TEST_F(XmlConfig, ReadingFollowsTheConversionRules) {
  write("config.xml",
        "<?xml version=\"1.0\"?>\n<any><G><w type=\"int\"> 12</w><x type=\"int\">12x</x>"
        "<b1 type=\"bool\">true</b1><b2 type=\"bool\">+01</b2><b3 type=\"bool\">-0</b3>"
        "<v type=\"int_vector\"><item>1</item><item>x</item><item>3</item></v>"
        "<m type=\"string_string_map\"><item key=\"k\"/><item key=\"k\" value=\"2\"/></m>"
        "<u type=\"colour\">red</u><a type=\"int\">4<b type=\"int\">5</b></a></G></any>");
  recording_config_t config;
  config.set_value(L"old", 1);
  ASSERT_TRUE(config.load(m_path));
  EXPECT_FALSE(config.has_value(L"old"));
  EXPECT_TRUE(config.has_value(L"g.w"));
  for (auto const* refused : {L"g.w", L"g.x", L"g.b1"}) {
    EXPECT_TRUE(config.get_value(refused, 7).empty()) << refused;
  }
  EXPECT_EQ(value_of<bool>(config, L"g.b2"), true);
  EXPECT_EQ(value_of<bool>(config, L"g.b3"), false);
  EXPECT_EQ(value_of<std::vector<int>>(config, L"g.v"), (std::vector<int>{1, 0, 3}));
  EXPECT_EQ(value_of<string_map_t>(config, L"g.m"), (string_map_t{{L"k", L"2"}}));
  EXPECT_EQ(value_of<int>(config, L"g.a"), 4);
  EXPECT_FALSE(config.has_value(L"g.a.b"));
  // The hook gets the key as the file spells it.
  EXPECT_EQ(config.load_failures, (strings_t{L"G.u|colour"}));
}

TEST_F(XmlConfig, KeysThatAreNoElementPathsAreReportedAndLeftOut) {
  recording_config_t config;
  std::wstring deep = L"d";
  for (int i = 0; i < 300; ++i) deep += L".d";
  for (std::wstring const key : {L"*", L"x[1]", L"a b", L"1abc", L"a:b", L"../x", L"a.<b>", L"p/q",
                                 L"a.&amp;", deep.c_str(), L"a", L"a.b", L"a..b", L"", L"..."}) {
    config.set_value(key, 1);
  }
  config.set_value(L"none", boost::any());
  ASSERT_TRUE(config.save(m_path));
  EXPECT_EQ(config.save_failures.size(), 11u);
  advanced_xml_config_t loaded;
  ASSERT_TRUE(loaded.load(m_path));
  EXPECT_EQ(names_of(loaded), (strings_t{L"a"}));  // "a.b" sits inside a typed element
  EXPECT_EQ(value_of<int>(loaded, L"a"), 1);
}

TEST_F(XmlConfig, TextXmlCannotHoldFailsTheSaveAndKeepsTheFile) {
  advanced_xml_config_t config;
  config.set_value(L"good", std::wstring(L"kept"));
  ASSERT_TRUE(config.save(m_path));
  std::string const before = read("config.xml");
  for (std::wstring const& bad :
       {std::wstring(L"a\x01z"), std::wstring(L"\uFFFE"), std::wstring(1, L'\0') + L"x"}) {
    advanced_xml_config_t hostile(config);
    hostile.set_value(L"bad", strings_t{bad});
    EXPECT_FALSE(hostile.save(m_path));
    EXPECT_EQ(read("config.xml"), before);
  }
}

TEST_F(XmlConfig, RefusedFilesLeaveTheStoreAsItWas) {
  advanced_xml_config_t config;
  config.set_value(L"kept", 1);
  ASSERT_EQ(::mkfifo(native("fifo").c_str(), 0600), 0);
  write("broken.xml", "<root><a type=\"int\">1</a>");
  write("secret", "secret");
  write("entity.xml", "<!DOCTYPE root [<!ENTITY e SYSTEM \"file://" + native("secret") +
                          "\">]><root><a type=\"string\">&e;</a></root>");
  for (auto const* refused : {"missing.xml", "", "fifo", "broken.xml", "entity.xml"}) {
    EXPECT_FALSE(config.load(at(refused))) << refused;
  }
  EXPECT_EQ(value_of<int>(config, L"kept"), 1);
  write("config.xml", "<r/>");
  EXPECT_TRUE(config.load(m_path));
  EXPECT_EQ(names_of(config), strings_t{});
}

TEST_F(XmlConfig, DocumentsOpenAndSaveLikeTheStore) {
  advanced_xml_config_t config;
  config.set_value(L"a", 1);
  ASSERT_TRUE(config.save(m_path));
  xmlDoc* document = quillon2::open_xml_document(m_path);
  ASSERT_NE(document, nullptr);
  EXPECT_TRUE(quillon2::save_xml_document(at("copy.xml"), document));
  EXPECT_FALSE(quillon2::save_xml_document(at("copy.xml"), nullptr));
  xmlFreeDoc(document);
  EXPECT_EQ(read("config.xml"), read("copy.xml"));
  EXPECT_EQ(quillon2::open_xml_document(at("missing.xml")), nullptr);
}

}  // namespace
