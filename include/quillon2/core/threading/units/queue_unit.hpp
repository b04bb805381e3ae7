// queue_unit_t: a unit without a thread of its own. It stores jobs until the application
// drains them with process_queue on a thread of its choice, which is how a program runs
// stages on its main or GUI thread.
//
// task_queued is emitted for every accepted job on the thread that called execute, so
// that the application can wake the thread that drains. process_queue may be called from
// several threads; each job goes to one of them.
#pragma once

#include <cstddef>
#include <deque>
#include <utility>

#include <boost/shared_ptr.hpp>

#include <quillon2/core/threading/spin_lock.hpp>
#include <quillon2/core/threading/unit.hpp>
#include <quillon2/export.hpp>

namespace quillon2::threading {

class QUILLON2_API queue_unit_t : public unit_t {
 public:
  using job_t = std::pair<boost::shared_ptr<task_t>, boost::shared_ptr<stage_t>>;

  // A job is accepted while fewer than this many wait.
  static constexpr std::size_t queue_limit = 100001;

  queue_unit_t();
  ~queue_unit_t() override;

  void on_registered() override;
  // Appends the job and emits task_queued; seQueueFull when queue_limit jobs wait,
  // seInvalidArgument for a null task or stage.
  scheduler_error_t execute(boost::shared_ptr<task_t> task,
                            boost::shared_ptr<stage_t> stage) override;
  // Runs up to `count` of the jobs queued at the moment of the call, in order, on the
  // calling thread; `count` below 1 means all of them. A job runs its stage's signal,
  // then stage_completed. If a handler throws, the failure is logged and reported to the
  // observers (task_exception), the jobs taken by this call but not run are dropped,
  // and the exception reaches the caller.
  void process_queue(int count);
  bool has_tasks() const;
  // Drops every queued job without running it.
  void terminate() override;
  void set_status_callbacks(status_callbacks_t const& callbacks) override;

  _internal::signal_t<boost::shared_ptr<task_t>, boost::shared_ptr<stage_t>> task_queued;

 private:
  _internal::unit_observers_t m_observers;
  mutable spin_lock_t m_lock;
  std::deque<job_t> m_jobs;
};

}  // namespace quillon2::threading
