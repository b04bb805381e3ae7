// Loads arbitrary bytes as JSON text into a bag. Whatever loads must save, and the saved
// text must load again and save to the same text: load -> save -> load -> save gives two
// identical texts, or, where a big integer moved behind the values, a third round does. No input may crash, hang, leak or reach an assertion of the library
// (scripts/fuzz makes every assertion report end the run).
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <sstream>
#include <string>

#include <unistd.h>

#include <quillon2/das/json.hpp>
#include <quillon2/das/variant_bag.hpp>

namespace {

[[noreturn]] void broken(char const* what, std::string const& detail) {
  std::fprintf(stderr, "bag_json_fuzzer: %s\n%s\n", what, detail.c_str());
  std::abort();
}

std::string save(quillon2::variant_bag_t const& bag, quillon2::json::JSONFormat format) {
  std::ostringstream out;
  quillon2::json::save_variant_bag_to_json_string(bag, out, format);
  return out.str();
}

// Refused texts are logged; the run needs no log lines.
void silence_logging() {
  char name[] = "/tmp/bag_json_fuzzer_log_XXXXXX";
  int const fd = mkstemp(name);
  if (fd < 0) return;
  static char const config[] = "log4cplus.rootLogger=OFF\n";
  if (write(fd, config, sizeof(config) - 1) == static_cast<ssize_t>(sizeof(config) - 1)) {
    setenv("QUILLON_LOG_CONFIG", name, 1);
  }
  close(fd);
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  silence_logging();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  std::string const input(reinterpret_cast<char const*>(data), size);
  quillon2::variant_bag_t bag;
  if (!quillon2::json::load_variant_bag_from_json_string(input, bag).is_ok()) return 0;
  std::string const first = save(bag, quillon2::json::Compact);
  quillon2::variant_bag_t again;
  if (!quillon2::json::load_variant_bag_from_json_string(first, again).is_ok()) {
    broken("a saved bag does not load", first);
  }
  std::string const second = save(again, quillon2::json::Compact);
  if (first != second) {
    // A big integer is saved as an object that reads back as a nested bag, which is saved
    // behind the values: such a text settles one round later, and then stays.
    quillon2::variant_bag_t settled;
    if (!quillon2::json::load_variant_bag_from_json_string(second, settled).is_ok() ||
        save(settled, quillon2::json::Compact) != second) {
      broken("the saved text changed on a second round", first + "\n" + second);
    }
  }
  // The readable form holds the same content.
  quillon2::variant_bag_t pretty;
  if (!quillon2::json::load_variant_bag_from_json_string(save(bag, quillon2::json::Pretty), pretty)
           .is_ok() ||
      save(pretty, quillon2::json::Compact) != second) {
    broken("the readable form reads back differently", first);
  }
  return 0;
}
