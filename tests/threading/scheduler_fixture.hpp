// Helpers for the scheduler tests: a latch, stage work given as functions, an observer
// that records every notification, and a fixture with a default scheduler whose "main"
// unit is a queue that the test drains itself, so that stage order is deterministic.
#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include <boost/make_shared.hpp>
#include <gtest/gtest.h>

#include <quillon2/core/threading/batch_cancel.hpp>
#include <quillon2/core/threading/scheduler_impl.hpp>
#include <quillon2/core/threading/stage.hpp>
#include <quillon2/core/threading/units/queue_unit.hpp>

namespace q2sched {

using namespace quillon2::threading;
using quillon2::_internal::signal_t;
using task_ptr = boost::shared_ptr<task_t>;
using stage_ptr = boost::shared_ptr<stage_t>;

constexpr std::chrono::seconds patience{20};  // a broken test fails instead of hanging

class latch_t {
 public:
  void open() {
    std::lock_guard<std::mutex> guard(m_mutex);
    m_open = true;
    m_cv.notify_all();
  }
  bool wait() {
    std::unique_lock<std::mutex> lock(m_mutex);
    return m_cv.wait_for(lock, patience, [this] { return m_open; });
  }

 private:
  std::mutex m_mutex;
  std::condition_variable m_cv;
  bool m_open = false;
};

// The work of a stage: a function called with the task.
class work_t : public quillon2::_internal::subscriber_base_t {
 public:
  explicit work_t(std::function<void(task_ptr const&)> fn) : m_fn(std::move(fn)) {}
  ~work_t() override { disconnect_all_signals(); }
  void run(task_ptr task) {
    if (m_fn) m_fn(task);
  }

 private:
  std::function<void(task_ptr const&)> m_fn;
};

// Makes stages and keeps their work alive for the whole test.
class works_t {
 public:
  stage_ptr stage(std::wstring const& unit, std::function<void(task_ptr const&)> fn = {}) {
    work_t* work = nullptr;
    {
      std::lock_guard<std::mutex> guard(m_mutex);
      m_works.push_back(std::make_unique<work_t>(std::move(fn)));
      work = m_works.back().get();
    }
    signal_t<task_ptr> handler;  // connected outside the lock: stages make stages
    handler.connect(work, &work_t::run);
    return boost::make_shared<stage_t>(unit, handler);
  }

 private:
  std::mutex m_mutex;
  std::vector<std::unique_ptr<work_t>> m_works;
};

// A notification: 'a'dded, 'c'ompleted, 'r'ejected (with its error), 'g'roup canceled.
struct event_t {
  char kind;
  task_ptr task;
  std::wstring group;
  scheduler_error_t error;
  std::thread::id thread;
};

class recorder_t : public scheduler_status_callback_t {
 public:
  void task_added(task_ptr task) override { push({'a', task, {}, seOk, {}}); }
  void task_completed(task_ptr task) override { push({'c', task, {}, seOk, {}}); }
  void stage_rejected(task_ptr task, stage_ptr, scheduler_error_t error) override {
    push({'r', task, {}, error, {}});
  }
  void group_canceled(std::wstring const& group) override { push({'g', {}, group, seOk, {}}); }

  std::vector<event_t> events() {
    std::lock_guard<std::mutex> guard(m_mutex);
    return m_events;
  }
  // The kinds of the notifications about one task, in order, as "ac" and the like.
  std::string of(task_ptr const& task) {
    std::string kinds;
    for (auto const& e : events()) {
      if (e.task == task) kinds += e.kind;
    }
    return kinds;
  }
  int canceled(std::wstring const& group) {
    int n = 0;
    for (auto const& e : events()) n += e.kind == 'g' && e.group == group;
    return n;
  }
  // Waits until `task` has completed, or `group` has ended when no task is given.
  bool wait(task_ptr const& task, std::wstring const& group = {}) {
    std::unique_lock<std::mutex> lock(m_mutex);
    return m_cv.wait_for(lock, patience, [&] {
      for (auto const& e : m_events) {
        if (task ? e.kind == 'c' && e.task == task : e.kind == 'g' && e.group == group) {
          return true;
        }
      }
      return false;
    });
  }

 private:
  void push(event_t e) {
    e.thread = std::this_thread::get_id();
    std::lock_guard<std::mutex> guard(m_mutex);
    m_events.push_back(std::move(e));
    m_cv.notify_all();
  }

  std::mutex m_mutex;
  std::condition_variable m_cv;
  std::vector<event_t> m_events;
};

inline boost::shared_ptr<default_task_t> make_task() {
  return boost::make_shared<default_task_t>();
}

class scheduler_test : public ::testing::Test {
 protected:
  void SetUp() override {
    recorder = boost::make_shared<recorder_t>();
    scheduler = create_default_scheduler(
        recorder, boost::make_shared<default_scheduler_wait_callback_t>(), false);
    main_queue = boost::make_shared<queue_unit_t>();
    ASSERT_EQ(seOk, scheduler->add_unit(unit_main, main_queue));
  }
  // Whatever still waits in the queue must run, or the teardown would wait for it.
  void TearDown() override {
    run_main();
    scheduler.reset();
  }
  void run_main() {
    while (main_queue->has_tasks()) main_queue->process_queue(0);
  }
  // A task with one stage on "main" for each function given, added to `group`.
  boost::shared_ptr<default_task_t> queued(std::wstring const& group,
                                           std::vector<std::function<void(task_ptr const&)>> fns = {
                                               {}}) {
    auto task = make_task();
    for (auto& fn : fns) task->push_stage(works.stage(unit_main, std::move(fn)));
    EXPECT_EQ(seOk, scheduler->add_task(task, group));
    return task;
  }

  works_t works;  // outlives the scheduler and every stage
  boost::shared_ptr<recorder_t> recorder;
  boost::shared_ptr<queue_unit_t> main_queue;
  boost::shared_ptr<scheduler_t> scheduler;
};

}  // namespace q2sched
