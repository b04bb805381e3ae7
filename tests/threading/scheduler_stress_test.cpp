// Load on the default scheduler: 100,000 tasks of one to three stages spread over all
// four default units, about a tenth of them canceled at random moments by a thread of
// its own, through the task or through its group. Every task must be announced and
// completed exactly once, every accepted group cancellation must end exactly once, and
// the tables must be empty at the end.
#include <atomic>
#include <condition_variable>
#include <deque>
#include <map>
#include <mutex>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "scheduler_fixture.hpp"

namespace q2sched {
namespace {

constexpr int task_count = 100000;
constexpr int producers = 2;
constexpr int window = 1000;  // tasks in flight at most

// A task that is its own work and counts what happens to it.
class load_task_t : public default_task_t, public quillon2::_internal::subscriber_base_t {
 public:
  // Stages that a cancellation left unrun still point here: they go first, from the
  // signal's side, in the order in which connect locks.
  ~load_task_t() override {
    while (pop_stage()) {
    }
    disconnect_all_signals();
  }
  void run(task_ptr) { ++stages_run; }

  int signal_stages = 0;
  std::wstring group;
  bool cancel_by_group = false;
  std::atomic<int> stages_run{0};
  std::atomic<int> added{0};
  std::atomic<int> completed{0};
  std::atomic<int> rejected{0};
};

// Counts notifications and opens room in the window for each completed task.
class load_observer_t : public scheduler_status_callback_t {
 public:
  void task_added(task_ptr task) override { as_load(task).added++; }
  void task_completed(task_ptr task) override {
    as_load(task).completed++;
    std::lock_guard<std::mutex> guard(m_mutex);
    ++m_completed;
    --m_in_flight;
    m_cv.notify_all();
  }
  void stage_rejected(task_ptr task, stage_ptr, scheduler_error_t) override {
    as_load(task).rejected++;
  }
  void group_canceled(std::wstring const& group) override {
    std::lock_guard<std::mutex> guard(m_mutex);
    ++m_groups[group];
  }

  bool enter_window() {
    std::unique_lock<std::mutex> lock(m_mutex);
    if (!m_cv.wait_for(lock, patience, [&] { return m_in_flight < window; })) return false;
    ++m_in_flight;
    return true;
  }
  bool wait_all(int count) {
    std::unique_lock<std::mutex> lock(m_mutex);
    return m_cv.wait_for(lock, std::chrono::minutes(10), [&] { return m_completed >= count; });
  }
  std::map<std::wstring, int> groups() {
    std::lock_guard<std::mutex> guard(m_mutex);
    return m_groups;
  }

 private:
  static load_task_t& as_load(task_ptr const& task) {
    return *boost::static_pointer_cast<load_task_t>(task);
  }
  std::mutex m_mutex;
  std::condition_variable m_cv;
  int m_completed = 0;
  int m_in_flight = 0;
  std::map<std::wstring, int> m_groups;
};

// Tasks handed to the canceling thread, which cancels them when it gets to them.
class cancel_queue_t {
 public:
  void push(boost::shared_ptr<load_task_t> task) {
    std::lock_guard<std::mutex> guard(m_mutex);
    m_queue.push_back(std::move(task));
    m_cv.notify_one();
  }
  void close() {
    std::lock_guard<std::mutex> guard(m_mutex);
    m_closed = true;
    m_cv.notify_one();
  }
  boost::shared_ptr<load_task_t> pop() {
    std::unique_lock<std::mutex> lock(m_mutex);
    m_cv.wait(lock, [&] { return m_closed || !m_queue.empty(); });
    if (m_queue.empty()) return nullptr;
    auto task = m_queue.front();
    m_queue.pop_front();
    return task;
  }

 private:
  std::mutex m_mutex;
  std::condition_variable m_cv;
  std::deque<boost::shared_ptr<load_task_t>> m_queue;
  bool m_closed = false;
};

TEST(scheduler_load, EveryTaskAndEveryNotificationArrivesExactlyOnce) {
  auto observer = boost::make_shared<load_observer_t>();
  auto scheduler = create_default_scheduler(
      observer, boost::make_shared<default_scheduler_wait_callback_t>(), true);
  std::vector<boost::shared_ptr<load_task_t>> tasks(task_count);
  std::vector<scheduler_error_t> cancel_results(task_count, seOk);
  cancel_queue_t to_cancel;

  std::thread canceler([&] {
    std::size_t n = 0;
    while (auto task = to_cancel.pop()) {
      // Group cancellations keep their result to check the end against.
      if (task->cancel_by_group) {
        std::wstring const index = task->group.substr(task->group.rfind(L'/') + 1);
        cancel_results[std::stoi(index)] = scheduler->cancel(task->group);
      } else {
        task->cancel();
      }
      if (++n % 64 == 0) std::this_thread::yield();
    }
  });

  std::atomic<bool> producer_failed{false};
  std::vector<std::thread> threads;
  for (int p = 0; p < producers; ++p) {
    threads.emplace_back([&, p] {
      std::mt19937 random(1234 + p);
      for (int i = p; i < task_count; i += producers) {
        auto task = boost::make_shared<load_task_t>();
        int const stages = 1 + static_cast<int>(random() % 3);
        for (int s = 0; s < stages; ++s) {
          unsigned const pick = random() % 100;
          if (pick < 12) {
            task->push_stage(boost::make_shared<stage_t>(unit_delay_tasks, 1));
            continue;
          }
          std::wstring const& unit = pick < 15   ? unit_long_tasks
                                     : pick < 45 ? unit_main
                                                 : unit_service;
          signal_t<task_ptr> work;
          work.connect(task.get(), &load_task_t::run);
          task->push_stage(boost::make_shared<stage_t>(unit, work));
          ++task->signal_stages;
        }
        unsigned const fate = random() % 100;
        task->cancel_by_group = fate < 5;
        task->group =
            (task->cancel_by_group ? L"load/canceled/" : L"load/plain/") + std::to_wstring(i);
        tasks[i] = task;
        if (!observer->enter_window()) {
          producer_failed = true;
          return;
        }
        if (scheduler->add_task(task, task->group) != seOk) producer_failed = true;
        if (fate < 10) to_cancel.push(task);
      }
    });
  }
  for (auto& t : threads) t.join();
  to_cancel.close();
  canceler.join();
  ASSERT_FALSE(producer_failed);
  ASSERT_TRUE(observer->wait_all(task_count));

  auto const groups = observer->groups();
  int canceled = 0, rejected = 0;
  for (int i = 0; i < task_count; ++i) {
    auto const& task = *tasks[i];
    ASSERT_EQ(1, task.added.load()) << i;
    ASSERT_EQ(1, task.completed.load()) << i;
    ASSERT_LE(task.stages_run.load(), task.signal_stages) << i;
    rejected += task.rejected.load() != 0;
    if (task.is_canceled()) {
      ++canceled;
    } else if (task.rejected.load() == 0) {
      ASSERT_EQ(task.signal_stages, task.stages_run.load()) << i;
    }
    auto const ended = groups.find(task.group);
    int const ends = ended == groups.end() ? 0 : ended->second;
    // Each accepted cancel ends once, whether it found the task still running or not.
    ASSERT_EQ(task.cancel_by_group ? 1 : 0, ends) << i;
    ASSERT_EQ(seOk, cancel_results[i]) << i;
  }
  EXPECT_GT(canceled, task_count / 20);
  EXPECT_LT(rejected, task_count / 10);
  EXPECT_TRUE(scheduler->find_tasks(L"").empty());
  scheduler.reset();
}

}  // namespace
}  // namespace q2sched
