// The standard streams of a child about to be started: for each stream the handle the
// child gets (empty: the child keeps this process's own), and the write ends of side
// channels that the child may inherit. Used by the owner's thread only, before and
// during run; reset() drops the parent's copies once the child holds its own.
#pragma once

#include <array>
#include <string>
#include <vector>

#include <quillon2/core/error_code.hpp>
#include <quillon2/core/process/shared_file_handle.hpp>

namespace quillon2::process {

class RedirectionHelper {
 public:
  RedirectionHelper();

  sptr_t<ISharedFileHandle> const& getHandle(unsigned stream) const { return m_handles[stream]; }
  std::vector<sptr_t<ISharedFileHandle>> const& sideChannels() const { return m_side_channels; }

  // Closes the parent's copies of everything the child was given.
  void reset();
  // A pipe whose write end becomes `stream` of the child; `read_end` gets the other end.
  error_code_t createRedirection(unsigned stream, sptr_t<ISharedFileHandle>& read_end);
  // A pipe whose write end the child may inherit as a side channel.
  error_code_t createRedirection(sptr_t<ISharedFileHandle>& write_end,
                                 sptr_t<ISharedFileHandle>& read_end);
  error_code_t openFileForRedirection(unsigned stream, std::wstring const& path);

 private:
  // The platform side (posix/redirection_posix.cpp).
  error_code_t createRedirectionInternal(sptr_t<ISharedFileHandle>& write_end,
                                         sptr_t<ISharedFileHandle>& read_end);
  error_code_t openFileForInputRedirection(std::wstring const& path);
  error_code_t openFileForOutputRedirection(unsigned stream, std::wstring const& path);

  std::array<sptr_t<ISharedFileHandle>, 3> m_handles;
  std::vector<sptr_t<ISharedFileHandle>> m_side_channels;
};

// A new, empty handle.
sptr_t<ISharedFileHandle> makeSharedFileHandle(ISharedFileHandle::native_handle_t handle = 0);

}  // namespace quillon2::process
