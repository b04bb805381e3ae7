// Records the assertion reports made while it lives, for tests of code that asserts
// and goes on. Reports from any thread are kept in order of arrival.
#pragma once

#include <algorithm>
#include <mutex>
#include <string>
#include <vector>

#include <quillon2/core/assert.hpp>

namespace q2test {

struct assert_report_t {
  std::string condition;
  std::string file;
  unsigned line = 0;
  std::string function;
};

class assert_recorder_t {
 public:
  assert_recorder_t() : m_previous(quillon2::internal::set_assert_hook(&record)) {}
  ~assert_recorder_t() {
    quillon2::internal::set_assert_hook(m_previous);
    std::lock_guard<std::mutex> lock(mutex());
    store().clear();
  }
  assert_recorder_t(assert_recorder_t const&) = delete;
  assert_recorder_t& operator=(assert_recorder_t const&) = delete;

  std::vector<assert_report_t> reports() const {
    std::lock_guard<std::mutex> lock(mutex());
    return store();
  }
  std::vector<std::string> conditions() const {
    std::vector<std::string> result;
    for (auto const& report : reports()) result.push_back(report.condition);
    return result;
  }
  bool saw(std::string const& condition) const {
    auto const all = conditions();
    return std::find(all.begin(), all.end(), condition) != all.end();
  }
  std::size_t count() const { return reports().size(); }
  // The conditions reported so far, which are then forgotten.
  std::vector<std::string> take_conditions() {
    std::vector<std::string> result = conditions();
    std::lock_guard<std::mutex> lock(mutex());
    store().erase(store().begin(), store().begin() + static_cast<std::ptrdiff_t>(result.size()));
    return result;
  }

 private:
  static std::mutex& mutex() {
    static std::mutex m;
    return m;
  }
  static std::vector<assert_report_t>& store() {
    static std::vector<assert_report_t> reports;
    return reports;
  }
  static void record(char const* condition, char const* file, unsigned line, char const* function) {
    std::lock_guard<std::mutex> lock(mutex());
    store().push_back(
        {condition ? condition : "", file ? file : "", line, function ? function : ""});
  }

  quillon2::internal::assert_hook_t m_previous;
};

}  // namespace q2test
