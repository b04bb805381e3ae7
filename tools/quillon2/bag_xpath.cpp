// quillon2 bag xpath.
#include "common.hpp"

namespace q2cli {

void add_bag_xpath_command(CLI::App* /*bag*/) {}

}  // namespace q2cli
