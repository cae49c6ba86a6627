// Whatever comes on an RTP or RTCP port of a call: no look beyond the packet, and nothing but whole packets goes out.
//
// Input: for each packet an octet of instructions (1: from the first leg's side; 2: from an address that is not the far
// end's; 4: RTCP; the rest: tens of milliseconds that pass before), two octets of length, the packet.
#include <memory>

#include "fuzz_call.h"
#include "fuzz_input.h"
#include "rtp_header.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  fuzz::Input input(data, size);
  fuzz::Call call;
  call.Describe();
  while (!input.done()) {
    const uint8_t instructions = input.Octet();
    const fuzz::Bytes packet = input.Packet();
    call.Wait(media_engine::milliseconds{10} * (instructions >> 3));
    const bool first_leg = (instructions & 1) != 0, stranger = (instructions & 2) != 0;
    if ((instructions & 4) != 0) {
      const auto from = stranger ? fuzz::RtcpFrom::kStranger : fuzz::RtcpFrom::kOtherPort;
      call.TakeRtcp(first_leg, from, packet.data(), packet.size());
    } else {
      call.TakeRtp(first_leg, stranger, packet.data(), packet.size());
    }
    // Alone, with nothing behind its end.
    const std::unique_ptr<uint8_t[]> exact(new uint8_t[packet.size()]);
    std::copy(packet.begin(), packet.end(), exact.get());
    const auto header = media_engine::ParseRtp(exact.get(), packet.size());
    fuzz::Require(!header || header->payload_offset + header->payload_length <= packet.size(),
                  "a payload lies within its packet");
  }
  return 0;
}
