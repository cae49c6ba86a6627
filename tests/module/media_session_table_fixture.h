#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <boost/uuid/string_generator.hpp>
#include <boost/uuid/uuid_io.hpp>
#include <string>
#include <vector>

#include "media_session_table.h"
#include "module/fake_media.h"
#include "module/module_fixture.h"
#include "network_connection_node.h"

namespace module_test {

const char kFirst[] = "11111111-1111-4111-8111-111111111111";
const char kSecond[] = "22222222-2222-4222-8222-222222222222";
const char kUnknown[] = "99999999-9999-4999-8999-999999999999";

inline boost::uuids::uuid id(const char* text) {
  return boost::uuids::string_generator()(text);
}

/// A table, the media sessions and legs that a test puts into it, and what it logs.
class MediaSessionTableTest : public testing::Test {
 protected:
  kvx_media_server::MyMediaServerLostListenerSharedPtr ListenerOf(const char* msuuid) {
    auto listener = boost::make_shared<kvx_media_server::MyMediaServerLostListener>(table_);
    listener->SetUuid(id(msuuid));
    return listener;
  }
  FakeSession AddSession(const char* msuuid) {
    FakeSession session = fake_session();
    EXPECT_TRUE(table_.RegisterMediaSession(session, ListenerOf(msuuid)));
    return session;
  }
  FakeConnection AddLeg(const char* msuuid, const std::string& fs_uuid) {
    FakeConnection connection = fake_connection();
    connections_.push_back(connection);
    EXPECT_TRUE(table_.RegisterNetworkConnection(id(msuuid), connection, fs_uuid));
    return connection;
  }
  std::vector<std::string> Legs(const char* msuuid) {
    std::vector<std::string> legs;
    table_.ListMediaSessionAllFSUuid(legs, id(msuuid));
    return legs;
  }
  kvx_media_server::NetworkConnectionNodeSharedPtr Node(const char* msuuid, const char* fs_uuid) {
    return table_.GetNetworkConnectionNode(id(msuuid), fs_uuid);
  }
  /// What was logged since the last question.
  std::vector<test_support::LogLine> Logged() {
    std::vector<test_support::LogLine> lines = log_.LinesOf({"media_session_table.cpp"});
    log_.Clear();
    return lines;
  }

  /// Node and connection own each other until the listener is removed, which the control library does at the end.
  void TearDown() override {
    for (const auto& weak : connections_) {
      if (const FakeConnection connection = weak.lock()) connection->RemoveListener();
    }
  }

  const test_support::LogLine kNoSession =
      test_support::debug_line("Media session not registered in Media Session table\n");
  const test_support::LogLine kNoNodes = test_support::debug_line("Network Connection Node list empty!\n");

  kvx_media_server::MediaSessionTable table_;
  test_support::LogCapture log_;
  std::vector<boost::weak_ptr<FakeNetworkConnection>> connections_;
};

}  // namespace module_test
