// The descriptor owner behind ISharedFileHandle (posix/shared_file_handle.cpp).
//
// A read waits in poll on the descriptor and on an eventfd of the handle's own. setHandle
// during a read signals the eventfd instead of closing the descriptor under the read:
// the read wakes and the last thread to leave a read or write closes what was replaced.
#pragma once

#include <atomic>
#include <mutex>
#include <string>
#include <vector>

#include <quillon2/core/error_code.hpp>
#include <quillon2/core/process/shared_file_handle.hpp>

namespace quillon2::process {

class SharedFileHandle : public ISharedFileHandle {
 public:
  SharedFileHandle() = default;
  explicit SharedFileHandle(native_handle_t handle);
  ~SharedFileHandle() override;
  SharedFileHandle(SharedFileHandle const&) = delete;
  SharedFileHandle& operator=(SharedFileHandle const&) = delete;

  native_handle_t getHandle() override;
  void setHandle(native_handle_t handle) override;
  bool isValid() override;
  int read(char* buffer, unsigned size) override;
  int write(void const* buffer, unsigned size) override;
  int write(std::wstring const& text) override;
  std::wstring serialize() override;

 private:
  struct use_t {
    native_handle_t fd;  // 0 when the handle is empty
    int wake;
    unsigned long generation;
    bool nonblocking;
  };
  // Takes the descriptor for one read or write; leave() gives it back.
  use_t enter(bool need_wake);
  void leave();

  std::mutex m_mutex;
  native_handle_t m_handle = 0;
  bool m_nonblocking = false;
  int m_wake = -1;                              // eventfd, made by the first read
  bool m_woken = false;                         // m_wake was signalled and not yet drained
  unsigned m_users = 0;                         // reads and writes running
  std::atomic<unsigned long> m_generation{0};  // counts setHandle calls
  std::vector<native_handle_t> m_retired;  // replaced while in use; closed by the last user
};

// Makes a descriptor that a process holds close-on-exec.
error_code_t disableInheritance(ISharedFileHandle::native_handle_t handle);

}  // namespace quillon2::process
