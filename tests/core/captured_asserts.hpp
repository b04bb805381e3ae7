// Captures the library's assertion reports while it lives, for tests to inspect.
#pragma once

#include <mutex>
#include <string>
#include <vector>

#include <quillon2/core/assert.hpp>

namespace q2test {

class captured_asserts_t {
 public:
  captured_asserts_t() : m_previous(quillon2::internal::set_assert_hook(&record)) {}
  ~captured_asserts_t() { quillon2::internal::set_assert_hook(m_previous); }

  // The conditions reported since this object was made, in order.
  std::vector<std::string> conditions() const {
    std::lock_guard<std::mutex> guard(state().mutex);
    return state().conditions;
  }

 private:
  struct state_t {
    std::mutex mutex;
    std::vector<std::string> conditions;
  };
  static state_t& state() {
    static state_t s;
    return s;
  }
  static void record(char const* condition, char const*, unsigned, char const*) {
    std::lock_guard<std::mutex> guard(state().mutex);
    state().conditions.push_back(condition);
  }

  struct cleared_t {
    cleared_t() {
      std::lock_guard<std::mutex> guard(state().mutex);
      state().conditions.clear();
    }
  } m_cleared;  // made before the hook is set
  quillon2::internal::assert_hook_t m_previous;
};

}  // namespace q2test
