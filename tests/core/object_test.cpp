// Counted objects, their pointers and the plain shared pointer.
#include <atomic>
#include <set>
#include <unordered_set>

#include <quillon2/core/object_interface.hpp>
#include <quillon2/core/pool_allocator.hpp>
#include <quillon2/core/smart_pointer.hpp>

#include "core/core_support.hpp"

namespace {

using namespace quillon2;

struct accessor_t : object_accessor_t {  // the road the pointer classes take
  using object_accessor_t::add_ref;
  using object_accessor_t::release;
};

std::atomic<int> living{0};  // instances of the classes below

struct shape_t : object_interface_t {
  virtual int size() const = 0;
};
struct circle_t : shape_t {
  explicit circle_t(int radius = 1) : radius(radius) { ++living; }
  circle_t(circle_t const& other) : shape_t(other), radius(other.radius) { ++living; }
  ~circle_t() override { --living; }
  int size() const override { return radius; }
  int radius;
};
struct square_t : shape_t {
  square_t() { ++living; }
  ~square_t() override { --living; }
  int size() const override { return 4; }
};
using circle = ref_counted_t<circle_t, mt_ref_count_impl_t>;
using square = ref_counted_t<square_t>;

class ObjectModel : public ::testing::Test {
 protected:
  void SetUp() override { living = 0; }
  void TearDown() override { EXPECT_EQ(0, living) << "an object outlived its last pointer"; }
};

TEST_F(ObjectModel, ObjectStartsAtZeroAndDiesAtTheLastRelease) {
  for (shape_t* object : std::initializer_list<shape_t*>{
           new circle(3), new ref_counted_t<circle_t, simple_ref_count_impl_t>(3)}) {
    EXPECT_EQ(1u, accessor_t::add_ref(object));
    EXPECT_EQ(2u, accessor_t::add_ref(object));
    EXPECT_EQ(1u, accessor_t::release(object));
    EXPECT_EQ(0u, accessor_t::release(object));
  }
  EXPECT_EQ(0xFFFFFFFFu, accessor_t::add_ref(nullptr));
}

TEST_F(ObjectModel, ObjectDiesExactlyWithTheLastPointer) {
  sptr_t<shape_t> first(new circle(2));
  {
    sptr_t<shape_t> assigned;
    assigned = first;
    assigned = assigned;
    sptr_t<shape_t> moved = std::move(assigned);
    EXPECT_FALSE(assigned);
    EXPECT_TRUE(first == moved);
  }
  sptr_t<shape_t> last = std::move(first);
  last = new square;  // overwriting releases
  EXPECT_EQ(4, last->size());
  EXPECT_EQ(1, living);
  last = nullptr;
  EXPECT_EQ(0, living);
}

TEST_F(ObjectModel, PointersConvertCastAndCompareLikeRawPointers) {
  sptr_t<circle_t> c(new circle(7));
  sptr_t<shape_t> s = c;
  sptr_t<object_interface_t> root = s;
  EXPECT_EQ(static_cast<shape_t*>(c.get()), s.get());
  EXPECT_EQ(7, dynamic_pointer_cast<circle_t>(s)->radius);
  EXPECT_FALSE(sptr_t<square_t>::dynamic_cast_from(s));
  EXPECT_EQ(c, sptr_t<circle_t>::dynamic_cast_from(root));
  EXPECT_EQ(c, static_pointer_cast<circle_t>(s));
  sptr_t<shape_t> other(new square);
  EXPECT_TRUE(s != other && s != nullptr && sptr_t<shape_t>() == nullptr);
  EXPECT_NE(s < other, other < s);
  EXPECT_EQ(2u, (std::set<sptr_t<shape_t>>{s, other, c}).size());
  EXPECT_EQ(2u, (std::unordered_set<sptr_t<shape_t>>{s, other, c}).size());
}

TEST_F(ObjectModel, CopiesStartAtZero) {
  sptr_t<circle> original(new circle(4));
  sptr_t<circle> copy(new circle(*original));
  original.reset();
  EXPECT_EQ(1, living) << "the copy has a life of its own";
  copy.reset();
}

TEST_F(ObjectModel, ObjectMemoryComesFromThePool) {
  sptr_t<shape_t> p(new circle(1));
  void* address = dynamic_cast<void*>(p.get());
  p.reset();  // the last block cut, or one cached under its exact size: it comes back
  void* block = alloc::pool_allocate(sizeof(circle));
  EXPECT_EQ(address, block);
  alloc::pool_deallocate(block, sizeof(circle));
}

struct part_t : object_interface_t {};
struct whole_t : object_interface_t {
  whole_t() : part(counter_init, parent_ref_count_impl_t(*this)) { ++living; }
  ~whole_t() override { --living; }
  ref_counted_t<part_t, parent_ref_count_impl_t> part;
};

TEST_F(ObjectModel, PartKeepsItsOwnerAlive) {
  sptr_t<whole_t> whole(new ref_counted_t<whole_t>());
  sptr_t<part_t> part(&whole->part);
  whole.reset();
  EXPECT_EQ(1, living);
  part.reset();
}

// Takes a reference to itself while it dies: the counter must report it.
template <class Counter>
struct resurrecting_t final : ref_counted_t<circle_t, Counter> {
  ~resurrecting_t() override { count = accessor_t::add_ref(this); }
  static inline u32_t count = 0;
};

TEST_F(ObjectModel, AddRefOnADyingObjectIsReported) {
  q2test::assert_recorder_t asserts;
  sptr_t<shape_t>(new resurrecting_t<simple_ref_count_impl_t>());
  sptr_t<shape_t>(new resurrecting_t<mt_ref_count_impl_t>());
  EXPECT_EQ(
      (std::vector<std::string>{"m_ref_count != TaintRefCount", "new_count-1 != TaintRefCount"}),
      asserts.conditions());
  EXPECT_EQ(TaintRefCount + 1, resurrecting_t<mt_ref_count_impl_t>::count);
}

TEST_F(ObjectModel, CountIsExactAcrossThreads) {
  sptr_t<shape_t> shared(new circle(9));
  q2test::on_threads(4, [&](int) {
    for (int i = 0; i < 20000; ++i) sptr_t<object_interface_t> copy = shared;
  });
  EXPECT_EQ(2u, accessor_t::add_ref(shared.get()));
  EXPECT_EQ(1u, accessor_t::release(shared.get()));
  for (int round = 0; round < 200; ++round) {  // the last release on either thread
    sptr_t<shape_t> a(new circle(round));
    std::thread other([b = a]() mutable { b.reset(); });
    a.reset();
    other.join();
    ASSERT_EQ(1, living);
  }
}

struct tracked_t {
  tracked_t() { ++living; }
  virtual ~tracked_t() { --living; }
  int value = 5;
};
struct tracked_child_t : tracked_t {};

TEST_F(ObjectModel, SmartPointerDeletesWithTheLastCopyAndReportsNullAccess) {
  smart_pointer_t<tracked_child_t> child(new tracked_child_t);
  smart_pointer_t<tracked_t> base = child;
  smart_pointer_t<tracked_t> copy = base;
  EXPECT_EQ(3u, *copy.get_count());
  EXPECT_EQ(child.get_count(), copy.get_count());
  child.reset();
  base = smart_pointer_t<tracked_t>();
  EXPECT_EQ(5, copy->value);
  copy.reset();
  EXPECT_EQ(0, living);

  q2test::assert_recorder_t asserts;
  smart_pointer_t<tracked_t> empty(static_cast<tracked_t*>(nullptr));
  smart_pointer_t<tracked_t> empty_copy = empty;
  EXPECT_EQ(nullptr, empty_copy.get_count());
  EXPECT_EQ(nullptr, empty_copy.operator->());
  EXPECT_EQ(std::vector<std::string>{"m_ptr != 0"}, asserts.conditions());
}

// A client's static initialiser may make counted objects: the pool needs no start.
sptr_t<shape_t> const made_at_start(new circle(11));

TEST(ObjectStart, ObjectMadeByAStaticInitialiserIsUsable) {
  ASSERT_TRUE(made_at_start);
  EXPECT_EQ(11, made_at_start->size());
}

}  // namespace
