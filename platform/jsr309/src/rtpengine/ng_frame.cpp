#include "rtpengine/ng_frame.h"

#include <utility>

namespace kelvaro::jsr309::rtpengine {

std::string FrameNg(const std::string& cookie, const Dictionary& message) {
  std::string text = EncodeBencode(message);
  std::string datagram = cookie + " ";
  datagram.reserve(datagram.size() + text.size());
  datagram += text;
  Wipe(text);
  return datagram;
}

std::optional<NgFrame> ParseNg(std::string_view datagram, std::string& error) {
  const std::size_t space = datagram.find(' ');
  if (space == std::string_view::npos || space == 0) {
    error = "no cookie";
    return std::nullopt;
  }
  const std::optional<Bencode> value = DecodeBencode(datagram.substr(space + 1), error);
  if (!value) return std::nullopt;
  if (value->Entries() == nullptr) {
    error = "the message is no dictionary";
    return std::nullopt;
  }
  return NgFrame{std::string(datagram.substr(0, space)), *value->Entries()};
}

std::string RefusalOf(const Dictionary& reply) {
  const std::string result = TextOf(reply, "result");
  if (result == "ok" || result == "pong") return {};
  if (result.empty()) return "a reply without a result";
  // What is wrong stands in "error-reason"; a daemon that has enough to do says so in "result" and "message".
  std::string reason = TextOf(reply, "error-reason");
  if (reason.empty()) reason = TextOf(reply, "message");
  if (result == "error" && !reason.empty()) return reason;
  return reason.empty() ? result : result + ": " + reason;
}

bool IsUnknownCall(const Dictionary& reply) {
  return TextOf(reply, "result") == "error" && TextOf(reply, "error-reason") == "Unknown call-id";
}

}  // namespace kelvaro::jsr309::rtpengine
