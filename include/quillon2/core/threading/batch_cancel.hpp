// Cancels a set of tasks and groups as one operation and reports the end of the whole
// set through `completed`, emitted on a thread of the unit the caller names. Nobody
// blocks: this is the asynchronous counterpart of scheduler_t::cancel_and_wait.
//
// Use: create(); connect to `completed`; add_group / add_task; execute(scheduler, unit).
// Once `completed` has been emitted the object may be filled and executed again, also
// from a handler of `completed`.
//
// Ownership: execute hands the object's owner on to the operation, which keeps the object
// alive until `completed` has been emitted (the scheduler holds it as an observer
// meanwhile): the client may let go of its pointer after execute. The object keeps the
// scheduler alive until the end of the operation.
#pragma once

#include <list>
#include <string>

#include <boost/enable_shared_from_this.hpp>
#include <boost/shared_ptr.hpp>

#include <quillon2/core/functor/signal.hpp>
#include <quillon2/core/threading/scheduler.hpp>
#include <quillon2/core/threading/spin_lock.hpp>
#include <quillon2/core/threading/stage.hpp>
#include <quillon2/core/threading/task.hpp>
#include <quillon2/export.hpp>

namespace quillon2::threading {

class QUILLON2_API batch_cancel_t : public scheduler_status_callback_t,
                                    public _internal::subscriber_base_t,
                                    public boost::enable_shared_from_this<batch_cancel_t> {
 public:
  static boost::shared_ptr<batch_cancel_t> create();
  ~batch_cancel_t() override;

  // Emitted once per operation, on a thread of the unit named in execute, when every
  // listed task has left the scheduler and every listed group has been canceled.
  _internal::signal_t<> completed;

  // seOk; seInProgress during an operation; seAlreadyExists for a group listed already
  // (whole text, case-sensitive).
  scheduler_error_t add_group(std::wstring const& group);
  // seOk; seInvalidArgument for a null task; seInProgress; seAlreadyExists for a task
  // listed already (same pointer).
  scheduler_error_t add_task(boost::shared_ptr<task_t> task);
  // Cancels everything listed. seOk; seInvalidArgument for a null scheduler or an empty
  // unit name; seInProgress while an operation runs.
  scheduler_error_t execute(boost::shared_ptr<scheduler_t> scheduler, std::wstring const& unit);
  bool is_in_progress();

 protected:
  batch_cancel_t();

  void task_completed(boost::shared_ptr<task_t> task) override;
  void group_canceled(std::wstring const& group) override;

  // Hands the end of the operation to the named unit, as a task of the empty group.
  void handle_complete();
  // The stage of that task: ends the operation and emits `completed`.
  void on_stage_execution(boost::shared_ptr<task_t> task);

 private:
  // Makes the task for the end of the next operation.
  void prepare_end();
  // Retires the operation when the scheduler did not run the stage of `task`.
  void check_completion_ran(boost::shared_ptr<scheduler_t> const& scheduler,
                            boost::shared_ptr<task_t> const& task);

  spin_lock_t m_lock;
  bool m_in_progress = false;
  std::list<std::wstring> m_groups;
  std::list<boost::shared_ptr<task_t>> m_tasks;
  std::wstring m_unit;
  boost::shared_ptr<scheduler_t> m_scheduler;
  boost::shared_ptr<batch_cancel_t> m_self;  // from execute until the operation ends
  // The task that carries `completed` to the unit, from execute until its stage runs,
  // and the one made ready for the next operation, with its stage.
  boost::shared_ptr<task_t> m_completion_task;
  boost::shared_ptr<default_task_t> m_next_end;
  boost::shared_ptr<stage_t> m_next_end_stage;
  // A hand-over to the unit is being attempted, and whether a notification asked for
  // one meanwhile (it is attempted again when the first is refused).
  bool m_handing_over = false;
  bool m_complete_again = false;
  // Groups whose cancel was refused because a wider cancellation runs: the end of any
  // cancellation that covers them ends them too.
  std::list<std::wstring> m_refused_groups;
  // The group whose cancel call is under way, and whether a covering cancellation ended
  // during that call.
  std::wstring m_cancel_in_flight;
  bool m_in_flight = false;
  bool m_in_flight_covered = false;
};

}  // namespace quillon2::threading
