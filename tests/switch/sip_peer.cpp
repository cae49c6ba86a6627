#include "sip_peer.h"

#include <strings.h>

#include <algorithm>
#include <cstdlib>

namespace kvx_switch {

namespace {

constexpr std::chrono::seconds kLimit{10};

std::string WithCrlf(const std::string& text) {
  std::string result;
  for (size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '\n' && (i == 0 || text[i - 1] != '\r')) result += '\r';
    result += text[i];
  }
  return result;
}

SipMessage Parse(const std::string& text) {
  SipMessage message;
  size_t position = text.find("\r\n");
  message.start_line = text.substr(0, position);
  while (position != std::string::npos) {
    position += 2;
    size_t end = text.find("\r\n", position);
    if (end == std::string::npos || end == position) break;
    std::string line = text.substr(position, end - position);
    size_t colon = line.find(':');
    if (colon != std::string::npos) {
      size_t value = std::min(line.find_first_not_of(" ", colon + 1), line.size());
      message.headers.emplace_back(line.substr(0, colon), line.substr(value));
    }
    position = end;
  }
  size_t blank = text.find("\r\n\r\n");
  if (blank != std::string::npos) message.body = text.substr(blank + 4);
  return message;
}

std::string Tag(const std::string& value) {
  size_t start = value.find(";tag=");
  if (start == std::string::npos) return "";
  start += 5;
  return value.substr(start, value.find(';', start) - start);
}

std::string BodyHeaders(const std::string& sdp) {
  const std::string body = WithCrlf(sdp);
  return (body.empty() ? "" : "Content-Type: application/sdp\n") + ("Content-Length: " + std::to_string(body.size())) +
         "\n\n" + body;
}

}  // namespace

int SipMessage::Status() const {
  return start_line.compare(0, 8, "SIP/2.0 ") == 0 ? std::atoi(start_line.c_str() + 8) : 0;
}

std::string SipMessage::Method() const {
  return Status() ? "" : start_line.substr(0, start_line.find(' '));
}

std::string SipMessage::Header(const std::string& name) const {
  for (const auto& [key, value] : headers) {
    if (strcasecmp(key.c_str(), name.c_str()) == 0) return value;
  }
  return "";
}

std::string SipMessage::CSeqMethod() const {
  std::string sequence = Header("CSeq");
  size_t blank = sequence.find(' ');
  return blank == std::string::npos ? "" : sequence.substr(blank + 1);
}

void SipPeer::Use(const std::string& switch_address) {
  switch_ = switch_address;
}

std::string SipPeer::Sdp(const std::string& formats, const std::string& lines) {
  return "v=0\no=- 1 1 IN IP4 127.0.0.1\ns=test call\nc=IN IP4 127.0.0.1\nt=0 0\nm=audio 40000 RTP/AVP " + formats +
         "\n" + lines;
}

std::string SipPeer::Sdp6(const std::string& formats, const std::string& lines) {
  std::string sdp = Sdp(formats, lines);
  for (const std::string ipv4 = "IP4 127.0.0.1"; sdp.find(ipv4) != std::string::npos;) {
    sdp.replace(sdp.find(ipv4), ipv4.size(), "IP6 ::1");
  }
  return sdp;
}

std::string SipPeer::FaxSdp(int port) {
  return "v=0\no=- 1 2 IN IP4 127.0.0.1\ns=test call\nc=IN IP4 127.0.0.1\nt=0 0\nm=image " + std::to_string(port) +
         " udptl t38\na=T38FaxVersion:0\na=T38FaxUdpEC:t38UDPRedundancy\n";
}

void SipPeer::SendRaw(const std::string& text) {
  socket_->Send(switch_, WithCrlf(text));
}

std::string SipPeer::Request(const std::string& method, int sequence, const std::string& branch,
                             const std::string& to_tag, const std::string& more_headers, const std::string& sdp) const {
  return method + " sip:" + number_ + "@" + switch_ + " SIP/2.0\nVia: SIP/2.0/" + (transport_.tcp ? "TCP " : "UDP ") +
         Address() + ";branch=" + branch + ";rport\nMax-Forwards: 70\nFrom: \"Al \\\"Ice\\\"\" <sip:alice@" +
         Address() + ">;tag=alice" + std::to_string(calls_) + "\nTo: <sip:" + number_ + "@" + switch_ + ">" +
         (to_tag.empty() ? "" : ";tag=" + to_tag) + "\nCall-ID: " + call_id_ + "\nCSeq: " + std::to_string(sequence) +
         " " + method + "\nContact: <sip:alice@" + UriAddress() + ">\n" + more_headers + BodyHeaders(sdp);
}

void SipPeer::SendInvite(const std::string& number, const std::string& sdp, const std::string& more_headers) {
  ++calls_;
  number_ = number;
  call_id_ = "call-" + std::to_string(calls_) + "-" + address_.substr(address_.rfind(':') + 1);
  branch_ = "z9hG4bK-" + call_id_;
  remote_tag_.clear();
  seen_.clear();
  SendRaw(Request("INVITE", 1, branch_, "", more_headers, sdp));
}

void SipPeer::SendAck(const SipMessage& response, const std::string& sdp) {
  remote_tag_ = Tag(response.Header("To"));
  bool answered = response.Status() < 300;
  SendRaw(Request("ACK", 1, answered ? branch_ + "-ack" : branch_, remote_tag_, "", sdp));
}

void SipPeer::JoinDialog(const SipMessage& response) {
  remote_tag_ = Tag(response.Header("To"));
}

void SipPeer::SendCancel(const std::string& more_headers) {
  SendRaw(Request("CANCEL", 1, branch_, "", more_headers, ""));
}

void SipPeer::SendBye(const std::string& more_headers) {
  SendRaw(Request("BYE", 1000, branch_ + "-bye", remote_tag_, more_headers, ""));
}

void SipPeer::Reply(const SipMessage& request, int status, const std::string& more_headers, const std::string& sdp) {
  if (status >= 200) {
    auto same = [&request](const SipMessage& open) {
      return open.Header("Via") == request.Header("Via") && open.Header("CSeq") == request.Header("CSeq");
    };
    open_.erase(std::remove_if(open_.begin(), open_.end(), same), open_.end());
  }
  std::string text = "SIP/2.0 " + std::to_string(status) + " Whatever\n";
  for (const auto& [name, value] : request.headers) {
    bool copied = strcasecmp(name.c_str(), "Via") == 0 || strcasecmp(name.c_str(), "From") == 0 ||
                  strcasecmp(name.c_str(), "Call-ID") == 0 || strcasecmp(name.c_str(), "CSeq") == 0;
    if (copied) text += name + ": " + value + "\n";
    if (strcasecmp(name.c_str(), "To") == 0) {
      text += name + ": " + value + (Tag(value).empty() && status > 100 ? ";tag=" + tag_ : "") + "\n";
    }
  }
  SendRaw(text + "Contact: <sip:bob@" + UriAddress() + ">\n" + more_headers + BodyHeaders(sdp));
}

std::string SipPeer::RequestAsCalled(const SipMessage& invite, const std::string& method, int sequence,
                                     const std::string& branch, const std::string& more_headers,
                                     const std::string& sdp) const {
  std::string contact = invite.Header("Contact");
  size_t start = contact.find('<') + 1;
  return method + " " + contact.substr(start, contact.find('>') - start) + " SIP/2.0\nVia: SIP/2.0/" +
         (transport_.tcp ? "TCP " : "UDP ") + Address() + ";branch=" + branch +
         ";rport\nMax-Forwards: 70\nFrom: " + invite.Header("To") + ";tag=" + tag_ + "\nTo: " + invite.Header("From") +
         "\nCall-ID: " + invite.Header("Call-ID") + "\nCSeq: " + std::to_string(sequence) + " " + method +
         "\nContact: <sip:bob@" + UriAddress() + ">\n" + more_headers + BodyHeaders(sdp);
}

void SipPeer::SendByeAsCalled(const SipMessage& invite, const std::string& more_headers) {
  SendRaw(RequestAsCalled(invite, "BYE", 1000, "z9hG4bK-bob-bye", more_headers, ""));
}

void SipPeer::SendInCall(const std::string& method, const std::string& more_headers, const std::string& sdp) {
  const int sequence = 10 + ++reinvites_;
  const std::string branch = branch_ + "-" + method + std::to_string(sequence);
  SendRaw(Request(method, sequence, branch, remote_tag_, more_headers, sdp));
}

void SipPeer::SendInCallAsCalled(const SipMessage& invite, const std::string& method, const std::string& more_headers,
                                 const std::string& sdp) {
  const int sequence = 10 + ++reinvites_;
  const std::string branch = "z9hG4bK-bob-" + method + std::to_string(sequence);
  SendRaw(RequestAsCalled(invite, method, sequence, branch, more_headers, sdp));
}

std::string SipPeer::Replaces() const {
  return call_id_ + ";to-tag=" + remote_tag_ + ";from-tag=alice" + std::to_string(calls_);
}

std::string SipPeer::ReplacesAsCalled(const SipMessage& invite) {
  return invite.Header("Call-ID") + ";to-tag=" + Tag(invite.Header("From")) + ";from-tag=bob";
}

void SipPeer::SendReinvite(const std::string& sdp, const std::string& more_headers) {
  const int sequence = 10 + ++reinvites_;
  SendRaw(Request("INVITE", sequence, branch_ + "-re" + std::to_string(sequence), remote_tag_, more_headers, sdp));
}

void SipPeer::AckReinvite(const SipMessage& response, const std::string& sdp) {
  const int sequence = std::atoi(response.Header("CSeq").c_str());
  const std::string branch = branch_ + "-re" + std::to_string(sequence);
  SendRaw(Request("ACK", sequence, response.Status() < 300 ? branch + "-ack" : branch, remote_tag_, "", sdp));
}

void SipPeer::SendReinviteAsCalled(const SipMessage& invite, const std::string& sdp) {
  const int sequence = 10 + ++reinvites_;
  SendRaw(RequestAsCalled(invite, "INVITE", sequence, "z9hG4bK-bob-re" + std::to_string(sequence), "", sdp));
}

void SipPeer::AckReinviteAsCalled(const SipMessage& invite, const SipMessage& response) {
  const int sequence = std::atoi(response.Header("CSeq").c_str());
  const std::string branch = "z9hG4bK-bob-re" + std::to_string(sequence);
  SendRaw(RequestAsCalled(invite, "ACK", sequence, response.Status() < 300 ? branch + "-ack" : branch, "", ""));
}

std::optional<SipMessage> SipPeer::Receive(std::chrono::steady_clock::time_point deadline) {
  while (std::optional<std::string> text = socket_->Receive(deadline)) {
    if (std::find(seen_.begin(), seen_.end(), *text) != seen_.end()) continue;
    seen_.push_back(*text);
    SipMessage message = Parse(*text);
    if (message.Status() == 0 && message.Method() != "ACK") open_.push_back(message);
    return message;
  }
  return std::nullopt;
}

std::optional<SipMessage> SipPeer::AwaitResponse(const std::string& method) {
  const auto deadline = std::chrono::steady_clock::now() + kLimit;
  while (std::optional<SipMessage> message = Receive(deadline)) {
    if (message->Status() > 100 && message->CSeqMethod() == method) return message;
    if (message->Method() == "BYE") Reply(*message, 200);
  }
  return std::nullopt;
}

std::optional<SipMessage> SipPeer::AwaitRequest(const std::string& method) {
  const auto deadline = std::chrono::steady_clock::now() + kLimit;
  if (method == "BYE" && !byes_.empty()) {
    SipMessage bye = byes_.front();
    byes_.erase(byes_.begin());
    return bye;
  }
  while (std::optional<SipMessage> message = Receive(deadline)) {
    if (message->Method() == method) return message;
    if (message->Method() != "BYE") continue;
    if (method == "NOTIFY") {
      byes_.push_back(*message);
    } else {
      Reply(*message, 200);
    }
  }
  return std::nullopt;
}

void SipPeer::AnswerWhatIsLeft() {
  do {
    for (const SipMessage& request : std::vector<SipMessage>(open_)) {
      Reply(request, request.Method() == "INVITE" ? 487 : 200);
    }
  } while (Receive(std::chrono::steady_clock::now() + std::chrono::milliseconds(50)));
}

bool SipPeer::StaysSilent(const std::string& method, std::chrono::milliseconds limit) {
  const auto deadline = std::chrono::steady_clock::now() + limit;
  while (std::optional<SipMessage> message = Receive(deadline)) {
    if (message->Method() == method || (message->Status() && message->CSeqMethod() == method)) return false;
  }
  return true;
}

}  // namespace kvx_switch
