#pragma once

#include <switch.h>

#include <functional>
#include <string>

#include "core/session.h"
#include "sip/leg_control.h"
#include "sip/renegotiation.h"
#include "sip/sip_dialog.h"

/// A leg of a call as other legs see it.
///
/// Legs have threads of their own and find each other by uuid alone: what one wants of another it posts there. So a leg
/// may change its partner, or end, without anybody holding a reference to it. Everything but the static functions is
/// used on the leg's own thread.
namespace kvx_switch {

class CallingLeg;
struct CalledLegReport;
struct GivenPartner;

/// How a leg comes to be alone.
enum class Parting {
  kWished,  ///< it asked its partner to part
  kTold,    ///< the partner parted on its own account
};

class CallLeg : public LegProgram {
 public:
  /// Runs `task` with the leg on its thread; from any thread. False when there is no such leg. A task that is accepted
  /// is destroyed without having run when the leg ends first.
  static bool Post(const std::string& uuid, std::function<void(CallLeg&)> task);
  /// Runs a task with the leg's negotiation, unless the leg is ending. False when there is no such leg.
  static bool Tell(const std::string& uuid, Renegotiation::Task task);
  /// The leg that drove the bridge, ended by `ended_by`, needs this one's media no longer: it has undone the bridge, or
  /// will not make one.
  static void Release(const std::string& uuid, const std::string& ended_by);

  /// This leg as one that can change its partner, which makes a calling leg of a called one. Null while it is not
  /// answered, does something else than talk, or is ending.
  virtual CallingLeg* Movable() = 0;

  // What operators ask for. "" or why not; takes effect when the leg comes back from what it is doing.
  /// The leg leaves what it is doing and goes on as told. Of a leg in another one's bridge `own` still means this leg,
  /// and `partners` the one that bridges.
  virtual std::string Redirect(Redirection redirection) = 0;
  /// Puts the leg's phone on hold or takes it back.
  virtual std::string Hold(HoldChange change) = 0;

  virtual void OnDialogEvent(const DialogEvent& event) = 0;
  virtual void OnPartnerTask(const Renegotiation::Task& task) = 0;
  virtual void OnReleased(const std::string& ended_by) = 0;
  /// The leg that drove the bridge has undone it and both go on: because this one wanted to leave, or for its own sake.
  virtual void OnLeftAlone(const std::string& driver, Parting parting) = 0;
  /// It bridges with that leg, or is about to.
  virtual bool Drives(const std::string& leg) const = 0;
  /// Of a leg that drives a bridge: its partner wants to leave, or tells how it goes.
  virtual void OnPartnerLeaves(const std::string& partner);
  virtual void OnPartnerReport(const std::string& partner, const CalledLegReport& report);
  /// The answer of a leg that was asked to give up its partner.
  virtual void OnPartnerGiven(const GivenPartner& given);

 protected:
  /// Asks the leg `driver`, which bridges with the leg `own`, to part from it so that `own` can go on as told: the
  /// bridge is undone by who made it.
  static std::string RedirectThrough(const std::string& driver, const std::string& own, Redirection redirection);

  /// Lets Post find the leg for as long as it lives.
  class Reachable {
   public:
    Reachable(switch_core_session_t* session, CallLeg* leg);
    ~Reachable();
    Reachable(const Reachable&) = delete;
    Reachable& operator=(const Reachable&) = delete;

   private:
    switch_core_session_t* session_;
  };
};

}  // namespace kvx_switch
