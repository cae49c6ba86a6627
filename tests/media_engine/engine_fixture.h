/// A running engine with one server, and pairs of endpoints with far ends, as a call has them.
#pragma once

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "far_end.h"
#include "media_engine/engine.h"

namespace media_engine_test {

using namespace media_engine;  // this header is for the tests of that namespace

/// Requests answer within microseconds; this is for a busy machine.
constexpr milliseconds kLimit{5000};

/// Threads: from any thread.
class ManualClock : public Clock {
 public:
  TimePoint Now() const noexcept override { return TimePoint(std::chrono::nanoseconds(nanoseconds_.load())); }
  void Advance(std::chrono::nanoseconds by) { nanoseconds_ += by.count(); }

 private:
  std::atomic<int64_t> nanoseconds_{1'000'000'000'000};
};

class RecordedLog {
 public:
  LogSink Sink() {
    return [this](LogLevel level, const std::string& text) {
      std::lock_guard<std::mutex> lock(mutex_);
      records_.emplace_back(level, text);
    };
  }
  std::size_t Count(LogLevel level, const std::string& part) const {
    std::lock_guard<std::mutex> lock(mutex_);
    std::size_t count = 0;
    for (const auto& [at, text] : records_) count += at == level && text.find(part) != std::string::npos;
    return count;
  }
  bool Has(LogLevel level, const std::string& part) const { return Count(level, part) != 0; }

 private:
  mutable std::mutex mutex_;
  std::vector<std::pair<LogLevel, std::string>> records_;  // guarded by mutex_
};

/// Keeps silences and server events, and lets a test wait for them.
class RecordedEvents : public EndpointEvents, public ServerEvents {
 public:
  void OnRtpTimeout(bool had_media) override { Add(had_media ? "inactive" : "pending"); }
  void OnServerLost() override { Add("lost"); }
  void OnServerBack() override { Add("back"); }

  /// What there is once that many have come, or the patience is over.
  std::vector<std::string> Wait(std::size_t count, milliseconds patience = kPatience) const {
    std::unique_lock<std::mutex> lock(mutex_);
    changed_.wait_for(lock, patience, [&] { return events_.size() >= count; });
    return events_;
  }

 private:
  void Add(const std::string& event) {
    {
      std::lock_guard<std::mutex> lock(mutex_);
      events_.push_back(event);
    }
    changed_.notify_all();
  }

  mutable std::mutex mutex_;
  mutable std::condition_variable changed_;
  std::vector<std::string> events_;  // guarded by mutex_
};

/// An endpoint and what it is connected to.
struct Leg {
  std::shared_ptr<Endpoint> endpoint;
  std::shared_ptr<FarEnd> far_end;
  std::shared_ptr<RecordedEvents> events;
  LocalDescription local;

  void Send(const Rtp& packet) const { far_end->SendRtp(packet, local.rtp_port); }
  EndpointStatistics Statistics() const;
  /// Sends a run of 20 ms packets from that number on; payloads by number.
  void SendRun(uint16_t first, unsigned count, uint8_t payload_type = 0, uint32_t ssrc = 0x11111111) const;
};

class EngineTest : public testing::Test {
 protected:
  ServerConfig Config(unsigned pairs = 16) const;
  std::unique_ptr<Server> Open(const ServerConfig& config, ServerEvents* events = nullptr);
  static std::shared_ptr<Session> NewSession(Server& server);
  static Leg NewLeg(Session& session, const std::string& address = "127.0.0.1");
  /// Described on both sides with one codec, ready for packets.
  static Leg NewCallLeg(Session& session, const Codec& codec = Pcmu(), uint8_t events = 0);
  static Leg NewCallLeg(Session& session, const Codec& ours, const Codec& theirs, uint8_t our_events,
                        uint8_t their_events);

  std::shared_ptr<ManualClock> clock_ = std::make_shared<ManualClock>();
  RecordedLog log_;
  Engine engine_{clock_};
};

/// Checks that a packet that has come is the one sent, but for what belongs to the leg.
void ExpectCarried(const std::optional<Rtp>& came, const Rtp& sent, uint8_t payload_type);

/// Whether the condition becomes true within the patience.
template <typename Condition>
bool Eventually(Condition condition, milliseconds patience = kPatience) {
  const auto deadline = std::chrono::steady_clock::now() + patience;
  while (!condition()) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    std::this_thread::sleep_for(milliseconds{1});
  }
  return true;
}

std::size_t OpenDescriptors();
std::size_t RunningThreads();

}  // namespace media_engine_test
