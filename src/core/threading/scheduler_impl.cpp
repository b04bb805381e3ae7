// The scheduler core: tables, dispatch, completion, cancellation and notifications.
//
// Every table lives behind the tasks spin lock; the unit registry behind the units spin
// lock. The two are never held together, and neither is held while foreign code runs
// (a task's virtual operations other than the flag reads, a unit's execute, an observer).
#include <algorithm>
#include <mutex>

#include <boost/make_shared.hpp>
#include <boost/thread/thread.hpp>
#include <boost/weak_ptr.hpp>

#include <quillon2/core/assert.hpp>
#include <quillon2/core/threading/scheduler_impl.hpp>
#include <quillon2/core/threading/stage.hpp>
#include <quillon2/core/threading/units/delayed_tasks_unit.hpp>
#include <quillon2/core/threading/units/thread_pool_unit.hpp>
#include <quillon2/core/threading/units/threads_unit.hpp>
#include <quillon2/headers/kesmet.hpp>

#include "core/miscellaneous/include/logging.hpp"
#include "core/threading/include/group_match.hpp"
#include "core/threading/include/task_table.hpp"
#include "core/threading/include/unit_support.hpp"

namespace quillon2::threading {

namespace {

using internal::log_trace;
using internal::scheduler_logger;

std::wstring display_name(boost::shared_ptr<task_t> const& task) {
  return task ? kesmet2::utf8_to_utf16(task->get_display_name()) : std::wstring(L"(null)");
}

using lock_t = std::lock_guard<spin_lock_t>;

// The schedulers whose stage completion runs on this thread, innermost last.
thread_local std::vector<void const*> t_inside;

}  // namespace

// Answers whether the cancellation of one group has come to its end.
class scheduler_impl_t::cancel_operation_status_t : public scheduler_operation_status_t {
 public:
  cancel_operation_status_t(scheduler_impl_t const& scheduler, std::wstring group)
      : m_scheduler(scheduler), m_group(std::move(group)) {}

  bool is_finished() override {
    lock_t guard(m_scheduler.m_tasks_lock);
    return !m_scheduler.is_under_canceling_group(m_group);
  }

 private:
  scheduler_impl_t const& m_scheduler;
  std::wstring m_group;
};

bool scheduler_impl_t::matches(std::wstring const& pattern, std::wstring const& group) {
  return internal::group_matches(pattern, group);
}

scheduler_impl_t::scheduler_impl_t(boost::shared_ptr<scheduler_status_callback_t> status,
                                   boost::shared_ptr<scheduler_wait_callback_t> wait)
    : m_tasks(std::make_unique<internal::task_table_t>()), m_default_wait(std::move(wait)) {
  Q2_LOG(scheduler_logger(), log_trace, L"scheduler_impl_t::scheduler_impl_t");
  if (status) m_status_callbacks.push_back(std::move(status));
  publish_callbacks();
}

scheduler_impl_t::~scheduler_impl_t() {
  Q2_LOG(scheduler_logger(), log_trace, L"scheduler_impl_t::~scheduler_impl_t");
  scheduler_error_t err = release_units();
  if (err == seTasksPending && is_unit_thread()) {
    // Released inside a job of one of its own units: waiting for the tasks would wait
    // for this very thread. Everything is canceled and the units are cut off instead;
    // each unit goes when its last job has let go of it.
    cancel(std::wstring());
    release_units_forced(false);
  } else if (err == seTasksPending) {
    cancel_and_wait(std::wstring(), m_default_wait);
    err = release_units();
    QUILLON_ASSERT(err == seOk);
    // Tasks are still registered and nobody will wait for them: cut the units off
    // before the tables go, so that no unit thread can reach this object any more.
    if (err != seOk) release_units_forced(true);
  }
  disconnect_all_signals();
}

void scheduler_impl_t::dispose(scheduler_impl_t* scheduler) {
  if (!scheduler->is_unit_thread()) {
    delete scheduler;
    return;
  }
  // Released inside a job of one of its own units, which its teardown would wait for.
  // Its tasks are canceled and it goes when the last of them has ended, on the thread
  // that ends it. The cancel comes first: once the mark is set, another thread may end
  // the last task and destroy the scheduler.
  scheduler->cancel(std::wstring());
  bool now = false;
  {
    lock_t guard(scheduler->m_tasks_lock);
    now = scheduler->m_tasks->empty() && !scheduler->is_on_stack();
    scheduler->m_orphaned.store(!now, std::memory_order_relaxed);
  }
  if (now) delete scheduler;
}

bool scheduler_impl_t::is_on_stack() const {
  return std::find(t_inside.begin(), t_inside.end(), this) != t_inside.end();
}

// Marks this scheduler's code on the stack of this thread: it is not destroyed before
// the outermost of these calls has returned.
class scheduler_impl_t::inside_t {
 public:
  explicit inside_t(scheduler_impl_t const* scheduler) { t_inside.push_back(scheduler); }
  ~inside_t() { t_inside.pop_back(); }
  inside_t(inside_t const&) = delete;
  inside_t& operator=(inside_t const&) = delete;
};

void scheduler_impl_t::dispose_if_orphaned() {
  // The mark is set under the tasks lock before the last task leaves the tables, and
  // the caller has taken that lock since it dealt with its task: a clear mark seen here
  // is no mark missed.
  if (!m_orphaned.load(std::memory_order_relaxed) || is_on_stack()) return;
  bool now = false;
  {
    lock_t guard(m_tasks_lock);
    now = m_orphaned.load(std::memory_order_relaxed) && m_tasks->empty();
    if (now) m_orphaned.store(false, std::memory_order_relaxed);
  }
  if (now) delete this;
}

bool scheduler_impl_t::is_unit_thread() const {
  unit_t const* const serving = internal::serving_unit();
  if (serving == nullptr) return false;
  lock_t guard(m_units_lock);
  for (auto const& unit : m_units) {
    if (unit.second.get() == serving) return true;
  }
  return false;
}

bool scheduler_impl_t::is_under_canceling_group(std::wstring const& group) const {
  for (auto const& entry : m_canceling_groups) {
    if (matches(entry.group, group)) return true;
  }
  return false;
}

bool scheduler_impl_t::is_waiting(task_ptr const& task) const {
  return m_waiting_tasks.find(task) != m_waiting_tasks.end();
}

scheduler_error_t scheduler_impl_t::add_task(boost::shared_ptr<task_t> task,
                                             std::wstring const& group) {
  if (!task) return seInvalidArgument;
  Q2_LOG(scheduler_logger(), log_trace,
         L"scheduler_impl_t::add_task. Name:" << display_name(task) << L" group:" << group);
  {
    lock_t guard(m_tasks_lock);
    if (is_under_canceling_group(group)) {
      Q2_LOG(scheduler_logger(), log_trace,
             L"\tthe task is not added because the group is canceling.");
      return seGroupCanceling;
    }
    if (!m_tasks->insert(task, group)) {
      Q2_LOG(scheduler_logger(), log_trace, L"\tthe task is not added because it already exists.");
      return seAlreadyExists;
    }
  }
  {
    inside_t const inside(this);
    schedule_next_task_stage(task);
    notify([&task](scheduler_status_callback_t& callback) { callback.task_added(task); });
  }
  dispose_if_orphaned();
  return seOk;
}

scheduler_error_t scheduler_impl_t::add_task(boost::shared_ptr<task_t> prev_task,
                                             boost::shared_ptr<task_t> task,
                                             std::wstring const& group) {
  if (!prev_task || !task) return seInvalidArgument;
  Q2_LOG(scheduler_logger(), log_trace,
         L"scheduler_impl_t::add_task. Name:" << display_name(task) << L" group:" << group
                                              << L" prev task:" << display_name(prev_task));
  lock_t guard(m_tasks_lock);
  if (is_under_canceling_group(group)) {
    Q2_LOG(scheduler_logger(), log_trace,
           L"\tthe task is not added because the group is canceling.");
    return seGroupCanceling;
  }
  if (m_tasks->find(task.get()) != nullptr || is_waiting(task)) {
    Q2_LOG(scheduler_logger(), log_trace, L"\tthe task is not added because it already exists.");
    return seAlreadyExists;
  }
  m_sequential_tasks[prev_task].emplace_back(task, group);
  ++m_waiting_tasks[task];
  return seOk;
}

bool scheduler_impl_t::dispatch_next_stage(task_ptr const& task, bool finalization) {
  for (;;) {
    boost::shared_ptr<stage_t> stage =
        finalization ? task->pop_finalization_stage() : task->pop_stage();
    if (!stage) return false;

    boost::shared_ptr<unit_t> unit;
    {
      lock_t guard(m_units_lock);
      auto found = m_units.find(stage->unit);
      if (found != m_units.end()) unit = found->second;
    }
    if (!unit) continue;  // a stage for a unit that is not registered is dropped

    task->merge_flags(stage->flags);
    // A task is marked as finalizing only when a finalization stage really leaves for a
    // unit: that mark is what routes the stage's completion, and a task that completes
    // right away needs none.
    if (finalization) {
      lock_t guard(m_tasks_lock);
      internal::task_table_t::entry_t* const found = m_tasks->find(task.get());
      if (found != nullptr && !found->finalizing) {
        found->finalizing = true;
        m_finalizing_tasks.fetch_add(1, std::memory_order_relaxed);
      }
    }
    scheduler_error_t const err = unit->execute(task, stage);
    if (err == seOk) return true;

    notify(
        [&](scheduler_status_callback_t& callback) { callback.stage_rejected(task, stage, err); });
    return false;
  }
}

void scheduler_impl_t::schedule_next_task_stage(task_ptr const& task) {
  Q2_LOG(scheduler_logger(), log_trace,
         L"scheduler_impl_t::schedule_next_task_stage. task:" << display_name(task));
  if (!task->is_canceled() && dispatch_next_stage(task, false)) return;
  schedule_next_task_final_stage(task);
}

void scheduler_impl_t::schedule_next_task_final_stage(task_ptr const& task) {
  Q2_LOG(scheduler_logger(), log_trace,
         L"scheduler_impl_t::schedule_next_task_final_stage. task:" << display_name(task));
  if ((task->get_flags() & task_t::started_flag) != 0 && dispatch_next_stage(task, true)) return;
  handle_task_complete(task);
}

void scheduler_impl_t::handle_task_stage_complete(boost::shared_ptr<task_t> task) {
  Q2_LOG(scheduler_logger(), log_trace,
         L"scheduler_impl_t::handle_task_stage_complete. task:" << display_name(task));
  if (!task) return;
  // The count of finalizing tasks rose, if for this task, before its stage went to the
  // unit, which hands the job over under a lock of its own: while no task finalizes, the
  // table need not be asked.
  bool finalizing = false;
  if (m_finalizing_tasks.load(std::memory_order_relaxed) != 0) {
    lock_t guard(m_tasks_lock);
    internal::task_table_t::entry_t const* const found = m_tasks->find(task.get());
    finalizing = found != nullptr && found->finalizing;
  }
  {
    inside_t const inside(this);
    if (finalizing || task->is_canceled()) {
      schedule_next_task_final_stage(task);
    } else {
      schedule_next_task_stage(task);
    }
  }
  // A scheduler whose last owner let go inside a job goes with its last task.
  dispose_if_orphaned();
}

void scheduler_impl_t::handle_task_complete(task_ptr const& task) {
  Q2_LOG(scheduler_logger(), log_trace,
         L"scheduler_impl_t::handle_task_complete. task:" << display_name(task));
  follower_list followers;
  std::vector<std::wstring> ended_groups;
  task_ptr entry_key;  // let go of after the lock
  {
    lock_t guard(m_tasks_lock);
    internal::task_table_t::entry_t* const found = m_tasks->find(task.get());
    if (found != nullptr) {
      // The task no longer holds back the cancellations that cover its group.
      for (auto& entry : m_canceling_groups) {
        if (entry.running != 0 && matches(entry.group, found->group_name())) --entry.running;
      }
      if (found->finalizing) m_finalizing_tasks.fetch_sub(1, std::memory_order_relaxed);
      entry_key = m_tasks->erase(found);
    }
    auto waiting = m_sequential_tasks.find(task);
    if (waiting != m_sequential_tasks.end()) {
      followers.swap(waiting->second);
      m_sequential_tasks.erase(waiting);
      for (auto const& follower : followers) {
        auto count = m_waiting_tasks.find(follower.first);
        if (count != m_waiting_tasks.end() && --count->second == 0) m_waiting_tasks.erase(count);
      }
    }
    // Without followers to start first, the ended cancellations are known now.
    if (followers.empty()) take_ended_groups(ended_groups);
  }

  if (!followers.empty()) {
    // Followers enter through the virtual add_task; one whose group is being canceled is
    // refused there and dropped without a word.
    for (auto const& follower : followers) {
      scheduler_t& self = *this;
      self.add_task(follower.first, follower.second);
    }
    followers.clear();
    lock_t guard(m_tasks_lock);
    take_ended_groups(ended_groups);
  }

  // One pass over one snapshot, with no lock held: the task first, then the groups it
  // closed.
  if (m_callback_count.load(std::memory_order_acquire) == 0) return;
  snapshot_ptr const callbacks = callback_snapshot();
  for (auto const& callback : *callbacks) callback->task_completed(task);
  for (auto const& group : ended_groups) {
    for (auto const& callback : *callbacks) callback->group_canceled(group);
  }
}

void scheduler_impl_t::take_ended_groups(std::vector<std::wstring>& ended) {
  for (auto entry = m_canceling_groups.begin(); entry != m_canceling_groups.end();) {
    if (entry->running == 0) {
      ended.push_back(std::move(entry->group));
      entry = m_canceling_groups.erase(entry);
    } else {
      ++entry;
    }
  }
}

scheduler_error_t scheduler_impl_t::cancel(std::wstring const& group) {
  Q2_LOG(scheduler_logger(), log_trace, L"scheduler_impl_t::cancel. Group:" << group);
  std::vector<task_ptr> to_cancel;
  {
    lock_t guard(m_tasks_lock);
    if (is_under_canceling_group(group)) {
      Q2_LOG(scheduler_logger(), log_trace, L"\talready canceled.");
      return seGroupCanceling;
    }
    std::size_t running = 0;
    m_tasks->for_each([&](task_ptr const& task, std::wstring const& task_group) {
      if (!matches(group, task_group)) return;
      Q2_LOG(scheduler_logger(), log_trace,
             L"\tinsert from m_task_group. Task:" << display_name(task));
      to_cancel.push_back(task);
      ++running;
    });
    for (auto const& waiting : m_sequential_tasks) {
      for (auto const& follower : waiting.second) {
        if (!matches(group, follower.second)) continue;
        Q2_LOG(scheduler_logger(), log_trace,
               L"\tinsert from m_sequential_tasks. Task:" << display_name(follower.first));
        to_cancel.push_back(follower.first);
      }
    }
    if (to_cancel.empty()) {
      Q2_LOG(scheduler_logger(), log_trace, L"\tNo tasks to cancel.");
    } else {
      m_canceling_groups.push_back(canceling_group_t{group, running});
    }
  }

  if (to_cancel.empty()) {
    notify([&group](scheduler_status_callback_t& callback) { callback.group_canceled(group); });
    return seOk;
  }
  // A task can be listed twice (running and waiting at once); canceling is idempotent.
  for (auto const& task : to_cancel) task->cancel();
  return seOk;
}

scheduler_error_t scheduler_impl_t::cancel_and_wait(
    std::wstring const& group, boost::shared_ptr<scheduler_wait_callback_t> callback) {
  Q2_LOG(scheduler_logger(), log_trace, L"scheduler_impl_t::cancel_and_wait. Group:" << group);
  if (!callback && !m_default_wait) return seNoWaitCallback;
  scheduler_t& self = *this;
  scheduler_error_t const err = self.cancel(group);
  if (err != seOk) return err;

  auto status = boost::make_shared<cancel_operation_status_t>(*this, group);
  boost::weak_ptr<scheduler_operation_status_t> weak_status = status;
  (callback ? callback : m_default_wait)->wait(weak_status);
  Q2_LOG(scheduler_logger(), log_trace,
         L"scheduler_impl_t::cancel_and_wait. Finished Group:" << group);
  return seOk;
}

std::list<boost::shared_ptr<task_t>> scheduler_impl_t::find_tasks(std::wstring const& group) {
  std::list<task_ptr> found;
  lock_t guard(m_tasks_lock);
  m_tasks->for_each([&](task_ptr const& task, std::wstring const& task_group) {
    if (matches(group, task_group)) found.push_back(task);
  });
  return found;
}

bool scheduler_impl_t::find_group(boost::shared_ptr<task_t> task, std::wstring& group) {
  lock_t guard(m_tasks_lock);
  internal::task_table_t::entry_t const* const found = m_tasks->find(task.get());
  if (found == nullptr) return false;
  group = found->group_name();
  return true;
}

bool scheduler_impl_t::is_known_task(boost::shared_ptr<task_t> task) {
  lock_t guard(m_tasks_lock);
  return m_tasks->find(task.get()) != nullptr || is_waiting(task);
}

bool scheduler_impl_t::is_known_group(std::wstring& group) {
  lock_t guard(m_tasks_lock);
  if (is_under_canceling_group(group)) return false;
  if (m_tasks->any_of([&group](task_ptr const&, std::wstring const& task_group) {
        return matches(group, task_group);
      })) {
    return true;
  }
  for (auto const& waiting : m_sequential_tasks) {
    for (auto const& follower : waiting.second) {
      if (matches(group, follower.second)) return true;
    }
  }
  return false;
}

scheduler_error_t scheduler_impl_t::add_unit(std::wstring const& name,
                                             boost::shared_ptr<unit_t> unit) {
  if (name.empty() || !unit) return seInvalidArgument;
  {
    lock_t guard(m_units_lock);
    if (m_units.count(name) != 0) return seAlreadyExists;
    unit->stage_completed.connect(this, &scheduler_impl_t::handle_task_stage_complete);
    m_units.emplace(name, unit);
  }
  {
    // The observers go first, so that a thread the unit starts on registration is
    // announced (and known as this scheduler's) like every later one.
    boost::lock_guard<boost::recursive_mutex> guard(m_callback_mutex);
    unit->set_status_callbacks(m_status_callbacks);
  }
  unit->on_registered();
  return seOk;
}

void scheduler_impl_t::publish_callbacks() {
  {
    lock_t guard(m_snapshot_lock);
    m_callback_snapshot = boost::make_shared<std::vector<callback_ptr> const>(
        m_status_callbacks.begin(), m_status_callbacks.end());
  }
  m_callback_count.store(m_status_callbacks.size(), std::memory_order_release);
  // The units take their copies outside the units spin lock: a unit's own lock may be
  // held by a thread that waits for the scheduler.
  std::vector<boost::shared_ptr<unit_t>> units;
  {
    lock_t units_guard(m_units_lock);
    units.reserve(m_units.size());
    for (auto const& unit : m_units) units.push_back(unit.second);
  }
  for (auto const& unit : units) unit->set_status_callbacks(m_status_callbacks);
}

scheduler_impl_t::snapshot_ptr scheduler_impl_t::callback_snapshot() const {
  lock_t guard(m_snapshot_lock);
  return m_callback_snapshot;
}

scheduler_error_t scheduler_impl_t::add_status_callback(
    boost::shared_ptr<scheduler_status_callback_t> callback) {
  boost::lock_guard<boost::recursive_mutex> guard(m_callback_mutex);
  if (std::find(m_status_callbacks.begin(), m_status_callbacks.end(), callback) !=
      m_status_callbacks.end()) {
    return seAlreadyExists;
  }
  m_status_callbacks.push_back(std::move(callback));
  publish_callbacks();
  return seOk;
}

scheduler_error_t scheduler_impl_t::remove_status_callback(
    boost::shared_ptr<scheduler_status_callback_t> callback) {
  boost::lock_guard<boost::recursive_mutex> guard(m_callback_mutex);
  auto found = std::find(m_status_callbacks.begin(), m_status_callbacks.end(), callback);
  if (found == m_status_callbacks.end()) return seNotFound;
  m_status_callbacks.erase(found);
  publish_callbacks();
  return seOk;
}

template <typename F>
void scheduler_impl_t::notify(F const& call) {
  // Without observers there is nobody to tell; the count is published after the list
  // changed. The observers are called with no lock held.
  if (m_callback_count.load(std::memory_order_acquire) == 0) return;
  snapshot_ptr const callbacks = callback_snapshot();
  for (auto const& callback : *callbacks) call(*callback);
}

scheduler_error_t scheduler_impl_t::release_units() {
  {
    lock_t guard(m_tasks_lock);
    if (!m_tasks->empty()) return seTasksPending;
  }
  // The registry is emptied before any unit stops, so that a unit thread still busy
  // with the end of a task (starting followers, say) finds no unit to hand work to
  // instead of waiting for a lock held across the join of its own thread.
  std::unordered_map<std::wstring, boost::shared_ptr<unit_t>> units;
  {
    lock_t guard(m_units_lock);
    units.swap(m_units);
  }
  for (auto const& unit : units) {
    try {
      unit.second->terminate();
    } catch (boost::thread_resource_error const&) {
      // Released on the unit's own thread, which cannot stop itself: the unit goes when
      // that thread lets go of it.
    }
    unit.second->stage_completed.disconnect(this, &scheduler_impl_t::handle_task_stage_complete);
  }
  return seOk;
}

void scheduler_impl_t::release_units_forced(bool terminate_units) {
  std::unordered_map<std::wstring, boost::shared_ptr<unit_t>> units;
  {
    lock_t guard(m_units_lock);
    units.swap(m_units);
  }
  // Disconnecting waits for an emission in progress on another thread to end; after
  // it no stage completion can reach this object.
  for (auto const& unit : units) {
    unit.second->stage_completed.disconnect(this, &scheduler_impl_t::handle_task_stage_complete);
  }
  if (!terminate_units) return;
  for (auto const& unit : units) unit.second->terminate();
}

boost::shared_ptr<scheduler_t> create_default_scheduler(
    boost::shared_ptr<scheduler_status_callback_t> status,
    boost::shared_ptr<scheduler_wait_callback_t> wait, bool create_main_unit) {
  // The last owner may let go on one of the scheduler's own unit threads: the teardown
  // then waits for the tasks to end there instead of waiting for them (dispose).
  auto* impl = new scheduler_impl_t(std::move(status), std::move(wait));
  boost::shared_ptr<scheduler_t> scheduler(impl, &scheduler_impl_t::dispose);
  if (create_main_unit) impl->add_unit(unit_main, boost::make_shared<thread_pool_unit_t>(1u));
  impl->add_unit(unit_service, boost::make_shared<thread_pool_unit_t>(
                                   thread_pool_unit_t::default_thread_limit()));
  impl->add_unit(unit_long_tasks, boost::make_shared<threads_unit_t>());
  impl->add_unit(unit_delay_tasks, boost::make_shared<delayed_tasks_unit_t>());
  return scheduler;
}

}  // namespace quillon2::threading
