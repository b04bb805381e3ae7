// Tasks: what the scheduler runs. A task is a queue of stages and a second queue of
// finalization stages; the scheduler pops them one at a time and hands each to the unit
// that the stage names.
//
// Tasks are held by boost::shared_ptr and compared by identity. Every operation of
// default_task_t may be called from any thread: a stage's subscriber may push further
// stages onto its own task while the scheduler pops on another thread.
#pragma once

#include <atomic>
#include <cstddef>

#include <boost/container/small_vector.hpp>
#include <boost/shared_ptr.hpp>

#include <quillon2/core/threading/scheduler_error.hpp>
#include <quillon2/core/threading/spin_lock.hpp>
#include <quillon2/export.hpp>
#include <quillon2/headers/kesmet.hpp>

namespace quillon2::threading {

struct stage_t;

class QUILLON2_API task_t {
 public:
  // Bit of the flags that tells the scheduler the task has really started, so that its
  // finalization stages are to run. A stage carries it into the task when it is handed
  // to its unit.
  static constexpr int started_flag = 1;

  task_t() noexcept;
  task_t(task_t const&) = delete;
  task_t& operator=(task_t const&) = delete;
  virtual ~task_t();

  // Marks the task canceled. A running stage notices only by asking is_canceled(); the
  // scheduler acts on it at the next stage boundary.
  virtual void cancel() = 0;
  virtual bool is_canceled() const = 0;
  // The next stage, or null when the queue is empty.
  virtual boost::shared_ptr<stage_t> pop_stage() = 0;
  virtual boost::shared_ptr<stage_t> pop_finalization_stage() = 0;
  virtual KESMET_2_18::strings::ustring8 get_display_name() const = 0;

  // Atomic exchange; returns the previous flags.
  int set_flags(int flags) noexcept;
  // Atomic OR; returns the previous flags.
  int merge_flags(int flags) noexcept;
  int get_flags() const noexcept;

 private:
  std::atomic<int> m_flags;
};

class QUILLON2_API default_task_t : public task_t {
 public:
  default_task_t();
  ~default_task_t() override;

  void cancel() override;
  bool is_canceled() const override;
  boost::shared_ptr<stage_t> pop_stage() override;
  boost::shared_ptr<stage_t> pop_finalization_stage() override;
  // The name set with set_display_name, or, while it is empty, the class name of the
  // object (for this class "quillon2::threading::default_task_t").
  KESMET_2_18::strings::ustring8 get_display_name() const override;

  // Appends a stage; a null stage is ignored. Always seOk.
  virtual scheduler_error_t push_stage(boost::shared_ptr<stage_t> stage);
  virtual scheduler_error_t push_finalization_stage(boost::shared_ptr<stage_t> stage);
  virtual void set_display_name(KESMET_2_18::strings::ustring8 const& name);

 private:
  // First in, first out; the stages are taken from `head` on. A task's first two stages
  // take no allocation of their own.
  struct stage_queue_t {
    boost::container::small_vector<boost::shared_ptr<stage_t>, 2> stages;
    std::size_t head = 0;
  };

  std::atomic<int> m_canceled{0};
  stage_queue_t m_stages;
  mutable spin_lock_t m_lock;  // guards both queues and the name
  stage_queue_t m_finalization_stages;

  boost::shared_ptr<stage_t> take_first(stage_queue_t& queue);
  void append(stage_queue_t& queue, boost::shared_ptr<stage_t> stage);
  KESMET_2_18::strings::ustring8 m_display_name;
};

}  // namespace quillon2::threading
