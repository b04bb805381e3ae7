// Lifetimes and locks across threads: owners that let go inside jobs, observers that
// call back while other threads change the scheduler, units stopped under their jobs.
#include "threading_support.hpp"

namespace q2thr {

// Blocks in the first notification it gets until the test lets it go.
struct blocking_t : scheduler_status_callback_t {
  void thread_started() override { block(); }
  void task_completed(task_ptr) override { block(); }
  void block() {
    if (blocked.exchange(true)) return;
    inside.open();
    while (!go_on.wait()) {
    }  // opened by the test in any case
  }
  std::atomic<bool> blocked{false};
  latch_t inside, go_on;
};

TEST_F(scheduler_test, ThePreviousSchedulerIsReleasedWithTheSlotUnlocked) {
  latch_t entered;
  set_scheduler(scheduler);
  // The teardown waits for this stage, which ends once the slot is seen empty.
  auto const until_empty = [&](task_ptr const&) {
    entered.open();
    while (get_scheduler()) std::this_thread::yield();
  };
  ASSERT_EQ(seOk, scheduler->add_task(task_of({works.stage(unit_service, until_empty)}), L""));
  boost::weak_ptr<scheduler_t> const watch(scheduler);
  scheduler.reset();
  ASSERT_TRUE(entered.wait());
  EXPECT_TRUE(returns([] { set_scheduler(nullptr); }));
  EXPECT_TRUE(watch.expired());
}

TEST_F(scheduler_test, LastOwnerLettingGoWhileItsQueueIsDrainedEndsTheTaskThere) {
  auto owner = boost::make_shared<boost::shared_ptr<scheduler_t>>(std::move(scheduler));
  auto task =
      task_of({works.stage(unit_main, [owner](task_ptr const&) { owner->reset(); }), note('X')});
  ASSERT_EQ(seOk, (*owner)->add_task(task, L""));
  EXPECT_TRUE(returns([&] { main_queue->process_queue(0); }));
  EXPECT_EQ("ac", recorder->of(task));
  EXPECT_EQ("", ran);
}

TEST_F(scheduler_test, UnitsGetTheClientsObserversAndMayReachTheSchedulerMeanwhile) {
  struct spy_unit_t : queue_unit_t {
    void set_status_callbacks(status_callbacks_t const& callbacks) override {
      queue_unit_t::set_status_callbacks(seen = callbacks);
      if (++calls == 2) added = owner->add_unit(L"extra", boost::make_shared<queue_unit_t>());
    }
    status_callbacks_t seen;
    scheduler_t* owner = nullptr;
    int calls = 0;
    scheduler_error_t added = seNotFound;
  };
  auto spy = boost::make_shared<spy_unit_t>();
  spy->owner = scheduler.get();
  ASSERT_EQ(seOk, scheduler->add_unit(L"spy", spy));
  EXPECT_EQ(status_callbacks_t{recorder}, spy->seen);
  auto other = boost::make_shared<scheduler_status_callback_t>();
  EXPECT_TRUE(returns([&] { scheduler->add_status_callback(other); }));
  EXPECT_EQ(seOk, spy->added);
  ASSERT_EQ(seOk, scheduler->remove_status_callback(recorder));
  EXPECT_EQ(status_callbacks_t{other}, spy->seen);
}

TEST_F(scheduler_test, ObserversAreCalledWithoutTheSchedulersLock) {
  auto blocking = boost::make_shared<blocking_t>();
  ASSERT_EQ(seOk, scheduler->add_status_callback(blocking));
  queued(L"");
  std::thread drain([&] { run_main(); });
  ASSERT_TRUE(blocking->inside.wait());
  EXPECT_TRUE(returns(
      [&] { scheduler->add_status_callback(boost::make_shared<scheduler_status_callback_t>()); }));
  blocking->go_on.open();
  drain.join();
}

TEST_F(scheduler_test, BatchWhoseClientLetsGoAfterExecuteStillCompletes) {
  auto batch = batch_cancel_t::create();
  batch->completed.connect(recorder.get(), &recorder_t::ended);
  ASSERT_EQ(seOk, batch->add_task(queued(L"long")));
  ASSERT_EQ(seOk, batch->execute(scheduler, unit_service));
  batch.reset();
  run_main();  // the task ends here; the batch ends, and goes, on a worker of "service"
  EXPECT_TRUE(recorder->wait('e'));
}

TEST(unit_lifetime, ObserversOfAUnitAreCalledWithoutItsLock) {
  works_t works;
  auto pool = boost::make_shared<thread_pool_unit_t>(1u);
  auto blocking = boost::make_shared<blocking_t>();
  pool->set_status_callbacks(status_callbacks_t{blocking});
  ASSERT_EQ(seOk, pool->execute(make_task(), works.stage(L"")));
  ASSERT_TRUE(blocking->inside.wait());
  EXPECT_TRUE(returns([&] { pool->set_status_callbacks(status_callbacks_t()); }));
  blocking->go_on.open();
  pool->terminate();
}

TEST(unit_lifetime, APoolBeingTerminatedStartsNoWorkerBeyondItsLimit) {
  works_t works;
  latch_t entered;
  auto pool = boost::make_shared<thread_pool_unit_t>(1u);
  auto recorder = boost::make_shared<recorder_t>();
  pool->set_status_callbacks(status_callbacks_t{recorder});
  stage_ptr const later = works.stage(L"");
  // Interrupted by terminate, the stage hands the pool a job while its worker is joined.
  stage_ptr const first = works.stage(L"", [&](task_ptr const&) {
    entered.open();
    try {
      boost::this_thread::sleep_for(boost::chrono::hours(1));
    } catch (boost::thread_interrupted const&) {
      pool->execute(make_task(), later);
      throw;
    }
  });
  ASSERT_EQ(seOk, pool->execute(make_task(), first));
  ASSERT_TRUE(entered.wait());
  pool->terminate();
  pool.reset();  // joins whatever worker was started meanwhile
  EXPECT_EQ(1u, recorder->count('s'));
}

TEST(unit_lifetime, ADelayUnitReleasedForGoodOnItsTimerThreadEndsThatThread) {
  auto unit = boost::make_shared<delayed_tasks_unit_t>();
  auto recorder = boost::make_shared<recorder_t>();
  unit->set_status_callbacks(status_callbacks_t{recorder});
  unit->on_registered();
  recorder->attach(*unit);
  auto held = unit;
  recorder->then = [&held](task_ptr) { held.reset(); };  // on the timer thread
  ASSERT_EQ(seOk, unit->execute(make_task(), boost::make_shared<stage_t>(unit_delay_tasks, 1)));
  unit.reset();
  EXPECT_TRUE(recorder->wait('f'));
}

}  // namespace q2thr
