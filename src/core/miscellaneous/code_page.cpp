// Named encodings and conversion between UTF-8 and a code page.
#include <string>
#include <utility>

#include <quillon2/headers/kesmet.hpp>

#include "core/miscellaneous/include/text_os.hpp"

namespace KESMET_2_18::strings {

namespace {

std::string name_of_number(int id) {
  switch (id) {
    case 0:
    case encoding_type::local:
      return quillon2::internal::os_local_codeset();
    case 65001:
      return "UTF-8";
    case 1200:
      return "UTF-16LE";
    case 1201:
      return "UTF-16BE";
    case 20127:
      return "ASCII";
    default:
      break;
  }
  if (id >= 28591 && id <= 28599) return "ISO-8859-" + std::to_string(id - 28590);
  return "CP" + std::to_string(id);
}

// What an unknown encoding gives: ASCII as it is, '?' for every other character.
std::string ascii_only(std::string const& text, bool input_is_utf8) {
  std::string out;
  out.reserve(text.size());
  auto const* p = reinterpret_cast<unsigned char const*>(text.data());
  std::size_t i = 0;
  while (i < text.size()) {
    if (p[i] < 0x80) {
      out.push_back(static_cast<char>(p[i]));
      ++i;
      continue;
    }
    out.push_back('?');
    i += input_is_utf8 ? quillon2::get_utf8_length(p + i, text.size() - i) : 1;
  }
  return out;
}

}  // namespace

encoding_type::encoding_type(int id) : m_name(name_of_number(id)) {}

encoding_type::encoding_type(char const* name) : m_name(name ? name : "") {}

encoding_type::encoding_type(std::string name) : m_name(std::move(name)) {}

code_page::code_page(encoding_type const& encoding) : m_name(encoding.name()) {
  std::string probe;
  m_known = !m_name.empty() && quillon2::internal::os_convert(m_name, "UTF-8", "", true, probe);
}

code_page::~code_page() = default;
code_page::code_page(code_page const&) = default;
code_page& code_page::operator=(code_page const&) = default;

std::string code_page::encode(ustring8 const& text) const {
  std::string out;
  if (m_known && quillon2::internal::os_convert(m_name, "UTF-8", text, true, out)) return out;
  return ascii_only(text, true);
}

ustring8 code_page::as_utf8(std::string const& bytes) const {
  std::string out;
  if (m_known && quillon2::internal::os_convert("UTF-8", m_name, bytes, false, out)) return out;
  return ascii_only(bytes, false);
}

}  // namespace KESMET_2_18::strings

namespace quillon2 {

std::string to_ansi(std::wstring const& text) {
  std::string const codeset = internal::os_local_codeset();
  std::string const utf8 = KESMET_2_18::strings::utf16_to_utf8(text);
  std::string out;
  if (internal::os_convert(codeset, "UTF-8", utf8, true, out)) return out;
  return KESMET_2_18::strings::code_page(codeset).encode(utf8);
}

}  // namespace quillon2
