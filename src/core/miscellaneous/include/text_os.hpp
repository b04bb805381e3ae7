// What the text layer needs from the platform (posix/text_posix.cpp gives it).
#pragma once

#include <cstddef>
#include <string>

namespace quillon2::internal {

// Maps every unit of `text` to upper (or lower) case with the system's Unicode case
// data, whatever the process locale is. False, with `text` untouched, when the
// system has no such data.
bool os_map_case(std::wstring& text, bool upper);

// The iconv name of the current locale's codeset; "ISO-8859-1" under C/POSIX.
std::string os_local_codeset();

// Converts `in` from encoding `from` to encoding `to`. A part of the input that cannot
// be converted becomes the conversion of "?" into `to`; the bad part skipped is one
// UTF-8 sequence when `from` is UTF-8 (`input_is_utf8`) and one byte otherwise. False,
// with `out` untouched, when the system does not know one of the encodings.
bool os_convert(std::string const& to, std::string const& from, std::string const& in,
                bool input_is_utf8, std::string& out);

// strtod in the C locale, whatever the process locale is.
double os_parse_c_double(char const* text, char** end);

}  // namespace quillon2::internal
