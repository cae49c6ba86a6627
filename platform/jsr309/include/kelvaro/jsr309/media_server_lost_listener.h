/// Being told that a media session has lost its media server.
///
/// When a media server fails, hundreds of calls on it have lost their media at once, yet their signalling still stands:
/// somebody has to hang them up. Each media session tells its own listeners, so that each call is ended by the part of
/// the application that knows it.
#pragma once

#include "kelvaro/jsr309/event.h"
#include "kelvaro/jsr309/event_listener.h"

#include <boost/shared_ptr.hpp>

namespace kelvaro::jsr309 {

class MediaServerLostListener : public virtual EventListener {
 public:
  /// Called on the library's event thread, once per lost session. Setting out_delete_listener to true lets the library
  /// drop its reference to this listener; it comes in false.
  virtual void OnEvent(const MediaServerLostEvent& event, bool& out_delete_listener) = 0;
};

using MediaServerLostListenerSharedPtr = boost::shared_ptr<MediaServerLostListener>;

/// The side of a media session with which lost-listeners register.
class MediaServerLostNotifierInterface {
 public:
  virtual ~MediaServerLostNotifierInterface() = default;
  /// Keeps a reference to the listener until it is removed, asks to be deleted, or the session ends. Adding a listener
  /// twice keeps it once. False for a null listener and when the session has ended or lost its server.
  virtual bool AddListener(const MediaServerLostListenerSharedPtr& listener) = 0;
  /// No call to the listener begins after the return; one that is already in its handler finishes. Does not wait.
  /// False when the listener is not registered.
  virtual bool RemoveListener(const MediaServerLostListenerSharedPtr& listener) = 0;
};

}  // namespace kelvaro::jsr309
