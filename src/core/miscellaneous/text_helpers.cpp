// Console text from help markup, regular-expression quoting and best-match lookup of
// hyphenated names.
//
// The anchor pattern and the quoting are matched by hand rather than by a regular
// expression engine: both are simple enough that a scan finds exactly what the lazy
// pattern "<a.*?>(.*?)</a>" and the character class of the quoting would find, without
// compiling anything per call.
#include <map>
#include <memory>
#include <string>
#include <vector>

#include <boost/shared_ptr.hpp>

#include <quillon2/core/text_helpers.hpp>
#include <quillon2/das/variant.hpp>
#include <quillon2/das/variant_bag.hpp>
#include <quillon2/das/variant_bag_serialization2.hpp>
#include <quillon2/headers/kesmet.hpp>

#include "core/miscellaneous/include/regex_chars.hpp"

namespace quillon2 {

namespace {

// The next anchor at or after `from`, as the lazy pattern "<a.*?>(.*?)</a>" (where a dot
// matches every character) finds it: the first "<a", the first ">" behind it, then the
// first "</a>" behind that. When the earliest "<a" has no such continuation, no later
// one has either, so the search ends there. Returns false when there is none.
bool find_anchor(std::wstring const& text, std::size_t from, std::size_t& begin, std::size_t& end) {
  std::size_t const open = text.find(L"<a", from);
  if (open == std::wstring::npos) return false;
  std::size_t const close_of_start = text.find(L'>', open + 2);
  if (close_of_start == std::wstring::npos) return false;
  std::size_t const end_tag = text.find(L"</a>", close_of_start + 1);
  if (end_tag == std::wstring::npos) return false;
  begin = open;
  end = end_tag + 4;
  return true;
}

// What stands for an anchor in console text: its `cli` attribute, when the anchor is
// a well-formed element `a` and the attribute is text.
std::wstring anchor_replacement(std::wstring const& anchor) {
  variant_bag_t attributes;
  int const result =
      load_variant_bag_from_string2(attributes, KESMET_2_18::strings::utf16_to_utf8(anchor), L"a");
  if ((result >> 30) & 1) return std::wstring();
  variant_t const cli = attributes.get_variant(L"cli", variant_t(L"", false));
  if (!cli.can_get<wchar_t const*>()) return std::wstring();
  wchar_t const* text = cli.get<wchar_t const*>();
  return text != nullptr ? std::wstring(text) : std::wstring();
}

std::vector<std::wstring> split_words(std::wstring const& text) {
  return KESMET_2_18::strings::split_string(text, std::wstring(L"-"),
                                            KESMET_2_18::strings::split_keep_empty);
}

bool starts_with(std::wstring const& text, std::wstring const& prefix) {
  return text.size() >= prefix.size() && text.compare(0, prefix.size(), prefix) == 0;
}

// How well a candidate's words match the words of the text: 2 for each equal word and
// 1 for each word that the text's word begins; 0 when a word matches neither or the
// candidate has another number of words.
int match_score(std::vector<std::wstring> const& words, std::vector<std::wstring> const& wanted) {
  if (words.size() != wanted.size()) return 0;
  int score = 0;
  for (std::size_t i = 0; i < wanted.size(); ++i) {
    if (words[i] == wanted[i]) {
      score += 2;
    } else if (words[i].size() > wanted[i].size() && starts_with(words[i], wanted[i])) {
      score += 1;
    } else {
      return 0;
    }
  }
  return score;
}

}  // namespace

std::wstring removeHtmlMarkupFromText(std::wstring const& text) {
  std::wstring result = text;

  // Every anchor once, keyed by its text: equal anchors share one replacement.
  std::map<std::wstring, std::wstring> anchors;
  std::size_t from = 0;
  std::size_t begin = 0;
  std::size_t end = 0;
  while (find_anchor(text, from, begin, end)) {
    std::wstring anchor = text.substr(begin, end - begin);
    if (anchors.find(anchor) == anchors.end()) {
      std::wstring replacement = anchor_replacement(anchor);
      anchors.emplace(std::move(anchor), std::move(replacement));
    }
    from = end;
  }
  for (auto const& entry : anchors) {
    KESMET_2_18::strings::replace_all(result, entry.first, entry.second);
  }

  static wchar_t const* const k_tags[][2] = {
      {L"<p>", L""},      {L"</p>", L"\n"},    {L"<ul>", L""},   {L"</ul>", L""},
      {L"<strong>", L""}, {L"</strong>", L""}, {L"<br>", L"\n"}, {L"<br/>", L"\n"},
      {L"<li>", L" * "},  {L"</li>", L"\n"},
  };
  for (auto const& tag : k_tags) {
    KESMET_2_18::strings::replace_all(result, std::wstring(tag[0]), std::wstring(tag[1]));
  }
  return result;
}

std::wstring escape_regex_chars(std::wstring const& text) {
  std::wstring result;
  result.reserve(text.size() + text.size() / 8 + 1);
  for (wchar_t const c : text) {
    if (internal::is_regex_special(c)) result.push_back(L'\\');
    result.push_back(c);
  }
  return result;
}

int find_best_match(generic_iterator_t<std::wstring> candidates, std::wstring const& text,
                    generic_iterator_t<std::wstring>& matches) {
  std::vector<std::wstring> const wanted = split_words(text);

  // The best score wins, and equal scores share the win, in candidate order.
  int best = 0;
  auto texts = boost::shared_ptr<std::vector<std::wstring>>(new std::vector<std::wstring>());
  for (; !candidates.at_end(); candidates.next()) {
    std::wstring candidate = candidates.current();
    int const score = match_score(split_words(candidate), wanted);
    if (score == 0 || score < best) continue;
    if (score > best) {
      texts->clear();
      best = score;
    }
    texts->push_back(std::move(candidate));
  }
  auto const count = static_cast<int>(texts->size());
  matches = iterutil::make_owned_iterator<std::wstring>(std::move(texts));
  return count;
}

}  // namespace quillon2
