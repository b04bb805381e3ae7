// create_file_mapping and what real file mappings share: the checks before the system is
// asked, the translation of its failures into codes, and the length set at the end. The
// system side (open, mmap, ftruncate) is in posix/file_mapping_posix.cpp.
#include <exception>

#include <quillon2/core/check.hpp>
#include <quillon2/core/streams/file_mapping.hpp>

#include "core/miscellaneous/include/logging.hpp"

namespace quillon2 {

error_code_t file_mapping_base_t::close() { return error_code_t(); }

error_code_t file_mapping_base_t::resize_on_close(u64_t size) {
  QUILLON_CHECK(size, error::IsNot.Valid.Argument);
  m_size = size;
  return error_code_t();
}

error_code_t create_file_mapping(sptr_t<file_mapping_t>& out, path_t const& path, bool writable,
                                 u64_t offset, u64_t size) {
  if (writable) QUILLON_CHECK(!offset, error::IsNot.Supported.Argument);
  try {
    out = new ref_counted_t<file_mapping_impl_t, mt_ref_count_impl_t>(path, writable, offset, size);
  } catch (std::exception const& e) {
    out = nullptr;
    Q2_LOG(internal::main_logger(), internal::log_error,
           L"cannot map " << path.as_string() << L": "
                          << KESMET_2_18::strings::utf8_to_utf16(e.what()));
    return QUILLON_RAISE(error::FailedTo.Create.File.Mapping(e.what()));
  }
  return error_code_t();
}

}  // namespace quillon2
