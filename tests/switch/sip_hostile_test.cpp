// Messages that no phone sends: whatever comes, the switch answers the next one, and keeps nothing of it.
#include <switch.h>

#include <chrono>

#include "sip/sip_front.h"
#include "sip_hostile_fixture.h"
#include "sip_torture_messages.h"

namespace kvx_switch {
namespace {

using test_support::SipMutation;

// Sanitizers make every round several times as long; the seed is the same, so they run the first of the same messages.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr int kShare = 10;
#else
constexpr int kShare = 1;
#endif
constexpr int kRequests = 6000 / kShare;
constexpr int kInCall = 2000 / kShare;
constexpr int kResponses = 2000 / kShare;
constexpr int kOverTcp = 300 / kShare;

class SipTorture : public HostileSip {
 protected:
  static std::string Fill(std::string text, const std::string& name, const std::string& value) {
    for (size_t at; (at = text.find(name)) != std::string::npos;) text.replace(at, name.size(), value);
    return text;
  }

  static std::string Crlf(const std::string& text) {
    std::string result;
    for (size_t i = 0; i < text.size(); ++i) {
      if (text[i] == '\n' && (i == 0 || text[i - 1] != '\r')) result += '\r';
      result += text[i];
    }
    return result;
  }

  /// The last final response to the message whose Call-ID starts with `id`, 0 when there is none.
  int FinalStatus(const std::string& id) const {
    int status = 0;
    for (const std::string& message : heard_) {
      const std::string call_id = HeaderOf(message, "Call-ID");
      if (!call_id.empty() && call_id.compare(0, id.size(), id) != 0) continue;
      if (message.compare(0, 8, "SIP/2.0 ") == 0 && std::atoi(message.c_str() + 8) >= 200) {
        status = std::atoi(message.c_str() + 8);
      }
    }
    return status;
  }

  void ExpectAll(const std::vector<TortureMessage>& messages) {
    for (const TortureMessage& message : messages) {
      SCOPED_TRACE(message.name);
      Send(Crlf(Fill(Fill(message.text, "{me}", hostile_->Address()), "{switch}", SipAddress())));
      ASSERT_TRUE(AnswersOptions());
      int status = FinalStatus(message.name);
      // A leg's refusal takes its thread's time.
      const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
      while (status == 0 && message.statuses.front() != 0 && std::chrono::steady_clock::now() < deadline) {
        ASSERT_TRUE(AnswersOptions());
        status = FinalStatus(message.name);
      }
      EXPECT_THAT(message.statuses, testing::Contains(status));
    }
    ExpectNothingLeft();
  }
};

TEST_F(SipTorture, UnusualMessagesAreTakenForWhatTheyAre) {
  ExpectAll(UnusualMessages());
}

TEST_F(SipTorture, InvalidMessagesAreRefusedOrPassedOver) {
  ExpectAll(InvalidMessages());
}

TEST_F(SipTorture, TroublesomeMessagesAreAnsweredAsTheyDeserve) {
  ExpectAll(TroublesomeMessages());
}

using SipMutated = HostileSip;

TEST_F(SipMutated, RequestsLeaveTheSwitchAnswering) {
  SipMutation mutate(4475);
  for (int round = 0; round < kRequests; ++round) {
    const std::vector<std::string> valid = ValidRequests(round);
    const std::string message = mutate(valid[mutate.Below(valid.size())]);
    Send(message);
    ASSERT_TRUE(AnswersOptions()) << "round " << round << ":\n" << message;
  }
  ExpectNothingLeft();
}

class SipMutatedInCall : public HostileSip {
 protected:
  /// A call that is up between the hostile phone and bob; both tags are kept.
  bool SetUpCall(int number) {
    // Twice, so that no change in one place makes it that of another call.
    id_ = "call" + std::to_string(number) + "-" + std::to_string(number);
    uri_ = "sip:2000@" + SipAddress();
    Send(Message(uri_, "INVITE", 1, id_, "", SipPeer::Sdp("0")));
    std::optional<std::string> invite = Await(*called_, "INVITE ");
    // One with a tag belongs to a call before.
    while (invite && HeaderOf(*invite, "To").find(";tag=") != std::string::npos) invite = Await(*called_, "INVITE ");
    if (!invite) return false;
    invite_ = *invite;
    called_->Send(SipAddress(), ResponseTo(invite_, 200, SipPeer::Sdp("0"), "bob"));
    std::optional<std::string> answer = Await(*hostile_, "SIP/2.0 200 ", id_);
    if (!answer) return false;
    const std::string to = HeaderOf(*answer, "To");
    tag_ = to.substr(to.find(";tag=") + 5);
    Send(Message(uri_, "ACK", 1, id_, tag_, ""));
    return Await(*called_, "ACK ").has_value();
  }

  static std::optional<std::string> Await(SipPeerSocket& socket, const std::string& start, const std::string& id = "") {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(5);
    while (std::optional<std::string> message = socket.Receive(deadline)) {
      if (message->compare(0, start.size(), start) == 0 && message->find(id) != std::string::npos) return message;
    }
    return std::nullopt;
  }

  std::string id_;
  std::string uri_;
  std::string tag_;
  std::string invite_;
};

TEST_F(SipMutatedInCall, RequestsOfACallLeaveTheSwitchAnswering) {
  SipMutation mutate(3261);
  int calls = 0;
  for (int round = 0; round < kInCall; ++round) {
    if (round % 20 == 0 || switch_core_session_count() < 2) {
      switch_core_session_hupall(SWITCH_CAUSE_NORMAL_CLEARING);
      for (int wait = 0; wait < 1000 && switch_core_session_count() != 0; ++wait) ASSERT_TRUE(AnswersOptions());
      ASSERT_TRUE(SetUpCall(++calls)) << "round " << round;
    }
    const int sequence = 2 + round % 20;
    const std::string valid[] = {
        Message(uri_, "INVITE", sequence, id_, tag_, SipPeer::Sdp("0", "a=sendonly\n")),
        Message(uri_, "INVITE", sequence, id_, tag_, SipPeer::FaxSdp()),
        Message(uri_, "BYE", sequence, id_, tag_, ""),
        Message(uri_, "ACK", sequence - 1, id_, tag_, ""),
        Message(uri_, "CANCEL", sequence, id_, tag_, ""),
        Message(uri_, "INFO", sequence, id_, tag_, ""),
        Message(uri_, "UPDATE", sequence, id_, tag_, SipPeer::Sdp("0")),
    };
    const std::string message = mutate(valid[mutate.Below(std::size(valid))]);
    Send(message);
    ASSERT_TRUE(AnswersOptions()) << "round " << round << ":\n" << message;
  }
  EXPECT_GE(calls, kInCall / 20);
  ExpectNothingLeft();
}

TEST_F(SipMutatedInCall, ResponsesLeaveTheSwitchAnswering) {
  int32_t per_second = 100000;  // a machine at leisure makes more calls than the usual limit lets in
  switch_core_session_ctl(SCSC_SPS, &per_second);
  SipMutation mutate(3264);
  const std::string sdp = SipPeer::Sdp("0", "a=ptime:20\na=rtcp:40001\na=sendrecv\n");
  for (int round = 0; round < kResponses; ++round) {
    const std::string id = "response" + std::to_string(round);
    Send(Message("sip:2000@" + SipAddress(), "INVITE", 1, id, "", SipPeer::Sdp("0")));
    std::optional<std::string> invite = Await(*called_, "INVITE ");
    ASSERT_TRUE(invite) << "round " << round;
    constexpr int kStatuses[] = {100, 180, 183, 200, 200, 302, 401, 486, 491, 503};
    const int status = kStatuses[mutate.Below(std::size(kStatuses))];
    const std::string message = mutate(ResponseTo(*invite, status, status == 183 || status == 200 ? sdp : "", "bob"));
    called_->Send(SipAddress(), message);
    ASSERT_TRUE(AnswersOptions()) << "round " << round << ":\n" << message;
    // Whatever that was, this is the end of it.
    called_->Send(SipAddress(), ResponseTo(*invite, 486, "", "bob"));
    if (switch_core_session_count() > 20) switch_core_session_hupall(SWITCH_CAUSE_NORMAL_CLEARING);
  }
  ExpectNothingLeft();
}

TEST_F(SipMutated, RequestsOverTcpLeaveTheSwitchAnswering) {
  Listen("udp,tcp");
  SipMutation mutate(793);
  for (int round = 0; round < kOverTcp; ++round) {
    std::vector<std::string> valid = ValidRequests(round);
    const std::string message = mutate(valid[mutate.Below(valid.size())]);
    const std::unique_ptr<SipPeerSocket> connection = SipPeerSocket::Open({true, false});
    connection->Send(SipAddress(), message);
    ASSERT_TRUE(AnswersOptions()) << "round " << round << ":\n" << message;
  }
  ExpectNothingLeft();
}

}  // namespace
}  // namespace kvx_switch
