// The tree views of a bag: what they show, select through the generic walk, location
// paths that lead back to their node, and find.
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <quillon2/das/das_generic_xpath.hpp>
#include <quillon2/das/variant.hpp>
#include <quillon2/das/variant_bag.hpp>

namespace ql2 = quillon2;
using ql2::variant_bag_t;
using ql2::variant_t;
using tree_t = ql2::generic_tree_t<variant_bag_t, variant_t>;
using const_tree_t = ql2::generic_tree_t<variant_bag_t const, variant_t const>;

namespace {

ql2::sptr_t<tree_t> view_of(variant_bag_t& bag) {
  auto* view = new ql2::ref_counted_t<ql2::variant_bag_generic_tree_t>();
  view->init(bag);
  return ql2::sptr_t<tree_t>(view);
}

std::wstring text(variant_t const& value) {
  return value.can_get<wchar_t const*>() ? value.get<wchar_t const*>() : L"<not text>";
}

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
  auto* view = new ql2::ref_counted_t<ql2::const_variant_bag_generic_tree_t>();
  view->init(nameless);
  ql2::sptr_t<const_tree_t> const held(view);
  auto const result = held->select(L"/bag");
  ASSERT_EQ(1u, result.get_nodes().size());
  variant_bag_t const* const found = result.get_nodes()[0];
  EXPECT_EQ(&nameless, found);
  EXPECT_EQ(L"/bag", text(held->get_xpath()));
}

TEST(GenericTree, LocationPathsAndFind) {
  variant_bag_t bag = family();
  auto const root = view_of(bag);
  EXPECT_EQ(L"/name", text(root->get_xpath()));
  auto children = root->get_children();
  children.next();
  EXPECT_EQ(L"/name/b[position()=2]", text(children.current()->get_xpath()));
  children.next();
  children.next();
  EXPECT_EQ(L"/name/c", text(children.current()->get_xpath()));

  EXPECT_FALSE(root->find(&bag));
  variant_bag_t const* const z = bag.get<variant_bag_t>(L"c")->get<variant_bag_t>(L"z");
  auto const found = root->find(z);
  ASSERT_TRUE(found);
  EXPECT_EQ(z, &found->get_value());
  EXPECT_EQ(L"/name/c/z", text(found->get_xpath()));
  EXPECT_FALSE(root->find(bag.get<variant_bag_t>(L"#a")));
}

TEST(GenericTree, EveryLocationPathSelectsItsNode) {
  variant_bag_t bag = family();
  for (int i = 0; i < 3; ++i) {
    variant_bag_t& level = bag.add_variant_bag(L"b", variant_bag_t());
    level.add_variant_bag(L"b", variant_bag_t()).add_variant_bag(L"b", variant_bag_t());
    level.add_variant_bag(L"d", variant_bag_t());
    level.add_variant_bag(L"b", variant_bag_t());
  }
  auto const xp = ql2::variant_bag_xpath(bag);
  std::vector<ql2::sptr_t<tree_t>> pending{view_of(bag)};
  std::size_t checked = 0;
  while (!pending.empty()) {
    ql2::sptr_t<tree_t> const node = pending.back();
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
}

}  // namespace
