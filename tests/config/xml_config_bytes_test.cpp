// The exact bytes of saved configuration files: the store's own documents byte for byte,
// and any document saved by save_xml_document as libxml2's indenting formatter prints it,
// with the documents that would not read back refused and the old file kept.
#include <list>
#include <map>
#include <random>
#include <string>
#include <vector>

#include <libxml/parser.h>
#include <libxml/tree.h>

#include <quillon2/core/config/advanced_xml_config.hpp>

#include "file_system/fs_support.hpp"

namespace {

using quillon2::advanced_xml_config_t;
using quillon2::path_t;
using strings_t = std::vector<std::wstring>;

class XmlConfigBytes : public q2test::fs_test {
 protected:
  // What libxml2's formatter prints for the document, the oracle of every save.
  static std::string formatted(xmlDoc* document) {
    xmlChar* memory = nullptr;
    int size = 0;
    xmlDocDumpFormatMemoryEnc(document, &memory, &size, "UTF-8", 1);
    std::string const text(reinterpret_cast<char const*>(memory), static_cast<std::size_t>(size));
    xmlFree(memory);
    return text;
  }
  // Saves the document over a file holding "old": its bytes when saved, "old" otherwise.
  std::string saved(xmlDoc* document) {
    write("out.xml", "old");
    bool const ok = quillon2::save_xml_document(at("out.xml"), document);
    std::string const text = read("out.xml");
    EXPECT_EQ(ok, text != "old");
    return text;
  }
  xmlDoc* parsed(std::string const& text) {
    write("in.xml", text);
    return quillon2::open_xml_document(at("in.xml"));
  }
};

TEST_F(XmlConfigBytes, TheStoreWritesItsDocumentsAsBefore) {
  advanced_xml_config_t config;
  std::wstring const tricky = L"a&b<c>d\"e'f\r\n\tg ]]> \u00e9\U0001F600";
  config.set_value(L"A", 1);
  config.set_value(L"a.Inner", std::wstring(L"in"));  // inside a typed element
  config.set_value(L"a-b", true);                     // between "a" and "a.z"
  config.set_value(L"a.z", 2.5f);
  config.set_value(L"a..y.", 3.0);  // empty tokens dropped: goes into "a"
  config.set_value(L"text", tricky);
  config.set_value(L"empty", std::wstring());
  config.set_value(L"surrogate", std::wstring(1, static_cast<wchar_t>(0xD800)));
  config.set_value(L"list", std::list<std::wstring>{L"", tricky});
  config.set_value(L"none", std::vector<std::wstring>{});
  config.set_value(L"ints", std::vector<int>{-1, 0});
  config.set_value(L"map", std::map<std::wstring, std::wstring>{{L"k\t\n", tricky}, {L"", L""}});
  config.set_value(L"nomap", std::map<std::wstring, std::wstring>{});
  config.set_value(L"g.\u00e9t\u00e9.l", static_cast<unsigned short>(7));
  config.set_value(L"n.u", 4000000000u);
  config.set_value(L"n.l", -3000000000L);
  config.set_value(L"n.ul", 18000000000000000000ul);
  config.set_value(L"n.d", 1e-7);
  config.set_value(L"p", path_t(L"/x/a b&c"));
  std::wstring deep = L"d";
  for (int i = 0; i < 33; ++i) deep += L".d";
  config.set_value(deep, 0);
  ASSERT_TRUE(config.save(at("c.xml")));
  std::string const t = "a&amp;b&lt;c&gt;d\"e'f&#13;\n\tg ]]&gt; \xc3\xa9\xf0\x9f\x98\x80";
  std::string const t_attribute =
      "a&amp;b&lt;c&gt;d&quot;e'f&#13;&#10;&#9;g ]]&gt; \xc3\xa9\xf0\x9f\x98\x80";
  std::string deep_part, deep_ends;  // indented up to 30 levels deep, no further
  for (int level = 1; level <= 34; ++level) {
    std::string const indent(std::min(level, 30) * 2, ' ');
    deep_part += indent + (level < 34 ? "<d>\n" : "<d type=\"int\">0</d>\n");
    if (level < 34) deep_ends.insert(0, indent + "</d>\n");
  }
  EXPECT_EQ(read("c.xml"),
            "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<root>\n"
            "  <a type=\"int\">1<y type=\"double\">3</y><inner type=\"string\">in</inner>"
            "<z type=\"float\">2.5</z></a>\n"
            "  <a-b type=\"bool\">1</a-b>\n" +
                deep_part + deep_ends +
                "  <empty type=\"string\"/>\n"
                "  <g>\n    <\xc3\xa9t\xc3\xa9>\n      <l type=\"unsigned short\">7</l>\n"
                "    </\xc3\xa9t\xc3\xa9>\n  </g>\n"
                "  <ints type=\"int_vector\">\n    <item>-1</item>\n    <item>0</item>\n"
                "  </ints>\n"
                "  <list type=\"string_list\">\n    <item></item>\n    <item>" +
                t +
                "</item>\n  </list>\n"
                "  <map type=\"string_string_map\">\n    <item key=\"\" value=\"\"/>\n"
                "    <item key=\"k&#9;&#10;\" value=\"" +
                t_attribute +
                "\"/>\n  </map>\n"
                "  <n>\n    <d type=\"double\">1e-07</d>\n"
                "    <l type=\"long\">-3000000000</l>\n"
                "    <u type=\"unsigned int\">4000000000</u>\n"
                "    <ul type=\"unsigned long\">18000000000000000000</ul>\n  </n>\n"
                "  <nomap type=\"string_string_map\"/>\n"
                "  <none type=\"string_vector\"/>\n"
                "  <p type=\"path_t\">\\x\\a b&amp;c</p>\n"
                "  <surrogate type=\"string\">\xef\xbf\xbd</surrogate>\n"
                "  <text type=\"string\">" +
                t + "</text>\n</root>\n");
  // A key that this library takes for a name but libxml2 does not fails the whole save.
  advanced_xml_config_t refused(config);
  refused.set_value(L"\u2c00", 1);
  EXPECT_FALSE(refused.save(at("c.xml")));
}

// A client's handler that writes what the store's own handlers never do.
class odd_handler_t : public quillon2::handler_base_t {
 public:
  boost::any read_value(xmlNode*) override { return boost::any(); }
  void write_value(boost::any const& value, xmlNode* node) override {
    set_attribute(node, L"unit", L"\"m\"\n");
    xmlAddChild(node, xmlNewDocComment(node->doc, reinterpret_cast<xmlChar const*>(" c ")));
    set_node_content(node, boost::any_cast<std::pair<std::wstring, int> const&>(value).first);
    xmlNode* later = add_element(node, L"later");  // a later key goes into it
    set_attribute(later, L"x", L"1");
  }
  std::wstring get_type_name() override { return L"odd"; }
  std::type_info const& get_type_info() override { return typeid(std::pair<std::wstring, int>); }
};

TEST_F(XmlConfigBytes, ClientHandlersWriteAsBefore) {
  advanced_xml_config_t config;
  config.add_handler(quillon2::smart_pointer_t<quillon2::handler_base_t>(new odd_handler_t));
  config.set_value(L"k", 1);
  config.set_value(L"o", std::pair<std::wstring, int>(L"x<y", 0));
  config.set_value(L"o.later.v", 2);
  ASSERT_TRUE(config.save(at("c.xml")));
  EXPECT_EQ(read("c.xml"),
            "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<root>\n  <k type=\"int\">1</k>\n"
            "  <o type=\"odd\" unit=\"&quot;m&quot;&#10;\"><!-- c -->x&lt;y<later x=\"1\">"
            "<v type=\"int\">2</v></later></o>\n</root>\n");
}

// Records the keys that a save leaves out; a value of type int_pair_t goes through a
// client's handler, which makes the store build its libxml2 tree.
using int_pair_t = std::pair<int, int>;
class recording_config_t : public advanced_xml_config_t {
 public:
  strings_t left_out;

 protected:
  void on_save_value_failed(std::wstring const& key, std::type_info const&) override {
    left_out.push_back(key);
  }
};
class pair_handler_t : public quillon2::handler_base_t {
 public:
  boost::any read_value(xmlNode*) override { return boost::any(); }
  void write_value(boost::any const&, xmlNode*) override {}
  std::wstring get_type_name() override { return L"pair"; }
  std::type_info const& get_type_info() override { return typeid(int_pair_t); }
};

TEST_F(XmlConfigBytes, StoresAreSavedAsTheirLibxml2TreesPrint) {
  // Many saves: on a tmpfs where there is one, since syncing costs nothing there.
  std::string const folder = ::access("/dev/shm", W_OK) == 0 ? "/dev/shm" : m_root;
  std::string const direct_file = folder + "/q2_direct_" + std::to_string(::getpid()) + ".xml";
  std::string const tree_file = folder + "/q2_tree_" + std::to_string(::getpid()) + ".xml";
  std::mt19937 random(24);
  auto const pick = [&](auto const& choices) { return choices[random() % choices.size()]; };
  strings_t const tokens{L"a", L"B", L"a-b", L"c1", L"\u00e9", L"item", L"", L"x y"};
  strings_t const texts{L"",
                        L"t",
                        L"&<>\"'\r\n\t]]>",
                        L"\u00e9\U0001F600",
                        std::wstring(1, static_cast<wchar_t>(0xDC00)),
                        L"\x01"};
  for (int round = 0; round < 300; ++round) {
    recording_config_t direct;
    for (int n = random() % 12; n >= 0; --n) {
      std::wstring key = pick(tokens);
      for (int depth = random() % 4; depth > 0; --depth) key += L"." + pick(tokens);
      switch (random() % 9) {
        case 0:
          direct.set_value(key, static_cast<int>(random() % 100) - 50);
          break;
        case 1:
          direct.set_value(key, (random() % 1000) / 7.0);
          break;
        case 2:
          direct.set_value(key, round % 5 == 0 ? pick(texts) : pick(texts) + L"x");
          break;
        case 3:
          direct.set_value(key, strings_t{pick(texts), L"v"});
          break;
        case 4:
          direct.set_value(key, std::vector<int>{1, 2});
          break;
        case 5:
          direct.set_value(key, std::map<std::wstring, std::wstring>{{pick(texts), L"&"}});
          break;
        case 6:
          direct.set_value(key, random() % 2 == 0);
          break;
        case 7:
          direct.set_value(key, 'c');
          break;  // no handler
        default:
          direct.set_value(key, path_t(L"/p"));
          break;
      }
    }
    recording_config_t through_tree(direct);
    through_tree.add_handler(
        quillon2::smart_pointer_t<quillon2::handler_base_t>(new pair_handler_t));
    through_tree.set_value(L"*", int_pair_t());  // left out, without an element
    q2test::write_file(direct_file, "old");
    q2test::write_file(tree_file, "old");
    EXPECT_EQ(direct.save(path_t(q2test::wide(direct_file))),
              through_tree.save(path_t(q2test::wide(tree_file))));
    ASSERT_EQ(q2test::read_file(direct_file), q2test::read_file(tree_file)) << round;
    direct.left_out.insert(direct.left_out.begin(), L"*");
    EXPECT_EQ(direct.left_out, through_tree.left_out);
  }
  ::unlink(direct_file.c_str());
  ::unlink(tree_file.c_str());
}

TEST_F(XmlConfigBytes, DocumentsAreSavedAsLibxml2FormatsThem) {
  std::string deep;
  for (int i = 0; i < 40; ++i)
    deep = "<e" + std::to_string(i) + " a='" + std::to_string(i) + "'>" + deep;
  for (int i = 0; i < 40; ++i) deep += "</e" + std::to_string(i) + ">";
  for (std::string const& text : std::vector<std::string>{
           "<r/>",
           "<?xml version='1.0' standalone='yes'?><!--top--><?pi  x ?><r><?p?></r><!---->",
           "<?xml version=\"1.0\" encoding=\"ISO-8859-1\" standalone=\"no\"?><r>\xe9</r>",
           "<r a='&quot;&amp;&lt;&gt;&#9;&#10;&#13;&apos;' b=\"'\" c='' \xc3\xa9='\xc3\xa9'>"
           "<e/><e></e><t>a &amp; &lt;b&gt; ]]&gt; &#13;\n\t\xe2\x82\xac</t>\n  <m>x<i/>y</m></r>",
           "<r><c><![CDATA[<x>&]]></c><m><i/><![CDATA[]]><i/></m><n><!-- - --></n></r>",
           "<r>  <a>\n <b/> </a><c>\r\n</c></r>",
           deep,
           // A DTD, namespaces and an entity reference: kinds printed by libxml2 itself.
           "<!DOCTYPE r [<!ENTITY e 'v'><!ATTLIST r d CDATA 'x'>]><r>&e;<s/></r>",
           "<r xmlns='urn:a' xmlns:p='urn:p'><p:s p:a='1'><t/></p:s></r>",
       }) {
    xmlDoc* document = parsed(text);
    ASSERT_NE(document, nullptr) << text;
    EXPECT_EQ(saved(document), formatted(document)) << text;
    xmlFreeDoc(document);
  }
}

TEST_F(XmlConfigBytes, BuiltDocumentsAreSavedAsLibxml2FormatsThem) {
  auto const x = [](char const* s) { return reinterpret_cast<xmlChar const*>(s); };
  xmlDoc* document = xmlNewDoc(x("1.0"));
  xmlNode* root = xmlNewDocNode(document, nullptr, x("r"), nullptr);
  xmlDocSetRootElement(document, root);
  xmlAddChild(root, xmlNewDocComment(document, nullptr));
  xmlAddChild(root, xmlNewDocPI(document, x("pi"), nullptr));
  xmlAddChild(root, xmlNewDocPI(document, x("pj"), x("")));
  xmlNode* cdata = xmlNewChild(root, nullptr, x("c"), nullptr);
  xmlAddChild(cdata, xmlNewCDataBlock(document, nullptr, 0));
  xmlNode* text = xmlNewChild(root, nullptr, x("t"), nullptr);
  xmlAddChild(text, xmlNewDocText(document, nullptr));
  xmlNode* empty = xmlNewChild(root, nullptr, x("e"), nullptr);
  xmlNewProp(empty, x("a"), nullptr);
  xmlNewProp(empty, x("b"), x("\xc3\xa9\"'"));
  xmlNode* raw = xmlNewChild(root, nullptr, x("n"), nullptr);
  xmlAddChild(raw, xmlNewDocTextLen(document, x("<&"), 2));
  xmlAddChild(raw, xmlNewDocRawNode(document, nullptr, x("m"), x("a&amp;b")));
  EXPECT_EQ(saved(document), formatted(document));
  xmlFreeDoc(document);
}

TEST_F(XmlConfigBytes, DocumentsThatWouldNotReadBackAreRefused) {
  auto const x = [](char const* s) { return reinterpret_cast<xmlChar const*>(s); };
  using build_t = void (*)(xmlDoc*, xmlNode*);
  std::vector<build_t> const builds{
      [](xmlDoc*, xmlNode* r) {
        xmlNewChild(r, nullptr, reinterpret_cast<xmlChar const*>("1a"), nullptr);
      },
      [](xmlDoc*, xmlNode* r) { xmlNodeAddContent(r, reinterpret_cast<xmlChar const*>("a\x01")); },
      [](xmlDoc*, xmlNode* r) { xmlNodeAddContent(r, reinterpret_cast<xmlChar const*>("\xc3(")); },
      [](xmlDoc*, xmlNode* r) {
        xmlNewProp(r, reinterpret_cast<xmlChar const*>("a"),
                   reinterpret_cast<xmlChar const*>("\x02"));
      },
      [](xmlDoc* d, xmlNode* r) {
        xmlAddChild(r, xmlNewDocComment(d, reinterpret_cast<xmlChar const*>("\xef\xbf\xbe")));
      },
      [](xmlDoc* d, xmlNode* r) {
        xmlAddChild(r, xmlNewDocPI(d, reinterpret_cast<xmlChar const*>("p"),
                                   reinterpret_cast<xmlChar const*>("\x7f\x0b")));
      },
      [](xmlDoc* d, xmlNode* r) {
        xmlAddChild(r, xmlNewCDataBlock(d, reinterpret_cast<xmlChar const*>("a]]>b"), 5));
      },
      [](xmlDoc*, xmlNode* r) {
        for (int i = 0; i < 300; ++i)
          r = xmlNewChild(r, nullptr, reinterpret_cast<xmlChar const*>("d"), nullptr);
      },
  };
  for (build_t const build : builds) {
    xmlDoc* document = xmlNewDoc(x("1.0"));
    xmlNode* root = xmlNewDocNode(document, nullptr, x("r"), nullptr);
    xmlDocSetRootElement(document, root);
    build(document, root);
    EXPECT_EQ(saved(document), "old");
    xmlFreeDoc(document);
  }
  // Read without replacing entities, an entity's text is checked where it is first used,
  // here in an attribute, and a later reference in content keeps it out of the content;
  // the save's reader replaces it there, and "]]>" is no content.
  std::string const entity = "<!DOCTYPE r [<!ENTITY e \"]]>v\">]><r a=\"&e;\"><s>&e;</s></r>";
  xmlDoc* document = xmlReadMemory(entity.data(), static_cast<int>(entity.size()), nullptr,
                                   nullptr, XML_PARSE_NOERROR | XML_PARSE_NOWARNING);
  ASSERT_NE(document, nullptr);
  EXPECT_EQ(saved(document), "old");
  xmlFreeDoc(document);
}

}  // namespace
