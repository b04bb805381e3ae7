// The observer defaults, the default wait callback and the process-wide scheduler slot.
#include <boost/thread/lock_guard.hpp>
#include <boost/thread/mutex.hpp>
#include <boost/thread/thread.hpp>

#include <quillon2/core/threading/scheduler.hpp>

namespace quillon2::threading {

// --- scheduler_status_callback_t -----------------------------------------------------

void scheduler_status_callback_t::thread_started() {}
void scheduler_status_callback_t::thread_finished() {}
void scheduler_status_callback_t::task_added(boost::shared_ptr<task_t>) {}
void scheduler_status_callback_t::task_completed(boost::shared_ptr<task_t>) {}
void scheduler_status_callback_t::task_exception(boost::shared_ptr<task_t>) {}
void scheduler_status_callback_t::stage_rejected(boost::shared_ptr<task_t>,
                                                 boost::shared_ptr<stage_t>, scheduler_error_t) {}
void scheduler_status_callback_t::group_canceled(std::wstring const&) {}

// --- waiting -------------------------------------------------------------------------

scheduler_operation_status_t::~scheduler_operation_status_t() = default;

scheduler_wait_callback_t::~scheduler_wait_callback_t() = default;

namespace {

bool finished(boost::weak_ptr<scheduler_operation_status_t> const& status) {
  boost::shared_ptr<scheduler_operation_status_t> held = status.lock();
  return !held || held->is_finished();
}

}  // namespace

void default_scheduler_wait_callback_t::wait(boost::weak_ptr<scheduler_operation_status_t> status) {
  if (finished(status)) return;
  int pause_ms = 0;
  for (;;) {
    boost::this_thread::sleep_for(boost::chrono::milliseconds(pause_ms));
    if (pause_ms < 500) pause_ms += 10;
    if (finished(status)) return;
  }
}

// --- the process-wide slot -----------------------------------------------------------

scheduler_t::~scheduler_t() = default;

namespace {

struct scheduler_slot_t {
  boost::mutex mutex;
  boost::shared_ptr<scheduler_t> scheduler;
};

scheduler_slot_t& scheduler_slot() {
  static scheduler_slot_t slot;
  return slot;
}

}  // namespace

void set_scheduler(boost::shared_ptr<scheduler_t> scheduler) {
  scheduler_slot_t& slot = scheduler_slot();
  {
    boost::lock_guard<boost::mutex> guard(slot.mutex);
    slot.scheduler.swap(scheduler);
  }
  // The previous scheduler is released with the lock dropped: its teardown waits for
  // running stages, and one of them may be asking get_scheduler for the new one.
  scheduler.reset();
}

boost::shared_ptr<scheduler_t> get_scheduler() {
  scheduler_slot_t& slot = scheduler_slot();
  boost::lock_guard<boost::mutex> guard(slot.mutex);
  return slot.scheduler;
}

}  // namespace quillon2::threading
