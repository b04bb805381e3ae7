#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>
#include <quillon2/core/threading/units/queue_unit.hpp>

#include "unit_test_support.hpp"

namespace {

namespace qt = quillon2::threading;
using namespace q2test;

class queued_listener_t : public quillon2::_internal::subscriber_base_t {
 public:
  void on_queued(task_ptr task, stage_ptr stage) {
    tasks.push_back(task);
    stages.push_back(stage);
    threads.push_back(std::this_thread::get_id());
  }
  std::vector<task_ptr> tasks;
  std::vector<stage_ptr> stages;
  std::vector<std::thread::id> threads;
};

class QueueUnit : public ::testing::Test {
 protected:
  QueueUnit() { scheduler.attach(unit); }

  // A job that appends its task's name to `ran`.
  stage_ptr recording_stage() { return make_stage(L"main", recorder); }

  qt::queue_unit_t unit;
  test_scheduler_t scheduler;
  std::vector<std::string> ran;
  work_t recorder{[this](task_ptr task) { ran.push_back(task->get_display_name()); }};
};

}  // namespace

TEST_F(QueueUnit, AnnouncesEachJobOnTheCallersThreadAndRunsItOnTheDrainingThread) {
  queued_listener_t listener;
  unit.task_queued.connect(&listener, &queued_listener_t::on_queued);
  auto task = make_task("first");
  auto stage = recording_stage();
  EXPECT_EQ(qt::seOk, unit.execute(task, stage));
  ASSERT_EQ(1u, listener.tasks.size());
  EXPECT_EQ(task, listener.tasks[0]);
  EXPECT_EQ(stage, listener.stages[0]);
  EXPECT_EQ(std::this_thread::get_id(), listener.threads[0]);
  EXPECT_TRUE(ran.empty());  // nothing runs until the application drains
  EXPECT_TRUE(unit.has_tasks());

  std::thread drain([&] { unit.process_queue(0); });
  std::thread::id const drainer = drain.get_id();
  drain.join();
  EXPECT_EQ((std::vector<std::string>{"first"}), ran);
  ASSERT_EQ(1u, scheduler.completion_count());
  EXPECT_EQ(task, scheduler.completions()[0].task);
  EXPECT_EQ(drainer, scheduler.completions()[0].thread);
  EXPECT_FALSE(unit.has_tasks());
}

TEST_F(QueueUnit, RunsWhatWasQueuedAtTheCallInOrderAndNothingQueuedMeanwhile) {
  for (std::string name : {"a", "b", "c"}) unit.execute(make_task(name), recording_stage());
  // The first job queues another one; it waits for the next call.
  work_t requeue([&](task_ptr) { unit.execute(make_task("late"), recording_stage()); });
  unit.execute(make_task("requeue"), make_stage(L"main", requeue));

  unit.process_queue(-1);
  EXPECT_EQ((std::vector<std::string>{"a", "b", "c"}), ran);
  EXPECT_TRUE(unit.has_tasks());
  unit.process_queue(0);
  EXPECT_EQ((std::vector<std::string>{"a", "b", "c", "late"}), ran);
  EXPECT_FALSE(unit.has_tasks());
  EXPECT_EQ(5u, scheduler.completion_count());
}

TEST_F(QueueUnit, RunsAtMostTheCountGiven) {
  for (std::string name : {"a", "b", "c"}) unit.execute(make_task(name), recording_stage());
  unit.process_queue(1);
  EXPECT_EQ((std::vector<std::string>{"a"}), ran);
  EXPECT_TRUE(unit.has_tasks());
  unit.process_queue(2);
  EXPECT_EQ((std::vector<std::string>{"a", "b", "c"}), ran);
  EXPECT_FALSE(unit.has_tasks());
  unit.process_queue(5);  // an empty queue is fine
}

TEST_F(QueueUnit, HoldsAtMost100001WaitingJobs) {
  auto task = make_task("t");
  auto stage = recording_stage();
  for (std::size_t i = 0; i < 100001; ++i) ASSERT_EQ(qt::seOk, unit.execute(task, stage));
  EXPECT_EQ(qt::seQueueFull, unit.execute(task, stage));
  unit.process_queue(1);
  EXPECT_EQ(qt::seOk, unit.execute(task, stage));
  EXPECT_EQ(qt::seQueueFull, unit.execute(task, stage));
}

TEST_F(QueueUnit, TerminateDropsQueuedJobsAndTheUnitStillAcceptsNewOnes) {
  auto task = make_task("dropped");
  unit.execute(task, recording_stage());
  unit.execute(task, recording_stage());
  unit.terminate();
  EXPECT_FALSE(unit.has_tasks());
  unit.process_queue(0);
  EXPECT_TRUE(ran.empty());
  EXPECT_EQ(1, task.use_count());  // the unit let go of the jobs

  EXPECT_EQ(qt::seOk, unit.execute(make_task("after"), recording_stage()));
  unit.process_queue(0);
  EXPECT_EQ((std::vector<std::string>{"after"}), ran);
}

TEST_F(QueueUnit, RefusesNullJobs) {
  EXPECT_EQ(qt::seInvalidArgument, unit.execute(nullptr, recording_stage()));
  EXPECT_EQ(qt::seInvalidArgument, unit.execute(make_task(), nullptr));
  EXPECT_FALSE(unit.has_tasks());
}

TEST_F(QueueUnit, AThrowingStageIsReportedAndTheJobsNotRunStayQueued) {
  auto observer = boost::make_shared<counting_callback_t>();
  unit.set_status_callbacks(callbacks_of(observer));
  work_t thrower([](task_ptr) { throw std::runtime_error("broken stage"); });
  unit.execute(make_task("a"), recording_stage());
  unit.execute(make_task("bad"), make_stage(L"main", thrower));
  unit.execute(make_task("c"), recording_stage());

  EXPECT_THROW(unit.process_queue(0), std::runtime_error);
  EXPECT_EQ((std::vector<std::string>{"a"}), ran);
  EXPECT_EQ(1, observer->exceptions.load());
  EXPECT_EQ(std::this_thread::get_id(), observer->exception_threads().at(0));
  EXPECT_EQ(1u, scheduler.completion_count());  // the failed stage did not complete

  unit.process_queue(0);
  EXPECT_EQ((std::vector<std::string>{"a", "c"}), ran);
}

TEST_F(QueueUnit, SeveralDrainingThreadsRunEachJobOnce) {
  std::atomic<int> runs{0};
  work_t counter([&](task_ptr) { ++runs; });
  auto task = make_task();
  auto stage = make_stage(L"main", counter);
  for (int i = 0; i < 3000; ++i) unit.execute(task, stage);
  std::vector<std::thread> drainers;
  for (int t = 0; t < 3; ++t) {
    drainers.emplace_back([&] {
      while (unit.has_tasks()) unit.process_queue(7);
    });
  }
  for (auto& d : drainers) d.join();
  EXPECT_EQ(3000, runs.load());
  EXPECT_EQ(3000u, scheduler.completion_count());
}
