// Helpers for driving units without the scheduler core: a latch, a stand-in scheduler
// that listens to stage_completed, a stage whose work is a function, and observers that
// count what they are told.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

#include <boost/make_shared.hpp>
#include <boost/shared_ptr.hpp>
#include <gtest/gtest.h>

#include <quillon2/core/functor/signal.hpp>
#include <quillon2/core/threading/scheduler.hpp>
#include <quillon2/core/threading/stage.hpp>
#include <quillon2/core/threading/task.hpp>
#include <quillon2/core/threading/unit.hpp>

namespace q2test {

namespace qt = quillon2::threading;
using task_ptr = boost::shared_ptr<qt::task_t>;
using stage_ptr = boost::shared_ptr<qt::stage_t>;

constexpr auto patience = std::chrono::seconds(10);  // what "never" means in these tests

class latch_t {
 public:
  explicit latch_t(int count) : m_count(count) {}
  void count_down() {
    std::lock_guard<std::mutex> guard(m_mutex);
    if (m_count > 0 && --m_count == 0) m_condition.notify_all();
  }
  // False if the count did not reach 0 within the patience of these tests.
  bool wait() {
    std::unique_lock<std::mutex> lock(m_mutex);
    return m_condition.wait_for(lock, patience, [&] { return m_count == 0; });
  }

 private:
  std::mutex m_mutex;
  std::condition_variable m_condition;
  int m_count;
};

// Waits for a state that other threads reach without telling anyone (a counter that
// goes down after a callback); false if it does not come.
template <class Predicate>
bool eventually(Predicate predicate) {
  auto const deadline = std::chrono::steady_clock::now() + patience;
  while (!predicate()) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    std::this_thread::yield();
  }
  return true;
}

// Work for a stage: calls a function with the task.
class work_t : public quillon2::_internal::subscriber_base_t {
 public:
  explicit work_t(std::function<void(task_ptr)> fn) : m_fn(std::move(fn)) {}
  ~work_t() override { disconnect_all_signals(); }
  void run(task_ptr task) { m_fn(task); }

 private:
  std::function<void(task_ptr)> m_fn;
};

inline stage_ptr make_stage(std::wstring const& unit, work_t& work) {
  qt::stage_t::signal_type handler;
  handler.connect(&work, &work_t::run);
  return boost::make_shared<qt::stage_t>(unit, handler);
}

inline boost::shared_ptr<qt::default_task_t> make_task(std::string const& name = "") {
  auto task = boost::make_shared<qt::default_task_t>();
  if (!name.empty()) task->set_display_name(name);
  return task;
}

// What a scheduler does with a unit, as far as these tests need: it listens to
// stage_completed and records each completion with its thread.
class test_scheduler_t : public qt::scheduler_t, public quillon2::_internal::subscriber_base_t {
 public:
  struct completion_t {
    task_ptr task;
    std::thread::id thread;
  };

  ~test_scheduler_t() override { disconnect_all_signals(); }

  void attach(qt::unit_t& unit) {
    unit.stage_completed.connect(this, &test_scheduler_t::handle_task_stage_complete);
  }

  // Runs on the unit's thread after each completion is recorded.
  std::function<void(task_ptr)> then;

  bool wait_for_completions(std::size_t count) {
    std::unique_lock<std::mutex> lock(m_mutex);
    return m_condition.wait_for(lock, patience, [&] { return m_completions.size() >= count; });
  }
  std::vector<completion_t> completions() {
    std::lock_guard<std::mutex> guard(m_mutex);
    return m_completions;
  }
  std::size_t completion_count() { return completions().size(); }

  void handle_task_stage_complete(task_ptr task) {
    {
      std::lock_guard<std::mutex> guard(m_mutex);
      m_completions.push_back({task, std::this_thread::get_id()});
      m_condition.notify_all();
    }
    if (then) then(task);
  }

  // Nothing else of a scheduler is needed here.
  using error_t = qt::scheduler_error_t;
  using wait_ptr = boost::shared_ptr<qt::scheduler_wait_callback_t>;
  using callback_ptr = boost::shared_ptr<qt::scheduler_status_callback_t>;
  error_t add_task(task_ptr, task_ptr, std::wstring const&) override { return qt::seOk; }
  error_t add_task(task_ptr, std::wstring const&) override { return qt::seOk; }
  error_t cancel(std::wstring const&) override { return qt::seOk; }
  error_t cancel_and_wait(std::wstring const&, wait_ptr) override { return qt::seOk; }
  std::list<task_ptr> find_tasks(std::wstring const&) override { return {}; }
  bool find_group(task_ptr, std::wstring&) override { return false; }
  error_t add_unit(std::wstring const&, boost::shared_ptr<qt::unit_t>) override { return qt::seOk; }
  error_t add_status_callback(callback_ptr) override { return qt::seOk; }
  error_t remove_status_callback(callback_ptr) override { return qt::seOk; }
  bool is_known_task(task_ptr) override { return false; }
  bool is_known_group(std::wstring&) override { return false; }

 private:
  std::mutex m_mutex;
  std::condition_variable m_condition;
  std::vector<completion_t> m_completions;
};

// Counts the notifications a unit sends.
struct counting_callback_t : qt::scheduler_status_callback_t {
  void thread_started() override { ++started; }
  void thread_finished() override { ++finished; }
  void task_exception(task_ptr) override {
    exception_thread = std::this_thread::get_id();
    ++exceptions;
  }
  std::atomic<int> started{0}, finished{0}, exceptions{0};
  std::atomic<std::thread::id> exception_thread{};
};

// A unit wired as a scheduler would wire it, with an observer; terminated at the end.
template <class Unit>
struct rig_t {
  template <class... Args>
  explicit rig_t(Args... args) : unit(args...) {
    scheduler.attach(unit);
    unit.set_status_callbacks(qt::status_callbacks_t{observer});
  }
  ~rig_t() { unit.terminate(); }

  boost::shared_ptr<counting_callback_t> observer = boost::make_shared<counting_callback_t>();
  test_scheduler_t scheduler;
  Unit unit;
};

}  // namespace q2test
