#include <thread>

#include "module/media_session_table_fixture.h"

namespace module_test {

namespace {

using kvx_media_server::NetworkConnectionNodeSharedPtr;
using kvx_media_server::NetworkConnectionSharedPtr;
using test_support::error_line;
using testing::ElementsAre;
using testing::IsEmpty;

}  // namespace

class MediaSessionTableLookUp : public MediaSessionTableTest {};

TEST_F(MediaSessionTableLookUp, LookUpsOfUnknownSessionAreEmpty) {
  EXPECT_FALSE(table_.GetMediaSession(id(kUnknown)));
  EXPECT_FALSE(table_.GetFSMediaSession(id(kUnknown)));
  EXPECT_FALSE(table_.GetNetworkConnection(id(kUnknown), "leg"));
  EXPECT_FALSE(Node(kUnknown, "leg"));
  EXPECT_FALSE(table_.SetPeerNetworkConnectionNode(id(kUnknown), "leg", NetworkConnectionNodeSharedPtr()));
  EXPECT_FALSE(table_.GetPeerNetworkConnectionNode(id(kUnknown), "leg"));
  EXPECT_THAT(Logged(), ElementsAre(kNoSession, kNoSession, kNoSession, kNoSession, kNoSession, kNoSession));
}

TEST_F(MediaSessionTableLookUp, LookUpsInSessionWithoutLegsAreEmpty) {
  AddSession(kFirst);
  EXPECT_FALSE(table_.GetNetworkConnection(id(kFirst), "leg"));
  EXPECT_FALSE(Node(kFirst, "leg"));
  EXPECT_FALSE(table_.SetPeerNetworkConnectionNode(id(kFirst), "leg", NetworkConnectionNodeSharedPtr()));
  EXPECT_FALSE(table_.GetPeerNetworkConnectionNode(id(kFirst), "leg"));
  EXPECT_THAT(Logged(), ElementsAre(kNoNodes, kNoNodes, kNoNodes, kNoNodes));
}

TEST_F(MediaSessionTableLookUp, LookUpsOfUnknownLegAreEmptyAndSilent) {
  AddSession(kFirst);
  AddLeg(kFirst, "leg");
  EXPECT_FALSE(table_.GetNetworkConnection(id(kFirst), "stranger"));
  EXPECT_FALSE(Node(kFirst, "stranger"));
  EXPECT_FALSE(table_.SetPeerNetworkConnectionNode(id(kFirst), "stranger", Node(kFirst, "leg")));
  EXPECT_FALSE(table_.GetPeerNetworkConnectionNode(id(kFirst), "stranger"));
  EXPECT_FALSE(table_.GetPeerNetworkConnectionNode(id(kFirst), "leg"));
  EXPECT_THAT(Logged(), IsEmpty());
}

TEST_F(MediaSessionTableLookUp, OneLookFindsALegsSessionAndConnection) {
  AddSession(kFirst);
  const FakeConnection connection = AddLeg(kFirst, "leg");
  const auto place = table_.FindLeg(id(kFirst), "leg");
  EXPECT_TRUE(place.is_session_known);
  EXPECT_EQ(place.connection, connection);
  const auto stranger = table_.FindLeg(id(kFirst), "stranger");
  EXPECT_TRUE(stranger.is_session_known);
  EXPECT_FALSE(stranger.connection);
  EXPECT_THAT(Logged(), IsEmpty());
}

TEST_F(MediaSessionTableLookUp, OneLookSaysWhyThereIsNothing) {
  AddSession(kFirst);
  EXPECT_FALSE(table_.FindLeg(id(kUnknown), "leg").is_session_known);
  EXPECT_THAT(Logged(), ElementsAre(kNoSession));
  const auto place = table_.FindLeg(id(kFirst), "leg");
  EXPECT_TRUE(place.is_session_known);
  EXPECT_FALSE(place.connection);
  EXPECT_THAT(Logged(), ElementsAre(kNoNodes));
}

TEST_F(MediaSessionTableLookUp, OthersSeeAllThatIsDoneWhileTheTableIsHeldOrNothing) {
  std::size_t seen = 0;
  std::thread other;
  {
    const auto held = table_.Hold();
    other = std::thread([&] { seen = table_.CountMediaSessionAllFSUuid(); });
    AddSession(kFirst);
    AddSession(kSecond);
  }
  other.join();
  EXPECT_EQ(seen, 2u);
}

TEST_F(MediaSessionTableLookUp, PeersAreSetAndResetOneSideAtATime) {
  AddSession(kFirst);
  AddLeg(kFirst, "a");
  AddLeg(kFirst, "b");
  EXPECT_TRUE(table_.SetPeerNetworkConnectionNode(id(kFirst), "a", Node(kFirst, "b")));
  EXPECT_EQ(table_.GetPeerNetworkConnectionNode(id(kFirst), "a"), Node(kFirst, "b"));
  EXPECT_FALSE(table_.GetPeerNetworkConnectionNode(id(kFirst), "b"));
  EXPECT_TRUE(table_.SetPeerNetworkConnectionNode(id(kFirst), "b", Node(kFirst, "a")));
  EXPECT_TRUE(table_.ResetPeerNetworkConnectionNode(id(kFirst), "a"));
  EXPECT_FALSE(table_.GetPeerNetworkConnectionNode(id(kFirst), "a"));
  EXPECT_EQ(table_.GetPeerNetworkConnectionNode(id(kFirst), "b"), Node(kFirst, "a"));
  EXPECT_TRUE(table_.ResetPeerNetworkConnectionNode(id(kFirst), Node(kFirst, "b")));
  EXPECT_FALSE(table_.GetPeerNetworkConnectionNode(id(kFirst), "b"));
  EXPECT_THAT(Logged(), IsEmpty());
}

TEST_F(MediaSessionTableLookUp, PeerThatIsGoneIsNoPeer) {
  AddSession(kFirst);
  AddLeg(kFirst, "a");
  AddLeg(kFirst, "b");
  table_.SetPeerNetworkConnectionNode(id(kFirst), "a", Node(kFirst, "b"));
  table_.UnregisterNetworkConnection(id(kFirst), "b");
  EXPECT_FALSE(table_.GetPeerNetworkConnectionNode(id(kFirst), "a"));
}

TEST_F(MediaSessionTableLookUp, PeerWithoutConnectionIsNoPeer) {
  AddSession(kFirst);
  AddLeg(kFirst, "a");
  AddLeg(kFirst, "b");
  table_.SetPeerNetworkConnectionNode(id(kFirst), "a", Node(kFirst, "b"));
  Node(kFirst, "b")->SetNetworkConnection(NetworkConnectionSharedPtr());
  EXPECT_FALSE(table_.GetPeerNetworkConnectionNode(id(kFirst), "a"));
}

TEST_F(MediaSessionTableLookUp, ResetOfPeerByLegReportsFailuresAsErrors) {
  EXPECT_FALSE(table_.ResetPeerNetworkConnectionNode(id(kUnknown), "leg"));
  AddSession(kFirst);
  EXPECT_FALSE(table_.ResetPeerNetworkConnectionNode(id(kFirst), "leg"));
  AddLeg(kFirst, "leg");
  EXPECT_FALSE(table_.ResetPeerNetworkConnectionNode(id(kFirst), "stranger"));
  EXPECT_THAT(Logged(), ElementsAre(error_line("Media session not registered in Media Session table\n"),
                                    error_line("Network Connection Node list empty!\n"),
                                    error_line("Failed to reset peer! No such FS UUID\n")));
}

TEST_F(MediaSessionTableLookUp, ResetOfPeerByNodeReportsFailuresAsErrors) {
  AddSession(kFirst);
  AddLeg(kFirst, "leg");
  const NetworkConnectionNodeSharedPtr node = Node(kFirst, "leg");
  AddSession(kSecond);
  EXPECT_FALSE(table_.ResetPeerNetworkConnectionNode(id(kUnknown), node));
  EXPECT_FALSE(table_.ResetPeerNetworkConnectionNode(id(kSecond), node));
  AddLeg(kSecond, "other");
  EXPECT_FALSE(table_.ResetPeerNetworkConnectionNode(id(kSecond), node));
  EXPECT_THAT(Logged(), ElementsAre(error_line("Media session not registered in Media Session table\n"),
                                    error_line("Network Connection Node list empty!\n"),
                                    error_line("Failed to reset peer! No such Network Connection Node\n")));
}

}  // namespace module_test
