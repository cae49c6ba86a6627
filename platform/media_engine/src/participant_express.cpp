// A participant's express socket: what makes its packets cheaper once its far end has settled.
#include "participant.h"
#include "server_context.h"

namespace media_engine {
namespace {

// Half a second of speech. Calls that are over at once, and far ends that are still looking for their place, are not
// worth the system calls.
constexpr uint64_t kSteadyFlow = 25;

}  // namespace

bool Participant::ReviewExpress() {
  const uint64_t came = counters_.rtp_packets_received - received_at_review_;
  received_at_review_ = counters_.rtp_packets_received;
  if (ports_ == nullptr) return false;
  if (ports_->express().is_open()) {
    server_->ports().CountDescriptors(ports_->rtp().fd());
    if (ports_->express_peer() != remote_rtp() || server_->ports().FewDescriptorsLeft()) ports_->CloseExpress();
    return false;
  }
  if (image_.in_use() || !remote_.CanSend() || came < kSteadyFlow) return false;
  if (!ports_->OpenExpress(remote_.rtp())) return false;
  // What the system refuses, it has refused for the other sockets too.
  ports_->express().ApplyIpHeader(server_->address().family(), ip_header_);
  return true;
}

void Participant::CloseExpress() {
  if (ports_) ports_->CloseExpress();
}

}  // namespace media_engine
