// Turns arbitrary text into console text. Every anchor is parsed as XML, so this also
// throws hostile XML at the attribute-form reader. No input may crash, hang or leak, and
// since every replacement is shorter than what it replaces, the result is never longer
// than the input.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include <quillon2/core/text_helpers.hpp>
#include <quillon2/headers/kesmet.hpp>

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  std::wstring const input =
      KESMET_2_18::strings::utf8_to_utf16(std::string(reinterpret_cast<char const*>(data), size));
  std::wstring const output = quillon2::removeHtmlMarkupFromText(input);
  if (output.size() > input.size()) {
    std::fprintf(stderr, "html_markup_fuzzer: the console text grew\n");
    std::abort();
  }
  return 0;
}
