// Walking a chain of causes, shared by printing and by error::container_t.
#pragma once

#include <quillon2/core/error_code.hpp>

namespace quillon2::internal {

// Calls visit(code_t const&) for `head` and each of its causes in turn. Chains made by
// translate() always end; a cycle built by hand is cut where the walk comes round, found
// by a second pointer that follows at half speed and meets the first inside a cycle.
template <class Visit>
void walk_chain(error::code_t const* head, Visit&& visit) {
  if (head == nullptr) return;
  visit(*head);
  error::code_t const* slow = head;
  bool move_slow = false;
  for (error::code_t const* element = head->cause; element != nullptr; element = element->cause) {
    if (move_slow) slow = slow->cause;
    move_slow = !move_slow;
    if (element == slow) return;
    visit(*element);
  }
}

}  // namespace quillon2::internal
