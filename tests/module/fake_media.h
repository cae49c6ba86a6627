#pragma once

#include <atomic>
#include <boost/make_shared.hpp>
#include <boost/shared_ptr.hpp>
#include <functional>
#include <mutex>
#include <vector>

#include "kelvaro/jsr309/media_session.h"

namespace module_test {

/// A connection that stands for itself: it keeps its listener as the control library does and counts what it is asked.
class FakeNetworkConnection : public kelvaro::jsr309::NetworkConnection {
 public:
  FakeNetworkConnection() { ++alive; }
  ~FakeNetworkConnection() override { --alive; }

  bool GetLocalOffer(kelvaro::jsr309::MediaConfig&) override { return false; }
  bool GetLocalAnswer(kelvaro::jsr309::MediaConfig&) override { return false; }
  bool SetRemoteOffer(const kelvaro::jsr309::MediaConfig&) override { return false; }
  bool SetRemoteAnswer(const kelvaro::jsr309::MediaConfig&) override { return false; }
  bool SetRemoteAddressDetection() override { return false; }
  bool GetLocalImageConfig(kelvaro::jsr309::MediaConfig&) override { return false; }
  bool GetRemoteImageConfig(kelvaro::jsr309::MediaConfig&) override { return false; }
  bool GetRtcpStatsReport(std::vector<kelvaro::jsr309::RtcpStatsReport>&) override { return false; }
  bool Join(kelvaro::jsr309::Direction, const kelvaro::jsr309::JoinableWeakPtr&) override { return false; }
  bool Unjoin(const kelvaro::jsr309::JoinableWeakPtr&) override { return false; }
  void Close() override { ++closed; }

  bool AddListener(const kelvaro::jsr309::RtpTimeoutListenerSharedPtr& added) override {
    ++listeners_added;
    if (during_add) during_add();
    std::lock_guard<std::mutex> guard(mutex_);
    if (takes_listener) listener_ = added;
    return takes_listener;
  }
  bool RemoveListener() override {
    ++listeners_removed;
    if (during_remove) during_remove();
    kelvaro::jsr309::RtpTimeoutListenerSharedPtr removed;
    std::lock_guard<std::mutex> guard(mutex_);
    listener_.swap(removed);
    return removed != nullptr;
  }

  kelvaro::jsr309::RtpTimeoutListenerSharedPtr Listener() const {
    std::lock_guard<std::mutex> guard(mutex_);
    return listener_;
  }
  /// As the library does: the enabled listener is called, outside any lock.
  void FireTimeout() const {
    const kelvaro::jsr309::RtpTimeoutListenerSharedPtr listener = Listener();
    if (listener && listener->IsListenerEnabled()) listener->OnEvent(kelvaro::jsr309::RtpTimeoutEvent(1, true));
  }

  bool takes_listener = true;
  std::function<void()> during_add;
  std::function<void()> during_remove;
  std::atomic<int> listeners_added{0};
  std::atomic<int> listeners_removed{0};
  std::atomic<int> closed{0};

  static inline std::atomic<int> alive{0};

 private:
  mutable std::mutex mutex_;
  kelvaro::jsr309::RtpTimeoutListenerSharedPtr listener_;  // guarded by mutex_
};

using FakeConnection = boost::shared_ptr<FakeNetworkConnection>;
inline FakeConnection fake_connection() {
  return boost::make_shared<FakeNetworkConnection>();
}

/// A session that adopts what it is given, unless told otherwise.
class FakeMediaSession : public kelvaro::jsr309::MediaSession {
 public:
  FakeMediaSession() { ++alive; }
  ~FakeMediaSession() override { --alive; }

  kelvaro::jsr309::NetworkConnection* CreateNetworkConnection(const char*) override {
    return new FakeNetworkConnection;
  }
  kelvaro::jsr309::NetworkConnection* ImportNetworkConnection(
      kelvaro::jsr309::NetworkConnectionSharedPtr connection) override {
    if (during_import) during_import();
    std::lock_guard<std::mutex> guard(mutex_);
    if (keeps_imports) imported.push_back(connection);
    return imports ? new FakeNetworkConnection : nullptr;
  }
  bool AddListener(const kelvaro::jsr309::MediaServerLostListenerSharedPtr&) override { return true; }
  bool RemoveListener(const kelvaro::jsr309::MediaServerLostListenerSharedPtr&) override { return true; }

  bool imports = true;
  bool keeps_imports = true;
  std::function<void()> during_import;
  std::vector<boost::weak_ptr<kelvaro::jsr309::NetworkConnection>> imported;

  static inline std::atomic<int> alive{0};

 private:
  std::mutex mutex_;
};

using FakeSession = boost::shared_ptr<FakeMediaSession>;
inline FakeSession fake_session() {
  return boost::make_shared<FakeMediaSession>();
}

}  // namespace module_test
