// The pool and the counted objects under sustained load from several threads.
#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <cstring>
#include <deque>
#include <mutex>
#include <random>
#include <thread>
#include <vector>

#include <boost/thread/barrier.hpp>
#include <gtest/gtest.h>

#include <quillon2/core/object_interface.hpp>
#include <quillon2/core/pool_allocator.hpp>

namespace {

using namespace quillon2;

// Blocks cross threads: each producer fills blocks with a pattern of its own and hands
// them over; the consumers check the pattern and return the blocks to the pool, so
// that pages empty out from threads other than the one that cut them.
TEST(PoolStress, BlocksFreedOnOtherThreadsStayIntact) {
  constexpr int producers = 2;
  constexpr int consumers = 2;
  constexpr int blocks_per_producer = 200000;

  struct block_t {
    unsigned char* data;
    std::uint64_t size;
    unsigned char fill;
  };
  std::mutex mutex;
  std::condition_variable ready;
  std::deque<block_t> queue;
  int producers_left = producers;
  std::atomic<long> damaged{0};
  boost::barrier start(producers + consumers);

  auto produce = [&](int id) {
    std::mt19937 random(id + 7);
    start.wait();
    for (int i = 0; i < blocks_per_producer; ++i) {
      std::uint64_t size = 1 + random() % 200;
      if (random() % 5000 == 0) size = 0x80000 + random() % 4096;
      auto fill = static_cast<unsigned char>(random());
      auto* data = static_cast<unsigned char*>(alloc::pool_allocate(size));
      std::memset(data, fill, size);
      if (random() % 2 == 0) {  // some blocks die on the thread that made them
        for (std::uint64_t b = 0; b < size; ++b) damaged += data[b] != fill;
        alloc::pool_deallocate(data, size);
        continue;
      }
      std::lock_guard<std::mutex> guard(mutex);
      queue.push_back({data, size, fill});
      ready.notify_one();
    }
    std::lock_guard<std::mutex> guard(mutex);
    --producers_left;
    ready.notify_all();
  };
  auto consume = [&] {
    start.wait();
    for (;;) {
      block_t block;
      {
        std::unique_lock<std::mutex> lock(mutex);
        ready.wait(lock, [&] { return !queue.empty() || producers_left == 0; });
        if (queue.empty()) return;
        block = queue.front();
        queue.pop_front();
      }
      for (std::uint64_t b = 0; b < block.size; ++b) damaged += block.data[b] != block.fill;
      alloc::pool_deallocate(block.data, block.size);
    }
  };

  std::vector<std::thread> threads;
  for (int id = 0; id < producers; ++id) threads.emplace_back(produce, id);
  for (int id = 0; id < consumers; ++id) threads.emplace_back(consume);
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(0, damaged.load());
}

struct payload_t : object_interface_t {
  explicit payload_t(int v) : value(v) { ++living; }
  ~payload_t() override { --living; }
  int value;
  static inline std::atomic<int> living{0};
};

// Threads share and drop counted objects at random; every object must die exactly
// once, when its last pointer goes, whichever thread holds it.
TEST(PoolStress, SharedObjectsDieOnceWhateverThreadDropsThem) {
  constexpr int thread_count = 4;
  constexpr int rounds = 100000;
  constexpr int slots = 64;
  std::vector<sptr_t<payload_t>> shared(slots);
  std::vector<std::mutex> slot_mutex(slots);
  std::atomic<long> wrong{0};
  boost::barrier start(thread_count);

  auto work = [&](int id) {
    std::mt19937 random(id + 1);
    std::vector<sptr_t<payload_t>> mine;
    start.wait();
    for (int round = 0; round < rounds; ++round) {
      int const slot = static_cast<int>(random() % slots);
      switch (random() % 4) {
        case 0: {  // replace the shared object
          sptr_t<payload_t> fresh(new ref_counted_t<payload_t>(slot));
          std::lock_guard<std::mutex> guard(slot_mutex[slot]);
          shared[slot] = fresh;
          break;
        }
        case 1: {  // take a reference of one's own
          std::lock_guard<std::mutex> guard(slot_mutex[slot]);
          if (shared[slot]) mine.push_back(shared[slot]);
          break;
        }
        case 2:  // drop one's own references
          if (!mine.empty()) {
            wrong += mine.back()->value < 0 || mine.back()->value >= slots;
            mine.pop_back();
          }
          break;
        default: {  // clear the slot
          std::lock_guard<std::mutex> guard(slot_mutex[slot]);
          shared[slot].reset();
        }
      }
      if (mine.size() > 32) mine.erase(mine.begin(), mine.begin() + 16);
    }
  };
  std::vector<std::thread> threads;
  for (int id = 0; id < thread_count; ++id) threads.emplace_back(work, id);
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(0, wrong.load());
  for (auto& p : shared) p.reset();
  EXPECT_EQ(0, payload_t::living.load());
}

}  // namespace
