// Library-internal access to variant_t blocks, for the serialization layer and the bag.
#pragma once

#include <quillon2/das/variant.hpp>

namespace quillon2::internal {

struct variant_buddy_t {
  // Replaces the value by a new dynamic block of size bytes, filled from data unless it
  // is null. A text block must hold the terminated text and its size must be (length +
  // 1) units: equality compares text blocks by size and bytes.
  static void set_data(variant_t& v, das_variant_type_t type, void const* data, u64_t size) {
    v.set_data(type, data, size);
  }
  // Makes the value a block of size bytes that the caller fills whole (the value's own
  // block when nobody shares it and its size fits) and gives its payload.
  static void* set_block(variant_t& v, das_variant_type_t type, u64_t size) {
    return v.set_block(type, size);
  }
  // The payload of a dynamic value, null for any other.
  static void const* payload(variant_t const& v) {
    return v.is_dynamic_type() ? v.m_value.m_data : nullptr;
  }
  static notype_ptr_t* notype_ptr(variant_t const& v) {
    return const_cast<notype_ptr_t*>(v.notype_ptr());
  }
};

}  // namespace quillon2::internal
