// A participant's express socket: what makes its packets cheaper once its far end has settled.
#include "participant.h"
#include "server_context.h"

namespace media_engine {
namespace {

// Half a second of speech. Calls that are over at once, and far ends that are still looking for their place, are not
// worth the system calls.
constexpr uint64_t kSteadyFlow = 25;

}  // namespace

bool Participant::ShouldChangeExpress() {
  const uint64_t came = counters_.rtp_packets_received - received_at_check_;
  received_at_check_ = counters_.rtp_packets_received;
  if (ports_ == nullptr) return false;
  if (ports_->express().is_open()) {
    return ports_->express_peer() != remote_rtp() || server_->ports().FewDescriptorsLeft();
  }
  return !image_.in_use() && remote_.CanSend() && came >= kSteadyFlow;
}

bool Participant::ChangeExpress() {
  if (ports_->express().is_open()) {
    ports_->CloseExpress();
    return false;
  }
  if (!ports_->OpenExpress(remote_.rtp())) return false;
  // What the system refuses, it has refused for the other sockets too.
  ports_->express().ApplyIpHeader(server_->address().family(), ip_header_);
  return true;
}

}  // namespace media_engine
