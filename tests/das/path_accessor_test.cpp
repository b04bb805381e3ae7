// Dotted paths into bags, and the merge and subtraction of bags.
#include "das/das_support.hpp"

using namespace das_test;

namespace {

variant_bag_t nested() {
  variant_bag_t root = bag_of(L"x", variant_t(1));
  variant_bag_t& a = root.add_variant_bag(L"a", variant_bag_t());
  variant_bag_t& b = a.add_variant_bag(L"b", variant_bag_t());
  b.put(L"c", variant_t(L"deep"));
  b.put(L"d", variant_t(2));
  a.add_variant_bag(L"b", variant_bag_t()).put(L"c", variant_t(L"second"));
  return root;
}

TEST(PathAccessor, ReadsAndIteratesAlongDottedPaths) {
  variant_bag_t bag = nested();
  path_accessor_t path(bag);
  variant_t const d(L"default");
  for (wchar_t const* deep : {L"a.b.c", L"a..b.c", L".a.b.c"})
    EXPECT_EQ(path.get_variant(deep, d), variant_t(L"deep"));
  EXPECT_EQ(path.get_variant(L"x", d), variant_t(1));
  EXPECT_EQ(path.get_variant(nullptr, d), d);
  EXPECT_STREQ(path.begin<variant_t>(L"a.b").get_name(), L"c");
  auto namesakes = path.begin_by_name(L"a.b");
  EXPECT_TRUE(namesakes.next());
  EXPECT_FALSE(namesakes.next());
  EXPECT_TRUE(path.begin_by_name(L"zz.b").at_end());
}

TEST(PathAccessor, AddCreatesTheWayAndRepeats) {
  variant_bag_t bag;
  path_accessor_t path(bag);
  variant_bag_t const leaf = bag_of(L"v", 3);
  EXPECT_EQ(path.add_variant_bag(L"a.b.c", leaf), DAS_OK);
  EXPECT_EQ(path.add_variant_bag(L"a.b.c", leaf), DAS_OK);
  EXPECT_EQ(path.add_variant_bag(nullptr, leaf), DAS_E_NO_PATH);
  variant_bag_t* ab = bag.get<variant_bag_t>(L"a")->get<variant_bag_t>(L"b");
  EXPECT_EQ(ab->count<variant_bag_t>(L"c"), 2u);
  EXPECT_EQ(ab->get<variant_bag_t>(L"c")->get_parent(), ab);
  EXPECT_EQ(path.get_variant(L"a.b.c.v", variant_t()), variant_t(3));
}

TEST(BagMerge, ValuesAreReplacedAndChildrenMergedRecursively) {
  variant_bag_t destination;
  destination.add(L"k", variant_t(1));
  destination.add(L"k", variant_t(2));
  destination.add(L"keep", variant_t(3));
  destination.add_variant_bag(L"c", bag_of(L"old", 1));
  variant_bag_t source;
  source.add(L"k", variant_t(10));
  source.add(L"k", variant_t(11));
  source.add_variant_bag(L"c", bag_of(L"new", 2));
  source.add_variant_bag(L"n", bag_of(L"z", 5));
  merge(destination, source);
  EXPECT_EQ(destination.count<variant_t>(L"k"), 1u);
  EXPECT_EQ(destination.get<variant_t>(L"k")->get<s32_t>(), 11);
  EXPECT_TRUE(destination.has<variant_t>(L"keep"));
  variant_bag_t const* c = destination.get<variant_bag_t>(L"c");
  EXPECT_TRUE(c->has<variant_t>(L"old") && c->has<variant_t>(L"new"));
  EXPECT_EQ(destination.get<variant_bag_t>(L"n")->get_parent(), &destination);
  // A bag with itself gives one value per name.
  merge(source, source);
  EXPECT_EQ(source.count<variant_t>(L"k"), 1u);
}

TEST(BagSubtract, MatchesGoAndDifferencesAreReported) {
  variant_bag_t a;
  a.add(L"x", variant_t(1));
  a.add_variant_bag(L"c", bag_of(L"y", 2));
  variant_bag_t result;
  EXPECT_TRUE(subtract(a, a, result) && result.is_empty());
  EXPECT_TRUE(subtract(a, a));
  EXPECT_TRUE(a.is_empty());

  variant_bag_t destination;
  destination.put(L"x", variant_t(1));
  destination.put(L"y", variant_t(2));
  variant_bag_t& c = destination.add_variant_bag(L"c", bag_of(L"p", 1));
  c.put(L"q", variant_t(2));
  destination.add_variant_bag(L"whole", bag_of(L"p", 1)).put(L"q", variant_t(2));
  destination.put(L"#tag_name", variant_t(L"mine"));
  variant_bag_t source;
  source.put(L"x", variant_t(5));
  source.put(L"y", variant_t(2));
  source.add_variant_bag(L"c", bag_of(L"p", 1)).put(L"missing", variant_t(0));
  source.add_variant_bag(L"whole", bag_of(L"p", 1));  // a found child goes whole
  source.put(L"#tag_name", variant_t(L"theirs"));
  EXPECT_FALSE(subtract(destination, source));
  EXPECT_TRUE(destination.has<variant_t>(L"x"));
  EXPECT_FALSE(destination.has<variant_t>(L"y"));
  EXPECT_TRUE(*destination.get<variant_bag_t>(L"c") == bag_of(L"q", 2));
  EXPECT_FALSE(destination.has<variant_bag_t>(L"whole"));
  // Hidden entries take no part.
  EXPECT_EQ(destination.get_variant(L"#tag_name", variant_t()), variant_t(L"mine"));
  EXPECT_FALSE(subtract(destination, bag_of(L"zz", 1)));
}

TEST(BagSubtract, RepeatedChildrenAreTakenInTurn) {
  variant_bag_t destination;
  for (int i = 1; i <= 3; ++i) destination.add_variant_bag(L"c", bag_of(L"x", i));
  variant_bag_t source;
  for (int i = 1; i <= 2; ++i) source.add_variant_bag(L"c", bag_of(L"x", i));
  EXPECT_TRUE(subtract(destination, source));
  ASSERT_EQ(destination.count<variant_bag_t>(L"c"), 1u);
  EXPECT_EQ(destination.get<variant_bag_t>(L"c")->get<variant_t>(L"x")->get<s32_t>(), 3);
  source.add_variant_bag(L"c", bag_of(L"x", 9));
  EXPECT_FALSE(subtract(destination, source));
}

}  // namespace
