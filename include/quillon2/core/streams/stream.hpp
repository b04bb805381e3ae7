// The abstract byte streams of the library: something that can be closed, a stream with a
// position and a size, and its reading and writing sides.
//
// These classes have no implementation of their own; the archives (<archive.hpp>) are
// the streams that the library makes. Every operation answers with an error_code_t. A
// failed operation leaves its output argument as it was. has_data() answers by the value
// of the code: Ok means more data is there, False means the end was reached, a failure
// means the question could not be answered.
//
// Threads: a stream has no lock and belongs to one thread at a time; its reference count
// is atomic, so it may change hands.
#pragma once

#include <cstddef>

#include <quillon2/core/error_code.hpp>
#include <quillon2/core/object_interface.hpp>
#include <quillon2/export.hpp>
#include <quillon2/headers/kesmet.hpp>

namespace quillon2 {

class QUILLON2_API closable_t : public object_interface_t {
 public:
  virtual error_code_t close() = 0;
};

class QUILLON2_API stream_base_t : public closable_t {
 public:
  // `origin` as in the C library: 0 from the start, 1 from the current position, 2 from
  // the end. A backward move passes a negative offset in two's complement.
  virtual error_code_t seek(u64_t offset, u32_t origin) = 0;
  virtual error_code_t get_position(u64_t* position) = 0;
  virtual error_code_t get_size(u64_t* size) = 0;
};

class QUILLON2_API read_stream_t : public stream_base_t {
 public:
  // Reads up to `size` bytes; fewer only at the end. `read` may be null.
  virtual error_code_t read(void* data, std::size_t size, u64_t* read) = 0;
  // Ok while data is left, False at the end.
  virtual error_code_t has_data() = 0;
};

class QUILLON2_API write_stream_t : public stream_base_t {
 public:
  virtual error_code_t write(void const* data, std::size_t size) = 0;
};

}  // namespace quillon2
