// The ownership model of the library: counted objects and the intrusive pointer to them.
//
// Every long-lived object that crosses the interface implements object_interface_t and
// is held through sptr_t<T>. The count is not part of the interface: a concrete class
// T is combined with a counter class C by ref_counted_t<T, C>, whose objects live in the
// process-wide pool.
//
// A new counted object starts with a count of 0. The first sptr_t that takes it makes
// the count 1, and the object destroys itself when the count falls back to 0; nobody
// deletes a counted object directly. At that moment the counter is set to
// TaintRefCount, so that an add_ref that still reaches the dying object is reported.
//
// Threads: mt_ref_count_impl_t makes the count (not the object) safe to share between
// threads; simple_ref_count_impl_t belongs to one thread at a time. An sptr_t variable
// itself is not synchronised: separate sptr_t to one object may live on separate
// threads, but one variable must not be written while another thread reads it.
#pragma once

#include <cstddef>
#include <functional>
#include <new>
#include <type_traits>
#include <utility>

#include <quillon2/core/assert.hpp>
#include <quillon2/core/pool_allocator.hpp>
#include <quillon2/export.hpp>
#include <quillon2/headers/kesmet.hpp>

namespace quillon2 {

class object_accessor_t;

// The abstract root of all counted objects. Its counting operations are reached only
// through object_accessor_t, that is, through the pointer classes.
class QUILLON2_API object_interface_t {
 protected:
  object_interface_t() noexcept = default;
  // Copying an object copies nothing of this part.
  object_interface_t(object_interface_t const&) noexcept {}
  object_interface_t& operator=(object_interface_t const&) noexcept { return *this; }

  virtual u32_t add_ref() const = 0;
  virtual u32_t release() const = 0;
  // The registered type id of the object's class; 0 for an unregistered type.
  virtual u32_t get_type() const { return 0; }
  virtual ~object_interface_t() = default;

  friend class object_accessor_t;
};

// The only road from the pointer classes to the protected counting operations. Both
// operations accept a null object and then return 0xFFFFFFFF.
class QUILLON2_API object_accessor_t {
 protected:
  static u32_t add_ref(object_interface_t const* object) {
    return object != nullptr ? object->add_ref() : 0xFFFFFFFFu;
  }
  static u32_t release(object_interface_t const* object) {
    return object != nullptr ? object->release() : 0xFFFFFFFFu;
  }
};

// The value a counter holds once its object has died.
constexpr u32_t TaintRefCount = 0xBAADBAADu;

namespace internal {

// Atomic increment and decrement with full ordering; both return the new value.
inline long sync_inc(long* value) noexcept {
  return __atomic_add_fetch(value, 1, __ATOMIC_SEQ_CST);
}
inline long sync_dec(long* value) noexcept {
  return __atomic_sub_fetch(value, 1, __ATOMIC_SEQ_CST);
}

}  // namespace internal

// A plain count for objects that stay on one thread.
class QUILLON2_API simple_ref_count_impl_t {
 public:
  simple_ref_count_impl_t() noexcept = default;
  // A copy is a new object with a life of its own.
  simple_ref_count_impl_t(simple_ref_count_impl_t const&) noexcept {}
  // Takes over the stored count; takes or drops no reference.
  simple_ref_count_impl_t& operator=(simple_ref_count_impl_t const& other) noexcept {
    m_ref_count = other.m_ref_count;
    return *this;
  }

  virtual u32_t add_ref() const {
    QUILLON_ASSERT(m_ref_count != TaintRefCount);
    return ++m_ref_count;
  }
  virtual u32_t release() const {
    if (--m_ref_count != 0) return m_ref_count;
    m_ref_count = TaintRefCount;
    delete this;
    return 0;
  }

 protected:
  virtual ~simple_ref_count_impl_t() = default;

 private:
  mutable u32_t m_ref_count = 0;
};

// An atomic count: the object may be held from any thread.
class QUILLON2_API mt_ref_count_impl_t {
 public:
  mt_ref_count_impl_t() noexcept = default;
  // A copy is a new object with a life of its own.
  mt_ref_count_impl_t(mt_ref_count_impl_t const&) noexcept {}
  // Takes over the stored count; takes or drops no reference.
  mt_ref_count_impl_t& operator=(mt_ref_count_impl_t const& other) noexcept {
    __atomic_store_n(&m_ref_count, __atomic_load_n(&other.m_ref_count, __ATOMIC_RELAXED),
                     __ATOMIC_RELAXED);
    return *this;
  }

  virtual u32_t add_ref() const {
    long const new_count = internal::sync_inc(&m_ref_count);
    // The condition's text is the report's text: keep it as it stands.
    // clang-format off
    QUILLON_ASSERT(new_count-1 != TaintRefCount);
    // clang-format on
    return static_cast<u32_t>(new_count);
  }
  virtual u32_t release() const {
    long const new_count = internal::sync_dec(&m_ref_count);
    if (new_count != 0) return static_cast<u32_t>(new_count);
    __atomic_store_n(&m_ref_count, static_cast<long>(TaintRefCount), __ATOMIC_RELAXED);
    delete this;
    return 0;
  }

 protected:
  virtual ~mt_ref_count_impl_t() = default;

 private:
  mutable long m_ref_count = 0;
};

// For an object that lives exactly as long as its owner, typically as a member: it
// has no count of its own, and a reference to it keeps the owner alive.
class QUILLON2_API parent_ref_count_impl_t : private object_accessor_t {
 public:
  explicit parent_ref_count_impl_t(object_interface_t const& owner) noexcept : m_owner(&owner) {}
  parent_ref_count_impl_t(parent_ref_count_impl_t const&) noexcept = default;
  parent_ref_count_impl_t(parent_ref_count_impl_t&&) noexcept = default;
  parent_ref_count_impl_t& operator=(parent_ref_count_impl_t const&) noexcept = default;

  virtual u32_t add_ref() const { return object_accessor_t::add_ref(m_owner); }
  virtual u32_t release() const { return object_accessor_t::release(m_owner); }

 private:
  object_interface_t const* m_owner;
};

// Selects the ref_counted_t constructor that initialises the counter from an argument,
// as parent_ref_count_impl_t needs: ref_counted_t<X, C>(counter_init, C(owner), ...).
struct counter_init_t {
  explicit counter_init_t() = default;
};
inline constexpr counter_init_t counter_init{};

// A concrete class T (which implements object_interface_t) combined with the counter
// C. Objects of this class are allocated from the process-wide pool.
template <class T, class C = mt_ref_count_impl_t>
class ref_counted_t : public T, public C {
  // Arguments that the forwarding constructor leaves to the others: a single
  // ref_counted_t of this kind (the copy constructor's) and a counter_init_t first.
  template <class... A>
  struct is_special_t : std::false_type {};
  template <class A0>
  struct is_special_t<A0> : std::bool_constant<std::is_base_of_v<ref_counted_t, std::decay_t<A0>> ||
                                               std::is_same_v<std::decay_t<A0>, counter_init_t>> {};
  template <class A0, class A1, class... A>
  struct is_special_t<A0, A1, A...> : std::is_same<std::decay_t<A0>, counter_init_t> {};

 public:
  // Forwards the arguments to T; the counter starts empty.
  template <class... A, std::enable_if_t<!is_special_t<A...>::value, int> = 0>
  explicit ref_counted_t(A&&... args) : T(std::forward<A>(args)...), C() {}

  template <class... A>
  ref_counted_t(counter_init_t, C const& counter, A&&... args)
      : T(std::forward<A>(args)...), C(counter) {}

  // A copy is a new object: its counter starts afresh.
  ref_counted_t(ref_counted_t const& other) : T(other), C(other) {}
  ref_counted_t& operator=(ref_counted_t const&) = default;

  ~ref_counted_t() override = default;

  static void* operator new(std::size_t size) {
    if constexpr (alignof(T) > 8) {
      return ::operator new(size, std::align_val_t(alignof(T)));
    } else {
      return alloc::pool_allocate(size);
    }
  }
  static void operator delete(void* block, std::size_t size) noexcept {
    if constexpr (alignof(T) > 8) {
      ::operator delete(block, std::align_val_t(alignof(T)));
    } else {
      alloc::pool_deallocate(block, size);
    }
  }
  // Placement forms, so that an object can still be built in storage of the caller's.
  static void* operator new(std::size_t, void* where) noexcept { return where; }
  static void operator delete(void*, void*) noexcept {}

 protected:
  u32_t add_ref() const override { return C::add_ref(); }
  u32_t release() const override { return C::release(); }
};

// An intrusive pointer to a counted object. Null is a normal state. Taking a non-null
// object adds a reference; dropping it releases one.
template <class T>
class sptr_t : private object_accessor_t {
  template <class U>
  using if_convertible_t = std::enable_if_t<std::is_convertible_v<U*, T*>, int>;

 public:
  using element_type = T;

  constexpr sptr_t() noexcept : m_ptr(nullptr) {}
  constexpr sptr_t(std::nullptr_t) noexcept : m_ptr(nullptr) {}
  sptr_t(T* object) : m_ptr(object) {
    if (m_ptr != nullptr) object_accessor_t::add_ref(m_ptr);
  }
  sptr_t(sptr_t const& other) : sptr_t(other.m_ptr) {}
  sptr_t(sptr_t&& other) noexcept : m_ptr(std::exchange(other.m_ptr, nullptr)) {}
  template <class U, if_convertible_t<U> = 0>
  sptr_t(sptr_t<U> const& other) : sptr_t(static_cast<T*>(other.get())) {}
  template <class U, if_convertible_t<U> = 0>
  sptr_t(sptr_t<U>&& other) noexcept : m_ptr(std::exchange(other.m_ptr, nullptr)) {}

  ~sptr_t() {
    if (m_ptr != nullptr) object_accessor_t::release(m_ptr);
  }

  sptr_t& operator=(sptr_t const& other) {
    sptr_t(other).swap(*this);
    return *this;
  }
  sptr_t& operator=(sptr_t&& other) noexcept {
    sptr_t(std::move(other)).swap(*this);
    return *this;
  }
  template <class U, if_convertible_t<U> = 0>
  sptr_t& operator=(sptr_t<U> const& other) {
    sptr_t(other).swap(*this);
    return *this;
  }
  template <class U, if_convertible_t<U> = 0>
  sptr_t& operator=(sptr_t<U>&& other) noexcept {
    sptr_t(std::move(other)).swap(*this);
    return *this;
  }
  sptr_t& operator=(T* object) {
    sptr_t(object).swap(*this);
    return *this;
  }
  sptr_t& operator=(std::nullptr_t) noexcept {
    reset();
    return *this;
  }

  // Drops the held object and takes `object` instead.
  void reset(T* object = nullptr) { sptr_t(object).swap(*this); }
  void swap(sptr_t& other) noexcept { std::swap(m_ptr, other.m_ptr); }

  T* get() const noexcept { return m_ptr; }
  T* operator->() const noexcept { return m_ptr; }
  T& operator*() const noexcept { return *m_ptr; }
  explicit operator bool() const noexcept { return m_ptr != nullptr; }

  // The object of `other` if it is a T, or null.
  template <class U>
  static sptr_t dynamic_cast_from(sptr_t<U> const& other) {
    return sptr_t(dynamic_cast<T*>(other.get()));
  }
  // The object of `other`, which the caller knows to be a T.
  template <class U>
  static sptr_t static_cast_from(sptr_t<U> const& other) {
    return sptr_t(static_cast<T*>(other.get()));
  }

 private:
  template <class U>
  friend class sptr_t;

  T* m_ptr;
};

template <class T, class U>
sptr_t<T> dynamic_pointer_cast(sptr_t<U> const& other) {
  return sptr_t<T>::dynamic_cast_from(other);
}
template <class T, class U>
sptr_t<T> static_pointer_cast(sptr_t<U> const& other) {
  return sptr_t<T>::static_cast_from(other);
}

template <class T>
void swap(sptr_t<T>& a, sptr_t<T>& b) noexcept {
  a.swap(b);
}

template <class T, class U>
bool operator==(sptr_t<T> const& a, sptr_t<U> const& b) noexcept {
  return a.get() == b.get();
}
template <class T, class U>
bool operator!=(sptr_t<T> const& a, sptr_t<U> const& b) noexcept {
  return a.get() != b.get();
}
template <class T, class U>
bool operator<(sptr_t<T> const& a, sptr_t<U> const& b) noexcept {
  return std::less<void const*>()(a.get(), b.get());
}
template <class T>
bool operator==(sptr_t<T> const& a, std::nullptr_t) noexcept {
  return a.get() == nullptr;
}
template <class T>
bool operator==(std::nullptr_t, sptr_t<T> const& a) noexcept {
  return a.get() == nullptr;
}
template <class T>
bool operator!=(sptr_t<T> const& a, std::nullptr_t) noexcept {
  return a.get() != nullptr;
}
template <class T>
bool operator!=(std::nullptr_t, sptr_t<T> const& a) noexcept {
  return a.get() != nullptr;
}
template <class T, class U>
bool operator==(sptr_t<T> const& a, U* b) noexcept {
  return a.get() == b;
}
template <class T, class U>
bool operator!=(sptr_t<T> const& a, U* b) noexcept {
  return a.get() != b;
}

}  // namespace quillon2

template <class T>
struct std::hash<quillon2::sptr_t<T>> {
  std::size_t operator()(quillon2::sptr_t<T> const& p) const noexcept {
    return std::hash<T*>()(p.get());
  }
};
