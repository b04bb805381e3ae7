#include <pthread.h>

#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include <boost/make_shared.hpp>
#include <gtest/gtest.h>

#include <quillon2/core/threading/scheduler.hpp>
#include <quillon2/core/threading/thread_name.hpp>

#include "unit_test_support.hpp"

namespace {

using namespace q2test;

class my_task_t : public qt::default_task_t {};

std::string kernel_thread_name() {
  char name[32] = {};
  pthread_getname_np(pthread_self(), name, sizeof name);
  return name;
}

}  // namespace

TEST(DefaultTask, QueuesComeOutInPushOrderAndEmptyGivesNull) {
  qt::default_task_t task;
  EXPECT_EQ(nullptr, task.pop_stage());
  auto s1 = boost::make_shared<qt::stage_t>(L"a", 1), s2 = boost::make_shared<qt::stage_t>(L"b", 2);
  auto f1 = boost::make_shared<qt::stage_t>(L"c", 3);
  task.push_stage(s1);
  EXPECT_EQ(qt::seOk, task.push_stage(nullptr));  // ignored: it would read as the end
  task.push_stage(s2);
  EXPECT_EQ(qt::seOk, task.push_finalization_stage(f1));
  EXPECT_EQ(s1, task.pop_stage());
  EXPECT_EQ(s2, task.pop_stage());
  EXPECT_EQ(nullptr, task.pop_stage());
  EXPECT_EQ(f1, task.pop_finalization_stage());
  EXPECT_EQ(nullptr, task.pop_finalization_stage());
  task.push_stage(s1);  // still usable
  EXPECT_EQ(s1, task.pop_stage());
}

TEST(DefaultTask, FlagsCancellationAndDisplayName) {
  my_task_t task;
  EXPECT_EQ(0, task.merge_flags(qt::task_t::started_flag));
  EXPECT_EQ(1, task.merge_flags(4));
  EXPECT_EQ(5, task.set_flags(2));
  EXPECT_EQ(2, task.get_flags());
  EXPECT_FALSE(task.is_canceled());
  task.cancel();
  task.cancel();
  EXPECT_TRUE(task.is_canceled());

  EXPECT_EQ("quillon2::threading::default_task_t", qt::default_task_t().get_display_name());
  EXPECT_EQ("(anonymous namespace)::my_task_t", task.get_display_name());
  task.set_display_name("copying files");
  EXPECT_EQ("copying files", task.get_display_name());
}

TEST(Stage, ConstructorsCopiesAndAssignment) {
  qt::stage_t plain;
  EXPECT_TRUE(plain.unit.empty() && plain.signal.empty());
  EXPECT_EQ(0, plain.delay);
  EXPECT_EQ(1, plain.flags);
  qt::stage_t wait(qt::unit_delay_tasks, 250);
  EXPECT_EQ(L"delay tasks", wait.unit);
  EXPECT_EQ(250, wait.delay);
  EXPECT_EQ(0, wait.flags);  // a wait is not a start

  int a_calls = 0, b_calls = 0;
  auto a = std::make_unique<work_t>([&](task_ptr) { ++a_calls; });
  work_t b([&](task_ptr) { ++b_calls; });
  auto source = make_stage(qt::unit_service, *a);
  EXPECT_EQ(L"service", source->unit);
  EXPECT_EQ(1, source->flags);
  qt::stage_t copy(*source);
  qt::stage_t target = *make_stage(qt::unit_main, b);
  target.delay = 7;
  target = copy;  // copies the text and numbers, merges the connections
  EXPECT_EQ(L"service", target.unit);
  EXPECT_EQ(0, target.delay);
  target.signal(nullptr);
  EXPECT_EQ(1, a_calls);
  EXPECT_EQ(1, b_calls);
  a.reset();  // leaves every stage that had it
  EXPECT_EQ(0u, source->signal.connection_count() + copy.signal.connection_count());
  EXPECT_EQ(1u, target.signal.connection_count());
}

TEST(ThreadName, KeepsThirtyOneCharactersAndTheKernelTheFirstFifteenBytes) {
  std::thread([] {
    std::string const exact31 = "Sh(T): abcdefghijklmnopqrstuvwx";
    qt::set_thread_name(exact31.c_str(), true);  // 31: not abbreviated
    EXPECT_EQ(exact31, qt::get_thread_name());
    EXPECT_EQ(exact31.substr(0, 15), kernel_thread_name());
    qt::set_thread_name((exact31 + "Y").c_str(), true);  // 32: abbreviated
    EXPECT_EQ("Sh(T):bcdfghjklmnpqrstvwxY", qt::get_thread_name());
    qt::set_thread_name("Sh(TP): copying_every file you own", false);
    EXPECT_EQ("Sh(TP): copying_every file you ", qt::get_thread_name());
    qt::set_thread_name("short", false);
    EXPECT_EQ("short", kernel_thread_name());
  }).join();
}

TEST(SchedulerSlot, IsEmptyUntilSetAndReleasesWhatItHeld) {
  EXPECT_EQ(nullptr, qt::get_scheduler());
  auto first = boost::make_shared<test_scheduler_t>();
  qt::set_scheduler(first);
  EXPECT_EQ(first, qt::get_scheduler());
  boost::weak_ptr<test_scheduler_t> watch(first);
  first.reset();
  qt::set_scheduler(nullptr);
  EXPECT_TRUE(watch.expired());
  EXPECT_EQ(nullptr, qt::get_scheduler());
}

TEST(DefaultWaitCallback, PollsWithRisingPausesUntilFinished) {
  struct status_t : qt::scheduler_operation_status_t {
    int asked = 0;
    bool is_finished() override { return ++asked > 3; }
  };
  auto status = boost::make_shared<status_t>();
  auto const start = std::chrono::steady_clock::now();
  qt::default_scheduler_wait_callback_t().wait(status);
  EXPECT_EQ(4, status->asked);  // after pauses of 0, 10 and 20 ms
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(30));
  qt::default_scheduler_wait_callback_t().wait(boost::weak_ptr<status_t>());  // gone: done
}
