#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "support/udp_socket.h"

namespace test_support {

/// One audio codec of a session description.
struct SdpCodec {
  int payload_type = -1;
  std::string name;  // as written, "PCMU"
  std::uint32_t clock_rate = 0;
};

/// The audio stream of a session description (RFC 8866): where its sender wants RTP, and in which codecs.
struct SdpAudio {
  std::string address;
  std::uint16_t port = 0;
  std::string transport;         // "RTP/AVP"
  std::vector<SdpCodec> codecs;  // in order of preference, telephone-event among them
  std::string crypto;            // the value of its first "a=crypto" (RFC 4568); empty when there is none

  /// Compared without case; null when the description does not have it.
  const SdpCodec* Find(const std::string& codec) const;
  /// The first codec that is not telephone-event; null when there is none.
  const SdpCodec* FirstAudio() const;
};

/// Empty when the text has no audio stream with an address.
std::optional<SdpAudio> parse_sdp_audio(const std::string& sdp);

/// Where the sender of a description wants its fax stream (T.38); empty when it has none.
std::optional<UdpAddress> parse_sdp_image(const std::string& sdp);

/// A SIP message as a phone sent or received it.
struct SipMessage {
  bool sent = false;                // by the phone whose log this is
  std::chrono::microseconds at{0};  // local time of the log's line, from some fixed day; for differences
  std::string start_line;
  std::vector<std::pair<std::string, std::string>> headers;
  std::string body;

  bool IsRequest() const { return Status() == 0; }
  std::string Method() const;                         // of the request; for an answer that of the CSeq
  int Status() const;                                 // 0 for a request
  std::string Header(const std::string& name) const;  // full name, without case; empty when there is none
  std::string CallId() const { return Header("Call-ID"); }
  /// The user part of the From header's address.
  std::string FromUser() const;
  /// "INVITE", "200 OK (INVITE)".
  std::string Title() const;
};

/// The messages of sipp's message log (-trace_msg), in order; one that is still being written is left out.
std::vector<SipMessage> parse_sipp_messages(const std::string& log);

/// What was said within one call, from one phone's side.
class SipDialogue {
 public:
  SipDialogue() = default;
  SipDialogue(std::string call_id, std::vector<SipMessage> messages)
      : call_id_(std::move(call_id)), messages_(std::move(messages)) {}

  const std::string& CallId() const { return call_id_; }
  const std::vector<SipMessage>& Messages() const { return messages_; }

  /// The first request with that method, or answer with that status to that method; null when there is none.
  const SipMessage* Request(const std::string& method, bool sent) const;
  const SipMessage* Answer(int status, const std::string& method, bool sent) const;
  /// The final answer to the INVITE; null while there is none.
  const SipMessage* FinalAnswer() const;
  /// Whether the call is up on this side: 200 to the INVITE and its ACK have both gone by.
  bool Established() const;
  /// The description that this phone gave, and the one that it got.
  std::optional<SdpAudio> OwnAudio() const { return Audio(true); }
  std::optional<SdpAudio> FarAudio() const { return Audio(false); }
  std::string FromUser() const { return messages_.empty() ? "" : messages_.front().FromUser(); }
  /// "INVITE > 100 180 200 < ACK > BYE > 200": one line, > for sent, < for received.
  std::string Flow() const;

 private:
  std::optional<SdpAudio> Audio(bool sent) const;

  std::string call_id_;
  std::vector<SipMessage> messages_;
};

/// By Call-ID, in order of appearance.
std::vector<SipDialogue> group_dialogues(const std::vector<SipMessage>& messages);

}  // namespace test_support
