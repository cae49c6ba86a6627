#include "module/frame_fixture.h"

#include <boost/make_shared.hpp>

#include "kelvaro/jsr309/media_session.h"

namespace module_test {

std::string usual_statsconfig() {
  return "<?xml version=\"1.0\"?>\n<statsconfig>\n"
         "<active_calls><application>usage</application><viewname>Active Calls</viewname>"
         "<xmlviewname>active_calls</xmlviewname></active_calls>\n"
         "<max_calls><application>usage</application><viewname>Max Calls</viewname>"
         "<xmlviewname>max_calls</xmlviewname></max_calls>\n"
         "<active_calls_percentage><application>usage</application><viewname>Active %</viewname>"
         "<xmlviewname>active_calls_percentage</xmlviewname></active_calls_percentage>\n"
         "<max_calls_percentage><application>usage</application><viewname>Max %</viewname>"
         "<xmlviewname>max_calls_percentage</xmlviewname></max_calls_percentage>\n"
         "<min_duration><application>duration</application><viewname>Min</viewname>"
         "<xmlviewname>min_duration</xmlviewname></min_duration>\n"
         "<max_duration><application>duration</application><viewname>Max</viewname>"
         "<xmlviewname>max_duration</xmlviewname></max_duration>\n"
         "<avg_duration><application>duration</application><viewname>Average</viewname>"
         "<xmlviewname>avg_duration</xmlviewname></avg_duration>\n"
         "</statsconfig>\n";
}

void ModuleFrame::Configure(const Params& params) {
  configuration_.reset();
  configuration_ = std::make_unique<ConfigurationFile>("autoload_configs/kelvaro_media_server.conf.xml",
                                                       module_configuration(params));
}

void ModuleFrame::Configure() {
  statsconfig_ = std::make_unique<ConfigurationFile>("statsconfig.xml", usual_statsconfig());
  Configure({{"config", servers_.config_path()}, {"statsfilter", statsconfig_->Path()}});
}

void ModuleFrame::ConfigureAndLoad() {
  Configure();
  Load();
  ASSERT_EQ(module_->Status(), SWITCH_STATUS_SUCCESS);
}

boost::uuids::uuid ModuleFrame::AddCall(const std::vector<const Leg*>& legs) {
  kvx_media_server::MediaSessionTable& table = *mod_globals->GetMSTable();
  const auto listener = boost::make_shared<kvx_media_server::MyMediaServerLostListener>(table);
  const boost::uuids::uuid msuuid = mod_globals->DrawUuid();
  listener->SetUuid(msuuid);
  const kvx_media_server::MediaSessionSharedPtr session(mod_globals->GetMSCtrlFtry()->CreateMediaSession());
  EXPECT_TRUE(session && session->AddListener(listener));
  EXPECT_TRUE(table.RegisterMediaSession(session, listener));
  for (const Leg* leg : legs) {
    const kvx_media_server::NetworkConnectionSharedPtr connection(session->CreateNetworkConnection(nullptr));
    EXPECT_TRUE(connection);
    EXPECT_TRUE(table.RegisterNetworkConnection(msuuid, connection, leg->Uuid()));
    EXPECT_TRUE(mod_globals->GetFSUuidTable()->RegisterMediaSessionUuid(leg->Uuid(), msuuid));
  }
  return msuuid;
}

std::vector<const switch_api_interface_t*> api_interfaces(const switch_loadable_module_interface_t* module) {
  std::vector<const switch_api_interface_t*> found;
  for (const auto* api = module->api_interface; api != nullptr; api = api->next) found.push_back(api);
  return found;
}

}  // namespace module_test
