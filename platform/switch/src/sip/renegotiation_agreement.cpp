// What of a far end's new description a call can go on with.
#include <algorithm>
#include <utility>

#include "sip/leg_helpers.h"
#include "sip/renegotiation.h"

namespace kvx_switch {

namespace {

constexpr int kNotAcceptable = 488;

}  // namespace

/// The payload of `stream` that is the call's codec. One name may stand for two ways of packing; the other leg has the
/// one that the call began with. An answer without it is taken as it stands: that far end had no other choice.
std::optional<CodecMatch> Renegotiation::FindCallsCodec(const SdpMedia& stream, bool answer,
                                                        std::string& problem) const {
  const std::vector<CodecMatch> common = CommonCodecs(stream, {agreed_.codec.implementation});
  const auto same = std::find_if(common.begin(), common.end(),
                                 [this](const CodecMatch& match) { return CodecsGoTogether(match, agreed_.codec); });
  if (same != common.end()) return *same;
  if (answer && !common.empty()) return common.front();
  const std::string calls = CodecNames(CodecImplementations{agreed_.codec.implementation});
  problem = common.empty() ? (answer ? "it names " : "offered are ") + CodecNames(stream) + ", the call has " + calls
                           : "the call's " + calls + " is packed otherwise";
  return std::nullopt;
}

/// What `stream` comes down to with the codec that the call has. False, and refused, when it does not have it.
bool Renegotiation::TakeAudio(const SdpMedia& stream, AgreedMedia& agreed) {
  StreamSecurity security = SecurityOfOffer(stream, leg_.profile->media.security);
  if (!security.problem.empty()) {
    Refuse(kNotAcceptable, security.problem);
    return false;
  }
  std::string problem;
  std::optional<CodecMatch> same;
  // Asked before the media server is, which lets a leg go whose description it refuses.
  if (IsOfOtherFamily(stream, local_.address)) {
    problem = "the media server takes no media at " + stream.address;
  } else {
    same = FindCallsCodec(stream, false, problem);
  }
  if (!same) {
    Refuse(kNotAcceptable, problem);
    return false;
  }
  agreed = agreed_;
  agreed.codec = *same;
  if (RefusesSilenceFrames(agreed_.codec.remote)) RefuseSilenceFrames(agreed.codec.remote);
  AgreeOnTelephoneEvents(stream, leg_.profile->media.telephone_events, agreed);
  agreed.remote_key = std::move(security.remote);
  agreed.secure_only = agreed.remote_key.has_value();
  if (!agreed.secure_only) {
    agreed.local_key.reset();
  } else if (!agreed.local_key || agreed.local_key->suite != agreed.remote_key->suite) {
    agreed.local_key = MakeSrtpKey(agreed.remote_key->suite, agreed.remote_key->tag);
  } else {
    agreed.local_key->tag = agreed.remote_key->tag;
  }
  return true;
}

/// Why it cannot be taken; "" when it was.
std::string Renegotiation::TakeAudioAnswer(const SessionDescription& answer) {
  if (stream_ >= answer.media.size() || answer.media[stream_].port == 0) return "it refuses the audio stream";
  const SdpMedia& stream = answer.media[stream_];
  StreamSecurity security =
      SecurityOfAnswer(stream, local_.protocol, agreed_.local_key ? &*agreed_.local_key : nullptr);
  if (!stream.IsRtpAudio() || !security.problem.empty()) {
    return "it has " + stream.kind + " " + security.problem;
  }
  std::string problem;
  const std::optional<CodecMatch> same = FindCallsCodec(stream, true, problem);
  if (!same) return problem;
  agreed_.codec = *same;
  AgreeOnTelephoneEvents(stream, agreed_.HasTelephoneEvents(), agreed_);
  agreed_.remote_key = std::move(security.remote);
  if (!leg_.media->SetRemote(SWITCH_SDP_ANSWER_RECEIVED, stream, answer.session_name, agreed_)) {
    return "the media server refuses it";
  }
  remote_ = answer;
  audio_ = remote_.media[stream_];
  if (held_) audio_.direction = WithoutSending(audio_.direction);
  return "";
}

}  // namespace kvx_switch
