// delayed_tasks_unit_t: one timer thread that completes waits.
#include <algorithm>
#include <cmath>
#include <cstdint>

#include <boost/weak_ptr.hpp>

#include <boost/thread/thread.hpp>

#include <quillon2/core/threading/stage.hpp>
#include <quillon2/core/threading/task.hpp>
#include <quillon2/core/threading/thread_name.hpp>
#include <quillon2/core/threading/units/delayed_tasks_unit.hpp>

#include "core/threading/include/platform.hpp"
#include "core/threading/include/unit_support.hpp"

namespace quillon2::threading {

namespace {

// The process clock, read to the nanosecond: a wait ends at its due time, not at the
// next tick after it. 64 bits do not wrap in the life of a process.
class boost_timer_t : public delayed_tasks_unit_t::task_timer_t {
 public:
  boost_timer_t() { restart(); }
  void restart() override { m_start = internal::process_clock_nanoseconds(); }
  double elapsed_min() const override { return 0.001; }
  double elapsed_max() const override {
    return (static_cast<double>(INT64_MAX) - static_cast<double>(m_start)) / 1e9;
  }
  double elapsed() const override {
    return static_cast<double>(internal::process_clock_nanoseconds() - m_start) / 1e9;
  }

 private:
  std::int64_t m_start = 0;
};

// Set by a unit destroyed on its own timer thread, for that thread to see on its way out.
thread_local void const* t_destroyed_by_timer = nullptr;

constexpr auto pass_interval = boost::chrono::milliseconds(100);

}  // namespace

delayed_tasks_unit_t::task_timer_t::~task_timer_t() = default;

delayed_tasks_unit_t::delayed_tasks_unit_t() = default;

delayed_tasks_unit_t::~delayed_tasks_unit_t() {
  boost::thread* own = nullptr;
  {
    boost::lock_guard<boost::mutex> guard(m_jobs_mutex);
    if (m_thread != nullptr && m_thread->get_id() == boost::this_thread::get_id()) {
      std::swap(own, m_thread);
    }
  }
  if (own == nullptr) {
    terminate();
    return;
  }
  // Released for good by what followed a wait, on the timer thread itself: the thread
  // is told here that it has ended, leaves without touching the unit again, and is
  // joined elsewhere once it is gone.
  t_destroyed_by_timer = this;
  m_observers.notify([](scheduler_status_callback_t& c) { c.thread_finished(); });
  internal::hand_over_thread(boost::shared_ptr<boost::thread>(own));
}

void delayed_tasks_unit_t::on_registered() {
  boost::lock_guard<boost::mutex> guard(m_jobs_mutex);
  if (m_thread == nullptr) m_thread = new boost::thread(&delayed_tasks_unit_t::timer_thread, this);
}

void delayed_tasks_unit_t::terminate() {
  boost::thread* thread = nullptr;
  {
    boost::unique_lock<boost::mutex> lock(m_jobs_mutex);
    if (m_thread == nullptr) return;
    if (m_thread->get_id() == boost::this_thread::get_id()) {
      boost::throw_exception(boost::thread_resource_error(
          static_cast<int>(boost::system::errc::resource_deadlock_would_occur),
          "boost thread: trying joining itself"));
    }
    std::swap(thread, m_thread);
  }
  thread->interrupt();
  thread->join();
  delete thread;
}

void delayed_tasks_unit_t::set_status_callbacks(status_callbacks_t const& callbacks) {
  m_observers.assign(callbacks);
}

std::size_t delayed_tasks_unit_t::pending_jobs() const {
  boost::lock_guard<boost::mutex> guard(m_jobs_mutex);
  return m_job_count;
}

scheduler_error_t delayed_tasks_unit_t::execute(boost::shared_ptr<task_t> task,
                                                boost::shared_ptr<stage_t> stage) {
  if (!task || !stage) return seInvalidArgument;
  boost::lock_guard<boost::mutex> guard(m_jobs_mutex);
  if (m_thread == nullptr) return seUnitNotStarted;
  if (m_job_count >= queue_limit) return seQueueFull;

  auto job = boost::shared_ptr<job_t>(new job_t{task, stage, boost::shared_ptr<task_timer_t>()});
  job->timer.reset(new boost_timer_t);
  double const delay = stage->delay / 1000.0;
  if (delay < job->timer->elapsed_min() || delay > job->timer->elapsed_max()) {
    return seDelayOutOfRange;
  }
  m_jobs.push_back(std::move(job));
  ++m_job_count;
  // A wait due after the thread's next look is seen then: waking the thread for it
  // would cost it a pass over every pending job, for each job added.
  std::int64_t const due =
      internal::process_clock_nanoseconds() + std::int64_t{stage->delay} * 1'000'000;
  if (due < m_wake_at) m_jobs_condition.notify_one();
  return seOk;
}

void delayed_tasks_unit_t::timer_thread() {
  internal::serving_unit_scope_t const serving(this);
  boost::weak_ptr<unit_t> const weak_self = weak_from_this();
  // A wait ends at its due time: the timed waits of this thread take no slack.
  internal::use_exact_timeouts();
  m_observers.notify([](scheduler_status_callback_t& c) { c.thread_started(); });
  try {
    _internal::signal_t<boost::shared_ptr<task_t>> completed;
    completed.connect(stage_completed);
    for (;;) {
      set_thread_name("Sh(D): pending", false);
      job_list_t due;
      {
        boost::unique_lock<boost::mutex> lock(m_jobs_mutex);
        m_wake_at = INT64_MAX;
        while (m_jobs.empty()) m_jobs_condition.wait(lock);  // an interruption point
        m_wake_at = INT64_MIN;

        set_thread_name("Sh(D): processing timers", false);
        for (auto it = m_jobs.begin(); it != m_jobs.end();) {
          job_t const& job = **it;
          if (job.task->is_canceled() || job.timer->elapsed() >= job.stage->delay / 1000.0) {
            auto next = std::next(it);
            due.splice(due.end(), m_jobs, it);
            --m_job_count;
            it = next;
          } else {
            ++it;
          }
        }
      }
      // Fired with the lock released and in list order: what follows a finished wait
      // may hand this unit a new wait. The unit stays alive through the pass: what
      // follows may also release it for good, which takes effect below.
      if (!due.empty()) {
        boost::shared_ptr<unit_t> keep_alive = weak_self.lock();
        auto const released_for_good = [&] {
          keep_alive.reset();
          if (t_destroyed_by_timer != this) return false;
          t_destroyed_by_timer = nullptr;
          return true;
        };
        try {
          _internal::signal_t<boost::shared_ptr<task_t>> pass(completed);
          fire(due, pass);
        } catch (boost::thread_interrupted const&) {
          if (released_for_good()) return;
          throw;
        }
        if (released_for_good()) return;
      }
      // Sleep until the earliest deadline, one pass interval at most. A new job due before
      // then wakes the thread, so a short wait is never held behind a long pass.
      boost::unique_lock<boost::mutex> lock(m_jobs_mutex);
      boost::chrono::nanoseconds pause = pass_interval;
      for (auto const& job : m_jobs) {
        double const remaining = job->stage->delay / 1000.0 - job->timer->elapsed();
        auto const until_due = boost::chrono::nanoseconds(
            static_cast<boost::int_least64_t>(std::ceil(std::max(remaining, 0.0) * 1e9)));
        pause = std::min(pause, until_due);
      }
      if (pause.count() > 0) {
        m_wake_at = internal::process_clock_nanoseconds() + pause.count();
        m_jobs_condition.wait_for(lock, pause);  // an interruption point
        m_wake_at = INT64_MIN;
      } else {
        boost::this_thread::interruption_point();
      }
    }
  } catch (boost::thread_interrupted const&) {
    // terminate() ends the thread.
  }
  m_observers.notify([](scheduler_status_callback_t& c) { c.thread_finished(); });
}

void delayed_tasks_unit_t::fire(job_list_t& due,
                                _internal::signal_t<boost::shared_ptr<task_t>>& completed) {
  while (!due.empty()) {
    boost::shared_ptr<job_t> job = due.front();
    due.pop_front();
    try {
      completed(job->task);
    } catch (boost::thread_interrupted const&) {
      // Interrupted from what followed the wait: the jobs not fired stay pending.
      boost::lock_guard<boost::mutex> guard(m_jobs_mutex);
      m_job_count += due.size();
      m_jobs.splice(m_jobs.begin(), due);
      throw;
    } catch (...) {
      // What followed the wait threw; the timer goes on with the other jobs.
      internal::report_stage_exception("delayed_tasks_unit_t", m_observers, job->task, __FILE__,
                                       __LINE__);
    }
  }
}

}  // namespace quillon2::threading
