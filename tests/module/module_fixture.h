#pragma once

#include <gtest/gtest.h>
#include <switch.h>

#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include "support/event_capture.h"
#include "support/log_capture.h"
#include "support/process_child.h"

namespace module_test {

/// The switch's core runs for the whole program, on a configuration directory of its own that tests write into.
const std::filesystem::path& configuration_directory();

/// How fine the core logs while this lives: DEBUG1 to DEBUG10 come out, at DEBUG, up to this level. 10 otherwise.
class CoreDebugLevel {
 public:
  explicit CoreDebugLevel(int level);
  ~CoreDebugLevel();
  CoreDebugLevel(const CoreDebugLevel&) = delete;
  CoreDebugLevel& operator=(const CoreDebugLevel&) = delete;

 private:
  const int former_;
};

/// A file below the configuration directory, removed with this object. Returns its path by Path().
class ConfigurationFile {
 public:
  ConfigurationFile(const std::string& relative_path, const std::string& text);
  ~ConfigurationFile();
  ConfigurationFile(const ConfigurationFile&) = delete;
  ConfigurationFile& operator=(const ConfigurationFile&) = delete;

  const std::filesystem::path& Path() const { return path_; }

 private:
  std::filesystem::path path_;
};

using Params = std::vector<std::pair<std::string, std::string>>;
/// The text of kelvaro_media_server.conf.xml with these params below "settings".
std::string module_configuration(const Params& params);
/// The text of a codec list as the control library's configuration holds it: names, with rates where given.
struct ConfiguredCodec {
  std::string name;
  std::string sampling_rate;
  std::string bit_rate;
};
std::string codec_list(const std::vector<ConfiguredCodec>& codecs);
/// A codec list that names all 17 entries of the catalogue.
std::string every_codec();
/// A control-library configuration: the codec list and the text inside "media_servers".
std::string control_library_configuration(const std::string& codecs, const std::string& media_servers);

/// A memory pool of the switch.
class Pool {
 public:
  Pool();
  ~Pool();
  Pool(const Pool&) = delete;
  Pool& operator=(const Pool&) = delete;

  switch_memory_pool_t* Get() const { return pool_; }

 private:
  switch_memory_pool_t* pool_ = nullptr;
};

/// The module in this process, loaded by its own load function and shut down with this object when it is up.
class LoadedModule {
 public:
  LoadedModule();
  ~LoadedModule();
  LoadedModule(const LoadedModule&) = delete;
  LoadedModule& operator=(const LoadedModule&) = delete;

  switch_status_t Status() const { return status_; }
  /// Null when the load did not come that far.
  switch_loadable_module_interface_t* Interface() const { return interface_; }
  switch_status_t ShutDown();

 private:
  Pool pool_;
  switch_loadable_module_interface_t* interface_ = nullptr;
  switch_status_t status_;
  bool up_;
};

/// A leg of the switch without signalling: it exists, can be found and hung up, and does nothing.
class Leg {
 public:
  explicit Leg(switch_call_direction_t direction = SWITCH_CALL_DIRECTION_INBOUND, const char* uuid = nullptr);
  ~Leg();
  Leg(const Leg&) = delete;
  Leg& operator=(const Leg&) = delete;

  switch_core_session_t* Session() const { return session_; }
  switch_channel_t* Channel() const { return switch_core_session_get_channel(session_); }
  std::string Uuid() const { return switch_core_session_get_uuid(session_); }
  bool HungUp() const { return switch_channel_get_state(Channel()) >= CS_HANGUP; }
  switch_call_cause_t Cause() const { return switch_channel_get_cause(Channel()); }
  void Set(const char* variable, const char* value) { switch_channel_set_variable(Channel(), variable, value); }
  /// Empty when unset.
  std::string Get(const char* variable) const;
  /// Makes each the other's partner.
  void BondWith(Leg& other);
  /// Ends the session before its time.
  void End();

 private:
  switch_core_session_t* session_ = nullptr;
};

/// What a command writes to its stream.
class CommandOutput {
 public:
  CommandOutput();
  ~CommandOutput();
  CommandOutput(const CommandOutput&) = delete;
  CommandOutput& operator=(const CommandOutput&) = delete;

  switch_stream_handle_t* Stream() { return &stream_; }
  std::string Text() const { return static_cast<const char*>(stream_.data); }

 private:
  switch_stream_handle_t stream_;
};

}  // namespace module_test
