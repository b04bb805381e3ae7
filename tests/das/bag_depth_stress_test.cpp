// Bags and documents far deeper than a stack could recurse through: a path accessor
// builds one, then it is copied, compared, assigned, merged, subtracted, walked and
// rebuilt; saves refuse what libxml2 would not read back.
#include "das/das_support.hpp"

using namespace das_test;

namespace {

constexpr int k_depth = 200000;

TEST(BagDepth, VeryDeepBagsNeverExhaustTheStack) {
  std::wstring path;
  for (int i = 1; i < k_depth; ++i) path += L"n.";
  path += L"n";
  variant_bag_t deep;
  variant_bag_t leaf = bag_of(L"leaf", variant_t(k_depth));
  ASSERT_EQ(path_accessor_t(deep).add_variant_bag(path.c_str(), leaf), DAS_OK);
  EXPECT_EQ(path_accessor_t(deep).get_variant((path + L".leaf").c_str(), variant_t()),
            variant_t(k_depth));
  EXPECT_TRUE(deep == chain(k_depth));

  variant_bag_t copy(deep);
  path_accessor_t(copy).add_variant_bag(path.c_str(), leaf);
  EXPECT_FALSE(copy == deep);
  copy = deep;
  EXPECT_TRUE(copy == deep);

  variant_bag_t merged;
  merge(merged, deep);
  EXPECT_TRUE(merged == deep);
  EXPECT_TRUE(subtract(merged, deep));
  EXPECT_TRUE(merged.is_empty());

  variant_bag_t rebuilt;
  ASSERT_EQ(1, dump_variant_bag(deep, create_variant_bag_builder(rebuilt)));
  EXPECT_TRUE(rebuilt == deep);
}

TEST(BagDepth, SavesStopWhereLoadsWouldAndDeepDocumentsAreRefused) {
  // The document element and 256 levels below it are what libxml2 reads.
  std::string text;
  ASSERT_EQ(1, save_variant_bag_to_string2(chain(256), text, L"top"));
  variant_bag_t loaded;
  ASSERT_EQ(1, load_variant_bag_from_string2(loaded, text, L"top"));
  EXPECT_TRUE(loaded == chain(256));
  EXPECT_EQ(k_failure, save_variant_bag_to_string2(chain(257), text, L"top"));
  EXPECT_EQ(k_failure, save_variant_bag_to_string2(chain(255), text, L"a.b.c"));

  text.clear();
  for (int i = 0; i < 100000; ++i) text += "<n>";
  EXPECT_EQ(k_failure, load_variant_bag_from_string2(loaded, text, nullptr));
  for (int i = 0; i < 100000; ++i) text += "</n>";
  EXPECT_EQ(k_failure, load_variant_bag_from_string2(loaded, text, nullptr));
}

}  // namespace
