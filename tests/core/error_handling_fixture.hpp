// A fixture for tests of the failure check: QUILLON_ERROR_HANDLING holds `Setting` while
// the suite runs and its earlier value afterwards, each test starts with an empty error
// list on its thread, and m_asserts records the assertion reports of the test.
#pragma once

#include <string>

#include <gtest/gtest.h>

#include <quillon2/core/environ.hpp>
#include <quillon2/core/error_code.hpp>

#include "support/assert_recorder.hpp"

namespace q2test {

template <wchar_t const* Setting>
class error_handling_test_t : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    s_saved = quillon2::get_environ_value(L"QUILLON_ERROR_HANDLING");
    quillon2::set_environ_value(L"QUILLON_ERROR_HANDLING", Setting);
  }
  static void TearDownTestSuite() {
    quillon2::set_environ_value(L"QUILLON_ERROR_HANDLING", s_saved);
  }
  void SetUp() override { quillon2::error_code_t::clean_last(); }

  static inline std::wstring s_saved;
  assert_recorder_t m_asserts;
};

}  // namespace q2test
