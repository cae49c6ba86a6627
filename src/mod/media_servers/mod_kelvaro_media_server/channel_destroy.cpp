#include <cstdlib>
#include <string>
#include <vector>

#include "kelvaro/jsr309/network_connection.h"
#include "leg_lookup.h"
#include "locked_session.h"
#include "mod_kelvaro_media_server.h"

using kelvaro::jsr309::NetworkConnection;
using kelvaro::jsr309::RtcpStatsReport;
using kvx_media_server::find_connection;
using kvx_media_server::forget_fs_uuid;
using kvx_media_server::lock_media_session_of;
using kvx_media_server::LockedSession;
using kvx_media_server::NetworkConnectionSharedPtr;
using kvx_media_server::OwnMediaSession;

namespace {

using Reports = std::vector<RtcpStatsReport>;

/// True when the leg asked for its reports and they are there.
bool fetch_reports(switch_channel_t* chan, NetworkConnection& connection, Reports& reports) {
  if (!switch_true(switch_channel_get_variable(chan, "generate_rtcp_report"))) return false;
  if (connection.GetRtcpStatsReport(reports)) return true;
  KVX_MS_LOG(SWITCH_LOG_ERROR, "Failed to fetch RTCP statistics report");
  return false;
}

/// A variable without which nothing can be published; null, after an error line, when it is not set.
const char* needed_variable(switch_channel_t* chan, const char* name) {
  const char* value = switch_channel_get_variable(chan, name);
  if (!value) switch_log_printf(SWITCH_CHANNEL_LOG, SWITCH_LOG_ERROR, "%s variable is gone!\n", name);
  return value;
}

void publish_reports(const char* fs_uuid, switch_channel_t* chan, const Reports& reports) {
  const char* codec_rate = needed_variable(chan, "sip_use_codec_rate");
  if (!codec_rate) return;
  const char* advertised_media_ip = needed_variable(chan, "advertised_media_ip");
  if (!advertised_media_ip) return;
  const char* remote_media_ip = needed_variable(chan, "remote_media_ip");
  if (!remote_media_ip) return;
  const char* codec_name = needed_variable(chan, "sip_use_codec_name");
  if (!codec_name) return;

  for (const RtcpStatsReport& report : reports) {
    const char* start_time = switch_channel_get_variable(chan, "rtcpmon_start_time");
    distribute_rtcpstats_event(fs_uuid, &report, advertised_media_ip, remote_media_ip, start_time, codec_name,
                               static_cast<unsigned>(std::atoi(codec_rate)));
  }
}

void clean_up_leg(const std::string& fs_uuid) {
  const OwnMediaSession own = lock_media_session_of(fs_uuid);
  if (own.ms_uuid.is_nil()) {
    switch_log_printf(SWITCH_CHANNEL_LOG, SWITCH_LOG_ERROR,
                      "Could not find media session uuid from fs uuid %s from FS table. Destroy failed",
                      fs_uuid.c_str());
    return;
  }

  const NetworkConnectionSharedPtr connection =
      own.record ? find_connection(own.ms_uuid, fs_uuid) : NetworkConnectionSharedPtr();
  forget_fs_uuid(fs_uuid);
  if (!connection) {
    KVX_MS_LOG(SWITCH_LOG_ERROR, "Networkconnection not found. Nothing to destroy.");
    return;
  }
  mod_globals->GetMSTable()->UnregisterNetworkConnection(own.ms_uuid, fs_uuid);
  connection->Close();
}

}  // namespace

switch_status_t channel_destroy(switch_media_connection_t* mc) {
  switch_assert(NULL != mc);
  switch_core_session_t* session = static_cast<switch_core_session_t*>(mc->private_info);
  if (!session) {
    switch_log_printf(SWITCH_CHANNEL_LOG, SWITCH_LOG_ERROR, "Session already destroyed for mc %p\n",
                      static_cast<void*>(mc));
    return SWITCH_STATUS_FALSE;
  }
  const char* fs_uuid = switch_core_session_get_uuid(session);
  switch_channel_t* chan = switch_core_session_get_channel(session);
  switch_assert(chan != NULL);

  const OwnMediaSession own = lock_media_session_of(fs_uuid);
  if (own.ms_uuid.is_nil()) {
    switch_log_printf(SWITCH_CHANNEL_LOG, SWITCH_LOG_ERROR,
                      "Could not find media session uuid from fs uuid %s from FS table", fs_uuid);
    return SWITCH_STATUS_FALSE;
  }
  if (!own.record) {
    switch_log_printf(SWITCH_CHANNEL_LOG, SWITCH_LOG_ERROR,
                      "Could not find media session uuid from fs uuid %s from FS table. Destroy failed", fs_uuid);
    return SWITCH_STATUS_SUCCESS;
  }

  const NetworkConnectionSharedPtr connection = find_connection(own.ms_uuid, fs_uuid);
  forget_fs_uuid(fs_uuid);
  if (!connection) {
    KVX_MS_LOG(SWITCH_LOG_ERROR, "Networkconnection not found. Nothing to destroy.");
    return SWITCH_STATUS_FALSE;
  }

  Reports reports;
  const bool fetched = fetch_reports(chan, *connection, reports);
  mod_globals->GetMSTable()->UnregisterNetworkConnection(own.ms_uuid, fs_uuid);
  connection->Close();
  if (fetched) publish_reports(fs_uuid, chan, reports);
  return SWITCH_STATUS_SUCCESS;
}

void objects_cleanup(const char* fs_uuid) {
  if (!fs_uuid) return;

  const std::string leg = fs_uuid;
  std::string partner_leg;
  if (LockedSession session = kvx_media_server::locate_session(fs_uuid)) {
    if (LockedSession partner = kvx_media_server::partner_of(session.get())) {
      partner_leg = switch_core_session_get_uuid(partner.get());
    }
  }

  clean_up_leg(leg);
  if (!partner_leg.empty()) clean_up_leg(partner_leg);
}
