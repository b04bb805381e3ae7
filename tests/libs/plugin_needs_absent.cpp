// A plugin that needs a library which is not where its RUNPATH looks.
extern "C" int q2_test_absent_answer();
extern "C" __attribute__((visibility("default"))) int plugin_version() { return q2_test_absent_answer(); }
