// The names of tasks and threads.
#include <pthread.h>

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

}  // namespace
}  // namespace q2thr
