// Operations on rtpengine endpoints that get into each other's way, and what becomes of a call whose daemon keeps
// quiet. At the driver's own seam, with a daemon that does what the test says.
#include "rtpengine/bencode.h"
#include "rtpengine/rtpengine_context.h"
#include "rtpengine/rtpengine_driver.h"
#include "support/jsr309_recording_listeners.h"
#include "support/jsr309_recording_logger.h"
#include "support/ng_server.h"
#include "support/process_child.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <future>
#include <set>

namespace {

using namespace kelvaro::jsr309;
using rtpengine::Dictionary;
using rtpengine::NgTime;
using rtpengine::TextOf;
using std::chrono::milliseconds;
using test_support::kPatience;
using test_support::NgServer;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

template <typename Condition>
bool Eventually(Condition condition) {
  return test_support::wait_until(2 * kPatience, condition);
}

struct CountingObserver : MediaServerObserver, rtpengine::DaemonListener {
  void OnServerLost() override { ++lost; }
  void OnServerBack() override {}
  void OnDaemonBack() override {}
  void OnDaemonLost(const std::string&) override { ++lost; }
  std::atomic<int> lost{0};
};

/// Does what it is asked, with ports of its own for each call, but for what it is told to keep back or refuse.
class ObedientDaemon {
 public:
  using Condition = std::function<bool(const NgServer::Frame&)>;

  std::uint16_t Port() const { return server_.Port(); }
  std::vector<NgServer::Frame> Requests() const { return server_.Requests(); }
  /// Requests like that get no answer, until another condition takes this one's place.
  void KeepBack(Condition condition) { Set(kept_back_, std::move(condition)); }
  void Refuse(Condition condition) { Set(refused_, std::move(condition)); }
  /// What it answers to a "query" beside "ok".
  void Tell(Dictionary query) {
    const std::lock_guard<std::mutex> lock(mutex_);
    query_ = std::move(query);
  }

  static Condition Is(const std::string& command, const std::string& call_id) {
    return [=](const NgServer::Frame& request) {
      return TextOf(request.message, "command") == command && TextOf(request.message, "call-id") == call_id;
    };
  }
  /// Repetitions are counted once.
  std::size_t Count(const Condition& condition) const {
    std::set<std::string> cookies;
    for (const NgServer::Frame& request : Requests()) {
      if (condition(request)) cookies.insert(request.cookie);
    }
    return cookies.size();
  }
  /// The commands that came for that call, in order.
  std::vector<std::string> CommandsFor(const std::string& call_id) const {
    std::vector<std::string> commands;
    std::set<std::string> cookies;
    for (const NgServer::Frame& request : Requests()) {
      if (TextOf(request.message, "call-id") != call_id || !cookies.insert(request.cookie).second) continue;
      commands.push_back(TextOf(request.message, "command"));
    }
    return commands;
  }
  /// The call that was made last.
  std::string LastCall() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return calls_.empty() ? "" : calls_.back();
  }

 private:
  void Set(Condition& condition, Condition value) {
    const std::lock_guard<std::mutex> lock(mutex_);
    condition = std::move(value);
  }
  NgServer::Answers Answer(const NgServer::Frame& request) {
    const std::string command = TextOf(request.message, "command");
    const std::lock_guard<std::mutex> lock(mutex_);
    if (kept_back_ && kept_back_(request)) return {};
    if (refused_ && refused_(request)) return NgServer::Reply(request, {{"result", "error"}, {"error-reason", "No"}});
    if (command == "ping") return NgServer::Reply(request, {{"result", "pong"}});
    if (command == "offer" || command == "answer") {
      return NgServer::Reply(request, {{"result", "ok"}, {"sdp", SdpOf(request, command == "offer" ? 0 : 2)}});
    }
    if (command != "query") return NgServer::Ok(request);
    Dictionary reply = query_;
    reply.emplace("result", "ok");
    return NgServer::Reply(request, reply);
  }
  std::string SdpOf(const NgServer::Frame& request, std::size_t offset) {
    const std::string call_id = TextOf(request.message, "call-id");
    const auto found = std::find(calls_.begin(), calls_.end(), call_id);
    const std::size_t port = 30000 + 4 * static_cast<std::size_t>(found - calls_.begin()) + offset;
    if (found == calls_.end()) calls_.push_back(call_id);
    return "v=0\r\no=- 1 1 IN IP4 127.0.0.1\r\ns=-\r\nc=IN IP4 127.0.0.1\r\nt=0 0\r\nm=audio " + std::to_string(port) +
           " RTP/AVP 0\r\na=rtpmap:0 PCMU/8000\r\n";
  }

  mutable std::mutex mutex_;
  Condition kept_back_, refused_;   // guarded by mutex_
  Dictionary query_;                // guarded by mutex_
  std::vector<std::string> calls_;  // guarded by mutex_
  NgServer server_{[this](const NgServer::Frame& request, int) { return Answer(request); }};
};

class RtpengineOperations : public testing::Test {
 protected:
  static constexpr unsigned kRequestTimeoutMs = 60000;

  ~RtpengineOperations() override {
    for (auto& server : servers_) server->Shutdown(milliseconds(0));
  }

  MediaServerSettings SettingsOf(const ObedientDaemon& daemon) const {
    MediaServerSettings settings;
    settings.mac = "02:00:00:00:00:01";
    settings.addresses = {"127.0.0.1"};
    settings.request_timeout_ms = kRequestTimeoutMs;
    settings.driver_settings = {{"control", "127.0.0.1:" + std::to_string(daemon.Port())}};
    return settings;
  }
  MediaServer& Open(const ObedientDaemon& daemon) {
    SettingError error;
    servers_.push_back(driver_->Open(SettingsOf(daemon), observer_, guarded_, error));
    if (servers_.back() == nullptr) throw std::runtime_error(error.reason);
    driver_->AwaitServers();
    return *servers_.back();
  }
  /// The ports do not matter: nothing is sent.
  static MediaConfig Remote(std::uint16_t port = 40000) {
    MediaConfig remote;
    remote.SetIPAddress("127.0.0.1");
    remote.SetRtpPort(port);
    AddCodec(remote);
    return remote;
  }
  /// Both sides of the daemon's call have to hear of this one.
  static MediaConfig RemoteWithEvents() {
    MediaConfig remote = Remote();
    remote.SetRfc2833Flag(true);
    remote.SetRfc2833Payload(101);
    return remote;
  }
  static MediaConfig RemoteWithKeys(char number) {
    const std::string key(30, number);
    MediaConfig remote = Remote();
    remote.SetCrypto("AES_CM_128_HMAC_SHA1_80", reinterpret_cast<const std::uint8_t*>(key.data()), 30, 0, nullptr);
    return remote;
  }
  static void AddCodec(MediaConfig& config) {
    config.AddCodec("PCMU", 0, 20, 8000, 64000, false, 0, 0, 0, nullptr, 0, 1.0);
  }
  static std::shared_ptr<ServerEndpoint> NewLeg(ServerSession& session) {
    auto endpoint = session.CreateEndpoint({});
    MediaConfig local;
    AddCodec(local);
    EXPECT_TRUE(endpoint != nullptr && endpoint->GetLocalOffer(local) && endpoint->SetRemoteAnswer(Remote()));
    return endpoint;
  }

  test_support::RecordingLogger logger_;
  std::shared_ptr<GuardedLogger> guarded_ = std::make_shared<GuardedLogger>(&logger_);
  CountingObserver observer_;
  const std::unique_ptr<MediaServerDriver> driver_ = MakeRtpengineDriver();
  std::vector<std::unique_ptr<MediaServer>> servers_;
};

TEST_F(RtpengineOperations, UnderWayGiveUpWithTheNextRequestWhenTheEndpointIsClosed) {
  ObedientDaemon daemon;
  const auto session = Open(daemon).CreateSession();
  const auto a = NewLeg(*session);
  const std::string call_a = daemon.LastCall();
  const auto b = NewLeg(*session);
  const auto offer_a = ObedientDaemon::Is("offer", call_a), answer_a = ObedientDaemon::Is("answer", call_a);
  const auto offer_b = ObedientDaemon::Is("offer", daemon.LastCall());
  ASSERT_TRUE(a->Join(kDuplex, b));
  const auto offers_a = daemon.Count(offer_a), answers_a = daemon.Count(answer_a), offers_b = daemon.Count(offer_b);
  daemon.KeepBack(offer_a);
  auto described = std::async(std::launch::async, [&] { return a->SetRemoteOffer(RemoteWithEvents()); });
  EXPECT_TRUE(Eventually([&] { return daemon.Count(offer_a) > offers_a; }));
  auto closed = std::async(std::launch::async, [&] { return a->Close(); });
  // The end does not wait for the operation: the other leg hears of it at once.
  EXPECT_TRUE(Eventually([&] { return daemon.Count(offer_b) > offers_b; }));
  daemon.KeepBack(nullptr);
  EXPECT_FALSE(described.get());
  EXPECT_TRUE(closed.get());
  EXPECT_EQ(daemon.Count(answer_a), answers_a);
  EXPECT_TRUE(Eventually([&] { return daemon.Count(ObedientDaemon::Is("delete", call_a)) > 0; }));
}

// Each is a round trip to another machine.
TEST_F(RtpengineOperations, OfAPlainCallAskForNothingThatTheDaemonKnows) {
  ObedientDaemon daemon;
  const auto session = Open(daemon).CreateSession();
  const auto caller = session->CreateEndpoint({}), callee = session->CreateEndpoint({});
  MediaConfig offer, answer;
  AddCodec(offer);
  AddCodec(answer);
  ASSERT_TRUE(caller->SetRemoteOffer(Remote()) && callee->GetLocalOffer(offer));
  const std::string call_of_callee = daemon.LastCall();
  ASSERT_TRUE(callee->SetRemoteAnswer(Remote(40002)) && caller->GetLocalAnswer(answer));
  const std::string call_of_caller = daemon.LastCall();
  ASSERT_TRUE(caller->Join(kDuplex, callee) && caller->Unjoin(callee));
  ASSERT_TRUE(caller->Close() && callee->Close());
  // Made with its far end, joined, parted, ended; made without one, which answers, joined, parted, ended.
  EXPECT_THAT(daemon.CommandsFor(call_of_caller), ElementsAre("offer", "answer", "offer", "offer", "delete"));
  EXPECT_THAT(daemon.CommandsFor(call_of_callee), ElementsAre("offer", "answer", "answer", "offer", "offer", "delete"));
}

TEST_F(RtpengineOperations, RepeatADescriptionToADaemonThatKnowsItAndSoFindOutWhetherItsCallIsThere) {
  ObedientDaemon daemon;
  const auto session = Open(daemon).CreateSession();
  const auto a = NewLeg(*session);
  const auto before = daemon.CommandsFor(daemon.LastCall()).size();
  ASSERT_TRUE(a->SetRemoteOffer(Remote()));
  EXPECT_EQ(daemon.CommandsFor(daemon.LastCall()).size(), before + 2);
}

// What the daemon was told then is not known.
TEST_F(RtpengineOperations, DescribeBothSidesAfterARefusal) {
  ObedientDaemon daemon;
  const auto session = Open(daemon).CreateSession();
  const auto a = NewLeg(*session);
  const std::string call = daemon.LastCall();
  daemon.Refuse(ObedientDaemon::Is("answer", call));
  EXPECT_FALSE(a->SetRemoteOffer(Remote(40002)));
  daemon.Refuse(nullptr);
  ASSERT_TRUE(a->SetRemoteOffer(Remote(40004)));
  const auto commands = daemon.CommandsFor(call);
  ASSERT_GE(commands.size(), 2u);
  EXPECT_EQ(commands[commands.size() - 2], "offer");
  EXPECT_EQ(commands.back(), "answer");
}

// The daemon may protect with these keys or with the former ones.
TEST_F(RtpengineOperations, OfferKeysAgainAfterAnExchangeOfKeysThatWasNotFinished) {
  ObedientDaemon daemon;
  const auto session = Open(daemon).CreateSession();
  const auto a = session->CreateEndpoint({});
  MediaConfig local;
  AddCodec(local);
  local.SetCrypto("AES_CM_128_HMAC_SHA1_80", nullptr, 0, 0, nullptr);
  ASSERT_TRUE(a->SetRemoteOffer(RemoteWithKeys(1)) && a->GetLocalAnswer(local));
  const std::string call = daemon.LastCall();
  const auto key_offer = [is_offer = ObedientDaemon::Is("offer", call)](const NgServer::Frame& request) {
    return is_offer(request) && TextOf(request.message, "sdp").find("a=crypto:") != std::string::npos;
  };
  const auto made = daemon.Count(key_offer);
  ASSERT_TRUE(a->SetRemoteOffer(RemoteWithKeys(1)));
  EXPECT_EQ(daemon.Count(key_offer), made) << "it has them";

  daemon.Refuse(ObedientDaemon::Is("answer", call));
  EXPECT_FALSE(a->SetRemoteOffer(RemoteWithKeys(2)));
  daemon.Refuse(nullptr);
  EXPECT_EQ(daemon.Count(key_offer), made + 1);
  ASSERT_TRUE(a->SetRemoteOffer(RemoteWithKeys(1)));
  EXPECT_EQ(daemon.Count(key_offer), made + 2);
}

// It may have been told of a place that is none.
TEST_F(RtpengineOperations, ThatFailTellThePartnerOfTheFormerPlaceAgain) {
  ObedientDaemon daemon;
  const auto session = Open(daemon).CreateSession();
  const auto a = NewLeg(*session);
  const std::string call_a = daemon.LastCall();
  const auto b = NewLeg(*session);
  const std::string call_b = daemon.LastCall();
  ASSERT_TRUE(a->Join(kDuplex, b));
  const auto before = daemon.CommandsFor(call_b).size();
  daemon.Refuse([=](const NgServer::Frame& request) { return TextOf(request.message, "call-id") == call_a; });
  EXPECT_FALSE(a->SetRemoteOffer(RemoteWithEvents()));
  EXPECT_TRUE(Eventually([&] { return daemon.CommandsFor(call_b).size() > before; }));
}

// It would take the first stranger who sends something.
TEST_F(RtpengineOperations, TheSearchForAnAddressIsCalledOffWhenItCouldNotBeBegunProperly) {
  ObedientDaemon daemon;
  const auto session = Open(daemon).CreateSession();
  const auto a = NewLeg(*session);
  const std::string call = daemon.LastCall();
  const auto answer = ObedientDaemon::Is("answer", call);
  const auto searches = [=](const NgServer::Frame& request) {
    const auto flags = request.message.find("flags");
    return answer(request) && flags != request.message.end() &&
           rtpengine::EncodeBencode(flags->second).find("asymmetric") == std::string::npos;
  };
  std::atomic<int> searched{0};
  // The first is carried out, and the second one, which makes the daemon look again, is refused.
  daemon.Refuse([&, searches](const NgServer::Frame& request) { return searches(request) && ++searched > 1; });
  EXPECT_FALSE(a->SetRemoteAddressDetection());
  daemon.Refuse(nullptr);
  EXPECT_TRUE(Eventually([&] {
    const auto requests = daemon.Requests();
    const auto last = std::find_if(requests.rbegin(), requests.rend(), answer);
    return last != requests.rend() && !searches(*last);
  }));
}

TEST_F(RtpengineOperations, JoinThatFailsUndoesTheJoinThatWas) {
  ObedientDaemon here;
  auto there = std::make_unique<ObedientDaemon>();
  const auto session = Open(here).CreateSession();
  const auto a = NewLeg(*session);
  const auto offer_a = ObedientDaemon::Is("offer", here.LastCall());
  const auto far = Open(*there).CreateSession();
  const auto b = NewLeg(*far);
  ASSERT_TRUE(session->ImportEndpoint(b));
  ASSERT_TRUE(a->Join(kDuplex, b));
  const auto offers = here.Count(offer_a);
  there.reset();
  ASSERT_TRUE(Eventually([&] { return observer_.lost == 1; }));
  EXPECT_EQ(here.Count(offer_a), offers);
  EXPECT_FALSE(a->Join(kDuplex, b));
  EXPECT_TRUE(Eventually([&] { return here.Count(offer_a) > offers; }));
}

TEST_F(RtpengineOperations, DescriptionThatIsRefusedLeavesTheFarEndWhereItWasFound) {
  ObedientDaemon daemon;
  const auto session = Open(daemon).CreateSession();
  const auto a = NewLeg(*session);
  ASSERT_TRUE(a->SetRemoteAddressDetection());
  const std::string call = daemon.LastCall();
  const auto endpoint = [](int port) { return Dictionary{{"address", "127.0.0.9"}, {"port", port}}; };
  const rtpengine::Bencode::List flags{"confirmed"};
  const Dictionary rtp{{"flags", flags}, {"endpoint", endpoint(41000)}}, rtcp{{"endpoint", endpoint(41001)}};
  const Dictionary media{{"streams", rtpengine::Bencode::List{rtp, rtcp}}};
  const Dictionary tag{{"medias", rtpengine::Bencode::List{media}}};
  daemon.Tell({{"tags", Dictionary{{"leg", tag}}}});
  daemon.Refuse(ObedientDaemon::Is("offer", call));
  EXPECT_FALSE(a->SetRemoteOffer(RemoteWithEvents()));
  daemon.Refuse(nullptr);
  EXPECT_TRUE(a->SetRemoteOffer(Remote()));
  const auto answers = daemon.Requests();
  const auto last = std::find_if(answers.rbegin(), answers.rend(), ObedientDaemon::Is("answer", call));
  ASSERT_NE(last, answers.rend());
  EXPECT_THAT(TextOf(last->message, "sdp"), HasSubstr("m=audio 41000 "));
}

TEST_F(RtpengineOperations, EndOfACallIsAskedForOnceAtATime) {
  ObedientDaemon daemon;
  rtpengine::RtpengineSettings own;
  own.control_address = "127.0.0.1";
  own.control_port = daemon.Port();
  const auto books = std::make_shared<rtpengine::RtpengineBooks>();
  rtpengine::RtpengineContext context(SettingsOf(daemon), own, books, observer_, guarded_);
  std::string error;
  ASSERT_TRUE(context.Start(error)) << error;
  ASSERT_TRUE(context.AwaitAnswer(NgTime::clock::now() + 2 * kPatience));
  const std::string call = context.NewCall(context.Epoch());
  const auto is_delete = ObedientDaemon::Is("delete", call);
  daemon.KeepBack(is_delete);
  const auto ask = [&](const Dictionary& request) {
    const auto answered = std::make_shared<std::promise<bool>>();
    context.Query(request, [=](const rtpengine::NgResult& result) { answered->set_value(result.reply.has_value()); });
    return answered->get_future().get();
  };
  context.DropCall(call);
  for (int i = 0; i < 3; ++i) {
    context.EndFormerCalls();  // what is condemned is due now
    context.Watch({});         // the control thread looks around before it has taken two replies
    ASSERT_TRUE(ask({{"command", "ping"}}) && ask({{"command", "ping"}}));
  }
  daemon.KeepBack(nullptr);
  // Stands in line behind whatever was posted for the call.
  EXPECT_TRUE(ask({{"command", "query"}, {"call-id", call}}));
  EXPECT_EQ(daemon.Count(is_delete), 1u);
  context.Stop(kPatience);
  EXPECT_THAT(logger_.Messages(kelvaro::ERROR_LOG_LEVEL), IsEmpty());
}

}  // namespace
