// The type-erased iterator and the cursors over standard containers.
#include <list>
#include <memory>
#include <string>
#include <vector>

#include <boost/make_shared.hpp>
#include <boost/shared_ptr.hpp>
#include <boost/weak_ptr.hpp>
#include <gtest/gtest.h>

#include <quillon2/core/object_interface.hpp>
#include <quillon2/headers/iterator.hpp>

#include "captured_asserts.hpp"

namespace {

using namespace quillon2;

template <class T>
std::vector<T> collect(generic_iterator_t<T> it) {
  std::vector<T> values;
  for (; !it.at_end(); it.next()) values.push_back(it.current());
  return values;
}

generic_iterator_t<std::wstring> three_names() {
  auto names = std::make_shared<std::vector<std::wstring>>();
  *names = {L"one", L"two", L"three"};
  return iterutil::make_owned_iterator<std::wstring>(names);
}

TEST(GenericIterator, WithoutACursorItStandsAtItsEnd) {
  generic_iterator_t<int> none;
  EXPECT_TRUE(none.at_end());
  none.next();
  EXPECT_TRUE(none.at_end());
  generic_iterator_t<int> copy = none;
  EXPECT_TRUE(copy.at_end());
}

TEST(GenericIterator, WalksTheContainerInOrder) {
  EXPECT_EQ((std::vector<std::wstring>{L"one", L"two", L"three"}), collect(three_names()));
  auto list = boost::make_shared<std::list<int>>(std::list<int>{4, 5, 6});
  EXPECT_EQ((std::vector<int>{4, 5, 6}), collect(iterutil::make_owned_iterator<int>(list)));
  auto empty = std::make_shared<std::vector<int>>();
  EXPECT_TRUE(iterutil::make_owned_iterator<int>(empty).at_end());
}

TEST(GenericIterator, CurrentAtTheEndIsReportedAndGivesADefaultValue) {
  q2test::captured_asserts_t asserts;
  auto it = three_names();
  for (int i = 0; i < 3; ++i) ++it;
  ASSERT_TRUE(it.at_end());
  EXPECT_EQ(L"", it.current());
  EXPECT_EQ(0, generic_iterator_t<int>().current());
  EXPECT_EQ((std::vector<std::string>(2, "!at_end() && \"iterator is at end state\"")),
            asserts.conditions());
}

TEST(GenericIterator, NextAtTheEndGoesBackToTheFirst) {
  auto it = three_names();
  for (int i = 0; i < 3; ++i) it.next();
  ASSERT_TRUE(it.at_end());
  it.next();
  ASSERT_FALSE(it.at_end());
  EXPECT_EQ(L"one", it.current());
}

TEST(GenericIterator, PrevAtTheFirstGoesToTheEndAndOnToTheLast) {
  auto it = three_names();
  ASSERT_TRUE(it.supports(iterator_handler_t<std::wstring>::can_step_back));
  it.prev();
  EXPECT_TRUE(it.at_end());
  it.prev();
  EXPECT_EQ(L"three", it.current());
  it.prev();
  EXPECT_EQ(L"two", it.current());
}

TEST(GenericIterator, RestartGoesToTheFirst) {
  auto it = three_names();
  it.next();
  it.next();
  EXPECT_TRUE(it.restart());
  EXPECT_EQ(L"one", it.current());
  EXPECT_FALSE(generic_iterator_t<int>().restart());
}

TEST(GenericIterator, ContainerCursorsSupportRestartAndStepBack) {
  auto it = three_names();
  EXPECT_TRUE(it.supports(3));
  EXPECT_TRUE(it.supports(1));
  EXPECT_FALSE(it.supports(4));
  EXPECT_FALSE(it.supports(7));
}

TEST(GenericIterator, ClonesMoveOnTheirOwn) {
  auto it = three_names();
  it.next();
  generic_iterator_t<std::wstring> clone = it;
  clone.next();
  EXPECT_EQ(L"two", it.current());
  EXPECT_EQ(L"three", clone.current());
  clone = it;
  EXPECT_EQ(L"two", clone.current());
}

TEST(GenericIterator, ClonesShareTheContainerAndOutliveTheOriginal) {
  auto names = boost::make_shared<std::vector<std::wstring>>();
  *names = {L"a", L"b"};
  boost::weak_ptr<std::vector<std::wstring>> watch = names;
  auto original = std::make_unique<generic_iterator_t<std::wstring>>(
      iterutil::make_owned_iterator<std::wstring>(names));
  names.reset();
  EXPECT_EQ(1, watch.use_count()) << "the cursor holds the only reference";

  generic_iterator_t<std::wstring> clone = *original;
  EXPECT_EQ(2, watch.use_count()) << "the clone shares the container, it does not copy it";
  original.reset();
  EXPECT_EQ((std::vector<std::wstring>{L"a", L"b"}), collect(clone));
  clone = generic_iterator_t<std::wstring>();
  EXPECT_TRUE(watch.expired());
}

TEST(GenericIterator, UnownedCursorWalksARange) {
  std::vector<int> values{1, 2, 3};
  auto it = iterutil::make_iterator<int>(values.cbegin(), values.cend());
  EXPECT_EQ(values, collect(it));
}

TEST(GenericIterator, ConvertingIteratorForwardsEveryStep) {
  auto lengths = iterutil::make_converting_iterator<std::size_t>(
      three_names(), [](std::wstring const& name) { return name.size(); });
  EXPECT_EQ((std::vector<std::size_t>{3, 3, 5}), collect(lengths));
  EXPECT_TRUE(lengths.supports(3));
  lengths.prev();
  EXPECT_TRUE(lengths.at_end());
  lengths.prev();
  EXPECT_EQ(5u, lengths.current());
  EXPECT_TRUE(lengths.restart());
  EXPECT_EQ(3u, lengths.current());
}

struct base_t : object_interface_t {
  virtual int id() const = 0;
};
struct derived_t : base_t {
  explicit derived_t(int id) : m_id(id) {}
  int id() const override { return m_id; }
  int m_id;
};

TEST(GenericIterator, ConvertingIteratorTurnsDerivedPointersIntoBasePointers) {
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
