// The store's files under concurrent processes: loads while another process saves, and
// saves killed at random moments. The processes are fresh copies of this program.
#include <signal.h>
#include <time.h>

#include <random>

#include <quillon2/core/config/advanced_xml_config.hpp>

#include "file_system/fs_support.hpp"

namespace {

using quillon2::advanced_xml_config_t;
using quillon2::path_t;

constexpr int k_keys = 200;

// Each killed save starts a copy of the program: fewer under AddressSanitizer, whose
// copies start slower.
#if defined(__SANITIZE_ADDRESS__)
constexpr int k_killed_saves = 30;
#else
constexpr int k_killed_saves = 100;
#endif

// A store whose every value is `generation`, so that a mix of two saves shows.
advanced_xml_config_t generation_store(int generation) {
  advanced_xml_config_t config;
  for (int i = 0; i < k_keys; ++i) {
    config.set_value(L"group" + std::to_wstring(i % 10) + L".key" + std::to_wstring(i), generation);
  }
  return config;
}

// Whether the file loads and holds one whole generation.
bool loads_whole(path_t const& path) {
  advanced_xml_config_t config;
  if (!config.load(path)) return false;
  std::vector<std::wstring> names;
  config.get_names(names);
  if (names.size() != static_cast<std::size_t>(k_keys)) return false;
  int const generation = boost::any_cast<int>(config.get_value(names.front(), -1));
  for (auto const& name : names) {
    boost::any const value = config.get_value(name, boost::any());
    if (value.type() != typeid(int) || boost::any_cast<int>(value) != generation) return false;
  }
  return true;
}

class ConfigStress : public q2test::fs_test {
 protected:
  // What a child is to do: "saver", "loader", or the generation it saves until killed.
  std::string const m_role = in_child() ? ::getenv("Q2_ROLE") : "";
};

TEST_F(ConfigStress, TwoProcessesLoadWhileAThirdSaves) {
  path_t const path = at("shared.xml");
  if (in_child() && m_role == "saver") {
    advanced_xml_config_t stores[2] = {generation_store(1), generation_store(2)};
    int saved = 0;
    // A load holds a shared lock, which makes a save that meets it fail: try again.
    for (int attempt = 0; saved < 200 && attempt < 20000; ++attempt) {
      saved += stores[attempt % 2].save(path) ? 1 : 0;
    }
    EXPECT_GT(saved, 0) << "no save went through";
    return;
  }
  if (in_child()) {
    for (int round = 0; round < 200; ++round) ASSERT_TRUE(loads_whole(path)) << round;
    return;
  }
  advanced_xml_config_t first = generation_store(0);
  ASSERT_TRUE(first.save(path));
  for (pid_t child : {start_child({"Q2_ROLE=saver"}), start_child({"Q2_ROLE=loader"}),
                      start_child({"Q2_ROLE=loader"})}) {
    EXPECT_EQ(exit_status(child), 0);
  }
  EXPECT_TRUE(loads_whole(path));
}

TEST_F(ConfigStress, KilledSavesNeverLeaveABrokenFile) {
  path_t const path = at("killed.xml");
  if (in_child()) {
    advanced_xml_config_t store = generation_store(std::stoi(m_role));
    ::rmdir(m_dir.path().c_str());  // the kill leaves no time to remove it
    ASSERT_EQ(1, ::write(std::stoi(::getenv("Q2_READY")), "r", 1));
    for (;;) store.save(path);
  }
  advanced_xml_config_t first = generation_store(0);
  ASSERT_TRUE(first.save(path));
  std::mt19937 random(12345);
  std::uniform_int_distribution<long> pause_ns(0, 2000000);
  for (int round = 0; round < k_killed_saves; ++round) {
    int ready[2];
    ASSERT_EQ(0, ::pipe(ready));
    pid_t const child = start_child(
        {"Q2_ROLE=" + std::to_string(1 + round % 2), "Q2_READY=" + std::to_string(ready[1])});
    ::close(ready[1]);
    ASSERT_GT(child, 0);  // never kill(-1)
    char byte = 0;
    bool const started = ::read(ready[0], &byte, 1) == 1;  // it is about to save
    ::close(ready[0]);
    struct timespec const pause = {0, pause_ns(random)};
    ::nanosleep(&pause, nullptr);
    ::kill(child, SIGKILL);
    ASSERT_TRUE(started);
    ASSERT_EQ(exit_status(child), 128 + SIGKILL);
    ASSERT_TRUE(loads_whole(path)) << "round " << round;
  }
}

}  // namespace
