// Reads the protected type id of a counted object.
#pragma once

#include <quillon2/core/object_interface.hpp>

namespace quillon2::internal {

struct object_type_reader_t : object_interface_t {
  static u32_t read(object_interface_t const* object) {
    return object ? (object->*(&object_type_reader_t::get_type))() : 0;
  }
};

inline u32_t object_type_of(object_interface_t const* object) {
  return object_type_reader_t::read(object);
}

}  // namespace quillon2::internal
