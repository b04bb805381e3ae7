// task_t and default_task_t.
#include <quillon2/core/threading/stage.hpp>
#include <quillon2/core/threading/task.hpp>

#include "core/threading/include/type_name.hpp"

namespace quillon2::threading {

using KESMET_2_18::strings::ustring8;

// --- task_t --------------------------------------------------------------------------

task_t::task_t() noexcept : m_flags(0) {}

task_t::~task_t() = default;

int task_t::set_flags(int flags) noexcept { return m_flags.exchange(flags); }

int task_t::merge_flags(int flags) noexcept { return m_flags.fetch_or(flags); }

int task_t::get_flags() const noexcept { return m_flags.load(); }

// --- default_task_t ------------------------------------------------------------------

default_task_t::default_task_t() = default;

default_task_t::~default_task_t() = default;

// The head of one of the two queues, null when it is empty.
boost::shared_ptr<stage_t> default_task_t::take_first(stage_queue_t& queue) {
  boost::shared_ptr<stage_t> stage;
  spin_guard_t guard(m_lock);
  auto& stages = queue.stages;
  if (queue.head == stages.size()) return stage;
  stage.swap(stages[queue.head++]);
  if (queue.head == stages.size()) {
    stages.clear();
    queue.head = 0;
  } else if (queue.head >= 16 && queue.head * 2 >= stages.size()) {
    // A queue that is refilled while it runs never empties: its taken half goes now and then.
    stages.erase(stages.begin(), stages.begin() + static_cast<std::ptrdiff_t>(queue.head));
    queue.head = 0;
  }
  return stage;
}

void default_task_t::append(stage_queue_t& queue, boost::shared_ptr<stage_t> stage) {
  // A null entry would read as the end of the queue.
  if (!stage) return;
  spin_guard_t guard(m_lock);
  queue.stages.push_back(std::move(stage));
}

void default_task_t::cancel() { m_canceled.exchange(1); }

bool default_task_t::is_canceled() const { return m_canceled.load() != 0; }

boost::shared_ptr<stage_t> default_task_t::pop_stage() { return take_first(m_stages); }

boost::shared_ptr<stage_t> default_task_t::pop_finalization_stage() {
  return take_first(m_finalization_stages);
}

ustring8 default_task_t::get_display_name() const {
  {
    spin_guard_t guard(m_lock);
    if (!m_display_name.empty()) return m_display_name;
  }
  return internal::type_display_name(typeid(*this));
}

scheduler_error_t default_task_t::push_stage(boost::shared_ptr<stage_t> stage) {
  append(m_stages, std::move(stage));
  return seOk;
}

scheduler_error_t default_task_t::push_finalization_stage(boost::shared_ptr<stage_t> stage) {
  append(m_finalization_stages, std::move(stage));
  return seOk;
}

void default_task_t::set_display_name(ustring8 const& name) {
  ustring8 copy(name);  // allocates outside the lock
  spin_guard_t guard(m_lock);
  m_display_name.swap(copy);
}

}  // namespace quillon2::threading
