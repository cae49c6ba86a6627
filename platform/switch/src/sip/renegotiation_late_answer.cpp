// INVITEs without a description within a call: we offer, and the ACK brings the answer.
#include <utility>

#include "sip/leg_helpers.h"
#include "sip/renegotiation.h"

namespace kvx_switch {

/// The far end wants to be offered what there is (RFC 3261, 14.1), and may answer something new.
void Renegotiation::OnOfferWanted() {
  if (step_ != Step::kIdle) return Refuse(491, "the call's media is being changed already");
  if (fax_) return leg_.dialog->AnswerReinvite(BuildAnswer(local_, remote_, stream_));
  if (!leg_.media->GetLocalForOffer({agreed_.codec.implementation}, agreed_, local_media_)) {
    return BreakOff("The media server has no audio stream to offer");
  }
  LocalDescription local = AudioDescription(local_media_);
  local.direction = held_ ? MediaDirection::kSendOnly : MediaDirection::kSendReceive;
  step_ = Step::kWeOffered;
  local_ = std::move(local);
  leg_.dialog->AnswerReinvite(BuildAnswer(local_, remote_, stream_));
}

void Renegotiation::OnLateAnswer(const std::string& sdp) {
  if (step_ != Step::kWeOffered) return;
  step_ = Step::kIdle;
  if (sdp.empty()) {
    LegLog(leg_.session, SWITCH_LOG_WARNING, "The far end did not answer our offer; the call goes on as it was");
    return;
  }
  std::string problem;
  std::optional<SessionDescription> answer = ParseSdp(sdp, problem);
  const MediaDirection before = audio_.direction;
  if (answer) problem = TakeAudioAnswer(*answer);
  if (!problem.empty()) return BreakOff("The answer to our offer cannot be taken: " + problem);
  if (before != audio_.direction) DirectionChanged();
}

}  // namespace kvx_switch
