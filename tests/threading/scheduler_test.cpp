// The scheduler core through its public interface: the road of a task, sequences,
// groups and their cancellation, waiting, units, observers and teardown.
#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include <quillon2/core/assert.hpp>

#include "scheduler_fixture.hpp"

namespace q2sched {
namespace {

using kinds_t = std::vector<event_t::kind_t>;

// --- The road of a task --------------------------------------------------------------

TEST_F(scheduler_test, TaskRoadThroughServiceEndsOnTheWorkerThatRanTheLastStage) {
  auto task = make_task("road");
  latch_t added;
  std::vector<std::string> order;
  std::mutex order_mutex;
  std::thread::id last_stage_thread;
  auto step = [&](std::string name) {
    std::lock_guard<std::mutex> guard(order_mutex);
    order.push_back(std::move(name));
  };
  task->push_stage(works.stage(unit_service, [&](task_ptr const&) {
    added.wait();  // holds the task at its first stage until add_task has returned
    step("first");
  }));
  task->push_stage(works.stage(unit_service, [&](task_ptr const&) { step("second"); }));
  task->push_finalization_stage(works.stage(unit_service, [&](task_ptr const& t) {
    EXPECT_EQ(task, t);
    step("final");
    last_stage_thread = std::this_thread::get_id();
  }));

  ASSERT_EQ(seOk, scheduler->add_task(task, L"docs"));
  added.count_down();
  ASSERT_TRUE(recorder->wait_completed(task));

  EXPECT_EQ((std::vector<std::string>{"first", "second", "final"}), order);
  EXPECT_EQ((kinds_t{event_t::added, event_t::completed}), recorder->kinds(task));
  EXPECT_EQ(last_stage_thread, recorder->completion_thread(task));
  EXPECT_NE(std::this_thread::get_id(), recorder->completion_thread(task));
  EXPECT_FALSE(scheduler->is_known_task(task));
}

TEST_F(scheduler_test, StagesRunOneByOneAndTheTaskLeavesTheTablesAtTheEnd) {
  auto task = make_task();
  std::vector<int> ran;
  task->push_stage(works.stage(unit_main, [&](task_ptr const& t) {
    ran.push_back(1);
    // A stage may push further stages onto its own task; they run in their turn.
    boost::static_pointer_cast<default_task_t>(t)->push_stage(
        works.stage(unit_main, [&](task_ptr const&) { ran.push_back(3); }));
  }));
  task->push_stage(works.stage(unit_main, [&](task_ptr const&) { ran.push_back(2); }));
  ASSERT_EQ(seOk, scheduler->add_task(task, L"g"));

  std::wstring group;
  EXPECT_TRUE(scheduler->find_group(task, group));
  EXPECT_EQ(L"g", group);
  EXPECT_TRUE(scheduler->is_known_task(task));
  EXPECT_EQ((kinds_t{event_t::added}), recorder->kinds(task));

  main_queue->process_queue(1);
  EXPECT_EQ((std::vector<int>{1}), ran);
  EXPECT_EQ(0, recorder->count(event_t::completed, task));
  run_main();
  EXPECT_EQ((std::vector<int>{1, 2, 3}), ran);
  EXPECT_EQ((kinds_t{event_t::added, event_t::completed}), recorder->kinds(task));
  EXPECT_FALSE(scheduler->find_group(task, group));
  EXPECT_TRUE(scheduler->find_tasks(L"").empty());
}

TEST_F(scheduler_test, TaskWithoutStagesCompletesInsideAddTask) {
  auto task = make_task();
  EXPECT_EQ(seOk, scheduler->add_task(task, L""));
  EXPECT_EQ((kinds_t{event_t::completed, event_t::added}), recorder->kinds(task));
  EXPECT_FALSE(scheduler->is_known_task(task));
}

TEST_F(scheduler_test, FinalizationStagesRunOnlyForTasksThatReallyStarted) {
  bool final_ran = false;
  auto only_final = make_task();
  only_final->push_finalization_stage(
      works.stage(unit_main, [&](task_ptr const&) { final_ran = true; }));
  ASSERT_EQ(seOk, scheduler->add_task(only_final, L""));
  run_main();
  EXPECT_FALSE(final_ran);
  EXPECT_EQ(1, recorder->count(event_t::completed, only_final));

  // A delay stage does not count as a start.
  auto delayed = make_task();
  delayed->push_stage(boost::make_shared<stage_t>(unit_delay_tasks, 1));
  delayed->push_finalization_stage(
      works.stage(unit_main, [&](task_ptr const&) { final_ran = true; }));
  ASSERT_EQ(seOk, scheduler->add_task(delayed, L""));
  ASSERT_TRUE(recorder->wait_completed(delayed));
  EXPECT_FALSE(final_ran);
  EXPECT_FALSE(main_queue->has_tasks());
}

TEST_F(scheduler_test, StageForAnUnknownUnitIsSkipped) {
  std::vector<char> ran;
  auto task = make_task();
  task->push_stage(works.stage(unit_main, [&](task_ptr const&) { ran.push_back('a'); }));
  task->push_stage(works.stage(L"nowhere", [&](task_ptr const&) { ran.push_back('b'); }));
  task->push_stage(works.stage(unit_main, [&](task_ptr const&) { ran.push_back('c'); }));
  ASSERT_EQ(seOk, scheduler->add_task(task, L""));
  run_main();
  EXPECT_EQ((std::vector<char>{'a', 'c'}), ran);
  EXPECT_EQ(0, recorder->count(event_t::rejected, task));
  EXPECT_EQ(1, recorder->count(event_t::completed, task));
}

// A unit that refuses everything, as a full queue would.
class refusing_unit_t : public unit_t {
 public:
  scheduler_error_t execute(task_ptr, stage_ptr) override { return seQueueFull; }
};

TEST_F(scheduler_test, RefusedStageIsReportedAndTheTaskGoesToItsFinalization) {
  ASSERT_EQ(seOk, scheduler->add_unit(L"full", boost::make_shared<refusing_unit_t>()));
  std::vector<char> ran;
  auto task = make_task();
  task->push_stage(works.stage(L"full", [&](task_ptr const&) { ran.push_back('x'); }));
  task->push_stage(works.stage(unit_main, [&](task_ptr const&) { ran.push_back('y'); }));
  task->push_finalization_stage(
      works.stage(unit_main, [&](task_ptr const&) { ran.push_back('f'); }));
  ASSERT_EQ(seOk, scheduler->add_task(task, L""));
  run_main();
  EXPECT_EQ((std::vector<char>{'f'}), ran);
  EXPECT_EQ((kinds_t{event_t::rejected, event_t::added, event_t::completed}),
            recorder->kinds(task));
  for (auto const& e : recorder->events()) {
    if (e.kind == event_t::rejected) {
      EXPECT_EQ(seQueueFull, e.error);
    }
  }
}

TEST_F(scheduler_test, AddingARunningTaskAgainIsRefusedAndLeavesItUndisturbed) {
  int runs = 0;
  auto task = make_task();
  task->push_stage(works.stage(unit_main, [&](task_ptr const&) { ++runs; }));
  ASSERT_EQ(seOk, scheduler->add_task(task, L"a"));
  EXPECT_EQ(seAlreadyExists, scheduler->add_task(task, L"b"));
  EXPECT_EQ(seAlreadyExists, scheduler->add_task(make_task(), task, L"b"));
  EXPECT_EQ(seInvalidArgument, scheduler->add_task(nullptr, L"a"));
  EXPECT_EQ(seInvalidArgument, scheduler->add_task(nullptr, make_task(), L"a"));
  EXPECT_EQ(seInvalidArgument, scheduler->add_task(task, nullptr, L"a"));
  run_main();
  EXPECT_EQ(1, runs);
  EXPECT_EQ((kinds_t{event_t::added, event_t::completed}), recorder->kinds(task));
}

// --- Sequences -----------------------------------------------------------------------

TEST_F(scheduler_test, FollowersStartWhenTheirPredecessorCompletes) {
  std::vector<std::string> ran;
  auto prev = make_task("prev");
  prev->push_stage(works.stage(unit_main, [&](task_ptr const&) { ran.push_back("prev"); }));
  auto first = make_task("first");
  first->push_stage(works.stage(unit_main, [&](task_ptr const&) { ran.push_back("first"); }));
  auto second = make_task("second");
  second->push_stage(works.stage(unit_main, [&](task_ptr const&) { ran.push_back("second"); }));

  ASSERT_EQ(seOk, scheduler->add_task(prev, L"p"));
  ASSERT_EQ(seOk, scheduler->add_task(prev, first, L"f"));
  ASSERT_EQ(seOk, scheduler->add_task(prev, second, L"f"));
  EXPECT_EQ(seAlreadyExists, scheduler->add_task(prev, first, L"f"));
  EXPECT_EQ(seAlreadyExists, scheduler->add_task(make_task(), second, L"f"));

  // Waiting tasks are known, but not listed and not yet announced.
  EXPECT_TRUE(scheduler->is_known_task(first));
  std::wstring waiting_group = L"f";
  EXPECT_TRUE(scheduler->is_known_group(waiting_group));
  EXPECT_TRUE(scheduler->find_tasks(L"f").empty());
  EXPECT_TRUE(recorder->kinds(first).empty());

  main_queue->process_queue(1);  // prev's only stage: prev completes, followers enter
  EXPECT_EQ((kinds_t{event_t::added}), recorder->kinds(first));
  EXPECT_EQ((kinds_t{event_t::added}), recorder->kinds(second));
  EXPECT_EQ(2u, scheduler->find_tasks(L"f").size());
  run_main();
  ASSERT_EQ(3u, ran.size());
  EXPECT_EQ("prev", ran[0]);
  EXPECT_EQ(1, recorder->count(event_t::completed, first));
  EXPECT_EQ(1, recorder->count(event_t::completed, second));

  // Followers enter before the predecessor's completion is announced.
  auto events = recorder->events();
  std::size_t first_added = 0, prev_completed = 0;
  for (std::size_t i = 0; i < events.size(); ++i) {
    if (events[i].task == first && events[i].kind == event_t::added) first_added = i;
    if (events[i].task == prev && events[i].kind == event_t::completed) prev_completed = i;
  }
  EXPECT_LT(first_added, prev_completed);
}

TEST_F(scheduler_test, FollowerWhoseGroupIsCancelingIsDroppedSilently) {
  auto prev = make_task();
  prev->push_stage(works.stage(unit_main));
  bool follower_ran = false;
  auto follower = make_task();
  follower->push_stage(works.stage(unit_main, [&](task_ptr const&) { follower_ran = true; }));
  ASSERT_EQ(seOk, scheduler->add_task(prev, L"x"));
  ASSERT_EQ(seOk, scheduler->add_task(prev, follower, L"y"));

  ASSERT_EQ(seOk, scheduler->cancel(L"y"));
  EXPECT_TRUE(follower->is_canceled());
  EXPECT_EQ(0, recorder->canceled(L"y"));  // ends only when some task completes
  run_main();
  EXPECT_FALSE(follower_ran);
  EXPECT_TRUE(recorder->kinds(follower).empty());
  EXPECT_EQ(1, recorder->canceled(L"y"));
  EXPECT_FALSE(scheduler->is_known_task(follower));
}

// --- Groups and cancellation ---------------------------------------------------------

TEST(scheduler_groups, PatternsMatchTheGroupAndEverythingBelowIt) {
  EXPECT_TRUE(scheduler_impl_t::matches(L"", L""));
  EXPECT_TRUE(scheduler_impl_t::matches(L"", L"a/b"));
  EXPECT_TRUE(scheduler_impl_t::matches(L"a", L"a"));
  EXPECT_TRUE(scheduler_impl_t::matches(L"a", L"a/b/c"));
  EXPECT_FALSE(scheduler_impl_t::matches(L"a", L"ab"));
  EXPECT_FALSE(scheduler_impl_t::matches(L"a/b", L"a"));
  EXPECT_FALSE(scheduler_impl_t::matches(L"A", L"a"));
  EXPECT_FALSE(scheduler_impl_t::matches(L"a", L""));
}

TEST_F(scheduler_test, CancelingAGroupCancelsEverythingAtOrBelowIt) {
  std::vector<std::string> ran;
  auto make = [&](std::string name) {
    auto task = make_task(name);
    task->push_stage(works.stage(unit_main, [&ran, name](task_ptr const& t) {
      ran.push_back(name + (t->is_canceled() ? ":canceled" : ""));
    }));
    task->push_stage(works.stage(unit_main, [&ran, name](task_ptr const&) {
      ran.push_back(name + ":second");
    }));
    return task;
  };
  auto a = make("a"), ab = make("a/b"), other = make("ab");
  ASSERT_EQ(seOk, scheduler->add_task(a, L"a"));
  ASSERT_EQ(seOk, scheduler->add_task(ab, L"a/b"));
  ASSERT_EQ(seOk, scheduler->add_task(other, L"ab"));
  EXPECT_EQ(2u, scheduler->find_tasks(L"a").size());
  EXPECT_EQ(3u, scheduler->find_tasks(L"").size());

  ASSERT_EQ(seOk, scheduler->cancel(L"a"));
  EXPECT_TRUE(a->is_canceled());
  EXPECT_TRUE(ab->is_canceled());
  EXPECT_FALSE(other->is_canceled());

  // While "a" is canceling nothing enters it or below it, and nothing cancels there.
  std::wstring group = L"a";
  EXPECT_FALSE(scheduler->is_known_group(group));
  group = L"ab";
  EXPECT_TRUE(scheduler->is_known_group(group));
  EXPECT_EQ(seGroupCanceling, scheduler->add_task(make_task(), L"a/b/c"));
  EXPECT_EQ(seGroupCanceling, scheduler->add_task(other, make_task(), L"a"));
  EXPECT_EQ(seGroupCanceling, scheduler->cancel(L"a"));
  EXPECT_EQ(seGroupCanceling, scheduler->cancel(L"a/b"));
  EXPECT_EQ(seOk, scheduler->add_task(make_task(), L"ab"));

  run_main();
  // Queued stages still run and see the flag; the canceled tasks stop there.
  EXPECT_EQ((std::vector<std::string>{"a:canceled", "a/b:canceled", "ab", "ab:second"}), ran);
  EXPECT_EQ(1, recorder->canceled(L"a"));
  EXPECT_EQ(0, recorder->canceled(L"ab"));
  // The group's end is told after its last task's completion.
  auto events = recorder->events();
  ASSERT_FALSE(events.empty());
  std::size_t last_a = 0, a_canceled = 0;
  for (std::size_t i = 0; i < events.size(); ++i) {
    if (events[i].kind == event_t::completed && (events[i].task == a || events[i].task == ab)) {
      last_a = i;
    }
    if (events[i].kind == event_t::group_canceled) a_canceled = i;
  }
  EXPECT_LT(last_a, a_canceled);
  EXPECT_EQ(seOk, scheduler->add_task(make_task(), L"a/b"));
}

TEST_F(scheduler_test, WiderCancellationIsAcceptedBesideANarrowerOne) {
  auto ab = make_task();
  ab->push_stage(works.stage(unit_main));
  auto a = make_task();
  a->push_stage(works.stage(unit_main));
  ASSERT_EQ(seOk, scheduler->add_task(ab, L"a/b"));
  ASSERT_EQ(seOk, scheduler->add_task(a, L"a"));
  ASSERT_EQ(seOk, scheduler->cancel(L"a/b"));
  ASSERT_EQ(seOk, scheduler->cancel(L"a"));
  main_queue->process_queue(1);  // ab ends: "a/b" is over, "a" still holds task a
  EXPECT_EQ(1, recorder->canceled(L"a/b"));
  EXPECT_EQ(0, recorder->canceled(L"a"));
  run_main();
  EXPECT_EQ(1, recorder->canceled(L"a"));
  EXPECT_EQ(1, recorder->canceled(L"a/b"));
}

TEST_F(scheduler_test, CancelOfAGroupWithoutTasksEndsAtOnce) {
  EXPECT_EQ(seOk, scheduler->cancel(L"nothing/here"));
  EXPECT_EQ(1, recorder->canceled(L"nothing/here"));
  EXPECT_EQ(seOk, scheduler->cancel_and_wait(L"nothing/here", nullptr));
  EXPECT_EQ(2, recorder->canceled(L"nothing/here"));
}

TEST_F(scheduler_test, EmptyPatternCancelsEveryGroupAndHoldsAddTaskBackUntilItsEnd) {
  auto one = make_task(), two = make_task();
  one->push_stage(works.stage(unit_main));
  two->push_stage(works.stage(unit_main));
  ASSERT_EQ(seOk, scheduler->add_task(one, L"x"));
  ASSERT_EQ(seOk, scheduler->add_task(two, L"y/z"));
  ASSERT_EQ(seOk, scheduler->cancel(L""));
  EXPECT_TRUE(one->is_canceled());
  EXPECT_TRUE(two->is_canceled());
  EXPECT_EQ(seGroupCanceling, scheduler->add_task(make_task(), L""));
  EXPECT_EQ(seGroupCanceling, scheduler->add_task(make_task(), L"anything"));
  run_main();
  EXPECT_EQ(1, recorder->canceled(L""));
  EXPECT_EQ(seOk, scheduler->add_task(make_task(), L"anything"));
}

TEST_F(scheduler_test, CanceledTaskSkipsItsRemainingStagesButRunsItsFinalization) {
  std::vector<std::string> ran;
  auto task = make_task();
  task->push_stage(works.stage(unit_main, [&](task_ptr const& t) {
    ran.push_back(t->is_canceled() ? "first:canceled" : "first");
  }));
  task->push_stage(works.stage(unit_main, [&](task_ptr const&) { ran.push_back("second"); }));
  task->push_finalization_stage(
      works.stage(unit_main, [&](task_ptr const&) { ran.push_back("final"); }));
  ASSERT_EQ(seOk, scheduler->add_task(task, L"g"));
  task->cancel();
  task->cancel();  // twice changes nothing
  run_main();
  EXPECT_EQ((std::vector<std::string>{"first:canceled", "final"}), ran);
  EXPECT_EQ(1, recorder->count(event_t::completed, task));
}

TEST_F(scheduler_test, CanceledTaskLeavesTheDelayUnitWithoutItsDelay) {
  auto task = make_task();
  task->push_stage(boost::make_shared<stage_t>(unit_delay_tasks, 3600 * 1000));
  bool next_ran = false;
  task->push_stage(works.stage(unit_main, [&](task_ptr const&) { next_ran = true; }));
  ASSERT_EQ(seOk, scheduler->add_task(task, L"slow"));
  ASSERT_EQ(seOk, scheduler->cancel(L"slow"));
  ASSERT_TRUE(recorder->wait_canceled(L"slow"));
  EXPECT_EQ(1, recorder->count(event_t::completed, task));
  EXPECT_FALSE(main_queue->has_tasks());
  EXPECT_FALSE(next_ran);
}

TEST_F(scheduler_test, CancellationRacingWithCompletionEndsEachTaskAndGroupOnce) {
  constexpr int rounds = 200;
  std::vector<boost::shared_ptr<default_task_t>> tasks;
  std::vector<scheduler_error_t> results;
  std::atomic<int> stages_run{0};
  for (int i = 0; i < rounds; ++i) {
    auto task = make_task();
    task->push_stage(works.stage(unit_service, [&](task_ptr const&) { ++stages_run; }));
    task->push_stage(works.stage(unit_service, [&](task_ptr const&) { ++stages_run; }));
    std::wstring const group = L"race/" + std::to_wstring(i);
    ASSERT_EQ(seOk, scheduler->add_task(task, group));
    results.push_back(scheduler->cancel(group));
    tasks.push_back(task);
  }
  for (int i = 0; i < rounds; ++i) {
    std::wstring const group = L"race/" + std::to_wstring(i);
    ASSERT_EQ(seOk, results[i]);
    ASSERT_TRUE(recorder->wait_canceled(group)) << i;
    ASSERT_TRUE(recorder->wait_completed(tasks[i])) << i;
  }
  for (int i = 0; i < rounds; ++i) {
    EXPECT_EQ(1, recorder->canceled(L"race/" + std::to_wstring(i)));
    EXPECT_EQ(1, recorder->count(event_t::completed, tasks[i]));
    EXPECT_EQ(1, recorder->count(event_t::added, tasks[i]));
  }
  EXPECT_LE(stages_run.load(), 2 * rounds);
}

// --- Waiting -------------------------------------------------------------------------

// Tells the test that the waiting has begun, then waits as the default callback does.
class announcing_wait_t : public scheduler_wait_callback_t {
 public:
  explicit announcing_wait_t(latch_t& waiting) : m_waiting(waiting) {}
  void wait(boost::weak_ptr<scheduler_operation_status_t> status) override {
    auto locked = status.lock();
    ASSERT_TRUE(locked);
    m_first_answer = locked->is_finished();
    m_waiting.count_down();
    default_scheduler_wait_callback_t().wait(status);
  }
  bool m_first_answer = true;

 private:
  latch_t& m_waiting;
};

TEST_F(scheduler_test, CancelAndWaitFromAPlainThreadReturnsWhenTheGroupHasEnded) {
  latch_t waiting, stage_entered;
  bool saw_cancel = false;
  auto task = make_task();
  task->push_stage(works.stage(unit_service, [&](task_ptr const& t) {
    stage_entered.count_down();
    waiting.wait();
    saw_cancel = t->is_canceled();
  }));
  ASSERT_EQ(seOk, scheduler->add_task(task, L"job/1"));
  ASSERT_TRUE(stage_entered.wait());

  auto wait = boost::make_shared<announcing_wait_t>(waiting);
  scheduler_error_t result = seInvalidArgument;
  std::thread canceler([&] { result = scheduler->cancel_and_wait(L"job", wait); });
  canceler.join();

  EXPECT_EQ(seOk, result);
  EXPECT_FALSE(wait->m_first_answer);
  EXPECT_TRUE(saw_cancel);
  EXPECT_EQ(1, recorder->canceled(L"job"));
  EXPECT_EQ(1, recorder->count(event_t::completed, task));
  EXPECT_FALSE(scheduler->is_known_task(task));
}

TEST_F(scheduler_test, CancelAndWaitPassesOnARefusedCancel) {
  auto task = make_task();
  task->push_stage(works.stage(unit_main));
  ASSERT_EQ(seOk, scheduler->add_task(task, L"a/b"));
  ASSERT_EQ(seOk, scheduler->cancel(L"a"));
  EXPECT_EQ(seGroupCanceling, scheduler->cancel_and_wait(L"a/b", nullptr));
  run_main();
}

TEST(scheduler_wait, CancelAndWaitWithoutAnyWaitCallbackIsRefused) {
  auto scheduler = create_default_scheduler(nullptr, nullptr, true);
  EXPECT_EQ(seNoWaitCallback, scheduler->cancel_and_wait(L"", nullptr));
}

// --- Units and observers -------------------------------------------------------------

TEST_F(scheduler_test, UnitsAreRegisteredOncePerName) {
  auto first = boost::make_shared<queue_unit_t>();
  EXPECT_EQ(seOk, scheduler->add_unit(L"gui", first));
  EXPECT_EQ(seAlreadyExists, scheduler->add_unit(L"gui", boost::make_shared<queue_unit_t>()));
  EXPECT_EQ(seAlreadyExists, scheduler->add_unit(unit_service, first));
  EXPECT_EQ(seInvalidArgument, scheduler->add_unit(L"", first));
  EXPECT_EQ(seInvalidArgument, scheduler->add_unit(L"other", nullptr));

  auto task = make_task();
  task->push_stage(works.stage(L"gui"));
  ASSERT_EQ(seOk, scheduler->add_task(task, L""));
  EXPECT_TRUE(first->has_tasks());  // the first registration stays
  first->process_queue(0);
  EXPECT_EQ(1, recorder->count(event_t::completed, task));
}

TEST_F(scheduler_test, ObserversAreAddedOnceAndRemovedObserversHearNothing) {
  auto second = boost::make_shared<recorder_t>();
  EXPECT_EQ(seOk, scheduler->add_status_callback(second));
  EXPECT_EQ(seAlreadyExists, scheduler->add_status_callback(second));
  EXPECT_EQ(seAlreadyExists, scheduler->add_status_callback(recorder));
  auto heard = make_task();
  ASSERT_EQ(seOk, scheduler->add_task(heard, L""));
  EXPECT_EQ(seOk, scheduler->remove_status_callback(second));
  EXPECT_EQ(seNotFound, scheduler->remove_status_callback(second));
  ASSERT_EQ(seOk, scheduler->add_task(make_task(), L""));
  EXPECT_EQ(2u, second->events().size());
  EXPECT_EQ(4u, recorder->events().size());
}

// Adds a follow-up task from inside the completion of another one, and removes itself.
class chaining_observer_t : public scheduler_status_callback_t {
 public:
  chaining_observer_t(scheduler_t& scheduler, task_ptr first, task_ptr next)
      : m_scheduler(scheduler), m_first(first), m_next(next) {}
  void task_completed(task_ptr task) override {
    if (task != m_first) return;
    m_result = m_scheduler.add_task(m_next, L"chained");
    m_removed = m_scheduler.remove_status_callback(m_self.lock());
    m_done.count_down();
  }
  latch_t m_done;
  scheduler_t& m_scheduler;
  task_ptr m_first, m_next;
  boost::weak_ptr<chaining_observer_t> m_self;
  scheduler_error_t m_result = seInvalidArgument, m_removed = seInvalidArgument;
};

TEST_F(scheduler_test, ObserverMayCallBackIntoTheSchedulerFromANotification) {
  auto first = make_task(), next = make_task();
  first->push_stage(works.stage(unit_service));
  next->push_stage(works.stage(unit_service));
  auto observer = boost::make_shared<chaining_observer_t>(*scheduler, first, next);
  observer->m_self = observer;
  ASSERT_EQ(seOk, scheduler->add_status_callback(observer));
  ASSERT_EQ(seOk, scheduler->add_task(first, L""));
  ASSERT_TRUE(observer->m_done.wait());
  ASSERT_TRUE(recorder->wait_completed(next));
  EXPECT_EQ(seOk, observer->m_result);
  EXPECT_EQ(seOk, observer->m_removed);
}

// --- Teardown ------------------------------------------------------------------------

// Lets a blocked stage go when the scheduler starts waiting, and tells when it dies.
class releasing_wait_t : public scheduler_wait_callback_t {
 public:
  releasing_wait_t(latch_t& release, latch_t& gone) : m_release(release), m_gone(gone) {}
  ~releasing_wait_t() { m_gone.count_down(); }
  void wait(boost::weak_ptr<scheduler_operation_status_t> status) override {
    m_release.count_down();
    default_scheduler_wait_callback_t().wait(status);
  }

 private:
  latch_t& m_release;
  latch_t& m_gone;
};

TEST(scheduler_teardown, DestroyingTheSchedulerCancelsAndWaitsForItsTasks) {
  works_t works;
  latch_t release, gone, entered;
  auto recorder = boost::make_shared<recorder_t>();
  auto scheduler =
      create_default_scheduler(recorder, boost::make_shared<releasing_wait_t>(release, gone));
  bool saw_cancel = false;
  auto task = make_task();
  task->push_stage(works.stage(unit_service, [&](task_ptr const& t) {
    entered.count_down();
    release.wait();
    saw_cancel = t->is_canceled();
  }));
  task->push_stage(works.stage(unit_service, [&](task_ptr const&) { ADD_FAILURE(); }));
  ASSERT_EQ(seOk, scheduler->add_task(task, L"busy"));
  ASSERT_TRUE(entered.wait());
  scheduler.reset();
  EXPECT_TRUE(gone.is_open());
  EXPECT_TRUE(saw_cancel);
  EXPECT_EQ(1, recorder->count(event_t::completed, task));
  EXPECT_EQ(1, recorder->canceled(L""));
}

std::vector<std::string> g_reports;
void capture_report(char const* condition, char const*, unsigned, char const*) {
  g_reports.emplace_back(condition);
}

TEST(scheduler_teardown, DestroyingWithTasksAndNoWaitCallbackReportsAndStopsTheUnits) {
  works_t works;
  g_reports.clear();
  auto previous = quillon2::internal::set_assert_hook(&capture_report);
  {
    auto scheduler = create_default_scheduler(nullptr, nullptr, false);
    auto queue = boost::make_shared<queue_unit_t>();
    ASSERT_EQ(seOk, scheduler->add_unit(unit_main, queue));
    auto task = make_task();
    task->push_stage(works.stage(unit_main, [](task_ptr const&) { ADD_FAILURE(); }));
    ASSERT_EQ(seOk, scheduler->add_task(task, L""));
    scheduler.reset();
    EXPECT_FALSE(queue->has_tasks());  // terminated: the job is dropped, never run
  }
  quillon2::internal::set_assert_hook(previous);
  EXPECT_EQ((std::vector<std::string>{"err == seOk"}), g_reports);
}

TEST(scheduler_teardown, LastOwnerLettingGoInsideAStageDoesNotStopTheUnitUnderItself) {
  works_t works;
  latch_t release, gone;
  auto recorder = boost::make_shared<recorder_t>();
  auto scheduler =
      create_default_scheduler(recorder, boost::make_shared<releasing_wait_t>(release, gone));
  auto task = make_task();
  auto owner = boost::make_shared<boost::shared_ptr<scheduler_t>>(scheduler);
  latch_t dropped;
  task->push_stage(works.stage(unit_service, [owner, &dropped](task_ptr const&) {
    dropped.wait();
    owner->reset();  // the last reference goes on the unit's own worker
  }));
  ASSERT_EQ(seOk, scheduler->add_task(task, L""));
  scheduler.reset();
  dropped.count_down();
  EXPECT_TRUE(gone.wait());
  EXPECT_EQ(1, recorder->count(event_t::completed, task));
}

}  // namespace
}  // namespace q2sched
