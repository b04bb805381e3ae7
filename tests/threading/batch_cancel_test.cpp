// batch_cancel_t through its public interface, on a default scheduler whose "main" unit
// is a queue drained by the test.
#include <functional>
#include <string>
#include <thread>

#include "threading_support.hpp"

namespace q2thr {
namespace {

// Listens to `completed` and remembers how often, where and in which state it came.
class completion_t : public subscriber_base_t {
 public:
  explicit completion_t(batch_cancel_t& batch) : m_batch(batch) {
    batch.completed.connect(this, &completion_t::on_completed);
  }
  // Disconnected from the signal's side, in the order in which connect locks.
  ~completion_t() override { m_batch.completed.disconnect(this, &completion_t::on_completed); }
  void on_completed() {
    in_progress_seen = in_progress_seen || m_batch.is_in_progress();
    thread = std::this_thread::get_id();
    ++count;
    if (then) std::exchange(then, nullptr)();
    arrived.open();
  }

  int count = 0;
  bool in_progress_seen = false;
  std::thread::id thread;
  std::function<void()> then;  // runs inside the next emission
  latch_t arrived;

 private:
  batch_cancel_t& m_batch;
};

class batch_cancel_test : public scheduler_test {
 protected:
  boost::shared_ptr<batch_cancel_t> batch = batch_cancel_t::create();
  completion_t done{*batch};
};

TEST_F(batch_cancel_test, FillingRefusesDuplicatesBadArgumentsAndChangesWhileRunning) {
  auto task = make_task();
  EXPECT_EQ(seOk, batch->add_group(L"a"));
  EXPECT_EQ(seAlreadyExists, batch->add_group(L"a"));
  EXPECT_EQ(seOk, batch->add_group(L"A"));
  EXPECT_EQ(seOk, batch->add_task(task));
  EXPECT_EQ(seAlreadyExists, batch->add_task(task));
  EXPECT_EQ(seInvalidArgument, batch->add_task(nullptr));
  EXPECT_EQ(seInvalidArgument, batch->execute(nullptr, unit_main));
  EXPECT_EQ(seInvalidArgument, batch->execute(scheduler, L""));
  EXPECT_FALSE(batch->is_in_progress());

  ASSERT_EQ(seOk, batch->execute(scheduler, unit_main));
  EXPECT_TRUE(task->is_canceled());
  EXPECT_TRUE(batch->is_in_progress());
  EXPECT_EQ(seInProgress, batch->add_group(L"b"));
  EXPECT_EQ(seInProgress, batch->add_task(make_task()));
  EXPECT_EQ(seInProgress, batch->execute(scheduler, unit_main));
  EXPECT_EQ(0, done.count);  // unknown task and empty groups: only the unit is awaited
  run_main();
  EXPECT_EQ(1, done.count);
  EXPECT_EQ(1, recorder->canceled(L"a"));
  EXPECT_FALSE(done.in_progress_seen);
  EXPECT_FALSE(batch->is_in_progress());
}

TEST_F(batch_cancel_test, WaitsForALongStageAndItsFinalizationButNotForOthers) {
  latch_t release, entered;
  std::string order;
  auto long_task = make_task();
  long_task->push_stage(works.stage(unit_service, [&](task_ptr const&) {
    entered.open();
    release.wait();
  }));
  long_task->push_stage(works.stage(unit_service, [&](task_ptr const&) { order += 'X'; }));
  long_task->push_finalization_stage(
      works.stage(unit_service, [&](task_ptr const&) { order += 'f'; }));
  ASSERT_EQ(seOk, scheduler->add_task(long_task, L"docs/long"));
  ASSERT_TRUE(entered.wait());
  auto listed = queued(L"images"), untouched = queued(L"docsx");

  ASSERT_EQ(seOk, batch->add_group(L"docs"));
  ASSERT_EQ(seOk, batch->add_task(listed));
  done.then = [&] { order += 'c'; };
  ASSERT_EQ(seOk, batch->execute(scheduler, unit_service));
  EXPECT_TRUE(long_task->is_canceled());
  EXPECT_FALSE(untouched->is_canceled());
  run_main();  // listed and the others end; the long stage still holds the batch back
  EXPECT_EQ(0, done.count);
  release.open();
  ASSERT_TRUE(done.arrived.wait());
  EXPECT_EQ("fc", order);
  EXPECT_NE(std::this_thread::get_id(), done.thread);  // told on the named unit
}

TEST_F(batch_cancel_test, NotificationsAfterTheEndDoNotSendASecondCompletion) {
  auto listed = queued(L"one");
  queued(L"two");
  ASSERT_EQ(seOk, batch->add_task(listed));
  ASSERT_EQ(seOk, batch->execute(scheduler, unit_main));
  // listed ends first; the end of "two" reaches the batch while its own end waits in
  // the queue.
  run_main();
  EXPECT_EQ(1, done.count);
  EXPECT_EQ(3u, recorder->count('a'));  // the two tasks and a single completion task
}

TEST_F(batch_cancel_test, GroupUnderAWiderRunningCancellationEndsWithIt) {
  queued(L"a/b");
  ASSERT_EQ(seOk, scheduler->cancel(L"a"));
  ASSERT_EQ(seOk, batch->add_group(L"a/b"));
  ASSERT_EQ(seOk, batch->execute(scheduler, unit_main));
  run_main();
  EXPECT_EQ(0, recorder->canceled(L"a/b"));
  EXPECT_EQ(1, done.count);
}

TEST_F(batch_cancel_test, EndWaitsWhileSomeoneElseCancelsEverything) {
  queued(L"x");
  ASSERT_EQ(seOk, scheduler->cancel(L""));
  ASSERT_EQ(seOk, batch->add_task(make_task()));
  // Ended at once, but the end cannot enter the scheduler until "" has ended.
  ASSERT_EQ(seOk, batch->execute(scheduler, unit_main));
  EXPECT_TRUE(batch->is_in_progress());
  run_main();
  EXPECT_EQ(1, recorder->canceled(L""));
  EXPECT_EQ(1, done.count);
}

TEST_F(batch_cancel_test, UnitThatNeverRunsTheEndLeavesTheBatchWithoutHoldingAnything) {
  ASSERT_EQ(seOk, batch->add_task(make_task()));
  ASSERT_EQ(seOk, batch->execute(scheduler, L"nowhere"));
  EXPECT_EQ(0, done.count);
  EXPECT_TRUE(batch->is_in_progress());
  EXPECT_EQ(1, scheduler.use_count());  // the batch let the scheduler go,
  EXPECT_EQ(1, batch.use_count());      // and the scheduler the batch
}

TEST_F(batch_cancel_test, CompletedHandlerMayStartTheNextOperation) {
  done.then = [&] {
    EXPECT_EQ(seOk, batch->add_group(L"later"));
    EXPECT_EQ(seOk, batch->execute(scheduler, unit_main));
  };
  ASSERT_EQ(seOk, batch->execute(scheduler, unit_main));
  auto second_round = queued(L"later");  // behind the first end in the queue
  run_main();
  EXPECT_EQ(2, done.count);
  EXPECT_TRUE(second_round->is_canceled());
  EXPECT_EQ(1, recorder->canceled(L"later"));
}

}  // namespace
}  // namespace q2thr
