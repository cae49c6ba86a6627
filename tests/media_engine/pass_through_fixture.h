/// Two legs that speak, and what turns their call into a fax call and back.
#pragma once

#include <memory>
#include <optional>
#include <string>

#include "engine_fixture.h"

namespace media_engine_test {

/// Whether a description is an offer or an answer.
constexpr bool kOffer = true, kAnswer = false;

class PassThrough : public EngineTest {
 protected:
  void SetUp() override { OpenAt("127.0.0.1"); }
  void OpenAt(const std::string& address) {
    ServerConfig config = Config();
    config.addresses = {address};
    address_ = address;
    server_ = Open(config);
    session_ = NewSession(*server_);
    a_ = AudioLeg();
    b_ = AudioLeg();
  }
  Leg AudioLeg() {
    Leg leg = NewLeg(*session_, address_);
    EXPECT_TRUE(leg.endpoint->DescribeLocal(LocalFor(Pcmu()), leg.local, kLimit).ok);
    EXPECT_TRUE(leg.endpoint->DescribeRemote(leg.far_end->Description(Pcmu()), kLimit).ok);
    return leg;
  }

  static Outcome Local(Leg& leg, bool image, bool offer, const IpHeaderSettings& header = {}) {
    LocalSettings settings = LocalFor(Pcmu());
    settings.udp_pass_through = image;
    settings.answer_follows = offer;
    settings.ip_header = header;
    return leg.endpoint->DescribeLocal(settings, leg.local, kLimit);
  }
  static RemoteDescription RemoteImageOf(const Leg& leg, bool offer) {
    RemoteDescription remote = leg.far_end->Description(Pcmu());
    remote.codecs.clear();
    remote.udp_pass_through = true;
    remote.answer_follows = offer;
    return remote;
  }
  static Outcome Remote(const Leg& leg, bool image, bool offer) {
    RemoteDescription remote = image ? RemoteImageOf(leg, offer) : leg.far_end->Description(Pcmu());
    remote.answer_follows = offer;
    return leg.endpoint->DescribeRemote(remote, kLimit);
  }
  static std::optional<ImageDescription> LocalImage(const Leg& leg) {
    std::optional<ImageDescription> image;
    EXPECT_TRUE(leg.endpoint->ReadLocalImage(image, kLimit).ok);
    return image;
  }
  static std::optional<ImageDescription> RemoteImage(const Leg& leg) {
    std::optional<ImageDescription> image;
    EXPECT_TRUE(leg.endpoint->ReadRemoteImage(image, kLimit).ok);
    return image;
  }
  /// The leg as a peer, from what it says of itself.
  static PassThroughPeer PeerOf(const Leg& leg) {
    const ImageDescription local = LocalImage(leg).value_or(ImageDescription());
    const ImageDescription remote = RemoteImage(leg).value_or(ImageDescription());
    return {local.address, local.port, remote.address, remote.port, local.ip_header};
  }
  static Outcome AnswerWithPeer(const Leg& leg, const PassThroughPeer& peer) {
    RemoteDescription remote = RemoteImageOf(leg, kAnswer);
    remote.pass_through_peer = peer;
    return leg.endpoint->DescribeRemote(remote, kLimit);
  }
  /// A's far end offers fax, B's takes it.
  void ChangeToFax() {
    ASSERT_TRUE(Remote(a_, true, kOffer).ok);
    ASSERT_TRUE(Local(b_, true, kOffer).ok);
    ASSERT_TRUE(AnswerWithPeer(b_, PeerOf(a_)).ok);
    ASSERT_TRUE(Local(a_, true, kAnswer).ok);
  }

  void JoinThem(const Leg& a, const Leg& b) {
    ASSERT_TRUE(a.endpoint->Join(Direction::kDuplex, *b.endpoint, kLimit).ok);
  }
  /// Whether the datagram comes out as it went in.
  static bool Relays(const Leg& from, const Leg& to, const Bytes& data,
                     std::chrono::milliseconds patience = kPatience) {
    from.far_end->Send(data, from.local.rtp_port);
    return to.far_end->Receive(patience) == data;
  }
  /// What is sent does not come out; where it was counted tells that it was looked at.
  template <typename Counter>
  static void ExpectDropped(const Leg& from, const Leg& to, const Bytes& data, Counter counter) {
    const uint64_t before = from.Statistics().*counter;
    from.far_end->Send(data, from.local.rtp_port);
    EXPECT_TRUE(Eventually([&] { return from.Statistics().*counter == before + 1; }));
    EXPECT_FALSE(to.far_end->Receive(milliseconds{0}));
  }
  /// Speech: other numbers than the far end's, the same payload.
  bool Talks(const Leg& from, const Leg& to) {
    const Rtp sent{0, ++number_, 160u * number_, 7, false, PayloadOf(number_)};
    from.Send(sent);
    const auto came = to.far_end->ReceiveRtp();
    return came && came->payload == sent.payload && came->ssrc != sent.ssrc;
  }

  std::string address_;
  std::unique_ptr<Server> server_;
  std::shared_ptr<Session> session_;
  Leg a_, b_;
  uint16_t number_ = 0;
};

}  // namespace media_engine_test
