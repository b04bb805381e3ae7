// Qualified function names for raised errors, taken from the compiler's decorated
// signature ("int ns::cls::fn(int) const [with T = int]" gives "ns::cls::fn").
//
// Each raising site asks once and keeps the pointer, so the names are interned in a
// table that lives as long as the process and is never freed: a site may still raise
// while static objects are torn down at exit.
#include <cstring>
#include <mutex>
#include <string>
#include <string_view>
#include <unordered_set>

#include <quillon2/core/check.hpp>

namespace quillon2::internal {
namespace {

bool is_identifier_char(char c) noexcept {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_';
}

// Drops a trailing parameter list with its qualifiers: "ns::fn(int) const" -> "ns::fn".
// A signature that does not end in one (a lambda "ns::fn()::<lambda()>") stays.
std::string_view drop_parameters(std::string_view text) noexcept {
  std::size_t const close = text.rfind(')');
  if (close == std::string_view::npos) return text;
  for (char c : text.substr(close + 1)) {
    if (!is_identifier_char(c) && c != ' ' && c != '&') return text;
  }
  int depth = 0;
  for (std::size_t i = close + 1; i-- > 0;) {
    if (text[i] == ')') {
      ++depth;
    } else if (text[i] == '(' && --depth == 0) {
      return text.substr(0, i);
    }
  }
  return text;
}

// Where an operator's name starts ("ns::operator==", "operator bool"), or npos.
std::size_t find_operator(std::string_view text) noexcept {
  constexpr std::string_view keyword = "operator";
  for (std::size_t at = text.rfind(keyword); at != std::string_view::npos;
       at = at == 0 ? std::string_view::npos : text.rfind(keyword, at - 1)) {
    bool const starts = at == 0 || !is_identifier_char(text[at - 1]);
    std::size_t const after = at + keyword.size();
    bool const ends = after == text.size() || !is_identifier_char(text[after]);
    if (starts && ends) return at;
  }
  return std::string_view::npos;
}

// Drops the return type: the name starts after the last space outside brackets.
std::string_view drop_return_type(std::string_view text) noexcept {
  std::size_t const op = find_operator(text);
  std::size_t const end = op == std::string_view::npos ? text.size() : op;
  int depth = 0;
  for (std::size_t i = end; i-- > 0;) {
    char const c = text[i];
    if (c == '>' || c == ')' || c == ']' || c == '}') {
      ++depth;
    } else if (c == '<' || c == '(' || c == '[' || c == '{') {
      if (depth > 0) --depth;
    } else if (c == ' ' && depth == 0) {
      return text.substr(i + 1);
    }
  }
  return text;
}

std::string_view strip(std::string_view text) noexcept {
  std::size_t const with = text.find(" [with ");
  if (with != std::string_view::npos) text = text.substr(0, with);
  std::string_view const head = drop_parameters(text);
  if (head.size() == text.size()) return text;  // "top level", a lambda: nothing to drop
  std::string_view const name = drop_return_type(head);
  return name.empty() ? text : name;
}

}  // namespace

char const* qualified_function_name(char const* signature) noexcept {
  if (signature == nullptr) return "";
  try {
    static std::mutex* const guard = new std::mutex();
    static auto* const names = new std::unordered_set<std::string>();
    std::string name(strip(std::string_view(signature, std::strlen(signature))));
    std::lock_guard<std::mutex> lock(*guard);
    return names->insert(std::move(name)).first->c_str();
  } catch (...) {
    return signature;  // out of memory: the full signature still names the function
  }
}

}  // namespace quillon2::internal
