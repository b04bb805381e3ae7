// The type-erased iterator and the cursors over standard containers.
#include <list>
#include <memory>

#include <boost/make_shared.hpp>
#include <boost/weak_ptr.hpp>

#include <quillon2/core/object_interface.hpp>

#include "core/core_support.hpp"

namespace {

using namespace quillon2;
using q2test::collect;
using names_t = std::vector<std::wstring>;

generic_iterator_t<std::wstring> three_names() {
  return iterutil::make_owned_iterator_from<std::wstring>(names_t{L"one", L"two", L"three"});
}

TEST(GenericIterator, WalksItsContainerInOrderAndReportsCurrentAtTheEnd) {
  EXPECT_EQ((names_t{L"one", L"two", L"three"}), collect(three_names()));
  std::vector<int> values{1, 2};
  EXPECT_EQ(values, collect(iterutil::make_iterator<int>(values.cbegin(), values.cend())));
  EXPECT_TRUE(generic_iterator_t<int>().at_end()) << "no cursor: at the end";
  q2test::assert_recorder_t asserts;
  EXPECT_EQ(0, generic_iterator_t<int>().current());
  EXPECT_EQ((std::vector<std::string>{"!at_end() && \"iterator is at end state\""}),
            asserts.conditions());
}

TEST(GenericIterator, StepsWrapAroundTheEnd) {
  auto it = three_names();
  EXPECT_TRUE(it.supports(iterator_handler_t<std::wstring>::can_step_back |
                          iterator_handler_t<std::wstring>::can_restart));
  it.prev();  // from the first element to the end
  EXPECT_TRUE(it.at_end());
  it.prev();
  EXPECT_EQ(L"three", it.current());
  it.next();
  it.next();  // from the end to the first element
  EXPECT_EQ(L"one", it.current());
  it.next();
  EXPECT_TRUE(it.restart());
  EXPECT_EQ(L"one", it.current());
  EXPECT_FALSE(generic_iterator_t<int>().restart());
}

TEST(GenericIterator, ClonesMoveOnTheirOwnAndShareTheContainer) {
  auto names = boost::make_shared<names_t>(names_t{L"a", L"b"});
  boost::weak_ptr<names_t> watch = names;
  auto original = std::make_unique<generic_iterator_t<std::wstring>>(
      iterutil::make_owned_iterator<std::wstring>(names));
  names.reset();
  generic_iterator_t<std::wstring> clone = *original;
  EXPECT_EQ(2, watch.use_count()) << "the clone shares the container, it does not copy it";
  clone.next();
  EXPECT_EQ(L"a", original->current());
  original.reset();
  EXPECT_EQ((names_t{L"b"}), collect(clone));
  clone = generic_iterator_t<std::wstring>();
  EXPECT_TRUE(watch.expired());
}

struct base_t : object_interface_t {
  virtual int id() const = 0;
};
struct derived_t : base_t {
  explicit derived_t(int id) : m_id(id) {}
  int id() const override { return m_id; }
  int m_id;
};

TEST(GenericIterator, ConvertingIteratorForwardsEveryStep) {
  auto lengths = iterutil::make_converting_iterator<std::size_t>(
      three_names(), [](std::wstring const& name) { return name.size(); });
  EXPECT_EQ((std::vector<std::size_t>{3, 3, 5}), collect(lengths));
  lengths.prev();
  lengths.prev();
  EXPECT_EQ(5u, lengths.current());

  auto items = std::make_shared<std::list<sptr_t<derived_t>>>();
  items->push_back(new ref_counted_t<derived_t>(1));
  items->push_back(new ref_counted_t<derived_t>(2));
  auto bases = iterutil::make_converting_iterator<sptr_t<base_t>>(
      iterutil::make_owned_iterator<sptr_t<derived_t>>(items));
  items.reset();
  std::vector<int> ids;
  for (; !bases.at_end(); ++bases) ids.push_back(bases.current()->id());
  EXPECT_EQ((std::vector<int>{1, 2}), ids);
}

}  // namespace
