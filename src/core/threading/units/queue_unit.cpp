// queue_unit_t: jobs kept until the application drains them.
#include <climits>

#include <quillon2/core/threading/stage.hpp>
#include <quillon2/core/threading/task.hpp>
#include <quillon2/core/threading/units/queue_unit.hpp>

#include "core/threading/include/unit_support.hpp"

namespace quillon2::threading {

queue_unit_t::queue_unit_t() = default;

queue_unit_t::~queue_unit_t() = default;

void queue_unit_t::on_registered() {}

scheduler_error_t queue_unit_t::execute(boost::shared_ptr<task_t> task,
                                        boost::shared_ptr<stage_t> stage) {
  if (!task || !stage) return seInvalidArgument;
  {
    spin_guard_t guard(m_lock);
    if (m_jobs.size() >= queue_limit) return seQueueFull;
    m_jobs.emplace_back(task, stage);
  }
  task_queued(task, stage);
  return seOk;
}

void queue_unit_t::process_queue(int count) {
  if (count < 1) count = INT_MAX;
  internal::serving_unit_scope_t const serving(this);
  std::deque<job_t> taken;
  {
    spin_guard_t guard(m_lock);
    while (!m_jobs.empty() && taken.size() < static_cast<std::size_t>(count)) {
      taken.push_back(std::move(m_jobs.front()));
      m_jobs.pop_front();
    }
  }
  while (!taken.empty()) {
    job_t job = std::move(taken.front());
    taken.pop_front();
    try {
      job.second->signal(job.first);
      stage_completed(job.first);
    } catch (...) {
      // The jobs taken by this call and not yet run are lost with the exception.
      internal::report_stage_exception("queue_unit_t", m_observers, job.first, __FILE__, __LINE__);
      throw;
    }
  }
}

bool queue_unit_t::has_tasks() const {
  spin_guard_t guard(m_lock);
  return !m_jobs.empty();
}

void queue_unit_t::terminate() {
  std::deque<job_t> dropped;
  {
    spin_guard_t guard(m_lock);
    dropped.swap(m_jobs);
  }
  // The jobs are released here, outside the lock: releasing a task may run its
  // destructor.
}

void queue_unit_t::set_status_callbacks(status_callbacks_t const& callbacks) {
  m_observers.assign(callbacks);
}

}  // namespace quillon2::threading
