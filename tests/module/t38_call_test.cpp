// A fax call through the module's callbacks, on the media server that lives in the process, with real packets.
#include <poll.h>

#include <optional>

#include "module/media_callbacks_fixture.h"
#include "support/udp_socket.h"

namespace module_test {
namespace {

using test_support::UdpSocket;

class T38Call : public testing::Test {
 protected:
  using Bytes = std::vector<std::uint8_t>;

  /// A leg of the call and its far end.
  struct Party {
    explicit Party(switch_call_direction_t direction) : leg(direction) {}
    MediaLeg leg;
    UdpSocket far_end;
    switch_port_t port = 0;
  };

  T38Call() {
    if (module_.Status() != SWITCH_STATUS_SUCCESS) throw std::runtime_error("the module did not load");
  }

  void GetMedia(Party& party, switch_sdp_negotiation_state_t state, bool fax) {
    LocalMedia media;
    media.codecs = {&pcmu_};
    media.answer_codec = &codec_;
    media.state = state;
    media.enable_udp_passthru = fax ? SWITCH_TRUE : SWITCH_FALSE;
    media.ipv4_tos = 0xb8;
    media.rtp_timeout_sec = 300;
    ASSERT_EQ(party.leg.GetMedia(media), SWITCH_STATUS_SUCCESS);
    ASSERT_STREQ(media.ip_addr, "127.0.0.1");
    party.port = media.out_port;
  }
  void SetMedia(Party& party, switch_sdp_negotiation_state_t state, bool fax) {
    switch_core_crypto_setting no_crypto = {};
    RemoteMedia media;
    media.ip = "127.0.0.1";
    media.rtp_port = party.far_end.Port();
    media.codec = fax ? nullptr : &codec_;
    media.crypto = &no_crypto;
    media.state = state;
    media.enable_udp_passthru = fax ? SWITCH_TRUE : SWITCH_FALSE;
    ASSERT_EQ(party.leg.SetMedia(media), SWITCH_STATUS_SUCCESS);
  }
  /// One far end's offer, relayed to the other, and its answer, relayed back.
  void Negotiate(Party& asking, Party& asked, bool fax) {
    SetMedia(asking, SWITCH_SDP_OFFER_RECEIVED, fax);
    GetMedia(asked, SWITCH_SDP_COMPLETED, fax);
    SetMedia(asked, SWITCH_SDP_ANSWER_RECEIVED, fax);
    GetMedia(asking, SWITCH_SDP_OFFER_RECEIVED, fax);
  }
  void Call() {
    ASSERT_EQ(a_.leg.Create(), SWITCH_STATUS_SUCCESS);
    SetMedia(a_, SWITCH_SDP_OFFER_RECEIVED, false);
    b_.leg.BondWith(a_.leg);
    ASSERT_EQ(b_.leg.Create(), SWITCH_STATUS_SUCCESS);
    GetMedia(b_, SWITCH_SDP_STATE_UNKNOWN, false);
    SetMedia(b_, SWITCH_SDP_ANSWER_RECEIVED, false);
    GetMedia(a_, SWITCH_SDP_OFFER_RECEIVED, false);
    ASSERT_EQ(a_.leg.Bridge(), SWITCH_STATUS_SUCCESS);
  }

  static std::optional<Bytes> Carried(Party& from, Party& to, const Bytes& data) {
    if (!from.far_end.SendTo({"127.0.0.1", from.port}, data)) return std::nullopt;
    pollfd waiting{to.far_end.Descriptor(), POLLIN, 0};
    if (poll(&waiting, 1, 5000) <= 0) return std::nullopt;
    const auto datagram = to.far_end.Receive();
    return datagram ? std::make_optional(datagram->data) : std::nullopt;
  }
  static Bytes Speech(std::uint8_t number) {
    Bytes packet = {0x80, 0, 0, number, 0, 0, 0, number, 1, 2, 3, 4};
    packet.resize(172, number);
    return packet;
  }
  /// Speech comes out with its payload, under numbers of the media server's own.
  static bool Talks(Party& from, Party& to) {
    const Bytes sent = Speech(7);
    const auto came = Carried(from, to, sent);
    return came && came->size() == sent.size() && *came != sent &&
           std::equal(came->begin() + 12, came->end(), sent.begin() + 12);
  }
  /// A fax comes out as it went in, even where it looks like speech.
  static bool Faxes(Party& from, Party& to) {
    for (const Bytes& sent : {Bytes{0, 1, 1, 6, 0, 0}, Speech(9), Bytes(1400, 0xa5)}) {
      if (Carried(from, to, sent) != sent) return false;
    }
    return true;
  }

  const switch_codec_implementation_t pcmu_ = implementation("PCMU", 0, 20, 8000, 64000);
  switch_codec_t codec_ = negotiated(pcmu_, 0);
  ConfigurationFile media_servers_{
      "t38_call_jsr309.xml",
      control_library_configuration(codec_list({{"PCMU", "", ""}}),
                                    "<media_server><mac>02:00:00:00:00:01</mac><address>127.0.0.1</address>"
                                    "<threads>1</threads></media_server>\n")};
  ConfigurationFile configuration_{"autoload_configs/kelvaro_media_server.conf.xml",
                                   module_configuration({{"config", media_servers_.Path()}})};
  LoadedModule module_;
  Party a_{SWITCH_CALL_DIRECTION_INBOUND}, b_{SWITCH_CALL_DIRECTION_OUTBOUND};
};

TEST_F(T38Call, ChangesFromSpeechToFaxAndBackWhicheverFarEndAsks) {
  Call();
  EXPECT_TRUE(Talks(a_, b_));
  EXPECT_TRUE(Talks(b_, a_));
  for (const bool a_asks : {true, false}) {
    Party& asking = a_asks ? a_ : b_;
    Party& asked = a_asks ? b_ : a_;
    Negotiate(asking, asked, true);
    EXPECT_TRUE(Faxes(a_, b_)) << a_asks;
    EXPECT_TRUE(Faxes(b_, a_)) << a_asks;
    Negotiate(asking, asked, false);
    ASSERT_EQ(asking.leg.Bridge(), SWITCH_STATUS_SUCCESS);
    EXPECT_TRUE(Talks(a_, b_)) << a_asks;
    EXPECT_TRUE(Talks(b_, a_)) << a_asks;
  }
  ASSERT_EQ(a_.leg.Unbridge(), SWITCH_STATUS_SUCCESS);
  EXPECT_EQ(a_.leg.Destroy(), SWITCH_STATUS_SUCCESS);
  EXPECT_EQ(b_.leg.Destroy(), SWITCH_STATUS_SUCCESS);
}

TEST_F(T38Call, MayBeginAndEndAsFax) {
  ASSERT_EQ(a_.leg.Create(), SWITCH_STATUS_SUCCESS);
  SetMedia(a_, SWITCH_SDP_OFFER_RECEIVED, true);
  b_.leg.BondWith(a_.leg);
  ASSERT_EQ(b_.leg.Create(), SWITCH_STATUS_SUCCESS);
  GetMedia(b_, SWITCH_SDP_STATE_UNKNOWN, true);
  SetMedia(b_, SWITCH_SDP_ANSWER_RECEIVED, true);
  GetMedia(a_, SWITCH_SDP_OFFER_RECEIVED, true);
  EXPECT_TRUE(Faxes(a_, b_));
  EXPECT_TRUE(Faxes(b_, a_));
  // A switch that bridges every answered call changes nothing by it.
  ASSERT_EQ(a_.leg.Bridge(), SWITCH_STATUS_SUCCESS);
  EXPECT_TRUE(Faxes(a_, b_));
  EXPECT_TRUE(Faxes(b_, a_));
  ASSERT_EQ(a_.leg.Unbridge(), SWITCH_STATUS_SUCCESS);
  EXPECT_EQ(a_.leg.Destroy(), SWITCH_STATUS_SUCCESS);
  EXPECT_EQ(b_.leg.Destroy(), SWITCH_STATUS_SUCCESS);
}

TEST_F(T38Call, SpeechGoesOnWhenTheFarEndThatIsAskedDeclines) {
  Call();
  SetMedia(a_, SWITCH_SDP_OFFER_RECEIVED, true);
  GetMedia(b_, SWITCH_SDP_COMPLETED, true);
  EXPECT_TRUE(Talks(a_, b_));  // and that is all: B's far end has said no
  EXPECT_TRUE(Talks(b_, a_));
  Negotiate(b_, a_, true);
  EXPECT_TRUE(Faxes(a_, b_));
  EXPECT_TRUE(Faxes(b_, a_));
}

}  // namespace
}  // namespace module_test
