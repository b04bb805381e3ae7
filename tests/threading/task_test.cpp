// Task and thread names and the default wait, each on its own.
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

TEST(DefaultTask, IsNamedAfterItsClassUntilGivenAName) {
  my_task_t task;
  EXPECT_EQ("quillon2::threading::default_task_t", default_task_t().get_display_name());
  EXPECT_EQ("(anonymous namespace)::my_task_t", task.get_display_name());
  task.set_display_name("copying files");
  EXPECT_EQ("copying files", task.get_display_name());
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
