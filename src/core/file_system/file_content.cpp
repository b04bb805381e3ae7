// Text file content: encoding detection, reading and writing whole files, and the
// XML declaration rules. The bytes come and go through the platform layer; the
// conversions are the text layer's. Wide strings hold code points, so UTF-16 is
// written here unit by unit, with surrogate pairs for what lies beyond 16 bits.
#include <locale>

#include <quillon2/core/file_system/file_content.hpp>

#include "core/das/include/xml_file_io.hpp"
#include "core/file_system/include/atomic_save.hpp"
#include "core/file_system/include/file_system_os.hpp"

namespace quillon2 {

namespace {

namespace os = internal::fs_os;
namespace text = KESMET_2_18::strings;

constexpr char k_utf8_declaration[] = "<?xml version='1.0' encoding='UTF-8'?>\n";
constexpr char k_utf16_declaration[] = "<?xml version='1.0' encoding='UTF-16'?>\n";

// The local 8-bit encoding of the text layer.
text::code_page local_code_page() {
  return text::code_page(text::encoding_type(text::encoding_type::local));
}

// UTF-16 bytes as UTF-8. The units are read little-endian; a text that then starts
// with a swapped mark (the bytes FE FF) is swapped back, the mark goes, and the
// conversion joins surrogate pairs. A last odd byte is dropped.
text::ustring8 decode_utf16(std::string const& bytes) {
  text::ustring16 units(bytes.size() / 2, L'\0');
  for (std::size_t i = 0; i < units.size(); ++i) {
    units[i] = static_cast<wchar_t>(static_cast<unsigned char>(bytes[2 * i]) |
                                    static_cast<unsigned char>(bytes[2 * i + 1]) << 8);
  }
  text::check_BOM_and_modify_swap(units);
  return text::utf16_to_utf8(text::remove_BOM(units));
}

// Code points to little-endian UTF-16 bytes behind the mark FF FE.
std::string encode_utf16(std::wstring const& code_points) {
  std::string out;
  out.reserve(2 + 2 * code_points.size());
  auto const put = [&](unsigned u) {
    out += static_cast<char>(u & 0xFF);
    out += static_cast<char>(u >> 8);
  };
  put(0xFEFF);
  for (wchar_t const c : code_points) {
    auto u = static_cast<std::uint32_t>(c);
    if (u > 0x10FFFF || (u >= 0xD800 && u <= 0xDFFF)) u = 0xFFFD;
    if (u < 0x10000) {
      put(u);
    } else {
      u -= 0x10000;
      put(0xD800 + (u >> 10));
      put(0xDC00 + (u & 0x3FF));
    }
  }
  return out;
}

// What the bytes of a file hold: a UTF-16 mark, a UTF-8 mark, or a scan for valid
// UTF-8.
code_page_t detect_code_page(std::string const& bytes) {
  std::size_t const n = bytes.size();
  auto const* data = reinterpret_cast<unsigned char const*>(bytes.data());
  if (n == 0) return CP_LOCAL;
  if (n >= 2 && ((data[0] == 0xFF && data[1] == 0xFE) || (data[0] == 0xFE && data[1] == 0xFF))) {
    return CP_UTF16;
  }
  if (n >= 3 && data[0] == 0xEF && data[1] == 0xBB && data[2] == 0xBF) return CP_UTF8;
  if (n == 1) return CP_UTF8;
  // The scan stops short of the last byte: a lone last byte is never examined.
  std::size_t offset = 0;
  while (offset < n - 1) {
    if (!ql2::validate_utf8(data + offset, n - offset)) return CP_LOCAL;
    std::size_t const length = ql2::get_utf8_length(data + offset, n - offset);
    offset += length > 0 ? length : 1;
  }
  return CP_UTF8;
}

// The bytes of a file, in the encoding cp, as UTF-8.
text::ustring8 decode_text(code_page_t cp, std::string const& bytes) {
  if (bytes.empty()) return text::ustring8();
  switch (cp) {
    case CP_UTF8:
      return text::remove_BOM(bytes);
    case CP_UTF16:
      return decode_utf16(bytes);
    default:
      return local_code_page().as_utf8(bytes);
  }
}

// The file's first max_bytes bytes (all for 0) as UTF-8, read in the encoding cp.
text::ustring8 read_text(code_page_t cp, path_t const& path, u64_t max_bytes) {
  std::string bytes;
  if (!os::read_file(path.native_string(), max_bytes, bytes)) return text::ustring8();
  return decode_text(cp, bytes);
}

bool write_text(text::ustring8 const& utf8, code_page_t cp, path_t const& path) {
  switch (cp) {
    case CP_UTF8:
      return internal::atomic_save(path.native_string(), utf8).ok;
    case CP_UTF16:
      return internal::atomic_save(path.native_string(), encode_utf16(text::utf8_to_utf16(utf8)))
          .ok;
    default:
      return internal::atomic_save(path.native_string(), local_code_page().encode(utf8)).ok;
  }
}

bool contains(std::string const& haystack, char const* needle) {
  return haystack.find(needle) != std::string::npos;
}

}  // namespace

code_page_t get_file_cp(path_t const& path, u64_t max_bytes) {
  std::string bytes;
  if (!os::read_file(path.native_string(), max_bytes, bytes)) return CP_UNKNOWN;
  return detect_code_page(bytes);
}

std::wstring get_file_content(code_page_t cp, path_t const& path, u64_t max_bytes) {
  return text::utf8_to_utf16(read_text(cp, path, max_bytes));
}

bool set_file_content(std::wstring const& content, code_page_t cp, path_t const& path) {
  return write_text(text::utf16_to_utf8(content), cp, path);
}

text::ustring8 get_xml_file_content(path_t const& path) {
  std::string bytes;
  if (!os::read_file(path.native_string(), 0, bytes)) return text::ustring8();
  return internal::xml_file_text(bytes);
}

std::string internal::xml_file_text(std::string const& bytes) {
  code_page_t const cp = detect_code_page(bytes);
  text::ustring8 content = decode_text(cp, bytes);
  std::size_t const end = content.find("?>");
  if (end == text::ustring8::npos) return content;
  std::string declaration = content.substr(0, end + 2);
  std::locale const locale;
  auto const& ctype = std::use_facet<std::ctype<char>>(locale);
  ctype.toupper(&declaration[0], &declaration[0] + declaration.size());
  content.erase(0, end + 2);
  switch (cp) {
    case CP_UTF8:
      return contains(declaration, "UTF-8") ? content : text::ustring8();
    case CP_UTF16:
      return contains(declaration, "UTF-16") ? content : text::ustring8();
    default:
      return text::ustring8();
  }
}

bool set_xml_file_content(text::ustring8 const& content, code_page_t cp, path_t const& path) {
  if (content.find("?>") != text::ustring8::npos) return false;
  if (cp == CP_UTF8) return write_text(k_utf8_declaration + content, cp, path);
  if (cp == CP_UTF16) return write_text(k_utf16_declaration + content, cp, path);
  return false;
}

}  // namespace quillon2
