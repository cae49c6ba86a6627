// rtpengine daemons that refuse, keep quiet or talk rubbish; and settings that are wrong.
#include "rtpengine_fixture.h"

#include "kelvaro/jsr309/configuration_check.h"

#include <atomic>
#include <functional>

namespace {

using namespace kelvaro::jsr309;
using test_support::EmbeddedOptions;
using test_support::NgServer;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;

using rtpengine::Dictionary;
using rtpengine::TextOf;

class RtpengineFailures : public test_support::RtpengineTest {
 protected:
  /// An "offer" or "answer" is answered with that; the rest as a daemon does that has nothing.
  void Serve(std::function<NgServer::Answers(const NgServer::Frame&, const std::string& command)> script) {
    server_ = std::make_unique<NgServer>([script = std::move(script)](const NgServer::Frame& request, int) {
      const std::string command = TextOf(request.message, "command");
      if (command == "ping") return NgServer::Reply(request, {{"result", "pong"}});
      if (command == "offer" || command == "answer") return script(request, command);
      return NgServer::Ok(request);
    });
    EmbeddedOptions options = At("127.0.0.1", server_->Port());
    options.request_timeout_ms = 1000;
    Start(options);
  }
  static std::string Sdp(const std::string& address, unsigned port) {
    return "v=0\r\no=- 1 1 IN IP4 " + address + "\r\ns=-\r\nc=IN IP4 " + address + "\r\nt=0 0\r\nm=audio " +
           std::to_string(port) + " RTP/AVP 0\r\na=rtpmap:0 PCMU/8000\r\n";
  }
  static NgServer::Answers Give(const NgServer::Frame& request, const std::string& sdp) {
    return NgServer::Reply(request, {{"result", "ok"}, {"sdp", sdp}});
  }
  /// Why the media server gave no port.
  std::string Refusal() {
    const auto session = NewSession();
    const ConnectionPtr connection = session ? NewConnection(session) : nullptr;
    if (!connection) return "no connection";
    MediaConfig local;
    AddCodec(local);
    EXPECT_FALSE(connection->GetLocalOffer(local));
    EXPECT_EQ(local.GetRtpPort(), 0);
    const auto errors = logger().Messages(kelvaro::ERROR_LOG_LEVEL);
    return errors.empty() ? "" : errors.back();
  }
  /// The names of the calls that requests of that command were about.
  std::set<std::string> CallsOf(const std::string& command) const {
    std::set<std::string> calls;
    for (const NgServer::Frame& request : server_->Requests()) {
      if (TextOf(request.message, "command") == command) calls.insert(TextOf(request.message, "call-id"));
    }
    return calls;
  }
  std::string Element(const std::string& name) const {
    return "Configuration file " + path() + ", element jsr309.media_servers.media_server[1]." + name;
  }
  void ExpectRefused(const std::string& extra, const std::string& name, const std::string& value,
                     const std::string& reason) {
    EmbeddedOptions options = At("127.0.0.1", 9);
    options.extras = {extra};
    const size_t before = logger().Messages(kelvaro::ERROR_LOG_LEVEL).size();
    EXPECT_FALSE(Init(options));
    const auto errors = logger().Messages(kelvaro::ERROR_LOG_LEVEL);
    ASSERT_EQ(errors.size(), before + 1);
    EXPECT_THAT(errors.back(), EndsWith(Element(name) + ", value \"" + value + "\": " + reason));
  }

  std::unique_ptr<NgServer> server_;
};

TEST_F(RtpengineFailures, ARefusalIsToldInTheDaemonsWordsAndLeavesNothingBehind) {
  Serve([](const NgServer::Frame& request, const std::string&) {
    return NgServer::Reply(request, {{"result", "error"}, {"error-reason", "Parallel session limit reached"}});
  });
  EXPECT_THAT(Refusal(), AllOf(HasSubstr("Refused local offer: "),
                               HasSubstr("refused \"offer\": Parallel session limit reached")));
  EXPECT_TRUE(Eventually([&] { return !CallsOf("delete").empty(); }));
  EXPECT_EQ(CallsOf("delete"), CallsOf("offer"));
}

TEST_F(RtpengineFailures, ADaemonThatKeepsQuietCostsTheTimeOfARequestAndLeavesNothingBehind) {
  Serve([](const NgServer::Frame&, const std::string&) { return NgServer::Answers(); });
  const auto begun = std::chrono::steady_clock::now();
  EXPECT_THAT(Refusal(), HasSubstr("Refused local offer: "));
  EXPECT_LT(std::chrono::steady_clock::now() - begun, std::chrono::seconds(10));
  EXPECT_TRUE(Eventually([&] { return CallsOf("delete") == CallsOf("offer"); }));
}

TEST_F(RtpengineFailures, AnAnswerThatFailsAfterItsOfferLeavesNothingBehind) {
  Serve([](const NgServer::Frame& request, const std::string& command) {
    if (command == "offer") return Give(request, Sdp("127.0.0.1", 30000));
    return NgServer::Reply(request, {{"result", "error"}, {"error-reason", "Ran out of ports"}});
  });
  EXPECT_THAT(Refusal(), HasSubstr("refused \"answer\": Ran out of ports"));
  EXPECT_TRUE(Eventually([&] { return CallsOf("delete") == CallsOf("offer"); }));
}

TEST_F(RtpengineFailures, RepliesThatCannotBeUsedAreRefused) {
  Dictionary reply;
  std::mutex mutex;
  Serve([&](const NgServer::Frame& request, const std::string&) {
    const std::lock_guard<std::mutex> lock(mutex);
    return NgServer::Reply(request, reply);
  });
  const Dictionary rubbish[] = {{{"result", "ok"}},
                                {{"result", "ok"}, {"sdp", "rubbish"}},
                                {{"result", "ok"}, {"sdp", 7}},
                                {{"result", "ok"}, {"sdp", Sdp("127.0.0.1", 0)}},
                                {{"result", "ok"}, {"sdp", Sdp("127.0.0.1", 70000)}},
                                {{"colour", "blue"}}};
  for (const Dictionary& one : rubbish) {
    {
      const std::lock_guard<std::mutex> lock(mutex);
      reply = one;
    }
    EXPECT_THAT(Refusal(), HasSubstr("Refused local offer: "));
  }
  EXPECT_TRUE(Eventually([&] { return CallsOf("delete").size() == std::size(rubbish); }));
}

TEST_F(RtpengineFailures, APortOnAnotherAddressThanTheServersIsRefusedByBoth) {
  Serve([](const NgServer::Frame& request, const std::string&) { return Give(request, Sdp("127.0.0.7", 30000)); });
  EXPECT_THAT(Refusal(), HasSubstr("the daemon gave a port on 127.0.0.7, and the server's address is 127.0.0.1 (check "
                                   "address and interface)"));
}

TEST_F(RtpengineFailures, ACallThatTheDaemonHasEndedByItselfIsNotTakenForANewOne) {
  std::atomic<unsigned> port{30000};
  Serve([&](const NgServer::Frame& request, const std::string& command) {
    return Give(request, Sdp("127.0.0.1", port + (command == "offer" ? 0 : 2)));
  });
  const auto session = NewSession();
  const ConnectionPtr connection = NewConnection(session);
  MediaConfig local;
  AddCodec(local);
  ASSERT_TRUE(connection->GetLocalOffer(local));
  EXPECT_EQ(local.GetRtpPort(), 30000);
  port = 30100;
  EXPECT_FALSE(connection->GetLocalOffer(local));
  EXPECT_TRUE(logger().Has(kelvaro::ERROR_LOG_LEVEL, "the daemon has ended the call by itself"));
}

TEST_F(RtpengineFailures, SettingsThatAreWrongAreRefusedByFileElementAndValue) {
  const std::string control = "not an address or a name, and a port, as in 192.0.2.1:2223";
  for (const char* value :
       {"127.0.0.1", "256.0.0.1:2223", "media_1:2223", "127.0.0.1:0", "127.0.0.1:70000", "::1:2223", ":2223", "x"}) {
    ExpectRefused("<control>" + std::string(value) + "</control>", "control", value, control);
  }
  ExpectRefused("", "control", "", "missing");
  const std::string right = "<control>127.0.0.1:9</control>";
  const std::string heartbeat = "not a number of milliseconds from 100 to 600000";
  for (const char* value : {"99", "600001", "soon"}) {
    ExpectRefused(right + "<heartbeat_ms>" + value + "</heartbeat_ms>", "heartbeat_ms", value, heartbeat);
  }
  ExpectRefused(right + "<interface>pub/1</interface>", "interface", "pub/1", "not the name of an interface");
  ExpectRefused(right + "<colour>blue</colour>", "colour", "blue", "not known to the rtpengine driver");
}

TEST_F(RtpengineFailures, TheDaemonIsFoundByItsName) {
  NgServer server([](const NgServer::Frame& request, int) { return NgServer::Reply(request, {{"result", "pong"}}); });
  EmbeddedOptions options = At("127.0.0.1", server.Port());
  options.extras = {"<control>localhost:" + std::to_string(server.Port()) + "</control>"};
  options.request_timeout_ms = 20000;
  Start(options);
  EXPECT_TRUE(factory().IsMediaServerAvailable());
}

TEST_F(RtpengineFailures, ANameThatNobodyHasIsRefused) {
  // Longer than a label may be: no name server is asked.
  const std::string name(64, 'x');
  EmbeddedOptions options = At("127.0.0.1", 9);
  options.extras = {"<control>" + name + ":2223</control>"};
  EXPECT_FALSE(Init(options));
  EXPECT_TRUE(logger().Has(kelvaro::ERROR_LOG_LEVEL,
                           Element("control") + ", value \"" + name + ":2223\": the name cannot be resolved: "));
}

TEST_F(RtpengineFailures, DaemonsAreWaitedForAllAtOnceWhenTheFactoryStarts) {
  std::atomic<bool> other_is_asked{false};
  // The first answers nothing before the second was asked.
  NgServer first([&](const NgServer::Frame& request, int) {
    return other_is_asked ? NgServer::Reply(request, {{"result", "pong"}}) : NgServer::Answers();
  });
  NgServer second([&](const NgServer::Frame& request, int) {
    other_is_asked = true;
    return NgServer::Reply(request, {{"result", "pong"}});
  });
  EmbeddedOptions options = At("127.0.0.1", first.Port());
  options.addresses.push_back("127.0.0.2");
  options.extras.push_back("<control>127.0.0.1:" + std::to_string(second.Port()) + "</control>");
  options.request_timeout_ms = 20000;
  Start(options);
  EXPECT_FALSE(logger().Has(kelvaro::WARN_LOG_LEVEL, "does not answer"));
}

TEST_F(RtpengineFailures, ACheckOfTheConfigurationNamesEveryMistakeAndAsksNobody) {
  EmbeddedOptions options = At("127.0.0.1", 9);
  options.extras = {"<control>nowhere</control><heartbeat_ms>1</heartbeat_ms>"};
  EXPECT_FALSE(Init(options));
  std::vector<std::string> mistakes;
  for (const SettingError& mistake : CheckConfiguration(path()))
    mistakes.push_back(mistake.element + " " + mistake.value);
  const std::string server = "jsr309.media_servers.media_server[1].";
  EXPECT_THAT(mistakes, testing::ElementsAre(server + "control nowhere", server + "heartbeat_ms 1"));
}

TEST_F(RtpengineFailures, AnInterfaceIsAskedForByItsName) {
  Serve([](const NgServer::Frame& request, const std::string&) { return Give(request, Sdp("127.0.0.1", 30000)); });
  DestroyFactory();
  EmbeddedOptions options = At("127.0.0.1", server_->Port());
  options.extra = "<interface>media</interface>";
  Start(options);
  const Leg leg = NewLeg(NewSession());
  const auto requests = server_->Requests();
  const auto offer = std::find_if(requests.begin(), requests.end(), [](const NgServer::Frame& request) {
    return TextOf(request.message, "command") == "offer";
  });
  ASSERT_NE(offer, requests.end());
  EXPECT_EQ(offer->message.at("direction"), rtpengine::Bencode(rtpengine::Bencode::List{"media", "media"}));
}

}  // namespace
