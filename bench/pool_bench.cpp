// The pool allocator against glibc's malloc/free and boost::pool, on one thread.
//   pool_pair/<peer>/<size>:  one allocation and its release, again and again
//   pool_batch/<peer>/<size>: 1000 allocations, then their release in the same order
#include <cstdlib>
#include <vector>

#include <benchmark/benchmark.h>
#include <boost/pool/pool.hpp>

#include <quillon2/core/pool_allocator.hpp>

namespace {

bool quick() { return std::getenv("Q2_BENCH_QUICK") != nullptr; }

std::size_t batch_size() { return quick() ? 100 : 1000; }

struct ours_t {
  explicit ours_t(std::size_t size) : m_size(size) {}
  void* allocate() { return quillon2::alloc::pool_allocate(m_size); }
  void release(void* block) { quillon2::alloc::pool_deallocate(block, m_size); }
  std::size_t m_size;
};

struct malloc_t {
  explicit malloc_t(std::size_t size) : m_size(size) {}
  void* allocate() { return std::malloc(m_size); }
  void release(void* block) { std::free(block); }
  std::size_t m_size;
};

struct boost_pool_t {
  explicit boost_pool_t(std::size_t size) : m_pool(size) {}
  void* allocate() { return m_pool.malloc(); }
  void release(void* block) { m_pool.free(block); }
  boost::pool<> m_pool;
};

template <class Allocator>
void pool_pair(benchmark::State& state) {
  Allocator allocator(static_cast<std::size_t>(state.range(0)));
  for (auto _ : state) {
    void* block = allocator.allocate();
    benchmark::DoNotOptimize(block);
    allocator.release(block);
  }
  state.SetItemsProcessed(state.iterations());
}

template <class Allocator>
void pool_batch(benchmark::State& state) {
  Allocator allocator(static_cast<std::size_t>(state.range(0)));
  std::vector<void*> blocks(batch_size());
  for (auto _ : state) {
    for (auto& block : blocks) block = allocator.allocate();
    benchmark::DoNotOptimize(blocks.data());
    for (auto* block : blocks) allocator.release(block);
  }
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(blocks.size()));
}

void sizes(benchmark::internal::Benchmark* b) {
  for (int size : {16, 32, 64, 128, 256}) b->Arg(size);
}

BENCHMARK(pool_pair<ours_t>)->Name("pool_pair/ours")->Apply(sizes);
BENCHMARK(pool_pair<malloc_t>)->Name("pool_pair/malloc")->Apply(sizes);
BENCHMARK(pool_pair<boost_pool_t>)->Name("pool_pair/boost_pool")->Apply(sizes);
BENCHMARK(pool_batch<ours_t>)->Name("pool_batch/ours")->Apply(sizes);
BENCHMARK(pool_batch<malloc_t>)->Name("pool_batch/malloc")->Apply(sizes);
BENCHMARK(pool_batch<boost_pool_t>)->Name("pool_batch/boost_pool")->Apply(sizes);

}  // namespace
