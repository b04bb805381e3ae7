// Case mapping of the text layer. The system's Unicode data does the work; when the
// system has none, a table of our own covers ASCII, Latin-1 and Latin Extended-A.
#include <quillon2/headers/kesmet.hpp>

#include "core/miscellaneous/include/text_os.hpp"

namespace KESMET_2_18::strings {

namespace {

wchar_t fallback_upper(wchar_t c) {
  if (c >= L'a' && c <= L'z') return c - 0x20;
  if (c < 0xB5) return c;
  if (c == 0xB5) return 0x39C;
  if (c >= 0xE0 && c <= 0xFE && c != 0xF7) return c - 0x20;
  if (c == 0xFF) return 0x178;
  if (c == 0x131) return L'I';
  if (c == 0x17F) return L'S';
  if ((c >= 0x100 && c <= 0x137) || (c >= 0x14A && c <= 0x177)) return c & ~1;
  if ((c >= 0x139 && c <= 0x148) || (c >= 0x179 && c <= 0x17E)) return (c % 2 == 0) ? c - 1 : c;
  return c;
}

wchar_t fallback_lower(wchar_t c) {
  if (c >= L'A' && c <= L'Z') return c + 0x20;
  if (c < 0xC0) return c;
  if (c >= 0xC0 && c <= 0xDE && c != 0xD7) return c + 0x20;
  if (c == 0x130) return L'i';
  if (c == 0x178) return 0xFF;
  if ((c >= 0x100 && c <= 0x137) || (c >= 0x14A && c <= 0x177)) return c | 1;
  if ((c >= 0x139 && c <= 0x148) || (c >= 0x179 && c <= 0x17E)) return (c % 2 == 1) ? c + 1 : c;
  return c;
}

ustring16 map_case(ustring16 text, bool upper) {
  if (quillon2::internal::os_map_case(text, upper)) return text;
  for (wchar_t& c : text) c = upper ? fallback_upper(c) : fallback_lower(c);
  return text;
}

}  // namespace

ustring16 to_upper(ustring16 const& text) { return map_case(text, true); }

ustring16 to_lower(ustring16 const& text) { return map_case(text, false); }

}  // namespace KESMET_2_18::strings
