// Starts a program as a child of the test, without the copied locks of a fork.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

namespace q2test {

// Starts `argv[0]` with the arguments `argv`, this process's environment plus `extra_env`
// ("NAME=value" each), and every inherited descriptor but those in `close_fds`.
// Returns the child's pid, or -1 when it could not start.
pid_t spawn(std::vector<std::string> const& argv, std::vector<std::string> const& extra_env,
            std::vector<int> const& close_fds = {});

}  // namespace q2test
