// A bag nested 100,000 deep through the mirror, the generic walk, location paths and
// libxml2's evaluation; expressions nested far deeper than any stack could recurse.
#include <gtest/gtest.h>

#include "xpath_support.hpp"

namespace ql2 = quillon2;
using ql2::variant_bag_t;
using ql2::variant_t;

namespace {

constexpr int k_depth = 100000;

variant_bag_t chain(variant_bag_t const** deepest) {
  variant_bag_t bag;
  bag.rename(L"top");
  variant_bag_t* level = &bag;
  for (int i = 0; i < k_depth; ++i) {
    level = &level->add_variant_bag(L"n", variant_bag_t());
    level->add<variant_t>(L"d", variant_t(i + 1));
  }
  level->add<variant_t>(L"", variant_t(L"bottom"));
  *deepest = level;
  return bag;
}

TEST(XPathDepth, AVeryDeepBagMirrorsAndAnswers) {
  variant_bag_t const* deepest = nullptr;
  variant_bag_t bag = chain(&deepest);
  auto const xp = ql2::variant_bag_xpath(bag);
  EXPECT_EQ(double(k_depth), xp.select(L"count(//n)").get_value().get<double>());
  auto const leaf = xp.select(L"//n[@d=100000]");
  ASSERT_EQ(1u, leaf.get_nodes().size());
  EXPECT_EQ(deepest, leaf.get_nodes()[0]);
  EXPECT_EQ(deepest->get<variant_t>(L""), xp.select(L"//text()").get_properties().at(0));
  EXPECT_EQ(L"bottom", std::wstring(xp.select(L"string(/top)").get_value().get<wchar_t const*>()));
  EXPECT_EQ(double(k_depth),
            xp.select(L"count(//n[@d=100000]/ancestor::*)").get_value().get<double>());
  EXPECT_EQ(std::size_t(k_depth), xp.select(L"//@d").get_properties().size());
}

TEST(XPathDepth, GenericWalkLocationPathAndFindOfAVeryDeepBag) {
  variant_bag_t const* deepest = nullptr;
  variant_bag_t bag = chain(&deepest);
  auto const root = q2test::const_view_of(bag);
  EXPECT_EQ(deepest, root->select(L"//n[not(n)]").get_nodes().at(0));
  auto const found = root->find(deepest);
  ASSERT_TRUE(found);
  auto const path = found->get_xpath();
  std::wstring expected = L"/top";
  for (int i = 0; i < k_depth; ++i) expected += L"/n";
  EXPECT_EQ(expected, path.get<wchar_t const*>());
}

TEST(XPathDepth, ALongLocationPathSelectsItsNode) {
  // libxml2 matches a plain path like this one in time that grows with the square of its
  // length, so the round trip stays at a few thousand levels.
  variant_bag_t bag;
  variant_bag_t* level = &bag;
  for (int i = 0; i < 4000; ++i) level = &level->add_variant_bag(L"n", variant_bag_t());
  auto const path = q2test::view_of(bag)->find(level)->get_xpath();
  auto const result = ql2::variant_bag_xpath(bag).select(path.get<wchar_t const*>());
  ASSERT_EQ(1u, result.get_nodes().size());
  EXPECT_EQ(level, result.get_nodes()[0]);
}

TEST(XPathDepth, DeeplyNestedExpressionsFailCleanly) {
  variant_bag_t bag;
  auto const xp = ql2::variant_bag_xpath(bag);
  std::wstring parens(k_depth, L'(');
  parens += L"1";
  parens += std::wstring(k_depth, L')');
  EXPECT_EQ(1u, xp.select(parens.c_str()).get_error());
  std::wstring sum = L"1";
  for (int i = 0; i < k_depth; ++i) sum += L"+1";
  EXPECT_EQ(1u, xp.select(sum.c_str()).get_error());
  std::wstring predicates = L"/bag";
  for (int i = 0; i < k_depth; ++i) predicates += L"[1]";
  EXPECT_EQ(1u, xp.select(predicates.c_str()).get_error());
  std::wstring negations(k_depth, L'-');
  negations += L"1";
  auto const negated = xp.select(negations.c_str());  // libxml2 folds these in a loop
  EXPECT_TRUE(negated.get_error() == 1u || negated.get_value() == variant_t(1.0));
}

}  // namespace
