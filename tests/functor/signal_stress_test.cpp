// Threads emit a few shared signals while others connect, disconnect and destroy their
// own subscribers of them: no handler may run on a subscriber that is not connected or
// already dying, and nothing may stay connected at the end.
#include <atomic>
#include <memory>
#include <random>

#include <quillon2/core/functor/signal.hpp>

#include "core/core_support.hpp"

namespace {

using quillon2::_internal::signal_t;
using signal_type = signal_t<int, std::shared_ptr<int>>;

std::atomic<long> g_calls{0}, g_wrong_calls{0};

struct subscriber_t : quillon2::_internal::subscriber_base_t {
  ~subscriber_t() override {
    disconnect_all_signals();  // waits for running emissions
    dead = true;
  }
  void on_emit(int signal, std::shared_ptr<int> payload) {
    ++g_calls;
    if (dead || !(connected.load() & (1u << signal)) || *payload != signal) ++g_wrong_calls;
  }
  std::atomic<unsigned> connected{0};  // set before connecting, cleared after disconnecting
  std::atomic<bool> dead{false};
};

}  // namespace

TEST(SignalStress, EmitConnectDisconnectAndDestroyFromManyThreads) {
  // 3 x 20,000 changes and at least 40,000 emissions: 100,000 operations.
  constexpr int signals_n = 4, emitters = 3, churners = 3, changes_each = 20000;
  constexpr int least_emissions = 40000, window = 500;
  std::vector<signal_type> signals(signals_n);
  std::atomic<int> churning{churners}, emitting{emitters}, emissions{0}, changes{0};

  q2test::on_threads(emitters + churners, [&](int t) {
    std::minstd_rand random(t + 1);
    if (t < emitters) {
      std::vector<std::shared_ptr<int>> payloads;
      for (int i = 0; i < signals_n; ++i) payloads.push_back(std::make_shared<int>(i));
      while (churning > 0 || emissions < least_emissions) {
        // Neither side runs far ahead, so that on few cores changes overlap emissions.
        while (emissions > changes * 2 + window && churning > 0) std::this_thread::yield();
        int const i = static_cast<int>(random() % signals_n);
        signals[i](i, payloads[i]);
        ++emissions;
      }
      --emitting;
      return;
    }
    std::vector<std::unique_ptr<subscriber_t>> mine;
    for (int op = 0; op < changes_each; ++op, ++changes) {
      while (changes * 2 > emissions + window && emitting > 0) std::this_thread::yield();
      auto const choice = random() % 4;
      if (choice == 0) {
        mine.push_back(std::make_unique<subscriber_t>());
      } else if (mine.empty()) {
        continue;
      } else if (choice == 1) {
        mine.erase(mine.begin() + static_cast<long>(random() % mine.size()));
      } else {
        subscriber_t& s = *mine[random() % mine.size()];
        int const i = static_cast<int>(random() % signals_n);
        if (s.connected & (1u << i)) {
          signals[i].disconnect(&s, &subscriber_t::on_emit);
          s.connected &= ~(1u << i);
        } else {
          s.connected |= 1u << i;
          signals[i].connect(&s, &subscriber_t::on_emit);
        }
      }
    }
    mine.clear();
    --churning;
  });

  EXPECT_GT(g_calls.load(), 0);
  EXPECT_EQ(0, g_wrong_calls.load());
  for (auto& s : signals) EXPECT_EQ(0u, s.connection_count());
}

TEST(SignalStress, SignalsMadeOnOneThreadDieOnOthersThatComeAndGo) {
  // A producer hands signals, each connected to a subscriber, to short-lived consumer
  // threads that emit and destroy them: their parts travel between threads in batches,
  // and what a thread still holds when it ends must serve the next ones.
  constexpr int rounds = 3, per_round = 3000, consumers = 2;
  std::atomic<long> calls{0};
  struct counter_t : quillon2::_internal::subscriber_base_t {
    explicit counter_t(std::atomic<long>& c) : count(c) {}
    ~counter_t() override { disconnect_all_signals(); }
    void on_emit(int, std::shared_ptr<int>) { ++count; }
    std::atomic<long>& count;
  } counter(calls);
  for (int round = 0; round < rounds; ++round) {
    std::vector<std::unique_ptr<signal_type>> made;
    for (int i = 0; i < per_round; ++i) {
      made.push_back(std::make_unique<signal_type>());
      made.back()->connect(&counter, &counter_t::on_emit);
      signal_type copy(*made.back());  // a second part made and dropped on this thread
    }
    q2test::on_threads(consumers, [&](int t) {
      auto const payload = std::make_shared<int>(t);
      for (std::size_t i = static_cast<std::size_t>(t); i < made.size(); i += consumers) {
        (*made[i])(t, payload);
        made[i].reset();
      }
    });
  }
  EXPECT_EQ(long{rounds} * per_round, calls.load());
  signal_type last;
  last.connect(&counter, &counter_t::on_emit);
  last(0, std::make_shared<int>(0));
  EXPECT_EQ(long{rounds} * per_round + 1, calls.load());
}
