// The checker is checked: each thing that a media path can do wrong has to be noticed.

#include <gtest/gtest.h>

#include <iterator>
#include <memory>

#include "support/rtp_comparison.h"
#include "support/rtp_probe.h"
#include "support/rtp_relay.h"

namespace test_support {
namespace {

using std::chrono::milliseconds;

struct ProbeCase {
  RelayFault fault = RelayFault::kNone;
  const char* name = "";
  const char* reason = "";  // part of what the probe has to say
};

// Two phones and a relay per direction; the faulty one is on the way to the callee.
class Path {
 public:
  explicit Path(RelayFault fault, std::size_t deaf_for = 0)
      : to_callee({"127.0.0.1", callee.Port()}, fault, deaf_for + 30, deaf_for),
        to_caller({"127.0.0.1", caller.Port()}, RelayFault::kNone, 0) {}

  RtpCallSettings Settings() {
    RtpCallSettings call;
    call.caller = &caller;
    call.callee = &callee;
    call.to_callee = Direction(to_callee, 1, "27");
    call.to_caller = Direction(to_caller, 2, "");
    return call;
  }

  RtpCallResult Run(const RtpExchangeLimits& limits = Limits()) { return exchange_rtp({Settings()}, limits).at(0); }

  static RtpExchangeLimits Limits() {
    RtpExchangeLimits limits;
    limits.path_open = milliseconds(1000);
    limits.last_packet = milliseconds(300);
    return limits;
  }

  RtpPhone caller;
  RtpPhone callee;
  RtpRelay to_callee;
  RtpRelay to_caller;

 private:
  static RtpDirectionSettings Direction(const RtpRelay& relay, std::uint32_t seed, const std::string& digits) {
    RtpDirectionSettings direction;
    direction.talk = random_talk(seed);
    direction.talk.length = milliseconds(1400);
    direction.talk.digits = digits;
    direction.to = relay.Address();
    direction.expected.from = relay.Address().ToString();
    direction.expected.digits = digits;
    return direction;
  }
};

TEST(SupportProbe, PassesAPathThatDoesNothingWrong) {
  const RtpCallResult result = Path(RelayFault::kNone).Run();
  EXPECT_TRUE(result.Passed()) << result.to_callee.Reasons() << " / " << result.to_caller.Reasons();
  EXPECT_GT(result.to_callee.received, 40u);
  EXPECT_EQ(result.to_callee.received, result.to_callee.sent);
  EXPECT_EQ(result.to_callee.digits, "27");
  EXPECT_EQ(result.to_callee.ssrcs.size(), 1u);
  EXPECT_EQ(result.to_callee.priming_missed, 0u);
}

TEST(SupportProbe, HearsOneWhoSpeaksAlone) {
  Path path(RelayFault::kNone);
  const RtpComparison heard = say_rtp(path.caller, path.callee, path.Settings().to_callee, Path::Limits());
  EXPECT_TRUE(heard.Passed()) << heard.Reasons();
  EXPECT_EQ(heard.received, heard.sent);
  EXPECT_FALSE(path.caller.Rtp().Receive()) << "the other one spoke, too";
  Path faulty(RelayFault::kDrop);
  EXPECT_FALSE(say_rtp(faulty.caller, faulty.callee, faulty.Settings().to_callee, Path::Limits()).Passed());
}

TEST(SupportProbe, CountsWhatWasSaidBeforeThePathOpenedApart) {
  const RtpCallResult result = Path(RelayFault::kNone, 5).Run();
  EXPECT_TRUE(result.Passed()) << result.to_callee.Reasons();
  EXPECT_EQ(result.to_callee.priming_missed, 5u);
  EXPECT_EQ(result.to_callee.received, result.to_callee.sent);
}

TEST(SupportProbe, FailsWhenNothingArrives) {
  Path path(RelayFault::kNone, 100000);
  const RtpCallResult result = path.Run();
  EXPECT_FALSE(result.Passed());
  EXPECT_FALSE(result.to_callee.Passed());
  EXPECT_TRUE(result.to_caller.Passed()) << result.to_caller.Reasons();
  EXPECT_NE(result.to_callee.Reasons().find("nothing arrived"), std::string::npos) << result.to_callee.Reasons();
}

TEST(SupportProbe, FailsWhenTheSendersSsrcComesThrough) {
  Path path(RelayFault::kNone);
  path.to_callee.PassSsrcThrough();
  const RtpCallResult result = path.Run();
  EXPECT_FALSE(result.to_callee.Passed());
  EXPECT_NE(result.to_callee.Reasons().find("the sender's SSRC"), std::string::npos) << result.to_callee.Reasons();
}

TEST(SupportProbe, ExpectsThePayloadTypesOfTheReceiver) {
  Path path(RelayFault::kNone);
  path.to_callee.ShiftPayloadTypes(3);
  RtpCallSettings call = path.Settings();
  call.to_callee.expected.audio_payload_type = 3;
  call.to_callee.expected.event_payload_type = 104;
  RtpCallResult result = exchange_rtp({call}, Path::Limits()).at(0);
  EXPECT_TRUE(result.Passed()) << result.to_callee.Reasons();
  EXPECT_EQ(result.to_callee.digits, "27");
  call = path.Settings();
  result = exchange_rtp({call}, Path::Limits()).at(0);
  EXPECT_FALSE(result.to_callee.Passed());
  EXPECT_NE(result.to_callee.Reasons().find("payload type 3 instead of 0"), std::string::npos);
  EXPECT_EQ(result.to_callee.digits, "");
}

const ProbeCase kFaults[] = {
    {RelayFault::kDrop, "drop", "never arrived"},
    {RelayFault::kDropAndRenumber, "drop and renumber", "payload differs"},
    {RelayFault::kDuplicate, "duplicate", "arrived twice"},
    {RelayFault::kSwap, "swap", "arrived after a later one"},
    {RelayFault::kAlterPayload, "alter payload", "payload differs"},
    {RelayFault::kShortenPayload, "shorten payload", "payload differs"},
    {RelayFault::kClearMarker, "clear marker", "marker lost"},
    {RelayFault::kShiftTimestamp, "shift timestamp", "timestamp"},
    {RelayFault::kChangeSsrc, "change SSRC", "2 SSRCs heard"},
    {RelayFault::kChangePayloadType, "change payload type", "payload type"},
    {RelayFault::kOtherSocket, "other socket", "instead of 127.0.0.1:"},
    {RelayFault::kInvent, "invent", "that nobody sent"},
    {RelayFault::kTruncateHeader, "truncate header", "no RTP"},
};

TEST(SupportProbe, NoticesEachFaultInItsDirectionOnly) {
  std::vector<std::unique_ptr<Path>> paths;
  std::vector<RtpCallSettings> calls;
  for (const ProbeCase& one : kFaults) {
    paths.push_back(std::make_unique<Path>(one.fault));
    calls.push_back(paths.back()->Settings());
  }
  const auto results = exchange_rtp(calls, Path::Limits());
  ASSERT_EQ(results.size(), std::size(kFaults));
  for (std::size_t i = 0; i < results.size(); ++i) {
    SCOPED_TRACE(kFaults[i].name);
    const RtpCallResult& result = results[i];
    EXPECT_FALSE(result.Passed());
    EXPECT_FALSE(result.to_callee.Passed());
    EXPECT_NE(result.to_callee.Reasons().find(kFaults[i].reason), std::string::npos) << result.to_callee.Reasons();
    EXPECT_TRUE(result.to_caller.Passed()) << result.to_caller.Reasons();
  }
}

TEST(SupportProbe, HoldsManyCallsAtOnce) {
  std::vector<std::unique_ptr<Path>> paths;
  std::vector<RtpCallSettings> calls;
  for (int i = 0; i < 8; ++i) {
    paths.push_back(std::make_unique<Path>(i == 5 ? RelayFault::kDrop : RelayFault::kNone));
    calls.push_back(paths.back()->Settings());
  }
  const auto results = exchange_rtp(calls, Path::Limits());
  ASSERT_EQ(results.size(), 8u);
  for (std::size_t i = 0; i < results.size(); ++i) {
    EXPECT_EQ(results[i].Passed(), i != 5) << results[i].to_callee.Reasons() << results[i].to_caller.Reasons();
  }
}

TEST(SupportComparison, PassesNothingOnNoData) {
  const RtpComparison result = compare_rtp({}, {});
  EXPECT_FALSE(result.Passed());
  EXPECT_FALSE(result.reasons.empty());
  EXPECT_FALSE(RtpComparison{}.Passed()) << "a comparison that never took place is no pass";
}

TEST(SupportComparison, FailsWhenOnlyPrimingArrived) {
  RtpTalk talk(random_talk(3));
  RtpRecord record;
  for (int i = 0; i < 3; ++i) {
    SentPacket sent{talk.Prime(), RtpKind::kPriming};
    record.sent.push_back(sent);
    sent.packet.ssrc ^= 1;
    record.received.push_back({sent.packet, "here", {}});
  }
  RtpExpectation expected;
  expected.from = "here";
  EXPECT_FALSE(compare_rtp(record, expected).Passed());
}

TEST(SupportComparison, FailsWhenDigitsDiffer) {
  RtpTalkSettings settings = random_talk(3);
  settings.digits = "12";
  settings.length = milliseconds(1000);
  RtpTalk talk(settings);
  RtpRecord record;
  record.sent.push_back({talk.Prime(), RtpKind::kPriming});
  for (const auto& planned : talk.Script()) record.sent.push_back({planned.packet, planned.kind});
  for (SentPacket sent : record.sent) {
    sent.packet.ssrc ^= 1;
    record.received.push_back({sent.packet, "here", {}});
  }
  RtpExpectation expected;
  expected.from = "here";
  expected.digits = "12";
  EXPECT_TRUE(compare_rtp(record, expected).Passed()) << compare_rtp(record, expected).Reasons();
  expected.digits = "13";
  EXPECT_FALSE(compare_rtp(record, expected).Passed());
  expected.digits = "";
  EXPECT_FALSE(compare_rtp(record, expected).Passed());
}

}  // namespace
}  // namespace test_support
