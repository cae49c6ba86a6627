#include "sip_call_fixture.h"

#include <switch.h>

#include <chrono>
#include <cstring>
#include <future>

#include "core/session.h"
#include "sip/sip_front.h"

namespace kvx_switch {

void SipCall::SetUp() {
  directory_.Write("vars.xml", "<include/>");
  directory_.Write("autoload_configs/switch.conf.xml",
                   "<configuration name=\"switch.conf\"><settings/></configuration>");
  directory_.Write("autoload_configs/modules.conf.xml",
                   "<configuration name=\"modules.conf\"><modules/></configuration>");
  SWITCH_GLOBAL_dirs.conf_dir = strdup(directory_.Path().c_str());
  switch_core_set_globals();
  const char* reason = "";
  ASSERT_EQ(switch_core_init_and_modload(0, SWITCH_FALSE, &reason), SWITCH_STATUS_SUCCESS) << reason;
  log_ = std::make_unique<test_support::LogCapture>();
  media_ = std::make_unique<FakeMediaServer>();
  dialplan_ =
      "<extension name=\"bob\"><condition field=\"destination_number\" expression=\"^2000$\">"
      "<action application=\"bridge\" data=\"sip:2000@" +
      bob_.Address() + "\"/></condition></extension>";
  StartSipSide();
}

void SipCall::StartSipSide() {
  directory_.Write("dialplan/default.xml", "<context name=\"default\">" + dialplan_ + "</context>");
  directory_.Write("sip_profiles/internal.xml",
                   "<profile name=\"internal\"><settings><param name=\"sip-port\" value=\"0\"/>" + profile_ +
                       "</settings></profile>");
  std::string error;
  ASSERT_TRUE(StartSip(error)) << error;
  alice_.Use(SipAddress());
  bob_.Use(SipAddress());
}

void SipCall::StopSipSide() {
  StopSip();
}

void SipCall::TearDown() {
  switch_core_session_hupall(SWITCH_CAUSE_NORMAL_CLEARING);
  EXPECT_TRUE(NoLegsLeft());
  const auto start = std::chrono::steady_clock::now();
  // The last messages may still be on their way: the stack waits for their answers, and up to three seconds for those
  // that never come.
  std::future<void> stopped = std::async(std::launch::async, StopSip);
  do {
    alice_.AnswerWhatIsLeft();
    bob_.AnswerWhatIsLeft();
  } while (stopped.wait_for(std::chrono::seconds(0)) != std::future_status::ready);
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(2900))
      << "a dialog was left at the stack";
  EXPECT_EQ(media_ ? media_->Offence() : "", "");
  media_.reset();
  log_.reset();
  switch_core_destroy();
}

SipMessage SipCall::CallBob(const std::string& sdp) {
  alice_.SendInvite("2000", sdp);
  std::optional<SipMessage> invite = bob_.AwaitRequest("INVITE");
  EXPECT_TRUE(invite) << "no INVITE reached bob";
  bobs_invite_ = invite.value_or(SipMessage{});
  return bobs_invite_;
}

SipMessage SipCall::ConnectToBob(const std::string& sdp, const std::string& answer) {
  const size_t bridges = media_->Count("A bridge");
  bob_.Reply(CallBob(sdp), 200, "", answer);
  std::optional<SipMessage> response = alice_.AwaitResponse();
  EXPECT_TRUE(response && response->Status() == 200) << (response ? response->start_line : "no response");
  EXPECT_TRUE(bob_.AwaitRequest("ACK"));
  if (response) alice_.SendAck(*response);
  EXPECT_TRUE(media_->WaitFor("A bridge", bridges + 1));
  return response.value_or(SipMessage{});
}

void SipCall::EndCall() {
  alice_.SendBye();
  EXPECT_TRUE(alice_.AwaitResponse("BYE"));
  std::optional<SipMessage> bye = bob_.AwaitRequest("BYE");
  EXPECT_TRUE(bye);
  if (bye) bob_.Reply(*bye, 200);
  EXPECT_TRUE(NoLegsLeft());
}

SipMessage SipCall::CallAndBeRefused(const std::string& number, const std::string& sdp,
                                     const std::string& more_headers) {
  alice_.SendInvite(number, sdp, more_headers);
  std::optional<SipMessage> response = alice_.AwaitResponse();
  EXPECT_TRUE(response) << "no response";
  if (!response) return {};
  alice_.SendAck(*response);
  return *response;
}

bool SipCall::NoLegsLeft() {
  return WaitForNoSessions(std::chrono::seconds(10));
}

testing::AssertionResult SipCall::Logged(switch_log_level_t level, const std::string& part) const {
  std::string all;
  for (const test_support::LogLine& line : log_->Lines()) {
    if (line.level == level && line.text.find(part) != std::string::npos) return testing::AssertionSuccess();
    all += line.text;
  }
  return testing::AssertionFailure() << "\"" << part << "\" is not in the log:\n" << all;
}

std::string SipCall::LegUuid(switch_call_direction_t direction) {
  for (const SessionInfo& info : ListSessions()) {
    if (info.direction == (direction == SWITCH_CALL_DIRECTION_INBOUND ? "inbound" : "outbound")) return info.uuid;
  }
  return "";
}

std::string SipCall::VariableOfLeg(switch_call_direction_t direction, const char* name) {
  switch_core_session_t* session = switch_core_session_locate(LegUuid(direction).c_str());
  if (!session) return "no leg";
  const char* value = switch_channel_get_variable(switch_core_session_get_channel(session), name);
  const std::string text = value ? value : "unset";
  switch_core_session_rwunlock(session);
  return text;
}

}  // namespace kvx_switch
