#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <boost/make_shared.hpp>
#include <stdexcept>
#include <string>
#include <vector>

#include "mod_kelvaro_media_server.h"
#include "recording_connection.h"

namespace module_calls {

using Calls = std::vector<std::string>;

inline Calls operator+(Calls first, const Calls& then) {
  first.insert(first.end(), then.begin(), then.end());
  return first;
}

/// A leg that the switch knows and the module does not.
class BareLeg {
 public:
  BareLeg()
      : session_(switch_core_session_request_uuid(nullptr, SWITCH_CALL_DIRECTION_INBOUND, SOF_NONE, nullptr, nullptr)) {
    if (!session_) throw std::runtime_error("the switch gives no session");
  }
  ~BareLeg() { switch_core_session_destroy(&session_); }
  BareLeg(const BareLeg&) = delete;
  BareLeg& operator=(const BareLeg&) = delete;

  switch_core_session_t* Session() const { return session_; }
  switch_media_connection_t* Mc() const { return switch_core_session_get_media_connection(session_); }
  std::string Uuid() const { return switch_core_session_get_uuid(session_); }
  void Set(const char* variable, const char* value) {
    switch_channel_set_variable(switch_core_session_get_channel(session_), variable, value);
  }
  void BondWith(BareLeg& other) {
    Set(SWITCH_SIGNAL_BOND_VARIABLE, other.Uuid().c_str());
    other.Set(SWITCH_SIGNAL_BOND_VARIABLE, Uuid().c_str());
  }

 private:
  switch_core_session_t* session_;
};

/// A leg in the tables, on a connection that records.
class RecordedLeg : public BareLeg {
 public:
  RecordedLeg(const boost::uuids::uuid& media_session, const char* name)
      : connection_(boost::make_shared<RecordingConnection>(name)) {
    Mc()->private_info = Session();
    mod_globals->GetFSUuidTable()->RegisterMediaSessionUuid(Uuid(), media_session);
    mod_globals->GetMSTable()->RegisterNetworkConnection(media_session, connection_, Uuid());
  }

  RecordingConnection& Connection() { return *connection_; }

 private:
  boost::shared_ptr<RecordingConnection> connection_;
};

/// Two bonded legs in one media session.
class CallOrder : public testing::Test {
 protected:
  CallOrder() {
    leg_.BondWith(peer_);
    calls().clear();
  }
  ~CallOrder() override {
    mod_globals->GetMSTable()->EraseAllMSUuid();
    mod_globals->GetFSUuidTable()->EraseAllItems();
  }

  static boost::uuids::uuid Register(const boost::shared_ptr<RecordingSession>& session) {
    const auto listener = boost::make_shared<kvx_media_server::MyMediaServerLostListener>(*mod_globals->GetMSTable());
    listener->SetUuid(mod_globals->DrawUuid());
    mod_globals->GetMSTable()->RegisterMediaSession(session, listener);
    return listener->GetUuid();
  }

  boost::shared_ptr<RecordingSession> session_ = boost::make_shared<RecordingSession>();
  boost::uuids::uuid media_session_ = Register(session_);
  RecordedLeg leg_{media_session_, "leg"};
  RecordedLeg peer_{media_session_, "peer"};
};

}  // namespace module_calls
