#include "rtpengine/ng_control.h"

#include "ng_control_fixture.h"

#include "rtpengine/ng_frame.h"

#include <condition_variable>
#include <future>
#include <map>
#include <set>
#include <thread>
#include <vector>

namespace kelvaro::jsr309::rtpengine {
namespace {

using test_support::kLongEnough;
using test_support::NgServer;
using test_support::wait_until;
using testing::HasSubstr;
using testing::StartsWith;
using Answers = NgServer::Answers;

class NgControlTest : public test_support::NgControlTest {};

/// What a call back told, for the test's thread.
class Told {
 public:
  NgDone Done() {
    return [this](const NgResult& result) {
      const std::lock_guard<std::mutex> lock(mutex_);
      results_.push_back(result);
    };
  }
  std::vector<NgResult> Results() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return results_;
  }
  bool Await(std::size_t count) const {
    return wait_until(kLongEnough, [&] { return Results().size() >= count; });
  }

 private:
  mutable std::mutex mutex_;
  std::vector<NgResult> results_;
};

TEST_F(NgControlTest, GivesTheReplyToItsRequest) {
  Serve([](const NgFrame& request, int) {
    return NgServer::Reply(request, {{"result", "pong"}, {"asked", TextOf(request.message, "command")}});
  });
  EXPECT_EQ(Ask({{"command", "ping"}}, "asked"), "ping");
  EXPECT_EQ(Ask({{"command", "ping"}}), "pong");
  EXPECT_EQ(Control().Counters().replies, 2u);
}

TEST_F(NgControlTest, GivesARefusalAsAReply) {
  Serve([](const NgFrame& request, int) {
    return NgServer::Reply(request, {{"result", "error"}, {"error-reason", "No such thing"}});
  });
  EXPECT_EQ(Ask({{"command", "offer"}}, "error-reason"), "No such thing");
}

TEST_F(NgControlTest, CarriesManyRequestsAtOnceAndSortsRepliesThatComeInAnyOrder) {
  constexpr int kAskers = 40;
  Serve([held = Answers()](const NgFrame& request, int) mutable {
    held.push_back(FrameNg(request.cookie, {{"result", "ok"}, {"for", TextOf(request.message, "call-id")}}));
    if (held.size() < kAskers) return Answers{};
    return Answers(held.rbegin(), held.rend());
  });
  NgControl& control = Control();
  std::vector<std::thread> askers;
  std::vector<std::string> told(kAskers);
  for (int i = 0; i < kAskers; ++i) {
    askers.emplace_back([&, i] {
      std::string error;
      const auto reply = control.Ask({{"command", "query"}, {"call-id", std::to_string(i)}}, kLongEnough, error);
      told[i] = reply ? TextOf(*reply, "for") : error;
    });
  }
  for (std::thread& asker : askers) asker.join();
  for (int i = 0; i < kAskers; ++i) EXPECT_EQ(told[i], std::to_string(i));
}

TEST_F(NgControlTest, RepeatsALostRequestUnderItsCookie) {
  Serve([](const NgFrame& request, int number) { return number < 3 ? Answers{} : NgServer::Ok(request); });
  EXPECT_EQ(Ask({{"command", "query"}}), "ok");
  const auto seen = server_->Requests();
  ASSERT_GE(seen.size(), 3u);
  EXPECT_EQ(seen[1].cookie, seen[0].cookie);
  EXPECT_EQ(seen[2].cookie, seen[0].cookie);
  EXPECT_GE(Control().Counters().retransmissions, 2u);
}

TEST_F(NgControlTest, UsesACookieOfItsOwnForEachRequestAndChannel) {
  Serve([](const NgFrame& request, int) { return NgServer::Ok(request); });
  const auto other = Open(server_->Port());
  std::string error;
  EXPECT_EQ(Ask({}), "ok");
  EXPECT_EQ(Ask({}), "ok");
  EXPECT_TRUE(other->Ask({}, kLongEnough, error)) << error;
  std::set<std::string> cookies;
  for (const NgFrame& request : server_->Requests()) cookies.insert(request.cookie);
  EXPECT_EQ(cookies.size(), 3u);
}

TEST_F(NgControlTest, DropsWhatIsNoReplyAndTakesTheOneThatIs) {
  Serve([](const NgFrame& request, int) {
    return Answers{"",
                   "nothing",
                   request.cookie + " d3:sd",
                   request.cookie + " i5e",
                   FrameNg("another", {{"result", "wrong"}}),
                   FrameNg(request.cookie + "0", {{"result", "wrong"}}),
                   FrameNg(request.cookie + "x", {{"result", "wrong"}}),
                   FrameNg(request.cookie, {{"result", "right"}})};
  });
  EXPECT_EQ(Ask({{"command", "query"}}), "right");
  EXPECT_GE(Control().Counters().malformed, 4u);
  EXPECT_GE(Control().Counters().wrong_cookies, 3u);
}

TEST_F(NgControlTest, NamesTheDaemonOfAMalformedReplyInTheLogAndNotEachTime) {
  Serve([](const NgFrame& request, int number) {
    if (number > 1) return NgServer::Ok(request);
    Answers answers(500, request.cookie + " d6:result2:o");
    answers.push_back(FrameNg(request.cookie, {{"result", "ok"}}));
    return answers;
  });
  const auto before = std::chrono::steady_clock::now();
  // The second only says that what came before it was taken.
  EXPECT_EQ(Ask({{"command", "query"}}), "ok");
  EXPECT_EQ(Ask({{"command", "query"}}), "ok");
  const auto seconds = std::chrono::ceil<std::chrono::seconds>(std::chrono::steady_clock::now() - before).count();
  const auto lines = logger_.Messages(WARN_LOG_LEVEL);
  ASSERT_FALSE(lines.empty());
  EXPECT_LE(static_cast<long>(lines.size()), seconds);
  // A datagram may be lost on the way, even here.
  EXPECT_GT(Control().Counters().malformed, 1u);
  EXPECT_EQ(Name(), "rtpengine 127.0.0.1:" + std::to_string(server_->Port()) + " (02:00:00:00:00:01)");
  EXPECT_THAT(lines.front(), StartsWith(Name() + ": dropped a malformed reply of "));
  EXPECT_THAT(lines.front(), HasSubstr(" octets: text longer than what came at octet 9"));
}

TEST_F(NgControlTest, DropsDuplicates) {
  Serve([](const NgFrame& request, int) {
    const std::string reply = FrameNg(request.cookie, {{"result", "ok"}});
    return Answers{reply, reply, reply};
  });
  EXPECT_EQ(Ask({{"command", "offer"}}), "ok");
  EXPECT_TRUE(wait_until(kLongEnough, [&] { return Control().Counters().duplicates >= 2; }));
  EXPECT_EQ(Control().Counters().replies, 1u);
}

TEST_F(NgControlTest, DropsALateReply) {
  Serve([](const NgFrame&, int) { return Answers{}; });
  EXPECT_EQ(Ask({{"command", "offer"}, {"call-id", "one"}}, "result", milliseconds(30)),
            Name() + ": no reply to \"offer\" of one within 30 ms");
  ASSERT_TRUE(server_->Await(1));
  server_->Send(FrameNg(server_->Requests().front().cookie, {{"result", "ok"}}));
  EXPECT_TRUE(wait_until(kLongEnough, [&] { return Control().Counters().late == 1; }));
  EXPECT_EQ(Control().Counters().timeouts, 1u);
  EXPECT_EQ(Control().Counters().replies, 0u);
}

TEST_F(NgControlTest, TakesTheLongestReplyOfIpv4) {
  std::string filling;
  Serve([&filling](const NgFrame& request, int) {
    const std::size_t rest = FrameNg(request.cookie, {{"result", "ok"}, {"x", ""}}).size();
    filling.assign(kLongestNgDatagram - rest - 4, 'x');  // "0:" becomes "65..:"
    return NgServer::Reply(request, {{"result", "ok"}, {"x", filling}});
  });
  const std::string reply = Ask({{"command", "query"}}, "x");
  server_.reset();
  EXPECT_EQ(reply, filling);
  EXPECT_GT(filling.size(), 65400u);
}

TEST_F(NgControlTest, DropsAnOversizedReply) {
  server_ = std::make_unique<NgServer>(
      [](const NgFrame& request, int) {
        return Answers{std::string(kLongestNgDatagram + 1, 'x'), FrameNg(request.cookie, {{"result", "ok"}})};
      },
      0, true);
  const auto control = Open(server_->Port(), "::1");
  std::string error;
  EXPECT_TRUE(control->Ask({{"command", "query"}}, kLongEnough, error)) << error;
  EXPECT_GE(control->Counters().oversized, 1u);
  ASSERT_FALSE(logger_.Messages(WARN_LOG_LEVEL).empty());
  EXPECT_EQ(logger_.Messages(WARN_LOG_LEVEL).front(),
            "rtpengine [::1]:" + std::to_string(server_->Port()) +
                " (02:00:00:00:00:01): dropped a reply of more than 65507 octets");
}

TEST_F(NgControlTest, RefusesARequestThatDoesNotFitIntoADatagram) {
  Serve([](const NgFrame& request, int) { return NgServer::Ok(request); });
  const Dictionary request{{"command", "offer"}, {"sdp", std::string(kLongestNgDatagram, 'x')}};
  EXPECT_THAT(Ask(request), StartsWith(Name() + ": \"offer\" of 65"));
  EXPECT_THAT(Ask(request), HasSubstr(" octets does not fit into a datagram of 65507"));
  EXPECT_FALSE(Control().Post(request, kLongEnough));
  EXPECT_TRUE(logger_.Has(WARN_LOG_LEVEL, "does not fit into a datagram"));
  EXPECT_TRUE(server_->Requests().empty());
}

TEST_F(NgControlTest, TellsThatNobodyListens) {
  const std::uint16_t port = test_support::UdpSocket().Port();  // closed again
  const auto control = Open(port);
  std::string error;
  EXPECT_FALSE(control->Ask({{"command", "ping"}}, milliseconds(50), error));
  EXPECT_EQ(error, control->Name() + ": no reply to \"ping\" within 50 ms: nobody listens there");
}

TEST_F(NgControlTest, IsAnsweredByADaemonThatComesInTime) {
  const std::uint16_t port = test_support::UdpSocket().Port();
  Told told;
  const auto control = Open(port);
  ASSERT_TRUE(control->Post({{"command", "ping"}}, kLongEnough, told.Done()));
  ASSERT_TRUE(wait_until(kLongEnough, [&] { return control->Counters().refused > 0; }));
  NgServer late([](const NgFrame& request, int) { return NgServer::Ok(request); }, port);
  ASSERT_TRUE(told.Await(1));
  EXPECT_TRUE(told.Results().front().reply);
}

TEST_F(NgControlTest, TellsWhatBecameOfWhatWasPostedOnce) {
  Serve([](const NgFrame& request, int) {
    const std::string reply = FrameNg(request.cookie, {{"result", "ok"}});
    return TextOf(request.message, "command") == "delete" ? Answers{reply, reply} : Answers{};
  });
  Told answered, silent;
  EXPECT_TRUE(Control().Post({{"command", "delete"}, {"call-id", "one"}}, kLongEnough, answered.Done()));
  EXPECT_TRUE(Control().Post({{"command", "query"}, {"call-id", "two"}}, milliseconds(20), silent.Done()));
  ASSERT_TRUE(answered.Await(1));
  ASSERT_TRUE(silent.Await(1));
  EXPECT_EQ(TextOf(*answered.Results()[0].reply, "result"), "ok");
  EXPECT_FALSE(silent.Results()[0].reply);
  EXPECT_EQ(silent.Results()[0].error, Name() + ": no reply to \"query\" of two within 20 ms");
  Control().Stop();
  EXPECT_EQ(answered.Results().size(), 1u);
  EXPECT_EQ(silent.Results().size(), 1u);
}

TEST_F(NgControlTest, DoesNotSendARequestOfACallBeforeTheOneBeforeItIsAnswered) {
  const auto answer = std::make_shared<std::atomic<bool>>(false);
  Serve([answer](const NgFrame& request, int) {
    const bool held = TextOf(request.message, "command") == "delete" && !*answer;
    return held ? Answers{} : NgServer::Ok(request);
  });
  Told offered;
  EXPECT_TRUE(Control().Post({{"command", "delete"}, {"call-id", "one"}}, kLongEnough));
  EXPECT_TRUE(Control().Post({{"command", "offer"}, {"call-id", "one"}}, kLongEnough, offered.Done()));
  // Another call and none at all do not wait for it.
  EXPECT_EQ(Ask({{"command", "offer"}, {"call-id", "two"}}), "ok");
  EXPECT_EQ(Ask({{"command", "ping"}}), "ok");
  EXPECT_THAT(Ask({{"command", "query"}, {"call-id", "one"}}, "result", milliseconds(20)),
              Name() + ": no reply to \"query\" of one within 20 ms, not sent for others before it");
  for (const NgFrame& request : server_->Requests()) {
    const bool is_delete = TextOf(request.message, "command") == "delete";
    EXPECT_EQ(is_delete, TextOf(request.message, "call-id") == "one") << TextOf(request.message, "command");
  }
  *answer = true;
  ASSERT_TRUE(offered.Await(1));
  EXPECT_TRUE(offered.Results()[0].reply);
}

TEST_F(NgControlTest, RefusesWhatIsNotWantedAnyMoreWhenItWouldTakeItsPlaceInLine) {
  Serve([](const NgFrame& request, int) { return NgServer::Ok(request); });
  bool ended = false;
  const NgCondition wanted = [&ended] { return !ended; };
  std::string error;
  EXPECT_TRUE(Control().Ask({{"command", "offer"}, {"call-id", "one"}}, kLongEnough, error, wanted)) << error;
  ended = true;
  EXPECT_FALSE(Control().Ask({{"command", "offer"}, {"call-id", "one"}}, kLongEnough, error, wanted));
  EXPECT_EQ(error, Name() + ": \"offer\" is not wanted any more");
  EXPECT_FALSE(Control().Post({{"command", "offer"}, {"call-id", "one"}}, kLongEnough, nullptr, wanted));
  EXPECT_EQ(Ask({{"command", "delete"}, {"call-id", "one"}}), "ok");
  std::set<std::string> offers;
  for (const NgFrame& request : server_->Requests()) {
    if (TextOf(request.message, "command") == "offer") offers.insert(request.cookie);
  }
  EXPECT_EQ(offers.size(), 1u);
  EXPECT_EQ(logger_.Count(), 0u);
}

TEST_F(NgControlTest, ReturnsWhoeverAsksWhenStopped) {
  Serve([](const NgFrame&, int) { return Answers{}; });
  NgControl& control = Control();
  auto asker = std::async(std::launch::async, [&control] {
    std::string error;
    EXPECT_FALSE(control.Ask({{"command", "offer"}}, std::chrono::minutes(10), error));
    return error;
  });
  Told posted;
  EXPECT_TRUE(control.Post({{"command", "delete"}}, std::chrono::minutes(10), posted.Done()));
  ASSERT_TRUE(server_->Await(2));
  control.Stop();
  EXPECT_EQ(asker.get(), Name() + ": stopped");
  ASSERT_EQ(posted.Results().size(), 1u);
  EXPECT_EQ(posted.Results()[0].error, Name() + ": stopped");
}

TEST_F(NgControlTest, RefusesRequestsAfterTheStopWithoutAWordInTheLog) {
  Serve([](const NgFrame& request, int) { return NgServer::Ok(request); });
  Control().Stop();
  Control().Stop();
  EXPECT_EQ(Ask({{"command", "offer"}}), Name() + ": \"offer\" after the stop");
  EXPECT_FALSE(Control().Post({{"command", "delete"}}, kLongEnough));
  EXPECT_EQ(logger_.Count(), 0u);
}

TEST_F(NgControlTest, LetsACallbackPostButNotAsk) {
  Serve([](const NgFrame& request, int) { return NgServer::Ok(request); });
  NgControl& control = Control();
  std::promise<std::string> asked;
  Told posted;
  EXPECT_TRUE(control.Post({{"command", "query"}}, kLongEnough, [&](const NgResult&) {
    std::string error;
    EXPECT_FALSE(control.Ask({{"command", "offer"}}, kLongEnough, error));
    EXPECT_TRUE(control.Post({{"command", "delete"}}, kLongEnough, posted.Done()));
    asked.set_value(error);
  }));
  EXPECT_EQ(asked.get_future().get(), Name() + ": \"offer\" asked by a callback, which would wait for itself");
  EXPECT_TRUE(posted.Await(1));
}

TEST_F(NgControlTest, SaysWhichAddressIsNone) {
  NgControl control({"localhost", 2223, "02:00:00:00:00:01"}, guarded_);
  std::string error;
  EXPECT_FALSE(control.Start(nullptr, error));
  EXPECT_EQ(error, "rtpengine localhost:2223 (02:00:00:00:00:01): \"localhost\" is no numeric address");
  EXPECT_FALSE(control.Ask({}, kLongEnough, error));
}

/// Counts what it hears.
class Listener : public NgListener {
 public:
  void OnAnswer(NgTime) override { ++answers; }
  void OnRefused(NgTime) override { ++refusals; }
  NgTime OnTime(NgTime now) override {
    ++times;
    return now + milliseconds(1);
  }
  std::atomic<int> answers{0}, refusals{0}, times{0};
};

TEST_F(NgControlTest, TellsItsListenerOfAnswersAndOfTimeUntilTheStop) {
  Listener listener;
  Serve([](const NgFrame& request, int) { return NgServer::Ok(request); });
  Control(&listener);
  EXPECT_EQ(Ask({{"command", "ping"}}), "ok");
  EXPECT_GE(listener.answers, 1);
  EXPECT_TRUE(wait_until(kLongEnough, [&] { return listener.times > 5; }));
  Control().Stop();
  const int times = listener.times;
  std::this_thread::sleep_for(milliseconds(10));
  EXPECT_EQ(listener.times, times);
}

TEST_F(NgControlTest, TellsItsListenerOfARefusalLongBeforeTheAskerGivesUp) {
  Listener listener;
  Told told;
  const auto control = Open(test_support::UdpSocket().Port(), "127.0.0.1", &listener);
  EXPECT_TRUE(control->Post({{"command", "ping"}}, std::chrono::minutes(10), told.Done()));
  EXPECT_TRUE(wait_until(kLongEnough, [&] { return listener.refusals > 0; }));
  EXPECT_TRUE(told.Results().empty());
}

}  // namespace
}  // namespace kelvaro::jsr309::rtpengine
