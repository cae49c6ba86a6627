/// One leg's call on its daemon.
///
/// Ownership: by the endpoint, and by operations that are under way. Threads: Open and Apply one at a time, under the
/// endpoint's gate; the rest from any thread.
#pragma once

#include "rtpengine/call_picture.h"
#include "rtpengine/rtpengine_context.h"

#include <atomic>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

namespace kelvaro::jsr309::rtpengine {

class DaemonCall {
 public:
  explicit DaemonCall(const std::shared_ptr<RtpengineContext>& context) : DaemonCall(context, context->Epoch()) {}

  /// Makes the call, with as much of the picture as a call can begin with; Apply brings the rest. False, and why, with
  /// nothing left on the daemon.
  bool Open(CallPicture picture, NgTime deadline, std::string& error);
  /// Where the daemon receives, from the far end and from other legs; fixed once it is open.
  const NgPlace& leg() const { return leg_; }
  const NgPlace& bus() const { return bus_; }

  /// Brings the daemon to the picture. False, and why, when it does not follow or does not answer in time.
  bool Apply(const CallPicture& picture, NgTime deadline, std::string& error);
  /// The same without waiting, for a picture with no keys that Apply has not brought; posted as for
  /// RtpengineContext::Post.
  void Post(const CallPicture& picture, const std::shared_ptr<PostedRequests>& posted);
  /// What the daemon counts; none, and why, when it does not tell.
  std::optional<Dictionary> Query(NgTime deadline, std::string& error);
  /// Does not wait; done is called on the control thread, unless the request is refused at once.
  bool PostQuery(NgDone done) { return context_->Query(QueryOf(name_), std::move(done)); }
  /// Waits; see RtpengineContext::EndCall.
  bool End(NgTime deadline, std::string& error) { return context_->EndCall(name_.call_id, deadline, error); }
  /// What an operation that is under way asks from now on is refused; for End or Drop to follow.
  void Condemn() { context_->CondemnCall(name_.call_id); }
  /// Does not wait.
  void Drop() { context_->DropCall(name_.call_id); }

  /// Whether the daemon has not been lost since.
  bool IsThere() const { return context_->Has(epoch_); }
  void ReportUnknown() const;
  uint64_t epoch() const { return epoch_; }

 private:
  /// What a daemon was told last, as far as that is known.
  struct Told {
    CallPicture picture;
    bool by_open = false;  ///< a moment ago
  };

  /// A call that is made while the daemon is lost and comes back belongs to before the loss.
  DaemonCall(std::shared_ptr<RtpengineContext> context, uint64_t epoch);
  bool Exchange(const CallPicture& picture, const Dictionary& offer, NgDescription& leg, NgDescription& bus,
                NgTime deadline, std::string& error);
  bool Describe(PictureChange change, const CallPicture& picture, NgTime deadline, std::string& error);
  bool DescribeBoth(const CallPicture& picture, NgTime deadline, std::string& error);
  bool ApplyKeys(const CallPicture& picture, NgTime deadline, std::string& error);
  bool AskOnPort(const Dictionary& request, uint16_t port, NgTime deadline, std::string& error);
  /// Unknown from now on: something else is about to be told.
  std::optional<Told> TakeTold(uint64_t& posts);
  bool ExchangeOnOurPorts(const CallPicture& picture, const Dictionary& offer, NgTime deadline, std::string& error);
  std::string FaultOf(const NgDescription& leg) const;

  const std::shared_ptr<RtpengineContext> context_;
  const CallName name_;
  const uint64_t epoch_;
  NgPlace leg_, bus_;
  std::optional<LegCrypto::Keys> applied_keys_;
  std::atomic<bool> applied_learning_{false};
  std::atomic<bool> was_blocked_{false};
  std::atomic<bool> keys_replaced_{false};  ///< by something posted since

  std::mutex mutex_;
  std::optional<Told> told_;  // guarded by mutex_; empty when it is not known
  uint64_t posts_ = 0;        // guarded by mutex_; so far, each counted when it begins and when it is over
};

}  // namespace kelvaro::jsr309::rtpengine
