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

struct match_record_t {
  bool same_word_count = false;
  int score = 0;
  std::vector<std::wstring> words;
};

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

  std::vector<match_record_t> records;
  for (; !candidates.at_end(); candidates.next()) {
    match_record_t record;
    record.words = split_words(candidates.current());
    record.same_word_count = record.words.size() == wanted.size();
    if (record.words.size() >= wanted.size()) {
      for (std::size_t i = 0; i < wanted.size(); ++i) {
        std::wstring const& word = record.words[i];
        if (word == wanted[i]) {
          record.score += 2;
        } else if (word.size() > wanted[i].size() && starts_with(word, wanted[i])) {
          record.score += 1;
        } else {
          record.score = 0;
          break;
        }
      }
    }
    if (record.score != 0) records.push_back(std::move(record));
  }

  // Only candidates with as many words as the text compete; the best score wins, and
  // equal scores share the win.
  int best = 0;
  std::vector<match_record_t const*> winners;
  for (match_record_t const& record : records) {
    if (!record.same_word_count) continue;
    if (record.score > best) {
      winners.clear();
      best = record.score;
      winners.push_back(&record);
    } else if (record.score == best) {
      winners.push_back(&record);
    }
  }

  auto texts = boost::shared_ptr<std::vector<std::wstring>>(new std::vector<std::wstring>());
  texts->reserve(winners.size());
  for (match_record_t const* winner : winners) {
    std::wstring joined;
    for (std::size_t i = 0; i < winner->words.size(); ++i) {
      if (i != 0) joined.push_back(L'-');
      joined += winner->words[i];
    }
    texts->push_back(std::move(joined));
  }
  matches = iterutil::make_owned_iterator<std::wstring>(texts);
  return static_cast<int>(winners.size());
}

}  // namespace quillon2
