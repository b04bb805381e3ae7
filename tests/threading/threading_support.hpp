// Helpers of the threading tests: a latch, stages whose work is a function, an observer
// that records every notification (and, attached to a unit, every stage_completed), a
// unit wired as a scheduler would wire it, and a fixture with a default scheduler whose
// "main" unit is a queue that the test drains itself, so that stage order is fixed.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include <boost/make_shared.hpp>
#include <boost/thread/thread.hpp>
#include <gtest/gtest.h>

#include <quillon2/core/threading/batch_cancel.hpp>
#include <quillon2/core/threading/scheduler_impl.hpp>
#include <quillon2/core/threading/stage.hpp>
#include <quillon2/core/threading/thread_name.hpp>
#include <quillon2/core/threading/units/delayed_tasks_unit.hpp>
#include <quillon2/core/threading/units/queue_unit.hpp>
#include <quillon2/core/threading/units/thread_pool_unit.hpp>
#include <quillon2/core/threading/units/threads_unit.hpp>

namespace q2thr {

using namespace quillon2::threading;
using quillon2::_internal::signal_t;
using quillon2::_internal::subscriber_base_t;
using task_ptr = boost::shared_ptr<task_t>;
using stage_ptr = boost::shared_ptr<stage_t>;

constexpr std::chrono::seconds patience{20};  // a broken test fails instead of hanging

// Opens once `open` has been called `count` times.
struct latch_t {
  explicit latch_t(int count = 1) : m_count(count) {}
  void open() {
    std::lock_guard<std::mutex> guard(m_mutex);
    if (m_count > 0 && --m_count == 0) m_cv.notify_all();
  }
  bool wait() {
    std::unique_lock<std::mutex> lock(m_mutex);
    return m_cv.wait_for(lock, patience, [this] { return m_count == 0; });
  }
  std::mutex m_mutex;
  std::condition_variable m_cv;
  int m_count;
};

// Runs `action` on a thread of its own; false when it has not returned in time (it is
// then left behind: the test has failed).
inline bool returns(std::function<void()> action) {
  auto done = std::make_shared<latch_t>();
  std::thread runner([action, done] {
    action();
    done->open();
  });
  bool const returned = done->wait();
  returned ? runner.join() : runner.detach();
  return returned;
}

using work_fn = std::function<void(task_ptr const&)>;
inline void nothing(task_ptr const&) {}

// The work of a stage: a function called with the task.
struct work_t : subscriber_base_t {
  explicit work_t(work_fn fn) : fn(std::move(fn)) {}
  ~work_t() override { disconnect_all_signals(); }
  void run(task_ptr task) { fn(task); }
  work_fn fn;
};

// Makes stages and keeps their work alive as long as itself.
struct works_t {
  stage_ptr stage(std::wstring const& unit, work_fn fn = nothing) {
    work_t* work = nullptr;
    {
      std::lock_guard<std::mutex> guard(m_mutex);
      work = m_works.emplace_back(std::make_unique<work_t>(std::move(fn))).get();
    }
    signal_t<task_ptr> handler;  // connected outside the lock: stages make stages
    handler.connect(work, &work_t::run);
    return boost::make_shared<stage_t>(unit, handler);
  }
  std::mutex m_mutex;
  std::vector<std::unique_ptr<work_t>> m_works;
};

inline boost::shared_ptr<default_task_t> make_task(std::string const& name = "") {
  auto task = boost::make_shared<default_task_t>();
  if (!name.empty()) task->set_display_name(name);
  return task;
}

// A notification: 'a'dded, 'c'ompleted, 'r'ejected (with its error), 'g'roup canceled,
// thread 's'tarted, thread 'f'inished, e'x'ception; 'd' a stage_completed of a unit,
// 'e' the end of a batch.
struct event_t {
  char kind;
  task_ptr task;
  std::wstring group;
  scheduler_error_t error;
  std::thread::id thread;
};

struct recorder_t : scheduler_status_callback_t, subscriber_base_t {
  ~recorder_t() override { disconnect_all_signals(); }
  void thread_started() override { push('s'); }
  void thread_finished() override { push('f'); }
  void task_added(task_ptr task) override { push('a', task); }
  void task_completed(task_ptr task) override { push('c', task); }
  void task_exception(task_ptr task) override { push('x', task); }
  void stage_rejected(task_ptr t, stage_ptr, scheduler_error_t e) override { push('r', t, {}, e); }
  void group_canceled(std::wstring const& group) override { push('g', {}, group); }
  // Listens to the unit's stage_completed as a scheduler would.
  void attach(unit_t& unit) { unit.stage_completed.connect(this, &recorder_t::stage_done); }
  void stage_done(task_ptr task) { push('d', task); }
  void ended() { push('e'); }  // for a batch's `completed`
  // Runs on the notifying thread before each notification of kind `then_on` is recorded,
  // so that a test that waits for the notification sees what it did. Set while unit
  // threads already notify: both are read and written under a lock of their own.
  struct hook_t {
    hook_t& operator=(std::function<void(task_ptr)> fn) {
      std::lock_guard<std::mutex> guard(mutex);
      this->fn = std::move(fn);
      return *this;
    }
    std::function<void(task_ptr)> get() {
      std::lock_guard<std::mutex> guard(mutex);
      return fn;
    }
    std::mutex mutex;
    std::function<void(task_ptr)> fn;
  } then;
  std::atomic<char> then_on{'d'};

  void push(char kind, task_ptr task = {}, std::wstring group = {}, scheduler_error_t e = seOk) {
    if (kind == then_on) {
      if (auto const hook = then.get()) hook(task);
    }
    std::lock_guard<std::mutex> guard(mutex);
    all.push_back({kind, task, std::move(group), e, std::this_thread::get_id()});
    cv.notify_all();
  }
  // The notifications of `kind` (of any kind for 0), about `task` if one is given.
  std::vector<event_t> events(char kind = 0, task_ptr const& task = {}) {
    std::lock_guard<std::mutex> guard(mutex);
    return select(kind, task);
  }
  std::size_t count(char kind, task_ptr const& task = {}) { return events(kind, task).size(); }
  // The kinds of the notifications about one task, in order, as "ac" and the like.
  std::string of(task_ptr const& task) {
    std::string kinds;
    for (auto const& e : events(0, task)) kinds += e.kind;
    return kinds;
  }
  int canceled(std::wstring const& group) {
    int n = 0;
    for (auto const& e : events('g')) n += e.group == group;
    return n;
  }
  // Waits until there are `n` notifications of `kind` (about `task` if one is given).
  bool wait(char kind, std::size_t n = 1, task_ptr const& task = {}) {
    std::unique_lock<std::mutex> lock(mutex);
    return cv.wait_for(lock, patience, [&] { return select(kind, task).size() >= n; });
  }
  bool wait(task_ptr const& task) { return wait('c', 1, task); }
  std::vector<event_t> select(char kind, task_ptr const& task) const {
    std::vector<event_t> found;
    for (auto const& e : all) {
      if ((!kind || e.kind == kind) && (!task || e.task == task)) found.push_back(e);
    }
    return found;
  }

  std::mutex mutex;
  std::condition_variable cv;
  std::vector<event_t> all;
};

// A unit wired as a scheduler would wire it, with a recorder; terminated at the end.
template <class Unit>
struct rig_t {
  template <class... Args>
  explicit rig_t(Args... args) : unit(args...) {
    recorder->attach(unit);
    unit.set_status_callbacks(status_callbacks_t{recorder});
  }
  ~rig_t() { unit.terminate(); }

  works_t works;
  boost::shared_ptr<recorder_t> recorder = boost::make_shared<recorder_t>();
  Unit unit;
};

// Waits as the default callback does, after opening `waiting`; opens `gone` when it goes.
struct test_wait_t : default_scheduler_wait_callback_t {
  test_wait_t(latch_t& waiting, latch_t& gone) : waiting(waiting), gone(gone) {}
  ~test_wait_t() override { gone.open(); }
  void wait(boost::weak_ptr<scheduler_operation_status_t> status) override {
    auto const held = status.lock();
    first_answer = !held || held->is_finished();
    waiting.open();
    default_scheduler_wait_callback_t::wait(status);
  }
  latch_t &waiting, &gone;
  bool first_answer = true;
};

// A task with the stages given, and a finalization stage if one is given.
inline boost::shared_ptr<default_task_t> task_of(std::vector<stage_ptr> const& stages,
                                                 stage_ptr const& final = {}) {
  auto task = make_task();
  for (auto const& stage : stages) task->push_stage(stage);
  if (final) task->push_finalization_stage(final);
  return task;
}

class scheduler_test : public ::testing::Test {
 protected:
  void SetUp() override {
    scheduler =
        create_default_scheduler(recorder, boost::make_shared<test_wait_t>(waiting, gone), false);
    ASSERT_EQ(seOk, scheduler->add_unit(unit_main, main_queue));
  }
  // Whatever still waits in the queue must run, or the teardown would wait for it. The
  // last reference may be a unit thread's, still finishing a chain: the fixture goes
  // only once the scheduler has, which the end of its wait callback tells.
  void TearDown() override {
    run_main();
    scheduler.reset();
    EXPECT_TRUE(gone.wait());
  }
  void run_main() {
    while (main_queue->has_tasks()) main_queue->process_queue(0);
  }
  // A stage that writes `c` to `ran`, or '-' when its task has been canceled.
  stage_ptr note(char c, std::wstring const& unit = unit_main) {
    return works.stage(unit, [this, c](task_ptr const& t) { ran += t->is_canceled() ? '-' : c; });
  }
  // A task with a note on "main" for each character of `notes`, added to `group`.
  boost::shared_ptr<default_task_t> queued(std::wstring const& group, std::string notes = "q") {
    auto task = make_task();
    for (char c : notes) task->push_stage(note(c));
    EXPECT_EQ(seOk, scheduler->add_task(task, group));
    return task;
  }

  works_t works;  // outlives the scheduler and every stage
  std::string ran;
  latch_t waiting, gone;  // the scheduler has begun to wait; its wait callback has gone
  boost::shared_ptr<recorder_t> recorder = boost::make_shared<recorder_t>();
  boost::shared_ptr<queue_unit_t> main_queue = boost::make_shared<queue_unit_t>();
  boost::shared_ptr<scheduler_t> scheduler;
};

}  // namespace q2thr
