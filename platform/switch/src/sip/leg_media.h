#pragma once

#include <switch.h>
#include <switch_media_server.h>

#include <optional>
#include <string>
#include <vector>

#include "sip/codec_negotiation.h"
#include "sip/sdp.h"
#include "sip/sip_profile.h"
#include "sip/srtp_keys.h"

/// A leg's media on the media server, from create to destroy: makes the calls of the media-server interface in their
/// order, each with what the profile and the descriptions say, and destroys exactly once. Used on the leg's thread
/// only.
namespace kvx_switch {

/// What two far ends and we agreed to send.
struct AgreedMedia {
  CodecMatch codec;
  uint8_t telephone_event_type = 0;  ///< of the far end; 0: none agreed
  uint32_t telephone_event_rate = 8000;
  std::optional<SrtpKey> remote_key;  ///< what the far end encrypts with; none: in the clear
  std::optional<SrtpKey> local_key;   ///< what we encrypt with
  bool secure_only = false;           ///< nothing may go in the clear

  bool HasTelephoneEvents() const { return telephone_event_type != 0; }
};

/// Where the media server takes this leg's RTP.
struct LocalMedia {
  std::string address;  ///< the one that far ends are told: the public one where there is one
  uint16_t port = 0;
  uint16_t rtcp_port = 0;
};

class LegMedia {
 public:
  enum class Start { kStarted, kUnavailable, kFailed };
  /// The second leg of a call rides on what the first was granted: only a new call asks whether there is room.
  enum class NewCall { kYes, kNo };

  LegMedia(switch_core_session_t* session, const MediaSettings& settings);
  ~LegMedia();
  LegMedia(const LegMedia&) = delete;
  LegMedia& operator=(const LegMedia&) = delete;

  /// Takes a media server and creates the leg on it. kUnavailable when none is loaded or it takes no calls; nothing is
  /// held then, nor after kFailed.
  Start Create(NewCall new_call);
  bool created() const { return created_; }

  /// Tells the far end's description of `stream`. `state` is OFFER_RECEIVED or ANSWER_RECEIVED.
  bool SetRemote(switch_sdp_negotiation_state_t state, const SdpMedia& stream, const std::string& session_name,
                 const AgreedMedia& agreed);

  /// Asks for the local side of an offer that lists `codecs`. Of `wished` the telephone-events (type 0: none offered)
  /// and our key count.
  bool GetLocalForOffer(const CodecImplementations& codecs, const AgreedMedia& wished, LocalMedia& local);
  /// Asks for the local side of the answer. The agreed codec is that of the last SetRemote.
  bool GetLocalForAnswer(const AgreedMedia& agreed, LocalMedia& local);

  /// The same for an image stream (T.38) in place of audio.
  bool SetRemoteImage(switch_sdp_negotiation_state_t state, const SdpMedia& stream, const std::string& session_name);
  bool GetLocalImage(switch_sdp_negotiation_state_t state, LocalMedia& local);

  bool Bridge(RTPDirection direction);
  /// Does nothing when Bridge did not succeed or was undone.
  void Unbridge();
  bool bridged() const { return bridged_; }

  /// Media may flow from now on: the first time, the variable "rtcpmon_start_time" says when that was.
  void MarkStart();

  /// Unbridges if need be, destroys, lets the media server go. Does nothing the second time.
  void Destroy();

 private:
  struct LocalRequest {
    switch_sdp_negotiation_state_t state;
    CodecImplementations codecs;
    switch_codec_t* answer_codec;
    const AgreedMedia& media;
    bool image = false;
  };

  bool InitCodec(const CodecMatch& match);
  void DestroyCodec();
  bool GetLocal(LocalRequest request, LocalMedia& local);
  void Publish(const LocalMedia& local);
  void Failed(const char* step);

  switch_core_session_t* session_;
  switch_channel_t* channel_;
  switch_media_connection_t* connection_;
  switch_media_server_interface_t* server_ = nullptr;
  const MediaSettings settings_;
  bool created_ = false;
  bool bridged_ = false;
  bool codec_ready_ = false;
  bool started_ = false;
  switch_codec_t codec_{};
};

/// "10.0.0.5,203.0.113.7" in two: where RTP is bound, and what far ends are told (the same when there is one address).
void SplitLocalAddress(const std::string& text, std::string& bound, std::string& told);

}  // namespace kvx_switch
