// Scaffolding shared by the core, miscellaneous and functor tests: threads released
// together, the values an iterator walks, and an empty error list around each test.
// It brings in what nearly every one of those tests uses.
#pragma once

#include <string>
#include <thread>
#include <vector>

#include <boost/thread/barrier.hpp>
#include <gtest/gtest.h>

#include <quillon2/core/error_code.hpp>
#include <quillon2/headers/iterator.hpp>

#include "support/assert_recorder.hpp"

namespace q2test {

// Runs body(0) ... body(n - 1) on n threads that start together, and joins them.
template <class Body>
void on_threads(int n, Body body) {
  boost::barrier start(static_cast<unsigned>(n));
  std::vector<std::thread> threads;
  for (int t = 0; t < n; ++t)
    threads.emplace_back([&, t] {
      start.wait();
      body(t);
    });
  for (auto& thread : threads) thread.join();
}

// The values `it` walks from where it stands to its end.
template <class T>
std::vector<T> collect(quillon2::generic_iterator_t<T> it) {
  std::vector<T> values;
  for (; !it.at_end(); it.next()) values.push_back(it.current());
  return values;
}

// Each test starts and ends with an empty error list on its thread.
class error_list_test : public ::testing::Test {
 protected:
  void SetUp() override { quillon2::error_code_t::clean_last(); }
  void TearDown() override { quillon2::error_code_t::clean_last(); }
};

}  // namespace q2test
