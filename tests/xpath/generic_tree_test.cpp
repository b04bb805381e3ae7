// The tree views of a bag: what they show, select through the generic walk, location
// paths that lead back to their node, and find.
#include <vector>

#include <gtest/gtest.h>

#include "xpath_support.hpp"

namespace ql2 = quillon2;
using ql2::variant_bag_t;
using ql2::variant_t;
using q2test::text;
using q2test::view_of;

namespace {

// name / b(x) b b(y) c(z) a(#hidden)
variant_bag_t family() {
  variant_bag_t bag;
  bag.rename(L"name");
  bag.add<variant_t>(L"v", variant_t(2.5));
  bag.add<variant_t>(L"", variant_t(L"body"));
  bag.add<variant_t>(L"#hidden", variant_t(1));
  bag.add_variant_bag(L"b", variant_bag_t()).add_variant_bag(L"x", variant_bag_t());
  bag.add_variant_bag(L"b", variant_bag_t());
  bag.add_variant_bag(L"b", variant_bag_t()).add_variant_bag(L"y", variant_bag_t());
  bag.add_variant_bag(L"c", variant_bag_t()).add_variant_bag(L"z", variant_bag_t());
  bag.add_variant_bag(L"#a", variant_bag_t());
  return bag;
}

TEST(GenericTree, AViewShowsTheBagWithoutHiddenEntries) {
  variant_bag_t bag = family();
  auto const root = view_of(bag);
  EXPECT_EQ(std::wstring(L"name"), root->get_name());
  EXPECT_EQ(&bag, &root->get_value());
  EXPECT_FALSE(root->get_parent());

  std::vector<std::wstring> names;
  for (auto children = root->get_children(); !children.at_end(); children.next()) {
    auto const child = children.current();
    names.push_back(child->get_name());
    EXPECT_EQ(&bag, &child->get_parent()->get_value());
    // The library's own type information is the one clients see.
    EXPECT_NE(nullptr, dynamic_cast<ql2::variant_bag_generic_tree_t*>(child.get()));
  }
  EXPECT_EQ((std::vector<std::wstring>{L"b", L"b", L"b", L"c"}), names);

  auto properties = root->get_properties();
  ASSERT_FALSE(properties.at_end());
  EXPECT_EQ(L"v", text(properties.current()->name));
  EXPECT_EQ(L"2.5", text(properties.current()->value));
  EXPECT_EQ(bag.get<variant_t>(L"v"), properties.current()->source);
  properties.next();
  EXPECT_EQ(L"", text(properties.current()->name));
  EXPECT_EQ(bag.get<variant_t>(L""), properties.current()->source);
  properties.next();
  EXPECT_TRUE(properties.at_end());
}

TEST(GenericTree, SelectOnAViewGivesWhatTheMirrorGives) {
  variant_bag_t bag = family();
  auto const root = view_of(bag);
  auto const xp = ql2::variant_bag_xpath(bag);
  for (wchar_t const* query : {L"//b", L"//@*", L"/name/text()", L"//*[not(*)]"}) {
    auto const direct = xp.select(query);
    auto const generic = root->select(query);
    EXPECT_EQ(direct.get_nodes(), generic.get_nodes()) << query;
    EXPECT_EQ(direct.get_properties(), generic.get_properties()) << query;
  }
  variant_bag_t nameless;
  auto const held = q2test::const_view_of(nameless);
  auto const result = held->select(L"/bag");
  ASSERT_EQ(1u, result.get_nodes().size());
  variant_bag_t const* const found = result.get_nodes()[0];
  EXPECT_EQ(&nameless, found);
  EXPECT_EQ(L"/bag", text(held->get_xpath()));
}

TEST(GenericTree, EveryLocationPathSelectsItsNodeAndFindGivesIt) {
  variant_bag_t bag = family();
  for (int i = 0; i < 3; ++i) {
    variant_bag_t& level = bag.add_variant_bag(L"b", variant_bag_t());
    level.add_variant_bag(L"b", variant_bag_t()).add_variant_bag(L"b", variant_bag_t());
    level.add_variant_bag(L"d", variant_bag_t());
    level.add_variant_bag(L"b", variant_bag_t());
  }
  auto const xp = ql2::variant_bag_xpath(bag);
  auto const root = view_of(bag);
  std::vector<ql2::sptr_t<q2test::tree_t>> pending{root};
  std::size_t checked = 0;
  while (!pending.empty()) {
    auto const node = pending.back();
    pending.pop_back();
    auto const path = node->get_xpath();
    auto const result = xp.select(path.get<wchar_t const*>());
    ASSERT_EQ(1u, result.get_nodes().size()) << text(path);
    EXPECT_EQ(&node->get_value(), result.get_nodes()[0]) << text(path);
    ++checked;
    for (auto children = node->get_children(); !children.at_end(); children.next()) {
      pending.push_back(children.current());
    }
  }
  EXPECT_EQ(23u, checked);

  EXPECT_EQ(L"/name", text(root->get_xpath()));
  auto children = root->get_children();
  children.next();
  EXPECT_EQ(L"/name/b[position()=2]", text(children.current()->get_xpath()));
  EXPECT_FALSE(root->find(&bag));
  EXPECT_FALSE(root->find(bag.get<variant_bag_t>(L"#a")));
  variant_bag_t const* const z = bag.get<variant_bag_t>(L"c")->get<variant_bag_t>(L"z");
  auto const found = root->find(z);
  ASSERT_TRUE(found);
  EXPECT_EQ(z, &found->get_value());
  EXPECT_EQ(L"/name/c/z", text(found->get_xpath()));
}

}  // namespace
