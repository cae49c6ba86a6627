#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "sip/dialplan.h"
#include "sip/leg_media.h"
#include "sip/referral.h"
#include "sip/renegotiation.h"
#include "sip/sip_agent.h"

/// What legs hand to each other when partners change. Values, and what they own.
namespace kvx_switch {

/// A called leg that goes on as a calling one, everything of it handed over.
struct AnsweredLeg {
  switch_core_session_t* session;
  InboundInvite identity;  ///< its far end as a caller
  std::shared_ptr<SipDialog> dialog;
  std::shared_ptr<const Dialplan> dialplan;
  std::unique_ptr<LegMedia> media;
  std::optional<Renegotiation> renegotiation;  ///< never empty
  SessionDescription far_end;                  ///< its description; the first stream is the audio
  std::string description;                     ///< what its far end was told
  std::string driver;                          ///< the leg that called it
  std::chrono::steady_clock::time_point answered_at;
};

/// Asks a leg to give up its partner, so that `asker` may have it. Nothing is given when `suits` does not hold for the
/// call's codec.
struct PartnerRequest {
  std::string asker;
  std::function<bool(const CodecMatch&)> suits;
  std::shared_ptr<Referral> referral;
};

struct GivenPartner {
  int status;           ///< 200, else why not
  std::string partner;  ///< alone now
  AgreedMedia agreed;   ///< what it speaks
  std::shared_ptr<Referral> referral;
};

}  // namespace kvx_switch
