// XPath over bags: a read-only tree view of a bag, its mirror as an XML document, and
// results that point back into the bag itself.
//
// A bag is mirrored into a private XML document: each bag becomes an element named after
// the bag ("bag" when it has no name), each value an attribute named after the value
// (its text as from get_value_string), and a value with the empty name becomes text
// content of the element. Values come before child bags; hidden entries (names beginning
// with "#") are left out. Every mirrored node remembers the bag or value it came from, so
// a query answers with pointers to the bag's own nodes and values. Only an atomic result
// (boolean, number, string) is a copy.
//
//   xpath_t<variant_bag_t, variant_t> const xp = variant_bag_xpath(bag);  // mirror once
//   auto const r = xp.select(L"/root/item[@kind='x']");                    // ask many times
//   for (variant_bag_t* item : r.get_nodes()) ...
//
// Ownership: an xpath_t owns its mirror document (shared between copies, freed with the
// last one). A result holds no part of the mirror, only pointers into the bag, so it
// stays valid after the mirror is gone. The bag must outlive every xpath_t and result made
// from it, and nothing they point at may be removed meanwhile. The mirror is a snapshot:
// later changes of the bag are not seen.
//
// Limits: every query runs with an operation limit (set_operation_limit, default
// k_default_xpath_operation_limit) and libxml2's own bounds on expression nesting; a
// query that exceeds one stops and reports an error. Errors (syntax, limits) go to the
// result (error 1) and to the library's log, never to standard error directly.
//
// Threads: a view, an xpath_t and a result serve one thread at a time; separate mirrors
// may be queried on separate threads. Reference counts are atomic.
#pragma once

#include <cstdint>
#include <vector>

#include <boost/shared_ptr.hpp>

#include <quillon2/core/object_interface.hpp>
#include <quillon2/das/variant.hpp>
#include <quillon2/das/variant_bag.hpp>
#include <quillon2/export.hpp>
#include <quillon2/headers/iterator.hpp>

namespace quillon2 {

template <class B, class V>
class xpath_result_t;

// Receives a tree as events: a node begins, its properties, the node ends. A null
// property name stands for the node's text content.
template <class B, class V>
class QUILLON2_API generic_tree_visitor_t : public object_interface_t {
 public:
  virtual void on_node_begin(wchar_t const* name, B* tag) = 0;
  virtual void on_property(wchar_t const* name, wchar_t const* value, V* tag) = 0;
  virtual void on_node_end() = 0;
};

// The largest number of XPath operations one query may run unless set otherwise.
constexpr unsigned long k_default_xpath_operation_limit = 50000000ul;

namespace internal {

// Where a worker's select delivers its answer.
class QUILLON2_API libxml_worker_sink_t {
 public:
  virtual void add_node(void* tag) = 0;                // a result element
  virtual void add_property(void* tag) = 0;            // a result attribute or text node
  virtual void set_value(variant_t const& value) = 0;  // a boolean, number or string result
  virtual void set_error(unsigned error) = 0;          // the expression failed

 protected:
  ~libxml_worker_sink_t() = default;
};

// The mirror document behind an opaque handle: built by the visitor events, then queried.
class QUILLON2_API libxml_worker_t : public generic_tree_visitor_t<void, void> {
 public:
  virtual void select(wchar_t const* xpath_expr, libxml_worker_sink_t& sink) = 0;
  // The operation limit of later selects; 0 means no limit.
  virtual void set_operation_limit(unsigned long limit) = 0;
};

// A new worker with an empty document.
QUILLON2_API sptr_t<libxml_worker_t> create_libxml_worker();

}  // namespace internal

// A read-only view of a tree of B nodes with V properties. The library has two forms:
// generic_tree_t<variant_bag_t, variant_t> and generic_tree_t<const variant_bag_t,
// const variant_t>.
template <class B, class V>
class QUILLON2_API generic_tree_t : public object_interface_t {
 public:
  struct property_t {
    variant_t name;   // vtWString; the empty text stands for the node's text content
    variant_t value;  // vtWString: the value as text
    V* source;        // the value itself, not owned
  };

  virtual wchar_t const* get_name() const = 0;
  virtual sptr_t<generic_tree_t> get_parent() const = 0;
  virtual generic_iterator_t<sptr_t<generic_tree_t>> get_children() const = 0;
  virtual generic_iterator_t<property_t const*> get_properties() const = 0;
  virtual B& get_value() const = 0;

  // Mirrors this node and everything under it, evaluates the expression once and drops
  // the mirror. For many questions use variant_bag_xpath once instead.
  xpath_result_t<B, V> select(wchar_t const* xpath_expr);
  // The location path from the root of the bag: "/root/child[position()=2]/leaf". A
  // step has a position predicate only when a sibling shares its name.
  variant_t get_xpath() const;
  // The view of the descendant whose bag is `bag` (depth first), or null. This node
  // itself is not compared.
  sptr_t<generic_tree_t> find(variant_bag_t const* bag) const;
};

// A view of a bag that it does not own. Live views are ref_counted_t forms of this class:
//   sptr_t<variant_bag_generic_tree_t> view(new ref_counted_t<variant_bag_generic_tree_t>());
//   view->init(bag);
class QUILLON2_API variant_bag_generic_tree_t : public generic_tree_t<variant_bag_t, variant_t> {
 public:
  using tree_t = generic_tree_t<variant_bag_t, variant_t>;

  variant_bag_generic_tree_t() noexcept = default;
  variant_bag_generic_tree_t(variant_bag_generic_tree_t const& other) noexcept;
  variant_bag_generic_tree_t(variant_bag_generic_tree_t&& other) noexcept;
  variant_bag_generic_tree_t& operator=(variant_bag_generic_tree_t const& other) noexcept;
  variant_bag_generic_tree_t& operator=(variant_bag_generic_tree_t&& other) noexcept;
  ~variant_bag_generic_tree_t() override;

  void init(variant_bag_t& bag) noexcept { m_bag = &bag; }

  wchar_t const* get_name() const override;
  sptr_t<tree_t> get_parent() const override;
  generic_iterator_t<sptr_t<tree_t>> get_children() const override;
  generic_iterator_t<property_t const*> get_properties() const override;
  variant_bag_t& get_value() const override;

 private:
  variant_bag_t* m_bag = nullptr;
};

// The same view over a const bag.
class QUILLON2_API const_variant_bag_generic_tree_t
    : public generic_tree_t<variant_bag_t const, variant_t const> {
 public:
  using tree_t = generic_tree_t<variant_bag_t const, variant_t const>;

  const_variant_bag_generic_tree_t() noexcept = default;
  const_variant_bag_generic_tree_t(const_variant_bag_generic_tree_t const& other) noexcept;
  const_variant_bag_generic_tree_t(const_variant_bag_generic_tree_t&& other) noexcept;
  const_variant_bag_generic_tree_t& operator=(
      const_variant_bag_generic_tree_t const& other) noexcept;
  const_variant_bag_generic_tree_t& operator=(const_variant_bag_generic_tree_t&& other) noexcept;
  ~const_variant_bag_generic_tree_t() override;

  void init(variant_bag_t const& bag) noexcept { m_bag = &bag; }

  wchar_t const* get_name() const override;
  sptr_t<tree_t> get_parent() const override;
  generic_iterator_t<sptr_t<tree_t>> get_children() const override;
  generic_iterator_t<property_t const*> get_properties() const override;
  variant_bag_t const& get_value() const override;

 private:
  variant_bag_t const* m_bag = nullptr;
};

// The answer of one query. A node-set result fills the nodes (elements, that is bags) and
// the properties (attributes and text, that is values), each in document order; an atomic
// result sets the value (vtBool, vtDouble or vtWString) and leaves both empty. A failed
// or stopped query has error 1, both lists empty and a vtNull value. Copies share the
// lists.
template <class B, class V>
class QUILLON2_API xpath_result_base_t : public internal::libxml_worker_sink_t {
 public:
  xpath_result_base_t();
  xpath_result_base_t(xpath_result_base_t const&) = default;
  xpath_result_base_t& operator=(xpath_result_base_t const&) = default;
  ~xpath_result_base_t() = default;

  void add_node(void* tag) override;
  void add_property(void* tag) override;
  void set_value(variant_t const& value) override;
  void set_error(unsigned error) override;

  // On a temporary result (`for (auto* n : xp.select(q).get_nodes())`) these give copies,
  // so that nothing refers into a result that is gone.
  std::vector<B*> const& get_nodes() const& noexcept { return *m_nodes; }
  std::vector<B*> get_nodes() && { return *m_nodes; }
  std::vector<V*> const& get_properties() const& noexcept { return *m_properties; }
  std::vector<V*> get_properties() && { return *m_properties; }
  variant_t const& get_value() const& noexcept { return m_value; }
  variant_t get_value() && noexcept { return m_value; }
  u32_t get_error() const noexcept { return m_error; }

  boost::shared_ptr<std::vector<B*>> m_nodes;
  boost::shared_ptr<std::vector<V*>> m_properties;
  variant_t m_value;
  u32_t m_error;
};

// Evaluates `xpath_expr` over the mirror of `worker` in its constructor.
template <class B, class V>
class QUILLON2_API xpath_result_t : public xpath_result_base_t<B, V> {
 public:
  // Exported by name: some compilers hide a member whose parameter types are not exported.
  QUILLON2_API xpath_result_t(sptr_t<internal::libxml_worker_t> const& worker,
                              wchar_t const* xpath_expr);
};

// A bag mirrored once, to be asked any number of questions. Copies share the mirror.
template <class B, class V>
class QUILLON2_API xpath_t {
 public:
  // Adapts typed tree events to the worker's untyped ones.
  class visitor_impl_t : public generic_tree_visitor_t<B, V> {
   public:
    explicit visitor_impl_t(sptr_t<internal::libxml_worker_t> worker) noexcept
        : m_worker(static_cast<sptr_t<internal::libxml_worker_t>&&>(worker)) {}
    void on_node_begin(wchar_t const* name, B* tag) override { m_worker->on_node_begin(name, tag); }
    void on_property(wchar_t const* name, wchar_t const* value, V* tag) override {
      m_worker->on_property(name, value, tag);
    }
    void on_node_end() override { m_worker->on_node_end(); }

   private:
    sptr_t<internal::libxml_worker_t> m_worker;
  };

  xpath_t() noexcept = default;
  explicit xpath_t(sptr_t<internal::libxml_worker_t> worker) noexcept
      : m_worker(static_cast<sptr_t<internal::libxml_worker_t>&&>(worker)) {}

  // Evaluates an expression; the context node is the document, above the root element.
  // An xpath_t without a mirror answers with error 1.
  xpath_result_t<B, V> select(wchar_t const* xpath_expr) const {
    return xpath_result_t<B, V>(m_worker, xpath_expr);
  }
  // The operation limit of this mirror's later queries (0: none), shared by its copies.
  void set_operation_limit(unsigned long limit) const {
    if (m_worker) m_worker->set_operation_limit(limit);
  }
  sptr_t<internal::libxml_worker_t> const& get_worker() const noexcept { return m_worker; }

 private:
  sptr_t<internal::libxml_worker_t> m_worker;
};

// Mirrors `bag`. The result's pointers are non-const even for a const bag: read only.
QUILLON2_API xpath_t<variant_bag_t, variant_t> variant_bag_xpath(variant_bag_t const& bag);

// The same; a non-null `root_name` first renames `bag` (a lasting change of the bag).
QUILLON2_API xpath_t<variant_bag_t, variant_t> variant_bag_xpath(variant_bag_t& bag,
                                                                 wchar_t const* root_name);

// The forms that the library compiles, once, for every client.
extern template class generic_tree_visitor_t<void, void>;
extern template class generic_tree_visitor_t<variant_bag_t, variant_t>;
extern template class generic_tree_t<variant_bag_t, variant_t>;
extern template class generic_tree_t<variant_bag_t const, variant_t const>;
extern template class xpath_result_base_t<variant_bag_t, variant_t>;
extern template class xpath_result_base_t<variant_bag_t const, variant_t const>;
extern template class xpath_result_t<variant_bag_t, variant_t>;
extern template class xpath_result_t<variant_bag_t const, variant_t const>;
extern template class xpath_t<variant_bag_t, variant_t>;

}  // namespace quillon2
