// Captures the library's assertion reports for the life of a scope, so that a test can
// check which conditions were reported.
#pragma once

#include <mutex>
#include <string>
#include <vector>

#include <quillon2/core/assert.hpp>

namespace q2test {

class captured_asserts_t {
 public:
  captured_asserts_t() {
    {
      std::lock_guard<std::mutex> guard(mutex());
      storage().clear();
    }
    m_previous = quillon2::internal::set_assert_hook(&record);
  }
  ~captured_asserts_t() { quillon2::internal::set_assert_hook(m_previous); }
  captured_asserts_t(captured_asserts_t const&) = delete;
  captured_asserts_t& operator=(captured_asserts_t const&) = delete;

  // The conditions reported so far, in order.
  std::vector<std::string> conditions() const {
    std::lock_guard<std::mutex> guard(mutex());
    return storage();
  }

 private:
  static void record(char const* condition, char const*, unsigned, char const*) {
    std::lock_guard<std::mutex> guard(mutex());
    storage().push_back(condition);
  }
  static std::mutex& mutex() {
    static std::mutex m;
    return m;
  }
  static std::vector<std::string>& storage() {
    static std::vector<std::string> s;
    return s;
  }

  quillon2::internal::assert_hook_t m_previous = nullptr;
};

}  // namespace q2test
