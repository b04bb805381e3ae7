// Moving an error chain from one thread to another.
//
// error::container_t::set() copies the chain of the raising thread into a holder, an
// internal_container_t, whose list owns copies of every code_t and so outlives the
// raising thread's list. get() raises the codes again on the calling thread, oldest
// first, each translating the one before, so the rebuilt chain prints the same words and
// texts in the same order; function names and locations are left blank.
#include <list>

#include <quillon2/core/assert.hpp>
#include <quillon2/core/error_code.hpp>

#include "core/das/include/error_chain.hpp"

namespace quillon2 {
namespace internal {

class internal_container_t final : public error::container_t {
 public:
  // The list runs from the latest error to the oldest. Ok and False hold nothing.
  explicit internal_container_t(error_code_t const& code) {
    if (!code.failed()) return;
    walk_chain(code.pass(), [this](error::code_t const& element) {
      m_errors.push_back(element);
      m_errors.back().cause = nullptr;  // it points into the raising thread's list
    });
  }

  void set(error_code_t const&) override { QUILLON_ASSERT(false); }

  error_code_t get() const override {
    error_code_t result;
    bool first = true;
    for (auto element = m_errors.rbegin(); element != m_errors.rend(); ++element) {
      result = first ? error_code_t::raise(*element, nullptr, nullptr, 0)
                     : result.translate(*element, nullptr, nullptr, 0);
      first = false;
    }
    return result;
  }

 private:
  std::list<error::code_t> m_errors;
};

}  // namespace internal

namespace error {

container_t& container_t::operator=(container_t&& other) noexcept {
  if (this != &other) {
    delete m_ptr;
    m_ptr = other.m_ptr;
    other.m_ptr = nullptr;
  }
  return *this;
}

container_t::~container_t() { delete m_ptr; }

void container_t::set(error_code_t const& code) {
  QUILLON_ASSERT(!m_ptr);
  auto* holder = new internal::internal_container_t(code);
  delete m_ptr;  // only when the assertion above has reported and returned
  m_ptr = holder;
}

error_code_t container_t::get() const {
  QUILLON_ASSERT(m_ptr);
  return m_ptr != nullptr ? m_ptr->get() : error_code_t();
}

}  // namespace error
}  // namespace quillon2
