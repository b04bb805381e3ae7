// threads_unit_t: a new thread for every stage, at most 64 at a time, and no queue: a
// stage that finds all 64 in use is refused with seQueueFull.
//
// A thread names itself "Sh(T): " and the task's display name (or the task's class name
// when the display name is empty), runs the stage and the scheduler steps that follow it,
// tells the observers thread_finished, and gives its place back. A stage that throws is
// logged at ERROR and reported to the observers (task_exception); its task is left
// unfinished and the thread ends normally.
#pragma once

#include <set>

#include <boost/shared_ptr.hpp>
#include <boost/thread/thread.hpp>

#include <quillon2/core/threading/spin_lock.hpp>
#include <quillon2/core/threading/unit.hpp>
#include <quillon2/export.hpp>

namespace quillon2::threading {

class QUILLON2_API threads_unit_t : public unit_t {
 public:
  static constexpr unsigned int thread_limit = 64;

  threads_unit_t();
  // Interrupts and joins the running threads.
  ~threads_unit_t() override;

  void on_registered() override;
  // Interrupts each running thread, then joins it. A thread that a running stage starts
  // meanwhile is not waited for.
  void terminate() override;
  void set_status_callbacks(status_callbacks_t const& callbacks) override;
  // Starts a thread for the stage; seQueueFull when 64 run, seInvalidArgument for a null
  // task or stage. A failure to start a thread throws boost::thread_resource_error.
  scheduler_error_t execute(boost::shared_ptr<task_t> task,
                            boost::shared_ptr<stage_t> stage) override;

  unsigned int get_thread_limit();
  // Threads running a stage.
  unsigned int get_active_threads();

 protected:
  void worker_thread(boost::shared_ptr<task_t> task, boost::shared_ptr<stage_t> stage);
  void handle_thread_complete(boost::thread::id id);
  void execute_job(boost::shared_ptr<task_t> const& task, boost::shared_ptr<stage_t> const& stage);

 private:
  _internal::unit_observers_t m_observers;
  spin_lock_t m_lock;
  std::set<boost::shared_ptr<boost::thread>> m_running_threads;
};

}  // namespace quillon2::threading
