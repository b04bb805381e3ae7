// Fuzzing the path grammar. Each input is read twice: as UTF-8 text, the way paths
// come from files and command lines, and as raw wide units, whatever a caller may
// hold in a std::wstring (NULs, surrogates and values beyond Unicode included).
//
// What must hold for every text:
// - validate agrees with the constructor: it accepts exactly the texts that give a
//   path other than the empty one, reports -1 then and an offset inside the text
//   otherwise, and refusing wildcards only ever refuses more;
// - parse -> print -> parse gives an equal path, and printing is stable. The long
//   prefix is a spelling that makes a path non-POSIX, and the printed form of a short
//   path drops it (a long one gains it), so for texts where that happens the printed
//   form is checked to read back equal from the second round on.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include <quillon2/core/file_system/path.hpp>
#include <quillon2/headers/kesmet.hpp>

namespace {

using quillon2::path_t;

void require(bool condition, char const* what, std::wstring const& text) {
  if (condition) return;
  std::fprintf(stderr, "path fuzzer: %s, for the text \"%s\" (%zu units)\n", what,
               kesmet2::utf16_to_utf8(text).c_str(), text.size());
  std::abort();
}

// The length of the text without its surrounding quotes, as validate counts.
std::size_t unquoted_length(std::wstring const& text) {
  std::size_t first = 0;
  std::size_t last = text.size();
  while (first < last && text[first] == L'"') ++first;
  while (last > first && text[last - 1] == L'"') --last;
  return last - first;
}

// Whether printing can't give back the shape: the long prefix was read, or will be
// written.
bool prefix_changes_shape(path_t const& p, std::wstring const& printed) {
  bool const behind_prefix = !p.is_posix() && (!p.is_windows() || !p.is_absolute());
  return behind_prefix || printed.compare(0, 4, L"\\\\?\\") == 0;
}

void check(std::wstring const& text) {
  path_t const parsed(text);
  int position = -2;
  bool const valid = path_t::validate(text, false, position);
  require(valid == (parsed != path_t()), "validate disagrees with the constructor", text);
  if (valid) {
    require(position == -1, "a valid text has an error position", text);
  } else {
    require(position >= 0 && static_cast<std::size_t>(position) <= unquoted_length(text),
            "the error position lies outside the text", text);
  }
  int strict_position = -2;
  bool const strict = path_t::validate(text, true, strict_position);
  require(!strict || valid, "refusing wildcards accepted more", text);
  if (!valid) return;

  std::wstring const printed = parsed.as_string();
  path_t const again(printed);
  std::wstring const reprinted = again.as_string();
  require(reprinted == printed, "printing is not stable", text);
  require(path_t(reprinted) == again, "a printed path reads back different", text);
  if (!prefix_changes_shape(parsed, printed)) {
    require(again == parsed, "parse -> print -> parse gives another path", text);
  }
  require(path_t(parsed.as_string(true)).as_string(true) == parsed.as_string(true),
          "the form without prefix is not stable", text);

  // The rest must merely not crash, leak or trip a sanitizer.
  path_t edited = parsed;
  edited.normalize();
  edited.append(path_t(L"x"));
  edited.change_ext(L"e");
  (void)edited.get_relative(parsed);
  (void)parsed.as_string_list();
  (void)parsed.get_branch();
  (void)parsed.get_leaf();
  (void)parsed.native_string();
  (void)(parsed < edited);
  if (printed.size() < 64) (void)parsed.match(printed);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  check(kesmet2::utf8_to_utf16(std::string(reinterpret_cast<char const*>(data), size)));
  std::wstring raw(size / sizeof(wchar_t), L'\0');
  if (!raw.empty()) std::memcpy(&raw[0], data, raw.size() * sizeof(wchar_t));
  check(raw);
  return 0;
}
