/// One endpoint as its worker sees it: a participant in an RTP session with one far end.
///
/// Packets come in from the far end, are checked and counted, and are handed over to the joined participant, which
/// gives them its own numbers and sends them to its far end. Nothing here blocks, locks or allocates per packet.
///
/// Threads: one at a time, the worker's that owns it. Ownership moves between workers through their mailboxes.
#pragma once

#include <memory>
#include <string>
#include <utility>

#include "endpoint_crypto.h"
#include "handover.h"
#include "image_stream.h"
#include "media_engine/engine.h"
#include "outgoing_stream.h"
#include "payload_types.h"
#include "playout.h"
#include "port_pool.h"
#include "reception.h"
#include "remote_address.h"
#include "rtcp_session.h"
#include "silence_watch.h"

namespace media_engine {

class Participant {
 public:
  Participant(std::shared_ptr<EndpointRoute> route, std::shared_ptr<ServerContext> server,
              std::shared_ptr<EndpointEvents> events, const SessionRoute* session);
  ~Participant();
  Participant(const Participant&) = delete;
  Participant& operator=(const Participant&) = delete;

  // Descriptions. Refused ones change nothing.
  Outcome DescribeLocal(const LocalSettings& settings, std::unique_ptr<PortPair>& offered, TimePoint now);
  Outcome DescribeRemote(const RemoteDescription& description, TimePoint now);
  void AllowLearning(TimePoint now) {
    remote_.AllowLearning(now);
    MediaMayBegin(now);
  }
  /// Takes the port pair that is offered when it has none, or when another is wished for. False when it has none then.
  bool TakePorts(std::unique_ptr<PortPair>& offered, bool renew);
  void DropPorts() { ports_.reset(); }
  const PortPair* ports() const { return ports_.get(); }
  /// Now and then: opens the express socket when the far end has been sending steadily since the last time, and closes
  /// it when it is for another one. True when there is a new one to be watched.
  bool ReviewExpress();
  void CloseExpress();
  /// The key of the latest local description; empty without.
  SecretBytes LocalKey() const { return crypto_.LocalKey(); }

  // The image stream.
  bool HasImage() const { return image_.is_described(); }
  /// Only with an image stream and ports.
  ImageDescription LocalImage() const;
  /// Without an address when the far end has described none.
  ImageDescription RemoteImage() const;
  /// Whether the other endpoint can be its fax peer, described so.
  Outcome CheckPassThroughPeer(const Participant& peer, const PassThroughPeer& description) const;
  /// Relays datagrams to the other endpoint and back. Checked before; both are in one session.
  void PassThroughTo(Participant& peer, const PassThroughPeer& description, TimePoint now);

  // Joins.
  Outcome Join(Direction direction, Participant& other, TimePoint now);
  bool IsJoinedWith(const EndpointRoute& other) const { return peer_ != nullptr && peer_->route_.get() == &other; }
  /// Ends the join, if there is one.
  void Separate(TimePoint now);
  void SeparateUnlessIn(const SessionRoute& session, TimePoint now) {
    if (peer_ != nullptr && peer_->session_ != &session) Separate(now);
  }

  // Packets. They begin at a multiple of four octets and have kSrtpTrailerRoom behind them; what TakeRtp hands over
  // lies within that, changed in place.
  Handover TakeRtp(uint8_t* packet, std::size_t length, const SocketAddress& from, TimePoint now);
  void TakeRtcp(uint8_t* packet, std::size_t length, const SocketAddress& from, TimePoint now);
  void CountOversized() { ++counters_.oversized; }
  void CountReceiveError() { ++counters_.receive_errors; }
  void CountSent(const Handover& packet);
  void CountSendError() { ++counters_.send_errors; }
  const SocketAddress& remote_rtp() const { return image_.in_use() ? image_.far_end() : remote_.rtp(); }

  /// Whether the turn before that one was its turn too; it takes RTP in this one.
  bool ServedAgainIn(uint64_t turn) { return std::exchange(served_in_, turn) + 1 == turn; }

  // The jitter buffer, for those that have one.
  void AttachPlayout(EndpointTimers& timers);
  /// The next packet that is due is written to packet and handed over within it; false when none is due.
  bool PlayNext(uint8_t* packet, TimePoint now, Handover& handover);

  /// What has to be done from time to time, and when to do it again: never later than anything is due, and earlier only
  /// where nobody can know.
  static constexpr milliseconds kCheckInterval{100};  // timeouts are whole seconds; being late by this does not matter
  void Check(TimePoint now);
  /// Its timers are its worker's.
  void AttachTimers(EndpointTimers& checks, EndpointTimers& playouts);
  void DetachTimers();

  EndpointStatistics Statistics() const;
  const SessionRoute* session() const { return session_; }
  void set_session(const SessionRoute* session) { session_ = session; }
  const std::shared_ptr<EndpointRoute>& route() const { return route_; }
  ServerContext& server() const { return *server_; }

 private:
  /// Tells the endpoint's events of a silence that has grown too long.
  void CheckSilence(TimePoint now);
  bool HasRtcp() const { return !image_.in_use() && ports_ != nullptr && remote_.described(); }
  void RunRtcp(TimePoint now);
  TimePoint NextCheck(TimePoint now) const;
  /// Something has changed that may bring the next check forward.
  void CheckSoon();

  void SetJitterBuffer(const JitterBufferSettings& settings);
  void ApplyIpHeader(const IpHeaderSettings& settings);
  Outcome ParseFarEnd(const std::string& address, uint16_t port, SocketAddress& far_end) const;
  Outcome DescribeLocalImage(const LocalSettings& settings, std::unique_ptr<PortPair>& offered, TimePoint now);
  Outcome DescribeRemoteImage(const RemoteDescription& description, TimePoint now);
  Outcome CheckUnencrypted(bool mandatory_crypto) const;
  /// After a description: the image stream may have come into use, or gone out of it.
  void FollowImageStream(bool was_in_use, TimePoint now);
  Outcome CheckCarriage(const Participant& other) const;
  void LinkWith(Participant& other, TimePoint now);
  void SetFlow(Participant& to, bool flows);
  /// What flows, or how, has changed.
  void UpdateRoutes();
  void WarnOfUnlikeCodecs() const;
  void MediaMayBegin(TimePoint now);
  /// Where a packet of somebody unknown is counted. Who is to be known is only known from the description on: a far end
  /// that answers a call may well be heard before its answer is.
  uint64_t& StrangersNow(uint64_t& strangers) { return remote_.described() ? strangers : counters_.too_early; }
  bool AcceptSource(const SocketAddress& from, bool understood, TimePoint now);
  Handover Relay(uint8_t* packet, std::size_t length, const SocketAddress& from);
  void Hold(const uint8_t* packet, const RtpHeader& header, TimePoint now);
  void DiscardHeld() {
    if (playout_) playout_->Discard();
  }
  const PayloadMeaning& MeaningOf(uint8_t payload_type) {
    if (payload_type != meaning_.payload_type) LookUp(payload_type);
    return meaning_;
  }
  void LookUp(uint8_t payload_type);
  Handover Carry(uint8_t* packet, RtpHeader header, TimePoint now);
  /// False when the joined endpoint does not take the packet; takes out of it what is not wanted there.
  bool PassesOn(const PayloadRoute& route, uint8_t* packet, RtpHeader& header);
  void DropFor(uint64_t& counter, const RtpHeader& header);
  SourcePosition PositionOf(const RtpHeader& header) const;

  static constexpr uint32_t kUsualClockRate = 8000;  // as long as no codec is agreed

  struct RtcpRoom;
  void ApplySource(const SourceSettings& settings);
  void NoteSource(uint32_t ssrc, TimePoint now);
  void RenewOutgoing(TimePoint now);
  void Report(RtcpRoom& room, bool last, TimePoint now);
  void TakeLeave(TimePoint now);
  /// Of the SSRC that was given up, if there is one; nothing is sent under it any more then.
  void SendFarewell(RtcpRoom& room);
  bool SendRtcp(RtcpRoom& room, std::size_t length);
  /// At the end: tells what was only counted until then.
  void GiveAccount() const;

  // Thousands of participants take turns in the processor's caches, so what every packet touches stands together.
  Participant* peer_ = nullptr;
  std::unique_ptr<PortPair> ports_;
  std::unique_ptr<Playout> playout_;  // null without a jitter buffer; holds packets for peer_ while carries_ only
  uint64_t served_in_ = 0;            // turn of the worker
  uint64_t feed_ = 0;                 // counts who fed outgoing_
  PayloadMeaning meaning_;            // of the last packet's payload type
  uint32_t outgoing_clock_rate_ = kUsualClockRate;
  bool carries_ = false;    // to peer_
  bool fax_peers_ = false;  // with peer_, by a description rather than by a join
  bool sends_rtcp_ = true;
  bool renew_with_remote_ = false;
  bool collided_ = false;           // the far end has used our SSRC
  bool had_jitter_buffer_ = false;  // now or before
  ImageStream image_;
  RemoteAddress remote_;  // of the audio
  SilenceWatch silence_;
  OutgoingStream outgoing_;
  Reception reception_;
  EndpointStatistics counters_;
  EndpointCrypto crypto_;
  RtcpSession rtcp_;

  // What it touches now and then.
  PayloadTypes payload_types_;
  PayloadRoutes routes_;  // to peer_; made anew with every join and every description
  EndpointTimer check_{this};
  uint64_t received_at_review_ = 0;  // of counters_, when the express socket was looked at last
  IpHeaderSettings ip_header_;       // of both streams: they share the sockets
  const std::shared_ptr<EndpointRoute> route_;
  const std::shared_ptr<ServerContext> server_;
  const std::shared_ptr<EndpointEvents> events_;
  const SessionRoute* session_;
};

}  // namespace media_engine
