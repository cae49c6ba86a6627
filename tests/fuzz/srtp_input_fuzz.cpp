// Whatever comes on the ports of a protected endpoint, authentic or not, while its keys change now and then.
//
// Input: an octet that chooses suite and key identifier, then for each packet an octet of instructions, two octets of
// length, the packet. Instructions: 1: RTCP; 2: the far end protects it first; 4: and then an octet of it is altered,
// the next two octets say which and how; 8: we are to send it; 16: the far end's keys change before; 32: a second
// passes.
#include <algorithm>
#include <cstring>
#include <memory>
#include <string>

#include "endpoint_crypto.h"
#include "fuzz_input.h"
#include "rtp_header.h"
#include "support/srtp_peer.h"

namespace {

using fuzz::Bytes;
using fuzz::Require;
using namespace media_engine;
using test_support::SrtpPeer;
using test_support::SrtpPeerKey;

class Fuzzed {
 public:
  explicit Fuzzed(uint8_t choice) : short_tag_((choice & 1) != 0), with_mki_((choice & 2) != 0) {
    LocalSettings local;
    local.crypto = KeysOf(1);
    Require(crypto_.DescribeLocal(local, false).ok, "our keys are taken");
    ChangeKeys();
  }

  void ChangeKeys() {
    ++number_;
    RemoteDescription remote;
    remote.crypto = KeysOf(number_);
    Require(crypto_.DescribeRemote(remote).ok, "the far end's keys are taken");
    const Bytes mki = with_mki_ ? Bytes{0, number_} : Bytes{};
    peer_ = std::make_unique<SrtpPeer>(SrtpPeer::Way::kSends,
                                       test_support::SrtpPeerKeys{SrtpPeerKey(number_), short_tag_, mki});
  }

  void Wait() { now_ += seconds{1}; }
  std::optional<Bytes> Protected(const Bytes& packet, bool rtcp) {
    return rtcp ? peer_->Rtcp(packet) : peer_->Rtp(packet);
  }

  bool Take(const Bytes& packet, bool rtcp) {
    const auto memory = Exactly(packet, 0);
    std::size_t length = packet.size();
    const bool taken =
        rtcp ? crypto_.UnprotectRtcp(memory.get(), length, now_) : crypto_.UnprotectRtp(memory.get(), length, now_);
    if (!taken) return false;
    Require(length < packet.size(), "what was protected is shorter in the clear");
    if (!rtcp) ParseRtp(memory.get(), length);
    return true;
  }

  void Send(const Bytes& packet, bool rtcp) {
    const auto memory = Exactly(packet, kSrtpTrailerRoom);
    std::size_t length = packet.size();
    const bool sent = rtcp ? crypto_.ProtectRtcp(memory.get(), length) : crypto_.ProtectRtp(memory.get(), length);
    Require(!sent || (length > packet.size() && length <= packet.size() + kSrtpTrailerRoom),
            "what is sent is protected and within its room");
  }

 private:
  CryptoSettings KeysOf(uint8_t number) const {
    CryptoSettings settings;
    settings.suite = short_tag_ ? "AES_CM_128_HMAC_SHA1_32" : "AES_CM_128_HMAC_SHA1_80";
    const Bytes key = SrtpPeerKey(number);
    settings.key.assign(key.begin(), key.end());
    if (with_mki_) settings.mki = std::to_string(number) + ":2";
    return settings;
  }
  static std::unique_ptr<uint8_t[]> Exactly(const Bytes& packet, std::size_t room) {
    std::unique_ptr<uint8_t[]> memory(new uint8_t[packet.size() + room]);
    std::copy(packet.begin(), packet.end(), memory.get());
    return memory;
  }

  const bool short_tag_, with_mki_;
  uint8_t number_ = 1;
  TimePoint now_{seconds{1000}};
  EndpointCrypto crypto_{[](const std::string&) {}};
  std::unique_ptr<SrtpPeer> peer_;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  fuzz::Input input(data, size);
  Fuzzed fuzzed(input.Octet());
  for (int packets = 0; !input.done() && packets < 32; ++packets) {
    const uint8_t instructions = input.Octet();
    const bool rtcp = (instructions & 1) != 0, altered = (instructions & 4) != 0;
    const uint8_t where = altered ? input.Octet() : 0, how = altered ? input.Octet() : 0;
    if ((instructions & 16) != 0) fuzzed.ChangeKeys();
    if ((instructions & 32) != 0) fuzzed.Wait();
    Bytes packet = input.Packet();
    if (packet.size() > 2048 - kSrtpTrailerRoom) continue;
    if ((instructions & 8) != 0) {
      fuzzed.Send(packet, rtcp);
      continue;
    }
    if ((instructions & 2) == 0) {
      fuzzed.Take(packet, rtcp);
      continue;
    }
    auto sent = fuzzed.Protected(packet, rtcp);
    if (!sent) continue;
    if (altered) (*sent)[where * sent->size() / 256] ^= how;
    const bool taken = fuzzed.Take(*sent, rtcp);
    Require(!taken || !altered || how == 0, "an altered packet is refused");
  }
  return 0;
}
