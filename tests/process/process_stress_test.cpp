// Many children: a thousand started one after another, a hundred dropped while they
// run. Neither may leave a zombie behind.
#include <gtest/gtest.h>

#include "process_test_support.hpp"
#include "support/temp_dir.hpp"

TEST(ProcessStress, ThousandSequentialChildren) { q2test::run_sequential_children(1000); }

TEST(ProcessStress, HundredDroppedRunningChildren) {
  q2test::temp_dir_t dir;
  q2test::drop_running_children(dir.file("lock"), 100);
}
