// The scheduler core through its public interface: the road of a task, sequences,
// groups and their cancellation, waiting, observers and teardown.
#include <algorithm>
#include <string>
#include <thread>
#include <vector>

#include <quillon2/core/assert.hpp>

#include "support/assert_recorder.hpp"
#include "threading_support.hpp"

namespace q2thr {
namespace {

TEST_F(scheduler_test, TaskRoadThroughServiceEndsOnTheWorkerThatRanTheLastStage) {
  auto task = make_task();
  latch_t added;
  std::string order;  // written by one worker at a time: each stage follows the last
  std::thread::id last_stage;
  task->push_stage(works.stage(unit_service, [&](task_ptr const&) {
    added.wait();
    order += '1';
  }));
  task->push_stage(works.stage(unit_service, [&](task_ptr const&) { order += '2'; }));
  task->push_finalization_stage(works.stage(unit_service, [&](task_ptr const& t) {
    order += t == task ? 'f' : '?';
    last_stage = std::this_thread::get_id();
  }));
  ASSERT_EQ(seOk, scheduler->add_task(task, L"docs"));
  added.open();
  ASSERT_TRUE(recorder->wait(task));
  EXPECT_EQ("12f", order);
  EXPECT_EQ("ac", recorder->of(task));
  EXPECT_EQ(last_stage, recorder->events('c').at(0).thread);
  EXPECT_FALSE(scheduler->is_known_task(task));
}

TEST_F(scheduler_test, StagesRunOneAtATimeAndTheTablesFollowTheTask) {
  std::string ran;
  auto task = queued(L"g", {[&](task_ptr const& t) {
                              ran += '1';
                              // A stage may push more stages onto its own task.
                              boost::static_pointer_cast<default_task_t>(t)->push_stage(
                                  works.stage(unit_main, [&](task_ptr const&) { ran += '3'; }));
                            },
                            [&](task_ptr const&) { ran += '2'; }});
  std::wstring group;
  EXPECT_TRUE(scheduler->find_group(task, group));
  EXPECT_EQ(L"g", group);
  EXPECT_EQ(seAlreadyExists, scheduler->add_task(task, L"other"));
  EXPECT_EQ(seInvalidArgument, scheduler->add_task(nullptr, L"g"));
  EXPECT_EQ(seInvalidArgument, scheduler->add_task(task, nullptr, L"g"));
  main_queue->process_queue(1);
  EXPECT_EQ("1", ran);
  EXPECT_EQ("a", recorder->of(task));
  run_main();
  EXPECT_EQ("123", ran);
  EXPECT_EQ("ac", recorder->of(task));
  EXPECT_FALSE(scheduler->find_group(task, group));
  EXPECT_TRUE(scheduler->find_tasks(L"").empty());
}

// A unit that refuses everything, as a full queue does.
class refusing_unit_t : public unit_t {
 public:
  scheduler_error_t execute(task_ptr, stage_ptr) override { return seQueueFull; }
};

TEST_F(scheduler_test, StageRulesUnknownUnitsRefusalsAndFinalization) {
  std::string ran;
  auto note = [&ran](char c) { return [&ran, c](task_ptr const&) { ran += c; }; };

  auto empty = make_task();  // completes inside add_task, before it is announced
  EXPECT_EQ(seOk, scheduler->add_task(empty, L""));
  EXPECT_EQ("ca", recorder->of(empty));

  auto only_final = make_task();  // never started: its finalization never runs
  only_final->push_finalization_stage(works.stage(unit_main, note('X')));
  ASSERT_EQ(seOk, scheduler->add_task(only_final, L""));

  auto skipping = queued(L"", {note('a'), note('c')});  // "nowhere" is dropped silently
  auto through_nowhere = make_task();
  through_nowhere->push_stage(works.stage(L"nowhere", note('Y')));
  through_nowhere->push_stage(works.stage(unit_main, note('b')));
  ASSERT_EQ(seOk, scheduler->add_task(through_nowhere, L""));

  ASSERT_EQ(seOk, scheduler->add_unit(L"full", boost::make_shared<refusing_unit_t>()));
  auto refused = make_task();  // refused: reported, the rest skipped, finalization runs
  refused->push_stage(works.stage(L"full", note('Z')));
  refused->push_stage(works.stage(unit_main, note('Z')));
  refused->push_finalization_stage(works.stage(unit_main, note('f')));
  ASSERT_EQ(seOk, scheduler->add_task(refused, L""));
  EXPECT_EQ("ra", recorder->of(refused));
  EXPECT_EQ(seQueueFull, recorder->events('r').at(0).error);

  auto delayed = make_task();  // a delay is no start either
  delayed->push_stage(boost::make_shared<stage_t>(unit_delay_tasks, 1));
  delayed->push_finalization_stage(works.stage(unit_main, note('X')));
  ASSERT_EQ(seOk, scheduler->add_task(delayed, L""));
  ASSERT_TRUE(recorder->wait(delayed));

  run_main();
  EXPECT_EQ("abfc", ran);
  for (auto const& task : {only_final, skipping, through_nowhere, refused, delayed}) {
    std::string const kinds = recorder->of(task);
    EXPECT_EQ(1, std::count(kinds.begin(), kinds.end(), 'c'));
  }
}

TEST_F(scheduler_test, FollowersStartWhenTheirPredecessorCompletesUnlessCanceled) {
  std::string ran;
  auto prev = queued(L"p", {[&](task_ptr const&) { ran += 'p'; }});
  auto follower = make_task(), dropped = make_task();
  follower->push_stage(works.stage(unit_main, [&](task_ptr const&) { ran += 'f'; }));
  dropped->push_stage(works.stage(unit_main, [&](task_ptr const&) { ran += 'X'; }));
  ASSERT_EQ(seOk, scheduler->add_task(prev, follower, L"f"));
  ASSERT_EQ(seOk, scheduler->add_task(prev, dropped, L"d"));
  EXPECT_EQ(seAlreadyExists, scheduler->add_task(make_task(), follower, L"f"));

  // Waiting tasks are known but neither listed nor announced.
  std::wstring waiting = L"f";
  EXPECT_TRUE(scheduler->is_known_task(follower));
  EXPECT_TRUE(scheduler->is_known_group(waiting));
  EXPECT_TRUE(scheduler->find_tasks(L"f").empty());
  ASSERT_EQ(seOk, scheduler->cancel(L"d"));
  EXPECT_TRUE(dropped->is_canceled());
  EXPECT_EQ(0, recorder->canceled(L"d"));  // ends with the next completion

  main_queue->process_queue(1);
  EXPECT_EQ("a", recorder->of(follower));  // entered before prev's end was told
  EXPECT_EQ("ac", recorder->of(prev));
  EXPECT_EQ(1, recorder->canceled(L"d"));
  run_main();
  EXPECT_EQ("pf", ran);
  EXPECT_EQ("", recorder->of(dropped));
  EXPECT_FALSE(scheduler->is_known_task(dropped));
}

TEST(scheduler_groups, PatternsMatchTheGroupAndEverythingBelowIt) {
  EXPECT_TRUE(scheduler_impl_t::matches(L"", L"a/b"));
  EXPECT_TRUE(scheduler_impl_t::matches(L"a", L"a"));
  EXPECT_TRUE(scheduler_impl_t::matches(L"a", L"a/b/c"));
  EXPECT_FALSE(scheduler_impl_t::matches(L"a", L"ab"));
  EXPECT_FALSE(scheduler_impl_t::matches(L"a/b", L"a"));
  EXPECT_FALSE(scheduler_impl_t::matches(L"A", L"a"));
}

TEST_F(scheduler_test, CancelingAGroupCancelsEverythingAtOrBelowIt) {
  std::string ran;
  auto stage = [&ran](char c) {
    return [&ran, c](task_ptr const& t) { ran += t->is_canceled() ? '-' : c; };
  };
  auto a = queued(L"a", {stage('a'), stage('A')});
  auto ab = queued(L"a/b", {stage('b'), stage('B')});
  auto other = queued(L"ab", {stage('o'), stage('O')});
  EXPECT_EQ(2u, scheduler->find_tasks(L"a").size());
  ASSERT_EQ(seOk, scheduler->cancel(L"a"));
  EXPECT_FALSE(other->is_canceled());

  // While "a" is canceling nothing enters or cancels at or below it.
  std::wstring group = L"a/b";
  EXPECT_FALSE(scheduler->is_known_group(group));
  EXPECT_EQ(seGroupCanceling, scheduler->add_task(make_task(), L"a/b/c"));
  EXPECT_EQ(seGroupCanceling, scheduler->add_task(other, make_task(), L"a"));
  EXPECT_EQ(seGroupCanceling, scheduler->cancel(L"a/b"));
  EXPECT_EQ(seGroupCanceling, scheduler->cancel_and_wait(L"a", nullptr));

  // The queued stages still run, and see the flag; nothing after them does.
  run_main();
  EXPECT_EQ("--oO", ran);
  EXPECT_EQ(1, recorder->canceled(L"a"));
  std::string told;  // the end is told after the last task's end
  for (auto const& e : recorder->events()) {
    if (e.kind == 'c') told += e.task == a ? 'a' : e.task == ab ? 'b' : 'o';
    if (e.kind == 'g') told += 'g';
  }
  EXPECT_EQ("abgo", told);
  EXPECT_EQ(seOk, scheduler->add_task(make_task(), L"a/b"));
}

TEST_F(scheduler_test, NarrowAndWideCancellationsEndEachInTurn) {
  auto ab = queued(L"a/b"), a = queued(L"a");
  ASSERT_EQ(seOk, scheduler->cancel(L"a/b"));
  ASSERT_EQ(seOk, scheduler->cancel(L"a"));  // wider than a running one: accepted
  main_queue->process_queue(1);
  EXPECT_EQ(1, recorder->canceled(L"a/b"));
  EXPECT_EQ(0, recorder->canceled(L"a"));
  run_main();
  EXPECT_EQ(1, recorder->canceled(L"a"));

  EXPECT_EQ(seOk, scheduler->cancel(L"no/tasks"));  // nothing to cancel: ends at once
  EXPECT_EQ(1, recorder->canceled(L"no/tasks"));

  queued(L"x");
  ASSERT_EQ(seOk, scheduler->cancel(L""));  // the empty pattern holds every group
  EXPECT_EQ(seGroupCanceling, scheduler->add_task(make_task(), L"anything"));
  run_main();
  EXPECT_EQ(1, recorder->canceled(L""));
  EXPECT_EQ(seOk, scheduler->add_task(make_task(), L"anything"));
}

TEST_F(scheduler_test, CanceledTaskStopsAtTheNextStageBoundaryAndFinalizes) {
  std::string ran;
  auto task = queued(L"g", {[&](task_ptr const& t) { ran += t->is_canceled() ? '-' : '1'; },
                            [&](task_ptr const&) { ran += '2'; }});
  task->push_finalization_stage(works.stage(unit_main, [&](task_ptr const&) { ran += 'f'; }));
  task->cancel();
  run_main();
  EXPECT_EQ("-f", ran);

  // A canceled task leaves a long wait at once.
  auto waiting = make_task();
  waiting->push_stage(boost::make_shared<stage_t>(unit_delay_tasks, 3600 * 1000));
  waiting->push_stage(works.stage(unit_main, [&](task_ptr const&) { ran += 'X'; }));
  ASSERT_EQ(seOk, scheduler->add_task(waiting, L"slow"));
  ASSERT_EQ(seOk, scheduler->cancel(L"slow"));
  ASSERT_TRUE(recorder->wait('g'));
  EXPECT_EQ("ac", recorder->of(waiting));
  EXPECT_FALSE(main_queue->has_tasks());
}

TEST_F(scheduler_test, CancellationRacingWithCompletionEndsEachTaskAndGroupOnce) {
  constexpr int rounds = 200;
  std::vector<task_ptr> tasks;
  for (int i = 0; i < rounds; ++i) {
    auto task = make_task();
    task->push_stage(works.stage(unit_service));
    task->push_stage(works.stage(unit_service));
    std::wstring const group = L"race/" + std::to_wstring(i);
    ASSERT_EQ(seOk, scheduler->add_task(task, group));
    ASSERT_EQ(seOk, scheduler->cancel(group));
    tasks.push_back(task);
  }
  ASSERT_TRUE(recorder->wait('g', rounds));
  ASSERT_TRUE(recorder->wait('c', rounds));
  for (int i = 0; i < rounds; ++i) {
    EXPECT_EQ(1, recorder->canceled(L"race/" + std::to_wstring(i)));
    std::string kinds = recorder->of(tasks[i]);
    std::sort(kinds.begin(), kinds.end());
    EXPECT_EQ("ac", kinds);
  }
}

// Tells the test that waiting has begun, then waits as the default callback does.
class announcing_wait_t : public scheduler_wait_callback_t {
 public:
  explicit announcing_wait_t(latch_t& waiting) : m_waiting(waiting) {}
  void wait(boost::weak_ptr<scheduler_operation_status_t> status) override {
    m_first_answer = status.lock()->is_finished();
    m_waiting.open();
    default_scheduler_wait_callback_t().wait(status);
  }
  bool m_first_answer = true;

 private:
  latch_t& m_waiting;
};

TEST_F(scheduler_test, CancelAndWaitFromAPlainThreadReturnsWhenTheGroupHasEnded) {
  latch_t waiting, entered;
  bool saw_cancel = false;
  auto task = make_task();
  task->push_stage(works.stage(unit_service, [&](task_ptr const& t) {
    entered.open();
    waiting.wait();
    saw_cancel = t->is_canceled();
  }));
  ASSERT_EQ(seOk, scheduler->add_task(task, L"job/1"));
  ASSERT_TRUE(entered.wait());
  auto wait = boost::make_shared<announcing_wait_t>(waiting);
  scheduler_error_t result = seInvalidArgument;
  std::thread([&] { result = scheduler->cancel_and_wait(L"job", wait); }).join();
  EXPECT_EQ(seOk, result);
  EXPECT_FALSE(wait->m_first_answer);
  EXPECT_TRUE(saw_cancel);
  EXPECT_EQ("ac", recorder->of(task));
  EXPECT_EQ(1, recorder->canceled(L"job"));

  auto without = create_default_scheduler(nullptr, nullptr, true);
  EXPECT_EQ(seNoWaitCallback, without->cancel_and_wait(L"", nullptr));
}

// Adds a task from inside the completion of another one, then removes itself.
class chaining_observer_t : public scheduler_status_callback_t {
 public:
  void task_completed(task_ptr task) override {
    if (task != first) return;
    added = scheduler->add_task(next, L"chained");
    removed = scheduler->remove_status_callback(self.lock());
    done.open();
  }
  scheduler_t* scheduler;
  boost::shared_ptr<default_task_t> first, next;
  boost::weak_ptr<chaining_observer_t> self;
  scheduler_error_t added = seInvalidArgument, removed = seInvalidArgument;
  latch_t done;
};

TEST_F(scheduler_test, UnitsAndObserversRegisterOnceAndObserversMayCallBack) {
  auto gui = boost::make_shared<queue_unit_t>();
  EXPECT_EQ(seOk, scheduler->add_unit(L"gui", gui));
  EXPECT_EQ(seAlreadyExists, scheduler->add_unit(L"gui", boost::make_shared<queue_unit_t>()));
  EXPECT_EQ(seInvalidArgument, scheduler->add_unit(L"", gui));
  EXPECT_EQ(seInvalidArgument, scheduler->add_unit(L"other", nullptr));
  EXPECT_EQ(seAlreadyExists, scheduler->add_status_callback(recorder));
  EXPECT_EQ(seNotFound, scheduler->remove_status_callback(boost::make_shared<recorder_t>()));

  auto observer = boost::make_shared<chaining_observer_t>();
  observer->scheduler = scheduler.get();
  observer->self = observer;
  observer->first = make_task();
  observer->next = make_task();
  observer->first->push_stage(works.stage(unit_service));
  observer->next->push_stage(works.stage(L"gui"));
  ASSERT_EQ(seOk, scheduler->add_status_callback(observer));
  ASSERT_EQ(seOk, scheduler->add_task(observer->first, L""));
  ASSERT_TRUE(observer->done.wait());
  EXPECT_EQ(seOk, observer->added);
  EXPECT_EQ(seOk, observer->removed);
  gui->process_queue(0);  // the first registration of "gui" got the stage
  EXPECT_EQ("ac", recorder->of(observer->next));
}

// Lets a blocked stage go when the scheduler starts waiting, and tells when it dies.
class releasing_wait_t : public scheduler_wait_callback_t {
 public:
  releasing_wait_t(latch_t& release, latch_t& gone) : m_release(release), m_gone(gone) {}
  ~releasing_wait_t() override { m_gone.open(); }
  void wait(boost::weak_ptr<scheduler_operation_status_t> status) override {
    m_release.open();
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
    entered.open();
    release.wait();
    saw_cancel = t->is_canceled();
  }));
  task->push_stage(works.stage(unit_service, [&](task_ptr const&) { ADD_FAILURE(); }));
  ASSERT_EQ(seOk, scheduler->add_task(task, L"busy"));
  ASSERT_TRUE(entered.wait());
  scheduler.reset();
  EXPECT_TRUE(saw_cancel);
  EXPECT_EQ("ac", recorder->of(task));
  EXPECT_EQ(1, recorder->canceled(L""));
}

TEST(scheduler_teardown, DestroyingWithTasksAndNoWaitCallbackReportsAndStopsTheUnits) {
  works_t works;
  q2test::assert_recorder_t asserts;
  auto scheduler = create_default_scheduler(nullptr, nullptr, false);
  auto queue = boost::make_shared<queue_unit_t>();
  ASSERT_EQ(seOk, scheduler->add_unit(unit_main, queue));
  auto task = make_task();
  task->push_stage(works.stage(unit_main, [](task_ptr const&) { ADD_FAILURE(); }));
  ASSERT_EQ(seOk, scheduler->add_task(task, L""));
  scheduler.reset();
  EXPECT_FALSE(queue->has_tasks());  // terminated: the job is dropped, never run
  EXPECT_EQ((std::vector<std::string>{"err == seOk"}), asserts.conditions());
}

TEST(scheduler_teardown, LastOwnerLettingGoInsideAStageDoesNotStopTheUnitUnderItself) {
  works_t works;
  latch_t release, gone, dropped;
  auto recorder = boost::make_shared<recorder_t>();
  auto scheduler =
      create_default_scheduler(recorder, boost::make_shared<releasing_wait_t>(release, gone));
  auto owner = boost::make_shared<boost::shared_ptr<scheduler_t>>(scheduler);
  auto task = make_task();
  task->push_stage(works.stage(unit_service, [owner, &dropped](task_ptr const&) {
    dropped.wait();
    owner->reset();  // the last reference goes on the unit's own worker
  }));
  ASSERT_EQ(seOk, scheduler->add_task(task, L""));
  scheduler.reset();
  dropped.open();
  EXPECT_TRUE(gone.wait());
  EXPECT_EQ("ac", recorder->of(task));
}

}  // namespace
}  // namespace q2thr
