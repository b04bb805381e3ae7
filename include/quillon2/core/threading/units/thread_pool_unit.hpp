// thread_pool_unit_t: a queue served by worker threads. Workers are started on demand,
// at most one per execute, up to the unit's limit, and are kept until terminate.
//
// A job is added a worker when no idle worker is left for the jobs that were already
// there (pending + active >= started). A worker that runs out of jobs looks for the next
// for up to 50 microseconds before it sleeps, one worker of the unit at a time and only
// while the busy workers leave a processor free beside the adding thread's, so that a
// steady flow of jobs costs no wake-ups and the looking never slows the jobs. A job
// wakes a sleeping worker unless one is on its way already or looking; a woken worker
// that finds more jobs than its own wakes the next, and busy workers come back to the
// queue by themselves. The chain that stage_completed sets off (the task's next stage,
// its completion) runs on the worker, which still counts as active meanwhile. Each
// worker names itself "Sh(TP): " and the task's display name while it runs a job, and
// "Sh(TP): pending" while it waits.
//
// A stage that throws is logged at ERROR, reported to the observers (task_exception),
// and its task is left unfinished; the worker goes on with the next job. terminate()
// stops the workers before their next job and joins them before it forgets them; jobs
// still queued stay and are released by the destructor. A job keeps the unit alive, so
// that the unit may be released for good from inside one of its own jobs.
#pragma once

#include <atomic>
#include <cstddef>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <boost/shared_ptr.hpp>

#include <quillon2/core/threading/spin_lock.hpp>
#include <quillon2/core/threading/unit.hpp>
#include <quillon2/export.hpp>

namespace boost {
class thread;
}

namespace quillon2::internal {
class word_guard_t;
}

namespace quillon2::threading {

class QUILLON2_API thread_pool_unit_t : public unit_t {
 public:
  using job_t = std::pair<boost::shared_ptr<task_t>, boost::shared_ptr<stage_t>>;

  // The machine's hardware threads (1 if unknown), set when the library is loaded.
  static unsigned int MaxThreads;
  // A job is accepted while fewer than this many wait.
  static constexpr std::size_t queue_limit = 100001;

  // The default limit: MaxThreads, at most 16.
  static unsigned int default_thread_limit();

  // Starts no thread; a limit of 0 never starts one.
  explicit thread_pool_unit_t(unsigned int thread_limit = default_thread_limit());
  ~thread_pool_unit_t() override;

  void on_registered() override;
  // Interrupts and joins the workers; a later execute starts new ones.
  void terminate() override;
  void set_status_callbacks(status_callbacks_t const& callbacks) override;
  // Queues the job and starts a worker if needed; seQueueFull when queue_limit jobs
  // wait, seInvalidArgument for a null task or stage. A failure to start a thread throws
  // boost::thread_resource_error (the job stays queued).
  scheduler_error_t execute(boost::shared_ptr<task_t> task,
                            boost::shared_ptr<stage_t> stage) override;

  unsigned int get_thread_limit();
  // Workers busy with a job; idle workers do not count.
  unsigned int get_active_threads();

 protected:
  void worker_thread();
  // Runs jobs until interrupted or retired (true); false when a job released the unit for
  // good, which the worker then must not touch any more.
  bool process_jobs_queue();
  void execute_job(job_t const& job);

 private:
  struct idle_slot_t;

  void run_job(job_t const& job, std::string& name);
  // Waits, with the queue locked by `guard` on entry and on return, until a job is
  // queued; throws boost::thread_interrupted once the worker was interrupted.
  void wait_for_job(internal::word_guard_t& guard, std::shared_ptr<idle_slot_t> const& slot);
  // Returns, with the queue unlocked, once a job is queued or after a short while.
  void spin_for_job() const;
  // Takes the idle worker to wake for a queued job off the list, unless one is on its way
  // already or a worker looks for work; null when there is none to wake. Callers hold the
  // queue lock and wake the worker after releasing it.
  std::shared_ptr<idle_slot_t> claim_idle_worker();
  // Wakes every idle worker, so that interrupted ones see it.
  void wake_idle_workers();

  _internal::unit_observers_t m_observers;
  unsigned int const m_thread_limit;
  spin_lock_t m_lock;  // guards the workers and the starts and stops of threads
  std::vector<boost::shared_ptr<boost::thread>> m_workers;
  // Workers busy with a job (counted by the workers under the queue lock, or as they
  // finish one) and workers started (written under m_lock).
  std::atomic<unsigned int> m_active_threads{0};
  std::atomic<unsigned int> m_threads{0};
  // Jobs are taken from m_queue_head on; the vector keeps its storage when the queue
  // runs empty, so a busy pool allocates nothing per job. Both guarded by m_queue_lock,
  // a word lock that spins briefly before it sleeps.
  std::size_t queued_jobs() const { return m_queue.size() - m_queue_head; }
  job_t pop_job();
  std::atomic<int> m_queue_lock{0};
  std::vector<job_t> m_queue;
  std::size_t m_queue_head = 0;
  // queued_jobs(), written under the lock, for a worker looking for work to read without it.
  std::atomic<std::size_t> m_queued{0};
  // The idle workers, the one that went idle last at the back; a worker is taken off
  // when it is woken. Guarded by m_queue_lock, like the flags below.
  std::vector<std::shared_ptr<idle_slot_t>> m_idle;
  bool m_waking = false;    // a woken worker has not come back to the queue yet
  bool m_spinning = false;  // a worker looks for the next job before it sleeps
};

}  // namespace quillon2::threading
