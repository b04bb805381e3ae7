// Bags as JSON text, for bag convert and the commands that read bags.
#include <sstream>

#include "common.hpp"

namespace q2cli {

int load_json(quillon2::variant_bag_t& bag, std::string const& text) {
  quillon2::error_code_t const code = quillon2::json::load_variant_bag_from_json_string(text, bag);
  if (code.failed()) {
    // The sentence's text in parentheses is the reader's own reason.
    std::string const sentence = code.as_string(0);
    std::size_t const open = sentence.find('(');
    std::size_t const close = sentence.rfind(')');
    throw failure_t{"", open != std::string::npos && close > open
                            ? sentence.substr(open + 1, close - open - 1)
                            : sentence};
  }
  return 1;
}

std::string save_json(quillon2::variant_bag_t const& bag, bool pretty, std::string const& /*name*/) {
  std::ostringstream text;
  quillon2::json::save_variant_bag_to_json_string(bag, text, pretty ? quillon2::json::Pretty
                                                                    : quillon2::json::Compact);
  std::string json = text.str();
  if (json.empty() || json.back() != '\n') json += '\n';
  return json;
}

}  // namespace q2cli
