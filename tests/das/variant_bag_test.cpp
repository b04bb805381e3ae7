// Bags: repeated names, hidden entries, iterators, names and parents, copy, swap,
// equality and misuse.
#include "das/das_support.hpp"

using namespace das_test;

namespace {

using names_t = std::vector<std::wstring>;

template <class T>
names_t names(variant_bag_t const& bag) {
  names_t out;
  for (auto it = bag.begin<T>(); !it.at_end(); it.next()) out.push_back(it.get_name());
  return out;
}

TEST(BagRepeatedNames, AddKeepsAllLookupAnswersTheFirstPutReplacesAllAtTheEnd) {
  variant_bag_t bag;
  bag.add(L"a", variant_t(1));
  bag.add(L"a", variant_t(2));
  bag.add(L"b", variant_t(3));
  EXPECT_EQ(bag.get<variant_t>(L"a")->get<s32_t>(), 1);
  EXPECT_EQ(names<variant_t>(bag), (names_t{L"a", L"a", L"b"}));
  EXPECT_EQ(bag.get_variant(L"missing", variant_t(9)).get<s32_t>(), 9);
  variant_t& stored = bag.put(L"a", variant_t(4));
  EXPECT_EQ(names<variant_t>(bag), (names_t{L"b", L"a"}));
  EXPECT_EQ(&stored, bag.get<variant_t>(L"a"));
  // A put of a stored value copies it first.
  bag.put(L"c", variant_t(L"kept"));
  bag.put(L"c", *bag.get<variant_t>(L"c"));
  EXPECT_STREQ(bag.get<variant_t>(L"c")->get<const wchar_t*>(), L"kept");
}

TEST(BagRepeatedNames, RemoveByNameAndByAddress) {
  variant_bag_t bag;
  bag.add(L"a", variant_t(1));
  bag.add(L"b", variant_t(2));
  bag.add(L"a", variant_t(3));
  bag.remove<variant_t>(L"a");
  EXPECT_EQ(names<variant_t>(bag), (names_t{L"b"}));
  bag.add(L"b", variant_t(4));
  variant_t outside(5);
  bag.remove<variant_t>(&outside);
  bag.remove<variant_t>(bag.get<variant_t>(L"b"));
  EXPECT_EQ(bag.get<variant_t>(L"b")->get<s32_t>(), 4);
  bag.remove<variant_t>(static_cast<wchar_t const*>(nullptr));
}

TEST(BagRepeatedNames, NamesAndAddressesHoldThroughGrowthAndRemoval) {
  variant_bag_t bag;
  variant_t* first = &bag.put(L"first", variant_t(L"one"));
  for (int i = 0; i < 500; ++i) bag.add(std::to_wstring(i % 250).c_str(), variant_t(i));
  for (int i = 0; i < 250; i += 2) bag.remove<variant_t>(std::to_wstring(i).c_str());
  for (int i = 0; i < 250; ++i) {
    variant_t const* v = bag.get<variant_t>(std::to_wstring(i).c_str());
    EXPECT_EQ(v == nullptr ? -1 : v->get<s32_t>(), i % 2 ? i : -1);
  }
  EXPECT_EQ(bag.count<variant_t>(nullptr), 251u);
  EXPECT_EQ(first, bag.get<variant_t>(L"first"));
  EXPECT_STREQ(first->get<const wchar_t*>(), L"one");
}

TEST(BagIterators, SkipHiddenEntriesEndCleanlyAndRestartByTheStartRule) {
  variant_bag_t bag = bag_of(L"#hidden", variant_t(L"self"));
  EXPECT_TRUE(bag.is_empty());
  EXPECT_EQ(bag.count<variant_t>(nullptr), 1u);
  bag.add(L"a", variant_t(1));
  bag.add(L"a", variant_t(2));
  EXPECT_EQ(names<variant_t>(bag), (names_t{L"a", L"a"}));
  EXPECT_STREQ(bag.begin_by_name<variant_t>(L"#hidden").get_value().get<const wchar_t*>(), L"self");
  auto it = bag.begin<variant_t>();
  it.next();
  it.restart();
  EXPECT_STREQ(it.get_name(), L"a");
  auto by_name = bag.begin_by_name<variant_t>(L"a");
  by_name.next();
  by_name.restart();
  EXPECT_EQ(by_name.get_value().get<s32_t>(), 1);
  auto none = bag.begin_by_name(L"zzz");
  EXPECT_TRUE(none.at_end());
  EXPECT_FALSE(none.next());
  EXPECT_EQ(variant_bag_t::iterator_t<variant_t>().get_value().get_type(), vtNull);
  bag.remove_all<variant_t>();
  EXPECT_FALSE(bag.has<variant_t>(L"#hidden"));
}

TEST(BagNames, RenameKeepsThePlaceAmongSiblingsOrQueuesBehindANamesake) {
  variant_bag_t root;
  variant_bag_t& a = root.add_variant_bag(L"a", variant_bag_t());
  variant_bag_t& b = root.add_variant_bag(L"b", variant_bag_t());
  root.add_variant_bag(L"c", variant_bag_t());
  b.rename(L"a longer name");
  EXPECT_EQ(names<variant_bag_t>(root), (names_t{L"a", L"a longer name", L"c"}));
  a.rename(L"a longer name");
  EXPECT_EQ(root.get<variant_bag_t>(L"a longer name"), &b);
  EXPECT_FALSE(root.begin_by_name(L"a longer name").next());
}

TEST(BagCopy, CopyAndSwapRelinkChildrenAndParents) {
  variant_bag_t root;
  variant_bag_t& source = root.add_variant_bag(L"src", variant_bag_t());
  source.add(L"v", variant_t(1));
  source.add_variant_bag(L"kid", variant_bag_t()).add(L"w", variant_t(2));
  variant_bag_t other_root;
  variant_bag_t& target = other_root.add_variant_bag(L"dst", variant_bag_t());
  target = source;
  EXPECT_EQ(target.get_parent(), &other_root);
  EXPECT_STREQ(target.get_name(), L"src");
  EXPECT_EQ(target.get<variant_bag_t>(L"kid")->get_parent(), &target);
  variant_bag_t copy(source);
  EXPECT_EQ(copy.get_parent(), nullptr);
  root.add(L"plain", variant_bag_t());
  EXPECT_EQ(root.get<variant_bag_t>(L"plain")->get_parent(), nullptr);
  EXPECT_EQ(copy, source);
  EXPECT_EQ(copy.get<variant_bag_t>(L"kid")->get_parent(), &copy);
  // Swap exchanges content and parents.
  copy.add(L"extra", variant_t(3));
  copy.swap(target);
  EXPECT_EQ(copy.get_parent(), &other_root);
  EXPECT_EQ(target.get_parent(), nullptr);
  EXPECT_TRUE(target.has<variant_t>(L"extra"));
  EXPECT_EQ(copy.get<variant_bag_t>(L"kid")->get_parent(), &copy);
  // Assigning a descendant is safe.
  copy = *copy.get<variant_bag_t>(L"kid");
  EXPECT_EQ(copy.get<variant_t>(L"w")->get<s32_t>(), 2);
  EXPECT_FALSE(copy.has<variant_bag_t>(L"kid"));
}

TEST(BagEquality, PositionsCountNamesDoNotAndEmptyNamesCompareApart) {
  variant_bag_t xy, pq, yx;
  xy.add(L"", variant_t(L"text"));
  xy.add(L"x", variant_t(1));
  xy.add(L"y", variant_t(2));
  pq.add(L"p", variant_t(1));
  pq.add(L"q", variant_t(2));
  yx.add(L"y", variant_t(2));
  yx.add(L"x", variant_t(1));
  yx.add(L"", variant_t(L"text"));
  EXPECT_NE(xy, pq);
  pq.add(L"", variant_t(L"text"));
  EXPECT_EQ(xy, pq);
  EXPECT_NE(xy, yx);
  // Children compare recursively.
  xy.add_variant_bag(L"c", variant_bag_t()).add(L"v", variant_t(1));
  pq.add_variant_bag(L"d", variant_bag_t()).add(L"v", variant_t(1));
  EXPECT_EQ(xy, pq);
  pq.get<variant_bag_t>(L"d")->put(L"v", variant_t(2));
  EXPECT_NE(xy, pq);
}

TEST(BagMisuse, NullNamesSelfInsertionAndARootsNameReport) {
  q2test::assert_recorder_t capture;
  variant_bag_t bag;
  EXPECT_EQ(bag.get_name(), nullptr);
  bag.add(nullptr, variant_t(1));
  EXPECT_EQ(bag.count<variant_t>(nullptr), 0u);
  bag.add(L"me", bag);
  EXPECT_TRUE(bag.has<variant_bag_t>(L"me"));
  bag.remove<variant_t>(static_cast<variant_t const*>(nullptr));
  EXPECT_EQ(capture.conditions(),
            (std::vector<std::string>{
                "false", "name != NULL",
                "static_cast<const void*>(&value) != static_cast<const void*>(this)", "value"}));
  EXPECT_EQ(bag.get<variant_t>(nullptr), nullptr);
}

}  // namespace
