// Tasks, stages, thread names and the default wait, each on its own.
#include <pthread.h>

#include <chrono>
#include <string>
#include <thread>

#include <quillon2/core/threading/thread_name.hpp>

#include "threading_support.hpp"

namespace {
class my_task_t : public quillon2::threading::default_task_t {};
}  // namespace

namespace q2thr {
namespace {

std::string kernel_thread_name() {
  char name[32] = {};
  pthread_getname_np(pthread_self(), name, sizeof name);
  return name;
}

TEST(DefaultTask, QueuesComeOutInPushOrderAndEmptyGivesNull) {
  default_task_t task;
  EXPECT_EQ(nullptr, task.pop_stage());
  auto s1 = boost::make_shared<stage_t>(L"a", 1), s2 = boost::make_shared<stage_t>(L"b", 2);
  auto f1 = boost::make_shared<stage_t>(L"c", 3);
  task.push_stage(s1);
  EXPECT_EQ(seOk, task.push_stage(nullptr));  // ignored: it would read as the end
  task.push_stage(s2);
  EXPECT_EQ(seOk, task.push_finalization_stage(f1));
  EXPECT_EQ(s1, task.pop_stage());
  EXPECT_EQ(s2, task.pop_stage());
  EXPECT_EQ(nullptr, task.pop_stage());
  EXPECT_EQ(f1, task.pop_finalization_stage());
  EXPECT_EQ(nullptr, task.pop_finalization_stage());
}

TEST(DefaultTask, FlagsCancellationAndDisplayName) {
  my_task_t task;
  EXPECT_EQ(0, task.merge_flags(task_t::started_flag));
  EXPECT_EQ(1, task.merge_flags(4));
  EXPECT_EQ(5, task.set_flags(2));
  EXPECT_EQ(2, task.get_flags());
  task.cancel();
  task.cancel();
  EXPECT_TRUE(task.is_canceled());
  EXPECT_EQ("quillon2::threading::default_task_t", default_task_t().get_display_name());
  EXPECT_EQ("(anonymous namespace)::my_task_t", task.get_display_name());
  task.set_display_name("copying files");
  EXPECT_EQ("copying files", task.get_display_name());
}

TEST(Stage, AWaitIsNoStartAndAssignmentMergesTheConnections) {
  EXPECT_EQ(0, stage_t(unit_delay_tasks, 250).flags);
  int a_calls = 0, b_calls = 0;
  auto a = std::make_unique<work_t>([&](task_ptr const&) { ++a_calls; });
  work_t b([&](task_ptr const&) { ++b_calls; });
  stage_t::signal_type to_a, to_b;
  to_a.connect(a.get(), &work_t::run);
  to_b.connect(&b, &work_t::run);
  stage_t source(unit_service, to_a), target(unit_main, to_b);
  EXPECT_EQ(1, source.flags);
  stage_t copy(source);
  target.delay = 7;
  target = copy;  // copies the text and numbers, merges the connections
  EXPECT_EQ(L"service", target.unit);
  EXPECT_EQ(0, target.delay);
  target.signal(nullptr);
  EXPECT_EQ(1, a_calls);
  EXPECT_EQ(1, b_calls);
  a.reset();  // leaves every stage that had it
  EXPECT_EQ(0u, source.signal.connection_count() + copy.signal.connection_count());
  EXPECT_EQ(1u, target.signal.connection_count());
}

TEST(ThreadName, KeepsThirtyOneCharactersAndTheKernelTheFirstFifteenBytes) {
  std::thread([] {
    std::string const exact31 = "Sh(T): abcdefghijklmnopqrstuvwx";
    set_thread_name(exact31.c_str(), true);  // 31: not abbreviated
    EXPECT_EQ(exact31, get_thread_name());
    EXPECT_EQ(exact31.substr(0, 15), kernel_thread_name());
    set_thread_name((exact31 + "Y").c_str(), true);  // 32: abbreviated
    EXPECT_EQ("Sh(T):bcdfghjklmnpqrstvwxY", get_thread_name());
    set_thread_name("Sh(TP): copying_every file you own", false);
    EXPECT_EQ("Sh(TP): copying_every file you ", get_thread_name());
    set_thread_name("short", false);
    EXPECT_EQ("short", kernel_thread_name());
  }).join();
}

TEST(DefaultWaitCallback, PollsWithRisingPausesUntilFinished) {
  struct status_t : scheduler_operation_status_t {
    int asked = 0;
    bool is_finished() override { return ++asked > 3; }
  };
  auto status = boost::make_shared<status_t>();
  auto const start = std::chrono::steady_clock::now();
  default_scheduler_wait_callback_t().wait(status);
  EXPECT_EQ(4, status->asked);  // after pauses of 0, 10 and 20 ms
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(30));
  default_scheduler_wait_callback_t().wait(boost::weak_ptr<status_t>());  // gone: done
}

}  // namespace
}  // namespace q2thr
