#include <boost/make_shared.hpp>
#include <boost/optional.hpp>
#include <boost/uuid/string_generator.hpp>
#include <stdexcept>

#include "kelvaro/jsr309/media_session.h"
#include "kelvaro/jsr309/network_connection.h"
#include "leg_lookup.h"
#include "locked_session.h"
#include "mod_kelvaro_media_server.h"

using kvx_media_server::LockedSession;
using kvx_media_server::MediaSessionSharedPtr;
using kvx_media_server::MyMediaServerLostListener;
using kvx_media_server::MyMediaServerLostListenerSharedPtr;
using kvx_media_server::NetworkConnectionSharedPtr;
using kvx_media_server::uuid_to_text;

namespace {

const char kMediaSessionVariable[] = "media_session_uuid";

switch_core_session_t* session_of(const switch_media_connection_t* mc) {
  return static_cast<switch_core_session_t*>(mc->private_info);
}

/// The media session that the leg's variable names. An unset variable names none, nor does one that is not a uuid: the
/// leg then gets a session of its own.
boost::optional<boost::uuids::uuid> named_media_session(const char* text, const char* fs_uuid) {
  if (zstr(text)) return boost::none;
  try {
    return boost::uuids::string_generator()(text);
  } catch (const std::runtime_error&) {
    switch_log_printf(SWITCH_CHANNEL_LOG, SWITCH_LOG_WARNING, "Ignoring malformed %s \"%s\" of switch session %s\n",
                      kMediaSessionVariable, text, fs_uuid);
    return boost::none;
  }
}

/// The listener through which the session's legs are hung up when its media server is lost. Its uuid, a fresh one, is
/// the session's.
MyMediaServerLostListenerSharedPtr watch_media_server_of(const MediaSessionSharedPtr& media_session) {
  const auto listener = boost::make_shared<MyMediaServerLostListener>(*mod_globals->GetMSTable());
  listener->SetUuid(mod_globals->DrawUuid());
  if (!media_session->AddListener(listener)) KVX_MS_LOG(SWITCH_LOG_ERROR, "Unable to add MediaServerLostListener");
  return listener;
}

switch_status_t created(const switch_media_connection_t* mc, const boost::uuids::uuid& ms_uuid) {
  switch_channel_set_variable(switch_core_session_get_channel(session_of(mc)), kMediaSessionVariable,
                              uuid_to_text(ms_uuid).c_str());
  return SWITCH_STATUS_SUCCESS;
}

switch_status_t undo_creation(const char* fs_uuid, const char* message) {
  KVX_MS_LOG(SWITCH_LOG_ERROR, message);
  objects_cleanup(fs_uuid);
  return SWITCH_STATUS_FALSE;
}

}  // namespace

switch_status_t channel_create(switch_media_connection_t* mc, switch_core_session_t* sess) {
  switch_assert((NULL != mc) && (NULL != sess));
  mc->private_info = sess;

  const char* variable = switch_channel_get_variable(switch_core_session_get_channel(sess), kMediaSessionVariable);
  LockedSession partner = kvx_media_server::partner_of(sess);
  if (!partner) {
    const auto ms_uuid = named_media_session(variable, switch_core_session_get_uuid(sess));
    return ms_uuid ? handle_leg_with_ref_channel_create(mc, *ms_uuid) : handle_leg_no_ref_channel_create(mc);
  }

  switch_media_connection_t* ref_mc = switch_core_session_get_media_connection(partner.get());
  if (!ref_mc || !ref_mc->private_info) {
    partner.reset();
    return handle_leg_no_ref_channel_create(mc);
  }
  return handle_leg_with_ref_mc_channel_create(mc, ref_mc);
}

switch_status_t handle_leg_no_ref_channel_create(switch_media_connection_t* mc) {
  const char* fs_uuid = switch_core_session_get_uuid(session_of(mc));
  switch_log_printf(SWITCH_CHANNEL_LOG, SWITCH_LOG_DEBUG, "Creating channel without reference leg. Session: %s\n",
                    fs_uuid);
  switch_log_printf(SWITCH_CHANNEL_LOG, SWITCH_LOG_DEBUG, "Creating leg without a reference leg -> %s\n", fs_uuid);

  const MediaSessionSharedPtr media_session(mod_globals->GetMSCtrlFtry()->CreateMediaSession());
  if (!media_session) {
    switch_log_printf(SWITCH_CHANNEL_LOG, SWITCH_LOG_ERROR, "Unable to create new media session for switch session %s",
                      fs_uuid);
    return SWITCH_STATUS_FALSE;
  }
  switch_log_printf(SWITCH_CHANNEL_LOG, SWITCH_LOG_DEBUG, "Media session created successfully for switch session %s\n",
                    fs_uuid);

  const MyMediaServerLostListenerSharedPtr listener = watch_media_server_of(media_session);
  const boost::uuids::uuid& ms_uuid = listener->GetUuid();

  const NetworkConnectionSharedPtr connection(media_session->CreateNetworkConnection(NULL));
  if (!connection) {
    switch_log_printf(SWITCH_CHANNEL_LOG, SWITCH_LOG_ERROR,
                      "Unable to create new network connection for switch session %s", fs_uuid);
    objects_cleanup(fs_uuid);
    return SWITCH_STATUS_FALSE;
  }
  KVX_MS_LOG(SWITCH_LOG_DEBUG, "Created new network connection successfully");

  if (!mod_globals->GetFSUuidTable()->RegisterMediaSessionUuid(fs_uuid, ms_uuid)) {
    return undo_creation(fs_uuid, "ERROR - Unable to fill in FSUUID - MSUUID table.");
  }
  bool session_registered = false, connection_registered = false;
  {
    const auto& sessions = mod_globals->GetMSTable();
    const auto held = sessions->Hold();
    session_registered = sessions->RegisterMediaSession(media_session, listener);
    connection_registered = session_registered && sessions->RegisterNetworkConnection(ms_uuid, connection, fs_uuid);
  }
  if (!session_registered) {
    return undo_creation(fs_uuid, "ERROR - Unable to register Media Session.");
  }
  if (!connection_registered) {
    return undo_creation(fs_uuid, "ERROR - Unable to register Network Connection.");
  }
  return created(mc, ms_uuid);
}

switch_status_t handle_leg_with_ref_channel_create(switch_media_connection_t* mc, const boost::uuids::uuid& ms_uuid) {
  const char* fs_uuid = switch_core_session_get_uuid(session_of(mc));
  switch_log_printf(SWITCH_CHANNEL_LOG, SWITCH_LOG_DEBUG, "Creating channel with reference Media Session uuid %s.\n",
                    uuid_to_text(ms_uuid).c_str());

  const auto media_session = mod_globals->GetMSTable()->GetMediaSession(ms_uuid);
  if (!media_session) {
    KVX_MS_LOG(SWITCH_LOG_ERROR, "Cannot find Media Session in Media Session Table!");
    return SWITCH_STATUS_FALSE;
  }

  const NetworkConnectionSharedPtr connection((*media_session)->CreateNetworkConnection(NULL));
  if (!connection) return undo_creation(fs_uuid, "Unable to create new network connection");

  if (!mod_globals->GetFSUuidTable()->RegisterMediaSessionUuid(fs_uuid, ms_uuid)) {
    return undo_creation(fs_uuid, "Unable to register media session uuid");
  }
  if (!mod_globals->GetMSTable()->RegisterNetworkConnection(ms_uuid, connection, fs_uuid)) {
    return undo_creation(fs_uuid, "Unable to register new network connection");
  }
  return created(mc, ms_uuid);
}

switch_status_t handle_leg_with_ref_mc_channel_create(switch_media_connection_t* mc,
                                                      switch_media_connection_t* ref_mc) {
  // Read once: the partner's own thread takes it away when the partner ends meanwhile.
  switch_core_session_t* ref_session = session_of(ref_mc);
  if (!ref_session) return handle_leg_no_ref_channel_create(mc);
  const char* reffsuuid = switch_core_session_get_uuid(ref_session);
  switch_log_printf(SWITCH_CHANNEL_LOG, SWITCH_LOG_DEBUG,
                    "Creating channel with reference Media Connection. Session: %s Reference Session: %s\n",
                    switch_core_session_get_uuid(session_of(mc)), reffsuuid);

  const auto ms_uuid = kvx_media_server::find_media_session_uuid(reffsuuid);
  if (!ms_uuid) {
    KVX_MS_LOG(SWITCH_LOG_ERROR, "FS UUID Table data consistency!");
    return SWITCH_STATUS_FALSE;
  }
  if (ms_uuid->is_nil()) {
    KVX_MS_LOG(SWITCH_LOG_DEBUG, "Cannot find reference leg's record in FS Table!");
    return SWITCH_STATUS_FALSE;
  }
  return handle_leg_with_ref_channel_create(mc, *ms_uuid);
}
