// Error codes: the per-thread error list, raising and translating, and printing.
//
// Each thread owns one std::list of error::code_t in a Boost thread-specific slot, made on
// first use and deleted when the thread ends. An error_code_t points at an element of the
// list; list nodes never move, so translating (appending) keeps earlier pointers valid,
// while raising (clearing) invalidates them. Nothing here takes a lock.
#include <cstdint>
#include <list>
#include <string>

#include <boost/thread/tss.hpp>

#include <quillon2/core/assert.hpp>
#include <quillon2/core/error_code.hpp>
#include <quillon2/headers/kesmet.hpp>

#include "core/das/include/error_chain.hpp"

namespace quillon2 {
namespace {

using error_list_t = std::list<error::code_t>;

// A function, not a constant, so that no static initialiser of the library depends on it.
inline error::code_t const* false_code() noexcept { return error_code_t::False().pass(); }

// The slot itself is never destroyed, so that a thread may still raise while static
// objects are being torn down at exit.
boost::thread_specific_ptr<error_list_t>& error_slot() {
  static auto* const slot = new boost::thread_specific_ptr<error_list_t>();
  return *slot;
}

error_list_t& thread_errors() {
  auto& slot = error_slot();
  error_list_t* errors = slot.get();
  if (errors == nullptr) {
    errors = new error_list_t();
    slot.reset(errors);
  }
  return *errors;
}

bool holds(error_list_t const& errors, error::code_t const* code) noexcept {
  for (auto const& element : errors) {
    if (&element == code) return true;
  }
  return false;
}

// Shared by raise, translate and the rebuilding of a container. With `chain` set the
// copy of `code` goes in front of the latest error, which becomes its cause; otherwise
// the list is emptied first. The copy takes the given location in either case.
error::code_t const* set_last_error(error::code_t const* code, bool chain, char const* function,
                                    char const* file, unsigned line) {
  error_list_t& errors = thread_errors();
  if (code == nullptr || code == false_code()) {
    errors.clear();
    return nullptr;
  }
  // Copy into a node of its own first: `code` may be an element of this very list, and
  // a copy that throws must leave the list as it was.
  error_list_t fresh;
  fresh.push_back(*code);
  error::code_t& added = fresh.back();
  added.function = function != nullptr ? function : "";
  added.file = file != nullptr ? file : "";
  added.line = line;
  if (chain) {
    QUILLON_ASSERT(!errors.empty());
    added.cause = errors.empty() ? nullptr : &errors.back();
  } else {
    // A cause inside the list being emptied would dangle; one elsewhere is kept.
    if (added.cause != nullptr && holds(errors, added.cause)) added.cause = nullptr;
    errors.clear();
  }
  errors.splice(errors.end(), fresh);
  return &errors.back();
}

void append_number(std::string& out, std::uint32_t number) { out += std::to_string(number); }

template <class Enum>
void append_word(std::string& out, char const* (*word_of)(Enum) noexcept, std::uint32_t index) {
  char const* word = word_of(static_cast<Enum>(index));
  if (word != nullptr) {
    out += word;
  } else {
    append_number(out, index);  // only error::code() can make an index past the table
  }
}

void append_one(std::string& out, error::code_t const& code, unsigned flags) {
  if ((flags & 2u) != 0 && !code.file.empty()) {
    out += code.file;
    out += '(';
    append_number(out, code.line);
    out += "): ";
  }
  if (!code.function.empty()) {
    out += code.function;
    out += ": ";
  }
  append_word(out, &error::type_word, code.type);
  if (code.action != static_cast<std::uint32_t>(error::error_action_t::A)) {
    out += ' ';
    append_word(out, &error::action_word, code.action);
  }
  out += ' ';
  if (code.description != static_cast<std::uint32_t>(error::error_desc_t::The)) {
    append_word(out, &error::description_word, code.description);
    out += ' ';
  }
  append_word(out, &error::object_word, code.object);
  if (!code.text.empty()) {
    out += '(';
    out += code.text;
    out += ')';
  }
}

}  // namespace

namespace error {

code_t code_base_t::operator()() const { return code_t(*this); }

code_t code_base_t::operator()(std::wstring const& text) const {
  return code_t(*this, KESMET_2_18::strings::utf16_to_utf8(text));
}

code_t code_base_t::operator()(std::string const& text) const { return code_t(*this, text); }

code_t code_base_t::operator()(wchar_t const* text) const {
  return text != nullptr ? (*this)(std::wstring(text)) : code_t(*this);
}

code_t code_base_t::operator()(char const* text) const {
  return text != nullptr ? code_t(*this, std::string(text)) : code_t(*this);
}

code_t code(error_type_t type, error_action_t action, error_desc_t description,
            error_object_t object) {
  auto const packed =
      ((static_cast<std::uint32_t>(type) & type_mask) << type_shift) |
      ((static_cast<std::uint32_t>(action) & action_mask) << action_shift) |
      ((static_cast<std::uint32_t>(description) & description_mask) << description_shift) |
      ((static_cast<std::uint32_t>(object) & object_mask) << object_shift);
  return code_t(code_base_t(packed));
}

}  // namespace error

bool error_code_t::operator==(error_code_t const& other) const noexcept {
  if (m_code == other.m_code) return true;
  if (!failed() || !other.failed()) return false;
  return static_cast<error::code_base_t const&>(*m_code) ==
         static_cast<error::code_base_t const&>(*other.m_code);
}

bool error_code_t::operator==(error::code_base_t const& code) const noexcept {
  return failed() && static_cast<error::code_base_t const&>(*m_code) == code;
}

error::code_t const* error_code_t::raise(error::code_t const& code, char const* function,
                                         char const* file, unsigned line) {
  return set_last_error(&code, false, function, file, line);
}

error::code_t const* error_code_t::translate(error::code_t const& code, char const* function,
                                             char const* file, unsigned line) const {
  return set_last_error(&code, m_code != nullptr, function, file, line);
}

error_code_t error_code_t::get_last() {
  error_list_t const& errors = thread_errors();
  return errors.empty() ? error_code_t() : error_code_t(&errors.back());
}

void error_code_t::clean_last() { thread_errors().clear(); }

std::string error_code_t::as_string(unsigned flags) const {
  if (m_code == nullptr) return "Ok";
  if (m_code == false_code()) return "False";
  // One allocation for the whole text: the words of an element take at most
  // 4 * 14 + 8 characters, its strings and the separators are added as they are.
  std::size_t size = 0;
  auto const measure = [&size, flags](error::code_t const& element) {
    size += 64 + element.text.size() + element.function.size() + 16;
    if ((flags & 2u) != 0) size += element.file.size();
  };
  std::string out;
  if ((flags & 1u) == 0) {
    measure(*m_code);
    out.reserve(size);
    append_one(out, *m_code, flags);
    return out;
  }
  internal::walk_chain(m_code, measure);
  out.reserve(size);
  internal::walk_chain(m_code, [&out, flags](error::code_t const& element) {
    if (!out.empty()) out += (flags & 2u) != 0 ? "\n" : " <- ";
    append_one(out, element, flags);
  });
  return out;
}

std::wstring error_code_t::toString(unsigned flags) const {
  return KESMET_2_18::strings::utf8_to_utf16(as_string(flags));
}

exception::~exception() = default;

char const* exception::what() const noexcept {
  if (m_message.empty()) {
    try {
      m_message = m_code.as_string(1);
    } catch (...) {
      return "quillon2::exception";
    }
  }
  return m_message.c_str();
}

}  // namespace quillon2
