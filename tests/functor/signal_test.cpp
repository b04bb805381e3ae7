#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>
#include <quillon2/core/assert.hpp>
#include <quillon2/core/functor/signal.hpp>

namespace {

using quillon2::_internal::signal_t;
using quillon2::_internal::subscriber_base_t;

// Captures assertion reports for the duration of a test.
class assert_capture_t {
 public:
  assert_capture_t() { m_previous = quillon2::internal::set_assert_hook(&record); }
  ~assert_capture_t() {
    quillon2::internal::set_assert_hook(m_previous);
    std::lock_guard<std::mutex> guard(mutex());
    reports().clear();
  }
  std::vector<std::string> texts() {
    std::lock_guard<std::mutex> guard(mutex());
    return reports();
  }

 private:
  static std::mutex& mutex() {
    static std::mutex m;
    return m;
  }
  static std::vector<std::string>& reports() {
    static std::vector<std::string> r;
    return r;
  }
  static void record(char const* condition, char const*, unsigned, char const*) {
    std::lock_guard<std::mutex> guard(mutex());
    reports().push_back(condition);
  }
  quillon2::internal::assert_hook_t m_previous;
};

// Records calls into a shared log; what it does besides is up to the test.
class receiver_t : public subscriber_base_t {
 public:
  receiver_t(std::string name, std::vector<std::string>& log) : m_name(std::move(name)), m_log(log) {}

  void on_int(int value) {
    m_log.push_back(m_name + ":" + std::to_string(value));
    if (action) action();
  }
  void on_text(std::string text) {
    text += "!";  // its own copy
    m_log.push_back(m_name + ":" + text);
  }
  void on_two(int a, std::string const& b) { m_log.push_back(m_name + ":" + std::to_string(a) + b); }
  void on_const(int value) const { m_log.push_back(m_name + "(const):" + std::to_string(value)); }

  std::function<void()> action;

 private:
  std::string m_name;
  std::vector<std::string>& m_log;
};

class derived_receiver_t : public receiver_t {
 public:
  using receiver_t::receiver_t;
};

using log_t = std::vector<std::string>;

}  // namespace

// --- connecting and emitting ------------------------------------------------------------

TEST(Signal, EmitsInConnectionOrderWithTheArguments) {
  log_t log;
  receiver_t a("a", log), b("b", log), c("c", log);
  signal_t<int, std::string const&> two;
  two.connect(&b, &receiver_t::on_two);
  two.connect(&a, &receiver_t::on_two);
  two.connect(&c, &receiver_t::on_two);
  two(7, "x");
  EXPECT_EQ((log_t{"b:7x", "a:7x", "c:7x"}), log);
}

TEST(Signal, GivesEveryReceiverItsOwnCopyOfAnArgument) {
  log_t log;
  receiver_t a("a", log), b("b", log);
  signal_t<std::string> text;
  text.connect(&a, &receiver_t::on_text);
  text.connect(&b, &receiver_t::on_text);
  text("hi");
  EXPECT_EQ((log_t{"a:hi!", "b:hi!"}), log);

  struct holder_t : subscriber_base_t {
    long seen = 0;
    void take(std::shared_ptr<int> p) { seen = p.use_count(); }
  } h;
  signal_t<std::shared_ptr<int>> shared;
  shared.connect(&h, &holder_t::take);
  auto p = std::make_shared<int>(1);
  shared(p);
  EXPECT_EQ(2, h.seen);  // the caller's and the receiver's copy
}

TEST(Signal, WithoutConnectionsOrArgumentsEmitsNothing) {
  signal_t<> nothing;
  nothing();
  EXPECT_TRUE(nothing.empty());
  EXPECT_EQ(0u, nothing.connection_count());

  struct counter_t : subscriber_base_t {
    int calls = 0;
    void hit() { ++calls; }
  } counter;
  nothing.connect(&counter, &counter_t::hit);
  nothing();
  nothing();
  EXPECT_EQ(2, counter.calls);
}

TEST(Signal, ConnectsConstMethodsAndMethodsOfABaseClass) {
  log_t log;
  derived_receiver_t d("d", log);
  signal_t<int> s;
  s.connect(&d, &receiver_t::on_int);
  s.connect(&d, &receiver_t::on_const);
  s(1);
  s.disconnect(&d, &receiver_t::on_int);
  s(2);
  EXPECT_EQ((log_t{"d:1", "d(const):1", "d(const):2"}), log);
}

TEST(Signal, ConnectingTheSameMethodTwiceAssertsAndKeepsOneConnection) {
  assert_capture_t asserts;
  log_t log;
  receiver_t a("a", log);
  signal_t<int> s;
  s.connect(&a, &receiver_t::on_int);
  s.connect(&a, &receiver_t::on_int);
  s(1);
  EXPECT_EQ((log_t{"a:1"}), log);
  EXPECT_EQ((std::vector<std::string>{"signal_t::_insert: this connection is already exists."}),
            asserts.texts());
  // The same object with another method, or another object, is a new connection.
  s.connect(&a, &receiver_t::on_const);
  EXPECT_EQ(2u, s.connection_count());
}

TEST(Signal, DisconnectingAnUnknownConnectionAssertsAndChangesNothing) {
  assert_capture_t asserts;
  log_t log;
  receiver_t a("a", log), b("b", log);
  signal_t<int> s;
  s.connect(&a, &receiver_t::on_int);
  s.disconnect(&b, &receiver_t::on_int);
  s.disconnect(&a, &receiver_t::on_const);
  s(3);
  EXPECT_EQ((log_t{"a:3"}), log);
  ASSERT_EQ(2u, asserts.texts().size());
  EXPECT_NE(std::string::npos,
            asserts.texts()[0].find("signal_t::disconnect: attempt to disconnect unknown connection"));
  EXPECT_NE(std::string::npos, asserts.texts()[0].find("subscriber_found"));
}

TEST(Signal, ForwardsToAnotherSignalButNotToItself) {
  assert_capture_t asserts;
  log_t log;
  receiver_t a("a", log), b("b", log);
  signal_t<int> first, second;
  first.connect(&a, &receiver_t::on_int);
  first.connect(second);
  second.connect(&b, &receiver_t::on_int);
  first(4);
  EXPECT_EQ((log_t{"a:4", "b:4"}), log);

  first.connect(first);
  EXPECT_EQ((std::vector<std::string>{"static_cast<subscriber_base_t*>(this) != subscriberObj"}),
            asserts.texts());
  first.disconnect(second);
  log.clear();
  first(5);
  EXPECT_EQ((log_t{"a:5"}), log);
}

// --- either end dies first ----------------------------------------------------------------

TEST(Signal, ADestroyedSubscriberLeavesNoConnectionBehind) {
  log_t log;
  signal_t<int> s, t;
  {
    receiver_t a("a", log);
    s.connect(&a, &receiver_t::on_int);
    s.connect(&a, &receiver_t::on_const);
    t.connect(&a, &receiver_t::on_int);
  }
  EXPECT_TRUE(s.empty());
  EXPECT_EQ(0u, s.connection_count());
  EXPECT_EQ(0u, t.connection_count());
  s(1);
  t(1);
  EXPECT_TRUE(log.empty());
}

TEST(Signal, ADestroyedSignalIsForgottenByItsSubscribers) {
  log_t log;
  receiver_t a("a", log);
  signal_t<int> kept;
  kept.connect(&a, &receiver_t::on_int);
  {
    signal_t<int> gone, forwarder;
    gone.connect(&a, &receiver_t::on_int);
    forwarder.connect(gone);
    kept.connect(forwarder);
  }
  // a and kept would reach freed signals here if the back-references were left.
  kept(9);
  EXPECT_EQ((log_t{"a:9"}), log);
  EXPECT_EQ(1u, kept.connection_count());
}

TEST(Signal, TwoConnectionsOfOneSubscriberKeepTheirBackReferences) {
  log_t log;
  auto a = std::make_unique<receiver_t>("a", log);
  signal_t<int> s;
  s.connect(a.get(), &receiver_t::on_int);
  s.connect(a.get(), &receiver_t::on_const);
  s.disconnect(a.get(), &receiver_t::on_int);
  a.reset();  // must still find s, for the connection that is left
  EXPECT_EQ(0u, s.connection_count());
  s(1);
  EXPECT_TRUE(log.empty());
}

// --- changes during an emission -----------------------------------------------------------

TEST(SignalReentrancy, AHandlerThatDisconnectsItselfIsNotCalledAgain) {
  log_t log;
  receiver_t a("a", log), b("b", log), c("c", log);
  signal_t<int> s;
  s.connect(&a, &receiver_t::on_int);
  s.connect(&b, &receiver_t::on_int);
  s.connect(&c, &receiver_t::on_int);
  std::size_t during = 0;
  b.action = [&] {
    s.disconnect(&b, &receiver_t::on_int);
    during = s.connection_count();
  };
  s(1);
  s(2);
  EXPECT_EQ((log_t{"a:1", "b:1", "c:1", "a:2", "c:2"}), log);
  EXPECT_EQ(3u, during);  // the node stays while the emission runs...
  EXPECT_EQ(2u, s.connection_count());  // ...and is gone after it
}

TEST(SignalReentrancy, DisconnectingALaterConnectionPreventsItsCall) {
  log_t log;
  receiver_t a("a", log), b("b", log), c("c", log);
  signal_t<int> s;
  s.connect(&a, &receiver_t::on_int);
  s.connect(&b, &receiver_t::on_int);
  s.connect(&c, &receiver_t::on_int);
  a.action = [&] { s.disconnect(&b, &receiver_t::on_int); };
  s(1);
  EXPECT_EQ((log_t{"a:1", "c:1"}), log);
}

TEST(SignalReentrancy, AConnectionMadeDuringAnEmissionIsCalledInIt) {
  log_t log;
  receiver_t a("a", log), b("b", log), late("late", log);
  bool late_connected = false;
  signal_t<int> s;
  s.connect(&a, &receiver_t::on_int);
  s.connect(&b, &receiver_t::on_int);
  a.action = [&] {
    if (late_connected) return;
    late_connected = true;
    s.connect(&late, &receiver_t::on_int);
  };
  s(1);
  EXPECT_EQ((log_t{"a:1", "b:1", "late:1"}), log);
}

TEST(SignalReentrancy, ANestedEmissionLeavesTheCleanupToTheOuterOne) {
  log_t log;
  receiver_t a("a", log), b("b", log);
  signal_t<int> s;
  s.connect(&a, &receiver_t::on_int);
  s.connect(&b, &receiver_t::on_int);
  std::size_t after_nested = 0;
  a.action = [&] {
    s.disconnect(&a, &receiver_t::on_int);
    s(2);  // nested: a is no longer called
    after_nested = s.connection_count();
  };
  s(1);
  EXPECT_EQ((log_t{"a:1", "b:2", "b:1"}), log);
  EXPECT_EQ(2u, after_nested);
  EXPECT_EQ(1u, s.connection_count());
}

TEST(SignalReentrancy, ASignalDestroyedByItsHandlerEndsTheEmission) {
  log_t log;
  receiver_t a("a", log), b("b", log);
  auto* s = new signal_t<int>;
  s->connect(&a, &receiver_t::on_int);
  s->connect(&b, &receiver_t::on_int);
  a.action = [&] { delete s; };
  (*s)(1);  // the sanitizers catch any touch of the freed signal or its mutex
  EXPECT_EQ((log_t{"a:1"}), log);
  // Both subscribers forgot it: their destruction reaches nothing freed.
}

TEST(SignalReentrancy, ASignalDestroyedInANestedEmissionIsCleanedByTheOuterOne) {
  log_t log;
  receiver_t a("a", log), b("b", log), c("c", log);
  auto* s = new signal_t<int>;
  s->connect(&a, &receiver_t::on_int);
  s->connect(&b, &receiver_t::on_int);
  s->connect(&c, &receiver_t::on_int);
  bool nested = false;
  a.action = [&] {
    if (nested) return;
    nested = true;
    (*s)(2);
  };
  b.action = [&] { delete s; };
  (*s)(1);
  EXPECT_EQ((log_t{"a:1", "a:2", "b:2"}), log);
}

TEST(SignalReentrancy, ASubscriberDestroyedDuringAnEmissionIsNotCalled) {
  log_t log;
  receiver_t a("a", log), c("c", log);
  auto* b = new receiver_t("b", log);
  signal_t<int> s, other;
  s.connect(&a, &receiver_t::on_int);
  s.connect(b, &receiver_t::on_int);
  s.connect(&c, &receiver_t::on_int);
  other.connect(b, &receiver_t::on_int);
  a.action = [&] { delete b; };
  s(1);
  EXPECT_EQ((log_t{"a:1", "c:1"}), log);
  EXPECT_EQ(2u, s.connection_count());
  EXPECT_EQ(0u, other.connection_count());
}

TEST(SignalReentrancy, AThrowingHandlerEndsTheEmissionAndLeavesTheSignalUsable) {
  log_t log;
  receiver_t a("a", log), b("b", log), c("c", log);
  signal_t<int> s;
  s.connect(&a, &receiver_t::on_int);
  s.connect(&b, &receiver_t::on_int);
  s.connect(&c, &receiver_t::on_int);
  bool thrown = false;
  b.action = [&] {
    if (thrown) return;
    thrown = true;
    s.disconnect(&a, &receiver_t::on_int);
    throw std::runtime_error("stop");
  };
  EXPECT_THROW(s(1), std::runtime_error);
  EXPECT_EQ((log_t{"a:1", "b:1"}), log);
  EXPECT_EQ(2u, s.connection_count());  // cleaned up on the way out

  // The lock was released: another thread can emit.
  log.clear();
  std::thread([&] { s(2); }).join();
  EXPECT_EQ((log_t{"b:2", "c:2"}), log);
}

// --- copies and assignment ----------------------------------------------------------------

TEST(SignalCopy, ACopyHasTheSameConnectionsAndBothAreClearedWithTheSubscriber) {
  log_t log;
  auto a = std::make_unique<receiver_t>("a", log);
  receiver_t b("b", log);
  signal_t<int> source;
  source.connect(a.get(), &receiver_t::on_int);
  source.connect(&b, &receiver_t::on_int);
  signal_t<int> copy(source);
  copy(1);
  EXPECT_EQ((log_t{"a:1", "b:1"}), log);
  a.reset();
  EXPECT_EQ(1u, source.connection_count());
  EXPECT_EQ(1u, copy.connection_count());
}

TEST(SignalCopy, AssignmentMergesExistingConnectionsFirst) {
  assert_capture_t asserts;
  log_t log;
  receiver_t a("a", log), b("b", log), c("c", log);
  signal_t<int> target, source;
  target.connect(&b, &receiver_t::on_int);
  target.connect(&a, &receiver_t::on_int);
  source.connect(&c, &receiver_t::on_int);
  source.connect(&a, &receiver_t::on_int);
  source.connect(&b, &receiver_t::on_const);
  target = source;
  target(1);
  EXPECT_EQ((log_t{"b:1", "a:1", "c:1", "b(const):1"}), log);
  EXPECT_TRUE(asserts.texts().empty());  // a shared connection is passed over silently
  target = target;
  EXPECT_EQ(4u, target.connection_count());
}

// --- threads ------------------------------------------------------------------------------

TEST(SignalThreads, EmissionsFromSeveralThreadsRunOneAfterTheOther) {
  struct guard_t : subscriber_base_t {
    std::atomic<int> inside{0};
    std::atomic<int> overlaps{0};
    int calls = 0;  // written only under the signal's lock
    void hit(int) {
      if (inside.fetch_add(1) != 0) ++overlaps;
      ++calls;
      inside.fetch_sub(1);
    }
  } g;
  signal_t<int> s;
  s.connect(&g, &guard_t::hit);
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&] {
      for (int i = 0; i < 2000; ++i) s(i);
    });
  }
  for (auto& t : threads) t.join();
  EXPECT_EQ(0, g.overlaps.load());
  EXPECT_EQ(8000, g.calls);
}
