#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include <quillon2/core/threading/units/queue_unit.hpp>

#include "unit_test_support.hpp"

namespace {

using namespace q2test;

struct QueueUnit : ::testing::Test, rig_t<qt::queue_unit_t> {
  void queue(std::string const& name) {
    unit.execute(make_task(name), make_stage(L"main", recorder));
  }

  std::vector<std::string> ran;
  work_t recorder{[this](task_ptr task) { ran.push_back(task->get_display_name()); }};
};

struct queued_listener_t : quillon2::_internal::subscriber_base_t {
  void on_queued(task_ptr task, stage_ptr stage) {
    seen.push_back({task, stage, std::this_thread::get_id()});
  }
  struct entry_t {
    task_ptr task;
    stage_ptr stage;
    std::thread::id thread;
  };
  std::vector<entry_t> seen;
};

}  // namespace

TEST_F(QueueUnit, AnnouncesJobsOnTheCallersThreadAndRunsThemOnTheDrainingThread) {
  queued_listener_t listener;
  unit.task_queued.connect(&listener, &queued_listener_t::on_queued);
  auto task = make_task("first");
  auto stage = make_stage(L"main", recorder);
  EXPECT_EQ(qt::seOk, unit.execute(task, stage));
  ASSERT_EQ(1u, listener.seen.size());
  EXPECT_EQ(task, listener.seen[0].task);
  EXPECT_EQ(stage, listener.seen[0].stage);
  EXPECT_EQ(std::this_thread::get_id(), listener.seen[0].thread);
  EXPECT_TRUE(ran.empty() && unit.has_tasks());

  std::thread drainer([&] { unit.process_queue(0); });
  std::thread::id const drainer_id = drainer.get_id();
  drainer.join();
  EXPECT_EQ((std::vector<std::string>{"first"}), ran);
  ASSERT_EQ(1u, scheduler.completion_count());
  EXPECT_EQ(task, scheduler.completions()[0].task);
  EXPECT_EQ(drainer_id, scheduler.completions()[0].thread);
  EXPECT_FALSE(unit.has_tasks());
}

TEST_F(QueueUnit, RunsWhatWasQueuedAtTheCallAndAtMostTheCountGiven) {
  for (std::string name : {"a", "b", "c"}) queue(name);
  work_t requeue([&](task_ptr) { queue("late"); });  // waits for the next call
  unit.execute(make_task(), make_stage(L"main", requeue));
  unit.process_queue(1);
  EXPECT_EQ((std::vector<std::string>{"a"}), ran);
  unit.process_queue(-1);
  EXPECT_EQ((std::vector<std::string>{"a", "b", "c"}), ran);
  EXPECT_TRUE(unit.has_tasks());
  unit.process_queue(0);
  EXPECT_EQ((std::vector<std::string>{"a", "b", "c", "late"}), ran);
  EXPECT_EQ(5u, scheduler.completion_count());
}

TEST_F(QueueUnit, HoldsAtMost100001JobsAndTerminateDropsThem) {
  auto task = make_task();
  auto stage = make_stage(L"main", recorder);
  for (std::size_t i = 0; i < 100001; ++i) ASSERT_EQ(qt::seOk, unit.execute(task, stage));
  EXPECT_EQ(qt::seQueueFull, unit.execute(task, stage));
  EXPECT_EQ(qt::seInvalidArgument, unit.execute(nullptr, stage));
  unit.terminate();
  EXPECT_FALSE(unit.has_tasks());
  EXPECT_EQ(1, task.use_count());  // nothing of the jobs is kept
  queue("after");                  // still accepts
  unit.process_queue(0);
  EXPECT_EQ((std::vector<std::string>{"after"}), ran);
}

TEST_F(QueueUnit, AThrowingStageIsReportedAndTheJobsNotRunAreDropped) {
  work_t thrower([](task_ptr) { throw std::runtime_error("broken stage"); });
  queue("a");
  unit.execute(make_task("bad"), make_stage(L"main", thrower));
  queue("c");
  EXPECT_THROW(unit.process_queue(0), std::runtime_error);
  EXPECT_EQ((std::vector<std::string>{"a"}), ran);
  EXPECT_EQ(1, observer->exceptions.load());
  EXPECT_EQ(std::this_thread::get_id(), observer->exception_thread.load());
  EXPECT_EQ(1u, scheduler.completion_count());  // the failed stage does not complete
  EXPECT_FALSE(unit.has_tasks());
  unit.process_queue(0);
  EXPECT_EQ((std::vector<std::string>{"a"}), ran);
}
