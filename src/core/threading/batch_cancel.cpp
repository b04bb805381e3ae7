// batch_cancel_t: one cancellation of many tasks and groups, ended on a named unit.
//
// The object observes the scheduler from execute until the end of the operation and
// strikes each task and group off its lists as the scheduler reports them ended. The
// spin lock guards the lists and the operation's state and is never held across a call
// into the scheduler, a task or a signal.
#include <mutex>
#include <vector>

#include <boost/make_shared.hpp>

#include <quillon2/core/threading/batch_cancel.hpp>
#include <quillon2/core/threading/stage.hpp>
#include <quillon2/headers/kesmet.hpp>

#include "core/miscellaneous/include/logging.hpp"
#include "core/threading/include/group_match.hpp"

namespace quillon2::threading {

namespace {
using lock_t = std::lock_guard<spin_lock_t>;
}  // namespace

batch_cancel_t::batch_cancel_t() { prepare_end(); }

// The task that carries the end of an operation to its unit is made ahead, while no
// lock is held: execute may run inside a notification of the scheduler or inside an
// emission of `completed`, and connecting a new stage there would take locks in the
// order opposite to the one in which that stage is later emitted.
void batch_cancel_t::prepare_end() {
  auto task = boost::make_shared<default_task_t>();
  auto stage = boost::make_shared<stage_t>();
  stage->signal.connect(this, &batch_cancel_t::on_stage_execution);
  task->push_stage(stage);
  lock_t guard(m_lock);
  m_next_end = std::move(task);
  m_next_end_stage = std::move(stage);
}

// The end of an operation may be on its way to a unit's thread: no emission may reach
// the members once they start to go. The end tasks go first, so that their stages let go
// of this object from the signal's side, in the order in which connect locks.
batch_cancel_t::~batch_cancel_t() {
  m_completion_task.reset();
  m_next_end.reset();
  m_next_end_stage.reset();
  disconnect_all_signals();
}

boost::shared_ptr<batch_cancel_t> batch_cancel_t::create() {
  return boost::shared_ptr<batch_cancel_t>(new batch_cancel_t());
}

bool batch_cancel_t::is_in_progress() {
  lock_t guard(m_lock);
  return m_in_progress;
}

scheduler_error_t batch_cancel_t::add_group(std::wstring const& group) {
  lock_t guard(m_lock);
  if (m_in_progress) return seInProgress;
  for (auto const& listed : m_groups) {
    if (listed == group) return seAlreadyExists;
  }
  m_groups.push_back(group);
  return seOk;
}

scheduler_error_t batch_cancel_t::add_task(boost::shared_ptr<task_t> task) {
  if (!task) return seInvalidArgument;
  lock_t guard(m_lock);
  if (m_in_progress) return seInProgress;
  for (auto const& listed : m_tasks) {
    if (listed == task) return seAlreadyExists;
  }
  m_tasks.push_back(std::move(task));
  return seOk;
}

scheduler_error_t batch_cancel_t::execute(boost::shared_ptr<scheduler_t> scheduler,
                                          std::wstring const& unit) {
  if (!scheduler || unit.empty()) return seInvalidArgument;
  std::vector<boost::shared_ptr<task_t>> tasks;
  std::vector<std::wstring> groups;
  {
    lock_t guard(m_lock);
    if (m_in_progress) return seInProgress;
    m_in_progress = true;
    m_unit = unit;
    m_scheduler = scheduler;
    // The operation owns the object until `completed` has been emitted: the client may
    // let go of its pointer right after execute.
    m_self = shared_from_this();
    // The prepared stage is not shared with anybody yet: it learns its unit here.
    m_next_end_stage->unit = unit;
    m_completion_task = std::move(m_next_end);
    m_next_end_stage.reset();
    m_handing_over = false;
    m_complete_again = false;
    m_refused_groups.clear();
    // The object's own lists stay filled: they record what is still awaited.
    tasks.assign(m_tasks.begin(), m_tasks.end());
    groups.assign(m_groups.begin(), m_groups.end());
  }
  if (tasks.empty() && groups.empty()) {
    handle_complete();
    return seOk;
  }

  // Observe before anything is canceled, so that no end goes unseen.
  scheduler->add_status_callback(shared_from_this());
  // Mark every task first; only then ask which of them the scheduler still holds.
  for (auto const& task : tasks) task->cancel();
  for (auto const& task : tasks) {
    if (!scheduler->is_known_task(task)) task_completed(task);
  }

  for (auto const& group : groups) {
    {
      lock_t guard(m_lock);
      m_cancel_in_flight = group;
      m_in_flight = true;
      m_in_flight_covered = false;
    }
    scheduler_error_t const err = scheduler->cancel(group);
    bool done = false;
    {
      lock_t guard(m_lock);
      m_in_flight = false;
      if (err == seGroupCanceling) {
        // A cancellation of this group or of one above it is already running. It is
        // started under another text as a rule, so its end is what this group awaits.
        if (m_in_flight_covered) {
          m_groups.remove(group);
          done = m_groups.empty() && m_tasks.empty();
        } else {
          m_refused_groups.push_back(group);
        }
      }
    }
    if (done) handle_complete();
  }
  return seOk;
}

void batch_cancel_t::task_completed(boost::shared_ptr<task_t> task) {
  bool done = false;
  {
    lock_t guard(m_lock);
    if (!m_in_progress) return;
    m_tasks.remove(task);
    done = m_groups.empty() && m_tasks.empty();
  }
  if (done) handle_complete();
}

void batch_cancel_t::group_canceled(std::wstring const& group) {
  bool done = false;
  {
    lock_t guard(m_lock);
    if (!m_in_progress) return;
    m_groups.remove(group);
    for (auto refused = m_refused_groups.begin(); refused != m_refused_groups.end();) {
      if (internal::group_matches(group, *refused)) {
        m_groups.remove(*refused);
        refused = m_refused_groups.erase(refused);
      } else {
        ++refused;
      }
    }
    if (m_in_flight && internal::group_matches(group, m_cancel_in_flight)) {
      m_in_flight_covered = true;
    }
    done = m_groups.empty() && m_tasks.empty();
  }
  if (done) handle_complete();
}

void batch_cancel_t::handle_complete() {
  for (;;) {
    boost::shared_ptr<scheduler_t> scheduler;
    boost::shared_ptr<task_t> task;
    {
      lock_t guard(m_lock);
      // No scheduler: the operation has ended already (a notification that came after
      // on_stage_execution let the scheduler go) or was given up. Nothing is left to do.
      if (!m_in_progress || !m_scheduler || !m_completion_task) return;
      // The end is already on its way to the unit; one hand-over is enough.
      if (m_handing_over) {
        m_complete_again = true;
        return;
      }
      m_handing_over = true;
      m_complete_again = false;
      scheduler = m_scheduler;
      task = m_completion_task;
    }

    if (scheduler->add_task(task, std::wstring()) == seOk) {
      check_completion_ran(scheduler, task);
      return;
    }
    // Refused: someone cancels the empty group. Its end is reported to this observer
    // like any other, and that notification brings the hand-over back here; the task,
    // never entered, still holds its stage.
    bool again = false;
    {
      lock_t guard(m_lock);
      m_handing_over = false;
      again = m_complete_again;
      m_complete_again = false;
    }
    if (!again) return;
  }
}

void batch_cancel_t::check_completion_ran(boost::shared_ptr<scheduler_t> const& scheduler,
                                          boost::shared_ptr<task_t> const& task) {
  {
    lock_t guard(m_lock);
    if (m_completion_task != task) return;  // the stage has run
  }
  // The only stage is dispatched inside add_task: a task that the scheduler no longer
  // holds, and whose stage has not run, had that stage dropped or refused.
  if (scheduler->is_known_task(task)) return;
  boost::shared_ptr<scheduler_t> released;
  boost::shared_ptr<batch_cancel_t> self;
  std::wstring unit;
  {
    lock_t guard(m_lock);
    if (m_completion_task != task) return;
    m_completion_task.reset();
    released.swap(m_scheduler);
    self.swap(m_self);
    unit = m_unit;
  }
  Q2_LOG(internal::scheduler_logger(), internal::log_error,
         L"batch_cancel_t: the unit \"" << unit
                                        << L"\" did not run the end of the batch; completed is "
                                           L"not emitted");
  // The operation stays in progress, but lets the scheduler go, and the scheduler lets
  // this object go.
  released->remove_status_callback(self);
}

void batch_cancel_t::on_stage_execution(boost::shared_ptr<task_t> task) {
  boost::shared_ptr<scheduler_t> scheduler;
  // Keeps the object alive to the end of this call, after the scheduler has let go of it.
  boost::shared_ptr<batch_cancel_t> self;
  {
    lock_t guard(m_lock);
    // Only the stage of the current hand-over ends the operation.
    if (!m_scheduler || task != m_completion_task) return;
    m_in_progress = false;
    m_unit.clear();
    scheduler.swap(m_scheduler);
    self.swap(m_self);
    m_completion_task.reset();
    m_handing_over = false;
    m_complete_again = false;
    m_refused_groups.clear();
  }
  scheduler->remove_status_callback(self);
  scheduler.reset();
  prepare_end();  // before the handlers, which may start the next operation
  completed();
}

}  // namespace quillon2::threading
