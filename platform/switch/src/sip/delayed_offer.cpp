// An INVITE without a description: we offer in our 200, and the caller answers in its ACK (RFC 3261, 13.2.1).
#include <algorithm>
#include <utility>

#include "sip/calling_leg.h"
#include "sip/leg_helpers.h"

namespace kvx_switch {

namespace {

// The stack gives a call without an ACK up before this.
constexpr std::chrono::seconds kAckPatience{40};

}  // namespace

/// What the call may use, and is offered to the called side; the caller gets what that takes of it.
bool CallingLeg::PrepareOwnOffer() {
  const CodecImplementations codecs = PreferredCodecs(RegisteredCodecs(), profile_.codec_prefs);
  if (codecs.empty()) {
    Fail(SWITCH_CAUSE_NORMAL_TEMPORARY_FAILURE, 503, "",
         "No codec is registered: no media server module is loaded, or \"codec-prefs\" of " + profile_.file +
             " names none of its codecs (call-id " + invite_.call_id + ")");
    return false;
  }
  we_offer_ = true;
  common_ = EverythingToOffer(codecs, profile_.media.g729_annex_b);
  agreed_.codec = common_.front();
  if (profile_.media.telephone_events) {
    std::vector<SdpPayload> taken;
    for (const CodecMatch& match : common_) taken.push_back(match.remote);
    agreed_.telephone_event_type = FreePayloadType(profile_.media.telephone_event_type, taken);
  }
  const SecurityWish& wish = profile_.media.security;
  if (wish.wanted != SecureMedia::kOff) agreed_.local_key = MakeSrtpKey(wish.suites.front(), "1");
  agreed_.secure_only = wish.wanted == SecureMedia::kMandatory;
  return true;
}

/// The called side's codec alone is left of the offer.
void CallingLeg::NarrowOwnOffer(const CalledLegReport& answer) {
  agreed_.codec = common_[answer.offered_index];
  agreed_.codec.implementation = answer.agreed.codec.implementation;
  agreed_.codec.remote.fmtp = answer.agreed.codec.remote.fmtp;
  if (!answer.agreed.HasTelephoneEvents()) agreed_.telephone_event_type = 0;
  common_ = {agreed_.codec};
}

bool CallingLeg::OfferToCaller() {
  LocalDescription& description = own_offer_;
  CodecImplementations codecs;
  for (const CodecMatch& match : common_) {
    codecs.push_back(match.implementation);
    description.payloads.push_back(OfferedPayload(match));
  }
  if (agreed_.HasTelephoneEvents()) {
    description.payloads.push_back(TelephoneEventPayload(agreed_.telephone_event_type, agreed_.telephone_event_rate));
  }
  if (agreed_.local_key) description.crypto = CryptoText(*agreed_.local_key);
  if (agreed_.secure_only) description.protocol = "RTP/SAVP";
  LocalMedia local;
  if (!media_->GetLocalForOffer(codecs, agreed_, local)) {
    Fail(SWITCH_CAUSE_NORMAL_TEMPORARY_FAILURE, 503, "", "The media server has nothing to offer to the caller");
    return false;
  }
  FillLocalDescription(session_, local, agreed_.codec.PacketTime(), description);
  told_ = BuildOffer(description);
  return true;
}

/// Waits for the ACK and takes the answer that it brings. A called leg that ends meanwhile is let go at once, but the
/// caller may not be sent BYE before its ACK (RFC 3261, 15).
bool CallingLeg::AwaitCallersAnswer() {
  const auto deadline = std::chrono::steady_clock::now() + kAckPatience;
  const auto acknowledged = [this] { return callers_answer_.has_value(); };
  ServeUntil(session_, deadline, [&] { return acknowledged() || (called_ && called_->ended); });
  if (!acknowledged() && called_ && called_->ended) {
    LetCalledLegGo(called_->cause);
    ServeUntil(session_, deadline, acknowledged);
  }
  if (switch_channel_down(channel_)) return false;
  const std::string problem = callers_answer_ ? TakeCallersAnswer(*callers_answer_) : "it does not come";
  if (problem.empty()) return true;
  Fail(SWITCH_CAUSE_INCOMPATIBLE_DESTINATION, 0, "",
       "The caller's answer cannot be taken: " + problem + " (call-id " + invite_.call_id + ")");
  return false;
}

/// Why it cannot be taken; "" when it was.
std::string CallingLeg::TakeCallersAnswer(const std::string& sdp) {
  std::string problem;
  std::optional<SessionDescription> answer = ParseSdp(sdp, problem);
  if (!answer) return problem;
  SdpMedia& stream = answer->media.front();
  if (!stream.IsRtpAudio() || stream.port == 0) return "it refuses the audio stream";
  StreamSecurity security =
      SecurityOfAnswer(stream, own_offer_.protocol, agreed_.local_key ? &*agreed_.local_key : nullptr);
  if (!security.problem.empty()) return security.problem;
  if (stream.packet_time == 0) stream.packet_time = own_offer_.packet_time;
  CodecImplementations offered;
  for (const CodecMatch& match : common_) offered.push_back(match.implementation);
  const std::vector<CodecMatch> taken = CommonCodecs(stream, offered);
  if (taken.empty()) return "it names " + CodecNames(stream) + ", offered were " + CodecNames(offered);
  // Of two ways of packing one codec, the one that the called side has.
  const auto same = std::find_if(taken.begin(), taken.end(), [this](const CodecMatch& match) {
    return called_ && CodecsGoTogether(match, agreed_.codec);
  });
  agreed_.codec = same == taken.end() ? taken.front() : *same;
  AgreeOnTelephoneEvents(stream, agreed_.HasTelephoneEvents(), agreed_);
  agreed_.remote_key = std::move(security.remote);
  agreed_.secure_only = agreed_.remote_key.has_value();
  if (!agreed_.secure_only) agreed_.local_key.reset();
  offer_ = std::move(*answer);
  stream_ = 0;
  if (!media_->SetRemote(SWITCH_SDP_ANSWER_RECEIVED, offer_.media.front(), offer_.session_name, agreed_)) {
    return "the media server refuses it";
  }
  StartRenegotiation(own_offer_);
  return "";
}

}  // namespace kvx_switch
