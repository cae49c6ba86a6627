/// One call on an rtpengine daemon: two legs, described by offer and answer, and deleted again.
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "ng_client.h"

namespace rtpengine_ng {

/// An SRTP key in a description (RFC 4568).
struct NgCrypto {
  std::string tag = "1";  ///< an answer repeats that of the offer it chose
  std::string suite;
  std::string key;  ///< base64 of key and salt
};

/// A leg's far end, or where the daemon receives for it.
struct NgLeg {
  std::string address;
  uint16_t rtp_port = 0;
  uint16_t rtcp_port = 0;         ///< 0: the one above
  std::vector<NgCrypto> cryptos;  ///< in order of preference; none: RTP in the clear
};

/// G.711 mu-law with that far end, as an offer or answer.
std::string SdpOf(const NgLeg& leg);
/// False when the text has no address, no port, or what stands there is none.
bool ReadSdp(const std::string& sdp, NgLeg& leg);

class NgCall {
 public:
  NgCall(NgClient& client, std::string call_id) : client_(client), call_id_(std::move(call_id)) {}

  /// Each gives where the daemon receives from the other side. False when the daemon refuses or is silent.
  bool Offer(const NgLeg& caller, NgLeg& towards_callee, std::string& error);
  bool Answer(const NgLeg& callee, NgLeg& towards_caller, std::string& error);
  bool Delete(std::string& error);

 private:
  bool Describe(const char* command, const NgLeg& far_end, NgLeg& ours, std::string& error);
  bool Do(Dictionary request, Dictionary& reply, std::string& error);

  NgClient& client_;
  const std::string call_id_;
};

}  // namespace rtpengine_ng
