#include "sip/renegotiation.h"

#include <strings.h>

#include <algorithm>
#include <utility>

#include "sip/leg_helpers.h"

namespace kvx_switch {

namespace {

constexpr int kNotAcceptable = 488;
constexpr int kRequestPending = 491;

bool Sends(MediaDirection direction) {
  return direction == MediaDirection::kSendReceive || direction == MediaDirection::kSendOnly;
}

bool Receives(MediaDirection direction) {
  return direction == MediaDirection::kSendReceive || direction == MediaDirection::kReceiveOnly;
}

/// The stream to talk about: an image that is offered beside audio is what the far end wants to turn to.
size_t ChosenStream(const SessionDescription& offer) {
  size_t audio = offer.media.size();
  for (size_t i = 0; i < offer.media.size(); ++i) {
    const SdpMedia& stream = offer.media[i];
    if (stream.port == 0) continue;
    if (stream.IsFaxImage()) return i;
    if (stream.IsRtpAudio() && audio == offer.media.size()) audio = i;
  }
  return audio;
}

const char* DirectionText(MediaDirection direction) {
  switch (direction) {
    case MediaDirection::kSendReceive:
      return "sends and receives";
    case MediaDirection::kSendOnly:
      return "only sends";
    case MediaDirection::kReceiveOnly:
      return "only receives";
    case MediaDirection::kInactive:
      break;
  }
  return "neither sends nor receives";
}

}  // namespace

Renegotiation::Renegotiation(Leg leg, SessionDescription remote, size_t stream, AgreedMedia agreed,
                             LocalDescription local)
    : leg_(std::move(leg)),
      remote_(std::move(remote)),
      stream_(stream),
      audio_(remote_.media[stream]),
      agreed_(std::move(agreed)),
      local_(std::move(local)) {}

void Renegotiation::Refuse(int status, const std::string& why) {
  LegLog(leg_.session, SWITCH_LOG_WARNING,
         "re-INVITE refused with " + std::to_string(status) + ": " + why + "; the call goes on as it was");
  leg_.dialog->RefuseReinvite(status, why);
}

void Renegotiation::BreakOff(const std::string& why) {
  LegLog(leg_.session, SWITCH_LOG_ERROR, why + "; the call ends");
  if (step_ == Step::kPartnerAsks) leg_.dialog->RefuseReinvite(500, why);
  step_ = Step::kIdle;
  switch_channel_hangup(switch_core_session_get_channel(leg_.session), SWITCH_CAUSE_NORMAL_TEMPORARY_FAILURE);
}

void Renegotiation::OnOffer(const std::string& sdp) {
  if (sdp.empty()) return OnOfferWanted();
  std::string error;
  std::optional<SessionDescription> offer = ParseSdp(sdp, error);
  if (!offer) return Refuse(kNotAcceptable, "the SDP cannot be read: " + error);
  const size_t stream = ChosenStream(*offer);
  const bool image = stream < offer->media.size() && offer->media[stream].IsFaxImage();
  // Our hold has met theirs and waits for its time: meanwhile theirs is taken, which is what the time is for (RFC 3261,
  // 14.1).
  const bool our_hold_waits = step_ == Step::kWeHold && !image;
  if (step_ != Step::kIdle && !our_hold_waits) {
    return Refuse(kRequestPending, "the call's media is being changed already");
  }
  if (stream == offer->media.size()) return Refuse(kNotAcceptable, "neither audio nor fax is offered");
  if (image) {
    OnImageOffer(std::move(*offer), stream);
  } else {
    OnAudioOffer(std::move(*offer), stream);
  }
}

bool Renegotiation::ApplyAudioOffer(const SessionDescription& offer, size_t stream, const AgreedMedia& agreed) {
  if (leg_.media->SetRemote(SWITCH_SDP_OFFER_RECEIVED, offer.media[stream], offer.session_name, agreed) &&
      leg_.media->GetLocalForAnswer(agreed, local_media_)) {
    return true;
  }
  BreakOff("The media server refused the far end's new description");
  return false;
}

void Renegotiation::OnAudioOffer(SessionDescription offer, size_t stream) {
  AgreedMedia agreed;
  if (!TakeAudio(offer.media[stream], agreed)) return;
  const bool our_hold_waits = step_ == Step::kWeHold;
  step_ = Step::kPartnerAsks;
  to_fax_ = false;
  offer_ = std::move(offer);
  offer_stream_ = stream;
  offer_agreed_ = std::move(agreed);
  if (!ApplyAudioOffer(offer_, offer_stream_, offer_agreed_)) return;
  if (fax_) {
    AskPartner([](Renegotiation& partner) { partner.OfferAudio(); });
  } else {
    AnswerAudio(our_hold_waits);
  }
}

void Renegotiation::AnswerAudio(bool our_hold_waits) {
  const bool was_fax = std::exchange(fax_, false);
  const MediaDirection before = audio_.direction;
  remote_ = std::move(offer_);
  stream_ = offer_stream_;
  audio_ = remote_.media[stream_];
  const bool held = held_ != our_hold_waits;  // what waits is not yet so
  if (held) audio_.direction = WithoutSending(audio_.direction);
  agreed_ = std::move(offer_agreed_);
  step_ = Step::kIdle;
  local_ = AudioDescription(local_media_);
  local_.direction = Reversed(audio_.direction);
  const std::string answer = BuildAnswer(local_, remote_, stream_);
  leg_.dialog->AnswerReinvite(answer, our_hold_waits ? HoldOffer() : "");
  if (was_fax) LegLog(leg_.session, SWITCH_LOG_NOTICE, "Back from fax to audio");
  if (was_fax || before != audio_.direction) DirectionChanged();
}

void Renegotiation::Begin() {
  TellOfHold(!Receives(audio_.direction));
}

void Renegotiation::DirectionChanged() {
  const MediaDirection direction = audio_.direction;
  LegLog(leg_.session, SWITCH_LOG_INFO, std::string("The far end ") + DirectionText(direction) + " now");
  TellOfHold(held_ || !Receives(direction));
  if (!leg_.bridge) {
    leg_.tell_direction(direction);
  } else if (!leg_.bridge(BridgeDirection())) {
    BreakOff("The media server did not join the two legs anew");
  }
}

void Renegotiation::PartnerDirection(MediaDirection direction) {
  if (direction == partner_direction_) return;
  partner_direction_ = direction;
  if (leg_.bridge && !leg_.bridge(BridgeDirection())) BreakOff("The media server did not join the two legs anew");
}

RTPDirection Renegotiation::BridgeDirection() const {
  const bool forward = Sends(audio_.direction) && Receives(partner_direction_);
  const bool backward = Sends(partner_direction_) && Receives(audio_.direction);
  if (forward && backward) return RTPDIR_DUPLEX;
  if (forward) return RTPDIR_RECEIVE;
  return backward ? RTPDIR_SEND : RTPDIR_INACTIVE;
}

void Renegotiation::OnImageOffer(SessionDescription offer, size_t stream) {
  if (agreed_.secure_only) return Refuse(kNotAcceptable, "fax cannot be encrypted and the call is");
  if (IsOfOtherFamily(offer.media[stream], local_.address)) {
    return Refuse(kNotAcceptable, "the media server takes no media at " + offer.media[stream].address);
  }
  step_ = Step::kPartnerAsks;
  to_fax_ = true;
  offer_ = std::move(offer);
  offer_stream_ = stream;
  const SdpMedia& image = offer_.media[stream];
  if (!leg_.media->SetRemoteImage(SWITCH_SDP_OFFER_RECEIVED, image, offer_.session_name) ||
      !leg_.media->GetLocalImage(SWITCH_SDP_OFFER_RECEIVED, local_media_)) {
    return BreakOff("The media server refused the far end's image stream");
  }
  LegLog(leg_.session, SWITCH_LOG_INFO, "The far end turns to fax (T.38)");
  AskPartner([attributes = image.fax_attributes](Renegotiation& partner) { partner.OfferImage(attributes); });
}

void Renegotiation::AskPartner(Task offer) {
  if (!leg_.tell_partner(std::move(offer))) PartnerRefused(kNotAcceptable);
}

void Renegotiation::OfferImage(const std::vector<std::string>& attributes) {
  int obstacle = 0;
  if (agreed_.secure_only) obstacle = kNotAcceptable;
  if (step_ != Step::kIdle) obstacle = kRequestPending;
  if (obstacle != 0) {
    leg_.tell_partner([obstacle](Renegotiation& partner) { partner.PartnerRefused(obstacle); });
    return;
  }
  if (!leg_.media->GetLocalImage(SWITCH_SDP_COMPLETED, local_media_)) {
    return BreakOff("The media server has no image stream to offer");
  }
  to_fax_ = true;
  Offer(ImageDescription(local_media_, attributes));
}

void Renegotiation::OfferAudio() {
  if (step_ != Step::kIdle) {
    leg_.tell_partner([](Renegotiation& partner) { partner.PartnerRefused(kRequestPending); });
    return;
  }
  if (!leg_.media->GetLocalForOffer({agreed_.codec.implementation}, agreed_, local_media_)) {
    return BreakOff("The media server has no audio stream to offer");
  }
  to_fax_ = false;
  LocalDescription local = AudioDescription(local_media_);
  local.direction = held_ ? MediaDirection::kSendOnly : MediaDirection::kSendReceive;
  Offer(local);
}

void Renegotiation::Offer(const LocalDescription& local) {
  step_ = Step::kWeAsk;
  local_ = local;
  leg_.dialog->Reinvite(BuildAnswer(local_, remote_, stream_));
}

void Renegotiation::OnAnswer(const std::string& sdp) {
  if (step_ != Step::kWeAsk && step_ != Step::kWeHold) return;
  std::string error;
  std::optional<SessionDescription> answer = ParseSdp(sdp, error);
  if (!answer) return BreakOff("The answer to our re-INVITE cannot be read: " + error);
  if (stream_ >= answer->media.size() || answer->media[stream_].port == 0) {
    if (to_fax_) {
      OnRefusal(kNotAcceptable);
      // Its 200 has left the call without a stream.
      return OfferAudio();
    }
    return BreakOff("The answer to our re-INVITE refuses the audio stream");
  }
  if (step_ == Step::kWeHold) {
    OnHoldAnswer(*answer);
  } else if (to_fax_) {
    OnImageAnswer(*answer);
  } else {
    OnAudioAnswer(*answer);
  }
}

void Renegotiation::OnImageAnswer(const SessionDescription& answer) {
  const SdpMedia& image = answer.media[stream_];
  if (!image.IsFaxImage()) return BreakOff("Our offer of fax was answered with " + image.kind);
  if (!leg_.media->SetRemoteImage(SWITCH_SDP_ANSWER_RECEIVED, image, answer.session_name)) {
    return BreakOff("The media server refused the image stream of the answer");
  }
  step_ = Step::kIdle;
  fax_ = true;
  remote_ = answer;
  LegLog(leg_.session, SWITCH_LOG_NOTICE,
         "Fax (T.38) passes between " + image.address + ":" + std::to_string(image.port) + " and the other leg");
  if (!leg_.tell_partner(
          [attributes = image.fax_attributes](Renegotiation& partner) { partner.PartnerAgreed(attributes); })) {
    BreakOff("The leg that wanted to fax has left");
  }
}

void Renegotiation::OnAudioAnswer(const SessionDescription& answer) {
  const std::string problem = TakeAudioAnswer(answer);
  if (!problem.empty()) return BreakOff("The answer to our re-INVITE cannot be taken: " + problem);
  step_ = Step::kIdle;
  fax_ = false;
  leg_.tell_partner([direction = audio_.direction](Renegotiation& partner) {
    partner.set_partner_direction(direction);
    partner.PartnerAgreed({});
  });
}

void Renegotiation::OnRefusal(int status) {
  if (step_ == Step::kWeHold) {
    step_ = Step::kIdle;
    held_ = !held_;
    LegLog(
        leg_.session, SWITCH_LOG_WARNING,
        "The far end refused to be " + std::string(held_ ? "taken back" : "held") + " with " + std::to_string(status));
    return;
  }
  if (step_ != Step::kWeAsk) return;
  step_ = Step::kIdle;
  if (!to_fax_) return BreakOff("The way back from fax was refused with " + std::to_string(status));
  LegLog(leg_.session, SWITCH_LOG_INFO, "Fax was refused with " + std::to_string(status));
  RestoreAudio();
  leg_.tell_partner([status](Renegotiation& partner) { partner.PartnerRefused(status); });
}

void Renegotiation::PartnerAgreed(const std::vector<std::string>& attributes) {
  if (step_ != Step::kPartnerAsks) return;
  if (!to_fax_) return AnswerAudio();
  step_ = Step::kIdle;
  fax_ = true;
  remote_ = std::move(offer_);
  stream_ = offer_stream_;
  local_ = ImageDescription(local_media_, attributes);
  leg_.dialog->AnswerReinvite(BuildAnswer(local_, remote_, stream_));
}

void Renegotiation::PartnerRefused(int status) {
  if (step_ != Step::kPartnerAsks) return;
  if (!to_fax_) return BreakOff("The other leg does not come back from fax");
  step_ = Step::kIdle;
  RestoreAudio();
  Refuse(status == kRequestPending ? kRequestPending : kNotAcceptable, "the other side takes no fax");
  DirectionChanged();
}

/// The audio that the call had, told to the media server again.
void Renegotiation::RestoreAudio() {
  LocalMedia local;
  if (!leg_.media->SetRemote(SWITCH_SDP_OFFER_RECEIVED, audio_, remote_.session_name, agreed_) ||
      !leg_.media->GetLocalForAnswer(agreed_, local)) {
    return BreakOff("The media server did not go back to audio");
  }
  if (!local_.fax) return;
  local_ = AudioDescription(local);
  local_.direction = held_ ? MediaDirection::kSendOnly : Reversed(audio_.direction);
}

void Renegotiation::PartnerGone() {
  if (step_ != Step::kPartnerAsks) return;
  if (to_fax_) {
    PartnerRefused(kRequestPending);
  } else {
    AnswerAudio();
  }
}

}  // namespace kvx_switch
