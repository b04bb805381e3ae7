// The direct walk of a bag into the mirror document, without recursion: an element per
// bag, then its values (attributes, and text for the empty name), then its child bags,
// each kind in insertion order and without hidden entries. Texts go straight to UTF-8,
// the same texts that get_value_string gives.
#include <cwchar>
#include <vector>

#include <quillon2/das/variant.hpp>
#include <quillon2/das/variant_bag.hpp>

#include "core/das/include/variant_text.hpp"
#include "core/das/include/xml_safety.hpp"
#include "core/das/xpath/include/libxml_worker.hpp"

namespace quillon2::internal {

void libxml_worker_impl_t::value_text(variant_t const& value) {
  m_value_text.clear();
  if (append_number_text(m_value_text, value)) return;
  // Only a wide string has a text of its own; every other type gives the empty text.
  if (value.get_type() != vtWString) return;
  wchar_t const* const text = value.get<wchar_t const*>();
  if (text != nullptr) append_wide_as_utf8(m_value_text, text, std::wcslen(text));
}

void libxml_worker_impl_t::mirror(variant_bag_t const& root) {
  QUILLON_ASSERT(m_current_node);
  if (!m_current_node) return;
  using children_t = variant_bag_t::const_iterator_t<variant_bag_t>;
  std::vector<children_t> pending;  // the children still to visit, one entry per open bag

  auto const open = [&](variant_bag_t const& bag) {
    wchar_t const* const name = bag_name_or_null(bag);
    m_name_text.clear();
    if (name == nullptr) {
      m_name_text = "bag";
    } else {
      append_wide_as_utf8(m_name_text, name, std::wcslen(name));
    }
    begin_element(m_name_text.c_str(), const_cast<variant_bag_t*>(&bag));
    for (auto value = bag.begin<variant_t>(); !value.at_end(); value.next()) {
      void* const tag = const_cast<variant_t*>(&value.get_value());
      value_text(value.get_value());
      wchar_t const* const value_name = value.get_name();
      if (value_name[0] == L'\0') {
        add_text(m_value_text.data(), m_value_text.size(), tag);
      } else {
        m_name_text.clear();
        append_wide_as_utf8(m_name_text, value_name, std::wcslen(value_name));
        add_attribute(m_name_text.c_str(), m_value_text.c_str(), tag);
      }
    }
    pending.push_back(bag.begin<variant_bag_t>());
  };

  open(root);
  while (!pending.empty()) {
    children_t& children = pending.back();
    if (children.at_end()) {
      pending.pop_back();
      end_element();
      continue;
    }
    variant_bag_t const& child = children.get_value();
    children.next();
    open(child);  // may reallocate `pending`: `children` is not used after this
  }
}

}  // namespace quillon2::internal
