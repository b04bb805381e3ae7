// The scheduler under load and on the clock, beside the obvious alternatives:
// - sched_throughput: batches of 1,000 and 100,000 tasks of one empty stage through
//   "service", all queued at once, against boost::asio::thread_pool (as many threads)
//   posting an empty lambda. The time per task must not grow with the batch.
// - sched_latency: from add_task to the stage running on an idle worker (the median of
//   64 hand-overs), against a condition-variable ping-pong between two threads (the
//   floor for waking a thread) and against a post to boost::asio::thread_pool.
// - delay_1ms_p99: the 99th percentile of the time from add_task to the completion of
//   a task whose only stage is a 1 ms delay, against a 1 ms boost::asio::steady_timer.
#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <mutex>
#include <thread>
#include <vector>

#include <benchmark/benchmark.h>
#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/asio/thread_pool.hpp>
#include <boost/make_shared.hpp>

#include "countdown.hpp"

#include <quillon2/core/functor/signal.hpp>
#include <quillon2/core/threading/scheduler.hpp>
#include <quillon2/core/threading/scheduler_impl.hpp>
#include <quillon2/core/threading/stage.hpp>
#include <quillon2/core/threading/task.hpp>
#include <quillon2/core/threading/units/thread_pool_unit.hpp>

namespace {

using namespace quillon2::threading;
using clock_type = std::chrono::steady_clock;
using task_ptr = boost::shared_ptr<task_t>;

bool quick() { return std::getenv("Q2_BENCH_QUICK") != nullptr; }

unsigned service_threads() { return std::min(thread_pool_unit_t::MaxThreads, 16u); }

using q2_bench::countdown_t;

// A task that is its own work: its one stage calls run.
class bench_task_t : public default_task_t, public quillon2::_internal::subscriber_base_t {
 public:
  explicit bench_task_t(countdown_t& countdown) : m_countdown(countdown) {}
  ~bench_task_t() override { disconnect_all_signals(); }
  void run(task_ptr) { m_countdown.done_one(); }

 private:
  countdown_t& m_countdown;
};

boost::shared_ptr<task_t> make_bench_task(countdown_t& countdown, std::wstring const& unit) {
  auto task = boost::make_shared<bench_task_t>(countdown);
  task->set_display_name("bench");
  quillon2::_internal::signal_t<task_ptr> work;
  work.connect(task.get(), &bench_task_t::run);
  task->push_stage(boost::make_shared<stage_t>(unit, work));
  return task;
}

// The group of the benchmark's tasks.
std::wstring const bench_group = L"bench";

// Waits until the scheduler holds no task of the benchmark any more. The query stops at
// the first task it finds, so waiting does not copy the table over and over.
void drain(scheduler_t& scheduler) {
  std::wstring group = bench_group;
  while (scheduler.is_known_group(group)) std::this_thread::yield();
}

// --- Throughput ----------------------------------------------------------------------

long throughput_batch(benchmark::State const& state) {
  return quick() ? std::min<long>(500, state.range(0)) : state.range(0);
}

void sched_throughput_ours(benchmark::State& state) {
  long const batch = throughput_batch(state);
  auto scheduler = create_default_scheduler(nullptr, nullptr, true);
  countdown_t countdown;
  for (auto _ : state) {
    countdown.reset(batch);
    for (long i = 0; i < batch; ++i) {
      scheduler->add_task(make_bench_task(countdown, unit_service), bench_group);
    }
    countdown.wait();
    drain(*scheduler);
  }
  state.SetItemsProcessed(state.iterations() * batch);
  state.SetComplexityN(batch);
}

void sched_throughput_asio(benchmark::State& state) {
  long const batch = throughput_batch(state);
  boost::asio::thread_pool pool(service_threads());
  countdown_t countdown;
  for (auto _ : state) {
    countdown.reset(batch);
    for (long i = 0; i < batch; ++i) {
      boost::asio::post(pool, [&countdown] { countdown.done_one(); });
    }
    countdown.wait();
  }
  state.SetItemsProcessed(state.iterations() * batch);
  state.SetComplexityN(batch);
  pool.join();
}

// Enough time per figure that a batch of 100,000 runs several times.
BENCHMARK(sched_throughput_ours)
    ->Name("sched_throughput/ours")
    ->Arg(1000)
    ->Arg(100000)
    ->MinTime(1.0)
    ->Complexity(benchmark::oN)
    ->UseRealTime();
BENCHMARK(sched_throughput_asio)
    ->Name("sched_throughput/asio_thread_pool")
    ->Arg(1000)
    ->Arg(100000)
    ->MinTime(1.0)
    ->Complexity(benchmark::oN)
    ->UseRealTime();

// --- Latency from submission to running ----------------------------------------------

// One hand-over at a time: the submitting side stamps the time, the running side
// stamps it again and says so.
class handover_t {
 public:
  void start() {
    std::lock_guard<std::mutex> guard(m_mutex);
    m_arrived = false;
    m_sent = clock_type::now();
  }
  void arrive() {
    auto const now = clock_type::now();
    std::lock_guard<std::mutex> guard(m_mutex);
    m_received = now;
    m_arrived = true;
    m_cv.notify_one();
  }
  double wait_seconds() {
    std::unique_lock<std::mutex> lock(m_mutex);
    m_cv.wait(lock, [&] { return m_arrived; });
    return std::chrono::duration<double>(m_received - m_sent).count();
  }

 private:
  std::mutex m_mutex;
  std::condition_variable m_cv;
  bool m_arrived = false;
  clock_type::time_point m_sent, m_received;
};

class latency_task_t : public default_task_t, public quillon2::_internal::subscriber_base_t {
 public:
  explicit latency_task_t(handover_t& handover) : m_handover(handover) {}
  ~latency_task_t() override { disconnect_all_signals(); }
  void run(task_ptr) { m_handover.arrive(); }

 private:
  handover_t& m_handover;
};

// Each iteration takes a number of hand-overs and reports their median, so that a
// preemption by another process on a busy machine does not decide the figure. A pause
// before each hand-over lets the receiving thread fall asleep for real, so that every
// variant pays for waking a sleeping thread, which is what the figure is about.
std::size_t latency_samples() { return quick() ? 5 : 64; }

template <typename OneSample>
void measure_latency(benchmark::State& state, OneSample one_sample) {
  std::vector<double> samples;
  for (auto _ : state) {
    samples.clear();
    for (std::size_t i = 0; i < latency_samples(); ++i) {
      std::this_thread::sleep_for(std::chrono::microseconds(200));
      samples.push_back(one_sample());
    }
    std::nth_element(samples.begin(), samples.begin() + samples.size() / 2, samples.end());
    state.SetIterationTime(samples[samples.size() / 2]);
  }
}

void sched_latency_ours(benchmark::State& state) {
  auto scheduler = create_default_scheduler(nullptr, nullptr, true);
  handover_t handover;
  measure_latency(state, [&] {
    auto task = boost::make_shared<latency_task_t>(handover);
    task->set_display_name("latency");
    quillon2::_internal::signal_t<task_ptr> work;
    work.connect(task.get(), &latency_task_t::run);
    task->push_stage(boost::make_shared<stage_t>(unit_service, work));
    handover.start();
    scheduler->add_task(task, std::wstring());
    double const latency = handover.wait_seconds();
    while (scheduler->is_known_task(task)) std::this_thread::yield();
    return latency;
  });
}

void sched_latency_cv(benchmark::State& state) {
  handover_t handover;
  std::mutex mutex;
  std::condition_variable cv;
  bool go = false, stop = false;
  std::thread partner([&] {
    std::unique_lock<std::mutex> lock(mutex);
    for (;;) {
      cv.wait(lock, [&] { return go || stop; });
      if (stop) return;
      go = false;
      handover.arrive();
    }
  });
  measure_latency(state, [&] {
    handover.start();
    {
      std::lock_guard<std::mutex> guard(mutex);
      go = true;
    }
    cv.notify_one();
    return handover.wait_seconds();
  });
  {
    std::lock_guard<std::mutex> guard(mutex);
    stop = true;
  }
  cv.notify_one();
  partner.join();
}

void sched_latency_asio(benchmark::State& state) {
  boost::asio::thread_pool pool(service_threads());
  handover_t handover;
  measure_latency(state, [&] {
    handover.start();
    boost::asio::post(pool, [&handover] { handover.arrive(); });
    return handover.wait_seconds();
  });
  pool.join();
}

// A fixed count of iterations: each one takes many hand-overs but reports one median.
BENCHMARK(sched_latency_ours)->Name("sched_latency/ours")->UseManualTime()->Iterations(60);
BENCHMARK(sched_latency_cv)->Name("sched_latency/cv_pingpong")->UseManualTime()->Iterations(60);
BENCHMARK(sched_latency_asio)
    ->Name("sched_latency/asio_thread_pool")
    ->UseManualTime()
    ->Iterations(60);

// --- A 1 ms delay, 99th percentile ---------------------------------------------------

double p99(std::vector<double>& samples) {
  std::sort(samples.begin(), samples.end());
  std::size_t const index = (samples.size() * 99 + 99) / 100 - 1;
  return samples[std::min(index, samples.size() - 1)];
}

std::size_t delay_samples() { return quick() ? 5 : 200; }

// Stamps the completion of the task it waits for.
class completion_clock_t : public scheduler_status_callback_t {
 public:
  void expect(task_ptr const& task) {
    std::lock_guard<std::mutex> guard(m_mutex);
    m_task = task;
    m_done = false;
  }
  void task_completed(task_ptr task) override {
    auto const now = clock_type::now();
    std::lock_guard<std::mutex> guard(m_mutex);
    if (task != m_task) return;
    m_at = now;
    m_done = true;
    m_cv.notify_one();
  }
  clock_type::time_point wait() {
    std::unique_lock<std::mutex> lock(m_mutex);
    m_cv.wait(lock, [&] { return m_done; });
    m_task.reset();
    return m_at;
  }

 private:
  std::mutex m_mutex;
  std::condition_variable m_cv;
  task_ptr m_task;
  bool m_done = false;
  clock_type::time_point m_at;
};

void delay_p99_ours(benchmark::State& state) {
  auto clock = boost::make_shared<completion_clock_t>();
  auto scheduler = create_default_scheduler(clock, nullptr, true);
  std::vector<double> samples;
  for (auto _ : state) {
    samples.clear();
    for (std::size_t i = 0; i < delay_samples(); ++i) {
      auto task = boost::make_shared<default_task_t>();
      task->push_stage(boost::make_shared<stage_t>(unit_delay_tasks, 1));
      clock->expect(task);
      auto const start = clock_type::now();
      scheduler->add_task(task, std::wstring());
      samples.push_back(std::chrono::duration<double>(clock->wait() - start).count());
    }
    state.SetIterationTime(p99(samples));
  }
}

void delay_p99_asio(benchmark::State& state) {
  boost::asio::io_context io;
  auto guard = boost::asio::make_work_guard(io);
  std::thread runner([&io] { io.run(); });
  boost::asio::steady_timer timer(io);
  handover_t handover;
  std::vector<double> samples;
  for (auto _ : state) {
    samples.clear();
    for (std::size_t i = 0; i < delay_samples(); ++i) {
      handover.start();
      boost::asio::post(io, [&] {
        timer.expires_after(std::chrono::milliseconds(1));
        timer.async_wait([&](boost::system::error_code const&) { handover.arrive(); });
      });
      samples.push_back(handover.wait_seconds());
    }
    state.SetIterationTime(p99(samples));
  }
  guard.reset();
  runner.join();
}

BENCHMARK(delay_p99_ours)->Name("delay_1ms_p99/ours")->UseManualTime()->Iterations(5);
BENCHMARK(delay_p99_asio)->Name("delay_1ms_p99/asio_steady_timer")->UseManualTime()->Iterations(5);

}  // namespace
