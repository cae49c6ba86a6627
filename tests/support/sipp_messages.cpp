#include "support/sipp_messages.h"

#include <strings.h>
#include <time.h>

#include <algorithm>
#include <cstdlib>
#include <sstream>

namespace test_support {
namespace {

bool same_name(const std::string& left, const std::string& right) {
  return strcasecmp(left.c_str(), right.c_str()) == 0;
}

bool starts_with(const std::string& text, const std::string& start) {
  return text.rfind(start, 0) == 0;
}

std::vector<std::string> lines_of(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) {
    if (!line.empty() && line.back() == '\r') line.pop_back();
    lines.push_back(line);
  }
  return lines;
}

// The payload types that need no rtpmap line, as far as the scenarios use them (RFC 3551 table 4).
SdpCodec static_codec(int payload_type) {
  switch (payload_type) {
    case 0:
      return {0, "PCMU", 8000};
    case 3:
      return {3, "GSM", 8000};
    case 8:
      return {8, "PCMA", 8000};
    case 9:
      return {9, "G722", 8000};
    case 18:
      return {18, "G729", 8000};
    default:
      return {payload_type, "", 0};
  }
}

void read_rtpmap(const std::string& value, std::vector<SdpCodec>& codecs) {
  std::istringstream in(value);
  int payload_type = -1;
  std::string encoding;
  in >> payload_type >> encoding;
  for (SdpCodec& codec : codecs) {
    if (codec.payload_type != payload_type) continue;
    const std::size_t slash = encoding.find('/');
    codec.name = encoding.substr(0, slash);
    if (slash != std::string::npos) {
      codec.clock_rate = static_cast<std::uint32_t>(std::strtoul(encoding.c_str() + slash + 1, nullptr, 10));
    }
  }
}

void read_media_line(const std::string& value, SdpAudio& audio) {
  std::istringstream in(value);
  in >> audio.port >> audio.transport;
  for (int payload_type = 0; in >> payload_type;) audio.codecs.push_back(static_codec(payload_type));
}

SipMessage parse_message(const std::string& text, bool sent) {
  SipMessage message;
  message.sent = sent;
  const std::size_t head_end = text.find("\r\n\r\n");
  if (head_end != std::string::npos) message.body = text.substr(head_end + 4);
  for (const std::string& line : lines_of(text.substr(0, head_end))) {
    if (message.start_line.empty()) {
      message.start_line = line;
      continue;
    }
    const std::size_t colon = line.find(':');
    if (colon == std::string::npos) continue;
    const std::size_t value = line.find_first_not_of(' ', colon + 1);
    message.headers.emplace_back(line.substr(0, colon), value == std::string::npos ? "" : line.substr(value));
  }
  return message;
}

// The number of bytes in "UDP message sent (506 bytes):" or "UDP message received [305] bytes :".
std::size_t announced_size(const std::string& line) {
  const std::size_t bracket = line.find_first_of("([");
  return bracket == std::string::npos ? 0 : std::strtoul(line.c_str() + bracket + 1, nullptr, 10);
}

// Of "------ 2026-01-31 12:00:00.123456"; zero when it is no such line.
std::chrono::microseconds logged_at(const std::string& line) {
  const std::size_t digits = line.find_first_of("0123456789");
  tm broken{};
  const char* fraction =
      digits == std::string::npos ? nullptr : strptime(line.c_str() + digits, "%Y-%m-%d %H:%M:%S", &broken);
  if (fraction == nullptr || *fraction != '.') return std::chrono::microseconds(0);
  return std::chrono::seconds(timegm(&broken)) + std::chrono::microseconds(std::strtol(fraction + 1, nullptr, 10));
}

}  // namespace

const SdpCodec* SdpAudio::Find(const std::string& codec) const {
  for (const SdpCodec& one : codecs) {
    if (same_name(one.name, codec)) return &one;
  }
  return nullptr;
}

const SdpCodec* SdpAudio::FirstAudio() const {
  for (const SdpCodec& one : codecs) {
    if (!same_name(one.name, "telephone-event")) return &one;
  }
  return nullptr;
}

std::optional<SdpAudio> parse_sdp_audio(const std::string& sdp) {
  SdpAudio audio;
  std::string session_address;
  bool in_media = false;
  bool in_audio = false;
  for (const std::string& line : lines_of(sdp)) {
    if (starts_with(line, "m=")) {
      if (in_audio) break;
      in_media = true;
      in_audio = starts_with(line, "m=audio ");
      if (in_audio) read_media_line(line.substr(8), audio);
    } else if (starts_with(line, "c=IN IP4 ") || starts_with(line, "c=IN IP6 ")) {
      const std::string address = line.substr(9, line.find_first_of(" /", 9) - 9);
      if (in_audio) audio.address = address;
      if (!in_media) session_address = address;
    } else if (in_audio && starts_with(line, "a=rtpmap:")) {
      read_rtpmap(line.substr(9), audio.codecs);
    } else if (in_audio && starts_with(line, "a=crypto:") && audio.crypto.empty()) {
      audio.crypto = line.substr(9);
    }
  }
  if (audio.address.empty()) audio.address = session_address;
  if (!in_audio && audio.port == 0) return std::nullopt;
  if (audio.address.empty()) return std::nullopt;
  return audio;
}

std::optional<UdpAddress> parse_sdp_image(const std::string& sdp) {
  UdpAddress image;
  for (const std::string& line : lines_of(sdp)) {
    if (starts_with(line, "c=IN IP4 ")) image.address = line.substr(9, line.find_first_of(" /", 9) - 9);
    if (starts_with(line, "m=image ")) image.port = static_cast<std::uint16_t>(std::atoi(line.c_str() + 8));
  }
  return image.port == 0 ? std::nullopt : std::optional<UdpAddress>(image);
}

int SipMessage::Status() const {
  if (!starts_with(start_line, "SIP/2.0 ")) return 0;
  return std::atoi(start_line.c_str() + 8);
}

std::string SipMessage::Method() const {
  if (IsRequest()) return start_line.substr(0, start_line.find(' '));
  const std::string sequence = Header("CSeq");
  const std::size_t blank = sequence.rfind(' ');
  return blank == std::string::npos ? "" : sequence.substr(blank + 1);
}

std::string SipMessage::Header(const std::string& name) const {
  for (const auto& [header, value] : headers) {
    if (same_name(header, name)) return value;
  }
  return "";
}

std::string SipMessage::FromUser() const {
  const std::string from = Header("From");
  const std::size_t start = from.find("sip:");
  const std::size_t end = from.find('@', start);
  return start == std::string::npos || end == std::string::npos ? "" : from.substr(start + 4, end - start - 4);
}

std::string SipMessage::Title() const {
  return IsRequest() ? Method() : start_line.substr(8) + " (" + Method() + ")";
}

std::vector<SipMessage> parse_sipp_messages(const std::string& log) {
  // Each entry: a line of dashes with the time, a line that says direction and size, an empty line, the message.
  static const std::string kSeparator = "-----------------------------------------------";
  std::vector<SipMessage> messages;
  std::size_t at = 0;
  while ((at = log.find(kSeparator, at)) != std::string::npos) {
    const std::size_t announcement = log.find('\n', at);
    if (announcement == std::string::npos) break;
    const std::size_t end = log.find('\n', announcement + 1);
    if (end == std::string::npos) break;
    const std::string line = log.substr(announcement + 1, end - announcement - 1);
    const auto time = logged_at(log.substr(at, announcement - at));
    at = end;
    const bool sent = line.find("message sent") != std::string::npos;
    if (!sent && line.find("message received") == std::string::npos) continue;
    const std::size_t size = announced_size(line);
    const std::size_t start = end + 2;
    if (size == 0 || start + size > log.size()) continue;
    messages.push_back(parse_message(log.substr(start, size), sent));
    messages.back().at = time;
    at = start + size;
  }
  return messages;
}

const SipMessage* SipDialogue::Request(const std::string& method, bool sent) const {
  for (const SipMessage& message : messages_) {
    if (message.sent == sent && message.IsRequest() && message.Method() == method) return &message;
  }
  return nullptr;
}

const SipMessage* SipDialogue::Answer(int status, const std::string& method, bool sent) const {
  for (const SipMessage& message : messages_) {
    if (message.sent == sent && message.Status() == status && message.Method() == method) return &message;
  }
  return nullptr;
}

const SipMessage* SipDialogue::FinalAnswer() const {
  for (const SipMessage& message : messages_) {
    if (message.Status() >= 200 && message.Method() == "INVITE") return &message;
  }
  return nullptr;
}

bool SipDialogue::Established() const {
  const bool caller = Request("INVITE", true) != nullptr;
  return Answer(200, "INVITE", !caller) != nullptr && Request("ACK", caller) != nullptr;
}

std::optional<SdpAudio> SipDialogue::Audio(bool sent) const {
  for (const SipMessage& message : messages_) {
    if (message.sent != sent || message.body.empty()) continue;
    if (auto audio = parse_sdp_audio(message.body)) return audio;
  }
  return std::nullopt;
}

std::string SipDialogue::Flow() const {
  std::string flow;
  for (const SipMessage& message : messages_) {
    flow += flow.empty() ? "" : "  ";
    flow += message.sent ? "> " : "< ";
    flow += message.IsRequest() ? message.Method() : std::to_string(message.Status());
  }
  return flow;
}

std::vector<SipDialogue> group_dialogues(const std::vector<SipMessage>& messages) {
  std::vector<std::pair<std::string, std::vector<SipMessage>>> groups;
  for (const SipMessage& message : messages) {
    const std::string id = message.CallId();
    auto group = std::find_if(groups.begin(), groups.end(), [&id](const auto& one) { return one.first == id; });
    if (group == groups.end()) group = groups.insert(groups.end(), {id, {}});
    group->second.push_back(message);
  }
  std::vector<SipDialogue> dialogues;
  for (auto& [id, members] : groups) dialogues.emplace_back(id, std::move(members));
  return dialogues;
}

}  // namespace test_support
