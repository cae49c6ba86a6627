#include "console/console.h"

#include <switch.h>

#include <cstdlib>
#include <exception>
#include <memory>
#include <mutex>
#include <utility>

#include "console/builtin_commands.h"
#include "console/event_socket_server.h"
#include "console/event_socket_settings.h"
#include "console/shutdown_hook.h"
#include "core/event.h"

namespace kvx_switch {
namespace {

std::mutex console_mutex;
std::unique_ptr<EventSocketServer> event_socket;  // guarded by console_mutex
std::function<void()> shutdown_hook;              // guarded by console_mutex

struct Stream : switch_stream_handle_t {
  Stream() { SWITCH_STANDARD_STREAM((*this)); }
  ~Stream() { std::free(data); }
  Stream(const Stream&) = delete;
  Stream& operator=(const Stream&) = delete;
};

std::string run_api(const std::string& command, const std::string& arguments) {
  Stream stream;
  const switch_status_t status =
      switch_api_execute(command.c_str(), arguments.empty() ? nullptr : arguments.c_str(), nullptr, &stream);
  std::string output = static_cast<const char*>(stream.data);
  if (status == SWITCH_STATUS_SUCCESS) return output;
  if (output == "INVALID COMMAND!\n") return "-ERR " + command + " Command not found!\n";
  return output.empty() ? "-ERR " + command + " failed\n" : output;
}

}  // namespace

bool StartConsole(std::string& error) {
  const std::lock_guard<std::mutex> lock(console_mutex);
  if (event_socket) {
    error = "the console is running already";
    return false;
  }
  EventSocketSettings settings;
  if (!ReadEventSocketSettings(settings, error)) return false;
  RegisterBuiltinCommands();
  try {
    auto server = std::make_unique<EventSocketServer>(std::move(settings), &run_api);
    if (!server->Start(error)) return false;
    event_socket = std::move(server);
  } catch (const std::exception& exception) {
    error = std::string("event socket: ") + exception.what();
    return false;
  }
  switch_log_printf(SWITCH_CHANNEL_LOG, SWITCH_LOG_INFO, "Event socket listens on %s\n",
                    event_socket->address().c_str());
  return true;
}

void StopConsole() {
  std::unique_ptr<EventSocketServer> server;
  {
    const std::lock_guard<std::mutex> lock(console_mutex);
    server.swap(event_socket);
  }
  if (!server) return;
  // Clients are told of what happened before they are told goodbye.
  FlushEvents();
  // Commands that still run may want the lock.
  server->Stop();
}

std::string EventSocketAddress() {
  const std::lock_guard<std::mutex> lock(console_mutex);
  return event_socket ? event_socket->address() : "";
}

void SetShutdownHook(std::function<void()> hook) {
  const std::lock_guard<std::mutex> lock(console_mutex);
  shutdown_hook = std::move(hook);
}

bool CallShutdownHook() {
  std::function<void()> hook;
  {
    const std::lock_guard<std::mutex> lock(console_mutex);
    hook = shutdown_hook;
  }
  if (hook) hook();
  return static_cast<bool>(hook);
}

}  // namespace kvx_switch
