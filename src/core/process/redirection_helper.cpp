// The table of a child's standard streams: which pipe or file each stream gets, and the
// side channels. The pipes and files themselves come from posix/redirection_posix.cpp.
#include <string>

#include <quillon2/core/check.hpp>

#include "core/miscellaneous/include/logging.hpp"
#include "core/process/include/redirection_helper.hpp"
#include "core/process/include/shared_file_handle_impl.hpp"

namespace quillon2::process {

sptr_t<ISharedFileHandle> makeSharedFileHandle(ISharedFileHandle::native_handle_t handle) {
  return sptr_t<ISharedFileHandle>(new ref_counted_t<SharedFileHandle, mt_ref_count_impl_t>(handle));
}

RedirectionHelper::RedirectionHelper() {
  for (auto& handle : m_handles) handle = makeSharedFileHandle();
}

void RedirectionHelper::reset() {
  Q2_LOG(internal::main_logger(), internal::log_info, L"Reset handlers");
  for (auto& handle : m_handles) handle->setHandle(0);
  m_side_channels.clear();
}

error_code_t RedirectionHelper::createRedirection(unsigned stream,
                                                  sptr_t<ISharedFileHandle>& read_end) {
  QUILLON_CHECK(stream < m_handles.size(), error::IsNot.Valid.Identifier("Invalid stream identifier"));
  sptr_t<ISharedFileHandle> write_end = makeSharedFileHandle();
  error_code_t const err = createRedirectionInternal(write_end, read_end);
  if (!err.is_ok()) return err;
  m_handles[stream] = write_end;
  return error_code_t();
}

error_code_t RedirectionHelper::createRedirection(sptr_t<ISharedFileHandle>& write_end,
                                                  sptr_t<ISharedFileHandle>& read_end) {
  write_end = makeSharedFileHandle();
  error_code_t const err = createRedirectionInternal(write_end, read_end);
  if (err.is_ok()) m_side_channels.push_back(write_end);
  return err;
}

error_code_t RedirectionHelper::openFileForRedirection(unsigned stream, std::wstring const& path) {
  if (stream == 0) {
    Q2_LOG(internal::main_logger(), internal::log_info,
           L"Open file for process stream #" << stream << L" redirection  - " << path);
    return openFileForInputRedirection(path);
  }
  if (stream != 1 && stream != 2) {
    return QUILLON_RAISE(error::IsNot.Valid.Identifier("Invalid stream identifier"));
  }
  Q2_LOG(internal::main_logger(), internal::log_info,
         L"Open file for process stream #" << stream << L" redirection  - " << path);
  return openFileForOutputRedirection(stream, path);
}

}  // namespace quillon2::process
