// threads_unit_t: a thread per stage.
#include <string>
#include <vector>

#include <boost/thread/thread.hpp>

#include <quillon2/core/threading/stage.hpp>
#include <quillon2/core/threading/task.hpp>
#include <quillon2/core/threading/thread_name.hpp>
#include <quillon2/core/threading/units/threads_unit.hpp>

#include "core/threading/include/type_name.hpp"
#include "core/threading/include/unit_support.hpp"

namespace quillon2::threading {

threads_unit_t::threads_unit_t() = default;

threads_unit_t::~threads_unit_t() {
  // A stage running during the destruction may start another thread here.
  for (;;) {
    {
      spin_guard_t guard(m_lock);
      if (m_running_threads.empty()) break;
    }
    terminate();
  }
}

void threads_unit_t::on_registered() {}

void threads_unit_t::set_status_callbacks(status_callbacks_t const& callbacks) {
  m_observers.assign(callbacks);
}

unsigned int threads_unit_t::get_thread_limit() { return thread_limit; }

unsigned int threads_unit_t::get_active_threads() {
  spin_guard_t guard(m_lock);
  return static_cast<unsigned int>(m_running_threads.size());
}

scheduler_error_t threads_unit_t::execute(boost::shared_ptr<task_t> task,
                                          boost::shared_ptr<stage_t> stage) {
  if (!task || !stage) return seInvalidArgument;
  spin_guard_t guard(m_lock);
  if (m_running_threads.size() >= thread_limit) return seQueueFull;
  // The lock is held until the thread is entered, so that it finds itself when it ends.
  // The thread keeps the unit alive to its end, so that an owner released inside the
  // stage lets the unit go only once the thread has left it.
  auto thread = boost::shared_ptr<boost::thread>(new boost::thread(
      [this, keep = weak_from_this(), task = std::move(task), stage = std::move(stage)] {
        boost::shared_ptr<unit_t> const keep_alive = keep.lock();
        worker_thread(task, stage);
      }));
  m_running_threads.insert(std::move(thread));
  return seOk;
}

void threads_unit_t::terminate() {
  std::vector<boost::shared_ptr<boost::thread>> running;
  {
    spin_guard_t guard(m_lock);
    running.assign(m_running_threads.begin(), m_running_threads.end());
  }
  for (auto& thread : running) thread->interrupt();
  for (auto& thread : running) {
    if (thread->get_id() != boost::this_thread::get_id() && thread->joinable()) thread->join();
  }
}

void threads_unit_t::worker_thread(boost::shared_ptr<task_t> task,
                                   boost::shared_ptr<stage_t> stage) {
  internal::serving_unit_scope_t const serving(this);
  m_observers.notify([](scheduler_status_callback_t& c) { c.thread_started(); });

  KESMET_2_18::strings::ustring8 display = internal::safe_display_name(*task);
  if (display.empty()) {
    task_t const& running = *task;
    display = internal::type_display_name(typeid(running));
  }
  std::string const name = "Sh(T): " + display;
  set_thread_name(name.c_str(), false);

  try {
    execute_job(task, stage);
  } catch (...) {
    // Interrupted by terminate(), or a stage that threw (logged and reported): the thread
    // ends in the orderly way.
  }
  // Told before the place is given back: once the thread has left the set, it touches
  // nothing of the unit, which may then be destroyed.
  m_observers.notify([](scheduler_status_callback_t& c) { c.thread_finished(); });
  handle_thread_complete(boost::this_thread::get_id());
}

void threads_unit_t::handle_thread_complete(boost::thread::id id) {
  boost::shared_ptr<boost::thread> finished;
  spin_guard_t guard(m_lock);
  for (auto it = m_running_threads.begin(); it != m_running_threads.end(); ++it) {
    if ((*it)->get_id() == id) {
      finished = *it;
      m_running_threads.erase(it);
      break;
    }
  }
  // The thread object goes while its thread still runs: it is let go, unless terminate()
  // holds it to join.
  if (finished && finished.use_count() == 1) finished->detach();
}

void threads_unit_t::execute_job(boost::shared_ptr<task_t> const& task,
                                 boost::shared_ptr<stage_t> const& stage) {
  try {
    stage->signal(task);
    stage_completed(task);
  } catch (boost::thread_interrupted const&) {
    throw;
  } catch (...) {
    internal::report_stage_exception("threads_unit_t", m_observers, task, __FILE__, __LINE__);
    throw;
  }
}

}  // namespace quillon2::threading
