// A library that the test plugins need at load time.
extern "C" __attribute__((visibility("default"))) int q2_test_dep_answer() { return 40; }
