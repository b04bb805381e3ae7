// Load on the default scheduler: 100,000 tasks of one to three stages spread over all
// four default units from two threads, which cancel about a tenth of them, through the
// task or through its group, while the units run them. Every task must be announced and
// completed exactly once, every accepted group cancellation must end exactly once, and
// the tables must be empty at the end.
#include <map>
#include <random>

#include "threading_support.hpp"

namespace q2thr {

constexpr int task_count = 100000;
constexpr int producers = 2;
constexpr int window = 1000;  // tasks in flight at most

// A task that is its own work and counts what happens to it.
struct load_task_t : default_task_t, subscriber_base_t {
  // Stages that a cancellation left unrun still point here: they go first, from the
  // signal's side, in the order in which connect locks.
  ~load_task_t() override {
    while (pop_stage()) {
    }
    disconnect_all_signals();
  }
  void run(task_ptr) { ++stages_run; }

  int signal_stages = 0;
  int fate = 0;  // below 5: canceled through its group, below 10: through the task
  std::wstring group;
  std::atomic<int> stages_run{0}, added{0}, completed{0}, rejected{0};
};

// Counts the notifications about each task, the completions and the group ends.
struct load_observer_t : scheduler_status_callback_t {
  static load_task_t& of(task_ptr const& task) {
    return *boost::static_pointer_cast<load_task_t>(task);
  }
  void task_added(task_ptr task) override { ++of(task).added; }
  void stage_rejected(task_ptr task, stage_ptr, scheduler_error_t) override { ++of(task).rejected; }
  void task_completed(task_ptr task) override {
    ++of(task).completed;
    std::lock_guard<std::mutex> guard(mutex);
    ++completed;
    cv.notify_all();
  }
  void group_canceled(std::wstring const& group) override {
    std::lock_guard<std::mutex> guard(mutex);
    ++groups[group];
  }
  bool wait_completed(int count, std::chrono::seconds limit = patience) {
    std::unique_lock<std::mutex> lock(mutex);
    return cv.wait_for(lock, limit, [&] { return completed >= count; });
  }

  std::mutex mutex;
  std::condition_variable cv;
  int completed = 0;
  std::map<std::wstring, int> groups;  // read once the scheduler has gone
};

TEST(scheduler_load, EveryTaskAndEveryNotificationArrivesExactlyOnce) {
  std::mt19937 random(1234);
  std::vector<boost::shared_ptr<load_task_t>> tasks(task_count);
  for (int i = 0; i < task_count; ++i) {
    auto task = tasks[i] = boost::make_shared<load_task_t>();
    for (int s = 0, stages = 1 + static_cast<int>(random() % 3); s < stages; ++s) {
      unsigned const pick = random() % 100;
      signal_t<task_ptr> work;
      if (pick >= 12) {
        work.connect(task.get(), &load_task_t::run);
        ++task->signal_stages;
      }
      task->push_stage(pick < 12 ? boost::make_shared<stage_t>(unit_delay_tasks, 1)
                                 : boost::make_shared<stage_t>(pick < 15   ? unit_long_tasks
                                                               : pick < 45 ? unit_main
                                                                           : unit_service,
                                                               work));
    }
    task->fate = static_cast<int>(random() % 100);
    task->group = (task->fate < 5 ? L"load/canceled/" : L"load/plain/") + std::to_wstring(i);
  }

  auto observer = boost::make_shared<load_observer_t>();
  auto scheduler = create_default_scheduler(
      observer, boost::make_shared<default_scheduler_wait_callback_t>(), true);
  std::atomic<int> submitted{0};
  std::atomic<bool> failed{false};
  std::vector<std::thread> threads;
  for (int p = 0; p < producers; ++p) {
    threads.emplace_back([&, p] {
      for (int i = p; i < task_count; i += producers) {
        auto& task = *tasks[i];
        failed = failed || !observer->wait_completed(++submitted - window) ||
                 scheduler->add_task(tasks[i], task.group) != seOk;
        if (task.fate < 5) {
          EXPECT_EQ(seOk, scheduler->cancel(task.group));
        } else if (task.fate < 10) {
          task.cancel();
        }
      }
    });
  }
  for (auto& t : threads) t.join();
  ASSERT_FALSE(failed);
  ASSERT_TRUE(observer->wait_completed(task_count, std::chrono::minutes(10)));
  EXPECT_TRUE(scheduler->find_tasks(L"").empty());
  scheduler.reset();  // its units' threads are joined: every notification has come

  int canceled = 0, rejected = 0;
  for (int i = 0; i < task_count; ++i) {
    auto const& task = *tasks[i];
    ASSERT_EQ(1, task.added.load()) << i;
    ASSERT_EQ(1, task.completed.load()) << i;
    canceled += task.is_canceled();
    rejected += task.rejected.load() != 0;
    // Every stage runs unless the task was canceled or one of its stages refused.
    if (!task.is_canceled() && task.rejected.load() == 0) {
      ASSERT_EQ(task.signal_stages, task.stages_run.load()) << i;
    }
    // Each accepted cancel ends once, whether it found the task still running or not.
    ASSERT_EQ(task.fate < 5 ? 1 : 0, observer->groups[task.group]) << i;
  }
  EXPECT_GT(canceled, task_count / 20);
  EXPECT_LT(rejected, task_count / 10);
}

}  // namespace q2thr
