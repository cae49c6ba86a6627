// Every operation of the two tables, from eight threads at once over the same few media sessions, while timeouts and
// lost servers are reported and hang the legs up. What it looks for is what the sanitizers see: races, inverted locks,
// things that are destroyed twice or never. In the end the tables are empty and nothing is left.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <thread>

#include "fs_uuid_table.h"
#include "module/media_session_table_fixture.h"

namespace module_test {

namespace {

using boost::uuids::uuid;
using kvx_media_server::FSUuidTable;
using kvx_media_server::MediaSessionTable;
using kvx_media_server::MyMediaServerLostListener;
using kvx_media_server::NetworkConnectionNodeSharedPtr;
using kvx_media_server::NetworkConnectionSharedPtr;

constexpr int kThreads = 8;
constexpr int kOperations = 100000;
constexpr unsigned kSessions = 6;
constexpr unsigned kLegs = 12;  // shared by all threads

uuid session_id(unsigned number) {
  uuid value = {};
  value.data[15] = static_cast<uint8_t>(number + 1);
  return value;
}

/// How often something came about: a test in which nothing does would see nothing.
struct Tally {
  int sessions = 0, legs = 0, unregistered = 0, migrated = 0, peers = 0, listed = 0, timeouts = 0, losses = 0;

  void Add(const Tally& other) {
    sessions += other.sessions;
    legs += other.legs;
    unregistered += other.unregistered;
    migrated += other.migrated;
    peers += other.peers;
    listed += other.listed;
    timeouts += other.timeouts;
    losses += other.losses;
  }
};

/// One thread's part.
class Worker {
 public:
  Worker(MediaSessionTable& table, FSUuidTable& legs, const std::vector<std::string>& names, unsigned seed)
      : table_(table), legs_(legs), names_(names), random_(seed) {}

  void Run() {
    for (int i = 0; i < kOperations; ++i) Step(random_() % 1000);
  }
  /// As the control library does at a session's end.
  void DropListeners() {
    for (const auto& weak : connections_) {
      if (const FakeConnection connection = weak.lock()) connection->RemoveListener();
    }
  }
  const Tally& Done() const { return tally_; }
  std::size_t NodesLeft() const {
    return std::count_if(nodes_.begin(), nodes_.end(), [](const auto& node) { return !node.expired(); });
  }

 private:
  uuid Session() { return session_id(random_() % kSessions); }
  const std::string& LegName() { return names_[random_() % names_.size()]; }

  void Step(unsigned choice) {
    if (choice == 0) {
      table_.EraseAllMSUuid();
      legs_.EraseAllItems();
    } else if (choice < 100) {
      RegisterSession();
    } else if (choice < 350) {
      RegisterLeg();
    } else if (choice < 500) {
      Unregister();
    } else if (choice < 600) {
      if (table_.MigrateNetworkConnection(Session(), Session(), LegName())) ++tally_.migrated;
    } else if (choice < 700) {
      Peer();
    } else if (choice < 800) {
      List();
    } else if (choice < 900) {
      LookUp();
    } else {
      Fire();
    }
  }
  void RegisterSession() {
    const auto listener = boost::make_shared<MyMediaServerLostListener>(table_);
    listener->SetUuid(Session());
    const FakeSession session = fake_session();
    session->keeps_imports = false;
    session->imports = random_() % 8 != 0;
    if (table_.RegisterMediaSession(session, listener)) ++tally_.sessions;
  }
  void RegisterLeg() {
    const uuid session = Session();
    const std::string leg = LegName();
    const FakeConnection connection = fake_connection();
    if (!table_.RegisterNetworkConnection(session, connection, leg)) return;
    ++tally_.legs;
    connections_.push_back(connection);
    if (const auto node = connection->Listener()) nodes_.push_back(node);
    legs_.RegisterMediaSessionUuid(leg, session);
  }
  void Unregister() {
    const std::string leg = LegName();
    if (table_.UnregisterNetworkConnection(legs_.GetMediaSessionUuid(leg), leg)) ++tally_.unregistered;
    table_.UnregisterNetworkConnection(Session(), leg);
    legs_.UnregisterMediaSession(leg);
  }
  void Peer() {
    const uuid session = Session();
    const std::string a = LegName(), b = LegName();
    const NetworkConnectionNodeSharedPtr node = table_.GetNetworkConnectionNode(session, b);
    table_.SetPeerNetworkConnectionNode(session, a, node);
    if (const NetworkConnectionNodeSharedPtr peer = table_.GetPeerNetworkConnectionNode(session, a)) {
      ++tally_.peers;
      peer->EnableListener();
      table_.ResetPeerNetworkConnectionNode(session, peer);
    }
    table_.ResetPeerNetworkConnectionNode(session, a);
  }
  void List() {
    std::vector<std::string> legs;
    std::vector<NetworkConnectionSharedPtr> connections;
    std::vector<uuid> sessions;
    if (table_.ListMediaSessionAllFSUuid(legs, Session())) ++tally_.listed;
    table_.ListMediaSessionAllNetworkConnections(connections, Session());
    table_.SetMediaSessionIPAddress(Session(), "10.0.0.5");
    table_.ListAllMatchingMSUuid(sessions, "10.0.0.5");
    table_.ListAllMSUuid(sessions);
    EXPECT_LE(table_.CountMediaSessionAllFSUuid(), kSessions);
  }
  void LookUp() {
    const std::string leg = LegName();
    legs_.IsFSUuidAlreadyThere(leg);
    const uuid session = legs_.GetMediaSessionUuid(leg);
    table_.GetMediaSession(session);
    table_.GetNetworkConnection(session, leg);
  }
  void Fire() {
    const uuid session = Session();
    if (const auto connection = table_.GetNetworkConnection(session, LegName())) {
      boost::static_pointer_cast<FakeNetworkConnection>(*connection)->FireTimeout();
      ++tally_.timeouts;
    }
    if (const auto record = table_.GetFSMediaSession(session)) {
      bool hung_up = false;
      (*record)->ms_listener->OnEvent(kelvaro::jsr309::MediaServerLostEvent(), hung_up);
      if (hung_up) ++tally_.losses;
    }
  }

  MediaSessionTable& table_;
  FSUuidTable& legs_;
  const std::vector<std::string>& names_;
  std::mt19937 random_;
  std::vector<boost::weak_ptr<FakeNetworkConnection>> connections_;
  std::vector<boost::weak_ptr<kelvaro::jsr309::RtpTimeoutListener>> nodes_;
  Tally tally_;
};

void expect_everything_came_about(const Tally& total) {
  EXPECT_GT(total.sessions, kThreads);
  EXPECT_GT(total.legs, kThreads);
  EXPECT_GT(total.unregistered, kThreads);
  EXPECT_GT(total.migrated, kThreads);
  EXPECT_GT(total.peers, kThreads);
  EXPECT_GT(total.listed, kThreads);
  EXPECT_GT(total.timeouts, kThreads);
  EXPECT_GT(total.losses, kThreads);
}

}  // namespace

TEST(RegistryStress, TablesSurviveEverythingAtOnceAndEndEmpty) {
  {
    MediaSessionTable table;
    FSUuidTable legs;
    std::vector<std::unique_ptr<Leg>> callers;
    std::vector<std::string> names;
    for (unsigned i = 0; i < kLegs; ++i) {
      callers.push_back(std::make_unique<Leg>());
      names.push_back(callers.back()->Uuid());
    }
    std::vector<std::unique_ptr<Worker>> workers;
    std::vector<std::thread> threads;
    for (int i = 0; i < kThreads; ++i) workers.push_back(std::make_unique<Worker>(table, legs, names, i + 1));
    for (const auto& worker : workers) threads.emplace_back([&worker] { worker->Run(); });
    for (std::thread& thread : threads) thread.join();
    table.EraseAllMSUuid();
    legs.EraseAllItems();
    EXPECT_EQ(table.CountMediaSessionAllFSUuid(), 0u);
    Tally total;
    for (const auto& worker : workers) {
      worker->DropListeners();
      total.Add(worker->Done());
    }
    expect_everything_came_about(total);
    for (const auto& worker : workers) EXPECT_EQ(worker->NodesLeft(), 0u);
    for (const auto& caller : callers) EXPECT_TRUE(caller->HungUp());
    for (const std::string& name : names) EXPECT_FALSE(legs.IsFSUuidAlreadyThere(name));
  }
  EXPECT_EQ(FakeNetworkConnection::alive, 0);
  EXPECT_EQ(FakeMediaSession::alive, 0);
}

}  // namespace module_test
