/// One endpoint as its worker sees it: a participant in an RTP session with one far end.
///
/// Packets come in from the far end, are checked and counted, and are handed over to the joined participant, which
/// gives them its own numbers and sends them to its far end. Nothing here blocks, locks or allocates per packet.
///
/// Threads: one at a time, the worker's that owns it. Ownership moves between workers through their mailboxes.
#pragma once

#include <memory>
#include <string>

#include "media_engine/engine.h"
#include "outgoing_stream.h"
#include "payload_types.h"
#include "port_pool.h"
#include "reception.h"
#include "remote_address.h"
#include "rtcp_session.h"
#include "silence_watch.h"

namespace media_engine {

class Participant;

/// A packet on its way out through another participant; it lies in the buffer it was received into.
struct Handover {
  Participant* to = nullptr;  // null: the packet goes nowhere
  uint8_t* data = nullptr;
  std::size_t length = 0;
  std::size_t payload_length = 0;
  bool rtp = true;  // else a datagram relayed as it is
};

class Participant {
 public:
  Participant(std::shared_ptr<EndpointRoute> route, std::shared_ptr<ServerContext> server,
              std::shared_ptr<EndpointEvents> events, const SessionRoute* session);
  ~Participant();
  Participant(const Participant&) = delete;
  Participant& operator=(const Participant&) = delete;

  // Descriptions. Refused ones change nothing.
  /// Takes the port pair that is offered when it has none, or when another is wished for.
  Outcome DescribeLocal(const LocalSettings& settings, std::unique_ptr<PortPair>& offered, TimePoint now);
  Outcome DescribeRemote(const RemoteDescription& description, TimePoint now);
  void AllowLearning(TimePoint now) { remote_.AllowLearning(now); }
  void DropPorts() { ports_.reset(); }
  const PortPair* ports() const { return ports_.get(); }

  // Joins.
  Outcome Join(Direction direction, Participant& other, TimePoint now);
  bool IsJoinedWith(const EndpointRoute& other) const { return peer_ != nullptr && peer_->route_.get() == &other; }
  /// Ends the join, if there is one.
  void Separate(TimePoint now);
  void SeparateUnlessIn(const SessionRoute& session, TimePoint now) {
    if (peer_ != nullptr && peer_->session_ != &session) Separate(now);
  }

  // Packets. What TakeRtp hands over lies within the packet, changed in place.
  Handover TakeRtp(uint8_t* packet, std::size_t length, const SocketAddress& from, TimePoint now);
  void TakeRtcp(uint8_t* packet, std::size_t length, const SocketAddress& from, TimePoint now);
  void CountOversized() { ++counters_.oversized; }
  void CountReceiveError() { ++counters_.receive_errors; }
  void CountSent(const Handover& packet);
  void CountSendError() { ++counters_.send_errors; }
  const SocketAddress& remote_rtp() const { return remote_.rtp(); }

  /// Tells the endpoint's events of a silence that has grown too long.
  void CheckSilence(TimePoint now);
  /// Sends the reports that are due.
  void RunRtcp(TimePoint now);

  EndpointStatistics Statistics() const;
  const SessionRoute* session() const { return session_; }
  void set_session(const SessionRoute* session) { session_ = session; }
  const std::shared_ptr<EndpointRoute>& route() const { return route_; }
  ServerContext& server() const { return *server_; }

 private:
  void ApplyIpHeader(const IpHeaderSettings& settings) const;
  Outcome CheckCarriage(const Participant& other) const;
  void SetFlow(Participant& to, bool flows);
  /// What flows, or how, has changed.
  void UpdateRoutes();
  void WarnOfUnlikeCodecs() const;
  void MediaMayBegin(TimePoint now);
  bool AcceptSource(const SocketAddress& from, bool understood, TimePoint now);
  Handover Relay(uint8_t* packet, std::size_t length, const SocketAddress& from, TimePoint now);
  Handover Carry(uint8_t* packet, const RtpHeader& header, TimePoint now);
  void DropFor(uint64_t& counter, const RtpHeader& header);
  SourcePosition PositionOf(const RtpHeader& header) const;

  struct RtcpRoom;
  uint32_t OutgoingClockRate() const;
  void ApplySource(const SourceSettings& settings);
  void NoteSource(uint32_t ssrc, TimePoint now);
  void RenewOutgoing(TimePoint now);
  void Report(RtcpRoom& room, bool last, TimePoint now);
  void TakeLeave(TimePoint now);
  bool SendRtcp(RtcpRoom& room, std::size_t length);

  const std::shared_ptr<EndpointRoute> route_;
  const std::shared_ptr<ServerContext> server_;
  const std::shared_ptr<EndpointEvents> events_;
  const SessionRoute* session_;
  std::unique_ptr<PortPair> ports_;

  PayloadTypes payload_types_;
  bool pass_through_ = false;
  RemoteAddress remote_;
  SilenceWatch silence_;
  Reception reception_;
  OutgoingStream outgoing_;
  RtcpSession rtcp_;
  bool sends_rtcp_ = true;
  bool renew_with_remote_ = false;
  bool collided_ = false;  // the far end has used our SSRC
  EndpointStatistics counters_;

  Participant* peer_ = nullptr;
  bool carries_ = false;  // to peer_
  uint64_t feed_ = 0;     // counts who fed outgoing_
  PayloadRoutes routes_;  // to peer_
};

}  // namespace media_engine
