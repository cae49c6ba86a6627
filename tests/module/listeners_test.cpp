#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <boost/uuid/nil_generator.hpp>
#include <boost/uuid/string_generator.hpp>
#include <boost/uuid/uuid_io.hpp>
#include <chrono>
#include <future>

#include "media_server_lost_listener.h"
#include "media_session_table.h"
#include "module/call_hooks.h"
#include "module/fake_media.h"
#include "module/module_fixture.h"
#include "network_connection_node.h"

namespace module_test {

namespace {

using boost::uuids::uuid;
using kvx_media_server::MediaSessionTable;
using kvx_media_server::MyMediaServerLostListener;
using kvx_media_server::MyMediaServerLostListenerSharedPtr;
using kvx_media_server::NetworkConnectionNodeSharedPtr;
using test_support::debug_line;
using test_support::LogLine;
using test_support::notice_line;
using testing::ElementsAre;
using testing::IsEmpty;

const uuid kSession = boost::uuids::string_generator()("11111111-1111-4111-8111-111111111111");

const LogLine kDown = debug_line("Media Server connection down. Hanging up all calls.\n");
const LogLine kBegin = debug_line("********* Begin of switch_channel_hangup() *********\n");
const LogLine kEnd = debug_line("********** End of switch_channel_hangup() **********\n");
const LogLine kNoList = debug_line("Failed to retrieve media session fs_uuid list.\n");

}  // namespace

class MediaServerLost : public testing::Test {
 protected:
  MediaServerLost() : listener_(boost::make_shared<MyMediaServerLostListener>(table_)) {
    listener_->SetUuid(kSession);
    table_.RegisterMediaSession(fake_session(), listener_);
  }
  ~MediaServerLost() override {
    std::vector<kvx_media_server::NetworkConnectionSharedPtr> connections;
    table_.ListMediaSessionAllNetworkConnections(connections, kSession);
    for (const auto& connection : connections) connection->RemoveListener();
  }
  void AddLeg(const std::string& fs_uuid) {
    ASSERT_TRUE(table_.RegisterNetworkConnection(kSession, fake_connection(), fs_uuid));
  }
  bool Lose() {
    log_.Clear();
    bool delete_listener = false;
    listener_->OnEvent(kelvaro::jsr309::MediaServerLostEvent(), delete_listener);
    return delete_listener;
  }
  std::vector<LogLine> Logged() { return log_.LinesOf({"media_server_lost_listener.cpp"}); }

  test_support::LogCapture log_;
  MediaSessionTable table_;
  MyMediaServerLostListenerSharedPtr listener_;
};

TEST_F(MediaServerLost, HangsUpEveryLegOfTheSessionAsOutOfOrder) {
  Leg first, second, stranger;
  AddLeg(first.Uuid());
  AddLeg(second.Uuid());
  EXPECT_TRUE(Lose());
  EXPECT_TRUE(first.HungUp());
  EXPECT_TRUE(second.HungUp());
  EXPECT_FALSE(stranger.HungUp());
  EXPECT_EQ(first.Cause(), SWITCH_CAUSE_DESTINATION_OUT_OF_ORDER);
  EXPECT_EQ(second.Cause(), SWITCH_CAUSE_DESTINATION_OUT_OF_ORDER);
  EXPECT_EQ(static_cast<int>(first.Cause()), 27);
  EXPECT_THAT(Logged(), ElementsAre(kDown, kBegin, kEnd));
}

TEST_F(MediaServerLost, DisablesItselfAndLeavesTheTableAlone) {
  Leg leg;
  AddLeg(leg.Uuid());
  EXPECT_TRUE(listener_->IsListenerEnabled());
  EXPECT_TRUE(Lose());
  EXPECT_FALSE(listener_->IsListenerEnabled());
  EXPECT_EQ(table_.CountMediaSessionAllFSUuid(), 1u);
  EXPECT_TRUE(table_.GetNetworkConnection(kSession, leg.Uuid()));
}

TEST_F(MediaServerLost, SkipsLegsThatAreGoneAndGivesBackEveryLock) {
  Leg first, last;
  AddLeg(first.Uuid());
  AddLeg("no such leg");
  AddLeg(last.Uuid());
  EXPECT_TRUE(Lose());
  EXPECT_TRUE(last.HungUp());
  EXPECT_THAT(Logged(), ElementsAre(kDown, kBegin, kEnd));
  first.End();  // waits for ever when a read lock was kept
  last.End();
}

TEST_F(MediaServerLost, WithoutEntryHangsUpNothingAndStaysRegistered) {
  Leg leg;
  table_.EraseAllMSUuid();
  EXPECT_FALSE(Lose());
  EXPECT_FALSE(leg.HungUp());
  EXPECT_TRUE(listener_->IsListenerEnabled());
  EXPECT_THAT(Logged(), ElementsAre(kDown, kNoList));
}

TEST_F(MediaServerLost, WithoutLegsStaysRegistered) {
  EXPECT_FALSE(Lose());
  EXPECT_TRUE(listener_->IsListenerEnabled());
  EXPECT_THAT(Logged(), ElementsAre(kDown, kNoList));
}

// The table itself reports a session without legs as a failure; this is what comes of it if it ever does not.
TEST_F(MediaServerLost, WithAnEmptyListIsNoticedAndStaysRegistered) {
  const WhileTrue empty(call_hooks().leg_lists_are_empty);
  EXPECT_FALSE(Lose());
  EXPECT_TRUE(listener_->IsListenerEnabled());
  EXPECT_THAT(Logged(), ElementsAre(kDown, notice_line("Media Session table is empty. No calls to hang up.\n")));
}

TEST_F(MediaServerLost, HangsUpInOrderOfRegistrationWithNoLockHeldAndDisablesItselfLast) {
  Leg first, second;
  AddLeg(second.Uuid());
  AddLeg(first.Uuid());
  std::vector<switch_channel_t*> order;
  std::vector<std::future<size_t>> others;
  const WhileHooked hangup(call_hooks().hangup, [&](switch_channel_t* channel, switch_call_cause_t cause) {
    order.push_back(channel);
    EXPECT_EQ(cause, SWITCH_CAUSE_DESTINATION_OUT_OF_ORDER);
    EXPECT_TRUE(listener_->IsListenerEnabled());
    others.push_back(std::async(std::launch::async, [&] { return table_.CountMediaSessionAllFSUuid(); }));
    EXPECT_EQ(others.back().wait_for(std::chrono::seconds(5)), std::future_status::ready);
  });
  EXPECT_TRUE(Lose());
  EXPECT_THAT(order, ElementsAre(second.Channel(), first.Channel()));
}

TEST_F(MediaServerLost, LeavesTheAnswerAsItIsWhenThereIsNothingToHangUp) {
  bool delete_listener = true;
  listener_->OnEvent(kelvaro::jsr309::MediaServerLostEvent(), delete_listener);
  EXPECT_TRUE(delete_listener);
}

TEST(MyMediaServerLostListener, IsEnabledAndWatchesNothingWhenNew) {
  MediaSessionTable table;
  MyMediaServerLostListener listener(table);
  EXPECT_TRUE(listener.IsListenerEnabled());
  EXPECT_EQ(listener.GetUuid(), boost::uuids::nil_uuid());
  listener.DisableListener();
  EXPECT_FALSE(listener.IsListenerEnabled());
  listener.EnableListener();
  EXPECT_TRUE(listener.IsListenerEnabled());
}

TEST(MyMediaServerLostListener, SaysWhenItGoes) {
  test_support::LogCapture log;
  MediaSessionTable table;
  { const MyMediaServerLostListener listener(table); }
  EXPECT_THAT(log.ModuleLines(), ElementsAre(debug_line("MyMediaServerLostListener::~MyMediaServerLostListener\n")));
}

class RtpTimeout : public testing::Test {
 protected:
  NetworkConnectionNodeSharedPtr NodeOf(const std::string& fs_uuid) {
    return boost::make_shared<MediaSessionTable::NetworkConnectionNode>(fake_connection(), fs_uuid);
  }
  static void Fire(const NetworkConnectionNodeSharedPtr& node) {
    node->OnEvent(kelvaro::jsr309::RtpTimeoutEvent(1, true));
  }
  std::vector<LogLine> Logged() { return log_.LinesOf({"network_connection_node.cpp"}); }

  test_support::LogCapture log_;
};

TEST_F(RtpTimeout, HangsTheLegUpAsOutOfOrder) {
  Leg leg;
  const NetworkConnectionNodeSharedPtr node = NodeOf(leg.Uuid());
  Fire(node);
  EXPECT_TRUE(leg.HungUp());
  EXPECT_EQ(leg.Cause(), SWITCH_CAUSE_DESTINATION_OUT_OF_ORDER);
  EXPECT_FALSE(node->IsListenerEnabled());
  EXPECT_THAT(Logged(), ElementsAre(debug_line("Rtp Timeout. Hanging up the call leg.\n")));
  leg.End();
}

TEST_F(RtpTimeout, OfDisabledNodeIsIgnored) {
  Leg leg;
  const NetworkConnectionNodeSharedPtr node = NodeOf(leg.Uuid());
  node->DisableListener();
  Fire(node);
  EXPECT_FALSE(leg.HungUp());
  EXPECT_THAT(Logged(), IsEmpty());
  leg.End();  // waits for ever when a read lock was kept
}

TEST_F(RtpTimeout, HangsUpOnlyOnce) {
  Leg leg;
  const NetworkConnectionNodeSharedPtr node = NodeOf(leg.Uuid());
  Fire(node);
  log_.Clear();
  Fire(node);  // a leg that hangs up is no longer located
  EXPECT_THAT(Logged(), ElementsAre(debug_line("Unable to locate the session, ignoring RTP timeout. \n")));
  EXPECT_FALSE(node->IsListenerEnabled());
}

TEST_F(RtpTimeout, OfLegThatHasEndedIsLogged) {
  Leg leg;
  const NetworkConnectionNodeSharedPtr node = NodeOf(leg.Uuid());
  leg.End();
  Fire(node);
  EXPECT_THAT(Logged(), ElementsAre(debug_line("Unable to locate the session, ignoring RTP timeout. \n")));
  EXPECT_TRUE(node->IsListenerEnabled());
}

TEST_F(RtpTimeout, LegIsLocatedBeforeTheFlagIsLookedAt) {
  const NetworkConnectionNodeSharedPtr node = NodeOf("no such leg");
  node->DisableListener();
  Fire(node);
  EXPECT_THAT(Logged(), ElementsAre(debug_line("Unable to locate the session, ignoring RTP timeout. \n")));
}

/// What the handler does, step by step, and that nobody else gets at the node meanwhile.
class RtpTimeoutSteps : public RtpTimeout {
 protected:
  void Look(const char* step) {
    steps_.push_back(step);
    EXPECT_FALSE(node_->IsListenerEnabled()) << step;
    others_.push_back(std::async(std::launch::async, [this] { return node_->IsListenerEnabled(); }));
    EXPECT_EQ(others_.back().wait_for(std::chrono::milliseconds(50)), std::future_status::timeout) << step;
  }

  Leg leg_;
  NetworkConnectionNodeSharedPtr node_ = NodeOf(leg_.Uuid());
  std::vector<std::string> steps_;
  std::vector<std::future<bool>> others_;
  const WhileHooked<decltype(CallHooks::hangup)> hangup_{
      call_hooks().hangup, [this](switch_channel_t*, switch_call_cause_t) { Look("hang up"); }};
  const WhileHooked<decltype(CallHooks::unlock)> unlock_{call_hooks().unlock, [this](switch_core_session_t* session) {
                                                           if (session == leg_.Session()) Look("unlock");
                                                         }};
};

TEST_F(RtpTimeoutSteps, NodeIsDisabledThenTheLegHungUpThenItsSessionGivenBackUnderTheNodesLock) {
  Fire(node_);
  EXPECT_THAT(steps_, ElementsAre("hang up", "unlock"));
}

TEST_F(RtpTimeoutSteps, OfDisabledNodeGivesTheSessionBackToo) {
  node_->DisableListener();
  Fire(node_);
  EXPECT_THAT(steps_, ElementsAre("unlock"));
}

TEST(NetworkConnectionNode, RemoveListenerTakesItOffItsConnection) {
  const FakeConnection connection = fake_connection();
  const auto node = boost::make_shared<MediaSessionTable::NetworkConnectionNode>(connection, "leg");
  connection->AddListener(node);
  node->RemoveListener();
  EXPECT_FALSE(connection->Listener());
  node->SetNetworkConnection(kvx_media_server::NetworkConnectionSharedPtr());
  node->RemoveListener();
  EXPECT_EQ(connection->listeners_removed, 1);
}

TEST(NetworkConnectionNode, PeersDoNotKeepEachOther) {
  auto a = boost::make_shared<MediaSessionTable::NetworkConnectionNode>(fake_connection(), "a");
  auto b = boost::make_shared<MediaSessionTable::NetworkConnectionNode>(fake_connection(), "b");
  a->SetPeer(b);
  b->SetPeer(a);
  EXPECT_EQ(a->GetPeer(), b);
  b.reset();
  EXPECT_FALSE(a->GetPeer());
  a->ResetPeer();
  EXPECT_FALSE(a->GetPeer());
  a.reset();
  EXPECT_EQ(FakeNetworkConnection::alive, 0);
}

}  // namespace module_test
