// The RTCP figures of a finished call, as a monitoring program gets them, against what the phones know: how much they
// sent, how much they heard, and what was lost on the way.

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "event_listener.h"
#include "switch_call_fixture.h"

namespace end_to_end {
namespace {

using std::chrono::seconds;
using test_support::CallTrialSettings;
using test_support::RtcpAccount;
using test_support::RtpCallResult;

constexpr long kPayloadOctets = 160;  // 20 ms of PCMU
constexpr long kPacketOctets = kPayloadOctets + 12;
// Of a busy machine's loopback: far beyond what is measured, far below what a wrong unit or a wrong clock would give.
constexpr long kMostJitter = 1600;       // timestamp units, 200 ms
constexpr long kLongestRoundTrip = 500;  // ms

class RtcpEvents : public OnEachDriver<SwitchCall> {
 protected:
  /// A call of two phones that report; both legs ended, their events heard.
  void Talk(std::size_t lose_one_of) {
    CallTrialSettings settings;
    settings.dialled = "2001";
    settings.talk = seconds(5);  // long enough for the media server's first report
    settings.reports = true;
    settings.lose_one_of = lose_one_of;
    StartWithPhones(settings);
    EventListener listener(switch_->EventSocket(), "CHANNEL_ANSWER CHANNEL_DESTROY RECV_RTCP_MESSAGE");
    trial_->Dial(switch_->Sip(), 1);
    trial_->WaitEstablished(seconds(10));
    result_ = trial_->Talk().at(0);
    ExpectHungUp();
    events_ = listener.WaitUntil(seconds(20), [](const std::vector<HeardEvent>& heard) {
      return std::count_if(heard.begin(), heard.end(),
                           [](const HeardEvent& event) { return event.Name() == "CHANNEL_DESTROY"; }) == 2;
    });
  }

  std::string LegOf(const std::string& direction) const {
    for (const HeardEvent& event : events_) {
      if (event.Name() == "CHANNEL_ANSWER" && event.Header("Call-Direction") == direction) {
        return event.Header("Unique-ID");
      }
    }
    return "no leg";
  }

  /// The event of one direction of the leg; exactly one must be there.
  HeardEvent Of(const std::string& leg, const std::string& inflow) const {
    std::vector<HeardEvent> found;
    for (const HeardEvent& event : events_) {
      if (event.Name() == "RECV_RTCP_MESSAGE" && event.Header("Unique-ID") == leg &&
          event.Header("Inflow-RTP-Flag") == inflow) {
        found.push_back(event);
      }
    }
    EXPECT_EQ(found.size(), 1u);
    return found.empty() ? HeardEvent{} : found.front();
  }

  /// What every event has to satisfy, whatever happened on the way.
  static void ExpectPlausible(const HeardEvent& event) {
    const long maximum = event.Number("Maximum-InterArrival-Jitter");
    EXPECT_LE(maximum, kMostJitter);
    EXPECT_LE(event.Number("Average-InterArrival-Jitter"), maximum);
    EXPECT_GE(event.Number("Average-InterArrival-Jitter"), 0);
    EXPECT_LE(event.Number("Maximum-Round-Trip-Time"), kLongestRoundTrip);
    EXPECT_LE(event.Number("Average-Round-Trip-Time"), event.Number("Maximum-Round-Trip-Time"));
    EXPECT_GE(event.Number("Average-Round-Trip-Time"), 0);
  }

  static void ExpectLost(const HeardEvent& event, std::size_t lost) {
    EXPECT_EQ(event.Number("Total-Lost-RTP-Packets"), static_cast<long>(lost));
    const long fraction = event.Number("Maximum-Fraction-Lost");
    EXPECT_LE(fraction, 255);
    EXPECT_EQ(fraction > 0, lost > 0) << fraction;
  }

  /// The leg of the phone whose account it is. `lost_on_the_way` of what this phone sent, `missing` of what was sent to
  /// it before the media server.
  void ExpectLeg(const std::string& direction, const RtcpAccount& phone, std::size_t lost_on_the_way,
                 std::size_t missing) {
    SCOPED_TRACE(direction);
    const std::string leg = LegOf(direction);
    const HeardEvent inflow = Of(leg, "1");
    // A daemon tells what came of what was sent, and not what it was told.
    const std::size_t untold = IsOnRtpengine() ? lost_on_the_way : 0;
    EXPECT_EQ(inflow.Number("Sender-Packet-Count"), static_cast<long>(phone.packets_sent - untold));
    EXPECT_EQ(inflow.Number("Octect-Packet-Count"), static_cast<long>(phone.octets_sent - kPayloadOctets * untold));
    EXPECT_EQ(inflow.Number("SR-Sent-Count"), IsOnRtpengine() ? 0 : static_cast<long>(phone.sender_reports));
    ExpectLost(inflow, lost_on_the_way);
    ExpectPlausible(inflow);

    const HeardEvent outflow = Of(leg, "0");
    const long heard = static_cast<long>(phone.packets_heard);
    if (IsOnRtpengine()) {
      // It counts on while it is asked, packets and octets each for themselves.
      EXPECT_GE(outflow.Number("Sender-Packet-Count"), heard);
      EXPECT_LE(outflow.Number("Sender-Packet-Count"), heard + 1);
      EXPECT_GE(outflow.Number("Octect-Packet-Count"), kPayloadOctets * heard);
      EXPECT_LE(outflow.Number("Octect-Packet-Count"), kPayloadOctets * heard + kPacketOctets);
      EXPECT_EQ(outflow.Number("SR-Sent-Count"), 0) << "it sends none of its own";
    } else {
      EXPECT_EQ(outflow.Number("Sender-Packet-Count"), heard);
      EXPECT_EQ(outflow.Number("Octect-Packet-Count"), kPayloadOctets * heard);
      // The phone has stopped listening by the time the call ends.
      EXPECT_GE(outflow.Number("SR-Sent-Count"), static_cast<long>(phone.heard_sender_reports));
      EXPECT_LE(outflow.Number("SR-Sent-Count"), static_cast<long>(phone.heard_sender_reports) + 3);
    }
    EXPECT_EQ(phone.lost, static_cast<std::int32_t>(missing)) << "what the phone itself said";
    ExpectLost(outflow, missing);
    ExpectPlausible(outflow);
  }

  /// The phones' side: both were told how it fares, by the media server or by each other through it, in compound
  /// packets without fault.
  void ExpectPhonesWereReportedTo() {
    for (const RtcpAccount* phone : {&result_.caller_reports, &result_.callee_reports}) {
      const RtcpAccount& other = phone == &result_.caller_reports ? result_.callee_reports : result_.caller_reports;
      EXPECT_GE(phone->sender_reports, 5u);
      EXPECT_GE(phone->heard_sender_reports, 1u);
      EXPECT_GE(phone->heard_blocks, 1u);
      EXPECT_LE(phone->heard_packets_sent, IsOnRtpengine() ? other.packets_sent : phone->packets_heard);
      EXPECT_GT(phone->heard_packets_sent, 0u);
      EXPECT_EQ(phone->malformed, 0u);
    }
  }

  RtpCallResult result_;
  std::vector<HeardEvent> events_;
};

TEST_P(RtcpEvents, CountWhatThePhonesSentAndHeard) {
  Talk(0);
  EXPECT_TRUE(result_.Passed()) << result_.to_callee.Reasons() << " / " << result_.to_caller.Reasons();
  ExpectPhonesWereReportedTo();
  EXPECT_EQ(result_.caller_reports.heard_lost, 0);
  EXPECT_EQ(result_.callee_reports.heard_lost, 0);
  ExpectLeg("inbound", result_.caller_reports, 0, 0);
  ExpectLeg("outbound", result_.callee_reports, 0, 0);
  ExpectAtRest();
  ExpectCleanStop();
}

// What a phone's packets lose before the media server is missing at the other phone too: nobody makes them up.
TEST_P(RtcpEvents, TellLossesOnTheWay) {
  Talk(10);
  EXPECT_GT(result_.lost_to_callee, 5u);
  EXPECT_GT(result_.lost_to_caller, 5u);
  ExpectPhonesWereReportedTo();
  EXPECT_GT(result_.caller_reports.heard_lost, 0);
  EXPECT_GT(result_.callee_reports.heard_lost, 0);
  ExpectLeg("inbound", result_.caller_reports, result_.lost_to_callee, result_.lost_to_caller);
  ExpectLeg("outbound", result_.callee_reports, result_.lost_to_caller, result_.lost_to_callee);
  ExpectAtRest();
  ExpectCleanStop();
}

INSTANTIATE_TEST_SUITE_P(Over, RtcpEvents, every_media_driver(), media_driver_name);

}  // namespace
}  // namespace end_to_end
