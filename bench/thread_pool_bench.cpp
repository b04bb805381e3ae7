// Throughput of a thread-pool unit of 2 workers running 1,000,000 empty jobs (a
// subscriber that adds a number), beside boost::asio::thread_pool posting the same work.
// Each iteration posts every job from this thread and waits for the last one.
#include <atomic>
#include <cstdlib>
#include <thread>

#include <benchmark/benchmark.h>
#include <boost/asio/post.hpp>
#include <boost/asio/thread_pool.hpp>
#include <boost/make_shared.hpp>

#include "countdown.hpp"

#include <quillon2/core/functor/signal.hpp>
#include <quillon2/core/threading/stage.hpp>
#include <quillon2/core/threading/task.hpp>
#include <quillon2/core/threading/units/thread_pool_unit.hpp>

namespace {

namespace qt = quillon2::threading;

constexpr unsigned workers = 2;

long job_count() { return std::getenv("Q2_BENCH_QUICK") != nullptr ? 10000 : 1000000; }

// The work of a job, and the end of it.
struct sink_t : quillon2::_internal::subscriber_base_t {
  std::atomic<long> total{0};
  q2_bench::countdown_t* completion = nullptr;
  void work(boost::shared_ptr<qt::task_t>) { total.fetch_add(1, std::memory_order_relaxed); }
  void completed(boost::shared_ptr<qt::task_t>) { completion->done_one(); }
};

void pool_unit_jobs_ours(benchmark::State& state) {
  long const jobs = job_count();
  q2_bench::countdown_t completion;
  sink_t sink;
  sink.completion = &completion;
  qt::thread_pool_unit_t unit(workers);
  unit.stage_completed.connect(&sink, &sink_t::completed);
  qt::stage_t::signal_type handler;
  handler.connect(&sink, &sink_t::work);
  auto stage = boost::make_shared<qt::stage_t>(qt::unit_service, handler);
  auto task = boost::make_shared<qt::default_task_t>();
  task->set_display_name("bench");

  for (auto _ : state) {
    completion.reset(jobs);
    for (long i = 0; i < jobs; ++i) {
      while (unit.execute(task, stage) == qt::seQueueFull) std::this_thread::yield();
    }
    completion.wait();
  }
  unit.terminate();
  state.SetItemsProcessed(state.iterations() * jobs);
}

void pool_unit_jobs_asio(benchmark::State& state) {
  long const jobs = job_count();
  q2_bench::countdown_t completion;
  sink_t sink;
  sink.completion = &completion;
  boost::asio::thread_pool pool(workers);
  auto task = boost::make_shared<qt::default_task_t>();

  for (auto _ : state) {
    completion.reset(jobs);
    for (long i = 0; i < jobs; ++i) {
      boost::asio::post(pool, [&sink, task] {
        sink.work(task);
        sink.completed(task);
      });
    }
    completion.wait();
  }
  pool.join();
  state.SetItemsProcessed(state.iterations() * jobs);
}

}  // namespace

BENCHMARK(pool_unit_jobs_ours)
    ->Name("pool_unit_jobs/ours")
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();
BENCHMARK(pool_unit_jobs_asio)
    ->Name("pool_unit_jobs/asio_thread_pool")
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();
