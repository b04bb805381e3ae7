// Loads arbitrary text as an element-form document. Whatever loads must save, and
// load -> save -> load -> save must give two identical texts: the element form reorders
// pointers behind values and shortens doubles, so a first load and its reload need not
// be equal bags, but the saved texts must be stable. A document without a document type
// declaration must read as it does with "<!DOCTYPE root>" added, which takes it through
// libxml2's tree instead of the streaming read: the same result and the same saved text. No
// input may crash, hang, leak or reach an assertion of the library.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cwchar>
#include <string>

#include <quillon2/das/variant.hpp>
#include <quillon2/das/variant_bag.hpp>
#include <quillon2/das/variant_bag_serialization.hpp>
#include <quillon2/headers/kesmet.hpp>

namespace {

[[noreturn]] void broken(char const* what) {
  std::fprintf(stderr, "bag_xml_fuzzer: %s\n", what);
  std::abort();
}

std::wstring text_of(quillon2::variant_t const& value) {
  wchar_t const* text = value.get<wchar_t const*>();
  return text != nullptr ? text : L"";
}

// The document with "<!DOCTYPE root>" after its XML declaration, or empty when it has a
// declaration of its own or does not start with markup.
std::wstring with_doctype(std::wstring const& input) {
  if (input.empty() || input[0] != L'<' || input.find(L"<!DOCTYPE") != std::wstring::npos) {
    return std::wstring();
  }
  std::size_t at = 0;
  if (input.compare(0, 5, L"<?xml") == 0) {
    at = input.find(L"?>");
    if (at == std::wstring::npos) return std::wstring();
    at += 2;
  }
  return input.substr(0, at) + L"<!DOCTYPE root>" + input.substr(at);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  std::wstring const input =
      KESMET_2_18::strings::utf8_to_utf16(std::string(reinterpret_cast<char const*>(data), size));
  quillon2::variant_bag_t bag;
  int const result =
      quillon2::load_variant_bag_from_string(bag, quillon2::variant_t(input.c_str()));
  std::wstring const declared = with_doctype(input);
  if (!declared.empty()) {
    // Compared by their saved texts: a NaN value makes two equal bags unequal.
    quillon2::variant_bag_t through_tree;
    quillon2::variant_t streamed_text;
    quillon2::variant_t tree_text;
    if (quillon2::load_variant_bag_from_string(through_tree,
                                               quillon2::variant_t(declared.c_str())) != result ||
        quillon2::save_variant_bag_to_string(bag, &streamed_text) !=
            quillon2::save_variant_bag_to_string(through_tree, &tree_text) ||
        text_of(streamed_text) != text_of(tree_text)) {
      broken("the streaming read and the read through the tree differ");
    }
  }
  if (result != 1) return 0;
  quillon2::variant_t first;
  if (quillon2::save_variant_bag_to_string(bag, &first) != 1) broken("a loaded bag does not save");
  quillon2::variant_bag_t again;
  if (quillon2::load_variant_bag_from_string(again, first) != 1) {
    broken("a saved bag does not load");
  }
  quillon2::variant_t second;
  if (quillon2::save_variant_bag_to_string(again, &second) != 1) {
    broken("a reloaded bag does not save");
  }
  if (text_of(first) != text_of(second)) broken("the saved text changed on a second round");
  return 0;
}
