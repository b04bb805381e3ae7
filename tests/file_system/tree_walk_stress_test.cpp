// Recursive removal and copy while another thread keeps swapping a directory of the
// tree for a symbolic link to a directory outside it, and back. Whatever the timing,
// nothing outside the tree may be removed, and nothing outside it may be copied.
#include <stdio.h>

#include <atomic>
#include <thread>

#include <boost/thread/barrier.hpp>

#include <quillon2/core/file_system/file_operations.hpp>

#include "file_system/fs_support.hpp"

namespace {

namespace q2 = quillon2;

constexpr int k_rounds = 30;
constexpr int k_directories = 8;
constexpr std::size_t k_files = 6;

class TreeWalkRace : public q2test::fs_test {
 protected:
  void SetUp() override {
    mkdir("outside");
    for (std::size_t i = 0; i < k_files; ++i) write("outside/keep" + std::to_string(i));
  }
  void make_tree() const {
    make({"t/", "t/victim/", "t/victim/mine"});
    for (int d = 0; d < k_directories; ++d) {
      mkdir("t/d" + std::to_string(d));
      for (std::size_t i = 0; i < k_files; ++i)
        write("t/d" + std::to_string(d) + "/f" + std::to_string(i));
    }
  }
  std::size_t outside_files_left() const {
    return q2::find_files(at("outside"), L"keep*", false).size();
  }

  // Runs `walk` while a second thread swaps t/victim for a link to outside and back.
  template <class Walk>
  void race(Walk walk) {
    std::atomic<bool> stop{false};
    boost::barrier start(2);
    std::string const victim = native("t/victim");
    std::string const parked = native("t/parked");
    std::string const outside = native("outside");
    std::thread swapper([&] {
      start.wait();
      while (!stop.load()) {
        // Errors are expected once the walk has taken things away.
        if (::rename(victim.c_str(), parked.c_str()) == 0) {
          if (::symlink(outside.c_str(), victim.c_str()) == 0) ::unlink(victim.c_str());
          ::rename(parked.c_str(), victim.c_str());
        } else {
          ::symlink(outside.c_str(), victim.c_str());
          ::unlink(victim.c_str());
        }
      }
    });
    start.wait();
    walk();
    stop.store(true);
    swapper.join();
  }
};

TEST_F(TreeWalkRace, RemovalNeverLeavesTheTree) {
  for (int round = 0; round < k_rounds; ++round) {
    make_tree();
    race([&] { q2::remove_directory(at("t"), true); });
    ASSERT_EQ(k_files, outside_files_left()) << "in round " << round;
    // Clear what the race left, with nothing swapping now.
    ::unlink(native("t/victim").c_str());
    q2::remove_directory(at("t"), true);
  }
}

TEST_F(TreeWalkRace, CopyNeverTakesWhatIsOutside) {
  make_tree();
  for (int round = 0; round < k_rounds; ++round) {
    std::string const target = "copy" + std::to_string(round);
    race([&] { q2::copy_directory(at("t"), at(target)); });
    // A followed link would have brought the outside files along as files.
    EXPECT_TRUE(q2::find_files(at(target), L"*keep*", true).empty()) << "in round " << round;
    q2::remove_directory(at(target), true);
    ASSERT_EQ(k_files, outside_files_left());
  }
}

}  // namespace
