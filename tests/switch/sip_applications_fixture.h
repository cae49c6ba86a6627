#pragma once

#include <string>

#include "sip_call_fixture.h"

namespace kvx_switch {

/// A dialplan of the test's own: alice calls "1", which runs what the test says; "2000" is bob and "3000" carol.
class SipApplications : public SipCall {
 protected:
  void TearDown() override {
    switch_core_session_hupall(SWITCH_CAUSE_NORMAL_CLEARING);
    EXPECT_TRUE(NoLegsLeft());
    carol_.AnswerWhatIsLeft();
    SipCall::TearDown();
  }

  static std::string Action(const std::string& application, const std::string& data = "") {
    return "<action application=\"" + application + "\" data=\"" + data + "\"/>";
  }
  static std::string Extension(const std::string& number, const std::string& actions) {
    return "<extension name=\"" + number + "\"><condition field=\"destination_number\" expression=\"^" + number +
           "$\">" + actions + "</condition></extension>";
  }
  std::string Bob() const { return "sip:2000@" + bob_.Address(); }
  std::string Carol() const { return "sip:3000@" + carol_.Address(); }

  /// Starts anew with those actions for "1".
  void Start(const std::string& actions, const std::string& more_extensions = "") {
    Dialplan(Extension("1", actions) + Extension("2000", Action("bridge", Bob())) +
             Extension("3000", Action("bridge", Carol())) + more_extensions);
    StopSipSide();
    StartSipSide();
    carol_.Use(SipAddressNow());
  }

  static std::string SipAddressNow();

  void Dial(const std::string& sdp = SipPeer::Sdp()) { alice_.SendInvite("1", sdp); }
  /// The phone is called and answers.
  SipMessage Answers(SipPeer& phone, const std::string& sdp = SipPeer::Sdp("0")) {
    std::optional<SipMessage> invite = phone.AwaitRequest("INVITE");
    EXPECT_TRUE(invite) << "not called";
    if (!invite) return {};
    phone.Reply(*invite, 200, "", sdp);
    EXPECT_TRUE(phone.AwaitRequest("ACK"));
    return *invite;
  }
  SipMessage Refuses(SipPeer& phone, int status) {
    std::optional<SipMessage> invite = phone.AwaitRequest("INVITE");
    EXPECT_TRUE(invite) << "not called";
    if (!invite) return {};
    phone.Reply(*invite, status);
    EXPECT_TRUE(phone.AwaitRequest("ACK"));
    return *invite;
  }
  /// Alice's final response, acknowledged; its status.
  int AliceHears() {
    std::optional<SipMessage> response = alice_.AwaitResponse();
    while (response && response->Status() < 200) response = alice_.AwaitResponse();
    if (!response) return 0;
    alice_.SendAck(*response);
    return response->Status();
  }
  /// Alice, bob and the bridge between them: "1" leads to bob.
  void TalkToBob() {
    Dial();
    bobs_invite_ = Answers(bob_);
    EXPECT_EQ(AliceHears(), 200);
    EXPECT_TRUE(media_->WaitFor("A bridge", 1));
  }
  void Confirm(SipPeer& phone, const char* request) {
    std::optional<SipMessage> message = phone.AwaitRequest(request);
    EXPECT_TRUE(message) << request << " did not come";
    if (message) phone.Reply(*message, 200);
  }
  void AliceHangsUp() {
    alice_.SendBye();
    EXPECT_TRUE(alice_.AwaitResponse("BYE"));
  }

  /// The only leg there is comes to that state.
  static bool StateBecomes(const std::string& state);
  bool LogBecomes(switch_log_level_t level, const std::string& part) const;

  SipPeer carol_;
};

}  // namespace kvx_switch
