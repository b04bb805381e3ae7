// The scheduler core: the one implementation of scheduler_t.
//
// scheduler_impl_t keeps the tables of tasks, groups and units, moves every task from
// stage to stage and tells its observers what happened. It owns no thread: its code runs
// on the thread that calls add_task and on the threads of its units, and the whole next
// step of a task (the next dispatch, completion, starting followers, notifications) runs
// on the thread that finished the previous stage.
//
// Locks, in the order in which they may nest: the callback mutex (recursive, guards the
// observer list while it changes and is handed to the units), then one of the spin locks
// (tasks, units, snapshot; never two). Observers are called with no lock held, from a
// snapshot of the list, so that an observer may call back into the scheduler from any
// thread. No spin lock is held while a task, a stage, a unit or an observer is called.
//
// Clients get a scheduler from create_default_scheduler and hold it by boost::shared_ptr.
#pragma once

#include <atomic>
#include <cstdint>
#include <list>
#include <memory>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include <boost/shared_ptr.hpp>
#include <boost/thread/recursive_mutex.hpp>

#include <quillon2/core/functor/signal.hpp>
#include <quillon2/core/threading/scheduler.hpp>
#include <quillon2/core/threading/spin_lock.hpp>
#include <quillon2/core/threading/task.hpp>
#include <quillon2/core/threading/unit.hpp>
#include <quillon2/export.hpp>

namespace quillon2::internal {
class task_table_t;
}

namespace quillon2::threading {

class QUILLON2_API scheduler_impl_t : public scheduler_t, public _internal::subscriber_base_t {
 public:
  // Stores `wait` unchanged (it may be null) and registers `status` as the first
  // observer when it is not null. Nothing is started.
  scheduler_impl_t(boost::shared_ptr<scheduler_status_callback_t> status,
                   boost::shared_ptr<scheduler_wait_callback_t> wait);
  ~scheduler_impl_t() override;

  scheduler_impl_t(scheduler_impl_t const&) = delete;
  scheduler_impl_t& operator=(scheduler_impl_t const&) = delete;

  scheduler_error_t add_task(boost::shared_ptr<task_t> prev_task, boost::shared_ptr<task_t> task,
                             std::wstring const& group) override;
  scheduler_error_t add_task(boost::shared_ptr<task_t> task, std::wstring const& group) override;
  scheduler_error_t cancel(std::wstring const& group) override;
  scheduler_error_t cancel_and_wait(std::wstring const& group,
                                    boost::shared_ptr<scheduler_wait_callback_t> callback) override;
  std::list<boost::shared_ptr<task_t>> find_tasks(std::wstring const& group) override;
  bool find_group(boost::shared_ptr<task_t> task, std::wstring& group) override;
  scheduler_error_t add_unit(std::wstring const& name, boost::shared_ptr<unit_t> unit) override;
  scheduler_error_t add_status_callback(
      boost::shared_ptr<scheduler_status_callback_t> callback) override;
  scheduler_error_t remove_status_callback(
      boost::shared_ptr<scheduler_status_callback_t> callback) override;
  bool is_known_task(boost::shared_ptr<task_t> task) override;
  bool is_known_group(std::wstring& group) override;

  // True when `pattern` names `group` or a group below it: the empty pattern matches
  // every group, "a" matches "a" and "a/b" but not "ab". Case-sensitive.
  static bool matches(std::wstring const& pattern, std::wstring const& group);

  // Whether the calling thread runs a job of one of this scheduler's units (a unit's
  // thread, or a thread draining a queue unit). Released there, the scheduler does not
  // wait for its tasks.
  bool is_unit_thread() const;

  // The deleter of the schedulers that create_default_scheduler makes. On a thread of one
  // of the scheduler's units it cancels every task and leaves the destruction to the
  // thread that ends the last of them; elsewhere it destroys at once.
  static void dispose(scheduler_impl_t* scheduler);

 protected:
  // Terminates and forgets every unit; refused with seTasksPending while tasks run.
  scheduler_error_t release_units();

  // The subscriber of every unit's stage_completed.
  void handle_task_stage_complete(boost::shared_ptr<task_t> task);

 private:
  using task_ptr = boost::shared_ptr<task_t>;
  using callback_ptr = boost::shared_ptr<scheduler_status_callback_t>;
  using callback_list = std::list<callback_ptr>;

  struct task_hash_t {
    // Tasks sit at addresses a few dozen bytes apart: the bits are mixed so that they
    // spread over the buckets.
    std::size_t operator()(task_ptr const& task) const noexcept {
      auto const address = reinterpret_cast<std::uintptr_t>(task.get());
      return static_cast<std::size_t>((address >> 4) * 0x9E3779B97F4A7C15ull >> 16);
    }
  };
  // A group whose cancellation has not come to its end, with the number of running
  // tasks that still lie under it: the cancellation ends when that count is 0.
  struct canceling_group_t {
    std::wstring group;
    std::size_t running = 0;
  };
  // Tasks waiting for one preceding task, in the order in which they were added.
  using follower_list = std::vector<std::pair<task_ptr, std::wstring>>;

  class cancel_operation_status_t;
  class inside_t;
  using snapshot_ptr = boost::shared_ptr<std::vector<callback_ptr> const>;

  bool dispatch_next_stage(task_ptr const& task, bool finalization);
  void schedule_next_task_stage(task_ptr const& task);
  void schedule_next_task_final_stage(task_ptr const& task);
  void handle_task_complete(task_ptr const& task);
  // Whether a call into this scheduler is under way on the calling thread.
  bool is_on_stack() const;
  // Destroys the scheduler once it was released and its last task has ended.
  void dispose_if_orphaned();

  // Callers hold the tasks spin lock.
  bool is_under_canceling_group(std::wstring const& group) const;
  bool is_waiting(task_ptr const& task) const;
  // Moves the groups whose cancellation has come to its end out of the canceling list.
  void take_ended_groups(std::vector<std::wstring>& ended);

  // Calls `notify` on every observer of the current snapshot, with no lock held.
  template <typename F>
  void notify(F const& notify);
  // Hands a changed observer list on (callers hold the callback mutex): to the snapshot
  // that notifications walk and to every registered unit.
  void publish_callbacks();
  snapshot_ptr callback_snapshot() const;

  // Empties the registry and disconnects every unit; terminates them if asked.
  void release_units_forced(bool terminate_units);

  mutable spin_lock_t m_units_lock;
  std::unordered_map<std::wstring, boost::shared_ptr<unit_t>> m_units;

  mutable spin_lock_t m_tasks_lock;
  // Every running task with its group and whether it finalizes.
  std::unique_ptr<internal::task_table_t> m_tasks;
  // How many entries say finalizing; changed under the tasks lock.
  std::atomic<std::size_t> m_finalizing_tasks{0};
  std::unordered_map<task_ptr, follower_list, task_hash_t> m_sequential_tasks;
  std::unordered_map<task_ptr, std::size_t, task_hash_t> m_waiting_tasks;  // task -> entries
  std::list<canceling_group_t> m_canceling_groups;
  // Released by its last owner; goes with its last task. Written under the tasks lock,
  // read without it by the checks after each task's way through the tables.
  std::atomic<bool> m_orphaned{false};

  boost::shared_ptr<scheduler_wait_callback_t> m_default_wait;

  boost::recursive_mutex m_callback_mutex;
  callback_list m_status_callbacks;
  // An immutable copy of m_status_callbacks that notifications walk, so that an observer
  // may add or remove observers while it is being called.
  mutable spin_lock_t m_snapshot_lock;
  snapshot_ptr m_callback_snapshot;
  std::atomic<std::size_t> m_callback_count{0};
};

// Makes a scheduler_impl_t with `status` and `wait` and registers its units: "main"
// (a thread pool of one thread, when `create_main_unit` is true), "service" (a thread
// pool of up to 16 threads), "long tasks" (a thread per stage) and "delay tasks".
QUILLON2_API boost::shared_ptr<scheduler_t> create_default_scheduler(
    boost::shared_ptr<scheduler_status_callback_t> status,
    boost::shared_ptr<scheduler_wait_callback_t> wait, bool create_main_unit = true);

}  // namespace quillon2::threading
