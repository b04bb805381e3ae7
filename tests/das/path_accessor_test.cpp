#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <quillon2/das/path_accessor.hpp>
#include <quillon2/das/type_factory.hpp>

using namespace quillon2;

namespace {

variant_bag_t nested() {
  variant_bag_t root;
  root.put(L"x", variant_t(1));
  variant_bag_t& a = root.add_variant_bag(L"a", variant_bag_t());
  variant_bag_t& b = a.add_variant_bag(L"b", variant_bag_t());
  b.put(L"c", variant_t(L"deep"));
  b.put(L"d", variant_t(2));
  a.add_variant_bag(L"b", variant_bag_t()).put(L"c", variant_t(L"second"));
  return root;
}

TEST(PathAccessor, ReadsAlongDottedPaths) {
  variant_bag_t bag = nested();
  path_accessor_t const path(bag);
  variant_t const d(L"default");
  EXPECT_STREQ(path.get_variant(L"a.b.c", d).get<const wchar_t*>(), L"deep");
  EXPECT_EQ(path.get_variant(L"x", d).get<s32_t>(), 1);
  EXPECT_STREQ(path.get_variant(L"a..b.c", d).get<const wchar_t*>(), L"deep");
  EXPECT_STREQ(path.get_variant(L".a.b.c", d).get<const wchar_t*>(), L"deep");
  EXPECT_STREQ(path.get_variant(L"q.b.c", d).get<const wchar_t*>(), L"default");
  EXPECT_STREQ(path.get_variant(nullptr, d).get<const wchar_t*>(), L"default");
  variant_bag_t empty;
  EXPECT_STREQ(path_accessor_t(empty).get_variant(L"a.b.c", d).get<const wchar_t*>(), L"default");
}

TEST(PathAccessor, AddCreatesTheWayAndRepeats) {
  variant_bag_t bag;
  path_accessor_t path(bag);
  variant_bag_t leaf;
  leaf.put(L"v", variant_t(3));
  EXPECT_EQ(path.add_variant_bag(L"a.b.c", leaf), DAS_OK);
  EXPECT_EQ(path.add_variant_bag(L"a.b.c", leaf), DAS_OK);
  variant_bag_t* ab = bag.get<variant_bag_t>(L"a")->get<variant_bag_t>(L"b");
  ASSERT_NE(ab, nullptr);
  EXPECT_EQ(ab->count<variant_bag_t>(L"c"), 2u);
  EXPECT_STREQ(ab->get<variant_bag_t>(L"c")->get_name(), L"c");
  EXPECT_EQ(ab->get<variant_bag_t>(L"c")->get_parent(), ab);
  EXPECT_EQ(path.add_variant_bag(nullptr, leaf), DAS_E_NO_PATH);
  EXPECT_EQ(path.get_variant(L"a.b.c.v", variant_t()).get<s32_t>(), 3);
  variant_bag_t& through = path;
  EXPECT_EQ(&through, &bag);
}

TEST(PathAccessor, IteratesTheBagAtAPathOrItsNamesakes) {
  variant_bag_t bag = nested();
  path_accessor_t path(bag);
  std::vector<std::wstring> values;
  for (auto it = path.begin<variant_t>(L"a.b"); !it.at_end(); it.next())
    values.push_back(it.get_name());
  EXPECT_EQ(values, (std::vector<std::wstring>{L"c", L"d"}));
  int namesakes = 0;
  for (auto it = path.begin_by_name(L"a.b"); !it.at_end(); it.next()) ++namesakes;
  EXPECT_EQ(namesakes, 2);
  EXPECT_TRUE(path.begin<variant_bag_t>(L"a.zz").at_end());
  EXPECT_TRUE(path.begin_by_name(L"zz.b").at_end());
  path_accessor_t const& const_path = path;
  EXPECT_FALSE(const_path.begin<variant_bag_t>(L"a").at_end());
}

TEST(BagMerge, ValuesAreReplacedAndChildrenMergedRecursively) {
  variant_bag_t destination;
  destination.add(L"k", variant_t(1));
  destination.add(L"k", variant_t(2));
  destination.add(L"keep", variant_t(3));
  destination.add_variant_bag(L"c", variant_bag_t()).put(L"old", variant_t(1));
  variant_bag_t source;
  source.add(L"k", variant_t(10));
  source.add(L"k", variant_t(11));
  variant_bag_t& sc = source.add_variant_bag(L"c", variant_bag_t());
  sc.put(L"new", variant_t(2));
  source.add_variant_bag(L"n", variant_bag_t()).put(L"z", variant_t(5));
  merge(destination, source);
  EXPECT_EQ(destination.count<variant_t>(L"k"), 1u);
  EXPECT_EQ(destination.get<variant_t>(L"k")->get<s32_t>(), 11);
  EXPECT_TRUE(destination.has<variant_t>(L"keep"));
  variant_bag_t const* c = destination.get<variant_bag_t>(L"c");
  EXPECT_TRUE(c->has<variant_t>(L"old"));
  EXPECT_TRUE(c->has<variant_t>(L"new"));
  EXPECT_EQ(destination.get<variant_bag_t>(L"n")->get_parent(), &destination);
}

TEST(BagMerge, ABagWithItselfGivesOneValuePerName) {
  variant_bag_t a;
  a.add(L"x", variant_t(1));
  a.add(L"x", variant_t(2));
  a.add(L"y", variant_t(3));
  variant_bag_t result;
  merge(a, a, result);
  EXPECT_EQ(result.count<variant_t>(L"x"), 1u);
  EXPECT_EQ(result.count<variant_t>(L"y"), 1u);
  merge(a, a);
  EXPECT_EQ(a.count<variant_t>(L"x"), 1u);
}

TEST(BagSubtract, SelfSubtractionEmptiesTheResult) {
  variant_bag_t a;
  a.add(L"x", variant_t(1));
  a.add_variant_bag(L"c", variant_bag_t()).put(L"y", variant_t(2));
  variant_bag_t result;
  EXPECT_TRUE(subtract(a, a, result));
  EXPECT_TRUE(result.is_empty());
  EXPECT_TRUE(subtract(a, a));
  EXPECT_TRUE(a.is_empty());
}

TEST(BagSubtract, AFoundChildGoesWhole) {
  variant_bag_t destination;
  variant_bag_t& c = destination.add_variant_bag(L"c", variant_bag_t());
  c.put(L"x", variant_t(1));
  c.put(L"y", variant_t(2));
  variant_bag_t source;
  source.add_variant_bag(L"c", variant_bag_t()).put(L"x", variant_t(1));
  EXPECT_TRUE(subtract(destination, source));
  EXPECT_FALSE(destination.has<variant_bag_t>(L"c"));
}

TEST(BagSubtract, DifferencesAndMissingEntriesAreReported) {
  variant_bag_t destination;
  destination.put(L"x", variant_t(1));
  destination.put(L"y", variant_t(2));
  variant_bag_t& c = destination.add_variant_bag(L"c", variant_bag_t());
  c.put(L"p", variant_t(1));
  c.put(L"q", variant_t(2));
  variant_bag_t source;
  source.put(L"x", variant_t(5));
  source.put(L"y", variant_t(2));
  variant_bag_t& sc = source.add_variant_bag(L"c", variant_bag_t());
  sc.put(L"p", variant_t(1));
  sc.put(L"missing", variant_t(0));
  EXPECT_FALSE(subtract(destination, source));
  EXPECT_TRUE(destination.has<variant_t>(L"x"));
  EXPECT_FALSE(destination.has<variant_t>(L"y"));
  variant_bag_t const* left = destination.get<variant_bag_t>(L"c");
  ASSERT_NE(left, nullptr);
  EXPECT_FALSE(left->has<variant_t>(L"p"));
  EXPECT_TRUE(left->has<variant_t>(L"q"));
  variant_bag_t only_values;
  only_values.put(L"zz", variant_t(1));
  EXPECT_FALSE(subtract(destination, only_values));
}

TEST(BagSubtract, RepeatedChildrenAreTakenInTurn) {
  variant_bag_t destination;
  destination.add_variant_bag(L"c", variant_bag_t()).put(L"x", variant_t(1));
  destination.add_variant_bag(L"c", variant_bag_t()).put(L"x", variant_t(2));
  destination.add_variant_bag(L"c", variant_bag_t()).put(L"x", variant_t(3));
  variant_bag_t source;
  source.add_variant_bag(L"c", variant_bag_t()).put(L"x", variant_t(1));
  source.add_variant_bag(L"c", variant_bag_t()).put(L"x", variant_t(2));
  EXPECT_TRUE(subtract(destination, source));
  ASSERT_EQ(destination.count<variant_bag_t>(L"c"), 1u);
  EXPECT_EQ(destination.get<variant_bag_t>(L"c")->get<variant_t>(L"x")->get<s32_t>(), 3);
  source.add_variant_bag(L"c", variant_bag_t()).put(L"x", variant_t(9));
  EXPECT_FALSE(subtract(destination, source));
}

TEST(BagSubtract, HiddenEntriesTakeNoPart) {
  variant_bag_t destination;
  destination.put(L"#tag_name", variant_t(L"mine"));
  variant_bag_t source;
  source.put(L"#tag_name", variant_t(L"theirs"));
  EXPECT_TRUE(subtract(destination, source));
  EXPECT_STREQ(destination.get<variant_t>(L"#tag_name")->get<const wchar_t*>(), L"mine");
}

}  // namespace
