// A dependency that the tests never place beside the plugin that needs it.
extern "C" __attribute__((visibility("default"))) int q2_test_absent_answer() { return 1; }
