// RELAX NG validation of XML texts, and the placeholders of the TOML form.
//
// The schema and the document are parsed behind the refusing entity loader: a schema
// that includes or references other files, or a document with an external DTD, cannot
// make libxml2 read them, and such a schema simply fails to compile.
#include <climits>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <string>

#include <libxml/relaxng.h>

#include <quillon2/das/type_factory.hpp>
#include <quillon2/das/variant_bag_serialization2.hpp>
#include <quillon2/das/variant_bag_visitor.hpp>
#include <quillon2/headers/kesmet.hpp>

#include "core/das/include/xml_safety.hpp"

namespace quillon2 {

namespace {

// Formats a message of libxml2 into 1024 bytes (1023 characters at most) and hands it on.
void report(void* context, int severity, char const* format, va_list arguments) {
  auto* callback = static_cast<check_relaxng_callback_t*>(context);
  if (callback == nullptr) return;
  char buffer[1024];
  std::memset(buffer, 0, sizeof buffer);
  std::vsnprintf(buffer, sizeof buffer, format, arguments);
  callback->on_message(severity, buffer);
}

void report_error(void* context, char const* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  report(context, 1, format, arguments);
  va_end(arguments);
}

void report_warning(void* context, char const* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  report(context, 0, format, arguments);
  va_end(arguments);
}

}  // namespace

int check_relaxng(char const* xml, char const* schema, check_relaxng_callback_t* callback) {
  if (xml == nullptr || schema == nullptr) return DAS_E_FAIL;
  std::size_t const schema_length = std::strlen(schema);
  if (schema_length > static_cast<std::size_t>(INT_MAX)) return DAS_E_FAIL;
  internal::ensure_xml_safety();
  internal::refusal_watch_t watch;

  xmlRelaxNGParserCtxtPtr parser =
      xmlRelaxNGNewMemParserCtxt(schema, static_cast<int>(schema_length));
  xmlRelaxNGPtr compiled = nullptr;
  if (parser != nullptr) {
    xmlRelaxNGSetParserErrors(parser, report_error, report_warning, callback);
    compiled = xmlRelaxNGParse(parser);
    xmlRelaxNGFreeParserCtxt(parser);
  }

  internal::xml_doc_ptr_t doc = internal::safe_read_memory(xml, std::strlen(xml), nullptr, 0);
  if (!doc) {
    if (compiled != nullptr) xmlRelaxNGFree(compiled);
    return DAS_E_FAIL;
  }

  int validation = -1;
  xmlRelaxNGValidCtxtPtr validator = xmlRelaxNGNewValidCtxt(compiled);
  if (validator != nullptr) {
    xmlRelaxNGSetValidErrors(validator, report_error, report_warning, callback);
    validation = xmlRelaxNGValidateDoc(validator, doc.get());
    xmlRelaxNGFreeValidCtxt(validator);
  }
  doc.reset();
  if (compiled != nullptr) xmlRelaxNGFree(compiled);
  // A schema that needed an external resource was refused it and cannot be trusted.
  if (watch.refused()) return DAS_E_FAIL;
  return validation == 0 ? DAS_OK : DAS_E_FAIL;
}

int check_relaxng(wchar_t const* xml, wchar_t const* schema, check_relaxng_callback_t* callback) {
  if (xml == nullptr || schema == nullptr) return DAS_E_FAIL;
  std::string const narrow_xml = KESMET_2_18::strings::utf16_to_utf8(xml);
  std::string const narrow_schema = KESMET_2_18::strings::utf16_to_utf8(schema);
  return check_relaxng(narrow_xml.c_str(), narrow_schema.c_str(), callback);
}

int load_variant_bag_from_toml(variant_bag_t&, wchar_t const*, wchar_t const*) {
  return DAS_E_FAIL;
}

int save_variant_bag_to_toml(variant_bag_t const&, wchar_t const*, wchar_t const*) {
  return DAS_E_FAIL;
}

}  // namespace quillon2
