#pragma once

#include <switch.h>
#include <switch_media_server.h>

#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "sip/leg_control.h"
#include "sip/leg_media.h"
#include "sip/sdp.h"
#include "sip/sip_dialog.h"
#include "sip/sip_profile.h"

/// What one leg of a call does when media changes while the call is up.
///
/// A far end may hold and resume, move to another address, change its key, or turn to fax (ITU-T T.38) and back, with
/// a further INVITE (RFC 3261, 14). Holding concerns the bridge alone: it turns to the direction that both far ends
/// leave, and the other far end is not told. Fax concerns both: the offer waits until the other leg has made the same
/// offer to its far end. The codec of a call stays.
///
/// Each leg has one; two of them make a call and tell each other what happened. Used on the leg's thread only.
namespace kvx_switch {

class Renegotiation {
 public:
  using Task = std::function<void(Renegotiation&)>;

  /// What it works on; all of it outlives it.
  struct Leg {
    switch_core_session_t* session;
    SipDialog* dialog;
    LegMedia* media;
    const SipProfile* profile;
    /// Runs the task on the partner's thread, or never when that leg ends; false when there is none.
    std::function<bool(Task)> tell_partner;
    /// Of the other leg: tells the one that bridges, or is going to, what our far end does now.
    std::function<void(MediaDirection)> tell_direction;
    /// Of the leg that bridges: turns the bridge to a direction. Null on the other one.
    std::function<bool(RTPDirection)> bridge;
  };

  /// The leg as it was answered: `remote` is the far end's description, `stream` its audio, `local` what it was told.
  Renegotiation(Leg leg, SessionDescription remote, size_t stream, AgreedMedia agreed, LocalDescription local);

  /// The leg is answered; a far end that begins on hold is told of.
  void Begin();

  // What the far end did.
  void OnOffer(const std::string& sdp);
  void OnAnswer(const std::string& sdp);
  /// In its ACK, to the offer that its INVITE without one was answered with.
  void OnLateAnswer(const std::string& sdp);
  void OnRefusal(int status);

  // What the partner says.
  /// Its far end turned to fax (with these attributes), or back to audio: offer the same.
  void OfferImage(const std::vector<std::string>& attributes);
  void OfferAudio();
  /// What our far end offered was taken by the partner's, or was not.
  void PartnerAgreed(const std::vector<std::string>& attributes);
  void PartnerRefused(int status);
  void PartnerDirection(MediaDirection direction);

  /// The direction that both far ends leave, seen from the leg that bridges.
  RTPDirection BridgeDirection() const;
  /// Another partner, or another role: all three as in Leg.
  void Rewire(std::function<bool(Task)> tell_partner, std::function<void(MediaDirection)> tell_direction,
              std::function<bool(RTPDirection)> bridge) {
    leg_.tell_partner = std::move(tell_partner);
    leg_.tell_direction = std::move(tell_direction);
    leg_.bridge = std::move(bridge);
  }
  /// Nothing is being changed and the call is one of audio: another partner could come.
  bool quiet() const { return step_ == Step::kIdle && !fax_; }
  const AgreedMedia& agreed() const { return agreed_; }
  bool fax() const { return fax_; }
  /// The partner has left. Whatever was waiting for it is brought to an end with our far end.
  void PartnerGone();
  /// The partner's far end said so when it answered.
  void set_partner_direction(MediaDirection direction) { partner_direction_ = direction; }
  MediaDirection far_direction() const { return audio_.direction; }

  /// Puts the far end on hold, or takes it back: offers it to receive alone, and the bridge follows its answer. "", or
  /// why that cannot be done now.
  std::string Hold(HoldChange change);

 private:
  enum class Step {
    kIdle,
    kPartnerAsks,  ///< our far end waits for an answer until the partner's has given one
    kWeOffered,    ///< our far end asked for an offer, and answers in its ACK
    kWeAsk,        ///< the partner waits for the answer of our far end
    kWeHold,       ///< our far end has been asked to go on hold, or to come back
  };

  void OnOfferWanted();
  std::string TakeAudioAnswer(const SessionDescription& answer);
  void OnAudioOffer(SessionDescription offer, size_t stream);
  void OnImageOffer(SessionDescription offer, size_t stream);
  std::optional<CodecMatch> FindCallsCodec(const SdpMedia& stream, bool answer, std::string& problem) const;
  bool TakeAudio(const SdpMedia& stream, AgreedMedia& agreed);
  bool ApplyAudioOffer(const SessionDescription& offer, size_t stream, const AgreedMedia& agreed);
  void OnAudioAnswer(const SessionDescription& answer);
  void OnImageAnswer(const SessionDescription& answer);
  void AnswerAudio(bool our_hold_waits = false);
  /// The next description, with our far end held or taken back.
  std::string HoldOffer();
  LocalDescription AudioDescription(const LocalMedia& local) const;
  LocalDescription ImageDescription(const LocalMedia& local, const std::vector<std::string>& attributes) const;
  void Offer(const LocalDescription& local);
  void AskPartner(Task offer);
  void RestoreAudio();
  void OnHoldAnswer(const SessionDescription& answer);
  void DirectionChanged();
  void TellOfHold(bool on_hold);
  void Refuse(int status, const std::string& why);
  /// The media server has let the leg go, or the two far ends cannot be brought together again: the call ends.
  void BreakOff(const std::string& why);

  Leg leg_;
  SessionDescription remote_;  // as last agreed on
  size_t stream_;
  SdpMedia audio_;  // the far end's audio as last agreed on
  AgreedMedia agreed_;
  LocalDescription local_;  // as last told
  bool fax_ = false;
  bool held_ = false;  // by us
  bool told_of_hold_ = false;
  Step step_ = Step::kIdle;
  bool to_fax_ = false;  // what step_ is about
  SessionDescription offer_;
  size_t offer_stream_ = 0;
  AgreedMedia offer_agreed_;
  LocalMedia local_media_;
  MediaDirection partner_direction_ = MediaDirection::kSendReceive;
};

}  // namespace kvx_switch
