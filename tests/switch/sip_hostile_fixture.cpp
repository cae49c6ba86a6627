#include "sip_hostile_fixture.h"

#include <strings.h>
#include <switch.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>

#include "core/session.h"

namespace kvx_switch {

namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr std::chrono::seconds kLimit{10};

std::string Crlf(const std::string& text) {
  std::string result;
  for (size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '\n' && (i == 0 || text[i - 1] != '\r')) result += '\r';
    result += text[i];
  }
  return result;
}

std::string TagOf(const std::string& value) {
  const size_t start = value.find(";tag=");
  return start == std::string::npos ? "" : value.substr(start + 5, value.find(';', start + 5) - start - 5);
}

}  // namespace

size_t OpenSockets() {
  size_t count = 0;
  for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
    std::error_code gone;
    const std::string target = std::filesystem::read_symlink(entry.path(), gone).string();
    if (!gone && target.compare(0, 7, "socket:") == 0) ++count;
  }
  return count;
}

void HostileSip::SetUp() {
  // Names that appear in the messages are not to be asked for anywhere.
  setenv("SRESOLV_CONF", directory_.Write("resolv.conf", "nameserver 127.0.0.1\nport 1\n").c_str(), 1);
  SipCall::SetUp();
  hostile_ = SipPeerSocket::Open({});
  called_ = SipPeerSocket::Open({});
  observer_ = SipPeerSocket::Open({});
  Listen("udp");
}

void HostileSip::TearDown() {
  SipCall::TearDown();
  unsetenv("SRESOLV_CONF");
}

void HostileSip::Listen(const std::string& transports) {
  Profile("<param name=\"bind-params\" value=\"transport=" + transports +
          "\"/><param name=\"tcp-idle-sec\" value=\"1\"/><param name=\"timer-T1\" value=\"50\"/><param "
          "name=\"timer-T1X64\" value=\"500\"/>"
          "<param name=\"timer-T2\" value=\"200\"/><param name=\"timer-T4\" value=\"200\"/>"
          "<param name=\"leg-timeout\" value=\"2\"/>");
  Dialplan(
      "<extension name=\"called\"><condition field=\"destination_number\" expression=\"^2000$\">"
      "<action application=\"bridge\" data=\"sip:2000@" +
      called_->Address() + "\"/></condition></extension>");
  StopSipSide();
  StartSipSide();
  int32_t most = 100000;
  switch_core_session_ctl(SCSC_MAX_SESSIONS, &most);
  ASSERT_TRUE(AnswersOptions());
  sockets_before_ = OpenSockets();
}

std::string HostileSip::HeaderOf(const std::string& message, const std::string& name) {
  for (size_t line = message.find("\r\n"); line != std::string::npos; line = message.find("\r\n", line + 2)) {
    if (strncasecmp(message.c_str() + line + 2, (name + ":").c_str(), name.size() + 1) != 0) continue;
    const size_t start = std::min(message.find_first_not_of(' ', line + 3 + name.size()), message.size());
    return message.substr(start, message.find("\r\n", start) - start);
  }
  return "";
}

std::string HostileSip::ResponseTo(const std::string& request, int status, const std::string& sdp,
                                   const std::string& tag) const {
  const std::string to = HeaderOf(request, "To");
  const std::string body = Crlf(sdp);
  return "SIP/2.0 " + std::to_string(status) + " Whatever\r\nVia: " + HeaderOf(request, "Via") +
         "\r\nFrom: " + HeaderOf(request, "From") + "\r\nTo: " + to + (TagOf(to).empty() ? ";tag=" + tag : "") +
         "\r\nCall-ID: " + HeaderOf(request, "Call-ID") + "\r\nCSeq: " + HeaderOf(request, "CSeq") +
         "\r\nContact: <sip:bob@" + called_->Address() + ">\r\n" +
         (body.empty() ? "" : "Content-Type: application/sdp\r\n") + "Content-Length: " + std::to_string(body.size()) +
         "\r\n\r\n" + body;
}

std::string HostileSip::Message(const std::string& start, const std::string& method, int sequence,
                                const std::string& id, const std::string& to_tag, const std::string& sdp) const {
  const std::string body = Crlf(sdp);
  return Crlf(method + " " + start + " SIP/2.0\nVia: SIP/2.0/UDP " + hostile_->Address() + ";branch=z9hG4bK-" + id +
              "-" + std::to_string(sequence) + ";rport\nMax-Forwards: 70\nFrom: \"Caller\" <sip:caller@" +
              hostile_->Address() + ">;tag=" + id + "\nTo: <sip:2000@" + SipAddress() + ">" +
              (to_tag.empty() ? "" : ";tag=" + to_tag) + "\nCall-ID: " + id + "\nCSeq: " + std::to_string(sequence) +
              " " + method + "\nContact: <sip:caller@" + hostile_->Address() +
              ">\nAllow: INVITE, ACK, BYE, CANCEL, OPTIONS\nSupported: timer, replaces\nUser-Agent: phone/1.0\n" +
              (body.empty() ? "" : "Content-Type: application/sdp\n") +
              "Content-Length: " + std::to_string(body.size()) + "\n\n") +
         body;
}

std::vector<std::string> HostileSip::ValidRequests(int number) const {
  const std::string id = "valid" + std::to_string(number);
  const std::string uri = "sip:2000@" + SipAddress();
  const std::string sdp = SipPeer::Sdp("0 8 101",
                                       "a=rtpmap:101 telephone-event/8000\na=fmtp:101 0-16\na=ptime:20\n"
                                       "a=rtcp:40001\na=sendrecv\n");
  return {Message(uri, "INVITE", 1, id, "", sdp),
          Message("sip:7777@" + SipAddress(), "INVITE", 1, id + "-other", "", sdp),
          Message(uri, "CANCEL", 1, id, "", ""),
          Message(uri, "ACK", 1, id, "none", ""),
          Message(uri, "BYE", 2, id, "none", ""),
          Message(uri, "OPTIONS", 1, id + "-options", "", ""),
          Message(uri, "REGISTER", 1, id + "-register", "", ""),
          ResponseTo(Message(uri, "INVITE", 1, id, "", sdp), 200, sdp, "stray")};
}

void HostileSip::LetBobRefuse() {
  while (std::optional<std::string> request = called_->Receive(steady_clock::now())) {
    if (request->compare(0, 8, "SIP/2.0 ") == 0 || request->compare(0, 4, "ACK ") == 0) continue;
    called_->Send(SipAddress(), ResponseTo(*request, request->compare(0, 7, "INVITE ") == 0 ? 486 : 200, "", "bob"));
  }
}

/// So that the switch does not repeat its refusals: of interest is what it makes of the message.
void HostileSip::Acknowledge(const std::string& response) {
  if (response.compare(0, 8, "SIP/2.0 ") != 0 || std::atoi(response.c_str() + 8) < 200) return;
  const std::string sequence = HeaderOf(response, "CSeq");
  if (sequence.find("INVITE") == std::string::npos) return;
  std::string ack = "ACK sip:2000@" + SipAddress() + " SIP/2.0\r\n";
  for (const char* name : {"Via", "From", "To", "Call-ID"}) ack += name + (": " + HeaderOf(response, name)) + "\r\n";
  Send(ack + "CSeq: " + std::to_string(std::atoi(sequence.c_str())) + " ACK\r\nContent-Length: 0\r\n\r\n");
}

testing::AssertionResult HostileSip::AnswersOptions() {
  const std::string id = "options" + std::to_string(++asked_);
  const std::string text = "OPTIONS sip:" + SipAddress() + " SIP/2.0\r\nVia: SIP/2.0/UDP " + observer_->Address() +
                           ";branch=z9hG4bK-" + id + "\r\nMax-Forwards: 70\r\nFrom: <sip:o@b>;tag=1\r\nTo: <sip:b@b>" +
                           "\r\nCall-ID: " + id + "\r\nCSeq: 1 OPTIONS\r\nContent-Length: 0\r\n\r\n";
  observer_->Send(SipAddress(), text);
  heard_.clear();
  for (const auto deadline = steady_clock::now() + kLimit; steady_clock::now() < deadline;) {
    std::optional<std::string> answer = observer_->Receive(steady_clock::now() + milliseconds(5));
    while (std::optional<std::string> heard = hostile_->Receive(steady_clock::now())) {
      Acknowledge(*heard);
      heard_.push_back(std::move(*heard));
    }
    LetBobRefuse();
    if (!answer || answer->find("Call-ID: " + id + "\r\n") == std::string::npos) continue;
    if (answer->compare(0, 12, "SIP/2.0 200 ") == 0) return testing::AssertionSuccess();
    return testing::AssertionFailure() << *answer;
  }
  return testing::AssertionFailure() << "no answer to OPTIONS";
}

void HostileSip::ExpectNothingLeft() {
  switch_core_session_hupall(SWITCH_CAUSE_NORMAL_CLEARING);
  const size_t most = sockets_before_ + 1;  // the stack keeps one for asking for names, from the first name on
  for (const auto deadline = steady_clock::now() + kLimit;
       (switch_core_session_count() != 0 || OpenSockets() > most) && steady_clock::now() < deadline;) {
    EXPECT_TRUE(AnswersOptions());
  }
  EXPECT_EQ(switch_core_session_count(), 0u);
  EXPECT_EQ(media_->Count("A destroy"), media_->Count("A create"));
  EXPECT_EQ(media_->Count("B destroy"), media_->Count("B create"));
  EXPECT_LE(OpenSockets(), most);
  EXPECT_EQ(media_->Offence(), "");
}

}  // namespace kvx_switch
