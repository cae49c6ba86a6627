// The driver interface over the scripted state: every call becomes one operation of the state.
#include "support/jsr309_scripted_state.h"

namespace test_support {
namespace {

using namespace kelvaro::jsr309;
using Operation = ScriptedOperation;

class ScriptedEndpoint : public ServerEndpoint {
 public:
  ScriptedEndpoint(std::shared_ptr<ScriptedState> state, unsigned number) : number(number), state_(std::move(state)) {}

  bool GetLocalOffer(MediaConfig& config) override {
    return state_->Describe(Operation::kGetLocalOffer, number, config);
  }
  bool GetLocalAnswer(MediaConfig& config) override {
    return state_->Describe(Operation::kGetLocalAnswer, number, config);
  }
  bool SetRemoteOffer(const MediaConfig& config) override {
    return state_->Accept(Operation::kSetRemoteOffer, number, &config);
  }
  bool SetRemoteAnswer(const MediaConfig& config) override {
    return state_->Accept(Operation::kSetRemoteAnswer, number, &config);
  }
  bool SetRemoteAddressDetection() override {
    return state_->Accept(Operation::kSetRemoteAddressDetection, number, nullptr);
  }
  bool GetLocalImageConfig(MediaConfig& config) override {
    return state_->Describe(Operation::kGetLocalImageConfig, number, config);
  }
  bool GetRemoteImageConfig(MediaConfig& config) override {
    return state_->Describe(Operation::kGetRemoteImageConfig, number, config);
  }
  bool GetRtcpStatsReport(std::vector<RtcpStatsReport>& reports) override {
    return state_->GetReports(number, reports);
  }
  bool Join(Direction direction, const std::shared_ptr<ServerEndpoint>& other) override {
    return state_->Join(number, static_cast<const ScriptedEndpoint&>(*other).number, direction);
  }
  bool Unjoin(const std::shared_ptr<ServerEndpoint>& other) override {
    return state_->Unjoin(number, static_cast<const ScriptedEndpoint&>(*other).number);
  }
  bool Close() override { return state_->EndEndpoint(Operation::kClose, number); }
  void Release() override { state_->EndEndpoint(Operation::kRelease, number); }

  const unsigned number;

 private:
  const std::shared_ptr<ScriptedState> state_;
};

class ScriptedSession : public ServerSession {
 public:
  ScriptedSession(std::shared_ptr<ScriptedState> state, unsigned number) : state_(std::move(state)), number_(number) {}

  std::shared_ptr<ServerEndpoint> CreateEndpoint(std::weak_ptr<RtpTimeoutSink> sink) override {
    const unsigned endpoint = state_->CreateEndpoint(number_, std::move(sink));
    return endpoint == 0 ? nullptr : std::make_shared<ScriptedEndpoint>(state_, endpoint);
  }
  bool ImportEndpoint(const std::shared_ptr<ServerEndpoint>& endpoint) override {
    return state_->ImportEndpoint(number_, static_cast<const ScriptedEndpoint&>(*endpoint).number);
  }
  void Release() override { state_->ReleaseSession(number_); }

 private:
  const std::shared_ptr<ScriptedState> state_;
  const unsigned number_;
};

class ScriptedServer : public MediaServer {
 public:
  ScriptedServer(std::shared_ptr<ScriptedState> state, size_t number) : state_(std::move(state)), number_(number) {}

  bool IsAlive() const override { return state_->IsAlive(number_); }
  std::vector<std::string> Addresses() const override { return state_->Settings(number_).addresses; }
  size_t Capacity() const override { return state_->Settings(number_).capacity; }
  std::shared_ptr<ServerSession> CreateSession() override {
    const unsigned session = state_->CreateSession(number_);
    return session == 0 ? nullptr : std::make_shared<ScriptedSession>(state_, session);
  }
  void Shutdown(std::chrono::milliseconds) override { state_->Shutdown(number_); }

 private:
  const std::shared_ptr<ScriptedState> state_;
  const size_t number_;
};

class ScriptedDriver : public MediaServerDriver {
 public:
  explicit ScriptedDriver(std::shared_ptr<ScriptedState> state) : state_(std::move(state)) {}

  // Knows one setting of its own, "greeting", which must be "hello".
  std::unique_ptr<MediaServer> Open(const MediaServerSettings& settings, MediaServerObserver& observer,
                                    const std::shared_ptr<GuardedLogger>&, SettingError& error) override {
    for (const auto& [name, value] : settings.driver_settings) {
      if (name == "greeting" && value == "hello") continue;
      error = {name, value, name == "greeting" ? "not hello" : "not known to the scripted driver"};
      return nullptr;
    }
    const size_t server = state_->AddServer(settings, observer);
    if (!state_->Open(server)) {
      error = {"", "", "told not to open"};
      return nullptr;
    }
    return std::make_unique<ScriptedServer>(state_, server);
  }

 private:
  const std::shared_ptr<ScriptedState> state_;
};

}  // namespace

std::unique_ptr<MediaServerDriver> MakeScriptedDriver(std::shared_ptr<ScriptedState> state) {
  return std::make_unique<ScriptedDriver>(std::move(state));
}

}  // namespace test_support
