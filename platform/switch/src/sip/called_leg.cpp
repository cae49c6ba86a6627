#include "sip/called_leg.h"

#include <algorithm>
#include <set>
#include <utility>

#include "sip/calling_leg.h"
#include "sip/leg_helpers.h"

namespace kvx_switch {

namespace {

// How long the calling leg may take to undo the bridge before this leg's media goes anyway. More than a request to a
// media server may take.
constexpr std::chrono::seconds kReleasePatience{10};

// Phones whose early media is looked at; a number rings rarely on more.
constexpr size_t kMostForks = 16;

/// The codecs of the offer with one payload type each: two that share one cannot be told apart.
std::vector<CodecMatch> Distinct(const std::vector<CodecMatch>& offered) {
  std::vector<CodecMatch> distinct;
  std::set<uint8_t> types;
  for (const CodecMatch& match : offered) {
    if (types.insert(match.implementation->ianacode).second) distinct.push_back(match);
  }
  return distinct;
}

}  // namespace

CalledLegReport Turned(MediaDirection direction) {
  CalledLegReport report{};
  report.kind = CalledLegReport::Kind::kTurned;
  report.direction = direction;
  return report;
}

void CalledLeg::OnReleased(const std::string& ended_by) {
  if (continuation_) return continuation_->OnReleased(ended_by);
  released_ = true;
  if (ended_by_.empty()) ended_by_ = ended_by;
}

void CalledLeg::OnPartnerTask(const Renegotiation::Task& task) {
  if (continuation_) return continuation_->OnPartnerTask(task);
  if (renegotiation_ && switch_channel_up(channel_)) task(*renegotiation_);
}

void CalledLeg::Run(switch_core_session_t* session) {
  session_ = session;
  channel_ = switch_core_session_get_channel(session);
  const Reachable reachable(session, this);
  switch_channel_set_state(channel_, CS_ROUTING);
  media_ = std::make_unique<LegMedia>(session, request_.agent->profile().media);
  RunGuarded(session_, [this] {
    if (!SendInvite()) return;
    WaitForAnswer();
    while (switch_channel_up(channel_) && !continuation_) {
      ServeUntil(session_, std::chrono::steady_clock::time_point::max(), [this] { return continuation_ != nullptr; });
    }
  });
  if (continuation_) {
    continuation_->Continue();
  } else {
    Finish();
  }
}

/// The profile's, unless the leg's variable says otherwise.
SecurityWish CalledLeg::Security() const {
  SecurityWish wish = request_.agent->profile().media.security;
  const std::string name = LegVariable(channel_, "rtp_secure_media");
  if (name.empty()) return wish;
  if (const std::optional<SecureMedia> wanted = SecureMediaOfName(name)) {
    wish.wanted = *wanted;
  } else {
    LegLog(session_, SWITCH_LOG_WARNING,
           "rtp_secure_media is \"" + name + "\", not \"off\", \"optional\" or \"mandatory\"; ignored");
  }
  return wish;
}

void CalledLeg::WishForSecurity(LocalDescription& description) {
  const SecurityWish wish = Security();
  if (wish.wanted == SecureMedia::kOff) return;
  wished_.secure_only = wish.wanted == SecureMedia::kMandatory;
  wished_.local_key = MakeSrtpKey(wish.suites.front(), "1");
  description.crypto = CryptoText(*wished_.local_key);
  if (wished_.secure_only) description.protocol = "RTP/SAVP";
}

/// The offer's text: the calling side's codecs with our payload types, at the address where the media server waits.
bool CalledLeg::MakeOffer(std::string& offer) {
  const std::vector<CodecMatch> offered = Distinct(request_.offered);
  LocalDescription& description = local_;
  CodecImplementations codecs;
  for (const CodecMatch& match : offered) {
    codecs.push_back(match.implementation);
    description.payloads.push_back(OfferedPayload(match));
  }
  if (request_.telephone_events) {
    wished_.telephone_event_type =
        FreePayloadType(request_.agent->profile().media.telephone_event_type, description.payloads);
    description.payloads.push_back(
        TelephoneEventPayload(wished_.telephone_event_type, codecs.front()->samples_per_second));
  }
  WishForSecurity(description);
  LocalMedia local;
  if (!media_->GetLocalForOffer(codecs, wished_, local)) return false;
  offered_packet_time_ = offered.front().PacketTime();
  FillLocalDescription(session_, local, offered_packet_time_, description);
  offer = BuildOffer(description);
  LegLog(session_, SWITCH_LOG_INFO,
         "Calling " + request_.target + " from " + request_.from_user + ", offering " + CodecNames(codecs) +
             ", at most " + std::to_string(request_.timeout.count()) + " s");
  return true;
}

bool CalledLeg::SendInvite() {
  if (switch_channel_down(channel_)) return false;
  std::string offer;
  const LegMedia::NewCall new_call = request_.caller.empty() ? LegMedia::NewCall::kYes : LegMedia::NewCall::kNo;
  if (media_->Create(new_call) != LegMedia::Start::kStarted || !MakeOffer(offer)) {
    switch_channel_hangup(channel_, SWITCH_CAUSE_NORMAL_TEMPORARY_FAILURE);
    return false;
  }
  std::string uuid = switch_core_session_get_uuid(session_);
  std::weak_ptr<CalledLeg> weak = weak_from_this();
  dialog_ = std::make_shared<SipDialog>(request_.agent, uuid, [uuid, weak](const DialogEvent& event) {
    PostToSession(uuid, [weak, event] {
      if (std::shared_ptr<CalledLeg> self = weak.lock()) self->OnDialogEvent(event);
    });
  });
  dialog_->Invite(
      {request_.target, request_.from_name, request_.from_user, offer, request_.max_forwards, request_.referred_by});
  switch_channel_set_callstate(channel_, CCS_DIALING);
  return true;
}

void CalledLeg::WaitForAnswer() {
  ServeUntil(session_, std::chrono::steady_clock::now() + request_.timeout, [this] { return answered_; });
  if (answered_ || switch_channel_down(channel_)) return;
  LegLog(session_, SWITCH_LOG_INFO, "No answer within " + std::to_string(request_.timeout.count()) + " s");
  switch_channel_hangup(channel_, SWITCH_CAUSE_NO_ANSWER);
}

/// Once the caller has been told a codec, another phone's early media is of use only in that codec.
bool CalledLeg::FollowsEarlyMedia(const AgreedMedia& agreed) const {
  return early_sdp_.empty() || (agreed.codec.implementation == early_agreed_.codec.implementation &&
                                agreed.codec.remote.type == early_agreed_.codec.remote.type);
}

/// What the called side plays before it answers, an announcement for one, belongs to the call: the description counts
/// as the answer (RFC 3960, 3.2). Of several phones that the INVITE reached, the one that began last is heard.
bool CalledLeg::TakeEarlyMedia(const DialogEvent& event, CalledLegReport& report) {
  if (event.sdp.empty() || early_answers_.size() == kMostForks) return false;
  if (!early_answers_.emplace(event.fork, event.sdp).second) return false;
  SessionDescription answer;
  if (!AgreeOn(event.sdp, answer, report) || !FollowsEarlyMedia(report.agreed)) return false;
  if (!media_->SetRemote(SWITCH_SDP_ANSWER_RECEIVED, answer.media.front(), answer.session_name, report.agreed)) {
    switch_channel_hangup(channel_, SWITCH_CAUSE_NORMAL_TEMPORARY_FAILURE);
    return false;
  }
  answer_ = std::move(answer);
  early_agreed_ = report.agreed;
  early_sdp_ = event.sdp;
  media_->MarkStart();
  return true;
}

void CalledLeg::OnProgress(const DialogEvent& event) {
  if (switch_channel_down(channel_)) return;
  CalledLegReport report{};
  report.kind = CalledLegReport::Kind::kProgress;
  report.status = event.status;
  report.early_media = TakeEarlyMedia(event, report);
  LegLog(session_, SWITCH_LOG_INFO,
         "Ringing (" + std::to_string(event.status) + " " + event.phrase + ")" +
             (report.early_media ? ", with early media" : ""));
  if (event.status == 180) switch_channel_mark_ring_ready(channel_);
  if (report.early_media) switch_channel_mark_pre_answered(channel_);
  request_.report(report);
}

void CalledLeg::OnDialogEvent(const DialogEvent& event) {
  if (continuation_) return continuation_->OnDialogEvent(event);
  if (finished_) return;
  switch (event.kind) {
    case DialogEvent::Kind::kProgress:
      OnProgress(event);
      break;
    case DialogEvent::Kind::kAnswered:
      if (switch_channel_up(channel_)) OnAnswered(event);
      break;
    case DialogEvent::Kind::kReinvite:
      renegotiation_ ? renegotiation_->OnOffer(event.sdp) : dialog_->RefuseReinvite(491, "the call is being set up");
      break;
    case DialogEvent::Kind::kReinviteAnswered:
      if (renegotiation_) renegotiation_->OnAnswer(event.sdp);
      break;
    case DialogEvent::Kind::kReinviteRefused:
      if (renegotiation_) renegotiation_->OnRefusal(event.status);
      break;
    case DialogEvent::Kind::kAcknowledged:
      if (renegotiation_) renegotiation_->OnLateAnswer(event.sdp);
      break;
    case DialogEvent::Kind::kRefer:
      if (CallingLeg* leg = Movable()) {
        leg->OnDialogEvent(event);
      } else {
        dialog_->NotifyReferrer(event.refer->id, 491);
      }
      break;
    case DialogEvent::Kind::kRefused:
      refused_status_ = event.status;
      LegLog(session_, SWITCH_LOG_INFO, "Refused: " + std::to_string(event.status) + " " + event.phrase);
      ended_by_ = "the called side";
      switch_channel_hangup(channel_, event.cause);
      break;
    case DialogEvent::Kind::kUnreachable:
      LegLog(session_, SWITCH_LOG_WARNING, "Cannot reach " + request_.target + ": " + event.phrase);
      reached_ = false;
      switch_channel_hangup(channel_, event.cause);
      break;
    default:
      ended_by_ = event.kind == DialogEvent::Kind::kLost ? "the SIP stack (" + event.phrase + ")" : "the called side";
      switch_channel_hangup(channel_, event.cause);
      break;
  }
}

/// What the answer takes of our offer; false, with the reason logged, when that is nothing we can work with.
bool CalledLeg::AgreeOn(const std::string& sdp, SessionDescription& answer, CalledLegReport& report) {
  std::string error;
  std::optional<SessionDescription> parsed = ParseSdp(sdp, error);
  if (!parsed) {
    LegLog(session_, SWITCH_LOG_ERROR, "The answer's session description cannot be read: " + error);
    return false;
  }
  answer = std::move(*parsed);
  SdpMedia& stream = answer.media.front();
  report.direction = stream.direction;
  if (!stream.IsRtpAudio() || stream.port == 0) {
    LegLog(session_, SWITCH_LOG_ERROR, "The answer refuses the audio stream");
    return false;
  }
  StreamSecurity security = SecurityOfAnswer(stream, wished_.secure_only ? "RTP/SAVP" : "RTP/AVP",
                                             wished_.local_key ? &*wished_.local_key : nullptr);
  if (!security.problem.empty()) {
    LegLog(session_, SWITCH_LOG_ERROR, "The answer's audio stream cannot be taken: " + security.problem);
    return false;
  }
  report.agreed.secure_only = security.remote.has_value();
  report.agreed.local_key = wished_.local_key;
  report.agreed.remote_key = std::move(security.remote);
  if (stream.packet_time == 0) stream.packet_time = offered_packet_time_;
  return AgreeOnCodec(stream, report);
}

bool CalledLeg::AgreeOnCodec(const SdpMedia& stream, CalledLegReport& report) {
  const SipProfile& profile = request_.agent->profile();
  CodecImplementations candidates;
  for (const switch_codec_implementation_t* codec : PreferredCodecs(RegisteredCodecs(), profile.codec_prefs)) {
    auto same = [codec](const CodecMatch& match) { return SameCodec(*match.implementation, *codec); };
    if (std::any_of(request_.offered.begin(), request_.offered.end(), same)) candidates.push_back(codec);
  }
  std::vector<CodecMatch> common = CommonCodecs(stream, candidates);
  if (common.empty()) {
    LegLog(session_, SWITCH_LOG_ERROR,
           "The answer takes none of the offered codecs: it names " + CodecNames(stream) + ", offered were " +
               CodecNames(candidates));
    return false;
  }
  // Of two ways of packing one codec, the one that was offered: the calling side has no other.
  const auto as_offered = std::find_if(common.begin(), common.end(), [this](const CodecMatch& match) {
    const auto same = [&match](const CodecMatch& offered) { return CodecsGoTogether(offered, match); };
    return std::any_of(request_.offered.begin(), request_.offered.end(), same);
  });
  const CodecMatch& taken = as_offered == common.end() ? common.front() : *as_offered;
  report.agreed.codec = taken;
  report.offered_index = OfferedIndex(taken);
  // Our no counts as much as theirs.
  if (RefusesSilenceFrames(request_.offered[report.offered_index].remote)) {
    RefuseSilenceFrames(report.agreed.codec.remote);
  }
  AgreeOnTelephoneEvents(stream, request_.telephone_events, report.agreed);
  if (taken.remote.type != taken.implementation->ianacode) {
    LegLog(session_, SWITCH_LOG_WARNING,
           "The answer gives " + taken.remote.name + " payload type " + std::to_string(taken.remote.type) + " where " +
               std::to_string(taken.implementation->ianacode) + " was offered; the offered one is sent");
  }
  return true;
}

/// Which codec of the offer the answer's `taken` stands for. Names may repeat (two bit rates of one codec); the payload
/// type tells them apart, unless the answer changed it.
size_t CalledLeg::OfferedIndex(const CodecMatch& taken) const {
  size_t index = 0;
  bool found = false;
  for (size_t i = 0; i < request_.offered.size(); ++i) {
    const switch_codec_implementation_t& offered = *request_.offered[i].implementation;
    if (!SameCodec(offered, *taken.implementation)) continue;
    if (offered.ianacode == taken.remote.type) return i;
    if (!std::exchange(found, true)) index = i;
  }
  return index;
}

/// The answer, unless early media brought it already: an answer without a description stands for the one that its own
/// fork gave before. False when the leg cannot go on; it is hung up then.
bool CalledLeg::TakeAnswer(const DialogEvent& event, CalledLegReport& report) {
  const std::string sdp = event.sdp.empty() ? early_answers_[event.fork] : event.sdp;
  if (!AgreeOn(sdp, answer_, report)) {
    switch_channel_hangup(channel_, SWITCH_CAUSE_INCOMPATIBLE_DESTINATION);
    return false;
  }
  if (sdp == early_sdp_ ||
      media_->SetRemote(SWITCH_SDP_ANSWER_RECEIVED, answer_.media.front(), answer_.session_name, report.agreed)) {
    return true;
  }
  const bool other_family = IsOfOtherFamily(answer_.media.front(), local_.address);
  switch_channel_hangup(channel_,
                        other_family ? SWITCH_CAUSE_INCOMPATIBLE_DESTINATION : SWITCH_CAUSE_NORMAL_TEMPORARY_FAILURE);
  return false;
}

void CalledLeg::OnAnswered(const DialogEvent& event) {
  CalledLegReport report{};
  report.kind = CalledLegReport::Kind::kAnswered;
  answered_at_ = std::chrono::steady_clock::now();
  if (!TakeAnswer(event, report)) return;
  answered_ = true;
  switch_channel_set_state(channel_, CS_EXCHANGE_MEDIA);
  media_->MarkStart();
  switch_channel_mark_answered(channel_);
  LogAnswered(session_, report.agreed);
  StartRenegotiation(report);
  renegotiation_->Begin();
  request_.report(report);
  if (!request_.answered) return;
  // It may have been hung up meanwhile, by an operator for one.
  if (CallingLeg* leg = Movable()) leg->SendTo(*request_.answered);
}

void CalledLeg::StartRenegotiation(const CalledLegReport& report) {
  const auto turned = [this](MediaDirection direction) { request_.report(Turned(direction)); };
  Renegotiation::Leg leg{session_, dialog_.get(), &*media_, &request_.agent->profile(), request_.tell_caller,
                         turned,   nullptr};
  renegotiation_.emplace(std::move(leg), answer_, 0, report.agreed, local_);
}

void CalledLeg::Finish() {
  finished_ = true;
  switch_call_cause_t cause = switch_channel_get_cause(channel_);
  if (dialog_) dialog_->End(cause, 0, "");
  CalledLegReport report{};
  report.kind = CalledLegReport::Kind::kEnded;
  report.cause = cause;
  report.status = refused_status_;
  report.by_far_end = reached_ && !ended_by_.empty();
  request_.report(report);
  if ((answered_ || !early_sdp_.empty()) &&
      !ServeAfterHangup(session_, std::chrono::steady_clock::now() + kReleasePatience, [this] { return released_; })) {
    LegLog(session_, SWITCH_LOG_WARNING, "The calling leg did not undo the bridge in time");
  }
  DrainTasks(session_);
  media_.reset();
  LogHungUp(session_, ended_by_.empty() ? "the switch" : ended_by_, answered_, answered_at_);
}

}  // namespace kvx_switch
