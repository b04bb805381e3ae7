// Helpers of the attribute-form writer shared with the public save calls.
#pragma once

namespace quillon2 {
class variant_bag_visitor_t;
}

namespace quillon2::internal {

// Opens the steps of a root path ("a.b": a, then b inside it) with on_start_variant_bag.
// False as soon as the visitor refuses a step; an empty step is refused by the writer.
bool open_root_path(variant_bag_visitor_t& visitor, char const* root_path);

}  // namespace quillon2::internal
