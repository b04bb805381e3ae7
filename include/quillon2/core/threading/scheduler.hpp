// The scheduler's interface, its observers, and the process-wide scheduler slot.
//
// A scheduler runs tasks stage by stage on units chosen by name, in groups that can be
// canceled as a whole. Its objects are held by boost::shared_ptr. It owns no thread: its
// code runs on the caller's thread and on the threads of its units.
#pragma once

#include <list>
#include <string>

#include <boost/shared_ptr.hpp>
#include <boost/weak_ptr.hpp>

#include <quillon2/core/threading/scheduler_error.hpp>
#include <quillon2/export.hpp>

namespace quillon2::threading {

class task_t;
struct stage_t;
class unit_t;

// Observer of a scheduler and its units; every operation does nothing by default. Each is
// called on the thread named beside it. Held by boost::shared_ptr, which deletes it as
// the type it was made with.
class QUILLON2_API scheduler_status_callback_t {
 public:
  // A unit's worker or timer thread, first thing on that thread.
  virtual void thread_started();
  // The same thread, last thing.
  virtual void thread_finished();
  // add_task, on the caller's thread, after the first stage was dispatched.
  virtual void task_added(boost::shared_ptr<task_t> task);
  // The task has left the scheduler; on the thread that ended it.
  virtual void task_completed(boost::shared_ptr<task_t> task);
  // A stage's subscriber threw; on the thread that ran the stage.
  virtual void task_exception(boost::shared_ptr<task_t> task);
  // A unit refused a stage.
  virtual void stage_rejected(boost::shared_ptr<task_t> task, boost::shared_ptr<stage_t> stage,
                              scheduler_error_t error);
  // The cancellation of a group has come to its end.
  virtual void group_canceled(std::wstring const& group);
};

using status_callbacks_t = std::list<boost::shared_ptr<scheduler_status_callback_t>>;

// Whether an operation that a caller waits for has finished.
class QUILLON2_API scheduler_operation_status_t {
 public:
  virtual ~scheduler_operation_status_t();
  virtual bool is_finished() = 0;
};

// Blocks until an operation has finished; cancel_and_wait calls it.
class QUILLON2_API scheduler_wait_callback_t {
 public:
  virtual ~scheduler_wait_callback_t();
  virtual void wait(boost::weak_ptr<scheduler_operation_status_t> status) = 0;
};

// Polls the status with pauses of 0, 10, 20, ... 490, then 500 milliseconds. The pauses
// are interruption points of the waiting thread. An expired status counts as finished.
class QUILLON2_API default_scheduler_wait_callback_t : public scheduler_wait_callback_t {
 public:
  void wait(boost::weak_ptr<scheduler_operation_status_t> status) override;
};

class QUILLON2_API scheduler_t {
 public:
  virtual ~scheduler_t();

  // Adds `task` to run once `prev_task` has completed.
  virtual scheduler_error_t add_task(boost::shared_ptr<task_t> prev_task,
                                     boost::shared_ptr<task_t> task, std::wstring const& group) = 0;
  virtual scheduler_error_t add_task(boost::shared_ptr<task_t> task, std::wstring const& group) = 0;
  // Cancels every task at or below `group`; the empty group stands for all.
  virtual scheduler_error_t cancel(std::wstring const& group) = 0;
  virtual scheduler_error_t cancel_and_wait(std::wstring const& group,
                                            boost::shared_ptr<scheduler_wait_callback_t> wait) = 0;
  virtual std::list<boost::shared_ptr<task_t>> find_tasks(std::wstring const& group) = 0;
  virtual bool find_group(boost::shared_ptr<task_t> task, std::wstring& group) = 0;
  virtual scheduler_error_t add_unit(std::wstring const& name, boost::shared_ptr<unit_t> unit) = 0;
  virtual scheduler_error_t add_status_callback(
      boost::shared_ptr<scheduler_status_callback_t> callback) = 0;
  virtual scheduler_error_t remove_status_callback(
      boost::shared_ptr<scheduler_status_callback_t> callback) = 0;
  virtual bool is_known_task(boost::shared_ptr<task_t> task) = 0;
  virtual bool is_known_group(std::wstring& group) = 0;
};

// The process-wide scheduler. set_scheduler replaces it (the previous one is released
// after the slot's lock is dropped); get_scheduler gives a copy, null when none was set.
QUILLON2_API void set_scheduler(boost::shared_ptr<scheduler_t> scheduler);
QUILLON2_API boost::shared_ptr<scheduler_t> get_scheduler();

}  // namespace quillon2::threading
