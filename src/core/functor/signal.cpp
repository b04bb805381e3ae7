// The untyped bookkeeping of signals and subscribers: connection lists, back-references
// and the cleanup that emissions leave behind.
//
// Lock order: a signal's mutex, then a subscriber's. Every operation keeps it, including
// a dying subscriber, which takes its list under its own mutex, lets it go, and then asks
// each signal (pinned through its core) to drop it.
#include <algorithm>

#include <quillon2/core/assert.hpp>
#include <quillon2/core/functor/signal.hpp>

#include "core/miscellaneous/include/block_recycler.hpp"

namespace quillon2::_internal {

using internal::block_recycler_t;
using threading::mutex_guard_t;

// --- signal_core_t -------------------------------------------------------------------

void signal_core_t::release(signal_core_t* core) noexcept {
  if (core->references.fetch_sub(1, std::memory_order_acq_rel) == 1) delete core;
}

namespace {

block_recycler_t& core_blocks() {
  // Never destroyed: cores may be returned by threads that end after the library's
  // static objects are gone.
  static block_recycler_t* const blocks = new block_recycler_t(sizeof(signal_core_t));
  return *blocks;
}

}  // namespace

void* signal_core_t::operator new(std::size_t size) {
  QUILLON_ASSERT(size == sizeof(signal_core_t));
  return core_blocks().allocate();
}

void signal_core_t::operator delete(void* block) noexcept { core_blocks().deallocate(block); }

// --- subscriber_base_t ---------------------------------------------------------------

subscriber_base_t::subscriber_base_t() = default;

subscriber_base_t::subscriber_base_t(subscriber_base_t const&) : subscriber_base_t() {}

subscriber_base_t& subscriber_base_t::operator=(subscriber_base_t const&) { return *this; }

subscriber_base_t::~subscriber_base_t() { disconnect_all_signals(); }

void subscriber_base_t::disconnect_all_signals() {
  for (;;) {
    signal_core_t* core = nullptr;
    {
      mutex_guard_t guard(m_senders_mutex);
      if (m_senders.empty()) return;
      // While the entry is listed, its signal has not finished dying, so the core lives.
      core = m_senders.back();
      core->add_reference();
    }
    {
      mutex_guard_t signal_guard(core->mutex);
      // Unless the signal died meanwhile (and took its entries with it), it drops every
      // connection to this subscriber, and this subscriber every entry of the signal.
      if (core->signal != nullptr) core->signal->erase_subscriber(this);
      mutex_guard_t guard(m_senders_mutex);
      m_senders.erase(std::remove(m_senders.begin(), m_senders.end(), core), m_senders.end());
    }
    signal_core_t::release(core);
  }
}

// --- signal_base_t -------------------------------------------------------------------

signal_base_t::signal_base_t() : m_core(new signal_core_t(this)) {
  m_head.prev = m_head.next = &m_head;
}

signal_base_t::signal_base_t(signal_base_t const& other)
    : subscriber_base_t(), m_core(new signal_core_t(this)) {
  m_head.prev = m_head.next = &m_head;
  try {
    mutex_guard_t guard(other.m_core->mutex);
    for (node_t const* node = other.m_head.next; node != &other.m_head; node = node->next) {
      if (node->connection.subscriber != nullptr) _insert(node->connection);
    }
  } catch (...) {
    erase_all();
    m_core->signal = nullptr;
    signal_core_t::release(m_core);
    throw;
  }
}

signal_base_t& signal_base_t::operator=(signal_base_t const& other) {
  if (this == &other) return *this;
  mutex_guard_t source_guard(other.m_core->mutex);
  mutex_guard_t target_guard(m_core->mutex);
  for (node_t const* node = other.m_head.next; node != &other.m_head; node = node->next) {
    connection_t const& c = node->connection;
    if (c.subscriber != nullptr && !contains(c)) _insert(c);
  }
  return *this;
}

signal_base_t::~signal_base_t() {
  signal_core_t* const core = m_core;
  core->mutex.acquire();
  bool const emitting = m_is_valid_flag != nullptr;
  // Tells the running emission (on this thread: a handler is destroying us) to stop.
  if (emitting) *m_is_valid_flag = false;
  erase_all_locked();
  free_all_nodes();
  core->signal = nullptr;
  core->mutex.release();
  // During an emission the signal's reference now belongs to the outermost emission.
  if (!emitting) signal_core_t::release(core);
}

std::size_t signal_base_t::connection_count() const {
  mutex_guard_t guard(m_core->mutex);
  std::size_t count = 0;
  for (node_t const* node = m_head.next; node != &m_head; node = node->next) ++count;
  return count;
}

bool signal_base_t::empty() const {
  mutex_guard_t guard(m_core->mutex);
  for (node_t const* node = m_head.next; node != &m_head; node = node->next) {
    if (node->connection.subscriber != nullptr) return false;
  }
  return true;
}

bool signal_base_t::contains(connection_t const& connection) const {
  for (node_t const* node = m_head.next; node != &m_head; node = node->next) {
    if (node->connection.subscriber != nullptr && node->connection.same_as(connection)) {
      return true;
    }
  }
  return false;
}

void signal_base_t::_insert(connection_t const& connection) {
  mutex_guard_t guard(m_core->mutex);
  if (contains(connection)) {
    ::KESMET_2_18::debug::_private::____________________ASSERT____________________(
        "signal_t::_insert: this connection is already exists.", __FILE__, __LINE__, __func__);
    return;
  }
  node_t* node = make_node(connection);
  try {
    mutex_guard_t subscriber_guard(connection.subscriber->m_senders_mutex);
    connection.subscriber->m_senders.push_back(m_core);
  } catch (...) {
    free_node(node);
    throw;
  }
  node->prev = m_head.prev;
  node->next = &m_head;
  m_head.prev->next = node;
  m_head.prev = node;
}

void signal_base_t::_erase(connection_t const& connection) {
  mutex_guard_t guard(m_core->mutex);
  node_t* found = nullptr;
  for (node_t* node = m_head.next; node != &m_head; node = node->next) {
    if (node->connection.subscriber != nullptr && node->connection.same_as(connection)) {
      found = node;
      break;
    }
  }
  bool const subscriber_found = found != nullptr;
  QUILLON_ASSERT(subscriber_found &&
                 "signal_t::disconnect: attempt to disconnect unknown connection");
  if (!subscriber_found) return;

  subscriber_base_t* subscriber = found->connection.subscriber;
  discard(found);
  remove_sender(subscriber);
}

void signal_base_t::remove_invalid_connections() {
  mutex_guard_t guard(m_core->mutex);
  m_is_valid_flag = nullptr;
  if (m_invalid_count == 0) return;
  for (node_t* node = m_head.next; node != &m_head;) {
    node_t* next = node->next;
    if (node->connection.subscriber == nullptr) unlink_and_free(node);
    node = next;
  }
  m_invalid_count = 0;
}

void signal_base_t::erase_subscriber(subscriber_base_t* subscriber) {
  mutex_guard_t guard(m_core->mutex);
  for (node_t* node = m_head.next; node != &m_head;) {
    node_t* next = node->next;
    if (node->connection.subscriber == subscriber) discard(node);
    node = next;
  }
}

void signal_base_t::erase_all() {
  mutex_guard_t guard(m_core->mutex);
  erase_all_locked();
}

void signal_base_t::erase_all_locked() {
  for (node_t* node = m_head.next; node != &m_head; node = node->next) {
    connection_t& c = node->connection;
    if (c.subscriber == nullptr) continue;
    remove_sender(c.subscriber);
    if (m_is_valid_flag != nullptr) {
      c = connection_t();
      ++m_invalid_count;
    }
  }
  if (m_is_valid_flag == nullptr) free_all_nodes();
}

void signal_base_t::discard(node_t* node) noexcept {
  if (m_is_valid_flag != nullptr) {
    // A running emission may stand on this node: clear it, the emission removes it.
    node->connection = connection_t();
    ++m_invalid_count;
  } else {
    unlink_and_free(node);
  }
}

void signal_base_t::unlink_and_free(node_t* node) noexcept {
  node->prev->next = node->next;
  node->next->prev = node->prev;
  free_node(node);
}

signal_base_t::node_t* signal_base_t::make_node(connection_t const& connection) {
  if (m_core->first_node_in_use) return new node_t{nullptr, nullptr, connection};
  m_core->first_node_in_use = true;
  node_t* node = &m_core->first_node;
  node->prev = node->next = nullptr;
  node->connection = connection;
  return node;
}

void signal_base_t::free_node(node_t* node) noexcept {
  if (node != &m_core->first_node) {
    delete node;
    return;
  }
  node->connection = connection_t();
  m_core->first_node_in_use = false;
}

void signal_base_t::free_all_nodes() noexcept {
  for (node_t* node = m_head.next; node != &m_head;) {
    node_t* next = node->next;
    free_node(node);
    node = next;
  }
  m_head.prev = m_head.next = &m_head;
  m_invalid_count = 0;
}

void signal_base_t::remove_sender(subscriber_base_t* subscriber) {
  mutex_guard_t guard(subscriber->m_senders_mutex);
  auto& senders = subscriber->m_senders;
  auto it = std::find(senders.begin(), senders.end(), m_core);
  if (it != senders.end()) senders.erase(it);
}

}  // namespace quillon2::_internal
