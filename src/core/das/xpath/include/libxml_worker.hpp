// The mirror document of XPath over bags: libxml_worker_impl_t owns one libxml2 document,
// builds it from tree events (or straight from a bag, without the events' wide texts)
// and evaluates expressions over it. Every element, attribute and text node it makes
// carries its source (bag or value) in `_private`.
//
// Building is iterative: a bag of any depth mirrors without recursion, and libxml2 frees
// such a document iteratively as well. A worker belongs to one thread at a time.
#pragma once

#include <cstddef>
#include <string>

#include <libxml/tree.h>

#include <quillon2/das/das_generic_xpath.hpp>

namespace quillon2::internal {

// The bag's name, or null for a root bag that was never named (variant_bag_t::get_name
// would report that as a failed assertion).
inline wchar_t const* bag_name_or_null(variant_bag_t const& bag) {
  if (bag.get_parent() == nullptr && !bag.has<variant_t>(L"#tag_name")) return nullptr;
  return bag.get_name();
}

class libxml_worker_impl_t : public libxml_worker_t {
 public:
  libxml_worker_impl_t();
  libxml_worker_impl_t(libxml_worker_impl_t const&) = delete;
  libxml_worker_impl_t& operator=(libxml_worker_impl_t const&) = delete;
  ~libxml_worker_impl_t() override;

  void on_node_begin(wchar_t const* name, void* tag) override;
  void on_property(wchar_t const* name, wchar_t const* value, void* tag) override;
  void on_node_end() override;
  void select(wchar_t const* xpathExpr, libxml_worker_sink_t& sink) override;
  void set_operation_limit(unsigned long limit) override { m_operation_limit = limit; }

  // Mirrors a whole bag below the current node: the direct walk, without recursion.
  void mirror(variant_bag_t const& bag);

 private:
  // The event operations on UTF-8 texts (terminated; `text` may hold `length` bytes).
  void begin_element(char const* name, void* tag);
  void add_attribute(char const* name, char const* value, void* tag);
  void add_text(char const* text, std::size_t length, void* tag);
  void end_element();
  // The value's text, as get_value_string gives it, in UTF-8 into m_value_text.
  void value_text(variant_t const& value);

  xmlDocPtr m_doc;
  xmlNodePtr m_current_node;
  // The last attribute added and its element: appending stays O(1) on wide bags.
  xmlAttrPtr m_last_attribute = nullptr;
  xmlNodePtr m_last_attribute_owner = nullptr;
  // Levels begun while the document could not take a node: their events are dropped.
  std::size_t m_lost_depth = 0;
  unsigned long m_operation_limit = k_default_xpath_operation_limit;
  bool m_ordered = false;  // elements numbered for fast document-order comparisons
  std::string m_name_text;
  std::string m_value_text;
};

}  // namespace quillon2::internal
