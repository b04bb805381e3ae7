// Atomic replacement of a file's content; see atomic_save.hpp.
#include "core/file_system/include/atomic_save.hpp"

#include "core/das/include/xml_file_io.hpp"

namespace quillon2::internal {

save_result_t atomic_save(std::string const& native_path, std::string_view bytes) {
  save_result_t result;
  atomic_file_writer_t writer;
  if (writer.open(native_path) && writer.write(bytes.data(), bytes.size()) && writer.commit()) {
    result.ok = true;
    return result;
  }
  result.why = writer.why();
  return result;
}

}  // namespace quillon2::internal
