// thread_pool_unit_t: a queue and workers started on demand.
#include <algorithm>
#include <cstdint>
#include <string>

#include <boost/thread/condition_variable.hpp>
#include <boost/thread/mutex.hpp>
#include <boost/thread/thread.hpp>
#include <boost/weak_ptr.hpp>

#include <quillon2/core/threading/stage.hpp>
#include <quillon2/core/threading/task.hpp>
#include <quillon2/core/threading/thread_name.hpp>
#include <quillon2/core/threading/units/thread_pool_unit.hpp>

#include "core/threading/include/platform.hpp"
#include "core/threading/include/type_name.hpp"
#include "core/threading/include/unit_support.hpp"
#include "core/threading/include/word_lock.hpp"

namespace quillon2::threading {

namespace {

using internal::word_guard_t;

// How long a worker that ran out of jobs looks for the next before it goes to sleep. A
// job queued meanwhile is taken without a wake-up: no system call for the caller of
// execute, and no wait for the scheduler to bring a sleeping thread back. A worker
// looks only while that pays: once its last wait for a job took longer, it sleeps at
// once. Jobs that come far apart then cost no processor time in between, which on a
// busy machine may be the very processor that the thread adding them waits for.
constexpr std::int64_t spin_nanoseconds = 50'000;

unsigned int hardware_threads() {
  unsigned int const n = boost::thread::hardware_concurrency();
  return n == 0 ? 1 : n;
}

// Set by a unit destroyed on one of its own workers, for that worker to see on its way out.
thread_local void const* t_destroyed_by_worker = nullptr;
// Set by a unit terminated from one of its own workers, which ends after its job.
thread_local void const* t_retiring_worker = nullptr;

// Lets execute wait until a new worker runs.
struct start_gate_t {
  boost::mutex mutex;
  boost::condition_variable condition;
  bool raised = false;
};

}  // namespace

// Where one idle worker sleeps. Held by shared_ptr, so that execute can wake the worker
// after it has let go of the queue lock.
struct thread_pool_unit_t::idle_slot_t {
  // 0 while the worker sleeps, 1 once it is woken: written under the queue lock, and
  // slept on outside it.
  std::atomic<int> woken{0};

  void wake() noexcept { internal::wake_one_on_word(woken); }
};

unsigned int thread_pool_unit_t::MaxThreads = hardware_threads();

unsigned int thread_pool_unit_t::default_thread_limit() { return std::min(MaxThreads, 16u); }

thread_pool_unit_t::thread_pool_unit_t(unsigned int thread_limit) : m_thread_limit(thread_limit) {}

thread_pool_unit_t::~thread_pool_unit_t() {
  // Released by one of its own workers (the job held the last owner): that worker cannot
  // be joined; it is told here that it has ended and leaves without touching the unit.
  if (internal::serving_unit() == this) {
    t_destroyed_by_worker = this;
    m_observers.notify([](scheduler_status_callback_t& c) { c.thread_finished(); });
  }
  // A job running during the destruction may have started a worker that the first
  // round did not see.
  for (;;) {
    {
      spin_guard_t guard(m_lock);
      if (m_workers.empty()) break;
    }
    terminate();
  }
}

void thread_pool_unit_t::on_registered() {}

void thread_pool_unit_t::set_status_callbacks(status_callbacks_t const& callbacks) {
  m_observers.assign(callbacks);
}

unsigned int thread_pool_unit_t::get_thread_limit() { return m_thread_limit; }

unsigned int thread_pool_unit_t::get_active_threads() {
  return m_active_threads.load(std::memory_order_relaxed);
}

scheduler_error_t thread_pool_unit_t::execute(boost::shared_ptr<task_t> task,
                                              boost::shared_ptr<stage_t> stage) {
  if (!task || !stage) return seInvalidArgument;
  std::size_t pending = 0;
  std::shared_ptr<idle_slot_t> wake;
  {
    word_guard_t guard(m_queue_lock);
    pending = queued_jobs();
    if (pending >= queue_limit) return seQueueFull;
    m_queue.emplace_back(std::move(task), std::move(stage));
    m_queued.store(pending + 1, std::memory_order_relaxed);
    // Busy workers take the job when they come back to the queue. An idle one is woken
    // (a system call) unless one is on its way already or looking for work: that one
    // takes this job or, if it finds more, wakes the next.
    wake = claim_idle_worker();
  }
  // A pool that has all its workers decides no start: its callers share no lock with
  // the workers beyond the queue's.
  if (m_threads.load(std::memory_order_relaxed) < m_thread_limit) {
    spin_guard_t guard(m_lock);
    unsigned int const threads = m_threads.load(std::memory_order_relaxed);
    if (pending + m_active_threads.load(std::memory_order_relaxed) >= threads &&
        threads < m_thread_limit) {
      // Held across the start, so that concurrent calls cannot start more workers than
      // the rule allows; the new thread raises the gate first thing.
      start_gate_t gate;
      auto worker = boost::shared_ptr<boost::thread>(new boost::thread([this, &gate] {
        {
          boost::lock_guard<boost::mutex> gate_guard(gate.mutex);
          gate.raised = true;
          gate.condition.notify_one();
        }
        worker_thread();
      }));
      {
        boost::unique_lock<boost::mutex> gate_lock(gate.mutex);
        while (!gate.raised) gate.condition.wait(gate_lock);
      }
      m_workers.push_back(std::move(worker));
      m_threads.store(threads + 1, std::memory_order_relaxed);
    }
  }
  if (wake) wake->wake();
  return seOk;
}

void thread_pool_unit_t::terminate() {
  std::vector<boost::shared_ptr<boost::thread>> workers;
  {
    spin_guard_t guard(m_lock);
    workers = m_workers;
  }
  // Terminated from one of its workers: that one is not interrupted (the rest of its
  // job may wait for others) and ends after its job.
  boost::shared_ptr<boost::thread> self;
  for (auto& worker : workers) {
    if (worker->get_id() == boost::this_thread::get_id()) {
      self = worker;
      t_retiring_worker = this;
    } else {
      worker->interrupt();
    }
  }
  // Idle workers do not sleep at an interruption point: they are woken to see it.
  wake_idle_workers();
  // The workers are joined before the count goes back: meanwhile execute still sees them
  // and starts no others beyond the limit.
  for (auto& worker : workers) {
    if (worker != self && worker->joinable()) worker->join();
  }
  {
    spin_guard_t guard(m_lock);
    for (auto const& worker : workers) {
      m_workers.erase(std::remove(m_workers.begin(), m_workers.end(), worker), m_workers.end());
    }
    m_threads.store(0, std::memory_order_relaxed);
  }
  internal::hand_over_thread(std::move(self));
}

thread_pool_unit_t::job_t thread_pool_unit_t::pop_job() {
  job_t job = std::move(m_queue[m_queue_head++]);
  m_queued.store(queued_jobs(), std::memory_order_relaxed);
  if (m_queue_head == m_queue.size()) {
    m_queue.clear();
    m_queue_head = 0;
  } else if (m_queue_head >= 64 && m_queue_head * 2 >= m_queue.size()) {
    // A queue that never runs empty drops its taken half now and then.
    m_queue.erase(m_queue.begin(), m_queue.begin() + static_cast<std::ptrdiff_t>(m_queue_head));
    m_queue_head = 0;
  }
  return job;
}

std::shared_ptr<thread_pool_unit_t::idle_slot_t> thread_pool_unit_t::claim_idle_worker() {
  if (m_waking || m_spinning || m_idle.empty()) return {};
  std::shared_ptr<idle_slot_t> slot = std::move(m_idle.back());
  m_idle.pop_back();
  slot->woken.store(1, std::memory_order_relaxed);
  m_waking = true;
  return slot;
}

void thread_pool_unit_t::wake_idle_workers() {
  std::vector<std::shared_ptr<idle_slot_t>> idle;
  {
    word_guard_t guard(m_queue_lock);
    idle.swap(m_idle);
    for (auto const& slot : idle) slot->woken.store(1, std::memory_order_relaxed);
    m_waking = false;
  }
  for (auto const& slot : idle) slot->wake();
}

void thread_pool_unit_t::spin_for_job() const {
  std::int64_t const until = internal::process_clock_nanoseconds() + spin_nanoseconds;
  for (unsigned round = 1;; ++round) {
    if (m_queued.load(std::memory_order_relaxed) != 0) return;
    internal::cpu_relax();
    if (round % 64 == 0 && internal::process_clock_nanoseconds() >= until) return;
  }
}

void thread_pool_unit_t::wait_for_job(word_guard_t& guard,
                                      std::shared_ptr<idle_slot_t> const& slot) {
  while (queued_jobs() == 0) {
    // Checked with the queue locked: terminate interrupts first and then wakes every
    // worker registered as idle, so a worker either sees the request here or is woken.
    boost::this_thread::interruption_point();
    slot->woken.store(0, std::memory_order_relaxed);
    m_idle.push_back(slot);
    guard.unlock();
    // The word is set under the queue lock before the waker lets go of it: the lock
    // orders that write before this read, and a wake-up sent before the sleep finds the
    // word changed and is not lost.
    while (slot->woken.load(std::memory_order_acquire) == 0) internal::wait_on_word(slot->woken, 0);
    guard.lock();
    // Whoever woke the worker took it off the idle list; the next job may wake another.
    m_waking = false;
    boost::this_thread::interruption_point();
  }
}

void thread_pool_unit_t::worker_thread() {
  internal::serving_unit_scope_t const serving(this);
  m_observers.notify([](scheduler_status_callback_t& c) { c.thread_started(); });
  try {
    if (!process_jobs_queue()) return;  // the unit is gone: nothing of it may be touched
  } catch (boost::thread_interrupted const&) {
    // terminate() ends the worker.
  }
  m_observers.notify([](scheduler_status_callback_t& c) { c.thread_finished(); });
}

bool thread_pool_unit_t::process_jobs_queue() {
  std::string name;
  boost::weak_ptr<unit_t> const weak_self = weak_from_this();
  auto const slot = std::make_shared<idle_slot_t>();
  bool spin_pays = true;
  for (;;) {
    boost::this_thread::interruption_point();
    job_t job;
    std::shared_ptr<idle_slot_t> next;
    {
      word_guard_t queue(m_queue_lock);
      if (queued_jobs() == 0) {
        // One worker at a time looks for work before it sleeps, and only while a processor
        // is left for it beside the busy workers and the thread that adds the jobs; the
        // others sleep at once. A looking worker on a processor that a busy one needs
        // would slow down the very jobs it waits for.
        static unsigned int const processors = hardware_threads();
        bool const spin = spin_pays && !m_spinning &&
                          m_active_threads.load(std::memory_order_relaxed) + 1 < processors;
        if (spin) m_spinning = true;
        queue.unlock();
        std::int64_t const idle_since = internal::process_clock_nanoseconds();
        set_thread_name("Sh(TP): pending", false);
        if (spin) spin_for_job();
        queue.lock();
        if (spin) m_spinning = false;
        wait_for_job(queue, slot);
        spin_pays = internal::process_clock_nanoseconds() - idle_since < spin_nanoseconds;
      }
      job = pop_job();
      // Jobs queued while this worker was on its way woke nobody: the next idle worker
      // is woken for them here.
      if (queued_jobs() != 0) next = claim_idle_worker();
      // Counted before the queue is released: an execute that no longer sees the job
      // in the queue sees this worker busy.
      m_active_threads.fetch_add(1, std::memory_order_relaxed);
    }
    if (next) {
      next->wake();
      next.reset();
    }
    // The job keeps the unit alive: an owner released inside it lets the unit go only
    // below, once the job is over.
    boost::shared_ptr<unit_t> keep_alive = weak_self.lock();
    // True when letting go of the job and of the unit destroyed the unit.
    auto const release = [&] {
      // The stage goes first: its signal then drops the connection to its task itself,
      // and the task finds no connection left to undo.
      job.second.reset();
      job.first.reset();
      keep_alive.reset();
      if (t_destroyed_by_worker != this) return false;
      t_destroyed_by_worker = nullptr;
      t_retiring_worker = nullptr;
      return true;
    };
    try {
      run_job(job, name);
    } catch (boost::thread_interrupted const&) {
      if (release()) return false;
      throw;
    }
    if (release()) return false;
    if (t_retiring_worker == this) {
      t_retiring_worker = nullptr;
      return true;
    }
  }
}

void thread_pool_unit_t::run_job(job_t const& job, std::string& name) {
  struct active_t {
    thread_pool_unit_t& unit;
    ~active_t() { unit.m_active_threads.fetch_sub(1, std::memory_order_relaxed); }
  } const active{*this};
  {
    KESMET_2_18::strings::ustring8 display = internal::safe_display_name(*job.first);
    if (display.empty()) display = internal::type_display_name(typeid(stage_t));
    name.assign("Sh(TP): ").append(display);
    set_thread_name(name.c_str(), false);
  }
  try {
    execute_job(job);
  } catch (boost::thread_interrupted const&) {
    throw;
  } catch (...) {
    // Logged and reported by execute_job; the task stays unfinished, the worker stays.
  }
}

void thread_pool_unit_t::execute_job(job_t const& job) {
  try {
    job.second->signal(job.first);
    stage_completed(job.first);
  } catch (...) {
    internal::report_stage_exception("thread_pool_unit_t", m_observers, job.first, __FILE__,
                                     __LINE__);
    throw;
  }
}

}  // namespace quillon2::threading
