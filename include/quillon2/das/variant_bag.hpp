// variant_bag_t: the hierarchical property store. A bag holds named values (variant_t)
// and named child bags, each kind in insertion order with an index by name.
//
// Names may repeat: lookups answer with the entry added first, iteration walks the
// insertion order. Names that begin with "#" are hidden from the whole-kind iterators,
// from is_empty and from comparison; "#tag_name" holds the bag's own name. A pointer or
// reference to a stored value or child stays valid until that entry is removed.
//
// A bag has no lock and belongs to one thread at a time. get_name() may write the cached
// name even through a const reference.
#pragma once

#include <cstdint>
#include <utility>

#include <quillon2/das/variant.hpp>
#include <quillon2/export.hpp>

namespace quillon2 {

class variant_bag_t;
class notype_ptr_t;

namespace internal {

// One entry of a bag: a node of the insertion-ordered list, chained to the next entry
// of the same name. The name text follows the value in the same allocation unless a
// rename needed more room.
struct bag_node_base_t {
  bag_node_base_t* m_prev;
  bag_node_base_t* m_next;
  bag_node_base_t* m_next_same;
  wchar_t* m_name;
  std::uint32_t m_hash;
  std::uint32_t m_length;
  std::uint32_t m_capacity;
  bool m_name_on_heap;
  bool m_in_arena;  // the node's memory comes from a node arena of a reader
  bool m_hidden;    // the name begins with "#": walks skip the node without reading its name
};

template <class T>
struct bag_node_t : bag_node_base_t {
  explicit bag_node_t(T const& value) : bag_node_base_t(), m_value(value) {}
  // The value made in place: moved in, or default-constructed without arguments.
  template <class... Args>
  explicit bag_node_t(std::in_place_t, Args&&... args)
      : bag_node_base_t(), m_value(std::forward<Args>(args)...) {}
  T m_value;
};

template <class T>
class bag_impl_base_t;
struct vb_helper;
struct variant_bag_buddy_t;
struct bag_lists_t;

QUILLON2_API bag_node_base_t* bag_next_same(bag_node_base_t const* node,
                                            bag_node_base_t const* end);
QUILLON2_API bag_node_base_t* bag_first_visible(bag_node_base_t const* end);
QUILLON2_API bag_node_base_t* bag_first_of_name(bag_node_base_t const* end, wchar_t const* name);
QUILLON2_API bag_node_base_t const* bag_empty_list();
QUILLON2_API variant_t& bag_end_value(variant_t*);
QUILLON2_API variant_bag_t& bag_end_value(variant_bag_t*);

}  // namespace internal

class QUILLON2_API variant_bag_t {
 public:
  template <class T>
  class const_iterator_t;

  // Iterator over one kind of entries: either all of them in insertion order without the
  // hidden names, or (from begin_by_name) every entry of one name, hidden ones included.
  template <class T>
  class iterator_t {
   public:
    iterator_t() noexcept : iterator_t(internal::bag_empty_list(), false) {}

    bool at_end() const noexcept { return m_pos == m_end; }
    // Moves on; true while not at the end afterwards. At the end it stays there.
    bool next() noexcept {
      if (m_pos == m_end) return false;
      if (m_by_name) {
        m_pos = internal::bag_next_same(m_pos, m_end);
      } else {
        do {
          m_pos = m_pos->m_next;
        } while (m_pos != m_end && m_pos->m_hidden);
      }
      return m_pos != m_end;
    }
    // The entry's name; null at the end.
    wchar_t const* get_name() const noexcept { return at_end() ? nullptr : m_pos->m_name; }
    // The entry's value; at the end a reference to an empty value.
    T& get_value() const noexcept {
      if (at_end()) return internal::bag_end_value(static_cast<T*>(nullptr));
      return static_cast<internal::bag_node_t<T>*>(m_pos)->m_value;
    }
    // Starts again as the iterator started: at the first visible entry, or at the
    // earliest entry of the name iterated (if the iterator still stands on one).
    void restart() noexcept {
      if (m_by_name) {
        if (m_pos != m_end) m_pos = internal::bag_first_of_name(m_end, m_pos->m_name);
      } else {
        m_pos = internal::bag_first_visible(m_end);
      }
    }

   private:
    friend class variant_bag_t;
    friend class const_iterator_t<T>;
    iterator_t(internal::bag_node_base_t const* end, bool by_name) noexcept
        : m_pos(const_cast<internal::bag_node_base_t*>(end)),
          m_end(const_cast<internal::bag_node_base_t*>(end)),
          m_by_name(by_name) {}
    iterator_t& start() noexcept {
      m_pos = internal::bag_first_visible(m_end);
      return *this;
    }

    internal::bag_node_base_t* m_pos;
    internal::bag_node_base_t* m_end;
    bool m_by_name;
  };

  template <class T>
  class const_iterator_t {
   public:
    const_iterator_t() noexcept = default;
    const_iterator_t(iterator_t<T> const& it) noexcept : m_it(it) {}
    const_iterator_t& operator=(iterator_t<T> const& it) noexcept {
      m_it = it;
      return *this;
    }
    bool at_end() const noexcept { return m_it.at_end(); }
    bool next() noexcept { return m_it.next(); }
    wchar_t const* get_name() const noexcept { return m_it.get_name(); }
    T const& get_value() const noexcept { return m_it.get_value(); }
    void restart() noexcept { m_it.restart(); }

   private:
    iterator_t<T> m_it;
  };

  variant_bag_t();
  variant_bag_t(variant_bag_t const& other);
  variant_bag_t& operator=(variant_bag_t const& other);
  ~variant_bag_t();

  // Appends a copy, also if the name exists already.
  template <class T>
  void add(wchar_t const* name, T const& value) {
    add_entry(name, value);
  }
  // Removes every entry of the name, then appends a copy; returns the stored value.
  template <class T>
  T& put(wchar_t const* name, T const& value) {
    return put_entry(name, value);
  }
  // Appends a copy of the bag and links it: its parent is this bag and its "#tag_name"
  // is the name.
  variant_bag_t& add_variant_bag(wchar_t const* name, variant_bag_t const& value);

  // The earliest entry of the name, or null.
  template <class T>
  T* get(wchar_t const* name) {
    return get_entry(name, static_cast<T*>(nullptr));
  }
  template <class T>
  T const* get(wchar_t const* name) const {
    return const_cast<variant_bag_t*>(this)->get_entry(name, static_cast<T*>(nullptr));
  }
  template <class T>
  bool has(wchar_t const* name) const {
    return has_entry(name, static_cast<T*>(nullptr));
  }
  // The number of entries of the name; with a null name, of all entries of the kind.
  template <class T>
  u64_t count(wchar_t const* name) const {
    return count_entries(name, static_cast<T*>(nullptr));
  }
  // Removes every entry of the name.
  template <class T>
  void remove(wchar_t const* name) {
    remove_entries(name, static_cast<T*>(nullptr));
  }
  // Removes the one entry stored at that address; other addresses do nothing.
  template <class T>
  void remove(T const* value) {
    remove_entry(value);
  }
  // Empties one kind, hidden entries included.
  template <class T>
  void remove_all() {
    remove_all_entries(static_cast<T*>(nullptr));
  }

  variant_t get_variant(wchar_t const* name, variant_t const& default_value) const;

  template <class T>
  iterator_t<T> begin() {
    return iterator_t<T>(list_of(static_cast<T*>(nullptr)), false).start();
  }
  template <class T>
  const_iterator_t<T> begin() const {
    return const_cast<variant_bag_t*>(this)->begin<T>();
  }
  template <class T = variant_bag_t>
  iterator_t<T> begin_by_name(wchar_t const* name) {
    iterator_t<T> it(list_of(static_cast<T*>(nullptr)), true);
    it.m_pos = find_first(name, static_cast<T*>(nullptr));
    return it;
  }
  template <class T = variant_bag_t>
  const_iterator_t<T> begin_by_name(wchar_t const* name) const {
    return const_cast<variant_bag_t*>(this)->begin_by_name<T>(name);
  }

  // The bag's name: its "#tag_name", or the name under which its parent holds it.
  wchar_t const* get_name() const;
  void rename(wchar_t const* name);
  variant_bag_t* get_parent() { return m_parent; }
  variant_bag_t const* get_parent() const { return m_parent; }

  bool is_empty() const;
  void clear();
  void swap(variant_bag_t& other);

  bool operator==(variant_bag_t const& other) const;
  bool operator!=(variant_bag_t const& other) const { return !(*this == other); }

 private:
  friend struct internal::vb_helper;
  friend struct internal::variant_bag_buddy_t;
  template <class>
  friend struct internal::bag_node_t;

  // A bag on lists made by the library's readers.
  explicit variant_bag_t(internal::bag_lists_t* lists) noexcept;

  template <class T>
  bool check_entry(wchar_t const* name, T const& value) const;
  void copy_tree(variant_bag_t const& source);
  void add_entry(wchar_t const* name, variant_t const& value);
  void add_entry(wchar_t const* name, variant_bag_t const& value);
  variant_t& put_entry(wchar_t const* name, variant_t const& value);
  variant_bag_t& put_entry(wchar_t const* name, variant_bag_t const& value);
  notype_ptr_t& put_entry(wchar_t const* name, notype_ptr_t const& value);
  variant_t* get_entry(wchar_t const* name, variant_t*);
  variant_bag_t* get_entry(wchar_t const* name, variant_bag_t*);
  notype_ptr_t* get_entry(wchar_t const* name, notype_ptr_t*);
  bool has_entry(wchar_t const* name, variant_t*) const;
  bool has_entry(wchar_t const* name, variant_bag_t*) const;
  bool has_entry(wchar_t const* name, notype_ptr_t*) const;
  u64_t count_entries(wchar_t const* name, variant_t*) const;
  u64_t count_entries(wchar_t const* name, variant_bag_t*) const;
  void remove_entries(wchar_t const* name, variant_t*);
  void remove_entries(wchar_t const* name, variant_bag_t*);
  void remove_entries(wchar_t const* name, notype_ptr_t*);
  void remove_entry(variant_t const* value);
  void remove_entry(variant_bag_t const* value);
  void remove_all_entries(variant_t*);
  void remove_all_entries(variant_bag_t*);
  internal::bag_node_base_t const* list_of(variant_t*) const;
  internal::bag_node_base_t const* list_of(variant_bag_t*) const;
  internal::bag_node_base_t* find_first(wchar_t const* name, variant_t*) const;
  internal::bag_node_base_t* find_first(wchar_t const* name, variant_bag_t*) const;

  internal::bag_impl_base_t<variant_t>* m_values;
  internal::bag_impl_base_t<variant_bag_t>* m_bags;
  variant_bag_t* m_parent;
};

}  // namespace quillon2
