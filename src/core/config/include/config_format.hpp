// The layout of saved configuration files: a tree printed into one buffer exactly as
// libxml2's indenting formatter prints it (two blanks a level up to thirty levels, one
// element a line, an element whose children include text printed as it stands with
// everything inside it), checking as it prints that a parser would read the document
// back. The tree is either a libxml2 document or the store's own lighter tree.
#pragma once

#include <algorithm>
#include <cstddef>
#include <string>

#include "core/das/include/xml_safety.hpp"

namespace quillon2::internal {

enum class print_outcome_t {
  printed,
  refused,      // the document would not read back: it is not saved
  unsupported,  // a node this printer leaves to libxml2's own formatter
};

enum class node_kind_t { element, text, cdata, comment, pi, unsupported };

// Whether libxml2's formatter runs with its default settings (indenting with two blanks,
// empty elements closed with "/>"), the only ones print_formatted knows.
bool default_formatter_settings();

// `<?xml version="..." encoding="UTF-8"?>` and a line feed, with the version quoted and
// the standalone declaration (1 yes, 0 no, else none) as libxml2 prints them.
void append_declaration(std::string& out, char const* version, int standalone);

// Prints the node `top` (of nesting level 0) and everything inside it. A Tree gives
//   node_t, none                              the node handle and its null value
//   kind(n), first_child(n), next(n), parent(n)
//   open(n, out)    "<name" and the attributes, checked
//   close(n, out)   "</name>"
//   leaf(n, out)    a text, CDATA section, comment or processing instruction, checked
template <class Tree>
print_outcome_t print_formatted(Tree& tree, typename Tree::node_t top, std::string& out) {
  using node_t = typename Tree::node_t;
  constexpr std::size_t k_indent_levels = 30;
  bool format = true;
  node_t unformatted = Tree::none;  // the element that turned the layout off
  std::size_t level = 0;
  auto const indent = [&] { out.append(2 * std::min(level, k_indent_levels), ' '); };
  node_t node = top;
  for (;;) {
    node_kind_t const kind = tree.kind(node);
    if (kind == node_kind_t::unsupported) return print_outcome_t::unsupported;
    if (kind == node_kind_t::element) {
      if (level + 1 > k_max_element_depth) return print_outcome_t::refused;
      if (node != top && format) indent();
      print_outcome_t const opened = tree.open(node, out);
      if (opened != print_outcome_t::printed) return opened;
      node_t const child = tree.first_child(node);
      if (child == Tree::none) {
        out.append("/>", 2);
      } else {
        for (node_t c = child; format && c != Tree::none; c = tree.next(c)) {
          node_kind_t const inner = tree.kind(c);
          if (inner == node_kind_t::text || inner == node_kind_t::cdata) {
            format = false;
            unformatted = node;
          }
        }
        out.append(">\n", format ? 2 : 1);
        ++level;
        node = child;
        continue;
      }
    } else {
      if ((kind == node_kind_t::comment || kind == node_kind_t::pi) && node != top && format) {
        indent();
      }
      print_outcome_t const printed = tree.leaf(node, out);
      if (printed != print_outcome_t::printed) return printed;
    }
    for (;;) {
      if (node == top) return print_outcome_t::printed;
      if (format) out += '\n';
      node_t const next = tree.next(node);
      if (next != Tree::none) {
        node = next;
        break;
      }
      node = tree.parent(node);
      if (level > 0) --level;
      if (format) indent();
      tree.close(node, out);
      if (node == unformatted) {
        format = true;
        unformatted = Tree::none;
      }
    }
  }
}

}  // namespace quillon2::internal
