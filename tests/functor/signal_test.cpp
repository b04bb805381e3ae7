// Signals: order of calls, either end dying first, changes, deaths and exceptions during
// an emission, copies.
#include <functional>
#include <memory>
#include <stdexcept>

#include <quillon2/core/functor/signal.hpp>

#include "core/core_support.hpp"

namespace {

using quillon2::_internal::signal_t;
using quillon2::_internal::subscriber_base_t;
using log_t = std::vector<std::string>;

// Records its calls in a shared log; `action` runs inside the handler.
struct receiver_t : subscriber_base_t {
  receiver_t(std::string n, log_t& l) : name(std::move(n)), log(l) {}
  void on_int(int v) {
    log.push_back(name + ":" + std::to_string(v));
    if (action) action();
  }
  void on_text(std::string text) { log.push_back(name + ":" + (text += "!")); }
  void on_two(int a, std::string const& b) { log.push_back(name + ":" + std::to_string(a) + b); }
  void on_const(int v) const { log.push_back(name + "(const):" + std::to_string(v)); }

  std::string name;
  log_t& log;
  std::function<void()> action;
};
struct derived_t : receiver_t {
  using receiver_t::receiver_t;
};

class SignalTest : public ::testing::Test {
 protected:
  void connect_all(signal_t<int>& s) {
    for (auto* r : {&a, &b, &c}) s.connect(r, &receiver_t::on_int);
  }

  q2test::assert_recorder_t asserts;
  log_t log;
  receiver_t a{"a", log}, b{"b", log}, c{"c", log};
};

TEST_F(SignalTest, CallsConnectionsInOrderEachWithItsOwnCopyOfTheArguments) {
  signal_t<int, std::string const&> two;
  two.connect(&b, &receiver_t::on_two);
  two.connect(&a, &receiver_t::on_two);
  two(7, "x");
  signal_t<std::string> text;
  text.connect(&a, &receiver_t::on_text);
  text.connect(&b, &receiver_t::on_text);  // sees "hi", not a's changed copy
  text("hi");
  derived_t d("d", log);
  signal_t<int> one;
  one.connect(&d, &receiver_t::on_int);  // a method of a base class
  one.connect(&d, &receiver_t::on_const);
  one(1);
  EXPECT_EQ((log_t{"b:7x", "a:7x", "a:hi!", "b:hi!", "d:1", "d(const):1"}), log);
}

TEST_F(SignalTest, ReportsDuplicateUnknownAndSelfConnectionsAndChangesNothing) {
  signal_t<int> s;
  s.connect(&a, &receiver_t::on_int);
  s.connect(&a, &receiver_t::on_int);
  s.disconnect(&b, &receiver_t::on_int);
  s.connect(s);
  s(1);
  EXPECT_EQ((log_t{"a:1"}), log);
  EXPECT_EQ((log_t{"signal_t::_insert: this connection is already exists.",
                   "subscriber_found && \"signal_t::disconnect: attempt to disconnect unknown "
                   "connection\"",
                   "static_cast<subscriber_base_t*>(this) != subscriberObj"}),
            asserts.conditions());
}

TEST_F(SignalTest, EitherEndMayDieFirst) {
  signal_t<int> kept;
  auto doomed = std::make_unique<receiver_t>("doomed", log);
  kept.connect(doomed.get(), &receiver_t::on_int);
  kept.connect(doomed.get(), &receiver_t::on_const);
  kept.connect(&a, &receiver_t::on_int);
  {
    signal_t<int> gone, forwarder;
    gone.connect(doomed.get(), &receiver_t::on_int);
    gone.connect(&b, &receiver_t::on_int);
    forwarder.connect(gone);  // a signal connected to a signal
    kept.connect(forwarder);
    kept(1);
  }
  kept.disconnect(doomed.get(), &receiver_t::on_int);
  doomed.reset();  // still finds `kept` through the connection that is left
  kept(2);
  EXPECT_EQ((log_t{"doomed:1", "doomed(const):1", "a:1", "doomed:1", "b:1", "a:2"}), log);
  EXPECT_EQ(1u, kept.connection_count());
}

TEST_F(SignalTest, ChangesDuringAnEmissionTakeEffectInIt) {
  signal_t<int> s;
  connect_all(s);
  receiver_t late("late", log);
  std::size_t during = 0;
  b.action = [&] {
    if (during != 0) return;
    s.disconnect(&b, &receiver_t::on_int);  // itself
    s.disconnect(&c, &receiver_t::on_int);  // one further down
    s.connect(&late, &receiver_t::on_int);  // called after all earlier ones
    during = s.connection_count();
  };
  s(1);
  s(2);
  EXPECT_EQ((log_t{"a:1", "b:1", "late:1", "a:2", "late:2"}), log);
  EXPECT_EQ(4u, during);                // cleared nodes stay while the emission runs...
  EXPECT_EQ(2u, s.connection_count());  // ...and are gone after it
}

TEST_F(SignalTest, ANestedEmissionLeavesTheCleanupToTheOuterOne) {
  signal_t<int> s;
  connect_all(s);
  std::size_t after_nested = 0;
  a.action = [&] {
    s.disconnect(&a, &receiver_t::on_int);
    s(2);  // a is not called here
    after_nested = s.connection_count();
  };
  s(1);
  EXPECT_EQ((log_t{"a:1", "b:2", "c:2", "b:1", "c:1"}), log);
  EXPECT_EQ(3u, after_nested);
  EXPECT_EQ(2u, s.connection_count());
}

// The sanitizers catch any touch of the freed signal, its mutex or the freed subscriber.
TEST_F(SignalTest, WhatAHandlerDestroysIsNotTouchedAgain) {
  auto* s = new signal_t<int>;
  connect_all(*s);
  bool nested = false;
  a.action = [&] {  // the outermost emission releases the mutex
    if (nested) return;
    nested = true;
    (*s)(2);
  };
  b.action = [&] { delete s; };
  (*s)(1);
  EXPECT_EQ((log_t{"a:1", "a:2", "b:2"}), log);

  log.clear();
  signal_t<int> mine, other;
  auto* doomed = new receiver_t("doomed", log);
  mine.connect(&b, &receiver_t::on_int);
  mine.connect(doomed, &receiver_t::on_int);
  mine.connect(&c, &receiver_t::on_int);
  other.connect(doomed, &receiver_t::on_int);
  b.action = [&] { delete doomed; };
  mine(1);
  EXPECT_EQ((log_t{"b:1", "c:1"}), log);
  EXPECT_EQ(2u, mine.connection_count());
  EXPECT_EQ(0u, other.connection_count());
}

TEST_F(SignalTest, AThrowingHandlerEndsTheEmissionAndReleasesTheSignal) {
  signal_t<int> s;
  connect_all(s);
  bool thrown = false;
  b.action = [&] {
    if (thrown) return;
    thrown = true;
    s.disconnect(&a, &receiver_t::on_int);
    throw std::runtime_error("stop");
  };
  EXPECT_THROW(s(1), std::runtime_error);
  EXPECT_EQ(2u, s.connection_count());  // cleaned on the way out
  std::thread([&] { s(2); }).join();    // the lock was released
  EXPECT_EQ((log_t{"a:1", "b:1", "b:2", "c:2"}), log);
}

TEST_F(SignalTest, ACopyTakesTheConnectionsAndAssignmentMergesThem) {
  auto doomed = std::make_unique<receiver_t>("doomed", log);
  signal_t<int> source;
  source.connect(doomed.get(), &receiver_t::on_int);
  source.connect(&a, &receiver_t::on_int);
  signal_t<int> copy(source);
  signal_t<int> target;
  target.connect(&b, &receiver_t::on_int);
  target.connect(&a, &receiver_t::on_int);
  target = source;  // a is there already: passed over silently
  target = target;
  copy(1);
  target(2);
  EXPECT_EQ((log_t{"doomed:1", "a:1", "b:2", "a:2", "doomed:2"}), log);
  EXPECT_TRUE(asserts.conditions().empty());
  doomed.reset();  // leaves every copy
  EXPECT_EQ(1u, copy.connection_count());
  EXPECT_EQ(2u, target.connection_count());
}

}  // namespace
