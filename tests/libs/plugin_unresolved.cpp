// A plugin that calls a function no library defines: an immediate-binding load refuses it.
extern "C" int q2_test_function_nobody_defines();

extern "C" __attribute__((visibility("default"))) int plugin_version() {
  return q2_test_function_nobody_defines();
}
