// The text layer's platform side: Unicode case data and numbers through a fixed
// C.UTF-8 locale object, codesets through nl_langinfo, conversions through iconv.
#include <errno.h>
#include <iconv.h>
#include <langinfo.h>
#include <locale.h>
#include <stdlib.h>
#include <wctype.h>

#include <cstring>
#include <string>

#include <quillon2/headers/kesmet.hpp>

#include "core/miscellaneous/include/text_os.hpp"

namespace quillon2::internal {

namespace {

// Locale objects made once and never freed: they outlive every static destructor
// that might still convert text.
locale_t utf8_locale() {
  static locale_t const locale = [] {
    locale_t l = newlocale(LC_CTYPE_MASK, "C.UTF-8", locale_t(0));
    if (l == locale_t(0)) l = newlocale(LC_CTYPE_MASK, "en_US.UTF-8", locale_t(0));
    return l;
  }();
  return locale;
}

locale_t c_locale() {
  static locale_t const locale = newlocale(LC_ALL_MASK, "C", locale_t(0));
  return locale;
}

class iconv_handle_t {
 public:
  iconv_handle_t(char const* to, char const* from) : m_cd(iconv_open(to, from)) {}
  ~iconv_handle_t() {
    if (ok()) iconv_close(m_cd);
  }
  iconv_handle_t(iconv_handle_t const&) = delete;
  iconv_handle_t& operator=(iconv_handle_t const&) = delete;
  bool ok() const { return m_cd != reinterpret_cast<iconv_t>(-1); }
  iconv_t get() const { return m_cd; }

 private:
  iconv_t m_cd;
};

// Runs the conversion of [in, in + n) into `out`; stops at the first part that cannot
// be converted and returns the errno of that stop (0 when everything went).
int run_iconv(iconv_t cd, char const*& in, std::size_t& n, std::string& out) {
  char buffer[4096];
  for (;;) {
    char* dst = buffer;
    std::size_t room = sizeof buffer;
    char* src = const_cast<char*>(in);
    std::size_t const result = iconv(cd, n ? &src : nullptr, &n, &dst, &room);
    int const error = result == static_cast<std::size_t>(-1) ? errno : 0;
    in = src;
    out.append(buffer, static_cast<std::size_t>(dst - buffer));
    if (error == E2BIG) continue;
    if (error != 0) return error;
    if (n == 0) {
      // Flush the shift state of stateful encodings.
      dst = buffer;
      room = sizeof buffer;
      iconv(cd, nullptr, nullptr, &dst, &room);
      out.append(buffer, static_cast<std::size_t>(dst - buffer));
      return 0;
    }
  }
}

}  // namespace

bool os_map_case(std::wstring& text, bool upper) {
  locale_t const locale = utf8_locale();
  if (locale == locale_t(0)) return false;
  for (wchar_t& c : text) {
    if (c < 0x80) {
      if (upper && c >= L'a' && c <= L'z') c -= 0x20;
      if (!upper && c >= L'A' && c <= L'Z') c += 0x20;
    } else if (c <= 0x10FFFF) {
      c = static_cast<wchar_t>(upper ? towupper_l(static_cast<wint_t>(c), locale)
                                     : towlower_l(static_cast<wint_t>(c), locale));
    }
  }
  return true;
}

std::string os_local_codeset() {
  char const* codeset = nl_langinfo(CODESET);
  if (codeset == nullptr || *codeset == '\0' || std::strcmp(codeset, "ANSI_X3.4-1968") == 0)
    return "ISO-8859-1";
  return codeset;
}

bool os_convert(std::string const& to, std::string const& from, std::string const& in,
                bool input_is_utf8, std::string& out) {
  iconv_handle_t cd(to.c_str(), from.c_str());
  if (!cd.ok()) return false;
  std::string result;
  result.reserve(in.size());
  char const* src = in.data();
  std::size_t left = in.size();
  std::string replacement;
  bool have_replacement = false;
  for (;;) {
    int const error = run_iconv(cd.get(), src, left, result);
    if (error == 0) break;
    if (!have_replacement) {
      iconv_handle_t question(to.c_str(), "UTF-8");
      char const* q = "?";
      std::size_t qn = 1;
      if (!question.ok() || run_iconv(question.get(), q, qn, replacement) != 0) replacement = "?";
      have_replacement = true;
    }
    result += replacement;
    if (error == EINVAL || left == 0) break;  // a sequence cut off at the end
    std::size_t skip = 1;
    if (input_is_utf8) skip = get_utf8_length(reinterpret_cast<unsigned char const*>(src), left);
    if (skip == 0 || skip > left) skip = left;
    src += skip;
    left -= skip;
    iconv(cd.get(), nullptr, nullptr, nullptr, nullptr);  // back to the initial state
    if (left == 0) break;
  }
  out.swap(result);
  return true;
}

double os_parse_c_double(char const* text, char** end) {
  locale_t const locale = c_locale();
  if (locale == locale_t(0)) return strtod(text, end);
  return strtod_l(text, end, locale);
}

}  // namespace quillon2::internal
