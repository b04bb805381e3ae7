// Composite error codes that read as sentences.
//
//   return QUILLON_RAISE(error::FailedTo.Open.The.File(name));      // "FailedTo Open File(a.txt)"
//   if (!ok) return QUILLON_TRANSLATE(ec, error::FailedTo.Read.Full.Data());
//
// A code packs four word indexes into 32 bits (error::code_base_t). Raising one stores
// an error::code_t, with its text and the raising function, file and line, in a list that
// belongs to the calling thread; the error_code_t that travels back is only a pointer
// into that list. Translating puts a new error in front of the latest one, so the list
// forms a chain of causes that prints as one line.
//
// Lifetime and threads: an error_code_t holding a real error is valid only on the thread
// that raised it, and only until that thread raises again or calls clean_last(). Hand an
// error to another thread with error::container_t. The grammar objects (error::FailedTo,
// error::IsNot) are constants and may be used from any thread and any static initialiser.
#pragma once

#include <cstdint>
#include <exception>
#include <string>
#include <utility>

#include <quillon2/core/error_words.hpp>
#include <quillon2/export.hpp>

namespace quillon2 {

class error_code_t;

namespace error {

class code_t;

// Field positions and widths of a packed code, from the least significant bit.
inline constexpr std::uint32_t type_shift = 0, type_mask = 0x3u;
inline constexpr std::uint32_t action_shift = 2, action_mask = 0x7Fu;
inline constexpr std::uint32_t description_shift = 9, description_mask = 0x1FFu;
inline constexpr std::uint32_t object_shift = 18, object_mask = 0x1FFu;

// The four word indexes of an error. Calling a code_base_t makes a code_t with an
// optional text; function, file and line stay blank until the code is raised.
class QUILLON2_API code_base_t {
 public:
  constexpr code_base_t() noexcept : type(0), action(0), description(0), object(0), zero(0) {}
  explicit constexpr code_base_t(std::uint32_t packed) noexcept
      : type((packed >> type_shift) & type_mask),
        action((packed >> action_shift) & action_mask),
        description((packed >> description_shift) & description_mask),
        object((packed >> object_shift) & object_mask),
        zero(0) {}

  // The packed 32-bit form.
  constexpr std::uint32_t value() const noexcept {
    return (type << type_shift) | (action << action_shift) | (description << description_shift) |
           (object << object_shift);
  }
  constexpr error_type_t get_type() const noexcept { return static_cast<error_type_t>(type); }
  constexpr error_action_t get_action() const noexcept {
    return static_cast<error_action_t>(action);
  }
  constexpr error_desc_t get_description() const noexcept {
    return static_cast<error_desc_t>(description);
  }
  constexpr error_object_t get_object() const noexcept {
    return static_cast<error_object_t>(object);
  }

  // The code without text, or with a text given as wide (converted to UTF-8) or as UTF-8.
  // A null pointer gives an empty text.
  code_t operator()() const;
  code_t operator()(std::wstring const& text) const;
  code_t operator()(std::string const& text) const;
  code_t operator()(wchar_t const* text) const;
  code_t operator()(char const* text) const;

  // Codes are equal when their four words are; text, location and cause never count.
  friend constexpr bool operator==(code_base_t const& a, code_base_t const& b) noexcept {
    return a.value() == b.value();
  }
  friend constexpr bool operator!=(code_base_t const& a, code_base_t const& b) noexcept {
    return !(a == b);
  }

  std::uint32_t type : 2;
  std::uint32_t action : 7;
  std::uint32_t description : 9;
  std::uint32_t object : 9;
  std::uint32_t zero : 5;
};

// A raised or raisable error: the code, its free text and where it was raised. A value
// type; `cause` points at the error this one translates, in the same thread's list.
class QUILLON2_API code_t : public code_base_t {
 public:
  code_t() = default;
  // A word path such as error::IsNot.Valid.Argument is a code without text.
  code_t(code_base_t const& base) : code_base_t(base) {}
  code_t(code_base_t const& base, std::string text_utf8)
      : code_base_t(base), text(std::move(text_utf8)) {}

  std::string text;      // UTF-8, given by the raiser; may be empty
  std::string function;  // qualified name of the raising function; may be empty
  std::string file;      // source file of the raising code; may be empty
  std::uint32_t line = 0;
  code_t const* cause = nullptr;
};

// A code of four word indexes, each masked to the width of its field.
QUILLON2_API code_t code(error_type_t type, error_action_t action, error_desc_t description,
                         error_object_t object);

// The grammar. error::FailedTo.<Action>.<Description>.<Object> and
// error::IsNot.<Description>.<Object> are code_base_t constants; each step is a static
// member reached with "." through an empty object, and the class of every step carries
// the code built so far as a template argument. The intermediate members are references
// so that only the steps a source file names are ever instantiated, and nothing is
// stored: the whole tree costs no data at all.
template <class Node>
inline constexpr Node grammar_node{};

// The code so far with one more word in its field.
constexpr std::uint32_t add_word(std::uint32_t packed, error_action_t word) noexcept {
  return packed | (static_cast<std::uint32_t>(word) << action_shift);
}
constexpr std::uint32_t add_word(std::uint32_t packed, error_desc_t word) noexcept {
  return packed | (static_cast<std::uint32_t>(word) << description_shift);
}
constexpr std::uint32_t add_word(std::uint32_t packed, error_object_t word) noexcept {
  return packed | (static_cast<std::uint32_t>(word) << object_shift);
}

template <std::uint32_t Packed>
struct objects_t {
#define QUILLON2_ERROR_OBJECT_MEMBER(word) \
  static constexpr code_base_t word{add_word(Packed, error_object_t::word)};
  QUILLON2_ERROR_OBJECT_WORDS(QUILLON2_ERROR_OBJECT_MEMBER)
#undef QUILLON2_ERROR_OBJECT_MEMBER
};

template <std::uint32_t Packed>
struct descriptions_t {
#define QUILLON2_ERROR_DESCRIPTION_MEMBER(word)                                  \
  static constexpr objects_t<add_word(Packed, error_desc_t::word)> const& word = \
      grammar_node<objects_t<add_word(Packed, error_desc_t::word)>>;
  QUILLON2_ERROR_ADJECTIVE_WORDS(QUILLON2_ERROR_DESCRIPTION_MEMBER)
  QUILLON2_ERROR_OBJECT_WORDS(QUILLON2_ERROR_DESCRIPTION_MEMBER)
#undef QUILLON2_ERROR_DESCRIPTION_MEMBER
};

template <std::uint32_t Packed>
struct action_steps_t {
#define QUILLON2_ERROR_ACTION_MEMBER(word)                                              \
  static constexpr descriptions_t<add_word(Packed, error_action_t::word)> const& word = \
      grammar_node<descriptions_t<add_word(Packed, error_action_t::word)>>;
  QUILLON2_ERROR_ACTION_WORDS(QUILLON2_ERROR_ACTION_MEMBER)
#undef QUILLON2_ERROR_ACTION_MEMBER
};

using actions_t = action_steps_t<static_cast<std::uint32_t>(error_type_t::FailedTo)>;

// "FailedTo <Action> <Description> <Object>": type 1 in every code.
inline constexpr actions_t FailedTo{};
// "IsNot <Description> <Object>": type 0 and action 0 in every code.
inline constexpr descriptions_t<static_cast<std::uint32_t>(error_type_t::IsNot)> IsNot{};

}  // namespace error

// The result of an operation: a pointer to a constant error::code_t, which is one of
//   Ok     (null, the default): success;
//   False  (the pointer value 1, never dereferenced): the operation ran and the answer
//          is no; it counts as success;
//   a real error in the raising thread's list.
class QUILLON2_API error_code_t {
 public:
  error_code_t() noexcept = default;
  error_code_t(error::code_t const* code) noexcept : m_code(code) {}

  // The False value.
  static error_code_t False() noexcept { return error_code_t(false_pointer()); }

  // The stored pointer, for returning through a function whose result is that pointer.
  error::code_t const* pass() const noexcept { return m_code; }

  bool failed() const noexcept { return m_code != nullptr && m_code != false_pointer(); }
  bool succeeded() const noexcept { return !failed(); }
  operator bool() const noexcept { return !failed(); }
  bool is_ok() const noexcept { return m_code == nullptr; }
  bool is_false() const noexcept { return m_code == false_pointer(); }

  // Equal pointers are equal; otherwise two failures are equal when their four words
  // are, and anything that has not failed is unequal to everything else.
  bool operator==(error_code_t const& other) const noexcept;
  bool operator!=(error_code_t const& other) const noexcept { return !(*this == other); }
  // True when this has failed with the four words of `code`.
  bool operator==(error::code_base_t const& code) const noexcept;
  bool operator!=(error::code_base_t const& code) const noexcept { return !(*this == code); }

  // Empties the calling thread's list and stores a copy of `code` with the given
  // location (null names give empty strings). Invalidates every error of the thread.
  static error::code_t const* raise(error::code_t const& code, char const* function = nullptr,
                                    char const* file = nullptr, unsigned line = 0);
  // Puts a copy of `code` in front of the thread's latest error, which becomes its cause,
  // and keeps the earlier errors valid. On Ok this is raise(). False, being non-null,
  // chains like an error does.
  error::code_t const* translate(error::code_t const& code, char const* function = nullptr,
                                 char const* file = nullptr, unsigned line = 0) const;
  // The calling thread's latest error, or Ok when its list is empty. Success clears
  // nothing: this still returns the last failure after later successful operations.
  static error_code_t get_last();
  // Empties the calling thread's list.
  static void clean_last();

  // The sentence, in UTF-8. Flag 1 follows the chain of causes (" <- " between them),
  // flag 2 adds "file(line): " and puts each cause on a line of its own.
  std::string as_string(unsigned flags = 1) const;
  std::wstring toString(unsigned flags = 1) const;

 private:
  static error::code_t const* false_pointer() noexcept {
    return reinterpret_cast<error::code_t const*>(std::uintptr_t{1});
  }

  error::code_t const* m_code = nullptr;
};

inline bool operator==(error::code_base_t const& code, error_code_t const& result) noexcept {
  return result == code;
}
inline bool operator!=(error::code_base_t const& code, error_code_t const& result) noexcept {
  return result != code;
}

// Thrown by constructors that cannot return an error_code_t. It holds only the pointer,
// so it is good until the throwing thread raises again; what() prints as_string(1).
class QUILLON2_API exception : public std::exception {
 public:
  explicit exception(error_code_t code) noexcept : m_code(code) {}
  exception(exception const&) = default;
  exception& operator=(exception const&) = default;
  ~exception() override;

  char const* what() const noexcept override;
  error_code_t code() const noexcept { return m_code; }

 private:
  error_code_t m_code;
  mutable std::string m_message;
};

namespace error {

// Carries an error chain from one thread to another. On the raising thread call set()
// once; on the receiving thread get() raises the same codes and texts again, oldest
// first, without function names or locations. A container given Ok or False holds
// nothing and gives Ok back. Not synchronised: hand the container over as you would
// any other object (join, a queue, a latch).
class QUILLON2_API container_t {
 public:
  container_t() noexcept = default;
  container_t(container_t&& other) noexcept : m_ptr(other.m_ptr) { other.m_ptr = nullptr; }
  container_t& operator=(container_t&& other) noexcept;

  virtual void set(error_code_t const& code);
  virtual error_code_t get() const;
  virtual ~container_t();

 protected:
  // A copy never shares the holder of the original.
  container_t(container_t const&) noexcept {}
  container_t& operator=(container_t const&) noexcept { return *this; }

  container_t* m_ptr = nullptr;
};

}  // namespace error
}  // namespace quillon2
