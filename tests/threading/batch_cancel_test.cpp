// batch_cancel_t through its public interface, on the scheduler of the fixture.
#include "threading_support.hpp"

namespace q2thr {

// The fixture's recorder notes the batch's `completed` as 'e'.
class batch_cancel_test : public scheduler_test {
 protected:
  batch_cancel_test() {
    batch->completed.connect(recorder.get(), &recorder_t::ended);
    recorder->then_on = 'e';
  }
  // Disconnected from the signal's side, in the order in which connect locks.
  ~batch_cancel_test() override { batch->completed.disconnect(recorder.get(), &recorder_t::ended); }

  boost::shared_ptr<batch_cancel_t> batch = batch_cancel_t::create();
};

TEST_F(batch_cancel_test, FillingRefusesDuplicatesBadArgumentsAndChangesWhileRunning) {
  auto task = make_task();
  EXPECT_EQ(seOk, batch->add_group(L"a"));
  EXPECT_EQ(seAlreadyExists, batch->add_group(L"a"));
  EXPECT_EQ(seOk, batch->add_task(task));
  EXPECT_EQ(seAlreadyExists, batch->add_task(task));
  EXPECT_EQ(seInvalidArgument, batch->add_task(nullptr));
  EXPECT_EQ(seInvalidArgument, batch->execute(scheduler, L""));
  bool in_progress_seen = true;
  recorder->then = [&](task_ptr) { in_progress_seen = batch->is_in_progress(); };
  ASSERT_EQ(seOk, batch->execute(scheduler, unit_main));
  EXPECT_TRUE(task->is_canceled());
  EXPECT_TRUE(batch->is_in_progress());
  EXPECT_EQ(seInProgress, batch->add_group(L"b"));
  EXPECT_EQ(seInProgress, batch->execute(scheduler, unit_main));
  EXPECT_EQ(0u, recorder->count('e'));  // unknown task and empty groups: only the unit is awaited
  run_main();
  EXPECT_EQ(1u, recorder->count('e'));
  EXPECT_EQ(1, recorder->canceled(L"a"));
  EXPECT_FALSE(in_progress_seen);
  EXPECT_FALSE(batch->is_in_progress());
}

TEST_F(batch_cancel_test, WaitsForALongStageAndItsFinalizationButNotForOthers) {
  latch_t release, entered;
  auto long_task = task_of({works.stage(unit_service,
                                        [&](task_ptr const&) {
                                          entered.open();
                                          release.wait();
                                        }),
                            note('X', unit_service)},
                           works.stage(unit_service, [&](task_ptr const&) { ran += 'f'; }));
  ASSERT_EQ(seOk, scheduler->add_task(long_task, L"docs/long"));
  ASSERT_TRUE(entered.wait());
  auto listed = queued(L"images"), untouched = queued(L"docsx");
  ASSERT_EQ(seOk, batch->add_group(L"docs"));
  ASSERT_EQ(seOk, batch->add_task(listed));
  recorder->then = [&](task_ptr) { ran += 'c'; };
  ASSERT_EQ(seOk, batch->execute(scheduler, unit_service));
  run_main();  // listed and the others end; the long stage still holds the batch back
  EXPECT_EQ(0u, recorder->count('e'));
  release.open();
  ASSERT_TRUE(recorder->wait('e'));
  EXPECT_EQ("-qfc", ran);
  EXPECT_NE(std::this_thread::get_id(), recorder->events('e').at(0).thread);  // on the unit
}

TEST_F(batch_cancel_test, NotificationsAfterTheEndDoNotSendASecondCompletion) {
  ASSERT_EQ(seOk, batch->add_task(queued(L"one")));
  queued(L"two");
  ASSERT_EQ(seOk, batch->execute(scheduler, unit_main));
  // The listed task ends first; the end of "two" reaches the batch while its own end
  // waits in the queue.
  run_main();
  EXPECT_EQ(1u, recorder->count('e'));
  EXPECT_EQ(3u, recorder->count('a'));  // the two tasks and a single completion task
}

TEST_F(batch_cancel_test, GroupUnderAWiderRunningCancellationEndsWithIt) {
  queued(L"a/b");
  ASSERT_EQ(seOk, scheduler->cancel(L"a"));
  ASSERT_EQ(seOk, batch->add_group(L"a/b"));
  ASSERT_EQ(seOk, batch->execute(scheduler, unit_main));
  run_main();
  EXPECT_EQ(0, recorder->canceled(L"a/b"));
  EXPECT_EQ(1u, recorder->count('e'));
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
  EXPECT_EQ(1u, recorder->count('e'));
}

TEST_F(batch_cancel_test, UnitThatNeverRunsTheEndLeavesTheBatchWithoutHoldingAnything) {
  ASSERT_EQ(seOk, batch->add_task(make_task()));
  ASSERT_EQ(seOk, batch->execute(scheduler, L"nowhere"));
  EXPECT_EQ(0u, recorder->count('e'));
  EXPECT_TRUE(batch->is_in_progress());
  EXPECT_EQ(1, scheduler.use_count());  // the batch let the scheduler go,
  EXPECT_EQ(1, batch.use_count());      // and the scheduler the batch
}

TEST_F(batch_cancel_test, CompletedHandlerMayStartTheNextOperation) {
  bool first = true;
  recorder->then = [&](task_ptr) {
    if (!std::exchange(first, false)) return;
    EXPECT_EQ(seOk, batch->add_group(L"later"));
    EXPECT_EQ(seOk, batch->execute(scheduler, unit_main));
  };
  ASSERT_EQ(seOk, batch->execute(scheduler, unit_main));
  auto second_round = queued(L"later");  // behind the first end in the queue
  run_main();
  EXPECT_EQ(2u, recorder->count('e'));
  EXPECT_TRUE(second_round->is_canceled());
  EXPECT_EQ(1, recorder->canceled(L"later"));
}

}  // namespace q2thr
