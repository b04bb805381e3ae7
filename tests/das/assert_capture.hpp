// Collects the assertion reports made while an object of this class lives.
#pragma once

#include <algorithm>
#include <string>
#include <vector>

#include <quillon2/core/assert.hpp>

namespace q2test {

class assert_capture_t {
 public:
  assert_capture_t() : m_previous(quillon2::internal::set_assert_hook(&record)) {
    reports().clear();
  }
  ~assert_capture_t() { quillon2::internal::set_assert_hook(m_previous); }
  assert_capture_t(assert_capture_t const&) = delete;
  assert_capture_t& operator=(assert_capture_t const&) = delete;

  static std::vector<std::string>& reports() {
    static std::vector<std::string> list;
    return list;
  }
  bool saw(std::string const& condition) const {
    auto const& r = reports();
    return std::find(r.begin(), r.end(), condition) != r.end();
  }
  std::size_t count() const { return reports().size(); }

 private:
  static void record(char const* condition, char const*, unsigned, char const*) {
    reports().push_back(condition);
  }
  quillon2::internal::assert_hook_t m_previous;
};

}  // namespace q2test
