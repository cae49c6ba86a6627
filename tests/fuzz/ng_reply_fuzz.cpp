// Whatever an rtpengine, or somebody in its place, answers: no look beyond the datagram, and what is understood is
// understood the same once more.
//
// Input: a datagram. As a whole it is read as SDP, too.
#include <algorithm>
#include <memory>
#include <string>
#include <string_view>

#include "fuzz_input.h"
#include "rtpengine/daemon_pulse.h"
#include "rtpengine/ng_description.h"
#include "rtpengine/ng_frame.h"

namespace {

using fuzz::Require;
using namespace kelvaro::jsr309::rtpengine;

bool SameCodecs(const NgDescription& a, const NgDescription& b) {
  return std::equal(
      a.codecs.begin(), a.codecs.end(), b.codecs.begin(), b.codecs.end(), [](const NgCodec& one, const NgCodec& other) {
        return one.payload_type == other.payload_type && one.name == other.name && one.clock_rate == other.clock_rate &&
               std::max(1, one.channels) == std::max(1, other.channels) &&
               one.format_parameters == other.format_parameters;
      });
}

bool SameKeys(const NgDescription& a, const NgDescription& b) {
  return std::equal(a.cryptos.begin(), a.cryptos.end(), b.cryptos.begin(), b.cryptos.end(),
                    [](const NgCryptoLine& one, const NgCryptoLine& other) {
                      return one.tag == other.tag && one.suite == other.suite && one.key == other.key &&
                             one.lifetime == other.lifetime && one.mki == other.mki;
                    });
}

void TakeSdp(std::string_view text) {
  NgDescription read, again;
  std::string error;
  if (!ReadSdp(text, read, error)) {
    Require(!error.empty(), "what is refused is refused for a reason");
    return;
  }
  Require(read.rtp_port == 0 || !read.address.empty(), "a port has an address");
  Require(!read.image || (read.codecs.empty() && read.cryptos.empty()), "an image has neither codecs nor keys");
  if (read.address.empty()) return;
  Require(ReadSdp(WriteSdp(read), again, error), "what was read can be written and read again");
  Require(again.address == read.address && again.rtp_port == read.rtp_port && again.rtcp_port == read.rtcp_port,
          "addresses and ports stay");
  Require(again.image == read.image && again.direction == read.direction, "kind and direction stay");
  Require(again.packet_time_ms == read.packet_time_ms, "the packet time stays");
  Require(SameCodecs(read, again), "codecs stay");
  Require(SameKeys(read, again), "keys stay");
}

void TakeReply(std::string_view datagram) {
  std::string error;
  const std::optional<NgFrame> frame = ParseNg(datagram, error);
  if (!frame) {
    Require(!error.empty(), "what is refused is refused for a reason");
    return;
  }
  const std::optional<NgFrame> again = ParseNg(FrameNg(frame->cookie, frame->message), error);
  Require(again && again->cookie == frame->cookie, "a cookie stays");
  Require(Bencode(again->message) == Bencode(frame->message), "a message stays");
  Require(!IsUnknownCall(frame->message) || !RefusalOf(frame->message).empty(), "an unknown call is a refusal");
  ReadDaemonLife(frame->message);
  TakeSdp(TextOf(frame->message, "sdp"));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  // Alone, with nothing behind its end.
  const std::unique_ptr<char[]> exact(new char[size]);
  std::copy(data, data + size, exact.get());
  TakeReply({exact.get(), size});
  TakeSdp({exact.get(), size});
  return 0;
}
