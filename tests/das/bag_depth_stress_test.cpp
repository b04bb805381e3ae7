#include <string>

#include <gtest/gtest.h>

#include <quillon2/das/path_accessor.hpp>
#include <quillon2/das/type_factory.hpp>

using namespace quillon2;

namespace {

// A bag far deeper than any stack could recurse through is built from one long path,
// then copied, compared, assigned, cleared and destroyed.
TEST(BagDepth, VeryDeepBagsNeverExhaustTheStack) {
  constexpr int depth = 200000;
  std::wstring path;
  path.reserve(depth * 2);
  for (int i = 0; i < depth; ++i) path += L"a.";
  path += L"leaf";
  variant_bag_t deep;
  variant_bag_t leaf;
  leaf.put(L"v", variant_t(1));
  ASSERT_EQ(path_accessor_t(deep).add_variant_bag(path.c_str(), leaf), DAS_OK);
  EXPECT_EQ(path_accessor_t(deep).get_variant((path + L".v").c_str(), variant_t()).get<s32_t>(), 1);

  variant_bag_t copy(deep);
  EXPECT_TRUE(copy == deep);
  path_accessor_t(copy).add_variant_bag(path.c_str(), leaf);
  EXPECT_FALSE(copy == deep);
  copy = deep;
  EXPECT_TRUE(copy == deep);
  copy.clear();
  EXPECT_TRUE(copy.is_empty());
}

}  // namespace

namespace {

TEST(BagDepth, MergeAndSubtractWalkDeepBags) {
  constexpr int depth = 200000;
  std::wstring path;
  for (int i = 0; i < depth; ++i) path += L"a.";
  path += L"leaf";
  variant_bag_t leaf;
  leaf.put(L"v", variant_t(1));
  variant_bag_t source;
  path_accessor_t(source).add_variant_bag(path.c_str(), leaf);
  variant_bag_t destination;
  merge(destination, source);
  EXPECT_TRUE(destination == source);
  merge(destination, source);
  EXPECT_TRUE(destination == source);
  EXPECT_TRUE(subtract(destination, source));
  EXPECT_TRUE(destination.is_empty());
}

}  // namespace
