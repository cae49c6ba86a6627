/// Being told that the far end of a connection has fallen silent.
///
/// A phone that lost its power sends no BYE. What the switch would not learn from signalling for minutes, the media
/// server sees within seconds.
#pragma once

#include "kelvaro/jsr309/event.h"
#include "kelvaro/jsr309/event_listener.h"

#include <boost/shared_ptr.hpp>

namespace kelvaro::jsr309 {

class RtpTimeoutListener : public virtual EventListener {
 public:
  /// Called on the library's event thread, once per silence.
  virtual void OnEvent(const RtpTimeoutEvent& event) = 0;
};

using RtpTimeoutListenerSharedPtr = boost::shared_ptr<RtpTimeoutListener>;

/// The side of a connection with which an RTP-timeout listener registers. An endpoint has one at most.
class RtpTimeoutNotifierInterface {
 public:
  virtual ~RtpTimeoutNotifierInterface() = default;
  /// Makes the listener the endpoint's, in place of a former one, and keeps a reference to it until it is removed or
  /// the endpoint ends. The listener may own the very connection it is registered with: the endpoint's end breaks the
  /// ring. False for a null listener and for a connection that is closed or has lost its server.
  virtual bool AddListener(const RtpTimeoutListenerSharedPtr& listener) = 0;
  /// No call to the listener begins after the return; one that is already in its handler finishes, the listener kept
  /// alive by the library. Does not wait. False when there is no listener.
  virtual bool RemoveListener() = 0;
};

}  // namespace kelvaro::jsr309
