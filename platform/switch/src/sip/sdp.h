#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// Session descriptions (RFC 4566) as far as audio calls need them. The parser takes whatever a far end sends: it never
/// throws, never reads outside the text, and says which line of it it could not take. Values only; no thread cares.
namespace kvx_switch {

enum class MediaDirection { kSendReceive, kSendOnly, kReceiveOnly, kInactive };

/// What an answerer says to an offer of `direction`: what one side sends the other receives (RFC 3264, 6.1).
MediaDirection Reversed(MediaDirection direction);
/// What is left of it for a side that was told not to send.
MediaDirection WithoutSending(MediaDirection direction);
/// What is left of it for a side that takes nothing.
MediaDirection WithoutReceiving(MediaDirection direction);

/// One payload type of an RTP stream with its "rtpmap" and "fmtp" put together.
struct SdpPayload {
  uint8_t type = 0;   ///< 0 to 127
  std::string name;   ///< encoding name as written; empty when neither an rtpmap nor RFC 3551 gives one
  uint32_t rate = 0;  ///< clock rate in Hz
  int channels = 1;
  std::string fmtp;  ///< the parameters alone, without the payload type
};

/// One "m=" line and what stands below it.
struct SdpMedia {
  std::string kind;          ///< "audio", "video", "image", ...
  uint16_t port = 0;         ///< 0: the stream is refused or withdrawn
  std::string protocol;      ///< "RTP/AVP", "RTP/SAVP", "udptl", ...
  std::string formats;       ///< the format list as written
  std::string address;       ///< of "c=" below the line, else the session's; a host name or a numeric address
  uint16_t rtcp_port = 0;    ///< of "a=rtcp" (RFC 3605); 0 when not given
  uint32_t packet_time = 0;  ///< of "a=ptime", milliseconds; 0 when not given
  MediaDirection direction = MediaDirection::kSendReceive;
  std::vector<SdpPayload> payloads;  ///< of RTP streams, in order of preference
  std::vector<std::string> cryptos;  ///< values of "a=crypto" (RFC 4568), as written

  std::vector<std::string> fax_attributes;  ///< "T38..." lines of an image stream, without "a="

  /// Fax over UDP, ITU-T T.38, annex D.
  bool IsFaxImage() const { return kind == "image" && (protocol == "udptl" || protocol == "UDPTL"); }
  /// False for "c=IN IP4 0.0.0.0" and its like, the old way to hold a call (RFC 3264, 8.4): it takes nothing.
  bool HasDestination() const { return address != "0.0.0.0" && address != "::"; }
  bool IsRtpAudio() const { return kind == "audio" && (protocol == "RTP/AVP" || protocol == "RTP/SAVP"); }
};

struct SessionDescription {
  std::string origin;        ///< the text of "o="
  std::string session_name;  ///< the text of "s="; "-" when there is none
  std::vector<SdpMedia> media;
};

/// Null when `text` is no session description; `error` then names the line and its text.
std::optional<SessionDescription> ParseSdp(std::string_view text, std::string& error);

/// What this switch says of itself in an offer or an answer.
struct LocalDescription {
  uint64_t session_id = 0;
  uint64_t version = 0;  ///< grows by one with every change
  std::string address;   ///< numeric, IPv4 or IPv6 without brackets
  uint16_t port = 0;
  uint16_t rtcp_port = 0;    ///< 0: not said
  uint32_t packet_time = 0;  ///< milliseconds; 0: not said
  MediaDirection direction = MediaDirection::kSendReceive;
  bool fax = false;  ///< an image stream (T.38) instead of audio
  std::vector<std::string> fax_attributes;
  std::vector<SdpPayload> payloads;  ///< of audio, at least one
  std::string protocol = "RTP/AVP";
  std::string crypto;  ///< value of "a=crypto"; empty: none
};

/// An offer with one audio stream.
std::string BuildOffer(const LocalDescription& local);

/// The answer to `offer`: `local` in place of its stream number `accepted`, every other stream refused with port 0.
/// Also an offer that follows the far end's last description: streams keep their places (RFC 3264, 8).
std::string BuildAnswer(const LocalDescription& local, const SessionDescription& offer, size_t accepted);

/// Its media is at a numeric address, but one of another family, IPv4 or IPv6, than `local`.
bool IsOfOtherFamily(const SdpMedia& stream, const std::string& local);

/// The encoding that RFC 3551 assigns to a static payload type; false when it assigns none for audio.
bool StaticPayload(uint8_t type, SdpPayload& payload);

}  // namespace kvx_switch
