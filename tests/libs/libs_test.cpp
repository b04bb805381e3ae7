// Shared libraries and the library manager, with real plugin modules built beside the
// tests and copied into a fresh directory under the names each case needs.
#include <sys/stat.h>

#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include <quillon2/core/file_system/lib_manager.hpp>
#include <quillon2/core/file_system/shared_lib.hpp>
#include <quillon2/headers/kesmet.hpp>

#include "support/temp_dir.hpp"

namespace {

using quillon2::lib_manager_t;
using quillon2::path_t;
using quillon2::shared_lib_t;

std::string plugin(std::string const& name) { return std::string(Q2_TEST_PLUGIN_DIR "/") + name; }

std::wstring wide(std::string const& text) { return kesmet2::utf8_to_utf16(text); }

class libs_test : public q2test::temp_dir_test {
 protected:
  // Copies plugin `version` (1 to 3; 0: the one with an unresolved symbol) to `name`.
  void install(std::string const& name, int version) {
    std::string const source = version == 0 ? plugin("libq2_test_plugin_unresolved.so")
                                             : plugin("libq2_test_plugin_" + std::to_string(version) + ".so");
    q2test::write_file(m_dir.file(name), q2test::read_file(source));
    // Never rewritten once there: a loaded library's file must not change under it.
    struct stat st;
    if (::stat(m_dir.file("libq2_test_dep.so").c_str(), &st) != 0)
      q2test::write_file(m_dir.file("libq2_test_dep.so"), q2test::read_file(plugin("libq2_test_dep.so")));
  }
  path_t dir() const { return path_t(wide(m_dir.path())); }

  static int version_of(void* symbol) { return reinterpret_cast<int (*)()>(symbol)(); }
};

struct recorder_t : quillon2::_internal::subscriber_base_t {
  void loaded(std::wstring name) { events.push_back(L"+" + name); }
  void refused(std::wstring name, lib_manager_t::error_type_t why) {
    events.push_back(L"-" + name + L":" + std::to_wstring(static_cast<int>(why)));
  }
  std::vector<std::wstring> events;
};

TEST_F(libs_test, loads_by_file_name_or_as_lib_name_so_and_finds_symbols) {
  install("plain.so", 1);
  install("libfancy.so", 2);
  shared_lib_t plain(L"plain.so", dir());
  ASSERT_TRUE(plain) << kesmet2::utf16_to_utf8(plain.get_error_text());
  EXPECT_EQ(version_of(plain.get_symbol(L"plugin_version")), 1);
  EXPECT_EQ(version_of(plain.get_symbol(L"plugin_answer")), 41);  // through $ORIGIN
  EXPECT_EQ(version_of(plain.get_symbol(L"plugin_\u00e9t\u00e9")), 7);  // UTF-8 symbol names
  EXPECT_EQ(plain.get_symbol(L"no_such_symbol"), nullptr);

  shared_lib_t fancy;
  EXPECT_TRUE(fancy.initialize(L"fancy", dir()));
  EXPECT_EQ(version_of(fancy.get_symbol(L"plugin_version")), 2);

  // initialize drops the module it held, also when the new load fails.
  EXPECT_FALSE(fancy.initialize(L"missing", dir()));
  EXPECT_FALSE(fancy);
  EXPECT_EQ(fancy.get_symbol(L"plugin_version"), nullptr);
  EXPECT_FALSE(fancy.initialize(L"", dir()));

  // A copy keeps the module loaded after the original lets go.
  shared_lib_t copy = plain;
  plain.uninitialize();
  EXPECT_FALSE(plain);
  EXPECT_EQ(version_of(copy.get_symbol(L"plugin_version")), 1);

  EXPECT_FALSE(shared_lib_t(L"", dir()));
}

TEST_F(libs_test, failure_kinds) {
  q2test::write_file(m_dir.file("nodep.so"),
                     q2test::read_file(plugin("libq2_test_plugin_needs_absent.so")));
  install("unresolved.so", 0);
  q2test::write_file(m_dir.file("script.so"), "/* GNU ld script */\nGROUP ( libc.so.6 )\n");
  q2test::write_file(m_dir.file("empty.so"), "");
  ASSERT_EQ(::mkdir(m_dir.file("libdir.so").c_str(), 0700), 0);
  // A header of another architecture (ELF, 64-bit, little-endian, machine AArch64).
  std::string foreign(64, '\0');
  foreign.replace(0, 7, "\x7f" "ELF\x02\x01\x01", 7);
  foreign[16] = 3;     // ET_DYN
  foreign[18] = '\xb7';  // EM_AARCH64
  q2test::write_file(m_dir.file("foreign.so"), foreign);

  struct expectation_t {
    std::wstring name;
    shared_lib_t::error_status_t status;
  } const cases[] = {
      {L"missing.so", shared_lib_t::LOAD_NOT_FOUND},
      {L"nodep.so", shared_lib_t::LOAD_NOT_FOUND},  // a missing dependency counts as not found
      {L"unresolved.so", shared_lib_t::LOAD_FAILED},
      {L"script.so", shared_lib_t::LOAD_FAILED},
      {L"empty.so", shared_lib_t::LOAD_FAILED},
      {L"dir", shared_lib_t::LOAD_FAILED},  // libdir.so is a directory
      {L"foreign.so", shared_lib_t::LOAD_FAILED},
  };
  for (auto const& c : cases) {
    shared_lib_t lib(c.name, dir());
    EXPECT_FALSE(lib) << kesmet2::utf16_to_utf8(c.name);
    EXPECT_EQ(lib.get_error_status(), c.status) << kesmet2::utf16_to_utf8(c.name);
    EXPECT_FALSE(lib.get_error_text().empty());
  }
  // The system's search, for a bare name that it does not know.
  shared_lib_t system(L"q2-no-such-library.so", path_t());
  EXPECT_EQ(system.get_error_status(), shared_lib_t::LOAD_NOT_FOUND);
}

void* make_one() { return reinterpret_cast<void*>(1); }
void* make_two() { return reinterpret_cast<void*>(2); }

TEST(addon_table, finds_the_first_exact_entry) {
  quillon2::addon_map_entry_t table[] = {{"Alpha", make_one}, {"beta", make_two}, {"beta", make_one}};
  EXPECT_EQ(quillon2::get_function_by_type_name("beta", table, 3), &make_two);
  EXPECT_EQ(quillon2::get_function_by_type_name("alpha", table, 3), nullptr);
  EXPECT_EQ(quillon2::get_function_by_type_name("bet", table, 3), nullptr);
  EXPECT_EQ(quillon2::get_function_by_type_name("beta", table, 1), nullptr);
  EXPECT_EQ(quillon2::get_function_by_type_name("Alpha", table, 0), nullptr);
  EXPECT_EQ(quillon2::get_function_by_type_name("Alpha", nullptr, 3), nullptr);
  EXPECT_EQ(quillon2::suffixize_lib_name(L"x"), L"x");
}

TEST_F(libs_test, manager_refuses_bad_arguments_and_takes_empty_directories) {
  auto manager = quillon2::create_lib_manager();
  recorder_t recorder;
  manager->library_refused.connect(&recorder, &recorder_t::refused);
  std::wstring const d = wide(m_dir.path());
  EXPECT_FALSE(manager->add_path(nullptr, L".*\\."));
  EXPECT_FALSE(manager->add_path(L"", L".*\\."));
  EXPECT_FALSE(manager->add_path(d.c_str(), L""));
  EXPECT_FALSE(manager->add_path((d + L"/missing").c_str(), L".*\\."));
  EXPECT_FALSE(manager->add_path(d.c_str(), L"("));
  EXPECT_TRUE(manager->add_path(d.c_str(), L".*\\."));
  EXPECT_EQ(manager->get_count(), 0);
  EXPECT_EQ(manager->get_library(-1), nullptr);
  EXPECT_EQ(manager->get_library(0), nullptr);
  EXPECT_TRUE(recorder.events.empty());
}

// Runs add_path over files installed as (name, version) and returns the events.
std::vector<std::wstring> scan(libs_test& test, lib_manager_t& manager, std::string const& dir) {
  recorder_t recorder;
  manager.library_loaded.connect(&recorder, &recorder_t::loaded);
  manager.library_refused.connect(&recorder, &recorder_t::refused);
  EXPECT_TRUE(manager.add_path(wide(dir).c_str(), L".*\\."));
  manager.library_loaded.disconnect(&recorder, &recorder_t::loaded);
  manager.library_refused.disconnect(&recorder, &recorder_t::refused);
  (void)test;
  return recorder.events;
}

TEST_F(libs_test, manager_keeps_one_version_a_name_by_its_rule) {
  struct case_t {
    std::vector<std::pair<std::string, int>> files;
    std::vector<std::wstring> events;  // in the order of emission
  } const cases[] = {
      {{{"a_1.so", 1}, {"a_2.so", 2}}, {L"-a_1.so:2", L"+a_2.so"}},
      // Text order puts a_1.2 first, and a_1.2.3 passes the tests as well.
      {{{"a_1.2.so", 1}, {"a_1.2.3.so", 2}}, {L"+a_1.2.so", L"+a_1.2.3.so"}},
      // The underscore sorts above the dot: a_1 comes first and a (0.0.0) loses.
      {{{"a.so", 1}, {"a_1.so", 2}}, {L"-a.so:2", L"+a_1.so"}},
      // Text order against numbers: a_9 is taken first and a_10 passes too.
      {{{"a_9.so", 1}, {"a_10.so", 2}}, {L"+a_9.so", L"+a_10.so"}},
      // No full ordering: against 2.1.0, 10.0.0 loses by its minor number.
      {{{"a_2.1.0.so", 1}, {"a_10.0.0.so", 2}}, {L"-a_10.0.0.so:2", L"+a_2.1.0.so"}},
      // A failed load is reason 0; a number of 20 digits saturates and parses.
      {{{"b_1.so", 0}, {"c_12345678901234567890.so", 3}}, {L"+c_12345678901234567890.so", L"-b_1.so:0"}},
  };
  int round = 0;
  for (auto const& c : cases) {
    q2test::temp_dir_t dir;
    for (auto const& file : c.files) {
      std::string const source = file.second == 0 ? plugin("libq2_test_plugin_unresolved.so")
                                                   : plugin("libq2_test_plugin_" + std::to_string(file.second) + ".so");
      q2test::write_file(dir.file(file.first), q2test::read_file(source));
    }
    q2test::write_file(dir.file("libq2_test_dep.so"), q2test::read_file(plugin("libq2_test_dep.so")));
    auto manager = quillon2::create_lib_manager();
    std::vector<std::wstring> events = scan(*this, *manager, dir.path());
    // The dependency library is itself a candidate (name libq2_test_dep): leave it out.
    std::vector<std::wstring> filtered;
    for (auto const& e : events)
      if (e.find(L"libq2_test_dep") == std::wstring::npos) filtered.push_back(e);
    EXPECT_EQ(filtered, c.events) << "case " << round;
    ++round;
  }
}

TEST_F(libs_test, manager_weighs_new_files_against_loaded_ones_and_skips_non_files) {
  install("p_1.so", 1);
  install("\xc3\xa9_1.so", 1);  // a name beyond ASCII is matched in its wide form
  ASSERT_EQ(::mkdir(m_dir.file("libx.so").c_str(), 0700), 0);
  q2test::write_file(m_dir.file("\xff\xfe_9.so"), "not UTF-8 in the name");
  auto manager = quillon2::create_lib_manager();
  auto first = scan(*this, *manager, m_dir.path());
  EXPECT_NE(std::find(first.begin(), first.end(), L"+p_1.so"), first.end());
  EXPECT_NE(std::find(first.begin(), first.end(), L"+\u00e9_1.so"), first.end());
  for (auto const& e : first) EXPECT_EQ(e.find(L"libx"), std::wstring::npos);
  int const count = manager->get_count();

  // Again: the same file counts as preferred; a newer one is loaded beside the old one.
  install("p_2.so", 2);
  auto second = scan(*this, *manager, m_dir.path());
  EXPECT_NE(std::find(second.begin(), second.end(), L"-p_1.so:2"), second.end());
  EXPECT_NE(std::find(second.begin(), second.end(), L"+p_2.so"), second.end());
  EXPECT_EQ(manager->get_count(), count + 1);
  quillon2::library_t* newest = manager->get_library(manager->get_count() - 1);
  ASSERT_NE(newest, nullptr);
  EXPECT_EQ(version_of(newest->get_symbol(L"plugin_version")), 2);
  EXPECT_EQ(newest->get_symbol(nullptr), nullptr);
}

TEST_F(libs_test, load_and_unload_from_eight_threads) {
  install("t.so", 3);
  std::vector<std::thread> threads;
  std::vector<int> sums(8, 0);
  for (int t = 0; t < 8; ++t)
    threads.emplace_back([&, t] {
      for (int i = 0; i < 20; ++i) {
        shared_lib_t lib(L"t.so", dir());
        if (!lib) continue;
        shared_lib_t copy = lib;
        lib.uninitialize();
        sums[static_cast<std::size_t>(t)] += version_of(copy.get_symbol(L"plugin_version"));
      }
    });
  for (auto& thread : threads) thread.join();
  for (int sum : sums) EXPECT_EQ(sum, 60);
}

}  // namespace
