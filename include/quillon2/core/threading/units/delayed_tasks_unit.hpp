// delayed_tasks_unit_t: a unit that only waits. A stage given to it is finished when its
// `delay` (milliseconds) has passed, or earlier when its task is canceled; the stage's own
// signal is not emitted.
//
// One timer thread, started by on_registered, looks at the pending jobs when one arrives,
// when the earliest is due and at least every 100 milliseconds: a delay is never honoured
// early, and a canceled task leaves the timer within one pass. stage_completed is emitted
// on the timer thread with no lock of the unit held, so whatever follows a finished wait
// (the task's next stage, even another wait on this unit, or the task's completion) may
// call execute again from there, or release the unit for good: the unit then goes once
// the pass is over, and its thread ends without touching it again.
#pragma once

#include <cstddef>
#include <cstdint>
#include <list>

#include <boost/shared_ptr.hpp>
#include <boost/thread/condition_variable.hpp>
#include <boost/thread/mutex.hpp>

#include <quillon2/core/threading/unit.hpp>
#include <quillon2/export.hpp>

namespace boost {
class thread;
}

namespace quillon2::threading {

class QUILLON2_API delayed_tasks_unit_t : public unit_t {
 public:
  // A stopwatch in seconds.
  class QUILLON2_API task_timer_t {
   public:
    virtual ~task_timer_t();
    virtual void restart() = 0;
    virtual double elapsed_min() const = 0;  // the resolution
    virtual double elapsed_max() const = 0;  // the longest time it can measure from its start
    virtual double elapsed() const = 0;
  };

  // One pending wait.
  struct job_t {
    boost::shared_ptr<task_t> task;
    boost::shared_ptr<stage_t> stage;
    boost::shared_ptr<task_timer_t> timer;
  };

  // A job is accepted while fewer than this many wait.
  static constexpr std::size_t queue_limit = 100001;

  delayed_tasks_unit_t();
  // Stops the timer thread; pending jobs are released without being completed. On the
  // timer thread itself the thread is not joined there but later, once it has ended.
  ~delayed_tasks_unit_t() override;

  // Starts the timer thread (once).
  void on_registered() override;
  // Interrupts and joins the timer thread. Pending jobs stay and nobody completes them.
  // Called on the timer thread itself it throws boost::thread_resource_error.
  void terminate() override;
  void set_status_callbacks(status_callbacks_t const& callbacks) override;
  // seUnitNotStarted without a timer thread, seQueueFull when queue_limit jobs wait,
  // seDelayOutOfRange for a delay below 1 ms or beyond the timer's reach,
  // seInvalidArgument for a null task or stage.
  scheduler_error_t execute(boost::shared_ptr<task_t> task,
                            boost::shared_ptr<stage_t> stage) override;

  // Jobs waiting for their time.
  std::size_t pending_jobs() const;

 protected:
  void timer_thread();

 private:
  using job_list_t = std::list<boost::shared_ptr<job_t>>;

  void fire(job_list_t& due, _internal::signal_t<boost::shared_ptr<task_t>>& completed);

  _internal::unit_observers_t m_observers;
  boost::thread* m_thread = nullptr;  // guarded by m_jobs_mutex
  mutable boost::mutex m_jobs_mutex;
  job_list_t m_jobs;
  std::size_t m_job_count = 0;
  boost::condition_variable m_jobs_condition;
  // When the timer thread looks at the jobs next, on the process clock: INT64_MAX while
  // it waits for a first job, INT64_MIN while it looks (or is about to). Only a job due
  // before then wakes it. Guarded by m_jobs_mutex.
  std::int64_t m_wake_at = INT64_MIN;
};

}  // namespace quillon2::threading
