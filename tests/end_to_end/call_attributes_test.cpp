// What phones say of their streams, in calls that carry them: RTCP ports, packet times, parameters of codecs, payload
// types of each side's own.

#include <gtest/gtest.h>

#include <optional>
#include <utility>

#include "event_listener.h"
#include "ordered_call.h"

namespace end_to_end {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using test_support::CallTrialSettings;
using test_support::RtpContent;
using test_support::SippCallFields;
using test_support::UdpSocket;

class CallAttributes : public OnEachDriver<OrderedCall> {
 protected:
  /// From the call's beginning to the switch's end, with `callees_offer` in what the callee is offered and
  /// `callers_answer` in what the caller is answered.
  void Carries(CallTrialSettings settings, const std::string& callees_offer, const std::string& callers_answer) {
    settings.talk = milliseconds(900);
    StartPhones(settings);
    ASSERT_NO_FATAL_FAILURE(ExpectCallsToCarrySpeech(1));
    ExpectLine(OfferToCallee(), callees_offer);
    ExpectLine(AnswerToCaller(), callers_answer);
    HangUp();
    ExpectEndedWell();
  }

  std::string OfferToCallee() { return trial_->Calls().at(0).callee.Request("INVITE", false)->body; }
  std::string AnswerToCaller() { return trial_->Calls().at(0).caller.Answer(200, "INVITE", false)->body; }
  static void ExpectLine(const std::string& sdp, const std::string& line) {
    EXPECT_NE(sdp.find("\r\n" + line + "\r\n"), std::string::npos) << line << " is not in\n" << sdp;
  }

  void Profile(const std::string& from, const std::string& to) {
    Configuration().Replace("sip_profiles/internal.xml", from, to);
  }

  /// The media server goes on reporting to the phone, from the port that it told.
  static void ExpectReportsAt(const Party& party) {
    std::optional<test_support::UdpDatagram> report;
    ASSERT_TRUE(test_support::wait_until(seconds(30), [&] {
      return (report = party.media->Rtcp().Receive()).has_value();
    })) << "no RTCP at the port that was named";
    EXPECT_EQ(report->from.ToString(), party.far.address + ":" + std::to_string(party.far.port + 1));
    ASSERT_GE(report->data.size(), 8u);
    EXPECT_TRUE(report->data[1] == 200 || report->data[1] == 201) << "neither SR nor RR: " << int{report->data[1]};
  }

  static CallTrialSettings PacketTime(int ms) {
    CallTrialSettings settings;
    settings.caller.attribute = settings.callee.attribute = "ptime:" + std::to_string(ms);
    settings.codec.ptime = milliseconds(ms);
    return settings;
  }

  static SippCallFields Codec(const std::string& type, const std::string& name, const std::string& attribute) {
    SippCallFields fields;
    fields.payload_type = type;
    fields.codec = name;
    fields.attribute = attribute;
    return fields;
  }

  /// A call between phones of that codec, whose frames are so many bytes.
  static CallTrialSettings Phones(const SippCallFields& caller, const SippCallFields& callee, std::size_t bytes) {
    CallTrialSettings settings;
    settings.caller = caller;
    settings.callee = callee;
    settings.codec.content = RtpContent::kOpaque;
    settings.codec.opaque_bytes = bytes;
    return settings;
  }
};

// 2001 tells at the end what each leg's phone reported: what came from the port that was named, for it comes from no
// other.
TEST_P(CallAttributes, RtcpGoesToAndComesFromThePortThatEachPhoneNamed) {
  UdpSocket caller_rtcp;
  UdpSocket callee_rtcp;
  CallTrialSettings settings;
  settings.dialled = "2001";
  settings.talk = seconds(1);
  settings.reports = true;
  settings.caller.attribute = "rtcp:" + std::to_string(caller_rtcp.Port());
  settings.callee.attribute = "rtcp:" + std::to_string(callee_rtcp.Port()) + " IN IP4 127.0.0.1";
  StartPhones(settings);
  auto listener = std::make_unique<EventListener>(switch_->EventSocket(), "RECV_RTCP_MESSAGE");
  Dial();
  trial_->WaitEstablished(seconds(20));
  std::swap(Caller().media->Rtcp(), caller_rtcp);  // what is left here is the port after that of RTP
  std::swap(Callee().media->Rtcp(), callee_rtcp);
  const auto talk = trial_->Talk().at(0);
  EXPECT_TRUE(talk.Passed()) << talk.to_callee.Reasons() << talk.to_caller.Reasons();
  if (IsOnRtpengine()) {  // which passes on what the phones report to each other, and reports nothing itself
    EXPECT_GE(talk.caller_reports.heard_sender_reports, 1u);
    EXPECT_GE(talk.callee_reports.heard_sender_reports, 1u);
  } else {
    ExpectReportsAt(Caller());
    ExpectReportsAt(Callee());
  }
  EXPECT_FALSE(caller_rtcp.Receive()) << "RTCP at a port that was not named";
  EXPECT_FALSE(callee_rtcp.Receive()) << "RTCP at a port that was not named";
  HangUp();
  long sender_reports = 0;
  for (const HeardEvent& event : listener->WaitFor(4, seconds(20))) {
    if (event.Header("Inflow-RTP-Flag") == "1") sender_reports += event.Number("SR-Sent-Count");
  }
  const std::size_t sent = talk.caller_reports.sender_reports + talk.callee_reports.sender_reports;
  EXPECT_EQ(sender_reports, IsOnRtpengine() ? 0 : static_cast<long>(sent));
  listener.reset();
  ExpectEndedWell();
}

TEST_P(CallAttributes, PacketsOf10MillisecondsPass) {
  Carries(PacketTime(10), "a=ptime:10", "a=ptime:10");
}

TEST_P(CallAttributes, PacketsOf30MillisecondsPass) {
  Carries(PacketTime(30), "a=ptime:30", "a=ptime:30");
}

// Each leg names the codec by a number of its own. 12.2 kbit/s: CMR, table of contents, 31 octets (RFC 4867, 4.4).
TEST_P(CallAttributes, AmrIsCarriedInOctetAlignedPayloads) {
  CallTrialSettings settings =
      Phones(Codec("100", "AMR/8000", "fmtp:100 octet-align=1"), Codec("96", "AMR/8000", "fmtp:96 octet-align=1"), 33);
  if (IsOnRtpengine()) return ExpectCallThatCannotBeJoined(settings, "AMR/8000 octet-align=1 under payload types 100");
  settings.talk = milliseconds(900);
  StartPhones(settings);
  ExpectCallsToCarrySpeech(1);
  const int offered = trial_->Calls().at(0).callee_far.Find("AMR")->payload_type;
  ExpectLine(OfferToCallee(), "a=fmtp:" + std::to_string(offered) + " octet-align=1");
  ExpectLine(AnswerToCaller(), "a=fmtp:100 octet-align=1");
  HangUp();
  ExpectEndedWell();
}

TEST_P(CallAttributes, G729WithoutAnnexBStaysSoOnBothLegsWhenTheCallerSaysSo) {
  Carries(Phones(Codec("18", "G729/8000", "fmtp:18 annexb=no"), Codec("18", "G729/8000", "ptime:20"), 20),
          "a=fmtp:18 annexb=no", "a=fmtp:18 annexb=no");
}

TEST_P(CallAttributes, G729WithoutAnnexBStaysSoOnBothLegsWhenTheProfileSaysSo) {
  Profile("name=\"g729-annexb\" value=\"true\"", "name=\"g729-annexb\" value=\"false\"");
  Carries(Phones(Codec("18", "G729/8000", "ptime:20"), Codec("18", "G729/8000", "ptime:20"), 20), "a=fmtp:18 annexb=no",
          "a=fmtp:18 annexb=no");
}

// 24 octets of 30 ms at 6.3 kbit/s: the two lowest bits of the first say so (RFC 3551, 4.5.3).
TEST_P(CallAttributes, G723WithoutAnnexAStaysSoOnBothLegs) {
  CallTrialSettings settings =
      Phones(Codec("4", "G723/8000", "fmtp:4 annexa=no"), Codec("4", "G723/8000", "fmtp:4 annexa=no"), 24);
  settings.codec.ptime = milliseconds(30);
  settings.codec.opaque_first = std::uint8_t{0x84};
  Carries(settings, "a=fmtp:4 annexa=no", "a=fmtp:4 annexa=no");
}

// Telephone-events that we offer under one number are answered under another: what goes out bears theirs, what comes in
// bears ours (RFC 3264, 5.1). The codec has a number of its own on each leg.
TEST_P(CallAttributes, PayloadTypesMayDifferBetweenTheLegsAndBetweenTheDirectionsOfOne) {
  Profile("name=\"asymmetric-dynamic-payload\" value=\"false\"", "name=\"asymmetric-dynamic-payload\" value=\"true\"");
  CallTrialSettings settings =
      Phones(Codec("116", "iLBC/8000", "fmtp:116 mode=20"), Codec("98", "iLBC/8000", "fmtp:98 mode=20"), 38);
  settings.caller.event_payload_type = "96";
  settings.callee.event_payload_type = "110";
  settings.caller_digits = "37";
  settings.callee_digits = "0";
  if (IsOnRtpengine()) {
    return ExpectCallThatCannotBeJoined(settings, "iLBC/8000 bitrate=15200 under payload types 116 and ");
  }
  settings.talk = seconds(2);
  StartPhones(settings);
  ExpectCallsToCarrySpeech(1);
  const auto& view = trial_->Calls().at(0);
  EXPECT_EQ(view.caller_far.Find("iLBC")->payload_type, 116);
  EXPECT_EQ(view.callee_far.Find("iLBC")->payload_type, 98);
  EXPECT_EQ(view.callee_far.Find("telephone-event")->payload_type, 101) << "the callee answered 110";
  HangUp();
  ExpectEndedWell();
}

INSTANTIATE_TEST_SUITE_P(Over, CallAttributes, every_media_driver(), media_driver_name);

}  // namespace
}  // namespace end_to_end
