// Deep bags and deep documents through the event layer: walks and rebuilds far deeper
// than a stack could recurse, and saves that refuse what libxml2 would not read back.
#include <string>

#include <gtest/gtest.h>

#include <quillon2/das/variant.hpp>
#include <quillon2/das/variant_bag.hpp>
#include <quillon2/das/variant_bag_serialization2.hpp>
#include <quillon2/das/variant_bag_visitor.hpp>

namespace ql2 = quillon2;
using ql2::variant_bag_t;
using ql2::variant_t;

namespace {

variant_bag_t chain(int depth) {
  variant_bag_t bag;
  variant_bag_t* level = &bag;
  for (int i = 0; i < depth; ++i) level = &level->add_variant_bag(L"n", variant_bag_t());
  level->add<variant_t>(L"leaf", variant_t(depth));
  return bag;
}

TEST(VisitorDepth, WalkAndRebuildOfAVeryDeepBag) {
  variant_bag_t const deep = chain(200000);
  variant_bag_t rebuilt;
  ASSERT_EQ(1, ql2::dump_variant_bag(deep, ql2::create_variant_bag_builder(rebuilt)));
  EXPECT_TRUE(rebuilt == deep);
}

TEST(VisitorDepth, SavesStopWhereLoadsWould) {
  // The document element and 256 levels below it are what libxml2 reads.
  std::string text;
  ASSERT_EQ(1, ql2::save_variant_bag_to_string2(chain(256), text, L"top"));
  variant_bag_t loaded;
  ASSERT_EQ(1, ql2::load_variant_bag_from_string2(loaded, text, L"top"));
  EXPECT_TRUE(loaded == chain(256));
  EXPECT_EQ(0x40000001, ql2::save_variant_bag_to_string2(chain(257), text, L"top"));
  EXPECT_EQ(0x40000001, ql2::save_variant_bag_to_string2(chain(100000), text, L"top"));
  EXPECT_EQ(0x40000001, ql2::save_variant_bag_to_string2(chain(255), text, L"a.b.c"));
}

TEST(VisitorDepth, DeepDocumentsAreRefusedWithoutHarm) {
  std::string text;
  for (int i = 0; i < 100000; ++i) text += "<n>";
  variant_bag_t bag;
  EXPECT_EQ(0x40000001, ql2::load_variant_bag_from_string2(bag, text, nullptr));
  for (int i = 0; i < 100000; ++i) text += "</n>";
  EXPECT_EQ(0x40000001, ql2::load_variant_bag_from_string2(bag, text, nullptr));
}

}  // namespace
