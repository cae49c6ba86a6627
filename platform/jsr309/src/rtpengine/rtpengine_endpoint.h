/// An endpoint on an rtpengine daemon.
///
/// What the two sides of a leg have said, with whom it is joined and which way, stands in the books of the driver. From
/// them comes a picture of what the daemon is to do with the leg's call; operations change the books and bring the
/// daemon to the new picture, asking and waiting. Those that must not wait change the books and post the picture; an
/// operation that is under way then sees that the books have changed since its picture, and brings the daemon to the
/// latest one before it returns. So whoever comes last, the daemon ends up at what stands in the books.
///
/// Threads: as ServerEndpoint; LookAtPackets on the control thread of the server.
#pragma once

#include "rtpengine/daemon_call.h"
#include "rtpengine/leg_codecs.h"
#include "rtpengine/leg_crypto.h"
#include "rtpengine/leg_image.h"
#include "rtpengine/leg_silence.h"
#include "rtpengine/operation_gate.h"
#include "rtpengine/rtpengine_context.h"

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace kelvaro::jsr309::rtpengine {

class RtpengineEndpoint;

/// Refusals that more than one operation gives.
constexpr char kBusy[] = "the requests before it have taken all the time";
constexpr char kGone[] = "it has ended, or its server was lost";

/// A peer of a UDP pass-through that is not known yet.
bool NamesNobody(const MediaPassThruPeer& peer);

/// The books of a session. Fields guarded by RtpengineBooks::mutex.
struct RtpengineSessionBook {
  bool ended = false;
  std::vector<std::weak_ptr<RtpengineEndpoint>> endpoints;
};

/// IP header fields of what goes to the far end.
struct LegMarks {
  std::optional<uint8_t> tos, time_to_live, traffic_class, hop_limit;
};

/// What both sides have said. Copied, changed, and put back when the daemon has taken it.
struct LegRecord {
  LegCodecs codecs;
  LegCrypto crypto;
  LegImage image;
  LegMarks marks;
  NgPlace far_end;        ///< as it says; empty until it did
  NgPlace found;          ///< where its media comes from in fact; empty when that was not learned
  bool detect = false;    ///< it may be somewhere else than it says
  bool learning = false;  ///< and the daemon is still looking

  void SetFarEnd(const NgPlace& place);
  /// What was learned meanwhile of the same far end stays.
  void KeepFound(const LegRecord& latest);
  /// Where media goes and comes from.
  const NgPlace& target() const { return found.empty() ? far_end : found; }
};

class RtpengineEndpoint : public ServerEndpoint, public std::enable_shared_from_this<RtpengineEndpoint> {
 public:
  RtpengineEndpoint(std::shared_ptr<RtpengineContext> context, std::shared_ptr<RtpengineSessionBook> session,
                    std::weak_ptr<RtpTimeoutSink> sink);

  bool GetLocalOffer(MediaConfig& config) override { return GetLocal("local offer", config, true); }
  bool GetLocalAnswer(MediaConfig& config) override { return GetLocal("local answer", config, false); }
  bool SetRemoteOffer(const MediaConfig& config) override { return SetRemote("remote offer", config, true); }
  bool SetRemoteAnswer(const MediaConfig& config) override { return SetRemote("remote answer", config, false); }
  bool SetRemoteAddressDetection() override;
  bool GetLocalImageConfig(MediaConfig& config) override;
  bool GetRemoteImageConfig(MediaConfig& config) override;
  bool GetRtcpStatsReport(std::vector<RtcpStatsReport>& reports) override;
  bool Join(Direction direction, const std::shared_ptr<ServerEndpoint>& other) override;
  bool Unjoin(const std::shared_ptr<ServerEndpoint>& other) override;
  bool Close() override;
  void Release() override;

  /// Does not wait. False when it has ended or the session has.
  bool MoveTo(const std::shared_ptr<RtpengineSessionBook>& session);
  /// Asks the daemon for the packets of the far end when it is time to; gives the next time.
  NgTime LookAtPackets(NgTime now);

 private:
  using Lock = std::lock_guard<std::mutex>;
  using Call = std::shared_ptr<DaemonCall>;
  using Self = std::shared_ptr<RtpengineEndpoint>;

  // What one operation sees and changes; empty texts are success, others say why not.
  bool GetLocal(const char* what, MediaConfig& config, bool offer);
  bool SetRemote(const char* what, const MediaConfig& config, bool offer);
  std::string DescribeLocal(MediaConfig& config, bool offer);
  std::string DescribeRemote(const MediaConfig& config, bool offer);
  std::string DescribeLocalRecord(LegRecord& next, MediaConfig& config, bool offer) const;
  std::string DescribeRemoteRecord(LegRecord& next, const MediaConfig& config, bool offer, Self& peer) const;
  std::string ParseFarEnd(const MediaConfig& config, NgPlace& place) const;
  std::string FindImagePeer(const MediaConfig& config, Self& peer) const;
  std::string LinkImagePeer(const Self& peer, const MediaConfig& config, NgTime deadline);
  std::string OpenCall(const LegRecord& record, NgTime deadline, Call& call) const;
  std::string EnsureCall(NgTime deadline);
  std::string Commit(const LegRecord& next, const Call& call, NgTime deadline);
  void FillLocal(const NgPlace& place, MediaConfig& config) const;
  void FillImage(const NgPlace& place, MediaConfig& config) const;
  std::string DetectAddress();
  std::string JoinWith(Direction direction, const Self& other);
  std::string TryJoin(Direction direction, const Self& other, NgTime now, NgTime deadline);
  std::string SettleJoin(const Self& other, NgTime deadline);
  std::string CheckJoin(Direction direction, const RtpengineEndpoint& other) const;
  std::string CheckCarriage(const RtpengineEndpoint& other) const;
  bool Report(const char* what, const std::string& refusal) const;
  /// Ends it in the books; null when it has ended before, or has no call.
  Call TakeApart(const std::shared_ptr<PostedRequests>& posted, NgTime now);

  // With the books locked.
  /// Neither ended nor lost with its daemon.
  bool Usable() const;
  void TakeRecord(const LegRecord& next, std::vector<Self>& parted);
  void LinkWith(RtpengineEndpoint& other, bool forward, bool backward, std::vector<Self>& parted, NgTime now);
  void Part(std::vector<Self>& parted, NgTime now);
  void LeaveSession();
  /// As long as the far end has not been found, each description and join is a chance for it to speak.
  void KeepLearning(NgTime now);
  CallPicture Picture() const;
  void PictureBus(const RtpengineEndpoint& partner, CallPicture& picture) const;
  bool ExpectsMedia() const;

  /// Of a leg with nobody at the other end; of what is handed in, with no lock.
  CallPicture PictureAlone(const LegRecord& record) const;
  /// Brings the daemon to what stands in the books.
  bool Settle(NgTime deadline, std::string& error);
  void PostSettle(const std::shared_ptr<PostedRequests>& posted);
  static void SettleAll(const std::vector<Self>& endpoints, const std::shared_ptr<PostedRequests>& posted);
  /// The partner's picture depends on ours.
  void SettlePartner(NgTime deadline);
  /// Once media has come, the place it came from stays the far end's.
  bool TakeFoundPlace(const Dictionary& query);
  bool GiveUpLearning(NgTime now);
  void StopLearningIfFound(const Call& call, NgTime deadline);
  void TakePackets(const Dictionary& query, NgTime asked_at);

  const std::shared_ptr<RtpengineContext> context_;
  const std::weak_ptr<RtpTimeoutSink> sink_;
  OperationGate gate_;

  // All guarded by RtpengineBooks::mutex.
  std::shared_ptr<RtpengineSessionBook> session_;  // null once it has ended
  LegRecord record_;
  Call call_;  // null before the first local description
  std::weak_ptr<RtpengineEndpoint> partner_;
  bool carries_ = false;    // what the far end sends goes to the partner
  bool fax_peers_ = false;  // joined by a description rather than by Join
  LegSilence silence_;
  bool is_learning_applied_ = false;  // the daemon looks for the far end
  NgTime learning_until_{};
  uint64_t changes_ = 0;  // of all that a picture is made from
  bool is_watched_ = false;
  bool is_looked_at_ = false;  // a query is under way
  NgTime last_look_{};
};

}  // namespace kelvaro::jsr309::rtpengine
