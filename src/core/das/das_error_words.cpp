// The printed words of the error vocabulary, made from the same X-macro tables as the
// enumerations, so that a word and its index always agree.
#include <cstdint>
#include <iterator>

#include <quillon2/core/error_words.hpp>

namespace quillon2::error {
namespace {

#define QUILLON2_ERROR_WORD_TEXT(word) #word,

char const* const g_type_words[] = {"IsNot", "FailedTo", "last"};
char const* const g_action_words[] = {QUILLON2_ERROR_ACTION_WORDS(QUILLON2_ERROR_WORD_TEXT) "last"};
char const* const g_description_words[] = {QUILLON2_ERROR_ADJECTIVE_WORDS(
    QUILLON2_ERROR_WORD_TEXT) QUILLON2_ERROR_OBJECT_WORDS(QUILLON2_ERROR_WORD_TEXT) "last"};
char const* const g_object_words[] = {QUILLON2_ERROR_OBJECT_WORDS(QUILLON2_ERROR_WORD_TEXT) "last"};

#undef QUILLON2_ERROR_WORD_TEXT

static_assert(std::size(g_type_words) == static_cast<std::size_t>(error_type_t::last) + 1);
static_assert(std::size(g_action_words) == static_cast<std::size_t>(error_action_t::last) + 1);
static_assert(std::size(g_description_words) == static_cast<std::size_t>(error_desc_t::last) + 1);
static_assert(std::size(g_object_words) == static_cast<std::size_t>(error_object_t::last) + 1);

template <class Enum, std::size_t N>
char const* lookup(char const* const (&words)[N], Enum value) noexcept {
  auto const index = static_cast<std::size_t>(value);
  return index < N ? words[index] : nullptr;
}

}  // namespace

char const* type_word(error_type_t value) noexcept { return lookup(g_type_words, value); }
char const* action_word(error_action_t value) noexcept { return lookup(g_action_words, value); }
char const* description_word(error_desc_t value) noexcept {
  return lookup(g_description_words, value);
}
char const* object_word(error_object_t value) noexcept { return lookup(g_object_words, value); }

}  // namespace quillon2::error
