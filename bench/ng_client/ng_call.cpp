#include "ng_call.h"

#include <arpa/inet.h>

#include <charconv>
#include <sstream>
#include <utility>

namespace rtpengine_ng {
namespace {

bool ReadPort(const std::string& word, uint16_t& port) {
  const char* const end = word.data() + word.size();
  const auto [stop, problem] = std::from_chars(word.data(), end, port);
  return problem == std::errc() && stop == end && port != 0;
}

bool IsAddress(const std::string& text) {
  in_addr ignored{};
  return inet_pton(AF_INET, text.c_str(), &ignored) == 1;
}

}  // namespace

std::string SdpOf(const NgLeg& leg) {
  const uint16_t rtcp_port = leg.rtcp_port != 0 ? leg.rtcp_port : static_cast<uint16_t>(leg.rtp_port + 1);
  const std::string profile = leg.cryptos.empty() ? "RTP/AVP" : "RTP/SAVP";
  std::string sdp = "v=0\r\no=- 1 1 IN IP4 " + leg.address + "\r\ns=-\r\nc=IN IP4 " + leg.address + "\r\nt=0 0\r\n";
  sdp += "m=audio " + std::to_string(leg.rtp_port) + " " + profile + " 0\r\na=rtpmap:0 PCMU/8000\r\n";
  sdp += "a=rtcp:" + std::to_string(rtcp_port) + "\r\n";
  for (const NgCrypto& crypto : leg.cryptos) {
    sdp += "a=crypto:" + crypto.tag + " " + crypto.suite + " inline:" + crypto.key + "\r\n";
  }
  return sdp + "a=sendrecv\r\n";
}

bool ReadSdp(const std::string& sdp, NgLeg& leg) {
  std::istringstream lines(sdp);
  bool address = false, port = false;
  for (std::string line; std::getline(lines, line);) {
    std::istringstream words(line);
    std::string first, second, third;
    words >> first >> second >> third;
    if (first == "c=IN" && second == "IP4") {
      address = IsAddress(third);
      leg.address = third;
    } else if (first == "m=audio") {
      port = ReadPort(second, leg.rtp_port);
    } else if (first.rfind("a=rtcp:", 0) == 0) {
      if (!ReadPort(first.substr(7), leg.rtcp_port)) return false;
    } else if (first.rfind("a=crypto:", 0) == 0 && third.rfind("inline:", 0) == 0) {
      const std::string key = third.substr(0, third.find('|'));  // what follows is lifetime and MKI
      leg.cryptos.push_back({first.substr(9), second, key.substr(7)});
    }
  }
  return address && port;
}

bool NgCall::Offer(const NgLeg& caller, NgLeg& towards_callee, std::string& error) {
  return Describe("offer", caller, towards_callee, error);
}

bool NgCall::Answer(const NgLeg& callee, NgLeg& towards_caller, std::string& error) {
  return Describe("answer", callee, towards_caller, error);
}

bool NgCall::Describe(const char* command, const NgLeg& far_end, NgLeg& ours, std::string& error) {
  Dictionary request{{"command", command},
                     {"from-tag", "caller"},
                     {"sdp", SdpOf(far_end)},
                     {"ICE", "remove"},
                     {"replace", Bencode::List{"origin"}}};
  if (std::string(command) == "answer") request.emplace("to-tag", "callee");
  Dictionary reply;
  if (!Do(std::move(request), reply, error)) return false;
  ours = {};
  const std::string sdp = TextOf(reply, "sdp");
  if (ReadSdp(sdp, ours)) return true;
  error = std::string(command) + " of " + call_id_ + ": the reply has no usable SDP: \"" + sdp + "\"";
  return false;
}

bool NgCall::Delete(std::string& error) {
  Dictionary reply;
  return Do({{"command", "delete"}, {"from-tag", "caller"}}, reply, error);
}

bool NgCall::Do(Dictionary request, Dictionary& reply, std::string& error) {
  const std::string command = TextOf(request, "command");
  request.emplace("call-id", call_id_);
  std::optional<Dictionary> answer = client_.Ask(request, error);
  if (!answer) {
    error = command + " of " + call_id_ + ": " + error;
    return false;
  }
  reply = std::move(*answer);
  if (TextOf(reply, "result") == "ok") return true;
  error = command + " of " + call_id_ + " is refused: " + TextOf(reply, "error-reason");
  return false;
}

}  // namespace rtpengine_ng
