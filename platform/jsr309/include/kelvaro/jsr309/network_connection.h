/// A call leg's RTP endpoint on a media server, as the application holds it.
///
/// The application knows a call leg, the media server knows a pair of UDP ports. A NetworkConnection ties the two: it
/// is a handle on one endpoint. More than one handle may mean the same endpoint (MediaSession::ImportNetworkConnection
/// gives a further one); ports, remote address, joins, statistics and the RTP-timeout listener belong to the endpoint
/// and are seen through each of its handles.
///
/// Life: the endpoint ends with Close(), with the destruction of its last handle or with the end of its session,
/// whatever comes first. Afterwards every operation on any handle returns false.
///
/// Ownership: made by a MediaSession, deleted by the application. A handle may outlive its session and the factory.
///
/// Threads: all operations may be called from any thread at the same time. Requests to the server wait for its answer,
/// for request_timeout_ms at most (see MSControlFactory::Init). AddListener, RemoveListener and the destructor never
/// wait for a server, a listener or the event thread.
#pragma once

#include "kelvaro/jsr309/joinable.h"
#include "kelvaro/jsr309/media_config.h"
#include "kelvaro/jsr309/rtcp_stats_report.h"
#include "kelvaro/jsr309/rtp_timeout_listener.h"

#include <boost/shared_ptr.hpp>

namespace kelvaro::jsr309 {

class NetworkConnection : public Joinable, public RtcpStatsReporterContainer, public RtpTimeoutNotifierInterface {
 public:
  /// Offer/answer (RFC 3264). A local description takes the wishes in the record and puts address, ports and what was
  /// chosen into it; repeated, it keeps the port, unless an answer asks for a new one (SetAutoLocalPortRenew).
  /// GetLocalAnswer may come before or after SetRemoteOffer. On false the record is as it was.
  virtual bool GetLocalOffer(MediaConfig& config) = 0;
  virtual bool GetLocalAnswer(MediaConfig& config) = 0;
  virtual bool SetRemoteOffer(const MediaConfig& config) = 0;
  virtual bool SetRemoteAnswer(const MediaConfig& config) = 0;

  /// Lets the server learn the far end's real address from its first valid packets, for phones behind a NAT.
  virtual bool SetRemoteAddressDetection() = 0;

  /// A description with MediaConfig::SetUdpPassThru is one of an image stream. Audio goes on until both sides have
  /// described one; then packets are relayed as they are, never encrypted, with the peer that the remote answer names,
  /// until both sides of either have described audio again. Audio then flows once the two are joined.
  ///
  /// Address, port and IP header fields of the image stream (fax, ITU-T T.38): ours and the far end's; the header
  /// fields are those of what is sent to it. False, with ports 0 and null addresses, when there is no image stream: no
  /// description with UDP pass-through for ours, none of the far end's for the far end's.
  virtual bool GetLocalImageConfig(MediaConfig& config) = 0;
  virtual bool GetRemoteImageConfig(MediaConfig& config) = 0;

  /// Ends the endpoint: dissolves its join, drops its listener, and has its ports free again on return, unless the
  /// server does not answer. Closing again does nothing.
  virtual void Close() = 0;
};

using NetworkConnectionSharedPtr = boost::shared_ptr<NetworkConnection>;

}  // namespace kelvaro::jsr309
