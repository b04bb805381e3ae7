// Helpers of the attribute-form writer shared with the public save calls.
#pragma once

#include <string>

namespace quillon2 {
class variant_bag_t;
class variant_bag_visitor_t;
class variant_bag_visitor_to_xml_t;
}  // namespace quillon2

namespace quillon2::internal {

// Opens the steps of a root path ("a.b": a, then b inside it) with on_start_variant_bag.
// False as soon as the visitor refuses a step; an empty step is refused by the writer.
bool open_root_path(variant_bag_visitor_t& visitor, char const* root_path);

// Why a visitor made by create_visitor_to_xml refused its last refused event, for log
// messages; empty when it refused none (or is another visitor).
std::string why_refused(variant_bag_visitor_to_xml_t const& visitor);

// dump_variant_bag into a visitor that leaves the bag alone while it is walked (the
// writer of create_visitor_to_xml): the walk may then read ahead into the bags that it
// has not reached yet.
int dump_to_own_visitor(variant_bag_t const& bag, variant_bag_visitor_t& visitor);

}  // namespace quillon2::internal
