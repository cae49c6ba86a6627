#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "sip_fake_media_server.h"
#include "sip_peer.h"
#include "sip_temporary_directory.h"
#include "support/log_capture.h"

namespace kvx_switch {

/// The switch's core and SIP side with a fake media server, between two phones on loopback: "2000" reaches bob. When a
/// test ends, no leg may be left and the media server must have seen nothing improper.
class SipCall : public testing::Test {
 protected:
  void SetUp() override;
  void TearDown() override;

  /// Reads the configuration and listens. Called by SetUp; again after StopSipSide with what Profile and Dialplan say.
  void StartSipSide();
  void StopSipSide();

  /// Lines of the profile's settings and of the context "default", for the next start.
  void Profile(const std::string& params) { profile_ = params; }
  void Dialplan(const std::string& extensions) { dialplan_ = extensions; }

  /// Alice calls bob with `sdp`; bob's INVITE.
  SipMessage CallBob(const std::string& sdp = SipPeer::Sdp());
  /// The same, answered by bob with `answer` and acknowledged by alice; her 200.
  SipMessage ConnectToBob(const std::string& sdp = SipPeer::Sdp(), const std::string& answer = SipPeer::Sdp("0"));
  /// Alice hangs up the call; both legs are gone after it.
  void EndCall();
  /// Alice's INVITE and the final response to it, acknowledged.
  SipMessage CallAndBeRefused(const std::string& number, const std::string& sdp, const std::string& more_headers = "");

  bool NoLegsLeft();
  /// A line of that level whose text contains `part` was logged.
  testing::AssertionResult Logged(switch_log_level_t level, const std::string& part) const;
  std::string LegUuid(switch_call_direction_t direction);
  /// "unset" when the leg has no such variable, "no leg" when there is no such leg.
  std::string VariableOfLeg(switch_call_direction_t direction, const char* name);

  TemporaryDirectory directory_;
  std::string profile_;
  std::string dialplan_;
  std::unique_ptr<test_support::LogCapture> log_;
  std::unique_ptr<FakeMediaServer> media_;
  SipPeer alice_;
  SipPeer bob_;
  SipMessage bobs_invite_;
};

}  // namespace kvx_switch
