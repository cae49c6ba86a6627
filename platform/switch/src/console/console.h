#pragma once

#include <functional>
#include <string>

namespace kvx_switch {

/// The operators' side of the switch: its own commands, and the event socket through which they and those of the
/// modules are given. All functions are for the thread that starts and ends the switch, except as noted.

/// Registers the built-in commands and serves the event socket as event_socket.conf says. After switch_core_init.
/// False, with a sentence that names file and value or address, when that cannot be; nothing is left running then.
bool StartConsole(std::string& error);

/// Takes leave of all clients, waits for the commands that run and ends all threads. Before switch_core_destroy.
/// Harmless when nothing was started.
void StopConsole();

/// Where the event socket listens, "127.0.0.1:8021", with the port really taken; empty when it does not.
std::string EventSocketAddress();

/// What the command "shutdown" calls: on a client's thread, so it must only ask the main thread to end the switch, not
/// end it. An empty function takes the hook away; when that returns the former hook may still be running.
void SetShutdownHook(std::function<void()> hook);

}  // namespace kvx_switch
