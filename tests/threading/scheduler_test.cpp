// The scheduler core through its public interface: the road of a task, sequences,
// groups and their cancellation, waiting, observers and teardown.
#include "support/assert_recorder.hpp"
#include "threading_support.hpp"

namespace q2thr {

TEST_F(scheduler_test, TaskRoadThroughServiceEndsOnTheWorkerThatRanTheLastStage) {
  latch_t added;
  std::thread::id last_stage;
  auto task = task_of({works.stage(unit_service, [&](task_ptr const&) { added.wait(); }),
                       note('1', unit_service), note('2', unit_service)},
                      works.stage(unit_service, [&](task_ptr const&) {
                        ran += 'f';
                        last_stage = std::this_thread::get_id();
                      }));
  ASSERT_EQ(seOk, scheduler->add_task(task, L"docs"));
  added.open();
  ASSERT_TRUE(recorder->wait(task));
  EXPECT_EQ("12f", ran);  // one stage at a time, each on whichever worker is free
  EXPECT_EQ(last_stage, recorder->events('c').at(0).thread);
}

TEST_F(scheduler_test, StagesRunOneAtATimeAndTheTablesFollowTheTask) {
  auto task =
      task_of({works.stage(unit_main,
                           [&](task_ptr const& t) {
                             ran += '1';  // a stage may push stages onto its own task
                             boost::static_pointer_cast<default_task_t>(t)->push_stage(note('3'));
                           }),
               note('2')});
  EXPECT_EQ(seOk, task->push_stage(nullptr));  // ignored: it would read as the end
  ASSERT_EQ(seOk, scheduler->add_task(task, L"g"));
  std::wstring group;
  EXPECT_TRUE(scheduler->find_group(task, group));
  EXPECT_EQ(L"g", group);
  EXPECT_EQ(seAlreadyExists, scheduler->add_task(task, L"other"));
  EXPECT_EQ(seInvalidArgument, scheduler->add_task(nullptr, L"g"));
  main_queue->process_queue(1);
  EXPECT_EQ("1", ran);
  EXPECT_EQ("a", recorder->of(task));
  run_main();
  EXPECT_EQ("123", ran);
  EXPECT_EQ("ac", recorder->of(task));
  EXPECT_FALSE(scheduler->find_group(task, group));
}

// A unit that refuses everything, as a full queue does.
struct refusing_unit_t : unit_t {
  scheduler_error_t execute(task_ptr, stage_ptr) override { return seQueueFull; }
};

TEST_F(scheduler_test, StageRulesUnknownUnitsRefusalsAndFinalization) {
  auto empty = make_task();  // completes inside add_task, before it is announced
  EXPECT_EQ(seOk, scheduler->add_task(empty, L""));
  EXPECT_EQ("ca", recorder->of(empty));
  ASSERT_EQ(seOk, scheduler->add_unit(L"full", boost::make_shared<refusing_unit_t>()));
  std::vector<task_ptr> const tasks{
      task_of({}, note('X')),  // never started: its finalization never runs
      task_of({note('a'), note('c')}),
      task_of({note('Y', L"nowhere"), note('b')}),          // an unknown unit is passed over
      task_of({note('Z', L"full"), note('Z')}, note('f')),  // refused: the rest skipped
      task_of({boost::make_shared<stage_t>(unit_delay_tasks, 1)}, note('X'))};  // no start
  for (auto const& task : tasks) ASSERT_EQ(seOk, scheduler->add_task(task, L""));
  EXPECT_EQ("ra", recorder->of(tasks[3]));
  EXPECT_EQ(seQueueFull, recorder->events('r').at(0).error);
  ASSERT_TRUE(recorder->wait(tasks[4]));
  run_main();
  EXPECT_EQ("abfc", ran);
  for (auto const& task : tasks) EXPECT_EQ(1u, recorder->count('c', task));
}

TEST_F(scheduler_test, FollowersStartWhenTheirPredecessorCompletesUnlessCanceled) {
  auto prev = queued(L"p", "p");
  auto follower = task_of({note('f')}), dropped = task_of({note('X')});
  ASSERT_EQ(seOk, scheduler->add_task(prev, follower, L"f"));
  ASSERT_EQ(seOk, scheduler->add_task(prev, dropped, L"d"));
  EXPECT_EQ(seAlreadyExists, scheduler->add_task(make_task(), follower, L"f"));

  // Waiting tasks are known but neither listed nor announced.
  EXPECT_TRUE(scheduler->is_known_task(follower));
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
}

TEST_F(scheduler_test, CancelingAGroupCancelsEverythingAtOrBelowIt) {
  auto a = queued(L"a", "aA"), ab = queued(L"a/b", "bB"), other = queued(L"ab", "oO");
  EXPECT_EQ(2u, scheduler->find_tasks(L"a").size());
  ASSERT_EQ(seOk, scheduler->cancel(L"a"));

  // While "a" is canceling nothing enters or cancels at or below it.
  EXPECT_EQ(seGroupCanceling, scheduler->add_task(make_task(), L"a/b/c"));
  EXPECT_EQ(seGroupCanceling, scheduler->add_task(other, make_task(), L"a"));
  EXPECT_EQ(seGroupCanceling, scheduler->cancel(L"a/b"));
  EXPECT_EQ(seGroupCanceling, scheduler->cancel_and_wait(L"a", nullptr));

  // The queued stages still run, and see the flag; nothing after them does.
  run_main();
  EXPECT_EQ("--oO", ran);
  std::string told;  // the end is told after the last task's end
  for (auto const& e : recorder->events()) {
    if (e.kind == 'c') told += e.task == a ? 'a' : e.task == ab ? 'b' : 'o';
    if (e.kind == 'g') told += 'g';
  }
  EXPECT_EQ("abgo", told);
  EXPECT_EQ(seOk, scheduler->add_task(make_task(), L"a/b"));
  EXPECT_EQ(seOk, scheduler->cancel(L"no/tasks"));  // nothing to cancel: ends at once
  EXPECT_EQ(1, recorder->canceled(L"no/tasks"));
}

// Thousands of tasks in the tables at once, in more groups than the tables keep idle,
// ending in two waves with a cancel between them: every query sees exactly the tasks
// that have not ended, each with its own group, while the tables grow and shrink.
TEST_F(scheduler_test, TheTablesFollowThousandsOfTasksThroughGrowthAndShrinking) {
  for (int round = 0; round < 2; ++round) {
    std::vector<boost::shared_ptr<default_task_t>> tasks;
    auto group_of = [](std::size_t i) { return L"g/" + std::to_wstring(i % 41); };
    for (std::size_t i = 0; i < 3000; ++i) tasks.push_back(queued(group_of(i)));
    EXPECT_EQ(seAlreadyExists, scheduler->add_task(tasks[1234], L"g/0"));
    std::size_t const first_wave = round == 0 ? 1700 : 2990;
    for (std::size_t i = 0; i < first_wave; ++i) main_queue->process_queue(1);

    std::size_t mismatches = 0;
    for (std::size_t i = 0; i < tasks.size(); ++i) {
      std::wstring group;
      bool const known = scheduler->find_group(tasks[i], group);
      mismatches += known != (i >= first_wave) || (known && group != group_of(i)) ||
                    scheduler->is_known_task(tasks[i]) != known;
    }
    EXPECT_EQ(0u, mismatches);
    std::size_t in_g7 = 0;
    for (std::size_t i = first_wave; i < tasks.size(); ++i) in_g7 += i % 41 == 7;
    EXPECT_EQ(in_g7, scheduler->find_tasks(L"g/7").size());
    EXPECT_EQ(tasks.size() - first_wave, scheduler->find_tasks(L"g").size());

    ASSERT_EQ(seOk, scheduler->cancel(L"g/7"));
    run_main();
    std::wstring everything;
    EXPECT_FALSE(scheduler->is_known_group(everything));
    EXPECT_EQ(0u, scheduler->find_tasks(L"").size());
    EXPECT_EQ(1, recorder->canceled(L"g/7") - round);
    ran.clear();
  }
}

TEST_F(scheduler_test, ACanceledTaskLeavesALongWaitAtOnce) {
  auto slow = task_of({boost::make_shared<stage_t>(unit_delay_tasks, 3600 * 1000), note('X')});
  ASSERT_EQ(seOk, scheduler->add_task(slow, L"slow"));
  ASSERT_EQ(seOk, scheduler->cancel(L"slow"));
  ASSERT_TRUE(recorder->wait('g'));
  EXPECT_EQ("ac", recorder->of(slow));
  EXPECT_FALSE(main_queue->has_tasks());
}

TEST_F(scheduler_test, CancellationRacingWithCompletionEndsEachTaskAndGroupOnce) {
  constexpr int rounds = 200;
  std::vector<task_ptr> tasks;
  for (int i = 0; i < rounds; ++i) {
    tasks.push_back(task_of({works.stage(unit_service), works.stage(unit_service)}));
    ASSERT_EQ(seOk, scheduler->add_task(tasks.back(), L"race/" + std::to_wstring(i)));
    ASSERT_EQ(seOk, scheduler->cancel(L"race/" + std::to_wstring(i)));
  }
  ASSERT_TRUE(recorder->wait('g', rounds));
  ASSERT_TRUE(recorder->wait('c', rounds));
  for (int i = 0; i < rounds; ++i) {
    EXPECT_EQ(1, recorder->canceled(L"race/" + std::to_wstring(i)));
    EXPECT_EQ(1u, recorder->count('a', tasks[i]));
    EXPECT_EQ(1u, recorder->count('c', tasks[i]));
  }
}

TEST_F(scheduler_test, CancelAndWaitAndTheTeardownReturnOnceTheRunningStagesHaveEnded) {
  latch_t entered(2), begun, unused;
  bool job_saw_cancel = false, busy_saw_cancel = false;
  auto const blocked = [&](latch_t* until, bool* saw_cancel) {
    return works.stage(unit_service, [&entered, until, saw_cancel](task_ptr const& t) {
      entered.open();
      until->wait();
      *saw_cancel = t->is_canceled();
    });
  };
  auto job = task_of({blocked(&begun, &job_saw_cancel)});
  auto busy = task_of({blocked(&waiting, &busy_saw_cancel), note('X', unit_service)});
  ASSERT_EQ(seOk, scheduler->add_task(job, L"job/1"));
  ASSERT_EQ(seOk, scheduler->add_task(busy, L"busy"));
  ASSERT_TRUE(entered.wait());
  auto wait = boost::make_shared<test_wait_t>(begun, unused);
  scheduler_error_t result = seInvalidArgument;
  std::thread([&] { result = scheduler->cancel_and_wait(L"job", wait); }).join();
  EXPECT_EQ(seOk, result);
  EXPECT_FALSE(wait->first_answer);
  EXPECT_TRUE(job_saw_cancel);
  EXPECT_EQ("ac", recorder->of(job));
  EXPECT_EQ(1, recorder->canceled(L"job"));
  scheduler.reset();  // its wait opens `waiting`
  EXPECT_TRUE(busy_saw_cancel);
  EXPECT_EQ("", ran);
  EXPECT_EQ("ac", recorder->of(busy));
  EXPECT_EQ(1, recorder->canceled(L""));
  auto without = create_default_scheduler(nullptr, nullptr, true);
  EXPECT_EQ(seNoWaitCallback, without->cancel_and_wait(L"", nullptr));
}

TEST_F(scheduler_test, UnitsAndObserversRegisterOnceAndObserversMayCallBack) {
  auto gui = boost::make_shared<queue_unit_t>();
  EXPECT_EQ(seOk, scheduler->add_unit(L"gui", gui));
  EXPECT_EQ(seAlreadyExists, scheduler->add_unit(L"gui", boost::make_shared<queue_unit_t>()));
  EXPECT_EQ(seAlreadyExists, scheduler->add_status_callback(recorder));
  auto chaining = boost::make_shared<recorder_t>();
  EXPECT_EQ(seNotFound, scheduler->remove_status_callback(chaining));
  auto first = task_of({works.stage(unit_service)}), next = task_of({works.stage(L"gui")});
  scheduler_error_t added = seInvalidArgument, removed = seInvalidArgument;
  latch_t done;
  // Adds a task from inside the completion of another one, then removes itself.
  chaining->then_on = 'c';
  chaining->then = [&](task_ptr task) {
    if (task != first) return;
    added = scheduler->add_task(next, L"chained");
    removed = scheduler->remove_status_callback(chaining);
    done.open();
  };
  ASSERT_EQ(seOk, scheduler->add_status_callback(chaining));
  ASSERT_EQ(seOk, scheduler->add_task(first, L""));
  ASSERT_TRUE(done.wait());
  EXPECT_EQ(seOk, added);
  EXPECT_EQ(seOk, removed);
  gui->process_queue(0);  // the first registration of "gui" got the stage
  EXPECT_EQ("ac", recorder->of(next));
}

TEST(scheduler_teardown, DestroyingWithTasksAndNoWaitCallbackReportsAndStopsTheUnits) {
  works_t works;  // outlives the scheduler
  q2test::assert_recorder_t asserts;
  auto scheduler = create_default_scheduler(nullptr, nullptr, false);
  auto queue = boost::make_shared<queue_unit_t>();
  ASSERT_EQ(seOk, scheduler->add_unit(unit_main, queue));
  auto task = task_of({works.stage(unit_main, [](task_ptr const&) { ADD_FAILURE(); })});
  ASSERT_EQ(seOk, scheduler->add_task(task, L""));
  scheduler.reset();
  EXPECT_FALSE(queue->has_tasks());  // terminated: the job is dropped, never run
  EXPECT_EQ((std::vector<std::string>{"err == seOk"}), asserts.conditions());
}

TEST_F(scheduler_test, LastOwnerLettingGoInsideAStageDoesNotStopTheUnitUnderItself) {
  latch_t dropped;
  auto owner = boost::make_shared<boost::shared_ptr<scheduler_t>>(scheduler);
  auto task = task_of({works.stage(unit_service, [owner, &dropped](task_ptr const&) {
    dropped.wait();
    owner->reset();  // the last reference goes on the unit's own worker
  })});
  ASSERT_EQ(seOk, scheduler->add_task(task, L""));
  scheduler.reset();
  dropped.open();
  EXPECT_TRUE(gone.wait());
  EXPECT_EQ("ac", recorder->of(task));
}

}  // namespace q2thr
