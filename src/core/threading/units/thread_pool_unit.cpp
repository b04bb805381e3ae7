// thread_pool_unit_t: a queue and workers started on demand.
#include <algorithm>
#include <string>

#include <boost/thread/thread.hpp>

#include <quillon2/core/threading/stage.hpp>
#include <quillon2/core/threading/task.hpp>
#include <quillon2/core/threading/thread_name.hpp>
#include <quillon2/core/threading/units/thread_pool_unit.hpp>

#include "core/threading/include/type_name.hpp"
#include "core/threading/include/unit_support.hpp"

namespace quillon2::threading {

namespace {

unsigned int hardware_threads() {
  unsigned int const n = boost::thread::hardware_concurrency();
  return n == 0 ? 1 : n;
}

// Lets execute wait until a new worker runs.
struct start_gate_t {
  boost::mutex mutex;
  boost::condition_variable condition;
  bool raised = false;
};

}  // namespace

unsigned int thread_pool_unit_t::MaxThreads = hardware_threads();

unsigned int thread_pool_unit_t::default_thread_limit() { return std::min(MaxThreads, 16u); }

thread_pool_unit_t::thread_pool_unit_t(unsigned int thread_limit) : m_thread_limit(thread_limit) {}

thread_pool_unit_t::~thread_pool_unit_t() {
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
  spin_guard_t guard(m_lock);
  return m_active_threads;
}

scheduler_error_t thread_pool_unit_t::execute(boost::shared_ptr<task_t> task,
                                              boost::shared_ptr<stage_t> stage) {
  if (!task || !stage) return seInvalidArgument;
  std::size_t pending = 0;
  {
    boost::lock_guard<boost::mutex> guard(m_queue_mutex);
    pending = m_queue.size();
    if (pending >= queue_limit) return seQueueFull;
    m_queue.emplace_back(std::move(task), std::move(stage));
  }
  {
    spin_guard_t guard(m_lock);
    if (pending + m_active_threads >= m_threads && m_threads < m_thread_limit) {
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
      ++m_threads;
    }
  }
  m_queue_condition.notify_one();
  return seOk;
}

std::vector<boost::shared_ptr<boost::thread>> thread_pool_unit_t::take_workers() {
  std::vector<boost::shared_ptr<boost::thread>> workers;
  spin_guard_t guard(m_lock);
  workers.swap(m_workers);
  m_threads = 0;
  return workers;
}

void thread_pool_unit_t::terminate() {
  std::vector<boost::shared_ptr<boost::thread>> workers = take_workers();
  for (auto& worker : workers) worker->interrupt();
  for (auto& worker : workers) {
    if (worker->get_id() == boost::this_thread::get_id()) {
      worker->detach();  // terminate from one of the workers: it ends after this job
    } else if (worker->joinable()) {
      worker->join();
    }
  }
}

void thread_pool_unit_t::worker_thread() {
  m_observers.notify([](scheduler_status_callback_t& c) { c.thread_started(); });
  try {
    process_jobs_queue();
  } catch (boost::thread_interrupted const&) {
    // terminate() ends the worker.
  }
  m_observers.notify([](scheduler_status_callback_t& c) { c.thread_finished(); });
}

void thread_pool_unit_t::process_jobs_queue() {
  std::string name;
  for (;;) {
    boost::this_thread::interruption_point();
    job_t job;
    {
      boost::unique_lock<boost::mutex> lock(m_queue_mutex);
      if (m_queue.empty()) {
        lock.unlock();
        set_thread_name("Sh(TP): pending", false);
        lock.lock();
        while (m_queue.empty()) m_queue_condition.wait(lock);  // an interruption point
      }
      job = std::move(m_queue.front());
      m_queue.pop_front();
      // Counted before the queue is released: an execute that no longer sees the job
      // in the queue sees this worker busy.
      spin_guard_t guard(m_lock);
      ++m_active_threads;
    }
    struct active_t {
      thread_pool_unit_t& unit;
      ~active_t() {
        spin_guard_t guard(unit.m_lock);
        --unit.m_active_threads;
      }
    } const active{*this};

    KESMET_2_18::strings::ustring8 display = internal::safe_display_name(*job.first);
    if (display.empty()) display = internal::type_display_name(typeid(stage_t));
    name.assign("Sh(TP): ").append(display);
    set_thread_name(name.c_str(), false);

    try {
      execute_job(job);
    } catch (boost::thread_interrupted const&) {
      throw;
    } catch (...) {
      // Logged and reported by execute_job; the task stays unfinished, the worker stays.
    }
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
