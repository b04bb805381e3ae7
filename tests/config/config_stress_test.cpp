// The store's files under concurrent processes: loads while another process saves, and
// saves killed at random moments.
#include <signal.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <quillon2/core/config/advanced_xml_config.hpp>

#include "support/temp_dir.hpp"

namespace {

using quillon2::advanced_xml_config_t;
using quillon2::path_t;

constexpr int k_keys = 200;

// A thousand killed saves; fewer under AddressSanitizer, whose fork copies its large
// shadow mappings and would pass the test's time limit on a busy machine.
#if defined(__SANITIZE_ADDRESS__)
constexpr int k_killed_saves = 250;
#else
constexpr int k_killed_saves = 1000;
#endif

path_t native(std::string const& text) { return path_t(std::wstring(text.begin(), text.end())); }

// A store whose every value is `generation`, so that a mix of two saves shows.
advanced_xml_config_t generation_store(int generation) {
  advanced_xml_config_t config;
  for (int i = 0; i < k_keys; ++i) {
    config.set_value(L"group" + std::to_wstring(i % 10) + L".key" + std::to_wstring(i),
                     generation);
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

int exit_code(pid_t child) {
  int status = 0;
  if (::waitpid(child, &status, 0) != child) return -1;
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

class ConfigStressTest : public q2test::temp_dir_test {};

TEST_F(ConfigStressTest, TwoProcessesLoadWhileAThirdSaves) {
  path_t const path = native(m_dir.file("shared.xml"));
  advanced_xml_config_t first = generation_store(0);
  ASSERT_TRUE(first.save(path));

  pid_t const saver = ::fork();
  ASSERT_GE(saver, 0);
  if (saver == 0) {
    advanced_xml_config_t even = generation_store(2);
    advanced_xml_config_t odd = generation_store(1);
    int saved = 0;
    // A load holds a shared lock, which makes a save that meets it fail: try again.
    for (int attempt = 0; saved < 200 && attempt < 20000; ++attempt) {
      if ((attempt % 2 == 0 ? even : odd).save(path)) ++saved;
    }
    ::_exit(saved > 0 ? 0 : 1);
  }
  std::vector<pid_t> loaders;
  for (int i = 0; i < 2; ++i) {
    pid_t const loader = ::fork();
    ASSERT_GE(loader, 0);
    if (loader == 0) {
      for (int round = 0; round < 200; ++round) {
        if (!loads_whole(path)) ::_exit(1);
      }
      ::_exit(0);
    }
    loaders.push_back(loader);
  }
  for (pid_t loader : loaders) EXPECT_EQ(exit_code(loader), 0) << "a load failed";
  EXPECT_EQ(exit_code(saver), 0) << "no save went through";
  EXPECT_TRUE(loads_whole(path));
}

TEST_F(ConfigStressTest, KilledSavesNeverLeaveABrokenFile) {
  path_t const path = native(m_dir.file("killed.xml"));
  advanced_xml_config_t first = generation_store(0);
  ASSERT_TRUE(first.save(path));
  // Made before the children, so that each child starts saving at once.
  advanced_xml_config_t stores[2] = {generation_store(1), generation_store(2)};
  std::mt19937 random(12345);
  std::uniform_int_distribution<long> pause_ns(0, 2000000);
  for (int round = 0; round < k_killed_saves; ++round) {
    pid_t const child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
      for (;;) stores[round % 2].save(path);
    }
    struct timespec const pause = {0, pause_ns(random)};
    ::nanosleep(&pause, nullptr);
    ::kill(child, SIGKILL);
    ASSERT_EQ(exit_code(child), 128 + SIGKILL);
    ASSERT_TRUE(loads_whole(path)) << "round " << round;
  }
}

}  // namespace
