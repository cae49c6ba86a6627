// Legs that part and are joined anew: what every kind of transfer is made of.
#include <utility>

#include "sip/calling_leg.h"
#include "sip/leg_helpers.h"
#include "sip/sip_cause.h"

namespace kvx_switch {

namespace {

using std::chrono::steady_clock;

// For another leg's thread to answer. Far more than it takes.
constexpr std::chrono::seconds kPartnerPatience{5};
// How long the leg that bridges may take to undo the bridge before this leg's media goes anyway.
constexpr std::chrono::seconds kReleasePatience{10};

// The media server refuses to move a leg while something else is done in its media session, such as destroying the leg
// that it has just left; that is over in no time.
constexpr int kJoinAttempts = 4;
constexpr std::chrono::milliseconds kJoinPause{50};

/// Asks a leg to take `driver`; the driver is told when it does not, also when that leg ends without a look at it.
class JoinRequest {
 public:
  JoinRequest(std::string driver, std::string call, std::string leg)
      : driver_(std::move(driver)), call_(std::move(call)), leg_(std::move(leg)) {}
  ~JoinRequest() {
    if (taken_) return;
    CalledLegReport report{};
    report.kind = CalledLegReport::Kind::kEnded;
    report.cause = SWITCH_CAUSE_NORMAL_TEMPORARY_FAILURE;
    CallLeg::Post(driver_, [leg = leg_, report](CallLeg& driver) { driver.OnPartnerReport(leg, report); });
  }
  JoinRequest(const JoinRequest&) = delete;
  JoinRequest& operator=(const JoinRequest&) = delete;

  void PutTo(CallLeg& leg) {
    CallingLeg* partner = leg.Movable();
    taken_ = partner && partner->TakeDriver(driver_, call_);
  }

 private:
  const std::string driver_;
  const std::string call_;
  const std::string leg_;
  bool taken_ = false;
};

/// Tells a leg that it is alone. The one that has parted from it because it was asked to is hung up when that leg ends
/// without a look at this: nobody else would find it a new partner.
class PartingNotice {
 public:
  PartingNotice(std::string driver, Parting parting) : driver_(std::move(driver)), parting_(parting) {}
  ~PartingNotice() {
    if (parting_ == Parting::kWished && !read_) HangUpLeg(driver_, SWITCH_CAUSE_NORMAL_CLEARING);
  }
  PartingNotice(const PartingNotice&) = delete;
  PartingNotice& operator=(const PartingNotice&) = delete;

  void ReadTo(CallLeg& leg) {
    read_ = true;
    leg.OnLeftAlone(driver_, parting_);
  }

 private:
  const std::string driver_;
  const Parting parting_;
  bool read_ = false;
};

}  // namespace

CallingLeg::CallingLeg(AnsweredLeg leg)
    : invite_(std::move(leg.identity)),
      dialog_(std::move(leg.dialog)),
      dialplan_(std::move(leg.dialplan)),
      profile_(dialog_->agent()->profile()),
      session_(leg.session),
      channel_(switch_core_session_get_channel(leg.session)),
      media_(std::move(leg.media)),
      offer_(std::move(leg.far_end)),
      common_{leg.renegotiation->agreed().codec},
      agreed_(leg.renegotiation->agreed()),
      told_(std::move(leg.description)),
      answered_(true),
      renegotiation_(std::move(leg.renegotiation)),
      answered_at_(leg.answered_at),
      driver_(std::move(leg.driver)),
      settled_(true) {
  Wire();
}

void CallingLeg::Continue() {
  CallerData caller = GetCallerData(session_);
  caller.caller_id_name = invite_.from_name.empty() ? invite_.from_user : invite_.from_name;
  caller.caller_id_number = invite_.from_user;
  caller.context = profile_.context;
  SetCallerData(session_, caller);
  last_action_ = true;
  RunGuarded(session_, [this] {
    Talk();
    GoOn();
  });
  Finish();
}

CallingLeg* CallingLeg::Movable() {
  const bool free = answered_ && settled_ && !next_ && !redirection_ && !when_alone_ && !finished_ && renegotiation_;
  return free && switch_channel_up(channel_) ? this : nullptr;
}

bool CallingLeg::Joined() const {
  return !driver_.empty() || (called_ && media_->bridged());
}

bool CallingLeg::TellPartner(Renegotiation::Task task) {
  const bool answered = !called_ || called_->answer;  // one that only plays something yet changes nothing
  return Joined() && answered && Tell(Partner(), std::move(task));
}

void CallingLeg::Wire() {
  std::function<bool(RTPDirection)> bridge;
  std::function<void(MediaDirection)> turned;
  if (driver_.empty()) {
    bridge = [this](RTPDirection direction) { return Turn(direction); };
  } else {
    turned = [driver = driver_, own = std::string(switch_core_session_get_uuid(session_))](MediaDirection direction) {
      Post(driver, [own, report = Turned(direction)](CallLeg& leg) { leg.OnPartnerReport(own, report); });
    };
  }
  renegotiation_->Rewire([this](Renegotiation::Task task) { return TellPartner(std::move(task)); }, std::move(turned),
                         std::move(bridge));
}

void CallingLeg::LeavePartner(std::function<void(Parting)> then) {
  if (driver_.empty()) {
    if (called_) PartFromCalled(Parting::kTold);
    then(Parting::kWished);
    return;
  }
  when_alone_ = std::move(then);
  const std::string own = switch_core_session_get_uuid(session_);
  Post(driver_, [own](CallLeg& driver) { driver.OnPartnerLeaves(own); });
}

void CallingLeg::OnPartnerLeaves(const std::string& partner) {
  if (finished_ || !called_ || called_->uuid != partner) return;
  if (settled_) {
    PartFromCalled(Parting::kWished);
  } else {
    parting_ = partner;
  }
}

/// Undoes the bridge; both legs go on. `parting` is how the called one sees it.
void CallingLeg::PartFromCalled(Parting parting) {
  const std::string partner = called_->uuid;
  const bool was_bridged = media_->bridged();
  media_->Unbridge();
  called_.reset();
  switch_channel_clear_flag(channel_, CF_BRIDGED);
  switch_channel_set_variable(channel_, SWITCH_BRIDGE_UUID_VARIABLE, nullptr);
  switch_channel_set_variable(channel_, SWITCH_SIGNAL_BOND_VARIABLE, nullptr);
  if (was_bridged) FireBridgeEvent(session_, SWITCH_EVENT_CHANNEL_UNBRIDGE, partner);
  const std::string own = switch_core_session_get_uuid(session_);
  Post(partner, [notice = std::make_shared<PartingNotice>(own, parting)](CallLeg& leg) { notice->ReadTo(leg); });
  if (renegotiation_) renegotiation_->PartnerGone();
}

void CallingLeg::OnLeftAlone(const std::string& driver, Parting parting) {
  if (driver_ != driver) return;
  driver_.clear();
  switch_channel_set_variable(channel_, SWITCH_SIGNAL_BOND_VARIABLE, nullptr);
  if (!finished_) {
    Wire();
    renegotiation_->PartnerGone();
  }
  if (std::function<void(Parting)> then = std::exchange(when_alone_, nullptr)) then(parting);
}

void CallingLeg::OnReleased(const std::string& ended_by) {
  released_ = true;
  if (ended_by_ == kTheSwitch) ended_by_ = ended_by;
}

bool CallingLeg::TakeDriver(const std::string& driver, const std::string& call) {
  if (!Partner().empty() || !renegotiation_->quiet()) return false;
  driver_ = driver;
  released_ = false;
  switch_channel_set_variable(channel_, SWITCH_SIGNAL_BOND_VARIABLE, driver.c_str());
  switch_channel_set_variable(channel_, kCallUuidVariable, call.c_str());
  Wire();
  CalledLegReport report{};
  report.kind = CalledLegReport::Kind::kAnswered;
  report.agreed = renegotiation_->agreed();
  report.direction = renegotiation_->far_direction();
  const std::string own = switch_core_session_get_uuid(session_);
  Post(driver, [own, report](CallLeg& leg) { leg.OnPartnerReport(own, report); });
  return true;
}

/// Until the leg ends, its partner does, or something else is to be done than talk.
void CallingLeg::ServeCall() {
  switch_channel_set_state(channel_, CS_EXCHANGE_MEDIA);
  settled_ = true;
  if (!parting_.empty()) OnPartnerLeaves(std::exchange(parting_, {}));
  ServeUntilDone(steady_clock::time_point::max(), [this] { return next_ || (called_ && called_->ended); });
  settled_ = false;
}

void CallingLeg::Talk() {
  ServeCall();
  AfterBridge();
}

void CallingLeg::RunMove() {
  move_ = std::exchange(next_, std::nullopt);
  move_failed_ = false;
  last_action_ = true;
  agreed_ = renegotiation_->agreed();
  if (move_->leg.empty()) {
    CallOn();
  } else if (JoinLeg(move_->leg)) {
    MoveSucceeded();
    Talk();
  }
  if (move_) MoveFailed();
}

/// Becomes the driver of the lone leg `uuid`. False when that is not to be had or the media server does not join them;
/// both were hung up then if the media was at fault.
bool CallingLeg::JoinLeg(const std::string& uuid) {
  called_.emplace();
  called_->uuid = uuid;
  const std::string own = switch_core_session_get_uuid(session_);
  auto request = std::make_shared<JoinRequest>(own, Variable(kCallUuidVariable), uuid);
  Post(uuid, [request](CallLeg& leg) { request->PutTo(leg); });
  request.reset();
  ServeUntil(session_, steady_clock::now() + kPartnerPatience, [this] { return called_->answer || called_->ended; });
  if (switch_channel_down(channel_)) return false;
  if (called_->answer && !called_->ended && JoinPartner()) return true;
  if (called_->answer) LetCalledLegGo(SWITCH_CAUSE_NORMAL_TEMPORARY_FAILURE);
  called_.reset();
  return false;
}

bool CallingLeg::JoinPartner() {
  switch_channel_set_variable(channel_, SWITCH_SIGNAL_BOND_VARIABLE, called_->uuid.c_str());
  for (int attempt = 1; !JoinMedia(); ++attempt) {
    if (attempt == kJoinAttempts) return false;
    ServeUntil(session_, steady_clock::now() + kJoinPause, [this] { return called_->ended; });
    if (switch_channel_down(channel_) || called_->ended) return false;
  }
  return true;
}

void CallingLeg::MoveSucceeded() {
  if (!move_) return;
  if (!Partner().empty()) LegLog(session_, SWITCH_LOG_INFO, "Transferred: talks to leg " + Partner());
  std::exchange(move_, std::nullopt)->referral->Succeed();
}

/// Back to who asked for the transfer if that is possible, else the leg ends for the reason that the transfer failed.
void CallingLeg::MoveFailed() {
  const Move move = *std::exchange(move_, std::nullopt);
  const bool told_why = std::exchange(move_failed_, false);
  if (switch_channel_down(channel_)) return;
  const switch_call_cause_t cause = told_why ? fail_cause_ : SWITCH_CAUSE_NORMAL_TEMPORARY_FAILURE;
  const int status = told_why && fail_status_ ? fail_status_ : StatusOfCause(cause);
  LegLog(session_, SWITCH_LOG_WARNING, "The transfer failed with " + std::to_string(status));
  if (called_) ForgetCalledLeg(cause);
  ended_by_ = kTheSwitch;
  move.referral->Refuse(status);
  const std::vector<std::string>& leaving = move.referral->leaving();
  if (move.leg.empty() && !leaving.empty() && JoinLeg(leaving.front())) {
    LegLog(session_, SWITCH_LOG_INFO, "Back with leg " + leaving.front());
    last_action_ = true;
    return Talk();
  }
  move.referral->HangUpLeaving();
  if (!move.leg.empty()) HangUpLeg(move.leg, cause);
  Fail(cause, 0, "", "");
}

/// The end of a leg that another one bridges with: its media stays until the bridge is undone.
void CallingLeg::EndAsPartner(switch_call_cause_t cause) {
  if (driver_.empty()) return;
  if (!when_alone_) {
    CalledLegReport report{};
    report.kind = CalledLegReport::Kind::kEnded;
    report.cause = cause;
    report.by_far_end = ended_by_ != kTheSwitch;
    const std::string own = switch_core_session_get_uuid(session_);
    if (!Post(driver_, [own, report](CallLeg& leg) { leg.OnPartnerReport(own, report); })) return;
  }
  const auto gone = [this] { return released_ || driver_.empty(); };
  if (!ServeAfterHangup(session_, steady_clock::now() + kReleasePatience, gone)) {
    LegLog(session_, SWITCH_LOG_WARNING, "The leg that bridged did not undo the bridge in time");
  }
  DrainTasks(session_);
}

}  // namespace kvx_switch
