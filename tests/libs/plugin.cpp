// A test plugin of version PLUGIN_VERSION: it answers its version and uses its dependency.
extern "C" int q2_test_dep_answer();

extern "C" __attribute__((visibility("default"))) int plugin_version() { return PLUGIN_VERSION; }
extern "C" __attribute__((visibility("default"))) int plugin_answer() {
  return q2_test_dep_answer() + PLUGIN_VERSION;
}
extern "C" __attribute__((visibility("default"))) int plugin_\u00e9t\u00e9() { return 7; }
