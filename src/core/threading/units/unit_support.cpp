// Helpers shared by the units.
#include "core/threading/include/unit_support.hpp"

#include <mutex>
#include <vector>

#include <quillon2/headers/kesmet.hpp>

#include "core/miscellaneous/include/logging.hpp"

namespace quillon2::internal {

KESMET_2_18::strings::ustring8 safe_display_name(threading::task_t const& task) noexcept {
  try {
    return task.get_display_name();
  } catch (...) {
    return {};
  }
}

namespace {

void log_stage_exception(char const* unit, threading::task_t const* task, char const* file,
                         int line) noexcept {
  try {
    std::wstring const name = task != nullptr
                                  ? KESMET_2_18::strings::utf8_to_utf16(safe_display_name(*task))
                                  : std::wstring();
    Q2_LOG(scheduler_logger(), log_error,
           unit << L": Catch ... exception for task:" << name << L", at file: " << file << L":"
                << line);
  } catch (...) {
    // Logging has no channel back.
  }
}

}  // namespace

void report_stage_exception(char const* unit, _internal::unit_observers_t& observers,
                            boost::shared_ptr<threading::task_t> const& task, char const* file,
                            int line) {
  log_stage_exception(unit, task.get(), file, line);
  observers.notify(
      [&](threading::scheduler_status_callback_t& callback) { callback.task_exception(task); });
}

namespace {

thread_local threading::unit_t const* t_serving_unit = nullptr;

// Threads handed over by the unit that owned them. Joined when they have ended; the
// destructor, at unload, waits for those still running their last steps.
class ended_threads_t {
 public:
  ~ended_threads_t() {
    std::vector<boost::shared_ptr<boost::thread>> left;
    {
      std::lock_guard<std::mutex> guard(m_mutex);
      left.swap(m_threads);
    }
    for (auto& thread : left) join_unless_self(*thread);
  }

  void add(boost::shared_ptr<boost::thread> thread) {
    std::lock_guard<std::mutex> guard(m_mutex);
    m_threads.push_back(std::move(thread));
  }

  void reap() {
    std::vector<boost::shared_ptr<boost::thread>> ended;
    {
      std::lock_guard<std::mutex> guard(m_mutex);
      for (auto it = m_threads.begin(); it != m_threads.end();) {
        if ((*it)->get_id() != boost::this_thread::get_id() &&
            (*it)->try_join_for(boost::chrono::milliseconds(0))) {
          ended.push_back(std::move(*it));
          it = m_threads.erase(it);
        } else {
          ++it;
        }
      }
    }
  }

 private:
  static void join_unless_self(boost::thread& thread) {
    if (thread.joinable() && thread.get_id() != boost::this_thread::get_id()) thread.join();
  }

  std::mutex m_mutex;
  std::vector<boost::shared_ptr<boost::thread>> m_threads;
};

ended_threads_t& ended_threads() {
  static ended_threads_t threads;
  return threads;
}

}  // namespace

threading::unit_t const* serving_unit() noexcept { return t_serving_unit; }

serving_unit_scope_t::serving_unit_scope_t(threading::unit_t const* unit) noexcept
    : m_previous(t_serving_unit) {
  t_serving_unit = unit;
}

serving_unit_scope_t::~serving_unit_scope_t() { t_serving_unit = m_previous; }

void hand_over_thread(boost::shared_ptr<boost::thread> thread) {
  if (!thread) return;
  ended_threads().reap();
  ended_threads().add(std::move(thread));
}

void reap_ended_threads() { ended_threads().reap(); }

}  // namespace quillon2::internal
