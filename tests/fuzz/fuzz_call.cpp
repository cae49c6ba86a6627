#include "fuzz_call.h"

#include <algorithm>
#include <cstdlib>
#include <string>
#include <utility>
#include <vector>

#include "endpoint_route.h"
#include "fuzz_input.h"
#include "network_order.h"
#include "server_context.h"

namespace fuzz {
namespace {

using namespace media_engine;

/// What endpoints hang on; made once. The addresses are nobody else's, so that tests may run beside this.
struct Surroundings {
  Surroundings() {
    const SocketAddress address = *SocketAddress::Parse("127.0.7.1", 0);
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

constexpr uint32_t kFarEndSsrc = 0x11111111;
constexpr uint8_t kMuLaw = 0, kALaw = 8;

}  // namespace

Call::Call() : a_(MakeLeg("127.0.7.2")), b_(MakeLeg("127.0.7.3")) {}

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
  const Handover handover = from.participant->TakeRtp(memory.get(), length, source, now_);
  Check(first_leg ? b_ : a_, handover, memory.get(), size);
  if (handover.to != nullptr) handover.to->CountSent(handover);
}

SocketAddress Call::SourceOfRtcp(bool first_leg, RtcpFrom from) const {
  const SocketAddress& far_end = (first_leg ? a_ : b_).far_end;
  switch (from) {
    case RtcpFrom::kFarEnd:
      return far_end.WithPort(static_cast<uint16_t>(far_end.port() + 1));
    case RtcpFrom::kOtherPort:
      return far_end;
    case RtcpFrom::kStranger:
      break;
  }
  return (first_leg ? b_ : a_).far_end;
}

void Call::TakeRtcp(bool first_leg, RtcpFrom from, const uint8_t* packet, std::size_t length) {
  if (length > kLongest) return;
  const Leg& to = first_leg ? a_ : b_;
  const std::unique_ptr<uint8_t[]> memory(new uint8_t[length + kSrtpTrailerRoom]);
  std::copy(packet, packet + length, memory.get());
  to.participant->TakeRtcp(memory.get(), length, SourceOfRtcp(first_leg, from), now_);
}

void Call::Talk() {
  ++spoken_;
  for (const bool first_leg : {true, false}) {
    std::vector<uint8_t> packet(kRtpHeaderLength + 160, 0xd5);
    RtpHeader header;
    header.payload_type = first_leg ? kMuLaw : kALaw;
    header.sequence_number = spoken_;
    header.timestamp = 160u * spoken_;
    header.ssrc = kFarEndSsrc;
    WriteRtpHeader(header, packet.data());
    TakeRtp(first_leg, false, packet.data(), packet.size());
  }
}

void Call::RunTimers() {
  timers_ran_ = now_;
  for (const Leg* leg : {&a_, &b_}) leg->participant->Check(now_);
}

void Call::FillIn(bool first_leg, std::vector<uint8_t>& packet) const {
  for (std::size_t at = 0; at + 4 <= packet.size(); at += 4) {
    uint8_t* const word = packet.data() + at;
    const uint32_t value = Read32(word);
    if (value == 0xaaaaaaaa) Write32(Statistics(first_leg).local_ssrc, word);
    if (value == 0xbbbbbbbb) Write32(kFarEndSsrc, word);
    if (value == 0xcccccccc) Write32(ShortNtp(TheSurroundings().context->ntp().At(timers_ran_)), word);
  }
}

EndpointStatistics Call::Statistics(bool first_leg) const {
  return (first_leg ? a_ : b_).participant->Statistics();
}

}  // namespace fuzz
