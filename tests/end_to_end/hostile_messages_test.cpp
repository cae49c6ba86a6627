// INVITEs that no phone sends, to a switch whose legs have real media: it goes on, and keeps nothing of them.

#include <gtest/gtest.h>

#include "support/sip_mutation.h"
#include "switch_call_fixture.h"

namespace end_to_end {
namespace {

using std::chrono::seconds;
using test_support::UdpSocket;

constexpr int kInvites = 500;

class HostileMessages : public SwitchCall {
 protected:
  void Send(const std::string& text) { caller_.SendTo(switch_->Sip(), {text.begin(), text.end()}); }

  std::string Headers(const std::string& method, const std::string& id) const {
    const std::string own = "127.0.0.1:" + std::to_string(caller_.Port());
    return " SIP/2.0\r\nVia: SIP/2.0/UDP " + own + ";branch=z9hG4bK-" + id + "\r\nMax-Forwards: 70\r\nFrom: <sip:a@" +
           own + ">;tag=" + id + "\r\nTo: <sip:2000@127.0.0.1>\r\nCall-ID: " + id + "\r\nCSeq: 1 " + method +
           "\r\nContact: <sip:a@" + own + ">\r\n";
  }

  bool AnswersOptions(int number) {
    const std::string id = "options" + std::to_string(number);
    Send("OPTIONS sip:" + switch_->Sip().ToString() + Headers("OPTIONS", id) + "Content-Length: 0\r\n\r\n");
    return test_support::wait_until(seconds(10), [this, &id] {
      while (auto datagram = caller_.Receive()) {
        const std::string text(datagram->data.begin(), datagram->data.end());
        if (text.rfind("SIP/2.0 200 ", 0) == 0 && text.find(id + "\r\n") != std::string::npos) return true;
      }
      return false;
    });
  }

  UdpSocket caller_;
  UdpSocket callee_;  // hears and says nothing
};

TEST_F(HostileMessages, MutatedInvitesLeaveNoLegNoPortAndNoThread) {
  test_support::ConfigurationCopy conf;
  conf.Replace("sip_profiles/internal.xml", "name=\"leg-timeout\" value=\"60\"", "name=\"leg-timeout\" value=\"2\"");
  switch_settings_.conf = conf.Path();
  StartSwitch("127.0.0.1:" + std::to_string(callee_.Port()) + ";transport=udp");
  test_support::SipMutation mutate(4566);
  const std::string sdp =
      "v=0\r\no=- 1 1 IN IP4 127.0.0.1\r\ns=-\r\nc=IN IP4 127.0.0.1\r\nt=0 0\r\n"
      "m=audio 40000 RTP/AVP 0 8 101\r\na=rtpmap:101 telephone-event/8000\r\na=ptime:20\r\na=sendrecv\r\n";
  for (int round = 0; round < kInvites; ++round) {
    const std::string message =
        mutate("INVITE sip:2000@" + switch_->Sip().ToString() + Headers("INVITE", "invite" + std::to_string(round)) +
               "Content-Type: application/sdp\r\nContent-Length: " + std::to_string(sdp.size()) + "\r\n\r\n" + sdp);
    Send(message);
    ASSERT_TRUE(AnswersOptions(round)) << "round " << round << ":\n" << message;
  }
  EXPECT_GT(test_support::ask_counts(*switch_).sessions, 0) << "some of them are calls all the same";
  ExpectAtRest();
  ASSERT_NO_THROW(switch_->Stop(seconds(30)));
}

}  // namespace
}  // namespace end_to_end
