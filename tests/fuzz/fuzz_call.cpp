#include "fuzz_call.h"

#include <algorithm>
#include <cstdlib>
#include <string>
#include <utility>
#include <vector>

#include "endpoint_route.h"
#include "fuzz_input.h"
#include "server_context.h"

namespace fuzz {
namespace {

using namespace media_engine;

/// What endpoints hang on; made once.
struct Surroundings {
  Surroundings() {
    const SocketAddress address = *SocketAddress::Parse("127.0.0.1", 0);
    const auto ports = std::make_shared<PortPool>(address, 20000, 32000);
    context = std::make_shared<ServerContext>(std::make_shared<SteadyClock>(), std::make_shared<const int>(0), address,
                                              "", ports, nullptr);
    session = std::make_shared<SessionRoute>(context, std::make_shared<Mailbox>(), "session");
  }
  std::shared_ptr<ServerContext> context;
  std::shared_ptr<SessionRoute> session;
};

const Surroundings& TheSurroundings() {
  static const Surroundings surroundings;
  return surroundings;
}

Codec MakeCodec(const char* name, int payload_type) {
  Codec codec;
  codec.name = name;
  codec.payload_type = payload_type;
  return codec;
}

constexpr std::size_t kLongest = 2048;

}  // namespace

Call::Call() : a_(MakeLeg("127.0.0.2")), b_(MakeLeg("127.0.0.3")) {}

Call::~Call() {
  a_.participant->Separate(now_);
}

Call::Leg Call::MakeLeg(const char* far_end) {
  const Surroundings& around = TheSurroundings();
  auto route = std::make_shared<EndpointRoute>(around.session, "endpoint");
  Leg leg;
  leg.participant = std::make_unique<Participant>(std::move(route), around.context, nullptr, around.session.get());
  leg.far_end = *SocketAddress::Parse(far_end, 4000);
  return leg;
}

void Call::Describe() {
  struct Side {
    Leg* leg;
    const char* law;
    int law_type, amr_type;
    uint8_t events;
  };
  for (const Side& side : {Side{&a_, "PCMU", 0, 96, 101}, Side{&b_, "PCMA", 8, 104, 97}}) {
    LocalSettings local;
    local.codecs = {MakeCodec(side.law, side.law_type), MakeCodec("AMR", side.amr_type)};
    local.telephone_event = true;
    local.telephone_event_payload_type = side.events;
    std::string reason;
    auto ports = TheSurroundings().context->ports().Acquire(reason);
    Require(ports && side.leg->participant->DescribeLocal(local, ports, now_), "a local description is taken");
    RemoteDescription remote;
    remote.address = side.leg->far_end.Host();
    remote.rtp_port = side.leg->far_end.port();
    remote.codecs = local.codecs;
    remote.telephone_event = true;
    remote.telephone_event_payload_type = side.events;
    Require(side.leg->participant->DescribeRemote(remote, now_).ok, "a remote description is taken");
    side.leg->participant->AllowLearning(now_);
  }
  Require(a_.participant->Join(Direction::kDuplex, *b_.participant, now_).ok, "the legs are joined");
}

void Call::Check(const Leg& to, const Handover& handover, const uint8_t* memory, std::size_t size) const {
  if (handover.to == nullptr) return;
  Require(handover.to == to.participant.get(), "a packet goes to the other leg");
  Require(handover.data >= memory && handover.length <= size && handover.data + handover.length <= memory + size,
          "what is sent lies in the packet's memory");
  const auto header = ParseRtp(handover.data, handover.length);
  Require(handover.length >= kRtpHeaderLength && handover.data[0] == 0x80, "what is sent has a plain header");
  Require(header && header->ssrc == to.participant->Statistics().local_ssrc, "what is sent is of our source");
}

void Call::TakeRtp(bool first_leg, bool stranger, const uint8_t* packet, std::size_t length) {
  if (length > kLongest) return;
  const Leg& from = first_leg ? a_ : b_;
  const std::size_t size = length + kSrtpTrailerRoom;
  const std::unique_ptr<uint8_t[]> memory(new uint8_t[size]);
  std::copy(packet, packet + length, memory.get());
  const SocketAddress source = stranger ? from.far_end.WithPort(5000) : from.far_end;
  Check(first_leg ? b_ : a_, from.participant->TakeRtp(memory.get(), length, source, now_), memory.get(), size);
}

void Call::TakeRtcp(bool first_leg, bool stranger, const uint8_t* packet, std::size_t length) {
  if (length > kLongest) return;
  const Leg& to = first_leg ? a_ : b_;
  const std::size_t size = length + kSrtpTrailerRoom;
  const std::unique_ptr<uint8_t[]> memory(new uint8_t[size]);
  std::copy(packet, packet + length, memory.get());
  const SocketAddress& elsewhere = first_leg ? b_.far_end : a_.far_end;
  to.participant->TakeRtcp(memory.get(), length, stranger ? elsewhere : to.far_end, now_);
}

}  // namespace fuzz
