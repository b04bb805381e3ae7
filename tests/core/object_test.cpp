// Counted objects, their pointers and the plain shared pointer.
#include <atomic>
#include <cstdint>
#include <set>
#include <string>
#include <thread>
#include <unordered_set>
#include <vector>

#include <boost/thread/barrier.hpp>
#include <gtest/gtest.h>

#include <quillon2/core/object_interface.hpp>
#include <quillon2/core/pool_allocator.hpp>
#include <quillon2/core/smart_pointer.hpp>

#include "captured_asserts.hpp"

namespace {

using namespace quillon2;

// Reaches the protected counting operations as the pointer classes do.
struct accessor_t : object_accessor_t {
  using object_accessor_t::add_ref;
  using object_accessor_t::release;
};

struct shape_t : object_interface_t {
  virtual std::string name() const = 0;
};

// Counts the living instances of the test classes.
std::atomic<int> living{0};

class circle_t : public shape_t {
 public:
  explicit circle_t(int radius = 1) : m_radius(radius) { ++living; }
  circle_t(circle_t const& other) : shape_t(other), m_radius(other.m_radius) { ++living; }
  ~circle_t() override { --living; }
  std::string name() const override { return "circle " + std::to_string(m_radius); }
  int radius() const { return m_radius; }

 private:
  int m_radius;
};

class square_t : public shape_t {
 public:
  square_t() { ++living; }
  ~square_t() override { --living; }
  std::string name() const override { return "square"; }
};

using circle = ref_counted_t<circle_t, mt_ref_count_impl_t>;
using simple_circle = ref_counted_t<circle_t, simple_ref_count_impl_t>;
using square = ref_counted_t<square_t>;

class ObjectModel : public ::testing::Test {
 protected:
  void SetUp() override { living = 0; }
  void TearDown() override { EXPECT_EQ(0, living) << "an object outlived its last pointer"; }
};

TEST_F(ObjectModel, NewObjectStartsAtZeroAndDiesAtTheLastRelease) {
  auto* object = new circle(3);
  EXPECT_EQ(1u, accessor_t::add_ref(object));
  EXPECT_EQ(2u, accessor_t::add_ref(object));
  EXPECT_EQ(1u, accessor_t::release(object));
  EXPECT_EQ(1, living);
  EXPECT_EQ(0u, accessor_t::release(object));
  EXPECT_EQ(0, living);
}

TEST_F(ObjectModel, SimpleCounterCountsTheSameWay) {
  auto* object = new simple_circle(3);
  EXPECT_EQ(1u, accessor_t::add_ref(object));
  EXPECT_EQ(2u, accessor_t::add_ref(object));
  EXPECT_EQ(1u, accessor_t::release(object));
  EXPECT_EQ(0u, accessor_t::release(object));
  EXPECT_EQ(0, living);
}

TEST_F(ObjectModel, AccessorAcceptsNull) {
  EXPECT_EQ(0xFFFFFFFFu, accessor_t::add_ref(nullptr));
  EXPECT_EQ(0xFFFFFFFFu, accessor_t::release(nullptr));
}

TEST_F(ObjectModel, ObjectDiesExactlyWithTheLastPointer) {
  sptr_t<shape_t> first(new circle(2));
  {
    sptr_t<shape_t> copy = first;
    sptr_t<shape_t> assigned;
    assigned = copy;
    sptr_t<shape_t> moved = std::move(copy);
    EXPECT_FALSE(copy);
    EXPECT_EQ(first, moved);
    EXPECT_EQ(first, assigned);
  }
  EXPECT_EQ(1, living);
  sptr_t<shape_t> last = std::move(first);
  EXPECT_EQ(1, living);
  last.reset();
  EXPECT_EQ(0, living);
}

TEST_F(ObjectModel, OverwritingAPointerReleasesItsObject) {
  sptr_t<shape_t> p(new circle(1));
  p = new square;
  EXPECT_EQ(1, living);
  EXPECT_EQ("square", p->name());
  p.reset(new circle(5));
  EXPECT_EQ("circle 5", (*p).name());
  p = nullptr;
  EXPECT_EQ(0, living);
  EXPECT_EQ(nullptr, p.get());
}

TEST_F(ObjectModel, SelfAssignmentKeepsTheObject) {
  sptr_t<shape_t> p(new circle(1));
  sptr_t<shape_t>& alias = p;
  p = alias;
  p = std::move(alias);
  ASSERT_TRUE(p);
  EXPECT_EQ("circle 1", p->name());
}

TEST_F(ObjectModel, PointersConvertBetweenRelatedTypes) {
  sptr_t<circle_t> c(new circle(7));
  sptr_t<shape_t> s = c;
  sptr_t<object_interface_t> root = s;
  EXPECT_EQ(static_cast<shape_t*>(c.get()), s.get());

  EXPECT_EQ(7, dynamic_pointer_cast<circle_t>(s)->radius());
  EXPECT_FALSE(sptr_t<square_t>::dynamic_cast_from(s));
  EXPECT_EQ(c, sptr_t<circle_t>::dynamic_cast_from(root));
  EXPECT_EQ(c, static_pointer_cast<circle_t>(s));

  sptr_t<shape_t> moved = std::move(c);
  EXPECT_FALSE(c);
  root.reset();
  s.reset();
  EXPECT_EQ(1, living);
  moved.reset();
  EXPECT_EQ(0, living);
}

TEST_F(ObjectModel, PointersCompareAndHashByObject) {
  sptr_t<shape_t> a(new circle(1));
  sptr_t<shape_t> b(new square);
  sptr_t<shape_t> a2 = a;
  EXPECT_TRUE(a == a2);
  EXPECT_TRUE(a != b);
  EXPECT_TRUE(a != nullptr);
  EXPECT_TRUE(sptr_t<shape_t>() == nullptr);
  EXPECT_NE(a < b, b < a);
  std::set<sptr_t<shape_t>> ordered{a, b, a2};
  std::unordered_set<sptr_t<shape_t>> hashed{a, b, a2};
  EXPECT_EQ(2u, ordered.size());
  EXPECT_EQ(2u, hashed.size());
}

TEST_F(ObjectModel, CopyOfACountedObjectHasALifeOfItsOwn) {
  sptr_t<circle> original(new circle(4));
  sptr_t<circle> copy(new circle(*original));
  EXPECT_EQ(2, living);
  original.reset();
  EXPECT_EQ(1, living);
  EXPECT_EQ("circle 4", copy->name());
}

// A counter used on its own: its release deletes it through its virtual destructor.
struct bare_counter_t : simple_ref_count_impl_t {
  ~bare_counter_t() override = default;
};

TEST_F(ObjectModel, CounterAssignmentCopiesTheCountAndCopiesStartAtZero) {
  auto* counter = new bare_counter_t;
  counter->add_ref();
  counter->add_ref();
  auto* copied = new bare_counter_t(*counter);
  EXPECT_EQ(1u, copied->add_ref()) << "a copy starts at 0";
  EXPECT_EQ(0u, copied->release());
  auto* assigned = new bare_counter_t;
  *assigned = *counter;
  EXPECT_EQ(1u, assigned->release()) << "assignment took the count of 2 over";
  EXPECT_EQ(0u, assigned->release());
  EXPECT_EQ(1u, counter->release());
  EXPECT_EQ(0u, counter->release());
}

TEST_F(ObjectModel, ObjectMemoryComesFromThePool) {
  sptr_t<shape_t> p(new circle(1));
  void* address = dynamic_cast<void*>(p.get());
  p.reset();
  // The object was the last block cut or is remembered in the cache under its exact
  // size: either way a request of that size gets the same block back.
  void* block = alloc::pool_allocate(sizeof(circle));
  EXPECT_EQ(address, block);
  alloc::pool_deallocate(block, sizeof(circle));
}

// An owner with a member whose count is the owner's.
struct part_t : object_interface_t {
  virtual int value() const { return 42; }
};

class whole_t : public object_interface_t {
 public:
  whole_t() : m_part(counter_init, parent_ref_count_impl_t(*this)) { ++living; }
  ~whole_t() override { --living; }
  sptr_t<part_t> part() { return sptr_t<part_t>(&m_part); }

 private:
  ref_counted_t<part_t, parent_ref_count_impl_t> m_part;
};

TEST_F(ObjectModel, PartKeepsItsOwnerAlive) {
  sptr_t<whole_t> whole(new ref_counted_t<whole_t>());
  sptr_t<part_t> part = whole->part();
  whole.reset();
  EXPECT_EQ(1, living) << "the part's reference holds the owner";
  EXPECT_EQ(42, part->value());
  part.reset();
  EXPECT_EQ(0, living);
}

// Objects that take a reference to themselves while they die: the counter must notice.
template <class Counter>
class resurrecting_t final : public ref_counted_t<circle_t, Counter> {
 public:
  ~resurrecting_t() override { reported_count = accessor_t::add_ref(this); }
  static inline u32_t reported_count = 0;
};

TEST_F(ObjectModel, AddRefOnADyingObjectIsReported) {
  q2test::captured_asserts_t asserts;
  sptr_t<shape_t>(new resurrecting_t<simple_ref_count_impl_t>());
  sptr_t<shape_t>(new resurrecting_t<mt_ref_count_impl_t>());
  EXPECT_EQ(
      (std::vector<std::string>{"m_ref_count != TaintRefCount", "new_count-1 != TaintRefCount"}),
      asserts.conditions());
  EXPECT_EQ(TaintRefCount + 1, resurrecting_t<mt_ref_count_impl_t>::reported_count)
      << "the count stays incremented";
}

TEST_F(ObjectModel, CountIsExactAcrossThreads) {
  constexpr int thread_count = 4;
  sptr_t<shape_t> shared(new circle(9));
  boost::barrier start(thread_count);
  std::vector<std::thread> threads;
  for (int t = 0; t < thread_count; ++t) {
    threads.emplace_back([&] {
      start.wait();
      for (int i = 0; i < 20000; ++i) {
        sptr_t<shape_t> copy = shared;
        sptr_t<object_interface_t> other = copy;
      }
    });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(1, living);
  EXPECT_EQ(2u, accessor_t::add_ref(shared.get()));
  EXPECT_EQ(1u, accessor_t::release(shared.get()));
}

TEST_F(ObjectModel, LastReleaseOnAnotherThreadDestroysOnce) {
  for (int round = 0; round < 200; ++round) {
    sptr_t<shape_t> a(new circle(round));
    sptr_t<shape_t> b = a;
    std::thread other([p = std::move(b)]() mutable { p.reset(); });
    a.reset();
    other.join();
    ASSERT_EQ(0, living);
  }
}

// ---------------------------------------------------------------------------

struct tracked_t {
  tracked_t() { ++living; }
  virtual ~tracked_t() { --living; }
  int value = 5;
};

TEST_F(ObjectModel, SmartPointerDeletesWithTheLastCopy) {
  smart_pointer_t<tracked_t> p(new tracked_t);
  ASSERT_NE(nullptr, p.get_count());
  EXPECT_EQ(1u, *p.get_count());
  {
    smart_pointer_t<tracked_t> copy = p;
    EXPECT_EQ(2u, *p.get_count());
    EXPECT_EQ(p.get_count(), copy.get_count());
    EXPECT_EQ(5, copy->value);
  }
  EXPECT_EQ(1u, *p.get_count());
  smart_pointer_t<tracked_t> moved = std::move(p);
  EXPECT_EQ(1, living);
  moved = smart_pointer_t<tracked_t>();
  EXPECT_EQ(0, living);
}

TEST_F(ObjectModel, NullSmartPointerCopiesHaveNoCount) {
  smart_pointer_t<tracked_t> empty(static_cast<tracked_t*>(nullptr));
  smart_pointer_t<tracked_t> copy = empty;
  EXPECT_EQ(nullptr, empty.get_count());
  EXPECT_EQ(nullptr, copy.get_count());
  EXPECT_FALSE(copy);
}

TEST_F(ObjectModel, SmartPointerReportsAccessThroughNull) {
  q2test::captured_asserts_t asserts;
  smart_pointer_t<tracked_t> empty;
  EXPECT_EQ(nullptr, empty.operator->());
  EXPECT_EQ(std::vector<std::string>{"m_ptr != 0"}, asserts.conditions());
}

// A client's static initialiser may create counted objects: the pool is ready before
// any dynamic initialisation runs.
struct made_at_start_t {
  made_at_start_t() : object(new circle(11)) {}
  sptr_t<shape_t> object;
};
made_at_start_t const made_at_start;

TEST(ObjectStart, ObjectMadeByAStaticInitialiserIsUsable) {
  ASSERT_TRUE(made_at_start.object);
  EXPECT_EQ("circle 11", made_at_start.object->name());
}

}  // namespace
