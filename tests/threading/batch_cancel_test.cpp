// batch_cancel_t through its public interface, on a default scheduler whose "main" unit
// is a queue drained by the test.
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "scheduler_fixture.hpp"

namespace q2sched {
namespace {

// Listens to `completed` of one batch and remembers how and where it came.
class completion_t : public quillon2::_internal::subscriber_base_t {
 public:
  explicit completion_t(boost::shared_ptr<batch_cancel_t> batch) : m_batch(std::move(batch)) {
    m_batch->completed.connect(this, &completion_t::on_completed);
  }
  ~completion_t() override { disconnect_all_signals(); }

  void on_completed() {
    bool const in_progress = m_batch->is_in_progress();
    std::function<void()> then;
    {
      std::lock_guard<std::mutex> guard(m_mutex);
      ++m_count;
      m_in_progress_seen = m_in_progress_seen || in_progress;
      m_thread = std::this_thread::get_id();
      then.swap(m_then);
    }
    if (then) then();
    std::lock_guard<std::mutex> guard(m_mutex);
    m_cv.notify_all();
  }
  bool wait(int count) {
    std::unique_lock<std::mutex> lock(m_mutex);
    return m_cv.wait_for(lock, patience, [&] { return m_count >= count; });
  }
  int count() {
    std::lock_guard<std::mutex> guard(m_mutex);
    return m_count;
  }
  // Runs once, inside the next emission of `completed`.
  void then(std::function<void()> fn) {
    std::lock_guard<std::mutex> guard(m_mutex);
    m_then = std::move(fn);
  }

  boost::shared_ptr<batch_cancel_t> m_batch;
  bool m_in_progress_seen = false;
  std::thread::id m_thread;

 private:
  std::mutex m_mutex;
  std::condition_variable m_cv;
  int m_count = 0;
  std::function<void()> m_then;
};

class batch_cancel_test : public scheduler_test {
 protected:
  void SetUp() override {
    scheduler_test::SetUp();
    batch = batch_cancel_t::create();
    done = std::make_unique<completion_t>(batch);
  }
  void TearDown() override {
    scheduler_test::TearDown();
    done.reset();
  }
  // A task with one stage on the queue of "main".
  boost::shared_ptr<default_task_t> queued_task(std::wstring const& group) {
    auto task = make_task();
    task->push_stage(works.stage(unit_main));
    EXPECT_EQ(seOk, scheduler->add_task(task, group));
    return task;
  }

  boost::shared_ptr<batch_cancel_t> batch;
  std::unique_ptr<completion_t> done;
};

// --- Filling and refusals ------------------------------------------------------------

TEST_F(batch_cancel_test, ListsRefuseDuplicatesAndNullTasks) {
  auto task = make_task();
  EXPECT_EQ(seOk, batch->add_group(L"a"));
  EXPECT_EQ(seAlreadyExists, batch->add_group(L"a"));
  EXPECT_EQ(seOk, batch->add_group(L"A"));  // case-sensitive
  EXPECT_EQ(seOk, batch->add_task(task));
  EXPECT_EQ(seAlreadyExists, batch->add_task(task));
  EXPECT_EQ(seInvalidArgument, batch->add_task(nullptr));
}

TEST_F(batch_cancel_test, ExecuteWithoutSchedulerOrUnitIsRefusedAndKeepsTheLists) {
  EXPECT_EQ(seOk, batch->add_group(L"g"));
  EXPECT_EQ(seInvalidArgument, batch->execute(nullptr, unit_main));
  EXPECT_EQ(seInvalidArgument, batch->execute(scheduler, L""));
  EXPECT_FALSE(batch->is_in_progress());
  EXPECT_EQ(seAlreadyExists, batch->add_group(L"g"));
}

TEST_F(batch_cancel_test, RunningOperationRefusesChanges) {
  ASSERT_EQ(seOk, batch->execute(scheduler, unit_main));
  EXPECT_TRUE(batch->is_in_progress());
  EXPECT_EQ(seInProgress, batch->add_group(L"g"));
  EXPECT_EQ(seInProgress, batch->add_task(make_task()));
  EXPECT_EQ(seInProgress, batch->execute(scheduler, unit_main));
  run_main();
  EXPECT_EQ(1, done->count());
  EXPECT_FALSE(batch->is_in_progress());
  EXPECT_FALSE(done->m_in_progress_seen);
  EXPECT_EQ(seOk, batch->add_group(L"g"));
}

// --- Ends that come at once ----------------------------------------------------------

TEST_F(batch_cancel_test, EmptyBatchCompletesOnceOnTheNamedUnitsThread) {
  ASSERT_EQ(seOk, batch->execute(scheduler, unit_service));
  ASSERT_TRUE(done->wait(1));
  EXPECT_NE(std::this_thread::get_id(), done->m_thread);
  EXPECT_FALSE(done->m_in_progress_seen);
  run_main();
  EXPECT_EQ(1, done->count());
}

TEST_F(batch_cancel_test, TaskTheSchedulerDoesNotHoldEndsAtOnce) {
  auto stranger = make_task();
  ASSERT_EQ(seOk, batch->add_task(stranger));
  ASSERT_EQ(seOk, batch->execute(scheduler, unit_main));
  EXPECT_TRUE(stranger->is_canceled());
  EXPECT_TRUE(main_queue->has_tasks());  // only the completion itself waits there
  run_main();
  EXPECT_EQ(1, done->count());
}

TEST_F(batch_cancel_test, GroupWithoutTasksEndsInsideItsCancel) {
  ASSERT_EQ(seOk, batch->add_group(L"empty"));
  ASSERT_EQ(seOk, batch->execute(scheduler, unit_main));
  EXPECT_EQ(1, recorder->canceled(L"empty"));
  run_main();
  EXPECT_EQ(1, done->count());
  EXPECT_FALSE(batch->is_in_progress());
}

// --- Ends that are awaited -----------------------------------------------------------

TEST_F(batch_cancel_test, MixedTasksAndGroupsWaitForALongStageAndItsFinalization) {
  latch_t release, entered;
  std::vector<std::string> order;
  std::mutex order_mutex;
  auto note = [&](std::string what) {
    std::lock_guard<std::mutex> guard(order_mutex);
    order.push_back(std::move(what));
  };
  auto long_task = make_task("long");
  long_task->push_stage(works.stage(unit_service, [&](task_ptr const&) {
    entered.count_down();
    release.wait();
  }));
  long_task->push_stage(works.stage(unit_service, [&](task_ptr const&) { note("skipped"); }));
  long_task->push_finalization_stage(
      works.stage(unit_service, [&](task_ptr const&) { note("final"); }));
  ASSERT_EQ(seOk, scheduler->add_task(long_task, L"docs/long"));
  ASSERT_TRUE(entered.wait());
  auto queued = queued_task(L"images");
  auto untouched = queued_task(L"docsx");

  ASSERT_EQ(seOk, batch->add_group(L"docs"));
  ASSERT_EQ(seOk, batch->add_task(queued));
  done->then([&] { note("completed"); });
  ASSERT_EQ(seOk, batch->execute(scheduler, unit_service));
  EXPECT_TRUE(long_task->is_canceled());
  EXPECT_TRUE(queued->is_canceled());
  EXPECT_FALSE(untouched->is_canceled());

  run_main();
  EXPECT_EQ(0, done->count());  // the long stage still holds the batch back
  EXPECT_TRUE(batch->is_in_progress());
  release.count_down();
  ASSERT_TRUE(done->wait(1));
  std::lock_guard<std::mutex> guard(order_mutex);
  EXPECT_EQ((std::vector<std::string>{"final", "completed"}), order);
}

TEST_F(batch_cancel_test, FurtherNotificationsAfterTheEndDoNotCompleteTwice) {
  auto listed = queued_task(L"one");
  auto other = queued_task(L"two");
  ASSERT_EQ(seOk, batch->add_task(listed));
  ASSERT_EQ(seOk, batch->execute(scheduler, unit_main));
  // listed ends first, then other's completion reaches the batch while its end waits in
  // the queue behind it.
  run_main();
  EXPECT_EQ(1, done->count());
  int added = 0;
  for (auto const& e : recorder->events()) added += e.kind == event_t::added;
  EXPECT_EQ(3, added);  // the two tasks and one completion task
  EXPECT_EQ(1, recorder->count(event_t::completed, other));
}

TEST_F(batch_cancel_test, GroupUnderAWiderRunningCancellationEndsWithIt) {
  auto task = queued_task(L"a/b");
  ASSERT_EQ(seOk, scheduler->cancel(L"a"));
  ASSERT_EQ(seOk, batch->add_group(L"a/b"));
  ASSERT_EQ(seOk, batch->execute(scheduler, unit_main));
  EXPECT_EQ(0, done->count());
  run_main();
  EXPECT_EQ(1, recorder->canceled(L"a"));
  EXPECT_EQ(0, recorder->canceled(L"a/b"));
  EXPECT_EQ(1, done->count());
}

TEST_F(batch_cancel_test, EndWaitsWhileSomeoneElseCancelsEverything) {
  auto running = queued_task(L"x");
  ASSERT_EQ(seOk, scheduler->cancel(L""));
  ASSERT_EQ(seOk, batch->add_task(make_task()));
  // The batch ends at once, but its completion task cannot enter while the empty group
  // is being canceled; it enters when that cancellation has ended.
  ASSERT_EQ(seOk, batch->execute(scheduler, unit_main));
  EXPECT_TRUE(batch->is_in_progress());
  run_main();
  EXPECT_EQ(1, recorder->canceled(L""));
  EXPECT_EQ(1, done->count());
  EXPECT_FALSE(batch->is_in_progress());
}

TEST_F(batch_cancel_test, UnitThatNeverRunsTheEndLeavesTheBatchWithoutHoldingAnything) {
  ASSERT_EQ(seOk, batch->add_task(make_task()));
  ASSERT_EQ(seOk, batch->execute(scheduler, L"nowhere"));
  run_main();
  EXPECT_EQ(0, done->count());
  EXPECT_TRUE(batch->is_in_progress());
  EXPECT_EQ(1, scheduler.use_count());  // the batch let the scheduler go ...
  EXPECT_EQ(2, batch.use_count());      // ... and the scheduler let the batch go
}

TEST_F(batch_cancel_test, CompletedHandlerMayStartTheNextOperation) {
  done->then([&] {
    EXPECT_EQ(seOk, batch->add_group(L"later"));
    EXPECT_EQ(seOk, batch->execute(scheduler, unit_main));
  });
  ASSERT_EQ(seOk, batch->execute(scheduler, unit_main));
  // Queued behind the end of the first round, so the second round finds it running.
  auto second_round = queued_task(L"later");
  run_main();
  EXPECT_EQ(2, done->count());
  EXPECT_TRUE(second_round->is_canceled());
  EXPECT_EQ(1, recorder->canceled(L"later"));
  EXPECT_FALSE(batch->is_in_progress());
}

}  // namespace
}  // namespace q2sched
