// Both XML forms: names a document can't hold back fail the save, the file lock is shared
// by readers, the both-forms load reads one form or fails, and the library's entity
// loader leaves the host program's own documents alone.
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <string>

#include <gtest/gtest.h>
#include <libxml/parser.h>

#include <quillon2/das/variant.hpp>
#include <quillon2/das/variant_bag.hpp>
#include <quillon2/das/variant_bag_serialization.hpp>
#include <quillon2/das/variant_bag_serialization2.hpp>
#include <quillon2/headers/kesmet.hpp>

#include "support/temp_dir.hpp"

namespace {

using quillon2::variant_bag_t;
using quillon2::variant_t;
namespace q2 = quillon2;

constexpr int k_failure = 0x40000001;

class XmlFileSafety : public q2test::temp_dir_test {
 protected:
  std::wstring name(std::string const& file) const {
    return KESMET_2_18::strings::utf8_to_utf16(m_dir.file(file));
  }
  // Holds a flock of the given kind on a file while it lives.
  struct lock_t {
    lock_t(std::string const& path, int kind) : fd(::open(path.c_str(), O_RDONLY | O_CLOEXEC)) {
      EXPECT_EQ(0, ::flock(fd, kind | LOCK_NB));
    }
    ~lock_t() { ::close(fd); }
    int fd;
  };
};

// Whether a save of `bag` fails in the element form and in the attribute form.
void expect_both_saves_fail(variant_bag_t const& bag) {
  variant_t element;
  EXPECT_EQ(k_failure, q2::save_variant_bag_to_string(bag, &element));
  std::string attribute;
  EXPECT_EQ(k_failure, q2::save_variant_bag_to_string2(bag, attribute, L"r"));
}

}  // namespace

TEST(XmlNames, NamespaceDeclarationsAndLoneSurrogatesFailBothForms) {
  for (wchar_t const* bad : {L"xmlns", L"xmlns:a", L"a\xD800", L"\xDC00z"}) {
    SCOPED_TRACE(static_cast<unsigned>(bad[1]));
    variant_bag_t value;
    value.add<variant_t>(bad, variant_t(1));
    expect_both_saves_fail(value);
    variant_bag_t child;
    child.add_variant_bag(bad, variant_bag_t());
    expect_both_saves_fail(child);
  }
  // Names that only start like one still save.
  variant_bag_t fine;
  fine.add<variant_t>(L"xmlnsx", variant_t(1));
  fine.add_variant_bag(L"xmlnsy", variant_bag_t());
  std::string attribute;
  EXPECT_EQ(1, q2::save_variant_bag_to_string2(fine, attribute, L"r"));
  variant_t element;
  EXPECT_EQ(1, q2::save_variant_bag_to_string(fine, &element));
}

TEST_F(XmlFileSafety, ReadersShareTheLockAndWritersNeedItAlone) {
  variant_bag_t bag;
  bag.add<variant_t>(L"v", variant_t(1));
  std::wstring const file = name("f.xml");
  ASSERT_EQ(1, q2::save_variant_bag(bag, file.c_str()));
  {
    lock_t const reader(m_dir.file("f.xml"), LOCK_SH);
    variant_bag_t loaded;
    EXPECT_EQ(1, q2::load_variant_bag(loaded, file.c_str(), L""));
    EXPECT_EQ(variant_t(1), loaded.get_variant(L"v", variant_t()));
    EXPECT_EQ(1, q2::load_variant_bag2(loaded, file.c_str(), L"root", true));
    EXPECT_EQ(k_failure, q2::save_variant_bag(bag, file.c_str()));
    EXPECT_EQ(k_failure, q2::save_variant_bag2(bag, file.c_str(), L"root"));
  }
  EXPECT_EQ(1, q2::save_variant_bag2(bag, file.c_str(), L"root"));
}

TEST_F(XmlFileSafety, BothFormsLoadFailsWhenTheElementFormCanNotBeRead) {
  variant_bag_t settings;
  settings.add<variant_t>(L"level", variant_t(3));
  std::wstring const file = name("element.xml");
  ASSERT_EQ(1, q2::save_variant_bag(settings, file.c_str()));
  variant_bag_t loaded;
  {
    lock_t const writer(m_dir.file("element.xml"), LOCK_EX);
    EXPECT_EQ(k_failure, q2::load_variant_bag2(loaded, file.c_str(), L"project", true));
    EXPECT_TRUE(loaded.is_empty());
  }
  // An element-form document without the element the path names is not read as the
  // other form either.
  EXPECT_EQ(k_failure, q2::load_variant_bag2(loaded, file.c_str(), L"project.missing", true));
  EXPECT_TRUE(loaded.is_empty());
  ASSERT_EQ(1, q2::load_variant_bag2(loaded, file.c_str(), L"project", true));
  EXPECT_EQ(variant_t(3), loaded.get_variant(L"level", variant_t()));
}

TEST_F(XmlFileSafety, TheHostProgramsOwnDocumentsStillLoadTheirEntities) {
  // The library's loader is in place once it has read any document.
  variant_bag_t bag;
  ASSERT_EQ(1, q2::load_variant_bag_from_string(bag, variant_t(L"<root/>", false)));
  q2test::write_file(m_dir.file("part.txt"), "outside");
  std::string const document = "<!DOCTYPE d [<!ENTITY part SYSTEM \"" + m_dir.file("part.txt") +
                               "\">]><d>&part;</d>";
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
  EXPECT_EQ(k_failure, q2::load_variant_bag_from_string(bag, variant_t(ours.c_str(), false)));
}
