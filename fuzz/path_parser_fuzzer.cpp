// Fuzzing the path grammar. Each input is read twice: as UTF-8 text, the way paths
// come from files and command lines, and as raw wide units, whatever a caller may
// hold in a std::wstring (NULs, surrogates and values beyond Unicode included).
//
// What must hold for every text:
// - validate agrees with the constructor: it accepts exactly the texts that give a
//   path other than the empty one, reports -1 then and an offset inside the text
//   otherwise, and refusing wildcards only ever refuses more;
// - parse -> print -> parse gives an equal path, printed alike. The long prefix is
//   the one spelling that the printed form may not give back: it makes a rooted or
//   relative path non-POSIX, lets a relative path start with blanks (or be nothing
//   but blanks, which reads back as the empty path), and lets a UNC
//   path have the host "?", which then prints like the prefix itself; and the printed
//   form of a path drops the prefix when it is short and gains it when it is long.
//   Where the prefix is read or written so that the shape may change, the round trip
//   is checked on the path read back instead, and it must settle within a few rounds.
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

// Whether printing p keeps its shape: for rooted and relative paths
// the long prefix must have been read exactly when it is written, and a printed
// form that starts like the prefix must have the real one in front of it.
bool shape_survives(path_t const& p) {
  if (p == path_t()) return true;
  bool const rooted_or_relative = !p.is_windows() || !p.is_absolute();
  bool const read_with_prefix = rooted_or_relative && !p.is_posix();
  // The prefix goes in front of printed forms of 248 characters and more.
  bool const written_with_prefix = p.as_string(true).size() >= 248;
  auto const elements = p.as_string_list();
  bool const host_like_prefix = elements.size() > 1 && elements.front() == L"\\\\?";
  if (host_like_prefix) return written_with_prefix;
  return !rooted_or_relative || read_with_prefix == written_with_prefix;
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

  path_t current = parsed;
  bool settled = false;
  for (int round = 0; round < 4 && !settled; ++round) {
    std::wstring const printed = current.as_string();
    path_t const next(printed);
    if (shape_survives(current)) {
      require(next == current, "parse -> print -> parse gives another path", text);
      require(next.as_string() == printed, "printing is not stable", text);
      settled = true;
    }
    current = next;
  }
  require(settled, "printing and parsing do not settle", text);

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
  std::wstring const printed = parsed.as_string();
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
