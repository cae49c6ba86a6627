#include "sip/calling_leg.h"

#include <strings.h>

#include <algorithm>
#include <utility>

#include "sip/leg_helpers.h"
#include "sip/sip_cause.h"

namespace kvx_switch {

CallingLeg::CallingLeg(InboundInvite invite, std::shared_ptr<SipDialog> dialog,
                       std::shared_ptr<const Dialplan> dialplan)
    : invite_(std::move(invite)),
      dialog_(std::move(dialog)),
      dialplan_(std::move(dialplan)),
      profile_(dialog_->agent()->profile()) {}

SipDialog::Sink CallingLeg::EventSink(const std::string& uuid, const std::shared_ptr<CallingLeg>& leg) {
  std::weak_ptr<CallingLeg> weak = leg;
  return [uuid, weak](const DialogEvent& event) {
    PostToSession(uuid, [weak, event] {
      if (std::shared_ptr<CallingLeg> self = weak.lock()) self->OnDialogEvent(event);
    });
  };
}

void CallingLeg::Run(switch_core_session_t* session) {
  session_ = session;
  channel_ = switch_core_session_get_channel(session);
  const Reachable reachable(session, this);
  media_ = std::make_unique<LegMedia>(session, profile_.media);
  LegLog(session_, SWITCH_LOG_NOTICE,
         "Incoming call from " + invite_.from_user + " at " + invite_.network_address + ":" +
             std::to_string(invite_.network_port) + " to " + invite_.request_user + ", call-id " + invite_.call_id);
  switch_channel_set_state(channel_, CS_ROUTING);
  RunGuarded(session_, [this] {
    if (ReadOffer()) {
      if (invite_.replaces) {
        TakeThePlace();
      } else {
        RunFrom({invite_.request_user, profile_.context, {}});
      }
    }
    GoOn();
  });
  Finish();
}

std::string CallingLeg::Variable(const std::string& name) const {
  return LegVariable(channel_, name);
}

void CallingLeg::Fail(switch_call_cause_t cause, int status, const std::string& warning, const std::string& log) {
  if (switch_channel_down(channel_)) return;
  if (!log.empty()) LegLog(session_, SWITCH_LOG_ERROR, log);
  fail_cause_ = cause;
  fail_status_ = status;
  fail_warning_ = warning;
  move_failed_ = move_.has_value();
  if (move_failed_) return;  // the leg may have somewhere to go back to
  switch_channel_hangup(channel_, cause);
}

bool CallingLeg::ReadOffer() {
  const std::string call = " (call-id " + invite_.call_id + ")";
  if (invite_.max_forwards == 0) {
    Fail(SWITCH_CAUSE_EXCHANGE_ROUTING_ERROR, 483, "", "INVITE with Max-Forwards 0 refused" + call);
    return false;
  }
  if (invite_.body.empty()) return PrepareOwnOffer();
  if (strcasecmp(invite_.content_type.c_str(), "application/sdp") != 0) {
    Fail(SWITCH_CAUSE_SERVICE_NOT_IMPLEMENTED, 415, "application/sdp is needed",
         "INVITE with a body of type \"" + invite_.content_type + "\" refused with 415" + call);
    return false;
  }
  std::string error;
  std::optional<SessionDescription> offer = ParseSdp(invite_.body, error);
  if (!offer) {
    Fail(SWITCH_CAUSE_PROTOCOL_ERROR, 400, "the SDP cannot be read", "INVITE with malformed SDP, " + error + call);
    return false;
  }
  offer_ = std::move(*offer);
  return ChooseStream();
}

/// The first audio stream of the offer with a codec that we have.
bool CallingLeg::ChooseStream() {
  const std::string call = " (call-id " + invite_.call_id + ")";
  const CodecImplementations codecs = PreferredCodecs(RegisteredCodecs(), profile_.codec_prefs);
  if (codecs.empty()) {
    Fail(SWITCH_CAUSE_NORMAL_TEMPORARY_FAILURE, 503, "",
         "No codec is registered: no media server module is loaded, or \"codec-prefs\" of " + profile_.file +
             " names none of its codecs" + call);
    return false;
  }
  std::string offered;
  StreamSecurity security;
  for (stream_ = 0; stream_ < offer_.media.size() && common_.empty(); ++stream_) {
    const SdpMedia& stream = offer_.media[stream_];
    const bool audio = stream.IsRtpAudio() && stream.port != 0;
    security = audio ? SecurityOfOffer(stream, profile_.media.security) : StreamSecurity{};
    const bool usable = audio && security.problem.empty();
    if (usable) common_ = CommonCodecs(stream, codecs);
    if (!profile_.media.g729_annex_b) RefuseAnnexB(common_);
    offered += (offered.empty() ? "" : "; ") + (usable ? CodecNames(stream) : stream.kind + " over " + stream.protocol);
    if (!security.problem.empty()) offered += " (" + security.problem + ")";
  }
  if (common_.empty()) {
    Fail(SWITCH_CAUSE_INCOMPATIBLE_DESTINATION, 488, "no common codec",
         "No common codec: offered are " + offered + "; supported are " + CodecNames(codecs) + call);
    return false;
  }
  --stream_;  // the loop has stepped over it
  agreed_.codec = common_.front();
  agreed_.remote_key = std::move(security.remote);
  agreed_.secure_only = agreed_.remote_key.has_value();
  if (agreed_.secure_only) agreed_.local_key = MakeSrtpKey(agreed_.remote_key->suite, agreed_.remote_key->tag);
  AgreeOnTelephoneEvents(offer_.media[stream_], profile_.media.telephone_events, agreed_);
  return true;
}

bool CallingLeg::Set(const std::string& data, const char* application) {
  size_t equals = data.find('=');
  if (equals == 0 || equals == std::string::npos) {
    LegLog(session_, SWITCH_LOG_ERROR, application + (": \"" + data) + "\" is not name=value");
    return false;
  }
  switch_channel_set_variable(channel_, data.substr(0, equals).c_str(), data.substr(equals + 1).c_str());
  return true;
}

/// A variable of this leg and of those that it calls. "export_vars" lists the names.
void CallingLeg::Export(const std::string& data) {
  if (!Set(data, "export")) return;
  const std::string listed = Variable(kExportVariable);
  const std::string name = data.substr(0, data.find('='));
  switch_channel_set_variable(channel_, kExportVariable, (listed.empty() ? name : listed + "," + name).c_str());
}

void CallingLeg::Log(const std::string& data) {
  size_t blank = data.find(' ');
  switch_log_level_t level = switch_log_str2level(data.substr(0, blank).c_str());
  bool named = level != SWITCH_LOG_INVALID && blank != std::string::npos;
  LegLog(session_, named ? level : SWITCH_LOG_INFO, named ? data.substr(blank + 1) : data);
}

void CallingLeg::HangUp(const std::string& data) {
  switch_call_cause_t cause = data.empty() ? SWITCH_CAUSE_NORMAL_CLEARING : switch_channel_str2cause(data.c_str());
  Fail(cause, 0, "", "");
}

bool CallingLeg::EnsureMedia() {
  if (media_->created()) return true;
  switch (media_->Create(LegMedia::NewCall::kYes)) {
    case LegMedia::Start::kUnavailable:
      Fail(SWITCH_CAUSE_NORMAL_TEMPORARY_FAILURE, 503, "", "Call refused with 503: no media server is available");
      return false;
    case LegMedia::Start::kFailed:
      Fail(SWITCH_CAUSE_NORMAL_TEMPORARY_FAILURE, 503, "", "Call refused with 503: no media for the leg");
      return false;
    case LegMedia::Start::kStarted:
      break;
  }
  if (we_offer_) return true;
  if (media_->SetRemote(SWITCH_SDP_OFFER_RECEIVED, offer_.media[stream_], offer_.session_name, agreed_)) return true;
  OfferNotTaken();
  return false;
}

/// Media servers have addresses of one family, as a rule that of the profile (RFC 3261, 21.4.26).
void CallingLeg::OfferNotTaken() {
  const SdpMedia& stream = offer_.media[stream_];
  if (!IsOfOtherFamily(stream, profile_.sip_address)) {
    return Fail(SWITCH_CAUSE_NORMAL_TEMPORARY_FAILURE, 503, "", "The offer could not be given to the media server");
  }
  const std::string why = "the media server takes no media at " + stream.address;
  Fail(SWITCH_CAUSE_INCOMPATIBLE_DESTINATION, 488, why,
       "Call refused with 488: " + why + " (call-id " + invite_.call_id + ")");
}

/// What the caller is told of its stream: once, since a provisional response and the answer have to say the same.
bool CallingLeg::DescribeToCaller() {
  if (!told_.empty()) return true;
  if (we_offer_) return OfferToCaller();
  LocalMedia local;
  if (!media_->GetLocalForAnswer(agreed_, local)) {
    Fail(SWITCH_CAUSE_NORMAL_TEMPORARY_FAILURE, 503, "", "The media server has no answer to the offer");
    return false;
  }
  LocalDescription description;
  description.payloads.push_back(AnsweredPayload(agreed_.codec));
  if (agreed_.HasTelephoneEvents()) {
    description.payloads.push_back(TelephoneEventPayload(agreed_.telephone_event_type, agreed_.telephone_event_rate));
  }
  description.direction = Reversed(offer_.media[stream_].direction);
  description.protocol = offer_.media[stream_].protocol;
  if (agreed_.local_key) description.crypto = CryptoText(*agreed_.local_key);
  FillLocalDescription(session_, local, agreed_.codec.PacketTime(), description);
  told_ = BuildAnswer(description, offer_, stream_);
  StartRenegotiation(std::move(description));
  media_->MarkStart();
  return true;
}

bool CallingLeg::AnswerCaller() {
  if (answered_) return true;
  if (!DescribeToCaller()) return false;
  dialog_->Answer(told_);
  if (we_offer_ && !AwaitCallersAnswer()) return false;
  answered_ = true;
  answered_at_ = std::chrono::steady_clock::now();
  media_->MarkStart();
  switch_channel_mark_answered(channel_);
  renegotiation_->Begin();
  LogAnswered(session_, agreed_);
  return true;
}

void CallingLeg::OnDialogEvent(const DialogEvent& event) {
  if (finished_) return;
  switch (event.kind) {
    case DialogEvent::Kind::kReinvite:
      renegotiation_ ? renegotiation_->OnOffer(event.sdp) : dialog_->RefuseReinvite(491, "the call is being set up");
      return;
    case DialogEvent::Kind::kReinviteAnswered:
      if (renegotiation_) renegotiation_->OnAnswer(event.sdp);
      return;
    case DialogEvent::Kind::kReinviteRefused:
      if (renegotiation_) renegotiation_->OnRefusal(event.status);
      return;
    case DialogEvent::Kind::kAcknowledged:
      if (renegotiation_) {
        renegotiation_->OnLateAnswer(event.sdp);
      } else {
        callers_answer_ = event.sdp;
      }
      return;
    case DialogEvent::Kind::kRefer:
      return OnRefer(*event.refer);
    default:
      break;
  }
  ended_by_ = event.kind == DialogEvent::Kind::kLost ? "the SIP stack (" + event.phrase + ")"
              : invite_.call_id.empty()              ? "the far end"
                                                     : "the calling side";
  if (event.kind == DialogEvent::Kind::kCancelled) LegLog(session_, SWITCH_LOG_INFO, "Cancelled by the calling side");
  switch_channel_hangup(channel_, event.cause);
}

void CallingLeg::StartRenegotiation(LocalDescription description) {
  Renegotiation::Leg leg{session_, dialog_.get(), &*media_, &profile_, nullptr, nullptr, nullptr};
  renegotiation_.emplace(std::move(leg), offer_, stream_, agreed_, std::move(description));
  Wire();
  if (called_ && called_->answer) renegotiation_->set_partner_direction(called_->answer->direction);
}

/// The bridge to a direction; nothing before there is one, which then begins with that direction.
bool CallingLeg::Turn(RTPDirection direction) {
  // A called leg that has just been hung up is on its way to say so.
  if (!media_->bridged() || !CalledLegIsUp()) return true;
  return media_->Bridge(direction);
}

/// Ends the called leg, if there is one, and lets it have its media to itself again.
void CallingLeg::LetCalledLegGo(switch_call_cause_t cause) {
  if (!called_) return;
  const bool was_bridged = media_->bridged();
  HangUpLeg(called_->uuid, cause);
  media_->Unbridge();
  Release(called_->uuid, ended_by_);
  if (was_bridged) FireBridgeEvent(session_, SWITCH_EVENT_CHANNEL_UNBRIDGE, called_->uuid);
}

void CallingLeg::Finish() {
  finished_ = true;
  switch_call_cause_t cause = switch_channel_get_cause(channel_);
  bool ours = cause == fail_cause_ && fail_status_ != 0;
  dialog_->End(cause, ours ? fail_status_ : StatusOfCause(cause), ours ? fail_warning_ : "");
  LetCalledLegGo(cause);
  EndAsPartner(cause);
  when_alone_ = nullptr;
  move_.reset();
  next_.reset();
  if (given_) GiveBack(*given_, 487);
  given_.reset();
  media_.reset();
  LogHungUp(session_, ended_by_, answered_, answered_at_);
}

}  // namespace kvx_switch
