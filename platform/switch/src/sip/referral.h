#pragma once

#include <memory>
#include <string>
#include <vector>

#include "sip/sip_dialog.h"

/// A transfer under way: who asked for it, and which legs it leaves behind.
namespace kvx_switch {

/// Handed from leg to leg while the transfer lasts, used by one at a time. Whoever drops it unsettled, because a leg
/// ended in the middle for instance, thereby ends the legs that nobody would talk to any more.
class Referral {
 public:
  /// `dialog`: the one that the REFER with the number `id` came over, null when there was none. `leaving`: the legs
  /// that go when the transfer succeeds.
  Referral(std::shared_ptr<SipDialog> dialog, unsigned id, std::vector<std::string> leaving);
  ~Referral();
  Referral(const Referral&) = delete;
  Referral& operator=(const Referral&) = delete;

  /// That leg was parted from its partner: it has nobody to talk to when the transfer comes to nothing.
  void Strand(const std::string& leg) { stranded_.push_back(leg); }

  /// A provisional response of the target, told to who asked.
  void Progress(int status);
  /// The target has answered: who asked is told and the leaving legs are hung up.
  void Succeed();
  /// Who asked is told; the legs stay, and are the caller's business. `status` is a final response other than 2xx.
  void Refuse(int status);
  /// The leaving legs end now.
  void HangUpLeaving();

  const std::vector<std::string>& leaving() const { return leaving_; }

 private:
  const std::shared_ptr<SipDialog> dialog_;
  const unsigned id_;
  const std::vector<std::string> leaving_;
  std::vector<std::string> stranded_;
  int told_ = 0;
  bool settled_ = false;
};

/// What a leg that was left alone does next.
struct Move {
  std::string destination;  ///< a number to call through the dialplan; or
  std::string leg;          ///< the uuid of a leg that is alone too, to be joined
  std::shared_ptr<Referral> referral;
  std::string refer_to;  ///< for the leg's variables; "" when there was no REFER
  std::string referred_by;
};

}  // namespace kvx_switch
