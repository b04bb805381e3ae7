// Queries over the mirror of a bag: every kind of result mapped back to the bag's own
// nodes and values, errors and limits, and the shapes of bags that stress the mirror.
#include <gtest/gtest.h>

#include "support/assert_recorder.hpp"
#include "xpath_support.hpp"

namespace ql2 = quillon2;
using ql2::variant_bag_t;
using ql2::variant_t;
using q2test::text;
using xpath_t = ql2::xpath_t<variant_bag_t, variant_t>;

namespace {

// root(kind="top", n=7, text "hello") / item(id=1) item(id=2) other
variant_bag_t sample() {
  variant_bag_t bag;
  bag.rename(L"root");
  bag.add<variant_t>(L"kind", variant_t(L"top"));
  bag.add<variant_t>(L"n", variant_t(7));
  bag.add<variant_t>(L"", variant_t(L"hello"));
  for (int i = 1; i <= 2; ++i) {
    variant_bag_t& item = bag.add_variant_bag(L"item", variant_bag_t());
    item.add<variant_t>(L"id", variant_t(i));
  }
  bag.add_variant_bag(L"other", variant_bag_t());
  return bag;
}

TEST(XPath, NodeAttributeAndTextResultsAreTheBagsOwn) {
  variant_bag_t bag = sample();
  xpath_t const xp = ql2::variant_bag_xpath(bag);

  auto const items = xp.select(L"/root/item");
  ASSERT_EQ(2u, items.get_nodes().size());
  auto it = bag.begin_by_name<variant_bag_t>(L"item");
  EXPECT_EQ(&it.get_value(), items.get_nodes()[0]);
  it.next();
  EXPECT_EQ(&it.get_value(), items.get_nodes()[1]);
  EXPECT_TRUE(items.get_properties().empty());
  EXPECT_EQ(ql2::vtNull, items.get_value().get_type());
  EXPECT_EQ(0u, items.get_error());

  auto const kind = xp.select(L"/root/@kind");
  ASSERT_EQ(1u, kind.get_properties().size());
  EXPECT_EQ(bag.get<variant_t>(L"kind"), kind.get_properties()[0]);
  EXPECT_TRUE(kind.get_nodes().empty());

  auto const hello = xp.select(L"/root/text()");
  ASSERT_EQ(1u, hello.get_properties().size());
  EXPECT_EQ(bag.get<variant_t>(L""), hello.get_properties()[0]);
  EXPECT_EQ(L"hello", text(xp.select(L"string(/root)").get_value()));

  EXPECT_EQ(&it.get_value(), xp.select(L"/root/item[@id=2]").get_nodes().at(0));
  int ids = 0;  // a temporary result's lists outlive it in a range-for
  for (variant_bag_t* item : xp.select(L"//item").get_nodes())
    ids += item->get<variant_t>(L"id")->get<int>();
  EXPECT_EQ(3, ids);
  EXPECT_EQ(L"7", text(xp.select(L"string(/root/@n)").get_value()));

  // Atomic results leave the lists empty.
  for (auto const& [query, value] : {std::pair{L"count(//item)", variant_t(2.0)},
                                     {L"boolean(//other)", variant_t(true)},
                                     {L"name(/*/*[last()])", variant_t(L"other")}}) {
    auto const r = xp.select(query);
    EXPECT_EQ(value, r.get_value()) << query;
    EXPECT_TRUE(r.get_nodes().empty() && r.get_properties().empty() && r.get_error() == 0);
  }
}

TEST(XPath, EdgeCasesOfNamesTextsAndHiddenEntries) {
  variant_bag_t nameless;
  nameless.add<variant_t>(L"a", variant_t(1));
  nameless.add<variant_t>(L"a", variant_t(2));
  nameless.add<variant_t>(L"", variant_t(L""));  // no text node
  auto const root = ql2::variant_bag_xpath(nameless).select(L"/bag");
  ASSERT_EQ(1u, root.get_nodes().size());
  EXPECT_EQ(&nameless, root.get_nodes()[0]);
  xpath_t const xp = ql2::variant_bag_xpath(nameless);
  auto const both = xp.select(L"//@a");
  ASSERT_EQ(2u, both.get_properties().size());
  auto a = nameless.begin_by_name<variant_t>(L"a");
  EXPECT_EQ(&a.get_value(), both.get_properties()[0]);
  a.next();
  EXPECT_EQ(&a.get_value(), both.get_properties()[1]);
  EXPECT_TRUE(xp.select(L"/bag/text()").get_properties().empty());

  // Renaming for the mirror lasts; a null name keeps the bag's name.
  ql2::variant_bag_xpath(nameless, L"doc");
  EXPECT_EQ(std::wstring(L"doc"), nameless.get_name());
  EXPECT_EQ(1u, ql2::variant_bag_xpath(nameless, nullptr).select(L"/doc").get_nodes().size());

  // Several texts: each keeps its own value, the element's string joins them.
  variant_bag_t texts;
  texts.add<variant_t>(L"", variant_t(L"x"));
  texts.add<variant_t>(L"", variant_t(L"y"));
  xpath_t const tx = ql2::variant_bag_xpath(texts);
  auto const parts = tx.select(L"/bag/text()");
  ASSERT_EQ(2u, parts.get_properties().size());
  EXPECT_NE(parts.get_properties()[0], parts.get_properties()[1]);
  EXPECT_EQ(L"xy", text(tx.select(L"string(/bag)").get_value()));

  // Names that are no XML names still mirror, and name() reaches them.
  variant_bag_t odd;
  odd.add<variant_t>(L"a b", variant_t(L"<&>"));
  odd.add_variant_bag(L"1st", variant_bag_t()).add_variant_bag(L"", variant_bag_t());
  xpath_t const ox = ql2::variant_bag_xpath(odd);
  auto const spaced = ox.select(L"//@*[name()='a b']");
  ASSERT_EQ(1u, spaced.get_properties().size());
  EXPECT_EQ(odd.get<variant_t>(L"a b"), spaced.get_properties()[0]);
  EXPECT_EQ(L"<&>", text(ox.select(L"string(//@*)").get_value()));
  EXPECT_EQ(3.0, ox.select(L"count(//*)").get_value().get<double>());

  // Hidden entries are not mirrored, and values come before children.
  variant_bag_t bag;
  bag.add_variant_bag(L"child", variant_bag_t());
  bag.add_variant_bag(L"#secret", variant_bag_t());
  bag.add<variant_t>(L"#hidden", variant_t(1));
  bag.add<variant_t>(L"", variant_t(L"t"));
  xpath_t const hx = ql2::variant_bag_xpath(bag);
  EXPECT_EQ(1.0, hx.select(L"count(/bag/*)").get_value().get<double>());
  EXPECT_EQ(0.0, hx.select(L"count(//@*)").get_value().get<double>());
  EXPECT_TRUE(hx.select(L"boolean(/bag/text()/following-sibling::child)").get_value().get<bool>());
}

TEST(XPath, ErrorsGoToTheResultNotToStandardError) {
  variant_bag_t bag = sample();
  xpath_t const xp = ql2::variant_bag_xpath(bag);
  testing::internal::CaptureStderr();
  for (wchar_t const* bad : {L"/root[", L"unknown(1)", L"$nothing", L"//@", L"1 +"}) {
    auto const r = xp.select(bad);
    EXPECT_EQ(1u, r.get_error()) << bad;
    EXPECT_TRUE(r.get_nodes().empty() && r.get_properties().empty());
    EXPECT_EQ(ql2::vtNull, r.get_value().get_type());
  }
  EXPECT_EQ("", testing::internal::GetCapturedStderr());
  EXPECT_EQ(0u, xp.select(L"/root").get_error());  // the mirror serves on

  q2test::assert_recorder_t recorder;
  EXPECT_EQ(1u, xp.select(nullptr).get_error());
  EXPECT_EQ(1u, xpath_t().select(L"/root").get_error());
  EXPECT_TRUE(xp.select(L"/").get_nodes().empty());  // the document is nothing of the bag
  EXPECT_EQ((std::vector<std::string>{"xpath_expr != NULL", "Unexpected!"}),
            recorder.take_conditions());
}

TEST(XPath, AQueryOverItsOperationLimitStops) {
  variant_bag_t bag;
  for (int i = 0; i < 100; ++i) bag.add_variant_bag(L"c", variant_bag_t()).add<variant_t>(L"v", i);
  xpath_t const xp = ql2::variant_bag_xpath(bag);
  wchar_t const* const quadratic = L"count(//c[count(//c/@v) = 100])";
  EXPECT_EQ(100.0, xp.select(quadratic).get_value().get<double>());
  xp.set_operation_limit(2000);
  auto const stopped = xp.select(quadratic);
  EXPECT_EQ(1u, stopped.get_error());
  EXPECT_EQ(ql2::vtNull, stopped.get_value().get_type());
  EXPECT_EQ(100u, xp.select(L"//c").get_nodes().size());
}

TEST(XPath, ResultsOutliveTheirMirrorAndWideBagsMirror) {
  variant_bag_t bag;
  for (int i = 0; i < 200; ++i) bag.add_variant_bag(L"c", variant_bag_t()).add<variant_t>(L"i", i);
  ql2::xpath_result_t<variant_bag_t, variant_t> kept(nullptr, L"");
  {
    kept = ql2::variant_bag_xpath(bag).select(L"//c[@i >= 190]");
  }
  ASSERT_EQ(10u, kept.get_nodes().size());
  EXPECT_EQ(190, kept.get_nodes()[0]->get<variant_t>(L"i")->get<int>());

  variant_bag_t wide;
  for (int i = 0; i < 20000; ++i) wide.add<variant_t>((L"v" + std::to_wstring(i)).c_str(), i);
  auto const last = ql2::variant_bag_xpath(wide).select(L"/bag/@v19999");
  ASSERT_EQ(1u, last.get_properties().size());
  EXPECT_EQ(wide.get<variant_t>(L"v19999"), last.get_properties()[0]);
}

TEST(XPath, TypedEventsThroughTheVisitorAdapter) {
  variant_bag_t bag;
  variant_t value(L"v");
  ql2::sptr_t<ql2::internal::libxml_worker_t> const worker = ql2::internal::create_libxml_worker();
  ql2::sptr_t<xpath_t::visitor_impl_t> const visitor(
      new ql2::ref_counted_t<xpath_t::visitor_impl_t>(worker));
  visitor->on_node_begin(L"top", &bag);
  visitor->on_property(L"p", L"1", &value);
  visitor->on_property(nullptr, L"body", &value);
  visitor->on_node_end();
  xpath_t const xp(worker);
  EXPECT_EQ(&bag, xp.select(L"/top[@p=1]").get_nodes().at(0));
  EXPECT_EQ(&value, xp.select(L"/top/text()").get_properties().at(0));
}

}  // namespace
