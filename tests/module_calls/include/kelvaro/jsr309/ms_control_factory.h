#pragma once

#include <functional>

#include "kelvaro/jsr309/media_session.h"

namespace kelvaro::jsr309 {

/// The factory as the module's callbacks see it, in place of the control library's: its sessions are of the test's
/// making.
class RecordingControlFactory {
 public:
  MediaSession* CreateMediaSession() {
    module_calls::record("CreateMediaSession");
    return make ? make() : nullptr;
  }

  std::function<MediaSession*()> make;
};

}  // namespace kelvaro::jsr309

// Whoever speaks of the control library's factory means this one.
#define MSControlFactory RecordingControlFactory
