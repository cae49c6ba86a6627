/// What every listener has in common: it can be switched off without being taken away.
#pragma once

namespace kelvaro::jsr309 {

/// Threads: the library asks IsListenerEnabled on its event thread right before it would call OnEvent, with no lock of
/// its own held; the application switches from any thread. A listener that is shared between threads protects its flag
/// itself. Nothing may be thrown out of any of the operations; what is thrown all the same is logged and dropped.
class EventListener {
 public:
  virtual ~EventListener() = default;
  virtual void EnableListener() = 0;
  virtual void DisableListener() = 0;
  /// A listener that answers false is not called. What happened meanwhile is not delivered later.
  virtual bool IsListenerEnabled() const = 0;
};

}  // namespace kelvaro::jsr309
