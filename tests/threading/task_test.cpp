#include <pthread.h>

#include <atomic>
#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include <boost/make_shared.hpp>
#include <gtest/gtest.h>
#include <quillon2/core/threading/scheduler.hpp>
#include <quillon2/core/threading/spin_lock.hpp>
#include <quillon2/core/threading/stage.hpp>
#include <quillon2/core/threading/task.hpp>
#include <quillon2/core/threading/thread_name.hpp>

#include "unit_test_support.hpp"

namespace {

namespace qt = quillon2::threading;
using q2test::make_stage;
using q2test::work_t;

class my_named_task_t : public qt::default_task_t {};

std::string kernel_thread_name() {
  char name[32] = {};
  pthread_getname_np(pthread_self(), name, sizeof name);
  return name;
}

}  // namespace

// --- default_task_t -------------------------------------------------------------------------

TEST(DefaultTask, StagesComeOutInPushOrderAndAnEmptyQueueGivesNull) {
  qt::default_task_t task;
  EXPECT_EQ(nullptr, task.pop_stage());
  EXPECT_EQ(nullptr, task.pop_finalization_stage());
  auto s1 = boost::make_shared<qt::stage_t>(L"a", 1);
  auto s2 = boost::make_shared<qt::stage_t>(L"b", 2);
  auto f1 = boost::make_shared<qt::stage_t>(L"c", 3);
  EXPECT_EQ(qt::seOk, task.push_stage(s1));
  EXPECT_EQ(qt::seOk, task.push_stage(nullptr));  // ignored: it would read as the end
  EXPECT_EQ(qt::seOk, task.push_stage(s2));
  EXPECT_EQ(qt::seOk, task.push_finalization_stage(f1));
  EXPECT_EQ(s1, task.pop_stage());
  EXPECT_EQ(s2, task.pop_stage());
  EXPECT_EQ(nullptr, task.pop_stage());
  EXPECT_EQ(f1, task.pop_finalization_stage());
  EXPECT_EQ(nullptr, task.pop_finalization_stage());
  task.push_stage(s1);  // still usable
  EXPECT_EQ(s1, task.pop_stage());
}

TEST(DefaultTask, CancelIsForGoodAndFlagsMergeAtomically) {
  qt::default_task_t task;
  EXPECT_FALSE(task.is_canceled());
  task.cancel();
  task.cancel();
  EXPECT_TRUE(task.is_canceled());

  EXPECT_EQ(0, task.get_flags());
  EXPECT_EQ(0, task.merge_flags(qt::task_t::started_flag));
  EXPECT_EQ(1, task.merge_flags(4));
  EXPECT_EQ(5, task.get_flags());
  EXPECT_EQ(5, task.set_flags(2));
  EXPECT_EQ(2, task.get_flags());
}

TEST(DefaultTask, DisplayNameFallsBackToTheClassName) {
  qt::default_task_t task;
  EXPECT_EQ("quillon2::threading::default_task_t", task.get_display_name());
  my_named_task_t derived;
  EXPECT_EQ("(anonymous namespace)::my_named_task_t", derived.get_display_name());
  task.set_display_name("copying files");
  EXPECT_EQ("copying files", task.get_display_name());
  task.set_display_name("");
  EXPECT_EQ("quillon2::threading::default_task_t", task.get_display_name());
}

TEST(DefaultTask, StagesPushedOnOneThreadArePoppedOnAnotherInOrder) {
  qt::default_task_t task;
  std::vector<boost::shared_ptr<qt::stage_t>> pushed;
  for (int i = 0; i < 2000; ++i) pushed.push_back(boost::make_shared<qt::stage_t>(L"u", i + 1));
  std::thread producer([&] {
    for (auto& s : pushed) task.push_stage(s);
  });
  std::vector<boost::shared_ptr<qt::stage_t>> popped;
  while (popped.size() < pushed.size()) {
    if (auto s = task.pop_stage()) popped.push_back(s);
  }
  producer.join();
  EXPECT_EQ(pushed, popped);
}

// --- stage_t --------------------------------------------------------------------------------

TEST(Stage, ConstructorsSetUnitDelayAndFlags) {
  qt::stage_t plain;
  EXPECT_TRUE(plain.unit.empty());
  EXPECT_TRUE(plain.signal.empty());
  EXPECT_EQ(0, plain.delay);
  EXPECT_EQ(1, plain.flags);

  int calls = 0;
  work_t work([&](q2test::task_ptr) { ++calls; });
  qt::stage_t::signal_type handler;
  handler.connect(&work, &work_t::run);
  qt::stage_t worker(qt::unit_service, handler);
  EXPECT_EQ(L"service", worker.unit);
  EXPECT_EQ(0, worker.delay);
  EXPECT_EQ(1, worker.flags);
  worker.signal(boost::make_shared<qt::default_task_t>());
  EXPECT_EQ(1, calls);

  qt::stage_t wait(qt::unit_delay_tasks, 250);
  EXPECT_EQ(L"delay tasks", wait.unit);
  EXPECT_EQ(250, wait.delay);
  EXPECT_EQ(0, wait.flags);  // a wait is not a start
  EXPECT_TRUE(wait.signal.empty());

  EXPECT_EQ(L"main", qt::unit_main);
  EXPECT_EQ(L"long tasks", qt::unit_long_tasks);
}

TEST(Stage, CopiesShareConnectionsAndAssignmentMergesThem) {
  int a_calls = 0, b_calls = 0;
  auto a = std::make_unique<work_t>([&](q2test::task_ptr) { ++a_calls; });
  work_t b([&](q2test::task_ptr) { ++b_calls; });
  auto source = make_stage(L"x", *a);
  qt::stage_t copy(*source);
  EXPECT_EQ(L"x", copy.unit);
  EXPECT_EQ(1u, copy.signal.connection_count());

  qt::stage_t target = *make_stage(L"y", b);
  target.delay = 7;
  target = copy;
  EXPECT_EQ(L"x", target.unit);
  EXPECT_EQ(0, target.delay);
  target.signal(nullptr);
  EXPECT_EQ(1, a_calls);
  EXPECT_EQ(1, b_calls);  // the target kept its own connection

  a.reset();  // clears it from every signal that had it
  EXPECT_EQ(0u, source->signal.connection_count());
  EXPECT_EQ(0u, copy.signal.connection_count());
  EXPECT_EQ(1u, target.signal.connection_count());
}

// --- thread names ---------------------------------------------------------------------------

TEST(ThreadName, KeepsThirtyOneCharactersAndTheKernelTheFirstFifteenBytes) {
  std::thread([] {
    std::string const exact31 = "Sh(T): abcdefghijklmnopqrstuvwx";
    ASSERT_EQ(31u, exact31.size());
    qt::set_thread_name(exact31.c_str(), true);
    EXPECT_EQ(exact31, qt::get_thread_name());
    EXPECT_EQ(exact31.substr(0, 15), kernel_thread_name());

    std::string const forty = "Sh(TP): a task with quite a long name!!";
    qt::set_thread_name(forty.c_str(), false);
    EXPECT_EQ(forty.substr(0, 31), qt::get_thread_name());

    qt::set_thread_name("Sh(TP): copying_every file you own", true);  // 34 characters
    // Lower-case vowels, "y", blanks and underscores go; capitals stay.
    EXPECT_EQ("Sh(TP):cpngvrflwn", qt::get_thread_name());
    qt::set_thread_name("Sh(TP): copying_every file you own", false);
    EXPECT_EQ("Sh(TP): copying_every file you ", qt::get_thread_name());
    qt::set_thread_name((exact31 + "Y").c_str(), true);  // 32 characters: abbreviated
    EXPECT_EQ("Sh(T):bcdfghjklmnpqrstvwxY", qt::get_thread_name());

    qt::set_thread_name("short", false);
    EXPECT_EQ("short", qt::get_thread_name());
    EXPECT_EQ("short", kernel_thread_name());
  }).join();
}

// --- spin lock ------------------------------------------------------------------------------

TEST(SpinLock, KeepsAPlainCounterExactUnderContention) {
  qt::spin_lock_t lock;
  long counter = 0;
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&] {
      for (int i = 0; i < 20000; ++i) {
        qt::spin_guard_t guard(lock);
        ++counter;
      }
    });
  }
  for (auto& t : threads) t.join();
  EXPECT_EQ(80000, counter);
  EXPECT_TRUE(lock.try_lock());
  EXPECT_FALSE(lock.try_lock());
  lock.unlock();
}

// --- the scheduler slot and waiting ---------------------------------------------------------

TEST(SchedulerSlot, IsEmptyUntilSetAndGivesBackWhatWasSet) {
  EXPECT_EQ(nullptr, qt::get_scheduler());
  auto first = boost::make_shared<q2test::test_scheduler_t>();
  qt::set_scheduler(first);
  EXPECT_EQ(first, qt::get_scheduler());
  boost::weak_ptr<q2test::test_scheduler_t> watch(first);
  first.reset();
  auto second = boost::make_shared<q2test::test_scheduler_t>();
  qt::set_scheduler(second);
  EXPECT_TRUE(watch.expired());  // the slot released the previous one
  qt::set_scheduler(nullptr);
  EXPECT_EQ(nullptr, qt::get_scheduler());
}

namespace {

class countdown_status_t : public qt::scheduler_operation_status_t {
 public:
  explicit countdown_status_t(int answers_before_finished) : m_left(answers_before_finished) {}
  bool is_finished() override {
    ++asked;
    return m_left-- <= 0;
  }
  int asked = 0;

 private:
  int m_left;
};

}  // namespace

TEST(DefaultWaitCallback, PollsUntilTheOperationHasFinished) {
  qt::default_scheduler_wait_callback_t wait;
  auto done = boost::make_shared<countdown_status_t>(0);
  wait.wait(done);
  EXPECT_EQ(1, done->asked);

  // Pauses of 0, 10 and 20 ms before the fourth answer.
  auto later = boost::make_shared<countdown_status_t>(3);
  auto const start = std::chrono::steady_clock::now();
  wait.wait(later);
  EXPECT_EQ(4, later->asked);
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(30));

  boost::weak_ptr<qt::scheduler_operation_status_t> gone;
  wait.wait(gone);  // nothing to wait for
}
