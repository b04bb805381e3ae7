// The four units on their own, wired to a recorder as a scheduler would wire them, and
// the names of tasks and threads (shown to a real tracing child process).
#include <pthread.h>
#include <sys/prctl.h>
#include <sys/ptrace.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <climits>
#include <fstream>
#include <set>
#include <stdexcept>
#include <string>
#include <thread>

#include "threading_support.hpp"

namespace {
class my_task_t : public quillon2::threading::default_task_t {};
class nameless_task_t : public quillon2::threading::default_task_t {
  KESMET_2_18::strings::ustring8 get_display_name() const override { return ""; }
};
}  // namespace

namespace q2thr {
namespace {

auto const throwing = [](task_ptr const&) { throw std::runtime_error("broken stage"); };

stage_ptr wait_stage(int delay_ms) {
  return boost::make_shared<stage_t>(unit_delay_tasks, delay_ms);
}

// Gives the unit as many jobs as it holds; the next one and a null task are refused.
void fill(unit_t& unit, stage_ptr const& stage) {
  auto task = make_task();
  for (int i = 0; i < 100001; ++i) ASSERT_EQ(seOk, unit.execute(task, stage));
  EXPECT_EQ(seQueueFull, unit.execute(task, stage));
  EXPECT_EQ(seInvalidArgument, unit.execute(nullptr, stage));
}

struct DelayedTasksUnit : ::testing::Test, rig_t<delayed_tasks_unit_t> {};
struct ThreadsUnit : ::testing::Test, rig_t<threads_unit_t> {};
struct QueueUnit : ::testing::Test, rig_t<queue_unit_t> {
  std::vector<std::string> ran;
  stage_ptr const note =
      works.stage(unit_main, [this](task_ptr const& t) { ran.push_back(t->get_display_name()); });
};
using pool_t = rig_t<thread_pool_unit_t>;

TEST_F(DelayedTasksUnit, RefusesBadDelaysAFullTableAndJobsWhileItsTimerDoesNotRun) {
  EXPECT_EQ(seUnitNotStarted, unit.execute(make_task(), wait_stage(10)));
  unit.on_registered();
  // A stage built with work has a delay of 0.
  EXPECT_EQ(seDelayOutOfRange, unit.execute(make_task(), works.stage(unit_delay_tasks)));
  // The process is older than this, so a clock that counted from its start in 32 bits
  // could no longer reach the longest delay a stage holds.
  std::this_thread::sleep_for(std::chrono::milliseconds(2));
  fill(unit, wait_stage(INT_MAX));
  unit.terminate();
  EXPECT_EQ(1u, recorder->count('s') * recorder->count('f'));
  EXPECT_EQ(seUnitNotStarted, unit.execute(make_task(), wait_stage(10)));
  EXPECT_EQ(100001u, unit.pending_jobs());  // left pending; nobody completes them
}

TEST_F(DelayedTasksUnit, CompletesWaitsOnTheTimerThreadNeverEarlyWithoutWorkAndTakesFollowUps) {
  unit.on_registered();
  auto stage = works.stage(unit_delay_tasks, [](task_ptr const&) { ADD_FAILURE(); });
  stage->delay = 30;
  std::string thread_name;
  int followed = 0;
  // What follows a finished wait runs on the timer thread and asks for another wait.
  recorder->then = [&](task_ptr task) {
    thread_name = get_thread_name();
    if (followed < 3 && unit.execute(task, wait_stage(1)) == seOk) ++followed;
  };
  auto const start = std::chrono::steady_clock::now();
  ASSERT_EQ(seOk, unit.execute(make_task(), stage));
  ASSERT_TRUE(recorder->wait('d', 4));
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(30));
  EXPECT_EQ("Sh(D): processing timers", thread_name);
  EXPECT_EQ(3, followed);
}

TEST_F(QueueUnit, AnnouncesJobsOnTheCallersThreadAndRunsWhatWasQueuedAtTheCall) {
  struct listener_t : subscriber_base_t {
    void on_queued(task_ptr, stage_ptr) { threads.push_back(std::this_thread::get_id()); }
    std::vector<std::thread::id> threads;
  } listener;
  unit.task_queued.connect(&listener, &listener_t::on_queued);
  for (std::string name : {"a", "b", "c"}) unit.execute(make_task(name), note);
  EXPECT_EQ(std::vector<std::thread::id>(3, std::this_thread::get_id()), listener.threads);
  // Queued while the queue is drained: waits for the next call.
  unit.execute(make_task(), works.stage(unit_main, [&](task_ptr const&) {
    unit.execute(make_task("late"), note);
  }));
  std::thread([&] { unit.process_queue(1); }).join();
  EXPECT_EQ((std::vector<std::string>{"a"}), ran);
  EXPECT_NE(std::this_thread::get_id(), recorder->events('d').at(0).thread);  // the drainer's
  unit.process_queue(-1);
  EXPECT_EQ((std::vector<std::string>{"a", "b", "c"}), ran);
  EXPECT_TRUE(unit.has_tasks());
  unit.process_queue(0);
  EXPECT_EQ((std::vector<std::string>{"a", "b", "c", "late"}), ran);
  EXPECT_EQ(5u, recorder->count('d'));
}

TEST_F(QueueUnit, JobsNotRunAfterAThrowingStageOrATerminateAreDropped) {
  auto bad = make_task("bad");
  unit.execute(make_task("a"), note);
  unit.execute(bad, works.stage(unit_main, throwing));
  unit.execute(make_task("c"), note);
  EXPECT_THROW(unit.process_queue(0), std::runtime_error);
  EXPECT_EQ("x", recorder->of(bad));  // reported; the failed stage does not complete
  EXPECT_EQ(std::this_thread::get_id(), recorder->events('x').at(0).thread);
  EXPECT_FALSE(unit.has_tasks());
  unit.process_queue(0);
  EXPECT_EQ((std::vector<std::string>{"a"}), ran);
  fill(unit, note);
  unit.terminate();  // drops the jobs, and keeps nothing of them
  EXPECT_FALSE(unit.has_tasks());
  EXPECT_EQ(1, note.use_count());
}

TEST(ThreadPoolUnit, WithOneWorkerRunsJobsInOrderAndGoesOnAfterAThrowingStage) {
  pool_t pool(1u);
  std::string order, name;  // one worker: no lock, which TSan checks
  for (char c = 'a'; c < 'k'; ++c) {
    pool.unit.execute(make_task("copy files"), pool.works.stage(L"", [&, c](task_ptr const&) {
      order += c;
      name = get_thread_name();
    }));
    if (c == 'e') pool.unit.execute(make_task(), pool.works.stage(L"", throwing));
  }
  ASSERT_TRUE(pool.recorder->wait('d', 10));
  EXPECT_EQ("abcdefghij", order);
  EXPECT_EQ("Sh(TP): copy files", name);
  EXPECT_EQ(1u, pool.recorder->count('s') * pool.recorder->count('x'));
  auto const worker = pool.recorder->events('s').at(0).thread;  // told, ran and failed there
  EXPECT_NE(std::this_thread::get_id(), worker);
  for (auto const& e : pool.recorder->events()) EXPECT_EQ(worker, e.thread) << e.kind;
}

TEST(ThreadPoolUnit, StartsWorkersUpToItsLimitAndTerminateStopsThemBeforeTheirNextJob) {
  pool_t empty(0u);  // never starts a worker, and holds 100001 jobs at most
  fill(empty.unit, empty.works.stage(L"", [](task_ptr const&) { ADD_FAILURE(); }));
  EXPECT_EQ(0u, empty.recorder->count('s'));
  pool_t pool(4u);
  latch_t all_busy(4);
  std::atomic<int> ran{0};
  auto busy = [&](task_ptr const&) {  // a stage each: a signal runs one call at a time
    if (++ran > 4) return;
    all_busy.open();
    while (!boost::this_thread::interruption_requested()) std::this_thread::yield();
  };
  for (int i = 0; i < 6; ++i) pool.unit.execute(make_task(), pool.works.stage(L"", busy));
  ASSERT_TRUE(all_busy.wait());
  EXPECT_EQ(4u, pool.unit.get_active_threads());
  EXPECT_EQ(4u, pool.recorder->count('s'));  // the two others wait in the queue
  pool.unit.terminate();                     // the workers end before their next job
  EXPECT_EQ(4, ran.load());
  EXPECT_EQ(4u, pool.recorder->count('f'));
  // The jobs stayed; the next execute starts a new worker that takes them.
  pool.unit.execute(make_task(), pool.works.stage(L""));
  ASSERT_TRUE(pool.recorder->wait('d', 7));
  EXPECT_EQ(5u, pool.recorder->count('s'));
}

TEST_F(ThreadsUnit, RunsEveryStageOnANewThreadNamedAfterItsTask) {
  std::mutex mutex;
  std::set<std::string> names;
  latch_t both(2);
  auto work = [&](task_ptr const&) {
    {
      std::lock_guard<std::mutex> guard(mutex);
      names.insert(get_thread_name());
    }
    both.open();
    both.wait();  // both threads live at once
  };
  unit.execute(make_task("indexing the whole disk, every file"), works.stage(L"", work));
  unit.execute(boost::make_shared<nameless_task_t>(), works.stage(L"", work));
  auto bad = make_task();
  unit.execute(bad, works.stage(L"", throwing));  // reported; its thread ends
  ASSERT_TRUE(recorder->wait('d', 2));
  EXPECT_NE(recorder->events('d').at(0).thread, recorder->events('d').at(1).thread);
  // 31 characters of "Sh(T): " and the name; the class name when the name is empty.
  EXPECT_EQ(
      (std::set<std::string>{"Sh(T): indexing the whole disk,", "Sh(T): (anonymous namespace)::n"}),
      names);
  EXPECT_TRUE(recorder->wait('f', 3));
  EXPECT_EQ("x", recorder->of(bad));
}

TEST_F(ThreadsUnit, RefusesThe65thConcurrentStageAndTerminateInterruptsAndJoinsThemAll) {
  latch_t all_running(64);
  auto sleeper = [&](task_ptr const&) {
    all_running.open();
    boost::this_thread::sleep_for(boost::chrono::hours(1));  // an interruption point
  };
  for (int i = 0; i < 64; ++i) {
    ASSERT_EQ(seOk, unit.execute(make_task(), works.stage(L"", sleeper)));
  }
  ASSERT_TRUE(all_running.wait());
  EXPECT_EQ(64u, unit.get_active_threads());
  EXPECT_EQ(seQueueFull, unit.execute(make_task(), works.stage(L"", sleeper)));
  EXPECT_EQ(seInvalidArgument, unit.execute(nullptr, works.stage(L"", sleeper)));
  unit.terminate();
  EXPECT_EQ(0u, unit.get_active_threads());
  EXPECT_EQ(64u, recorder->count('f'));
  EXPECT_EQ(0u, recorder->count('d') + recorder->count('x'));
}

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

bool traced() {
  std::ifstream status("/proc/self/status");
  std::string line;
  while (std::getline(status, line)) {
    if (line.rfind("TracerPid:", 0) == 0) return std::stol(line.substr(10)) != 0;
  }
  return false;
}

// A child process that traces this one (as a debugger would) while it lives, without
// stopping it.
class tracer_t {
 public:
  tracer_t() {
    prctl(PR_SET_PTRACER, PR_SET_PTRACER_ANY, 0, 0, 0);  // where the system restricts tracing
    if (pipe(m_result) != 0 || pipe(m_release) != 0) return;
    pid_t const traced_pid = getpid();
    m_child = fork();
    if (m_child == 0) {
      close(m_result[0]);
      close(m_release[1]);
      char const ok = ptrace(PTRACE_SEIZE, traced_pid, nullptr, nullptr) == 0 ? 1 : 0;
      (void)!write(m_result[1], &ok, 1);
      char done = 0;
      (void)!read(m_release[0], &done, 1);
      _exit(0);  // the trace ends with the tracer
    }
    close(m_result[1]);
    close(m_release[0]);
    char ok = 0;
    m_attached = m_child > 0 && read(m_result[0], &ok, 1) == 1 && ok == 1;
  }
  ~tracer_t() {
    close(m_result[0]);
    close(m_release[1]);
    if (m_child > 0) waitpid(m_child, nullptr, 0);
  }
  bool attached() const { return m_attached; }

 private:
  int m_result[2] = {-1, -1};
  int m_release[2] = {-1, -1};
  pid_t m_child = -1;
  bool m_attached = false;
};

// The library keeps all 31 characters of a name; the system's thread listing gets the
// first 15 bytes only while a debugger traces the process, since each publication is a
// system call on the way of every job.
TEST(ThreadName, KeepsThirtyOneCharactersAndTellsADebuggerTheFirstFifteenBytes) {
  std::thread([] {
    std::string const before = kernel_thread_name();
    std::string const exact31 = "Sh(T): abcdefghijklmnopqrstuvwx";
    set_thread_name(exact31.c_str(), true);  // 31: not abbreviated
    EXPECT_EQ(exact31, get_thread_name());
    if (!traced()) {
      EXPECT_EQ(before, kernel_thread_name());
    }
    set_thread_name((exact31 + "Y").c_str(), true);  // 32: abbreviated
    EXPECT_EQ("Sh(T):bcdfghjklmnpqrstvwxY", get_thread_name());
    set_thread_name("Sh(TP): copying_every file you own", false);
    EXPECT_EQ("Sh(TP): copying_every file you ", get_thread_name());
  }).join();

  tracer_t const tracer;
  if (!tracer.attached()) GTEST_SKIP() << "this system lets no child trace its parent";
  std::this_thread::sleep_for(std::chrono::milliseconds(150));  // the library looks again
  std::thread([] {
    set_thread_name("Sh(T): abcdefghijklmnopqrstuvwx", false);
    EXPECT_EQ("Sh(T): abcdefgh", kernel_thread_name());
    set_thread_name("short", false);
    EXPECT_EQ("short", kernel_thread_name());
  }).join();
}

}  // namespace
}  // namespace q2thr
