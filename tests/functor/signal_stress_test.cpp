// Several threads emit a few shared signals while others connect, disconnect and destroy
// their own subscribers of them. Checks that no handler runs on a subscriber that is not
// connected (or already dying) and that nothing is left connected at the end.
#include <atomic>
#include <memory>
#include <random>
#include <thread>
#include <vector>

#include <gtest/gtest.h>
#include <quillon2/core/functor/signal.hpp>

namespace {

using quillon2::_internal::signal_t;
using quillon2::_internal::subscriber_base_t;

constexpr int signal_count = 4;
constexpr int emitters = 3;
constexpr int churners = 3;
// 60,000 connects, disconnects, creations and destructions, and at least 40,000
// emissions that overlap them.
constexpr int churn_operations = 20000;  // per churning thread
constexpr int least_emissions = 40000;   // in all

std::atomic<long> g_calls{0};
std::atomic<long> g_wrong_calls{0};

class subscriber_t : public subscriber_base_t {
 public:
  ~subscriber_t() override {
    // Waits for running emissions, so that none reaches the members below after this.
    disconnect_all_signals();
    m_dead = true;
  }

  void on_emit(int signal, std::shared_ptr<int> payload) {
    ++g_calls;
    bool const wrong = m_dead.load() || (m_connected.load() & (1u << signal)) == 0 ||
                       payload == nullptr || *payload != signal;
    if (wrong) ++g_wrong_calls;
  }

  // The owner sets the bit before it connects and clears it after it disconnects.
  std::atomic<unsigned> m_connected{0};
  std::atomic<bool> m_dead{false};
};

}  // namespace

TEST(SignalStress, EmitConnectDisconnectAndDestroyFromManyThreads) {
  std::vector<std::unique_ptr<signal_t<int, std::shared_ptr<int>>>> signals;
  for (int i = 0; i < signal_count; ++i) {
    signals.push_back(std::make_unique<signal_t<int, std::shared_ptr<int>>>());
  }
  std::atomic<int> churning{churners};
  std::atomic<int> emitting{emitters};
  std::atomic<int> emissions{0};
  std::atomic<int> changes{0};
  // Neither side runs more than a window ahead of the other (two emissions per change),
  // so that on a machine with few cores the changes really overlap the emissions.
  constexpr int window = 500;

  std::vector<std::thread> threads;
  for (int e = 0; e < emitters; ++e) {
    threads.emplace_back([&, e] {
      std::minstd_rand random(e + 1);
      std::vector<std::shared_ptr<int>> payloads;
      for (int i = 0; i < signal_count; ++i) payloads.push_back(std::make_shared<int>(i));
      while (churning.load() > 0 || emissions.load() < least_emissions) {
        while (emissions.load() > changes.load() * 2 + window && churning.load() > 0) {
          std::this_thread::yield();
        }
        int const i = static_cast<int>(random() % signal_count);
        (*signals[i])(i, payloads[i]);
        ++emissions;
      }
      --emitting;
    });
  }
  for (int c = 0; c < churners; ++c) {
    threads.emplace_back([&, c] {
      std::minstd_rand random(100 + c);
      std::vector<std::unique_ptr<subscriber_t>> mine;
      for (int op = 0; op < churn_operations; ++op, ++changes) {
        while (changes.load() * 2 > emissions.load() + window && emitting.load() > 0) {
          std::this_thread::yield();
        }
        switch (random() % 4) {
          case 0:  // a new subscriber
            mine.push_back(std::make_unique<subscriber_t>());
            break;
          case 1:  // destroy one, connected or not
            if (!mine.empty()) {
              std::size_t const k = random() % mine.size();
              mine.erase(mine.begin() + static_cast<long>(k));
            }
            break;
          default: {  // connect or disconnect one
            if (mine.empty()) break;
            subscriber_t& s = *mine[random() % mine.size()];
            int const i = static_cast<int>(random() % signal_count);
            unsigned const bit = 1u << i;
            if (s.m_connected.load() & bit) {
              signals[i]->disconnect(&s, &subscriber_t::on_emit);
              s.m_connected.fetch_and(~bit);
            } else {
              s.m_connected.fetch_or(bit);
              signals[i]->connect(&s, &subscriber_t::on_emit);
            }
          }
        }
      }
      mine.clear();
      --churning;
    });
  }
  for (auto& t : threads) t.join();

  EXPECT_GE(emissions.load(), least_emissions);
  EXPECT_GT(g_calls.load(), 0);
  EXPECT_EQ(0, g_wrong_calls.load());
  for (auto& s : signals) EXPECT_EQ(0u, s->connection_count());
}
