#pragma once

#include <switch.h>

#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "core/session.h"
#include "sip/call_leg.h"
#include "sip/destination.h"
#include "sip/leg_media.h"
#include "sip/renegotiation.h"
#include "sip/sip_agent.h"

/// The leg that a bridge calls: offers what the calling leg can take, and tells that leg how the call goes.
namespace kvx_switch {

class CallingLeg;

struct CalledLegReport {
  enum class Kind { kProgress, kAnswered, kTurned, kEnded };
  Kind kind;
  int status = 0;            ///< kProgress: 180, 183, ...; kEnded: of the final response, 0 when there was none
  size_t offered_index = 0;  ///< kAnswered: which of the offered codecs was taken
  bool early_media = false;  ///< kProgress: the called side sends already; the fields of kAnswered are filled
  AgreedMedia agreed;        ///< kAnswered: with the called side's payload types
  MediaDirection direction = MediaDirection::kSendReceive;  ///< kAnswered, kTurned: what the called side says it does
  switch_call_cause_t cause = SWITCH_CAUSE_NONE;            ///< kEnded
  bool by_far_end = false;                                  ///< kEnded: it hung up or refused
};

/// The called side sends or receives otherwise than it did.
CalledLegReport Turned(MediaDirection direction);

struct CalledLegRequest {
  std::shared_ptr<SipAgent> agent;
  std::string caller;               ///< the calling leg's uuid; empty: there is none, an operator calls
  std::string target;               ///< a SIP URI
  std::vector<CodecMatch> offered;  ///< in the calling side's order; at least one
  bool telephone_events = false;
  std::string from_name;
  std::string from_user;
  int max_forwards = 70;
  std::string referred_by;  ///< who sent the caller here (RFC 3892), as a header value; "" for nobody
  std::chrono::seconds timeout{60};
  std::optional<Destination> answered;  ///< where the leg goes on when it is answered; none: it waits for the bridge
  /// May be called from the leg's thread at any time until the leg is over; must not block.
  std::function<void(const CalledLegReport&)> report;
  /// Runs a task with the calling leg's negotiation, on that leg's thread.
  std::function<bool(Renegotiation::Task)> tell_caller;
};

class CalledLeg : public CallLeg, public std::enable_shared_from_this<CalledLeg> {
 public:
  explicit CalledLeg(CalledLegRequest request);
  ~CalledLeg() override;

  void Run(switch_core_session_t* session) override;
  std::string Redirect(Redirection redirection) override;
  std::string Hold(HoldChange change) override;

  CallingLeg* Movable() override;
  void OnDialogEvent(const DialogEvent& event) override;
  void OnPartnerTask(const Renegotiation::Task& task) override;
  void OnReleased(const std::string& ended_by) override;
  void OnLeftAlone(const std::string& driver, Parting parting) override;
  bool Drives(const std::string& leg) const override;
  void OnPartnerLeaves(const std::string& partner) override;
  void OnPartnerReport(const std::string& partner, const CalledLegReport& report) override;
  void OnPartnerGiven(const GivenPartner& given) override;

 private:
  bool SendInvite();
  SecurityWish Security() const;
  void WishForSecurity(LocalDescription& description);
  bool MakeOffer(std::string& offer);
  void WaitForAnswer();
  void OnProgress(const DialogEvent& event);
  bool TakeEarlyMedia(const DialogEvent& event, CalledLegReport& report);
  bool FollowsEarlyMedia(const AgreedMedia& agreed) const;
  bool TakeAnswer(const DialogEvent& event, CalledLegReport& report);
  void OnAnswered(const DialogEvent& event);
  bool AgreeOn(const std::string& sdp, SessionDescription& answer, CalledLegReport& report);
  bool AgreeOnCodec(const SdpMedia& stream, CalledLegReport& report);
  void StartRenegotiation(const CalledLegReport& report);
  size_t OfferedIndex(const CodecMatch& taken) const;
  void Finish();

  const CalledLegRequest request_;

  // Used on the leg's thread only.
  switch_core_session_t* session_ = nullptr;
  switch_channel_t* channel_ = nullptr;
  std::shared_ptr<SipDialog> dialog_;
  std::unique_ptr<LegMedia> media_;
  std::chrono::steady_clock::time_point answered_at_;
  uint32_t offered_packet_time_ = 0;
  AgreedMedia wished_;  // telephone-events and our key, as offered
  LocalDescription local_;
  std::optional<Renegotiation> renegotiation_;  // from the answer on
  int refused_status_ = 0;
  bool reached_ = true;
  std::string early_sdp_;  // of a provisional response, taken as the answer; "" while there is none
  std::map<std::string, std::string> early_answers_;  // of each fork, the first that it gave
  AgreedMedia early_agreed_;
  SessionDescription answer_;
  bool answered_ = false;
  bool finished_ = false;
  bool released_ = false;
  std::string ended_by_;
  std::shared_ptr<CallingLeg> continuation_;  // has taken everything over
};

}  // namespace kvx_switch
