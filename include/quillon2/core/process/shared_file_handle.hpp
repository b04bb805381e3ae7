// A counted owner of one file or pipe descriptor, with blocking read and write and a text
// form that a child process can turn back into the handle it inherited.
//
// The native handle is the descriptor number; 0 is the empty handle (the library never
// keeps a child's pipe end or file on descriptors 0, 1 or 2). Every descriptor the
// library makes is close-on-exec: a child gets one only when it is passed on purpose.
//
// Threads: any thread may call setHandle while another is blocked in read. The blocked
// read wakes and returns, and the reading thread closes the old descriptor itself, so a
// descriptor is never closed under a running read. write blocks SIGPIPE in the calling
// thread while it writes: a reader that went away gives -1, never a signal.
#pragma once

#include <string>

#include <quillon2/core/object_interface.hpp>
#include <quillon2/export.hpp>

namespace quillon2::process {

class QUILLON2_API ISharedFileHandle : public object_interface_t {
 public:
  using native_handle_t = int;

  virtual native_handle_t getHandle() = 0;
  // Closes the current descriptor (or leaves that to a running read) and takes `handle`;
  // 0 leaves the object empty.
  virtual void setHandle(native_handle_t handle) = 0;
  virtual bool isValid() = 0;
  // Reads at most size - 1 bytes in one call, after waiting for data, and puts a zero
  // byte behind them. Returns the number of bytes, 0 at the end of the stream, when the
  // read failed or when setHandle woke it, -1 on an empty handle. Interrupted calls are
  // retried.
  virtual int read(char* buffer, unsigned size) = 0;
  // Writes all `size` bytes; returns their number, or -1 when the write failed.
  virtual int write(void const* buffer, unsigned size) = 0;
  // Writes the text as UTF-8; returns the number of bytes written, or -1.
  virtual int write(std::wstring const& text) = 0;
  // The descriptor number as decimal text ("7").
  virtual std::wstring serialize() = 0;

  // The handle of a descriptor that this process holds (typically inherited), from its
  // text form. The descriptor is made close-on-exec, so it is not passed on again. Null
  // when the text names no open descriptor.
  static sptr_t<ISharedFileHandle> deserialize(std::wstring const& text);
};

}  // namespace quillon2::process
