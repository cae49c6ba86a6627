#include "ng_client/ng_client.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>

#include <functional>
#include <thread>

#include "ng_client/ng_call.h"
#include "support/udp_socket.h"

namespace rtpengine_ng {
namespace {

using test_support::UdpSocket;
using testing::ElementsAre;
using testing::HasSubstr;

/// A server on loopback that answers each datagram with what a test says, until its client is done.
class Server {
 public:
  using Answers = std::vector<std::string>;
  using Answer = std::function<Answers(const NgFrame& request, int number)>;

  explicit Server(Answer answer) : answer_(std::move(answer)), thread_([this] { Run(); }) {}
  ~Server() { Stop(); }

  NgSettings Settings() const {
    NgSettings settings;
    settings.port = socket_.Port();
    settings.first_wait = std::chrono::milliseconds(20);
    return settings;
  }
  /// The cookies of what came, in its order; no more is answered.
  const std::vector<std::string>& Stop() {
    stopping_ = true;
    if (thread_.joinable()) thread_.join();
    return cookies_;
  }

 private:
  void Run() {
    while (!stopping_) {
      pollfd waiting{socket_.Descriptor(), POLLIN, 0};
      if (poll(&waiting, 1, 5) <= 0) continue;
      const auto datagram = socket_.Receive();
      if (!datagram) continue;
      std::string error;
      const std::optional<NgFrame> frame =
          ParseNg({reinterpret_cast<const char*>(datagram->data.data()), datagram->data.size()}, error);
      if (!frame) continue;
      cookies_.push_back(frame->cookie);
      for (const std::string& text : answer_(*frame, static_cast<int>(cookies_.size()))) {
        socket_.SendTo(datagram->from, {text.begin(), text.end()});
      }
    }
  }

  const Answer answer_;
  UdpSocket socket_;
  std::atomic<bool> stopping_{false};
  std::vector<std::string> cookies_;  // of the thread until it is joined
  std::thread thread_;
};

TEST(NgClient, GivesTheReplyToItsRequest) {
  Server server([](const NgFrame& request, int) {
    return Server::Answers{
        FrameNg(request.cookie, {{"result", "pong"}, {"asked", TextOf(request.message, "command")}})};
  });
  NgClient client(server.Settings());
  std::string error;
  const auto reply = client.Ask({{"command", "ping"}}, error);
  ASSERT_TRUE(reply) << error;
  EXPECT_EQ(TextOf(*reply, "result"), "pong");
  EXPECT_EQ(TextOf(*reply, "asked"), "ping");
}

TEST(NgClient, RepeatsALostRequestUnderItsCookie) {
  Server server([](const NgFrame& request, int number) {
    return number < 3 ? Server::Answers{} : Server::Answers{FrameNg(request.cookie, {{"result", "ok"}})};
  });
  NgClient client(server.Settings());
  std::string error;
  ASSERT_TRUE(client.Ask({{"command", "query"}}, error)) << error;
  EXPECT_EQ(client.retransmissions(), 2u);
  const std::vector<std::string>& cookies = server.Stop();
  ASSERT_EQ(cookies.size(), 3u);
  EXPECT_EQ(cookies[1], cookies[0]);
  EXPECT_EQ(cookies[2], cookies[0]);
}

TEST(NgClient, UsesACookieOfItsOwnForEachRequest) {
  Server server([](const NgFrame& request, int) {
    return Server::Answers{FrameNg(request.cookie, {{"result", "ok"}})};
  });
  NgClient first(server.Settings()), second(server.Settings());
  std::string error;
  ASSERT_TRUE(first.Ask({}, error)) << error;
  ASSERT_TRUE(first.Ask({}, error)) << error;
  ASSERT_TRUE(second.Ask({}, error)) << error;
  const std::vector<std::string>& cookies = server.Stop();
  ASSERT_EQ(cookies.size(), 3u);
  EXPECT_NE(cookies[0], cookies[1]);
  EXPECT_NE(cookies[0], cookies[2]);
  EXPECT_NE(cookies[1], cookies[2]);
}

TEST(NgClient, PassesOverRepliesToOthersAndMalformedOnes) {
  Server server([](const NgFrame& request, int) {
    return Server::Answers{"",
                           "nothing",
                           request.cookie + " d3:sd",
                           request.cookie + " i5e",
                           FrameNg("another", {{"result", "wrong"}}),
                           FrameNg(request.cookie, {{"result", "right"}})};
  });
  NgClient client(server.Settings());
  std::string error;
  const auto reply = client.Ask({}, error);
  ASSERT_TRUE(reply) << error;
  EXPECT_EQ(TextOf(*reply, "result"), "right");
}

TEST(NgClient, TellsThatNobodyAnswersInTime) {
  UdpSocket silent;
  NgSettings settings;
  settings.port = silent.Port();
  settings.first_wait = std::chrono::milliseconds(10);
  settings.limit = std::chrono::milliseconds(60);
  NgClient client(settings);
  std::string error;
  EXPECT_FALSE(client.Ask({{"command", "ping"}}, error));
  EXPECT_EQ(error, "ng server 127.0.0.1:" + std::to_string(silent.Port()) + ": no reply within 60 ms");
  EXPECT_GE(client.retransmissions(), 1u);
}

TEST(NgClient, TellsThatNothingListens) {
  NgSettings settings;
  settings.port = UdpSocket().Port();  // closed again
  settings.first_wait = std::chrono::milliseconds(10);
  settings.limit = std::chrono::milliseconds(60);
  NgClient client(settings);
  std::string error;
  EXPECT_FALSE(client.Ask({{"command", "ping"}}, error));
  EXPECT_THAT(error, HasSubstr("nothing listens there"));
}

TEST(NgClient, RefusesAnAddressThatIsNone) {
  NgSettings settings;
  settings.address = "localhost";
  EXPECT_THROW(NgClient client(settings), std::runtime_error);
}

TEST(NgCall, OffersAnswersAndDeletesUnderOneCallId) {
  std::vector<std::string> seen;  // of the server's thread until it is stopped
  Server server([&seen](const NgFrame& request, int) {
    const std::string command = TextOf(request.message, "command");
    seen.push_back(command + " " + TextOf(request.message, "call-id") + " " + TextOf(request.message, "from-tag") +
                   " " + TextOf(request.message, "to-tag"));
    if (command == "delete") return Server::Answers{FrameNg(request.cookie, {{"result", "ok"}})};
    const std::string sdp = SdpOf({"127.0.0.9", static_cast<uint16_t>(command == "offer" ? 4000 : 4002), 0, {}});
    return Server::Answers{FrameNg(request.cookie, {{"result", "ok"}, {"sdp", sdp}})};
  });
  NgClient client(server.Settings());
  NgCall call(client, "one");
  NgLeg towards_callee, towards_caller;
  std::string error;
  EXPECT_TRUE(call.Offer({"127.0.0.1", 5000, 0, {}}, towards_callee, error)) << error;
  EXPECT_TRUE(call.Answer({"127.0.0.1", 5002, 0, {}}, towards_caller, error)) << error;
  EXPECT_TRUE(call.Delete(error)) << error;
  EXPECT_EQ(towards_callee.address, "127.0.0.9");
  EXPECT_EQ(towards_callee.rtp_port, 4000);
  EXPECT_EQ(towards_caller.rtp_port, 4002);
  server.Stop();
  EXPECT_THAT(seen, ElementsAre("offer one caller ", "answer one caller callee", "delete one caller "));
}

TEST(NgCall, TellsWhyTheDaemonRefuses) {
  Server server([](const NgFrame& request, int) {
    return Server::Answers{FrameNg(request.cookie, {{"result", "error"}, {"error-reason", "Unknown call-id"}})};
  });
  NgClient client(server.Settings());
  NgCall call(client, "two");
  std::string error;
  EXPECT_FALSE(call.Delete(error));
  EXPECT_EQ(error, "delete of two is refused: Unknown call-id");
}

TEST(NgSdp, SaysWhatItReads) {
  const NgLeg leg{"127.0.0.1", 5000, 5003, {{"1", "AES_CM_128_HMAC_SHA1_80", "QUJD"}}};
  NgLeg read;
  ASSERT_TRUE(ReadSdp(SdpOf(leg), read));
  EXPECT_EQ(read.address, "127.0.0.1");
  EXPECT_EQ(read.rtp_port, 5000);
  EXPECT_EQ(read.rtcp_port, 5003);
  ASSERT_EQ(read.cryptos.size(), 1u);
  EXPECT_EQ(read.cryptos[0].suite, "AES_CM_128_HMAC_SHA1_80");
  EXPECT_EQ(read.cryptos[0].key, "QUJD");
}

TEST(NgSdp, TakesTheKeyWithoutItsLifetime) {
  NgLeg read;
  ASSERT_TRUE(ReadSdp("c=IN IP4 127.0.0.1\r\nm=audio 5000 RTP/SAVP 0\r\na=crypto:3 S inline:QUJD|2^31|1:4\r\n", read));
  ASSERT_EQ(read.cryptos.size(), 1u);
  EXPECT_EQ(read.cryptos[0].tag, "3");
  EXPECT_EQ(read.cryptos[0].key, "QUJD");
}

TEST(NgSdp, RefusesWhatHasNoUsableAddress) {
  for (const char* sdp :
       {"", "m=audio 5000 RTP/AVP 0\r\n", "c=IN IP4 127.0.0.1\r\n", "c=IN IP4 here\r\nm=audio 5000 RTP/AVP 0\r\n",
        "c=IN IP4 127.0.0.1\r\nm=audio 65536 RTP/AVP 0\r\n", "c=IN IP4 127.0.0.1\r\nm=audio 0 RTP/AVP 0\r\n",
        "c=IN IP4 127.0.0.1\r\nm=audio 50x0 RTP/AVP 0\r\n"}) {
    NgLeg leg;
    EXPECT_FALSE(ReadSdp(sdp, leg)) << sdp;
  }
}

}  // namespace
}  // namespace rtpengine_ng
