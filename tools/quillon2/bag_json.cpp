// Bags as JSON text, for bag convert and the commands that read bags.
#include "common.hpp"

namespace q2cli {

int load_json(quillon2::variant_bag_t& /*bag*/, std::string const& /*text*/) {
  throw failure_t{"", "JSON is not available in this build"};
}

std::string save_json(quillon2::variant_bag_t const& /*bag*/, bool /*pretty*/, std::string const& name) {
  throw failure_t{name, "JSON is not available in this build"};
}

}  // namespace q2cli
