#pragma once

#include "console/file_descriptor.h"

namespace kvx_switch {

/// A thread that waits in poll() for sockets cannot wait for a condition variable too. This is a flag that poll() sees:
/// its descriptor is readable from Raise() until Clear(). Any thread may call anything.
class WakeEvent {
 public:
  WakeEvent();  ///< throws std::system_error when the process has no descriptor left

  int descriptor() const { return descriptor_.get(); }
  void Raise();
  void Clear();
  bool Raised() const;

 private:
  FileDescriptor descriptor_;
};

}  // namespace kvx_switch
