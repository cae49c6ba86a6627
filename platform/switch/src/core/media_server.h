#pragma once

#include <switch.h>

#include <switch_media_server.h>

namespace kvx_switch {

/// The first media server that a loaded module registered, with a reference that keeps the module from being unloaded;
/// null when there is none. Every leg that acquired one releases it after its last callback.
switch_media_server_interface_t* AcquireMediaServer();
void ReleaseMediaServer(switch_media_server_interface_t* media_server);

/// A media server is there and says that it takes a new leg.
bool MediaServerAvailable();

}  // namespace kvx_switch
