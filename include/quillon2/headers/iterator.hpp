// The type-erased forward iterator that enumerating operations return.
//
// generic_iterator_t<T> is a value that owns a polymorphic cursor, an
// iterator_handler_t<T>. Copying the value clones the cursor; the clone moves on its
// own. The usual loop is:
//
//   for (auto it = make_something(); !it.at_end(); it.next()) use(it.current());
//
// iterutil holds the cursors over standard containers. An owned cursor keeps its
// container alive through a shared pointer, so a function can fill a private container
// and return an iterator over it; clones share that container, which is read-only from
// then on. Cursors are not synchronised: one iterator belongs to one thread at a time.
#pragma once

#include <iterator>
#include <list>
#include <memory>
#include <type_traits>
#include <utility>
#include <vector>

#include <boost/shared_ptr.hpp>

#include <quillon2/core/assert.hpp>

namespace quillon2 {

// A polymorphic cursor over values of type T.
template <class T>
class iterator_handler_t {
 public:
  // Capability bits reported by get_capabilities.
  enum : unsigned {
    can_restart = 1,    // restart() works
    can_step_back = 2,  // prev() works
  };

  virtual bool at_end() const = 0;
  virtual T current() const = 0;
  // Steps forward; from the end position it goes back to the first element.
  virtual void next() = 0;
  // A new cursor at the same position, owned by the caller (release it with destroy).
  virtual iterator_handler_t* clone() const = 0;
  // Moves to the first element and returns 1, or returns 0 when not supported.
  virtual int restart() { return 0; }
  // Deletes this cursor.
  virtual void destroy() = 0;
  virtual unsigned get_capabilities(unsigned /*mask*/) const { return 0; }
  // Steps back, where supported; from the first element it goes to the end position.
  virtual void prev() {}

 protected:
  iterator_handler_t() = default;
  iterator_handler_t(iterator_handler_t const&) = default;
  iterator_handler_t& operator=(iterator_handler_t const&) = default;
  virtual ~iterator_handler_t() = default;
};

// Gives clone and destroy in terms of the most derived cursor class.
template <class T, class Derived>
class iterator_impl_base_t : public iterator_handler_t<T> {
 public:
  iterator_handler_t<T>* clone() const override {
    return new Derived(static_cast<Derived const&>(*this));
  }
  void destroy() override { delete static_cast<Derived*>(this); }
};

namespace iterutil {

// Returns the element as it stands, converted to T.
template <class T>
struct identity_t {
  template <class U>
  T operator()(U const& value) const {
    return T(value);
  }
};

// A cursor over the range [begin, end) of a standard container, which must outlive it.
template <class T, class It, class Convert, class Derived>
class stl_iterator_impl_base_t : public iterator_impl_base_t<T, Derived> {
  static_assert(std::is_base_of_v<std::bidirectional_iterator_tag,
                                  typename std::iterator_traits<It>::iterator_category>,
                "the cursor steps back, so it needs a bidirectional iterator");

 public:
  stl_iterator_impl_base_t(It begin, It end, Convert convert = Convert())
      : m_current(begin), m_begin(begin), m_end(end), m_convert(std::move(convert)) {}

  bool at_end() const override { return m_current == m_end; }
  T current() const override { return m_current == m_end ? T() : T(m_convert(*m_current)); }
  void next() override {
    if (m_current == m_end) {
      m_current = m_begin;
    } else {
      ++m_current;
    }
  }
  int restart() override {
    m_current = m_begin;
    return 1;
  }
  unsigned get_capabilities(unsigned /*mask*/) const override {
    return iterator_handler_t<T>::can_restart | iterator_handler_t<T>::can_step_back;
  }
  void prev() override {
    if (m_current == m_begin) {
      m_current = m_end;
    } else {
      --m_current;
    }
  }

 private:
  It m_current;
  It m_begin;
  It m_end;
  Convert m_convert;
};

// A cursor over a range whose container outlives it.
template <class T, class It, class Convert = identity_t<T>>
class stl_iterator_impl_t final
    : public stl_iterator_impl_base_t<T, It, Convert, stl_iterator_impl_t<T, It, Convert>> {
 public:
  using stl_iterator_impl_base_t<T, It, Convert,
                                 stl_iterator_impl_t<T, It, Convert>>::stl_iterator_impl_base_t;
};

// A cursor that holds its container through `Holder`, a shared pointer to a
// std::vector or std::list. Clones share the container, not copies of it.
template <class T, class It, class Convert, class Holder>
class owned_stl_iterator_impl_t final
    : public stl_iterator_impl_base_t<T, It, Convert,
                                      owned_stl_iterator_impl_t<T, It, Convert, Holder>> {
  using base_t =
      stl_iterator_impl_base_t<T, It, Convert, owned_stl_iterator_impl_t<T, It, Convert, Holder>>;

 public:
  explicit owned_stl_iterator_impl_t(Holder holder, Convert convert = Convert())
      : base_t(std::as_const(*holder).begin(), std::as_const(*holder).end(), std::move(convert)),
        m_holder(std::move(holder)) {}

 private:
  Holder m_holder;
};

}  // namespace iterutil

// The iterator value that crosses the interface. It owns its cursor; a default-made
// iterator has none and stands at its end.
template <class T>
class generic_iterator_t {
 public:
  using value_type = T;
  using handler_t = iterator_handler_t<T>;

  // A cursor over the values of a generic_iterator_t<U>, converted to T by Convert.
  template <class U, class Convert = iterutil::identity_t<T>>
  class converting_iterator_impl_t final
      : public iterator_impl_base_t<T, converting_iterator_impl_t<U, Convert>> {
   public:
    explicit converting_iterator_impl_t(generic_iterator_t<U> source, Convert convert = Convert())
        : m_source(std::move(source)), m_convert(std::move(convert)) {}

    bool at_end() const override { return m_source.at_end(); }
    T current() const override {
      return m_source.at_end() ? T() : T(m_convert(m_source.current()));
    }
    void next() override { m_source.next(); }
    int restart() override { return m_source.restart() ? 1 : 0; }
    unsigned get_capabilities(unsigned mask) const override {
      return m_source.get_handler() != nullptr ? m_source.get_handler()->get_capabilities(mask) : 0;
    }
    void prev() override { m_source.prev(); }

   private:
    generic_iterator_t<U> m_source;
    Convert m_convert;
  };

  generic_iterator_t() noexcept = default;
  // Takes ownership of `handler`, which may be null.
  explicit generic_iterator_t(handler_t* handler) noexcept : m_handler(handler) {}
  generic_iterator_t(generic_iterator_t const& other)
      : m_handler(other.m_handler != nullptr ? other.m_handler->clone() : nullptr) {}
  generic_iterator_t(generic_iterator_t&& other) noexcept
      : m_handler(std::exchange(other.m_handler, nullptr)) {}
  ~generic_iterator_t() {
    if (m_handler != nullptr) m_handler->destroy();
  }
  generic_iterator_t& operator=(generic_iterator_t const& other) {
    generic_iterator_t(other).swap(*this);
    return *this;
  }
  generic_iterator_t& operator=(generic_iterator_t&& other) noexcept {
    generic_iterator_t(std::move(other)).swap(*this);
    return *this;
  }
  void swap(generic_iterator_t& other) noexcept { std::swap(m_handler, other.m_handler); }

  bool at_end() const { return m_handler == nullptr || m_handler->at_end(); }

  // The value at the cursor. At the end this is reported, and a default T comes back.
  T current() const {
    QUILLON_ASSERT(!at_end() && "iterator is at end state");
    if (at_end()) return T();
    return m_handler->current();
  }

  void next() {
    if (m_handler != nullptr) m_handler->next();
  }
  generic_iterator_t& operator++() {
    next();
    return *this;
  }
  // Steps back where the cursor supports it (see supports).
  void prev() {
    if (m_handler != nullptr) m_handler->prev();
  }
  // Moves to the first element; false when the cursor cannot.
  bool restart() { return m_handler != nullptr && m_handler->restart() != 0; }

  // True when the cursor has every capability of `mask`.
  virtual bool supports(unsigned mask) const {
    return m_handler != nullptr && (m_handler->get_capabilities(mask) & mask) == mask;
  }

  handler_t* get_handler() const noexcept { return m_handler; }

 private:
  handler_t* m_handler = nullptr;
};

namespace iterutil {

// An iterator over [begin, end) of a container that outlives the iterator.
template <class T, class It>
generic_iterator_t<T> make_iterator(It begin, It end) {
  return generic_iterator_t<T>(new stl_iterator_impl_t<T, It>(begin, end));
}

// An iterator over the container that `holder`, a shared pointer of either kind, keeps.
template <class T, class Container, class Holder>
generic_iterator_t<T> make_holding_iterator(Holder holder) {
  using it_t = typename Container::const_iterator;
  return generic_iterator_t<T>(
      new owned_stl_iterator_impl_t<T, it_t, identity_t<T>, Holder>(std::move(holder)));
}

// An iterator that owns its container: a std::vector or std::list held by a shared
// pointer (std:: or boost::). The values are converted to T.
template <class T, class Container>
generic_iterator_t<T> make_owned_iterator(std::shared_ptr<Container> container) {
  return make_holding_iterator<T, Container>(std::move(container));
}
template <class T, class Container>
generic_iterator_t<T> make_owned_iterator(boost::shared_ptr<Container> container) {
  return make_holding_iterator<T, Container>(std::move(container));
}
// Moves `values` into a container of the iterator's own.
template <class T, class Container>
generic_iterator_t<T> make_owned_iterator_from(Container values) {
  return make_owned_iterator<T, Container>(std::make_shared<Container>(std::move(values)));
}

// An iterator over the values of `source`, converted to T by `convert`.
template <class T, class U, class Convert = identity_t<T>>
generic_iterator_t<T> make_converting_iterator(generic_iterator_t<U> source,
                                               Convert convert = Convert()) {
  using impl_t = typename generic_iterator_t<T>::template converting_iterator_impl_t<U, Convert>;
  return generic_iterator_t<T>(new impl_t(std::move(source), std::move(convert)));
}

}  // namespace iterutil
}  // namespace quillon2
