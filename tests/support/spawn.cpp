#include "support/spawn.hpp"

#include <spawn.h>
#include <unistd.h>

extern char** environ;

namespace q2test {

namespace {

std::vector<char*> pointers(std::vector<std::string>& texts) {
  std::vector<char*> list;
  for (auto& text : texts) list.push_back(text.data());
  list.push_back(nullptr);
  return list;
}

}  // namespace

pid_t spawn(std::vector<std::string> const& argv, std::vector<std::string> const& extra_env,
            std::vector<int> const& close_fds) {
  std::vector<std::string> args = argv;
  std::vector<std::string> env = extra_env;
  for (char** e = environ; *e != nullptr; ++e) env.emplace_back(*e);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  for (int fd : close_fds) posix_spawn_file_actions_addclose(&actions, fd);
  pid_t pid = -1;
  int const rc = posix_spawn(&pid, args.at(0).c_str(), &actions, nullptr, pointers(args).data(),
                             pointers(env).data());
  posix_spawn_file_actions_destroy(&actions);
  return rc == 0 ? pid : -1;
}

}  // namespace q2test
