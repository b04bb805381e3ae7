// Signals: typed lists of bound member functions, called in connection order when the
// signal is emitted.
//
//   struct listener_t : quillon2::_internal::subscriber_base_t {
//     void on_change(std::wstring name);
//   };
//   quillon2::_internal::signal_t<std::wstring> changed;
//   changed.connect(&listener, &listener_t::on_change);
//   changed(L"colour");
//
// Both ends know each other: a signal keeps its connections, and every subscriber keeps
// the list of signals that target it, so either end may be destroyed first and the
// other forgets it. A signal is itself a subscriber, which lets one signal be connected
// to another: emitting the first then emits the second.
//
// Thread safety. Every signal has a recursive mutex, held for the whole of an emission:
// emissions of one signal from several threads run one after the other, and connect or
// disconnect from another thread waits until the running emission has ended. On the
// emitting thread itself a handler may connect, disconnect, emit the same signal again,
// or destroy the signal; the emission notices each of these (see signal_base_t).
// Locks are always taken signal first, then subscriber; a subscriber never holds its own
// lock while it waits for a signal's. A signal and one of its subscribers may therefore
// be destroyed on two threads at once. What remains for the user:
// - a handler must not wait for another thread that is about to connect to, disconnect
//   from or emit the same signal;
// - a subscriber is not connected by one thread while another destroys it, and a signal
//   is not used by one thread while another destroys it;
// - a subscriber whose handlers run on other threads calls disconnect_all_signals() first
//   thing in its own destructor, so that no emission can still reach its half-destroyed
//   members.
//
// The classes are templates compiled into each user; the untyped bookkeeping lives in
// the library (signal.cpp).
#pragma once

#include <atomic>
#include <cstddef>
#include <new>
#include <tuple>
#include <type_traits>
#include <typeinfo>
#include <utility>
#include <vector>

#include <boost/container/small_vector.hpp>

#include <quillon2/core/assert.hpp>
#include <quillon2/core/threading/mutex.hpp>
#include <quillon2/export.hpp>

namespace quillon2::_internal {

// Fills the argument positions that a signal does not use.
struct dummy_t {};

class signal_base_t;
struct signal_core_t;

// The receiving end of connections. Keeps one entry per connection that targets it,
// so that its destructor can remove them all.
class QUILLON2_API subscriber_base_t {
 public:
  subscriber_base_t();
  // A copy starts without connections; assignment keeps the target's own.
  subscriber_base_t(subscriber_base_t const&);
  subscriber_base_t& operator=(subscriber_base_t const&);
  virtual ~subscriber_base_t();

 protected:
  // Removes every connection that targets this subscriber, waiting for running
  // emissions of those signals to end. The destructor does the same, but only after the
  // derived parts are gone.
  void disconnect_all_signals();

 private:
  friend class signal_base_t;

  // One entry per connection, in connection order. Most subscribers are reached by one
  // or two signals (a task by its stage's handler and that handler's copies): those need
  // no allocation.
  boost::container::small_vector<signal_core_t*, 2> m_senders;
  threading::mutex_t m_senders_mutex;
};

// A bound member function, kept as its own typed pointer to member in a small buffer.
// Two bound methods are equal when they hold pointers of the same type that compare
// equal with ==; the type is compared through its type_info, which also works across
// shared objects.
class bound_method_t {
 public:
  bound_method_t() noexcept = default;

  template <class M>
  explicit bound_method_t(M method) noexcept : m_ops(&ops_of<M>::value) {
    static_assert(std::is_member_function_pointer_v<M>, "a bound method is a member function");
    static_assert(sizeof(M) <= sizeof(m_storage) && alignof(M) <= alignof(storage_t),
                  "member function pointer does not fit");
    ::new (static_cast<void*>(&m_storage)) M(method);
  }

  bound_method_t(bound_method_t const& other) noexcept { assign(other); }
  bound_method_t& operator=(bound_method_t const& other) noexcept {
    assign(other);
    return *this;
  }

  // The pointer to member, read back as the type it was stored with.
  template <class M>
  M get() const noexcept {
    return *std::launder(reinterpret_cast<M const*>(&m_storage));
  }

  bool empty() const noexcept { return m_ops == nullptr; }
  void clear() noexcept { m_ops = nullptr; }

  friend bool operator==(bound_method_t const& a, bound_method_t const& b) noexcept {
    if (a.m_ops == b.m_ops) return a.m_ops == nullptr || a.m_ops->equal(&a.m_storage, &b.m_storage);
    if (a.m_ops == nullptr || b.m_ops == nullptr) return false;
    return *a.m_ops->type == *b.m_ops->type && a.m_ops->equal(&a.m_storage, &b.m_storage);
  }
  friend bool operator!=(bound_method_t const& a, bound_method_t const& b) noexcept {
    return !(a == b);
  }

 private:
  using storage_t = std::aligned_storage_t<2 * sizeof(void*), alignof(void*)>;

  struct ops_t {
    std::type_info const* type;
    bool (*equal)(void const*, void const*) noexcept;
    void (*copy)(void*, void const*) noexcept;
  };

  template <class M>
  struct ops_of {
    static bool equal(void const* a, void const* b) noexcept {
      return *std::launder(static_cast<M const*>(a)) == *std::launder(static_cast<M const*>(b));
    }
    static void copy(void* to, void const* from) noexcept {
      ::new (to) M(*std::launder(static_cast<M const*>(from)));
    }
    static constexpr ops_t value{&typeid(M), &equal, &copy};
  };

  void assign(bound_method_t const& other) noexcept {
    if (this == &other) return;
    m_ops = other.m_ops;
    if (m_ops != nullptr) m_ops->copy(&m_storage, &other.m_storage);
  }

  storage_t m_storage;
  ops_t const* m_ops = nullptr;
};

// One connection. A record whose subscriber is null has been disconnected during an
// emission: it is skipped and removed when the outermost emission ends.
struct connection_t {
  void* object = nullptr;                   // the receiver, as its own class
  subscriber_base_t* subscriber = nullptr;  // the receiver, as a subscriber
  bound_method_t method;
  void (*invoker)() = nullptr;  // the typed thunk; the signal that made it casts it back

  bool same_as(connection_t const& other) const noexcept {
    return object == other.object && method == other.method;
  }
};

// A connection in a signal's circular list.
struct connection_node_t {
  connection_node_t* prev = nullptr;
  connection_node_t* next = nullptr;
  connection_t connection;
};

// The part of a signal that may outlive it: the mutex that guards its connections, and
// a count of those who still need the mutex. The signal holds one reference; when it is
// destroyed by one of its own handlers, the running emission takes that reference over.
// A dying subscriber holds one while it detaches itself, so that a signal that dies on
// another thread meanwhile leaves it a valid lock.
struct QUILLON2_API signal_core_t {
  explicit signal_core_t(signal_base_t* owner) : signal(owner) {}
  void add_reference() noexcept { references.fetch_add(1, std::memory_order_relaxed); }
  // Deletes the core with the last reference.
  static void release(signal_core_t* core) noexcept;
  // Cores are made where signals are and often die on other threads, with the stage
  // that a pool worker ran: they are recycled in batches instead of one heap call each.
  static void* operator new(std::size_t size);
  static void operator delete(void* block) noexcept;

  threading::mutex_t mutex;
  std::atomic<long> references{1};
  signal_base_t* signal;  // null once the signal is gone; read and written under `mutex`
  // Room for the signal's first connection, which most signals never go beyond: it
  // comes with the core instead of an allocation of its own. Guarded by `mutex`.
  connection_node_t first_node{};
  bool first_node_in_use = false;
};

// The untyped part of every signal: the connection list, the emission state and the
// core with the mutex, which lives on the heap so that it can outlive a signal destroyed
// by one of its own handlers (the running emission then releases it).
class QUILLON2_API signal_base_t : public subscriber_base_t {
 public:
  ~signal_base_t() override;

  // Records in the list, including those disconnected by a running emission.
  std::size_t connection_count() const;
  // Whether no live connection is left.
  bool empty() const;

 protected:
  using node_t = connection_node_t;

  // Marks one emission; the outermost one also owns the cleanup at its end.
  class emission_t {
   public:
    explicit emission_t(signal_base_t& signal) : m_signal(signal), m_core(signal.m_core) {
      m_core->mutex.acquire();
      m_nested = signal.m_is_valid_flag != nullptr;
      if (!m_nested) signal.m_is_valid_flag = &m_valid;
      m_flag = signal.m_is_valid_flag;
    }

    ~emission_t() {
      bool const alive = *m_flag;
      if (alive && !m_nested) {
        if (m_signal.m_invalid_count == 0) {
          m_signal.m_is_valid_flag = nullptr;
        } else {
          m_signal.remove_invalid_connections();
        }
      }
      m_core->mutex.release();
      // The signal is gone and this is the outermost emission: its core is ours.
      if (!alive && !m_nested) signal_core_t::release(m_core);
    }

    emission_t(emission_t const&) = delete;
    emission_t& operator=(emission_t const&) = delete;

    // False once the signal has been destroyed by a handler: touch nothing of it then.
    bool signal_alive() const noexcept { return *m_flag; }

   private:
    signal_base_t& m_signal;
    signal_core_t* m_core;
    bool m_valid = true;  // cleared by the signal's destructor
    bool m_nested = false;
    bool* m_flag = nullptr;  // the outermost emission's m_valid
  };

  signal_base_t();
  // Takes every connection of `other`.
  signal_base_t(signal_base_t const& other);
  // Adds the connections of `other` that this signal does not have yet.
  signal_base_t& operator=(signal_base_t const& other);

  void _insert(connection_t const& connection);
  void _erase(connection_t const& connection);
  void remove_invalid_connections();
  void erase_subscriber(subscriber_base_t* subscriber);
  void erase_all();

  node_t const* first_node() const noexcept { return m_head.next; }
  node_t const* end_node() const noexcept { return &m_head; }

 private:
  friend class subscriber_base_t;

  bool contains(connection_t const& connection) const;
  // erase_all with the signal's mutex already held.
  void erase_all_locked();
  // Takes a node out of the list, or, while an emission runs, clears its record for the
  // emission to remove.
  void discard(node_t* node) noexcept;
  void unlink_and_free(node_t* node) noexcept;
  // A node for a new connection: the core's own while it is free. Under the mutex.
  node_t* make_node(connection_t const& connection);
  void free_node(node_t* node) noexcept;
  void free_all_nodes() noexcept;
  void remove_sender(subscriber_base_t* subscriber);

  node_t m_head;                    // sentinel of the circular connection list
  bool* m_is_valid_flag = nullptr;  // set while an emission runs
  std::size_t m_invalid_count = 0;  // records cleared during the running emission
  signal_core_t* m_core;            // its mutex guards everything above
};

namespace signal_detail {

template <class A>
using param_t = std::conditional_t<std::is_reference_v<A>, A, A const&>;

template <class A>
constexpr bool is_dummy_v = std::is_same_v<A, dummy_t>;

// Default value of an unused argument position. Using it for a position that holds a
// real argument type is a compile-time error: the argument is missing.
template <class A>
dummy_t no_argument() {
  static_assert(is_dummy_v<A>, "signal_t: an argument is missing");
  return {};
}

// How many of the positions hold real argument types, counted from the first.
template <class... A>
constexpr std::size_t leading_arguments() {
  bool const real[] = {!is_dummy_v<A>...};
  std::size_t n = 0;
  while (n < sizeof...(A) && real[n]) ++n;
  return n;
}

template <class F>
struct function_arity;
template <class R, class... P>
struct function_arity<R(P...)> : std::integral_constant<std::size_t, sizeof...(P)> {};
template <class R, class... P>
struct function_arity<R(P...) const> : std::integral_constant<std::size_t, sizeof...(P)> {};
template <class R, class... P>
struct function_arity<R(P...) noexcept> : std::integral_constant<std::size_t, sizeof...(P)> {};
template <class R, class... P>
struct function_arity<R(P...) const noexcept> : std::integral_constant<std::size_t, sizeof...(P)> {
};

template <class R, class M, class Tuple, std::size_t... I>
inline void call_with(R* receiver, M method, Tuple& args, std::index_sequence<I...>) {
  (receiver->*method)(std::get<I>(args)...);
}

}  // namespace signal_detail

// The typed signal: the emit operation and the typed connect. The two leading positions
// are always dummy_t; the six after them are the argument types, unused ones dummy_t.
template <class D1, class D2, class A1, class A2, class A3, class A4, class A5, class A6>
class signal_templ : public signal_base_t {
  static_assert(signal_detail::is_dummy_v<D1> && signal_detail::is_dummy_v<D2>,
                "the leading positions of a signal are dummy_t");

  template <class A>
  using P = signal_detail::param_t<A>;

 public:
  // Number of arguments an emission takes.
  static constexpr std::size_t arity = signal_detail::leading_arguments<A1, A2, A3, A4, A5, A6>();

 private:
  template <std::size_t I, class A>
  static constexpr bool position_ok = I < arity || signal_detail::is_dummy_v<A>;
  static_assert(position_ok<0, A1> && position_ok<1, A2> && position_ok<2, A3> &&
                    position_ok<3, A4> && position_ok<4, A5> && position_ok<5, A6>,
                "the arguments of a signal come first, the dummy_t positions after them");

  using invoker_t = void (*)(void*, bound_method_t const&, P<A1>, P<A2>, P<A3>, P<A4>, P<A5>,
                             P<A6>);

 public:
  signal_templ() = default;
  signal_templ(signal_templ const&) = default;
  signal_templ& operator=(signal_templ const&) = default;

  // Appends a connection to `method` of `receiver`. The receiver's class derives from
  // subscriber_base_t; the method takes the signal's arguments (by value gives each
  // receiver its own copy).
  template <class R, class F, class B>
  void connect(R* receiver, F B::*method) {
    _insert(make_connection(receiver, method));
  }

  // Appends a connection that emits `other` with this signal's arguments.
  void connect(signal_templ& other) {
    subscriber_base_t* subscriberObj = &other;
    QUILLON_ASSERT(static_cast<subscriber_base_t*>(this) != subscriberObj);
    if (static_cast<subscriber_base_t*>(this) == subscriberObj) return;  // would recurse forever
    connect(&other, &signal_templ::operator());
  }

  // Removes the connection made with the same receiver and method.
  template <class R, class F, class B>
  void disconnect(R* receiver, F B::*method) {
    _erase(make_connection(receiver, method));
  }

  void disconnect(signal_templ& other) { disconnect(&other, &signal_templ::operator()); }

  // Calls every connection in order. A handler that throws ends the emission; the
  // exception reaches the caller and the remaining connections are not called.
  void operator()(P<A1> a1 = signal_detail::no_argument<A1>(),
                  P<A2> a2 = signal_detail::no_argument<A2>(),
                  P<A3> a3 = signal_detail::no_argument<A3>(),
                  P<A4> a4 = signal_detail::no_argument<A4>(),
                  P<A5> a5 = signal_detail::no_argument<A5>(),
                  P<A6> a6 = signal_detail::no_argument<A6>()) {
    emission_t emission(*this);
    for (node_t const* node = first_node(); node != end_node(); node = node->next) {
      connection_t const& c = node->connection;
      if (c.subscriber == nullptr) continue;
      reinterpret_cast<invoker_t>(c.invoker)(c.object, c.method, a1, a2, a3, a4, a5, a6);
      if (!emission.signal_alive()) return;
    }
  }

 private:
  template <class R, class M>
  static void invoke(void* object, bound_method_t const& method, P<A1> a1, P<A2> a2, P<A3> a3,
                     P<A4> a4, P<A5> a5, P<A6> a6) {
    auto args = std::forward_as_tuple(a1, a2, a3, a4, a5, a6);
    signal_detail::call_with(
        static_cast<R*>(object), method.get<M>(), args,
        std::make_index_sequence<
            signal_detail::function_arity<typename member_function_of<M>::type>::value>{});
  }

  template <class M>
  struct member_function_of;
  template <class F, class C>
  struct member_function_of<F C::*> {
    using type = F;
  };

  template <class R, class F, class B>
  connection_t make_connection(R* receiver, F B::*method) {
    static_assert(std::is_function_v<F>, "connect a member function");
    static_assert(std::is_base_of_v<B, R>, "the method belongs to the receiver's class");
    static_assert(std::is_base_of_v<subscriber_base_t, R>,
                  "the receiver derives from subscriber_base_t");
    constexpr std::size_t n = signal_detail::function_arity<F>::value;
    static_assert(n == arity || n == 6, "the method takes the signal's arguments");
    using M = F R::*;
    connection_t c;
    c.object = static_cast<void*>(receiver);
    c.subscriber = static_cast<subscriber_base_t*>(receiver);
    c.method = bound_method_t(static_cast<M>(method));
    c.invoker = reinterpret_cast<void (*)()>(&signal_templ::template invoke<R, M>);
    return c;
  }
};

// The signal as applications name it: up to six argument types.
template <class A1 = dummy_t, class A2 = dummy_t, class A3 = dummy_t, class A4 = dummy_t,
          class A5 = dummy_t, class A6 = dummy_t>
class signal_t : public signal_templ<dummy_t, dummy_t, A1, A2, A3, A4, A5, A6> {
 public:
  signal_t() = default;
  signal_t(signal_t const&) = default;
  signal_t& operator=(signal_t const&) = default;
};

}  // namespace quillon2::_internal
