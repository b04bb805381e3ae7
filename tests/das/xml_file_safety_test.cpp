// Both XML forms: what a document can't hold back fails the save and keeps the old file,
// file locks (shared by readers), the both-forms load reads one form or fails, saves and
// loads on several threads, and the library's entity loader leaves the host program's
// own documents alone.
#include <atomic>
#include <thread>

#include <libxml/parser.h>

#include "das/das_support.hpp"

using namespace das_test;

namespace {

class XmlFileSafety : public file_test {};

}  // namespace

TEST_F(XmlFileSafety, WhatADocumentCanNotHoldFailsBothFormsAndKeepsTheOldFile) {
  std::wstring const file = name("keep.xml");
  ASSERT_EQ(1, save_variant_bag(bag_of(L"v", variant_t(1)), file.c_str()));
  std::string const before = q2test::read_file(m_dir.file("keep.xml"));

  std::vector<variant_bag_t> bad;
  for (wchar_t const* name : {L"a b", L"a<b", L"a/b", L"x>", L"1x", L"a&b", L"xmlns", L"xmlns:a",
                              L"a\xD800", L"\xDC00z"}) {
    bad.push_back(bag_of(name, variant_t(L"v", false)));
    bad.emplace_back().add_variant_bag(name, variant_bag_t());
  }
  for (wchar_t const* text : {L"bell\a", L"nul\x1f", L"\xD800", L"\xDC00", L"\xFFFE"})
    bad.push_back(bag_of(L"t", variant_t(text, false)));
  bad.emplace_back().add_variant_bag(L"c", bag_of(L"t", variant_t(L"\x1b[0m", false)));
  bad.push_back(chain(300));
  for (std::size_t i = 0; i < bad.size(); ++i) {
    SCOPED_TRACE(i);
    variant_t element(L"unchanged", false);
    EXPECT_EQ(k_failure, save_variant_bag_to_string(bad[i], &element));
    EXPECT_EQ(variant_t(L"unchanged", false), element);
    std::string attribute = "unchanged";
    EXPECT_EQ(k_failure, save_variant_bag_to_string2(bad[i], attribute, L"r"));
    EXPECT_EQ("unchanged", attribute);
    EXPECT_EQ(k_failure, save_variant_bag(bad[i], file.c_str()));
    EXPECT_EQ(k_failure, save_variant_bag2(bad[i], file.c_str(), L"r"));
  }
  // The element form has no place for an empty name; the attribute form writes it as text.
  EXPECT_EQ(k_failure, save_variant_bag(bag_of(L"", variant_t(1)), file.c_str()));
  // Objects that can't save pass their code on; objects that are not serializable fail.
  variant_bag_t const failing = bag_of(L"p", variant_t(probe(1, 0x40000123)));
  EXPECT_EQ(0x40000123, save_variant_bag(failing, file.c_str()));
  sptr_t<object_interface_t> opaque(new ref_counted_t<object_interface_t>());
  EXPECT_EQ(0x40000066,
            save_variant_bag(bag_of(L"o", variant_t(notype_ptr_t(opaque.get(), 0))), file.c_str()));
  EXPECT_EQ(before, q2test::read_file(m_dir.file("keep.xml")));
  EXPECT_EQ(1, files());

  // Names that only start like a namespace declaration still save.
  variant_bag_t fine = bag_of(L"xmlnsx", variant_t(1));
  fine.add_variant_bag(L"xmlnsy", variant_bag_t());
  EXPECT_EQ(1, save_variant_bag(fine, file.c_str()));
  EXPECT_EQ(1, save_variant_bag2(fine, file.c_str(), L"r"));
}

TEST_F(XmlFileSafety, ReadersShareTheLockAndWritersNeedItAlone) {
  variant_bag_t const bag = bag_of(L"v", variant_t(1));
  std::wstring const file = name("f.xml");
  ASSERT_EQ(1, save_variant_bag(bag, file.c_str()));
  std::string const before = q2test::read_file(m_dir.file("f.xml"));
  variant_bag_t loaded;
  {
    lock_t const reader(m_dir.file("f.xml"), LOCK_SH);
    EXPECT_EQ(1, load_variant_bag(loaded, file.c_str(), L""));
    EXPECT_EQ(1, load_variant_bag2(loaded, file.c_str(), L"root", true));
    EXPECT_EQ(k_failure, save_variant_bag(bag, file.c_str()));
    EXPECT_EQ(k_failure, save_variant_bag2(bag, file.c_str(), L"root"));
  }
  {
    lock_t const writer(m_dir.file("f.xml"), LOCK_EX);
    // The both-forms load does not fall back to the other form when it can't read the file.
    EXPECT_EQ(k_failure, load_variant_bag2(loaded, file.c_str(), L"project", true));
    EXPECT_TRUE(loaded.is_empty());
    EXPECT_EQ(k_failure, save_variant_bag(bag, file.c_str()));
  }
  EXPECT_EQ(before, q2test::read_file(m_dir.file("f.xml")));
  EXPECT_EQ(1, files());
}

TEST_F(XmlFileSafety, BothFormsLoadReadsOneFormOrFails) {
  variant_bag_t const settings = bag_of(L"level", variant_t(3));
  variant_bag_t bag;
  bag.add_variant_bag(L"settings", settings);
  std::wstring const element = name("element.xml");
  ASSERT_EQ(1, save_variant_bag(bag, element.c_str()));
  // The element form is found below "root", whatever the path's first step says.
  variant_bag_t loaded;
  ASSERT_EQ(1, load_variant_bag2(loaded, element.c_str(), L"project.settings", true));
  EXPECT_EQ(variant_t(3), loaded.get_variant(L"level", variant_t()));
  // An element-form document without the element the path names is not read as the
  // other form either.
  EXPECT_EQ(k_failure, load_variant_bag2(loaded, element.c_str(), L"project.missing", true));
  // Read as the attribute form it still parses, every element a bag.
  ASSERT_EQ(1, load_variant_bag2(loaded, element.c_str(), L"root", false));
  EXPECT_NE(nullptr, loaded.get<variant_bag_t>(L"settings")->get<variant_bag_t>(L"level"));
  // An attribute-form file with the flag set falls back to the attribute form.
  std::wstring const attribute = name("attribute.xml");
  ASSERT_EQ(1, save_variant_bag2(settings, attribute.c_str(), L"project.settings"));
  ASSERT_EQ(1, load_variant_bag2(loaded, attribute.c_str(), L"project.settings", true));
  EXPECT_EQ(variant_t(3), loaded.get_variant(L"level", variant_t()));
  EXPECT_EQ(attribute, loaded.get_variant(L"#file_name", variant_t()).get<wchar_t const*>());
}

TEST_F(XmlFileSafety, NullMissingAndUnreadableFilesFailInBothForms) {
  variant_bag_t bag = bag_of(L"kept", variant_t(1));
  EXPECT_EQ(k_failure, load_variant_bag(bag, nullptr, L""));
  EXPECT_EQ(k_failure, load_variant_bag2(bag, nullptr, L"root", true));
  EXPECT_TRUE(bag.has<variant_t>(L"kept"));
  EXPECT_EQ(k_failure, load_variant_bag(bag, name("missing.xml").c_str(), L""));
  EXPECT_TRUE(bag.is_empty());
  q2test::write_file(m_dir.file("latin.xml"), "<?xml version='1.0' encoding='ISO-8859-1'?><root/>");
  EXPECT_EQ(k_failure, load_variant_bag2(bag, name("latin.xml").c_str(), L"root", false));
  for (std::wstring const& file : {std::wstring(), name("no/such/dir.xml"), wide(m_dir.path())}) {
    wchar_t const* const path = file.empty() ? nullptr : file.c_str();
    EXPECT_EQ(k_failure, save_variant_bag(bag, path));
    EXPECT_EQ(k_failure, save_variant_bag2(bag, path, L"root"));
  }
}

TEST_F(XmlFileSafety, ThreadsSaveAndLoadBothFormsAtOnce) {
  std::atomic<int> failures{0};
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&, t] {
      std::wstring const file = name("t" + std::to_string(t) + ".xml");
      for (int round = 0; round < 20; ++round) {
        variant_bag_t const bag = bag_of(L"round", round);
        variant_bag_t element, attribute;
        std::string text;
        if (save_variant_bag(bag, file.c_str()) != 1 ||
            save_variant_bag_to_string2(bag, text, L"r") != 1 ||
            load_variant_bag(element, file.c_str(), L"") != 1 ||
            load_variant_bag_from_string2(attribute, text, L"r") != 1 || !(element == bag) ||
            !(attribute == bag))
          ++failures;
      }
    });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(0, failures.load());
}

TEST_F(XmlFileSafety, TheHostProgramsOwnDocumentsStillLoadTheirEntities) {
  // The library's loader is in place once it has read any document.
  variant_bag_t bag;
  ASSERT_EQ(1, load_variant_bag_from_string(bag, variant_t(L"<root/>", false)));
  q2test::write_file(m_dir.file("part.txt"), "outside");
  std::string const document =
      "<!DOCTYPE d [<!ENTITY part SYSTEM \"" + m_dir.file("part.txt") + "\">]><d>&part;</d>";
  xmlDocPtr doc = xmlReadMemory(document.data(), static_cast<int>(document.size()), nullptr,
                                nullptr, XML_PARSE_NOENT | XML_PARSE_NOERROR | XML_PARSE_NOWARNING);
  ASSERT_NE(nullptr, doc);
  xmlChar* text = xmlNodeGetContent(xmlDocGetRootElement(doc));
  EXPECT_STREQ("outside", reinterpret_cast<char const*>(text));
  xmlFree(text);
  xmlFreeDoc(doc);
  // The library's own reads still refuse the same entity.
  std::wstring const ours = L"<!DOCTYPE root [<!ENTITY part SYSTEM \"" + name("part.txt") +
                            L"\">]><root><v>&part;</v></root>";
  EXPECT_EQ(k_failure, load_variant_bag_from_string(bag, variant_t(ours.c_str(), false)));
}
