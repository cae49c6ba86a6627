#include <chrono>
#include <ostream>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include "module/media_callbacks_fixture.h"

namespace module_test {
namespace {

using test_support::LogLine;
using test_support::ScriptedOperation;
using testing::IsEmpty;

/// How the media server fails in the middle of a request.
enum class Trouble { kRefuses, kKeepsSilent, kDies };

/// Stands before the name of the request in a test's name.
const char* name_of(Trouble trouble) {
  static const char* const kNames[] = {"Refused", "Unanswered", "DeathIn"};
  return kNames[static_cast<int>(trouble)];
}

void PrintTo(Trouble trouble, std::ostream* out) {
  *out << name_of(trouble);
}

/// How the two legs stand before the callback, which is always A's.
enum class Before { kNoLeg, kOnlyB, kOneSession, kTwoSessions, kBridged };

/// What is to be left of a leg.
enum class Left {
  kNothing,  ///< it is in neither table and has no endpoint
  kHeard,    ///< it is in its place, and its silence would end it
  kUnheard,  ///< it is in its place, and its silence is nobody's business
};

/// What the callback is to have done. A dead server's legs are hung up meanwhile: whether A's clean-up still finds its
/// partner B is then open, and B, if it stays, ends on its own.
struct Outcome {
  switch_status_t status;
  Left a, b;
  const char* message;  ///< how the line that says so begins; null: nothing is said at ERROR
};

class MediaServerFailure;

/// A request of a callback that fails.
struct Step {
  std::string name;
  ScriptedOperation operation;
  Before before;
  switch_status_t (*call)(MediaServerFailure& legs);
  Outcome outcome;
  /// When the server died of it: requests that come after it fail as well.
  Outcome outcome_of_death;

  friend void PrintTo(const Step& step, std::ostream* out) { *out << step.name; }
};

test_support::ScriptedOptions impatient() {
  test_support::ScriptedOptions options;
  options.request_timeout_ms = 20;
  return options;
}

RemoteMedia fax() {
  RemoteMedia media;
  media.state = SWITCH_SDP_ANSWER_RECEIVED;
  media.enable_udp_passthru = SWITCH_TRUE;
  return media;
}

class MediaServerFailure : public MediaCallbacks, public testing::WithParamInterface<std::tuple<Step, Trouble>> {
 public:
  MediaServerFailure() : MediaCallbacks(impatient()) {}

  switch_status_t CreateInTheSessionOfB() {
    a_.Set("media_session_uuid", b_.Get("media_session_uuid").c_str());
    return a_.Create();
  }
  switch_status_t CreateBesideB() {
    a_.BondWith(b_);
    return a_.Create();
  }
  switch_status_t GetMedia(switch_sdp_negotiation_state_t state) {
    LocalMedia media;
    media.state = state;
    const switch_status_t status = a_.GetMedia(media);
    if (status == SWITCH_STATUS_SUCCESS) return status;
    EXPECT_EQ(media.out_port, 0);
    EXPECT_STREQ(media.ip_addr, "untouched");
    EXPECT_EQ(a_.Get("local_rtcp_port"), "");
    return status;
  }
  switch_status_t SetMedia(switch_sdp_negotiation_state_t state) {
    RemoteMedia media;
    media.state = state;
    media.enable_remote_address_detect = SWITCH_TRUE;
    return a_.SetMedia(media);
  }
  switch_status_t DestroyA() {
    for (const char* variable :
         {"sip_use_codec_rate", "advertised_media_ip", "remote_media_ip", "sip_use_codec_name"}) {
      a_.Set(variable, "something");
    }
    a_.Set("generate_rtcp_report", "yes");
    return a_.Destroy();
  }
  switch_status_t CleanUp() {
    objects_cleanup(a_.Uuid().c_str());
    return SWITCH_STATUS_SUCCESS;
  }

  MediaLeg a_;
  MediaLeg b_{SWITCH_CALL_DIRECTION_OUTBOUND};

 protected:
  void Arrange(Before before) {
    if (before == Before::kNoLeg) return;
    ASSERT_EQ(b_.Create(), SWITCH_STATUS_SUCCESS);
    if (before == Before::kOnlyB) return;
    if (before != Before::kTwoSessions) a_.BondWith(b_);
    ASSERT_EQ(a_.Create(), SWITCH_STATUS_SUCCESS);
    a_.BondWith(b_);
    if (before != Before::kBridged) return;
    ASSERT_EQ(a_.Bridge(), SWITCH_STATUS_SUCCESS);
  }

  void Befall(Trouble trouble, ScriptedOperation operation) {
    switch (trouble) {
      case Trouble::kRefuses:
        servers_.Fail(operation, test_support::ScriptedMediaServers::kAlways);
        break;
      case Trouble::kKeepsSilent:
        servers_.Hold(operation);
        break;
      case Trouble::kDies:
        servers_.During(operation, [this] { servers_.Lose(); });
        break;
    }
  }

  void ExpectLine(const char* message) {
    const std::vector<LogLine> lines = LinesOf({"channel_create.cpp", "channel_get_media.cpp", "channel_set_media.cpp",
                                                "channel_bridge.cpp", "channel_destroy.cpp"});
    if (!message) {
      for (const LogLine& line : lines) EXPECT_NE(line.level, SWITCH_LOG_ERROR) << testing::PrintToString(line);
      return;
    }
    bool found = false;
    for (const LogLine& line : lines) found = found || line.text.compare(0, std::string(message).size(), message) == 0;
    EXPECT_TRUE(found) << message;
  }

  static bool EndsHungUp(const MediaLeg& leg) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (!leg.HungUp() && std::chrono::steady_clock::now() < deadline) std::this_thread::yield();
    return leg.HungUp();
  }

  void ExpectLeft(Left left, const MediaLeg& leg, unsigned endpoint) {
    EXPECT_EQ(leg.Known(), left != Left::kNothing);
    if (left == Left::kNothing) {
      EXPECT_FALSE(servers_.FireRtpTimeout(endpoint));
      return;
    }
    ASSERT_TRUE(leg.Node());
    EXPECT_NE(servers_.SessionOf(endpoint), 0u);
    EXPECT_EQ(leg.Node()->IsListenerEnabled(), left == Left::kHeard);
    EXPECT_TRUE(servers_.FireRtpTimeout(endpoint));
    if (left == Left::kUnheard) return;
    EXPECT_TRUE(EndsHungUp(leg));  // the library still has the leg's listener
  }
  void ExpectLeftByDeath(Left left, const MediaLeg& leg) {
    EXPECT_TRUE(leg.Known() || left == Left::kNothing);
    if (!leg.Known()) return;
    EXPECT_TRUE(leg.Node());
    EXPECT_TRUE(EndsHungUp(leg));
  }

  void ExpectNothingLeft() const {
    EXPECT_EQ(MediaSessions(), 0u);
    EXPECT_THAT(servers_.OpenEndpoints(), IsEmpty());
    EXPECT_EQ(servers_.OpenSessions(), 0u);
    EXPECT_FALSE(a_.Known());
    EXPECT_FALSE(b_.Known());
  }
};

TEST_P(MediaServerFailure, LeavesEverythingInItsPlace) {
  const auto& [step, trouble] = GetParam();
  const bool dies = trouble == Trouble::kDies;
  const Outcome& expected = dies ? step.outcome_of_death : step.outcome;
  Arrange(step.before);
  log_.Clear();
  servers_.ForgetCalls();
  Befall(trouble, step.operation);

  EXPECT_EQ(step.call(*this), expected.status);
  ExpectLine(expected.message);
  ASSERT_FALSE(servers_.Calls(step.operation).empty()) << "it was never asked";
  EXPECT_FALSE(servers_.Calls(step.operation).front().result);

  servers_.Resume(step.operation);
  servers_.Succeed(step.operation);
  if (dies) {
    EXPECT_EQ(a_.Known(), expected.a != Left::kNothing);
    ExpectLeftByDeath(expected.a, a_);
    ExpectLeftByDeath(expected.b, b_);
  } else {
    ExpectLeft(expected.a, a_, 2);
    ExpectLeft(expected.b, b_, 1);
  }
  if (a_.Known()) a_.Destroy();
  if (b_.Known()) b_.Destroy();
  ExpectNothingLeft();
}

Outcome released(const char* message) {
  return {SWITCH_STATUS_FALSE, Left::kNothing, Left::kNothing, message};
}
Outcome refused(const char* message) {
  return {SWITCH_STATUS_FALSE, Left::kHeard, Left::kHeard, message};
}
Outcome went_on(Left a, Left b, const char* message = nullptr) {
  return {SWITCH_STATUS_SUCCESS, a, b, message};
}

std::vector<Step> creation_steps() {
  const Outcome no_session = released("Unable to create new media session for switch session ");
  const Outcome no_connection = released("Unable to create new network connection for switch session ");
  const Outcome none_beside = released("Unable to create new network connection\n");
  const Outcome none_in_named = {SWITCH_STATUS_FALSE, Left::kNothing, Left::kHeard,
                                 "Unable to create new network connection\n"};
  const auto create = [](MediaServerFailure& legs) { return legs.a_.Create(); };
  const auto create_in_named = [](MediaServerFailure& legs) { return legs.CreateInTheSessionOfB(); };
  const auto create_beside = [](MediaServerFailure& legs) { return legs.CreateBesideB(); };
  return {{"SessionOfAFirstLeg", ScriptedOperation::kCreateSession, Before::kNoLeg, create, no_session, no_session},
          {"ConnectionOfAFirstLeg", ScriptedOperation::kCreateEndpoint, Before::kNoLeg, create, no_connection,
           no_connection},
          {"ConnectionInANamedSession", ScriptedOperation::kCreateEndpoint, Before::kOnlyB, create_in_named,
           none_in_named, none_in_named},
          {"ConnectionBesideThePartner", ScriptedOperation::kCreateEndpoint, Before::kOnlyB, create_beside, none_beside,
           none_beside}};
}

std::vector<Step> description_steps() {
  const Outcome no_offer = released("ERROR - Unable to get local offer configuration for Network Connection.\n");
  const Outcome no_answer = refused("ERROR - Unable to get local answer configuration for Network Connection.\n");
  const Outcome offer_refused = released("Failed to set remote offer!\n");
  const Outcome answer_refused = released("Failed to set remote answer!\n");
  const auto get_offer = [](MediaServerFailure& legs) { return legs.GetMedia(SWITCH_SDP_STATE_UNKNOWN); };
  const auto get_answer = [](MediaServerFailure& legs) { return legs.GetMedia(SWITCH_SDP_OFFER_RECEIVED); };
  const auto set_offer = [](MediaServerFailure& legs) { return legs.SetMedia(SWITCH_SDP_OFFER_RECEIVED); };
  const auto set_answer = [](MediaServerFailure& legs) { return legs.SetMedia(SWITCH_SDP_ANSWER_RECEIVED); };
  return {
      {"LocalOffer", ScriptedOperation::kGetLocalOffer, Before::kOneSession, get_offer, no_offer, no_offer},
      {"LocalAnswer", ScriptedOperation::kGetLocalAnswer, Before::kOneSession, get_answer, no_answer, no_answer},
      {"DetectionBeforeAnOffer", ScriptedOperation::kSetRemoteAddressDetection, Before::kOneSession, set_offer,
       went_on(Left::kHeard, Left::kHeard), offer_refused},
      {"DetectionBeforeAnAnswer", ScriptedOperation::kSetRemoteAddressDetection, Before::kOneSession, set_answer,
       went_on(Left::kHeard, Left::kHeard), answer_refused},
      {"RemoteOffer", ScriptedOperation::kSetRemoteOffer, Before::kOneSession, set_offer, offer_refused, offer_refused},
      {"RemoteAnswer", ScriptedOperation::kSetRemoteAnswer, Before::kOneSession, set_answer, answer_refused,
       answer_refused}};
}

std::vector<Step> fax_steps() {
  const Outcome image_refused = refused("Failed to set image remote answer!\n");
  Outcome image_refused_unbridged = image_refused;
  image_refused_unbridged.a = image_refused_unbridged.b = Left::kUnheard;
  const Outcome still_joined = went_on(Left::kUnheard, Left::kUnheard,
                                       "ERROR - Unable to unjoin Network Connection A to Network Connection B.\n");
  const auto set_fax = [](MediaServerFailure& legs) { return legs.a_.SetMedia(fax()); };
  return {
      {"UnjoinBeforeFax", ScriptedOperation::kUnjoin, Before::kBridged, set_fax, still_joined, image_refused_unbridged},
      {"RemoteImageOfThePeer", ScriptedOperation::kGetRemoteImageConfig, Before::kOneSession, set_fax,
       went_on(Left::kHeard, Left::kHeard), image_refused},
      {"LocalImageOfThePeer", ScriptedOperation::kGetLocalImageConfig, Before::kOneSession, set_fax,
       went_on(Left::kHeard, Left::kHeard), image_refused},
      {"ImageAnswer", ScriptedOperation::kSetRemoteAnswer, Before::kBridged, set_fax, image_refused_unbridged,
       image_refused_unbridged}};
}

std::vector<Step> bridge_steps() {
  const Outcome not_joined = released("Unable to join Network Connection A to Network Connection B\n");
  const Outcome not_moved = released("ERROR - Unable to migrate Network Connection.\n");
  const Outcome not_unjoined = went_on(Left::kUnheard, Left::kUnheard,
                                       "ERROR - Unable to unjoin Network Connection A to Network Connection B.\n");
  const auto bridge = [](MediaServerFailure& legs) { return legs.a_.Bridge(); };
  const auto unbridge = [](MediaServerFailure& legs) { return legs.a_.Unbridge(); };
  return {{"Join", ScriptedOperation::kJoin, Before::kOneSession, bridge, not_joined, not_joined},
          {"Import", ScriptedOperation::kImportEndpoint, Before::kTwoSessions, bridge, not_moved, not_moved},
          {"JoinAfterTheMigration", ScriptedOperation::kJoin, Before::kTwoSessions, bridge, not_joined, not_joined},
          {"Unjoin", ScriptedOperation::kUnjoin, Before::kBridged, unbridge, not_unjoined, not_unjoined}};
}

std::vector<Step> destruction_steps() {
  const Outcome a_gone = went_on(Left::kNothing, Left::kHeard);
  const Outcome no_reports = went_on(Left::kNothing, Left::kHeard, "Failed to fetch RTCP statistics report\n");
  const Outcome both_gone = went_on(Left::kNothing, Left::kNothing);
  const auto destroy = [](MediaServerFailure& legs) { return legs.DestroyA(); };
  const auto clean_up = [](MediaServerFailure& legs) { return legs.CleanUp(); };
  return {{"Reports", ScriptedOperation::kGetRtcpStatsReport, Before::kOneSession, destroy, no_reports, no_reports},
          {"Close", ScriptedOperation::kClose, Before::kOneSession, destroy, a_gone, a_gone},
          {"CloseInACleanUp", ScriptedOperation::kClose, Before::kOneSession, clean_up, both_gone, both_gone}};
}

std::string test_name(const testing::TestParamInfo<std::tuple<Step, Trouble>>& info) {
  return name_of(std::get<1>(info.param)) + std::get<0>(info.param).name;
}

const auto kTroubles = testing::Values(Trouble::kRefuses, Trouble::kKeepsSilent, Trouble::kDies);
INSTANTIATE_TEST_SUITE_P(Creation, MediaServerFailure, testing::Combine(testing::ValuesIn(creation_steps()), kTroubles),
                         test_name);
INSTANTIATE_TEST_SUITE_P(Description, MediaServerFailure,
                         testing::Combine(testing::ValuesIn(description_steps()), kTroubles), test_name);
INSTANTIATE_TEST_SUITE_P(Fax, MediaServerFailure, testing::Combine(testing::ValuesIn(fax_steps()), kTroubles),
                         test_name);
INSTANTIATE_TEST_SUITE_P(Bridge, MediaServerFailure, testing::Combine(testing::ValuesIn(bridge_steps()), kTroubles),
                         test_name);
INSTANTIATE_TEST_SUITE_P(Destruction, MediaServerFailure,
                         testing::Combine(testing::ValuesIn(destruction_steps()), kTroubles), test_name);

}  // namespace
}  // namespace module_test
