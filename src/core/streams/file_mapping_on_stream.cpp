// file_mapping_on_stream_t: a stream's content as a block of memory, and the two
// create_mapping_on_stream functions.
//
// A mapping on a read stream reads its content at once. Up to k_first_step that is one
// read; beyond, the block grows with the data that really arrives, each step as large as
// what came before, so a stream that claims a huge size costs no more than twice what it
// delivers before it ends.
#include <algorithm>
#include <exception>
#include <limits>
#include <new>

#include <quillon2/core/check.hpp>
#include <quillon2/core/streams/file_mapping.hpp>

#include "core/miscellaneous/include/logging.hpp"
#include "core/streams/include/make_counted.hpp"

namespace quillon2 {

namespace {

constexpr u64_t k_first_step = u64_t{1} << 20;

// Gives the vector `size` bytes, zero-filled; false when memory runs out.
bool resize_bytes(std::vector<unsigned char>& bytes, u64_t size) {
  if (size > bytes.max_size()) return false;
  try {
    bytes.resize(static_cast<std::size_t>(size));
  } catch (std::bad_alloc const&) {
    return false;
  } catch (std::length_error const&) {
    return false;
  }
  return true;
}

template <class Stream>
error_code_t make_mapping(sptr_t<file_mapping_t>& out, sptr_t<Stream> const& stream, u64_t size) {
  std::optional<std::string> other;
  error_code_t const result = internal::make_counted(
      out,
      [&] {
        return sptr_t<file_mapping_t>(
            new ref_counted_t<file_mapping_on_stream_t, mt_ref_count_impl_t>(stream, size));
      },
      other);
  if (other) return QUILLON_RAISE(error::FailedTo.Create.File.Mapping(other->c_str()));
  return result;
}

}  // namespace

file_mapping_on_stream_t::file_mapping_on_stream_t(sptr_t<read_stream_t> const& stream,
                                                   u64_t size) {
  QUILLON_CHECK_THROW(stream, error::IsNot.Valid.Argument);
  if (!size) {
    u64_t stream_size = 0;
    u64_t stream_pos = 0;
    error_code_t code = stream->get_size(&stream_size);
    if (code.failed()) throw exception(code);
    code = stream->get_position(&stream_pos);
    if (code.failed()) throw exception(code);
    QUILLON_ASSERT(stream_pos <= stream_size);
    stream_size = stream_pos <= stream_size ? stream_size - stream_pos : 0;
    QUILLON_CHECK_THROW(stream_size < std::numeric_limits<size_t>::max(), error::IsNot.Valid.Size);
    size = stream_size;
  }
  u64_t read = 0;
  while (read < size) {
    u64_t const step = std::min(size - read, std::max(read, k_first_step));
    if (!resize_bytes(m_mapping, read + step)) {
      QUILLON_CHECK_THROW(m_mapping.size() == size, error::FailedTo.Resize.The.Container);
    }
    u64_t got = 0;
    error_code_t const code = stream->read(m_mapping.data() + read, step, &got);
    if (code.failed()) throw exception(code);
    read += std::min(got, step);
    if (got < step) break;
  }
  QUILLON_CHECK_THROW(size == read, error::FailedTo.Read.Full.Data);
}

file_mapping_on_stream_t::file_mapping_on_stream_t(sptr_t<write_stream_t> const& stream,
                                                   u64_t size) {
  QUILLON_CHECK_THROW(stream, error::IsNot.Valid.Argument);
  QUILLON_CHECK_THROW(size, error::IsNot.Valid.Size);
  resize_bytes(m_mapping, size);
  QUILLON_CHECK_THROW(m_mapping.size() == size, error::FailedTo.Resize.The.Container);
  m_stream = stream;
}

file_mapping_on_stream_t::~file_mapping_on_stream_t() { close(); }

error_code_t file_mapping_on_stream_t::close() {
  if (!m_stream) return error_code_t();
  error_code_t const code = m_stream->write(m_mapping.data(), m_mapping.size());
  if (code.failed()) {
    QUILLON_ASSERT(code.succeeded());
    Q2_LOG(internal::main_logger(), internal::log_error,
           L"writing a mapping to its stream failed: " << code.toString());
    return code;
  }
  m_stream = nullptr;
  return error_code_t();
}

void* file_mapping_on_stream_t::get_address() {
  QUILLON_ASSERT(m_mapping.size());
  return m_mapping.empty() ? nullptr : m_mapping.data();
}

error_code_t file_mapping_on_stream_t::resize_on_close(u64_t size) {
  QUILLON_CHECK(m_stream, error::FailedTo.Resize.Readonly.Stream);
  resize_bytes(m_mapping, size);
  QUILLON_CHECK(m_mapping.size() == size, error::FailedTo.Resize.The.Container);
  return error_code_t();
}

error_code_t create_mapping_on_stream(sptr_t<file_mapping_t>& out,
                                      sptr_t<read_stream_t> const& stream, u64_t size) {
  return make_mapping(out, stream, size);
}

error_code_t create_mapping_on_stream(sptr_t<file_mapping_t>& out,
                                      sptr_t<write_stream_t> const& stream, u64_t size) {
  return make_mapping(out, stream, size);
}

}  // namespace quillon2
