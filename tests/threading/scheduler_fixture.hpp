// Helpers for the scheduler tests: a latch, stage work given as functions, an observer
// that records every notification, and a fixture with a default scheduler whose "main"
// unit is a queue drained by the test itself, so that stage order is deterministic.
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
#include <boost/shared_ptr.hpp>
#include <gtest/gtest.h>

#include <quillon2/core/functor/signal.hpp>
#include <quillon2/core/threading/batch_cancel.hpp>
#include <quillon2/core/threading/scheduler.hpp>
#include <quillon2/core/threading/scheduler_impl.hpp>
#include <quillon2/core/threading/stage.hpp>
#include <quillon2/core/threading/task.hpp>
#include <quillon2/core/threading/units/queue_unit.hpp>

namespace q2sched {

using namespace quillon2::threading;
using quillon2::_internal::signal_t;
using task_ptr = boost::shared_ptr<task_t>;
using stage_ptr = boost::shared_ptr<stage_t>;

constexpr std::chrono::seconds patience{20};

// Counts down to zero once; waiting gives up after `patience` so that a broken test
// fails instead of hanging.
class latch_t {
 public:
  explicit latch_t(int count = 1) : m_count(count) {}
  void count_down() {
    std::lock_guard<std::mutex> guard(m_mutex);
    if (m_count > 0 && --m_count == 0) m_cv.notify_all();
  }
  bool wait() {
    std::unique_lock<std::mutex> lock(m_mutex);
    return m_cv.wait_for(lock, patience, [this] { return m_count == 0; });
  }
  bool is_open() {
    std::lock_guard<std::mutex> guard(m_mutex);
    return m_count == 0;
  }

 private:
  std::mutex m_mutex;
  std::condition_variable m_cv;
  int m_count;
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

// Makes stages and keeps their work objects alive for the whole test.
class works_t {
 public:
  stage_ptr stage(std::wstring const& unit, std::function<void(task_ptr const&)> fn = {}) {
    signal_t<task_ptr> handler;
    {
      std::lock_guard<std::mutex> guard(m_mutex);
      m_works.push_back(std::make_unique<work_t>(std::move(fn)));
      handler.connect(m_works.back().get(), &work_t::run);
    }
    return boost::make_shared<stage_t>(unit, handler);
  }

 private:
  std::mutex m_mutex;
  std::vector<std::unique_ptr<work_t>> m_works;
};

struct event_t {
  enum kind_t { added, completed, rejected, group_canceled, exception };
  kind_t kind;
  task_ptr task;
  std::wstring group;
  scheduler_error_t error = seOk;
  std::thread::id thread;
};

// Records the notifications of a scheduler, in the order in which they came.
class recorder_t : public scheduler_status_callback_t {
 public:
  void task_added(task_ptr task) override { push({event_t::added, task, {}, seOk, {}}); }
  void task_completed(task_ptr task) override { push({event_t::completed, task, {}, seOk, {}}); }
  void task_exception(task_ptr task) override { push({event_t::exception, task, {}, seOk, {}}); }
  void stage_rejected(task_ptr task, stage_ptr, scheduler_error_t error) override {
    push({event_t::rejected, task, {}, error, {}});
  }
  void group_canceled(std::wstring const& group) override {
    push({event_t::group_canceled, nullptr, group, seOk, {}});
  }

  std::vector<event_t> events() {
    std::lock_guard<std::mutex> guard(m_mutex);
    return m_events;
  }
  // The kinds of the events about one task, in order.
  std::vector<event_t::kind_t> kinds(task_ptr const& task) {
    std::vector<event_t::kind_t> kinds;
    for (auto const& e : events()) {
      if (e.task == task) kinds.push_back(e.kind);
    }
    return kinds;
  }
  int count(event_t::kind_t kind, task_ptr const& task) {
    int n = 0;
    for (auto const& e : events()) n += e.kind == kind && e.task == task;
    return n;
  }
  int canceled(std::wstring const& group) {
    int n = 0;
    for (auto const& e : events()) n += e.kind == event_t::group_canceled && e.group == group;
    return n;
  }
  bool wait_completed(task_ptr const& task) {
    return wait_until([&] { return count_locked(event_t::completed, task) > 0; });
  }
  bool wait_canceled(std::wstring const& group) {
    return wait_until([&] {
      for (auto const& e : m_events) {
        if (e.kind == event_t::group_canceled && e.group == group) return true;
      }
      return false;
    });
  }
  std::thread::id completion_thread(task_ptr const& task) {
    for (auto const& e : events()) {
      if (e.kind == event_t::completed && e.task == task) return e.thread;
    }
    return {};
  }

 private:
  void push(event_t e) {
    e.thread = std::this_thread::get_id();
    std::lock_guard<std::mutex> guard(m_mutex);
    m_events.push_back(std::move(e));
    m_cv.notify_all();
  }
  int count_locked(event_t::kind_t kind, task_ptr const& task) {
    int n = 0;
    for (auto const& e : m_events) n += e.kind == kind && e.task == task;
    return n;
  }
  template <typename P>
  bool wait_until(P pred) {
    std::unique_lock<std::mutex> lock(m_mutex);
    return m_cv.wait_for(lock, patience, pred);
  }

  std::mutex m_mutex;
  std::condition_variable m_cv;
  std::vector<event_t> m_events;
};

inline boost::shared_ptr<default_task_t> make_task(std::string const& name = {}) {
  auto task = boost::make_shared<default_task_t>();
  if (!name.empty()) task->set_display_name(name);
  return task;
}

// A default scheduler without its own "main" unit: "main" is a queue that the test
// drains with run_main(), on the test's thread.
class scheduler_test : public ::testing::Test {
 protected:
  void SetUp() override {
    recorder = boost::make_shared<recorder_t>();
    scheduler = create_default_scheduler(
        recorder, boost::make_shared<default_scheduler_wait_callback_t>(), false);
    main_queue = boost::make_shared<queue_unit_t>();
    ASSERT_EQ(seOk, scheduler->add_unit(unit_main, main_queue));
  }
  void TearDown() override {
    // Whatever still waits in the queue must run, or the scheduler's teardown would
    // wait for it for good.
    while (main_queue->has_tasks()) main_queue->process_queue(0);
    scheduler.reset();
  }
  void run_main() {
    while (main_queue->has_tasks()) main_queue->process_queue(0);
  }

  works_t works;  // outlives the scheduler and every stage
  boost::shared_ptr<recorder_t> recorder;
  boost::shared_ptr<queue_unit_t> main_queue;
  boost::shared_ptr<scheduler_t> scheduler;
};

}  // namespace q2sched
