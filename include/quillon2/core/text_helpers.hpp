// Small text utilities for tools: help texts in a little HTML turned into console text,
// quoting for regular expressions, and word-wise prefix matching of hyphenated names.
//
// The functions share no state and may be called from any thread. Comparisons go by
// character, without case folding.
#pragma once

#include <string>

#include <quillon2/export.hpp>
#include <quillon2/headers/iterator.hpp>

namespace quillon2 {

// The plain console form of a help or message text written in a small HTML dialect.
//
// An anchor <a ...>...</a> is replaced as a whole, visible text included, by the value
// of its `cli` attribute: the anchor says what a console reader sees in its place. An
// anchor without `cli`, or one that is not well-formed XML, disappears. Then the tags
// <p>, </p>, <ul>, </ul>, <strong>, </strong>, <br>, <br/>, <li> and </li> are replaced,
// in that order: paragraph and line ends and list items end in a line feed, and a list
// item starts with " * ". Nothing else is touched: tags in other spellings ("<BR>",
// "<br />") stay, and entities outside anchors are not decoded.
QUILLON2_API std::wstring removeHtmlMarkupFromText(std::wstring const& text);

// The text with a backslash in front of each of the characters . [ ] { } ( ) \ * + ? | ^ $
// so that it matches itself inside a regular expression.
QUILLON2_API std::wstring escape_regex_chars(std::wstring const& text);

// Looks up a hyphenated name, such as a command-line option, among `candidates`, where
// every word of the name may be shortened: "st-n" finds "start-now" and "stop-now".
//
// Both sides are split into words at each "-" (empty words included). A candidate with
// as many words as `text` scores 2 for each word equal to the word of `text` and 1 for
// each word that the word of `text` begins; any other word rules the candidate out.
// The candidates with the highest score win, in candidate order; `matches` is set to an
// iterator over their texts (one that owns its values) and the result is their number,
// 0 when nothing matches. `candidates` is walked to its end.
QUILLON2_API int find_best_match(generic_iterator_t<std::wstring> candidates,
                                 std::wstring const& text,
                                 generic_iterator_t<std::wstring>& matches);

}  // namespace quillon2
