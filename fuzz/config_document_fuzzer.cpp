// Parses arbitrary text as a configuration document and saves it with save_xml_document.
// A saved file must hold exactly what libxml2's indenting formatter prints for the
// document, and must read back; a document that is not saved must leave the old file
// as it was. No input may crash, hang, leak or reach an assertion of the library.
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>

#include <libxml/parser.h>
#include <libxml/tree.h>

#include <quillon2/core/config/advanced_xml_config.hpp>

namespace {

[[noreturn]] void broken(char const* what) {
  std::fprintf(stderr, "config_document_fuzzer: %s\n", what);
  std::abort();
}

std::string const& target() {
  static std::string const name = (::access("/dev/shm", W_OK) == 0 ? "/dev/shm" : "/tmp") +
                                  std::string("/q2_config_fuzz_") + std::to_string(::getpid());
  return name;
}

std::string content() {
  std::ifstream in(target(), std::ios::binary);
  std::ostringstream text;
  text << in.rdbuf();
  return text.str();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  xmlDoc* document =
      xmlReadMemory(reinterpret_cast<char const*>(data), static_cast<int>(size), nullptr, nullptr,
                    XML_PARSE_NOERROR | XML_PARSE_NOWARNING | XML_PARSE_NONET | XML_PARSE_COMPACT);
  if (document == nullptr) return 0;
  {
    std::ofstream(target(), std::ios::binary) << "old";
  }
  quillon2::path_t const path(std::wstring(target().begin(), target().end()));
  if (quillon2::save_xml_document(path, document)) {
    xmlChar* memory = nullptr;
    int length = 0;
    xmlDocDumpFormatMemoryEnc(document, &memory, &length, "UTF-8", 1);
    std::string const expected(reinterpret_cast<char const*>(memory),
                               static_cast<std::size_t>(length));
    xmlFree(memory);
    if (content() != expected) broken("a saved document differs from libxml2's formatting");
    xmlDoc* again = quillon2::open_xml_document(path);
    if (again == nullptr) broken("a saved document does not read back");
    xmlFreeDoc(again);
  } else if (content() != "old") {
    broken("a refused save changed the file");
  }
  xmlFreeDoc(document);
  ::unlink(target().c_str());
  return 0;
}
