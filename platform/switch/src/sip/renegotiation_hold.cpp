#include <utility>

#include "sip/leg_helpers.h"
#include "sip/renegotiation.h"

namespace kvx_switch {

MediaDirection WithoutSending(MediaDirection direction) {
  const bool receives = direction == MediaDirection::kSendReceive || direction == MediaDirection::kReceiveOnly;
  return receives ? MediaDirection::kReceiveOnly : MediaDirection::kInactive;
}

std::string Renegotiation::Hold(HoldChange change) {
  const bool on = change == HoldChange::kToggle ? !held_ : change == HoldChange::kHold;
  if (on == held_) return "";
  if (!quiet()) return "the call's media is being changed, or is a fax";
  held_ = on;
  to_fax_ = false;
  LegLog(leg_.session, SWITCH_LOG_INFO, on ? "Putting the far end on hold" : "Taking the far end back from hold");
  leg_.dialog->Reinvite(HoldOffer());
  return "";
}

std::string Renegotiation::HoldOffer() {
  step_ = Step::kWeHold;
  ++local_.version;
  local_.direction = held_ ? MediaDirection::kSendOnly : MediaDirection::kSendReceive;
  return BuildAnswer(local_, remote_, stream_);
}

/// By whichever side: the far end hears the other one no more, or again.
void Renegotiation::TellOfHold(bool on_hold) {
  if (std::exchange(told_of_hold_, on_hold) == on_hold) return;
  switch_channel_set_callstate(switch_core_session_get_channel(leg_.session), on_hold ? CCS_HELD : CCS_ACTIVE);
  FireLegEvent(leg_.session, on_hold ? SWITCH_EVENT_CHANNEL_HOLD : SWITCH_EVENT_CHANNEL_UNHOLD);
}

/// The codec and the ports stay; only who sends has changed, and where the far end wants it.
void Renegotiation::OnHoldAnswer(const SessionDescription& answer) {
  const SdpMedia& stream = answer.media[stream_];
  StreamSecurity security =
      SecurityOfAnswer(stream, local_.protocol, agreed_.local_key ? &*agreed_.local_key : nullptr);
  std::string problem = security.problem;
  if (!stream.IsRtpAudio()) problem = "it has " + stream.kind + " over " + stream.protocol;
  const std::optional<CodecMatch> same =
      problem.empty() ? FindCallsCodec(stream, true, problem) : std::optional<CodecMatch>();
  if (!same) return BreakOff("The answer to our re-INVITE cannot be taken: " + problem);
  agreed_.codec = *same;
  agreed_.remote_key = std::move(security.remote);
  if (!leg_.media->SetRemote(SWITCH_SDP_ANSWER_RECEIVED, stream, answer.session_name, agreed_)) {
    return BreakOff("The media server refused the far end's new description");
  }
  step_ = Step::kIdle;
  remote_ = answer;
  audio_ = stream;
  if (held_) audio_.direction = WithoutSending(audio_.direction);
  DirectionChanged();
}

}  // namespace kvx_switch
