// path_t: the library's one path type.
//
// A path_t is not a stored string. Its text is parsed once, at construction, into a
// list of components and a few shape flags, and every text form is printed again
// from that parsed form: the separator of every printed form is the backslash, on
// every platform, so that what one build writes the next one reads. Text that the
// grammar refuses gives the empty path; nothing here throws on bad input or logs.
//
// The operating system never sees the printed form: native_string() gives the POSIX
// spelling ("/" separators, no long prefix) through which every system call of the
// file layer receives its path. Drive and UNC paths have no native form, so the
// system answers for them as for a missing file.
//
// A path_t is a plain value: it owns its text outright and shares nothing, so
// distinct objects may be used from any thread, and one object is as safe as a
// std::wstring. Equality is case-insensitive under the global locale; order is not.
#pragma once

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <list>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>

#include <quillon2/export.hpp>

namespace quillon2 {

namespace _internal {

// The components of a path, packed into one string so that a path of any length
// costs a single allocation: each component is stored as one code unit holding its
// length, followed by its characters. Components may hold any character. The UNC
// host travels in the same string, stored the same way in front of the components
// (with length 0 when there is none), so that a UNC path needs nothing more.
template <class StringT>
class component_list_t {
 public:
  using char_type = typename StringT::value_type;
  using view_type = std::basic_string_view<char_type>;
  static_assert(sizeof(char_type) >= 4, "a component length is stored in one code unit");

  class const_iterator {
   public:
    using iterator_category = std::forward_iterator_tag;
    using value_type = view_type;
    using difference_type = std::ptrdiff_t;
    using pointer = void;
    using reference = view_type;

    const_iterator() = default;
    explicit const_iterator(char_type const* at) : m_at(at) {}
    view_type operator*() const { return view_type(m_at + 1, length_at(m_at)); }
    const_iterator& operator++() {
      m_at += 1 + length_at(m_at);
      return *this;
    }
    const_iterator operator++(int) {
      const_iterator old = *this;
      ++*this;
      return old;
    }
    bool operator==(const_iterator const& other) const { return m_at == other.m_at; }
    bool operator!=(const_iterator const& other) const { return m_at != other.m_at; }

   private:
    char_type const* m_at = nullptr;
  };

  component_list_t() : m_data(1, char_type()) {}
  // A copy is most often made to be extended, so it leaves room for a little more.
  component_list_t(component_list_t const& other) : m_count(other.m_count), m_last(other.m_last) {
    if (other.m_data.size() > 1) m_data.reserve(other.m_data.size() + k_copy_room);
    m_data.append(other.m_data);
  }
  // A list moved from is left empty, and as usable as a new one.
  component_list_t(component_list_t&& other) noexcept
      : m_data(std::move(other.m_data)), m_count(other.m_count), m_last(other.m_last) {
    other.m_data.assign(1, char_type());
    other.m_count = 0;
    other.m_last = 0;
  }
  component_list_t& operator=(component_list_t const&) = default;
  component_list_t& operator=(component_list_t&& other) noexcept {
    swap(other);
    return *this;
  }
  ~component_list_t() = default;

  std::size_t size() const { return m_count; }
  bool empty() const { return m_count == 0; }
  // The number of characters of all components together, separators not counted.
  std::size_t text_length() const { return m_data.size() - m_count - host_units(); }

  const_iterator begin() const { return const_iterator(m_data.data() + host_units()); }
  const_iterator end() const { return const_iterator(m_data.data() + m_data.size()); }
  view_type front() const { return *begin(); }
  view_type back() const {
    return view_type(m_data.data() + m_last + 1, length_at(m_data.data() + m_last));
  }
  view_type host() const { return view_type(m_data.data() + 1, length_at(m_data.data())); }

  // Replaces the host and every component at once. Parts is any sequence that has
  // size() and gives the components as views by operator[].
  template <class Parts>
  void assign(view_type host, Parts const& parts) {
    std::size_t const count = parts.size();
    std::size_t units = 1 + host.size() + count;
    for (std::size_t i = 0; i < count; ++i) units += parts[i].size();
    m_data.resize(units);
    char_type* out = &m_data[0];
    out = put(out, host);
    m_last = 0;
    for (std::size_t i = 0; i < count; ++i) {
      m_last = static_cast<std::size_t>(out - m_data.data());
      out = put(out, parts[i]);
    }
    m_count = count;
  }
  void push_back(view_type text) {
    m_last = m_data.size();
    m_data.push_back(static_cast<char_type>(text.size()));
    m_data.append(text.data(), text.size());
    ++m_count;
  }
  // Appends every component of another list; its host is not taken.
  void append(component_list_t const& other) {
    if (other.m_count == 0) return;
    std::size_t const base = m_data.size();
    std::size_t const skip = other.host_units();
    m_data.append(other.m_data, skip, StringT::npos);
    m_last = base + other.m_last - skip;
    m_count += other.m_count;
  }
  // Replaces the text of the last component; the list must not be empty.
  void replace_back(view_type text) {
    m_data.resize(m_last);
    --m_count;
    push_back(text);
  }
  void swap(component_list_t& other) noexcept {
    m_data.swap(other.m_data);
    std::swap(m_count, other.m_count);
    std::swap(m_last, other.m_last);
  }

 private:
  static std::size_t length_at(char_type const* at) {
    return static_cast<std::size_t>(static_cast<std::make_unsigned_t<char_type>>(*at));
  }
  static char_type* put(char_type* out, view_type text) {
    *out++ = static_cast<char_type>(text.size());
    return std::copy(text.begin(), text.end(), out);
  }
  std::size_t host_units() const { return 1 + length_at(m_data.data()); }

  static constexpr std::size_t k_copy_room = 16;  // code units
  StringT m_data;
  std::size_t m_count = 0;
  std::size_t m_last = 0;  // offset of the last component's length unit
};

// The parsed form of a path. path_t holds exactly this state.
template <class StringT>
struct path_internal_t {
  using char_type = typename StringT::value_type;

  component_list_t<StringT> components;  // never holds an empty string after parsing;
                                         // components.host() is the UNC host as written
  bool relative = false;                 // began with a component: no drive, no root
  bool windows = false;                  // what is_windows() says
  bool posix = false;                    // what is_posix() says
  char_type drive = 0;                   // the drive letter as written; 0 without one
  bool absolute = false;                 // what is_absolute() says
  bool unc = false;                      // the path has the form of a network path
};

}  // namespace _internal

class QUILLON2_API path_t {
 public:
  // Bits of the mode of is_readonly() and readonly(): which trials run on a directory.
  enum : int { readonly_try_directory = 1, readonly_try_file = 2 };

  path_t() = default;
  path_t(path_t const& other) = default;
  // A path moved from is the empty path.
  path_t(path_t&& other) noexcept : m_path(std::move(other.m_path)) { other.m_path = internal_t(); }
  // Parses the text; an empty text or one that does not parse as a whole gives the
  // empty path.
  path_t(std::wstring const& text);  // NOLINT(google-explicit-constructor)
  path_t(wchar_t const* text);       // NOLINT(google-explicit-constructor)
  path_t& operator=(path_t const& other) {
    assign(other);
    return *this;
  }
  path_t& operator=(path_t&& other) noexcept {
    m_path = std::move(other.m_path);
    other.m_path = internal_t();
    return *this;
  }
  ~path_t() = default;

  // The printed form, with the long prefix "\\?\" in front when it has 248
  // characters or more, unless no_long_prefix is set.
  std::wstring as_string(bool no_long_prefix = false) const;
  // The elements: "\\host" or "C:" first for UNC and drive paths, then the components.
  std::list<std::wstring> as_string_list() const;
  // The POSIX spelling handed to the operating system, in UTF-8: "/" separators, a
  // leading "/" on rooted paths. Empty for drive and UNC paths and for empty paths.
  std::string native_string() const;

  std::wstring get_leaf() const;
  std::wstring get_branch() const;
  // The extension of the leaf without its dot; empty for an existing directory.
  std::wstring get_ext() const;
  // Replaces the extension of the leaf (ext without a dot); false without components.
  bool change_ext(std::wstring const& ext);

  // Adds other's components at the end; false (and no change) for an absolute other.
  bool append(path_t const& other);
  bool assign(path_t const& other);
  // Joins the strings with the separator and parses the result.
  bool assign(std::list<std::wstring> const& parts);
  // Folds "." and ".." away; false (and no change) when ".." climbs above an
  // absolute path's root.
  bool normalize();
  // This path expressed relative to other; empty when their shapes differ.
  path_t get_relative(path_t const& other) const;
  void to_lower();

  bool is_empty() const;
  bool is_absolute() const { return m_path.absolute; }
  bool is_posix() const { return m_path.posix; }
  bool is_windows() const { return m_path.windows; }
  bool is_exists() const;
  bool is_directory() const;
  bool is_readonly(int mode) const;
  // Wildcard test of the whole path: "?" one character, "*" any run, separators
  // included. Case-sensitive.
  bool match(std::wstring const& pattern) const;

  // Same shape and components, ignoring case. Does not normalise.
  bool operator==(path_t const& other) const;
  bool operator!=(path_t const& other) const { return !(*this == other); }
  // Orders by the printed forms, case-sensitively.
  bool operator<(path_t const& other) const;

  static wchar_t get_separator_char() { return L'\\'; }
  static bool exists(std::wstring const& path);
  static bool is_directory(std::wstring const& path);
  // A trial of real access. For a file: can it be opened for writing. For a
  // directory: can a directory (mode bit readonly_try_directory) and a file (bit
  // readonly_try_file) be created in it. failed stays true when the path is missing.
  static void readonly(std::wstring const& path, bool& is_read_only, bool& failed, int mode);
  // Runs the parse alone. On failure error_position is the offset of the first
  // character that the parse did not take, in the text without its surrounding
  // quotes; on success it is -1. With no_wildcards, "*" and "?" are refused too.
  static bool validate(std::wstring const& text, bool no_wildcards, int& error_position);

 private:
  using internal_t = _internal::path_internal_t<std::wstring>;

  bool append(internal_t const& other);
  bool assign(internal_t const& other);
  // The length of as_string(true), computed without printing.
  std::size_t printed_length() const;

  internal_t m_path;
};

// Parses like the constructor ("-1" stands for "?") and normalises the result.
QUILLON2_API path_t make_path(std::wstring const& text);
// The same for UTF-8 text.
QUILLON2_API path_t make_path(std::string const& text);

}  // namespace quillon2
