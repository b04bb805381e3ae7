// A small shared pointer for objects that carry no count of their own.
//
// The count lives in a separate heap cell and is not atomic: a smart_pointer_t and all
// its copies belong to one thread at a time. The object is deleted through its
// (virtual) destructor when the last copy goes.
#pragma once

#include <new>
#include <type_traits>
#include <utility>

#include <quillon2/core/assert.hpp>
#include <quillon2/headers/kesmet.hpp>

namespace quillon2 {

template <class T>
class smart_pointer_t {
 public:
  smart_pointer_t() noexcept = default;
  smart_pointer_t(std::nullptr_t) noexcept {}
  // Takes ownership of `object`. If the count cannot be allocated, the object is
  // deleted and std::bad_alloc passes on.
  explicit smart_pointer_t(T* object) : m_ptr(object) {
    if (m_ptr == nullptr) return;
    try {
      m_count = new u32_t(1);
    } catch (...) {
      delete object;
      throw;
    }
  }
  // Shares the object and its count.
  smart_pointer_t(smart_pointer_t const& other) : m_ptr(other.m_ptr), m_count(other.m_count) {
    if (m_count != nullptr) ++*m_count;
  }
  // Shares the object of a pointer to a derived class, and its count.
  template <class U, std::enable_if_t<std::is_convertible_v<U*, T*>, int> = 0>
  smart_pointer_t(smart_pointer_t<U> const& other) : m_ptr(other.m_ptr), m_count(other.m_count) {
    if (m_count != nullptr) ++*m_count;
  }
  smart_pointer_t(smart_pointer_t&& other) noexcept
      : m_ptr(std::exchange(other.m_ptr, nullptr)),
        m_count(std::exchange(other.m_count, nullptr)) {}
  ~smart_pointer_t() { drop(); }

  smart_pointer_t& operator=(smart_pointer_t const& other) {
    smart_pointer_t(other).swap(*this);
    return *this;
  }
  smart_pointer_t& operator=(smart_pointer_t&& other) noexcept {
    smart_pointer_t(std::move(other)).swap(*this);
    return *this;
  }

  void reset(T* object = nullptr) { smart_pointer_t(object).swap(*this); }
  void swap(smart_pointer_t& other) noexcept {
    std::swap(m_ptr, other.m_ptr);
    std::swap(m_count, other.m_count);
  }

  T* get() const noexcept { return m_ptr; }
  T* operator->() const {
    QUILLON_ASSERT(m_ptr != 0);
    return m_ptr;
  }
  T& operator*() const { return *m_ptr; }
  explicit operator bool() const noexcept { return m_ptr != nullptr; }

  // The shared count, or null when there is none (always so for a null pointer).
  u32_t const* get_count() const noexcept { return m_count; }

 private:
  template <class U>
  friend class smart_pointer_t;

  void drop() noexcept {
    if (m_count == nullptr || --*m_count != 0) return;
    delete m_count;
    m_count = nullptr;
    delete m_ptr;
  }

  // Either both are null, or the object is held and the count is at least 1.
  T* m_ptr = nullptr;
  u32_t* m_count = nullptr;
};

template <class T, class U>
bool operator==(smart_pointer_t<T> const& a, smart_pointer_t<U> const& b) noexcept {
  return a.get() == b.get();
}
template <class T, class U>
bool operator!=(smart_pointer_t<T> const& a, smart_pointer_t<U> const& b) noexcept {
  return a.get() != b.get();
}

}  // namespace quillon2
