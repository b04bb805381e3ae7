// The scheduler's table of running tasks: each task with its group and whether it
// finalizes.
//
// An open-addressing table keyed by the task's address, with linear probing and
// backward-shift removal, so that a lookup reads one or two neighbouring slots instead
// of a chain of separately allocated nodes; at a hundred thousand queued tasks each of
// those nodes was a cache miss. The table grows at half full and shrinks at an eighth
// full, so that a scan (a cancel, a query of a group) after a burst does not walk much
// empty space.
//
// Group names are kept once, with the number of tasks in them: a task's entry points at
// its group. A few groups that no task uses any more are kept for the next tasks, so
// that a program that runs one task at a time in the same group allocates nothing here.
//
// Not thread-safe: the scheduler holds its tasks lock around every call.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include <boost/shared_ptr.hpp>

#include <quillon2/core/threading/task.hpp>

namespace quillon2::internal {

class task_table_t {
 public:
  using task_ptr = boost::shared_ptr<threading::task_t>;
  using group_t = std::pair<std::wstring const, std::size_t>;  // name, tasks in it

  struct entry_t {
    task_ptr task;  // null in a free slot
    group_t* group = nullptr;
    bool finalizing = false;

    std::wstring const& group_name() const noexcept { return group->first; }
  };

  bool empty() const noexcept { return m_size == 0; }
  std::size_t size() const noexcept { return m_size; }

  // The entry of `task`, or null.
  entry_t* find(threading::task_t const* task) noexcept {
    if (m_size == 0) return nullptr;
    for (std::size_t i = home(task);; i = next(i)) {
      entry_t& slot = m_slots[i];
      if (!slot.task) return nullptr;
      if (slot.task.get() == task) return &slot;
    }
  }

  // Enters `task` in `group`; false when it is there already.
  bool insert(task_ptr const& task, std::wstring const& group) {
    if ((m_size + 1) * 2 > m_slots.size()) rehash(m_slots.empty() ? 16 : m_slots.size() * 2);
    std::size_t i = home(task.get());
    for (; m_slots[i].task; i = next(i)) {
      if (m_slots[i].task == task) return false;
    }
    group_t* const entered = enter_group(group);
    entry_t& slot = m_slots[i];
    slot.task = task;
    slot.group = entered;
    slot.finalizing = false;
    ++m_size;
    return true;
  }

  // Takes the entry out and hands its task reference over, for the caller to let go of
  // outside its lock. Other entries may move.
  task_ptr erase(entry_t* entry) {
    task_ptr task;
    task.swap(entry->task);
    leave_group(entry->group);
    entry->group = nullptr;
    --m_size;
    // Backward shift: the entries after the freed slot that would sit nearer their home
    // move up, so that no lookup stops early at the hole.
    std::size_t hole = static_cast<std::size_t>(entry - m_slots.data());
    for (std::size_t i = next(hole); m_slots[i].task; i = next(i)) {
      std::size_t const wanted = home(m_slots[i].task.get());
      // The entry may fill the hole when its home does not lie cyclically in (hole, i].
      if (((i - wanted) & mask()) >= ((i - hole) & mask())) {
        std::swap(m_slots[hole], m_slots[i]);
        hole = i;
      }
    }
    if (m_slots.size() > kept_slots && m_size * 8 < m_slots.size()) rehash(m_slots.size() / 2);
    return task;
  }

  // Calls `visit(task, group name)` for every entry.
  template <class F>
  void for_each(F const& visit) const {
    any_of([&visit](task_ptr const& task, std::wstring const& group) {
      visit(task, group);
      return false;
    });
  }

  // Calls `visit(task, group name)` for every entry until it returns true; says whether
  // one did.
  template <class F>
  bool any_of(F const& visit) const {
    if (m_size == 0) return false;
    for (entry_t const& slot : m_slots) {
      if (slot.task && visit(slot.task, slot.group_name())) return true;
    }
    return false;
  }

 private:
  // The table does not shrink below this (32 KB): a program that queues bursts of a few
  // hundred tasks does not grow and shrink it with each of them.
  static constexpr std::size_t kept_slots = 1024;
  // Groups that no task uses any more, kept for the next tasks.
  static constexpr std::size_t max_idle_groups = 32;

  std::size_t mask() const noexcept { return m_slots.size() - 1; }
  std::size_t next(std::size_t i) const noexcept { return (i + 1) & mask(); }

  // Tasks sit at addresses a few dozen bytes apart: the address is multiplied by a large
  // odd constant and the top bits, where all of its bits have mixed, pick the slot.
  std::size_t home(threading::task_t const* task) const noexcept {
    auto const address = static_cast<std::uint64_t>(reinterpret_cast<std::uintptr_t>(task));
    return static_cast<std::size_t>((address * 0x9E3779B97F4A7C15ull) >> m_shift);
  }

  void rehash(std::size_t slots) {
    std::vector<entry_t> old(slots);
    old.swap(m_slots);
    m_shift = 64;
    for (std::size_t n = slots; n > 1; n >>= 1) --m_shift;
    for (entry_t& entry : old) {
      if (!entry.task) continue;
      std::size_t i = home(entry.task.get());
      while (m_slots[i].task) i = next(i);
      m_slots[i] = std::move(entry);
    }
  }

  group_t* enter_group(std::wstring const& name) {
    auto found = m_groups.find(name);
    if (found == m_groups.end()) {
      found = m_groups.emplace(name, 0).first;
    } else if (found->second == 0) {
      --m_idle_groups;  // an idle group comes back into use
    }
    ++found->second;
    return &*found;
  }

  void leave_group(group_t* group) {
    if (--group->second != 0) return;
    if (m_idle_groups < max_idle_groups) {
      ++m_idle_groups;
      return;
    }
    m_groups.erase(group->first);
  }

  std::vector<entry_t> m_slots;  // a power of two of them, or none
  std::size_t m_size = 0;
  unsigned m_shift = 64;  // 64 less the bits of the slot count
  std::unordered_map<std::wstring, std::size_t> m_groups;
  std::size_t m_idle_groups = 0;
};

}  // namespace quillon2::internal
