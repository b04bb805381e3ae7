// Loads arbitrary text as an attribute-form document, twice over: as a whole (the
// document element becomes a child bag) and with the filter "*" (its content becomes the
// bag). Whatever loads must save, and the saved text must be stable by the second
// round of load -> save. Bags are not compared: the form drops blob bytes, reorders
// attributes and writes a pointer named "a:p" as the element "pointer:p" (which reads
// back as "p") by design, so a first load and its reload need not be equal bags; one
// more round gives the same text again. No input may crash, hang or leak.
//
// The one assertion that input can reach on purpose is a pointer element without a type
// ("!type_id.empty()"); any other assertion report ends the run, as scripts/fuzz wants.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include <quillon2/core/assert.hpp>
#include <quillon2/das/variant.hpp>
#include <quillon2/das/variant_bag.hpp>
#include <quillon2/das/variant_bag_serialization2.hpp>

namespace {

[[noreturn]] void broken(char const* what, std::string const& detail = std::string()) {
  std::fprintf(stderr, "bag_xml2_fuzzer: %s\n%s\n", what, detail.c_str());
  std::abort();
}

void check_assertion(char const* condition, char const* file, unsigned line, char const*) {
  if (std::strcmp(condition, "!type_id.empty()") == 0) return;
  std::fprintf(stderr, "%s(%u): assertion failed: %s\n", file, line, condition);
  std::abort();
}

// The bag's root path when saved: under the whole-document load the document element is a
// child bag of its own, so a root path of one step is enough either way.
void round_trip(std::string const& input, wchar_t const* path) {
  quillon2::variant_bag_t bag;
  if (quillon2::load_variant_bag_from_string2(bag, input, path) != 1) return;
  std::string first;
  if (quillon2::save_variant_bag_to_string2(bag, first, L"doc") != 1) {
    // A whole-document load adds a level: a document at the depth limit cannot take it.
    if (path == nullptr) return;
    broken("a loaded bag does not save", input);
  }
  quillon2::variant_bag_t again;
  if (quillon2::load_variant_bag_from_string2(again, first, L"doc") != 1) {
    broken("a saved bag does not load", first);
  }
  std::string second;
  if (quillon2::save_variant_bag_to_string2(again, second, L"doc") != 1) {
    broken("a reloaded bag does not save", first);
  }
  if (first == second) return;
  quillon2::variant_bag_t third_bag;
  std::string third;
  if (quillon2::load_variant_bag_from_string2(third_bag, second, L"doc") != 1 ||
      quillon2::save_variant_bag_to_string2(third_bag, third, L"doc") != 1 || second != third) {
    broken("the saved text changed on a third round", second + "\n" + third);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  static bool const initialised = [] {
    unsetenv("QUILLON_ASSERT_ABORT");  // the hook decides which reports end the run
    quillon2::internal::set_assert_hook(check_assertion);
    return true;
  }();
  (void)initialised;
  std::string const input(reinterpret_cast<char const*>(data), size);
  round_trip(input, L"*");
  round_trip(input, nullptr);
  return 0;
}
