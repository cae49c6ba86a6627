#include "pass_through.h"

#include "endpoint_route.h"
#include "server_context.h"

namespace media_engine {
namespace {

bool NamesNobody(const PassThroughPeer& peer) {
  return peer.local_address.empty() && peer.local_port == 0 && peer.remote_address.empty() && peer.remote_port == 0;
}

Outcome FindPeer(const Worker& worker, const Participant& participant, const PassThroughPeer& description,
                 Participant*& peer) {
  const auto address = SocketAddress::Parse(description.local_address, description.local_port);
  peer = address ? worker.FindByPort(*participant.session(), *address) : nullptr;
  if (peer != nullptr) return participant.CheckPassThroughPeer(*peer, description);
  return Outcome::Refused("the UDP pass-through peer " +
                          (address ? address->Text() : "'" + description.local_address + "'") +
                          " is no endpoint of the session");
}

}  // namespace

Outcome DescribePassThrough(Worker& worker, Participant& participant, const RemoteDescription& description) {
  const PassThroughPeer& named = *description.pass_through_peer;
  if (!description.udp_pass_through) return Outcome::Refused("a UDP pass-through peer without UDP pass-through");
  if (NamesNobody(named)) {
    Outcome outcome = participant.DescribeRemote(description, worker.now());
    if (outcome) {
      participant.server().Log(LogLevel::kWarning, participant.route()->name() +
                                                       ": the other leg has no image stream; nothing is relayed "
                                                       "until the two are joined");
    }
    return outcome;
  }
  Participant* peer = nullptr;
  if (Outcome outcome = FindPeer(worker, participant, named, peer); !outcome) return outcome;
  if (Outcome outcome = participant.DescribeRemote(description, worker.now()); !outcome) return outcome;
  participant.PassThroughTo(*peer, named, worker.now());
  return Outcome::Done();
}

}  // namespace media_engine
