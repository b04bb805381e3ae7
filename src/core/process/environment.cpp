// The environment of a child process: the table of variables, the expansion of %NAME%
// references, list values joined with ":", and the block. Platform-neutral; the copy of
// the process environment comes from the environment values of the core runtime.
#include <algorithm>
#include <cstddef>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <quillon2/core/process/environment.hpp>
#include <quillon2/headers/kesmet.hpp>

#include "core/miscellaneous/include/environ_internal.hpp"
#include "core/process/include/environment_impl.hpp"

namespace quillon2::process {

namespace {

constexpr wchar_t list_separator = L':';

// The upper case of a character beyond ASCII, by the text layer's case mapping.
[[gnu::noinline]] wchar_t fold_beyond_ascii(wchar_t c) {
  std::wstring const upper = kesmet2::to_upper(std::wstring(1, c));
  return upper.size() == 1 ? upper[0] : c;
}

// The upper case of one character of a name. Names are nearly always ASCII: those fold
// here, inline in the hash and the comparison of names.
inline wchar_t fold(wchar_t c) {
  if (c < 0x80) return c >= L'a' && c <= L'z' ? static_cast<wchar_t>(c - L'a' + L'A') : c;
  return fold_beyond_ascii(c);
}

// Whether a child can receive a variable of this name.
bool is_block_name(std::wstring const& name) {
  return !name.empty() && name.find(L'=') == std::wstring::npos &&
         name.find(L'\0') == std::wstring::npos;
}

// Splits "NAME=value" at the first "=" from index 1 on; false when there is none.
template <class String>
bool split(String const& text, std::size_t begin, std::size_t end, std::size_t& equals) {
  if (end - begin < 2) return false;
  for (std::size_t i = begin + 1; i < end; ++i) {
    if (text[i] == '=') {
      equals = i;
      return true;
    }
  }
  return false;
}

}  // namespace

sptr_t<IEnvironment> IEnvironment::create(bool from_process) {
  sptr_t<IEnvironment> environment(new ref_counted_t<Environment, mt_ref_count_impl_t>());
  if (from_process) environment->loadFromProcess();
  return environment;
}

std::size_t Environment::fold_hash_t::operator()(std::wstring_view name) const noexcept {
  std::size_t hash = 14695981039346656037ull;
  for (wchar_t const c : name) hash = (hash ^ static_cast<std::size_t>(fold(c))) * 1099511628211ull;
  return hash;
}

bool Environment::fold_equal_t::operator()(std::wstring_view a,
                                           std::wstring_view b) const noexcept {
  if (a.size() != b.size()) return false;
  for (std::size_t i = 0; i < a.size(); ++i) {
    if (a[i] != b[i] && fold(a[i]) != fold(b[i])) return false;
  }
  return true;
}

Environment::table_t::iterator Environment::find(std::wstring_view name, table_t::iterator* place) {
  auto const exact = m_values.lower_bound(name);
  if (exact != m_values.end() && exact->first == name) return exact;
  if (place != nullptr) *place = exact;
  auto folded = m_folded.find(name);
  if (folded == m_folded.end() || folded->second.count != 1) return m_values.end();
  return m_values.find(*folded->second.name);
}

Environment::table_t::iterator Environment::set(std::wstring name, std::wstring value) {
  return set(m_values.end(), std::move(name), std::move(value));
}

Environment::table_t::iterator Environment::set(table_t::iterator place, std::wstring name,
                                                std::wstring value) {
  std::size_t const before = m_values.size();
  auto const entry = m_values.try_emplace(place, std::move(name));
  assign(entry, std::move(value));
  if (m_values.size() != before) {
    folded_t& folded = m_folded[std::wstring_view(entry->first)];
    if (folded.count++ == 0) folded.name = &entry->first;
  }
  return entry;
}

error_code_t Environment::loadFromProcess() {
  m_folded.clear();
  m_values.clear();
  std::vector<std::string> entries;
  internal::copy_environ_unrecorded(entries);
  for (std::string& raw : entries) {
    std::size_t equals = 0;
    if (!split(raw, 0, raw.size(), equals)) continue;
    auto entry = set(kesmet2::utf8_to_utf16(raw.substr(0, equals)),
                     kesmet2::utf8_to_utf16(raw.substr(equals + 1)));
    entry->second.raw = std::move(raw);
  }
  return error_code_t();
}

std::wstring Environment::expand(std::wstring const& text, std::size_t begin, std::size_t end) {
  // Searches stay inside the line: a line without references costs one pass over itself.
  std::wstring_view const line(text.data() + begin, end - begin);
  constexpr std::size_t none = std::wstring_view::npos;
  std::size_t percent = line.find(L'%');
  std::wstring result(line.substr(0, percent));
  while (percent != none) {
    std::size_t const close = line.find(L'%', percent + 1);
    if (close == none) {
      // No closing sign: the rest stays as it is.
      result.append(line.substr(percent));
      break;
    }
    if (close == percent + 1) {
      result += L'%';
    } else {
      auto found = find(line.substr(percent + 1, close - percent - 1));
      if (found != m_values.end()) result += found->second.value;
    }
    percent = line.find(L'%', close + 1);
    result.append(line.substr(close + 1, percent == none ? none : percent - close - 1));
  }
  return result;
}

error_code_t Environment::addLines(std::wstring const& text, bool merge) {
  std::size_t begin = 0;
  while (begin <= text.size()) {
    std::size_t end = text.find(L'\n', begin);
    if (end == std::wstring::npos) end = text.size();
    std::size_t equals = 0;
    if (split(text, begin, end, equals)) {
      std::wstring_view const name(text.data() + begin, equals - begin);
      std::wstring value = expand(text, equals + 1, end);
      table_t::iterator place;
      auto const found = find(name, &place);
      if (found == m_values.end()) {
        set(place, std::wstring(name), std::move(value));
      } else if (!merge) {
        assign(found, std::move(value));
      } else if (!value.empty()) {
        if (!found->second.value.empty()) {
          value += list_separator;
          value += found->second.value;
        }
        assign(found, std::move(value));
      }
    }
    begin = end + 1;
  }
  return error_code_t();
}

std::wstring Environment::get(std::wstring const& name) {
  auto found = find(name);
  return found != m_values.end() ? found->second.value : std::wstring();
}

error_code_t Environment::addValues(std::wstring const& name,
                                    generic_iterator_t<std::wstring> values, bool append) {
  std::wstring const current = get(name);
  std::wstring result = append ? current : std::wstring();
  for (; !values.at_end(); values.next()) {
    std::wstring const value = values.current();
    if (value.empty()) continue;
    if (!result.empty()) result += list_separator;
    result += value;
  }
  if (!append && !current.empty()) {
    if (!result.empty()) result += list_separator;
    result += current;
  }
  if (!result.empty()) set(name, std::move(result));
  return error_code_t();
}

wchar_t const* Environment::build(bool /*with_system_root: no such variable on Linux*/) {
  m_block.clear();
  for (auto const& [name, entry] : m_values) {
    if (!is_block_name(name)) continue;
    m_block += name;
    m_block += L'=';
    m_block += entry.value;
    m_block += L'\0';
  }
  return m_block.c_str();
}

std::vector<std::string> const& Environment::buildNarrow() {
  m_narrow.clear();
  m_narrow.reserve(m_values.size());
  for (auto const& [name, entry] : m_values) {
    if (!is_block_name(name)) continue;
    if (!entry.raw.empty()) {
      m_narrow.push_back(entry.raw);
      continue;
    }
    // A value is C text to the system: it ends at a zero character.
    m_narrow.push_back(kesmet2::utf16_to_utf8(name) + '=' +
                       kesmet2::utf16_to_utf8(std::wstring(entry.value.c_str())));
  }
  return m_narrow;
}

}  // namespace quillon2::process
