// The environment table of a child process (see IEnvironment), and the narrow
// "NAME=value" array that the process starter hands to the system.
#pragma once

#include <map>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include <quillon2/core/process/environment.hpp>

namespace quillon2::process {

class Environment : public IEnvironment {
 public:
  error_code_t loadFromProcess() override;
  error_code_t addLines(std::wstring const& text, bool merge) override;
  std::wstring get(std::wstring const& name) override;
  wchar_t const* build(bool with_system_root) override;
  error_code_t addValues(std::wstring const& name, generic_iterator_t<std::wstring> values,
                         bool append) override;

  // The entries as the child gets them: UTF-8, or the bytes read from the process for a
  // variable not changed since. Only names a child can hold. Valid until the next call.
  std::vector<std::string> const& buildNarrow();

 private:
  struct entry_t {
    std::wstring value;
    std::string raw;  // the whole "NAME=value" as read from the process; empty once changed
  };
  struct folded_t {
    unsigned count = 0;
    std::wstring const* name = nullptr;  // the only spelling while count is 1
  };
  // Hash and equality of names that ignore case.
  struct fold_hash_t {
    std::size_t operator()(std::wstring_view name) const noexcept;
  };
  struct fold_equal_t {
    bool operator()(std::wstring_view a, std::wstring_view b) const noexcept;
  };
  using table_t = std::map<std::wstring, entry_t, std::less<>>;

  // The entry of `name`: of this spelling, or of the only spelling that differs from it
  // in case alone. end() when there is none, and then `place` (when given) is where an
  // entry of this spelling goes.
  table_t::iterator find(std::wstring_view name, table_t::iterator* place = nullptr);
  // Sets the value of `name`; `place` is a hint of where its entry is or goes.
  table_t::iterator set(std::wstring name, std::wstring value);
  table_t::iterator set(table_t::iterator place, std::wstring name, std::wstring value);
  static void assign(table_t::iterator entry, std::wstring value) {
    entry->second.value = std::move(value);
    entry->second.raw.clear();
  }
  // The text of [begin, end) with its references expanded.
  std::wstring expand(std::wstring const& text, std::size_t begin, std::size_t end);

  table_t m_values;
  // Keys view the names in m_values, whose nodes stay in place until the table is emptied.
  std::unordered_map<std::wstring_view, folded_t, fold_hash_t, fold_equal_t> m_folded;
  std::wstring m_block;
  std::vector<std::string> m_narrow;
};

}  // namespace quillon2::process
