// Calls whose signalling goes over TCP, or that are IPv6 from end to end, media and all.

#include <gtest/gtest.h>

#include "switch_call_fixture.h"

namespace end_to_end {
namespace {

using test_support::CallTrialSettings;
using test_support::SippNetwork;

class TransportCall : public SwitchCall {
 protected:
  void ExpectSpeech(SippNetwork caller, SippNetwork callee) {
    CallTrialSettings settings;
    settings.caller_network = caller;
    settings.callee_network = callee;
    StartWithPhones(settings);
    ExpectCallsToCarrySpeech(1);
    ExpectHungUp();
    EXPECT_NE(trial_->Callee().Dialogues().at(0).Request("BYE", false), nullptr);
    ExpectAtRest();
    ExpectCleanStop();
  }

  /// The profile on ::1, and the media server that takes the first call.
  void ServeIpv6() {
    conf_.Replace("sip_profiles/internal.xml", "name=\"sip-ip\" value=\"$${local_ip}\"",
                  "name=\"sip-ip\" value=\"::1\"");
    conf_.Replace("jsr309.xml", "<address>127.0.0.1</address>", "<address>::1</address>");
    switch_settings_.conf = conf_.Path();
  }

  test_support::ConfigurationCopy conf_;
};

TEST_F(TransportCall, OverTcpCarriesSpeech) {
  ExpectSpeech({true, false}, {true, false});
}

TEST_F(TransportCall, FromTcpToUdpCarriesSpeech) {
  ExpectSpeech({true, false}, {false, false});
}

TEST_F(TransportCall, FromUdpToTcpCarriesSpeech) {
  ExpectSpeech({false, false}, {true, false});
}

TEST_F(TransportCall, OverIpv6CarriesSpeechOnIpv6) {
  ServeIpv6();
  ExpectSpeech({false, true}, {false, true});
  EXPECT_EQ(trial_->Calls().at(0).caller_far.address, "::1");
  EXPECT_EQ(trial_->Calls().at(0).callee_far.address, "::1");
}

TEST_F(TransportCall, OverIpv6AndTcpCarriesSpeechOnIpv6) {
  ServeIpv6();
  ExpectSpeech({true, true}, {true, true});
  EXPECT_EQ(trial_->Calls().at(0).callee_far.address, "::1");
}

}  // namespace
}  // namespace end_to_end
