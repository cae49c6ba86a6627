#include "module/module_fixture.h"

#include "build_paths.h"

#include <cstring>
#include <fstream>
#include <memory>
#include <stdexcept>

SWITCH_BEGIN_EXTERN_C
SWITCH_MODULE_LOAD_FUNCTION(mod_kelvaro_media_server_load);
SWITCH_MODULE_SHUTDOWN_FUNCTION(mod_kelvaro_media_server_shutdown);
SWITCH_END_EXTERN_C

namespace kvx_switch {
// A setting of the core's configuration; the public API has no way to change it while the core runs.
void SetDebugLevel(int level);
int DebugLevel();
}  // namespace kvx_switch

namespace module_test {

namespace {

// Races are provoked by more legs in a second than a switch in service would take.
constexpr char kSwitchConfiguration[] =
    "<configuration name=\"switch.conf\"><settings><param name=\"sessions-per-second\" value=\"100000\"/>"
    "<param name=\"loglevel\" value=\"debug\"/><param name=\"debug-level\" value=\"10\"/></settings></configuration>\n";

void write_file(const std::filesystem::path& path, const std::string& text) {
  std::filesystem::create_directories(path.parent_path());
  std::ofstream file(path, std::ios::binary);
  file << text;
  if (!file.flush()) throw std::runtime_error("cannot write " + path.string());
}

/// Everything that the core holds for the length of the program.
class RunningSwitch : public testing::Environment {
 public:
  void SetUp() override {
    directory_ = std::make_unique<test_support::TemporaryDirectory>();
    write_file(Configuration() / "vars.xml", "<include/>\n");
    write_file(Configuration() / "autoload_configs" / "switch.conf.xml", kSwitchConfiguration);
    SWITCH_GLOBAL_dirs.conf_dir = strdup(Configuration().c_str());
    SWITCH_GLOBAL_dirs.log_dir = strdup(directory_->Path().c_str());
    SWITCH_GLOBAL_dirs.mod_dir = strdup(KVX_BUILD_DIR "/mod");
    const char* error = "unknown";
    if (switch_core_init(SCF_NONE, SWITCH_FALSE, &error) != SWITCH_STATUS_SUCCESS) {
      throw std::runtime_error(std::string("switch_core_init: ") + error);
    }
  }

  void TearDown() override {
    switch_core_destroy();
    directory_.reset();
  }

  const std::filesystem::path Configuration() const { return directory_->Path() / "conf"; }

 private:
  std::unique_ptr<test_support::TemporaryDirectory> directory_;
};

// GoogleTest owns it.
RunningSwitch* const running_switch = new RunningSwitch;
const testing::Environment* const registered = testing::AddGlobalTestEnvironment(running_switch);

}  // namespace

const std::filesystem::path& configuration_directory() {
  static const std::filesystem::path path = running_switch->Configuration();
  return path;
}

CoreDebugLevel::CoreDebugLevel(int level) : former_(kvx_switch::DebugLevel()) {
  kvx_switch::SetDebugLevel(level);
}

CoreDebugLevel::~CoreDebugLevel() {
  kvx_switch::SetDebugLevel(former_);
}

ConfigurationFile::ConfigurationFile(const std::string& relative_path, const std::string& text)
    : path_(configuration_directory() / relative_path) {
  write_file(path_, text);
}

ConfigurationFile::~ConfigurationFile() {
  std::filesystem::remove(path_);
}

std::string module_configuration(const Params& params) {
  std::string text = "<configuration name=\"kelvaro_media_server.conf\">\n<settings>\n";
  for (const auto& param : params) {
    text += "<param name=\"" + param.first + "\" value=\"" + param.second + "\"/>\n";
  }
  return text + "</settings>\n</configuration>\n";
}

std::string codec_list(const std::vector<ConfiguredCodec>& codecs) {
  std::string text;
  for (const ConfiguredCodec& codec : codecs) {
    text += "<" + codec.name + ">";
    if (!codec.sampling_rate.empty()) text += "<sampling_rate>" + codec.sampling_rate + "</sampling_rate>";
    if (!codec.bit_rate.empty()) text += "<bit_rate>" + codec.bit_rate + "</bit_rate>";
    text += "</" + codec.name + ">\n";
  }
  return text;
}

std::string every_codec() {
  return codec_list({{"PCMU", "", ""},
                     {"PCMA", "", ""},
                     {"G726-16", "", ""},
                     {"G726-24", "", ""},
                     {"G726-32", "", ""},
                     {"G726-40", "", ""},
                     {"G722", "", ""},
                     {"GSM", "", ""},
                     {"G723", "", ""},
                     {"AMR", "8000", "4750"},
                     {"AMR", "8000", "12200"},
                     {"AMR-WB", "16000", "23850"},
                     {"G7221", "16000", "24000"},
                     {"G7221", "16000", "32000"},
                     {"iLBC", "8000", "13330"},
                     {"iLBC", "8000", "15200"},
                     {"G729", "", ""}});
}

std::string control_library_configuration(const std::string& codecs, const std::string& media_servers) {
  return "<?xml version=\"1.0\"?>\n<jsr309>\n<media><codec><audio>\n" + codecs +
         "</audio></codec></media>\n<media_servers>\n" + media_servers + "</media_servers>\n</jsr309>\n";
}

Pool::Pool() {
  switch_core_new_memory_pool(&pool_);
}

Pool::~Pool() {
  switch_core_destroy_memory_pool(&pool_);
}

LoadedModule::LoadedModule()
    : status_(mod_kelvaro_media_server_load(&interface_, pool_.Get())), up_(status_ == SWITCH_STATUS_SUCCESS) {}

LoadedModule::~LoadedModule() {
  ShutDown();
}

switch_status_t LoadedModule::ShutDown() {
  if (!up_) return SWITCH_STATUS_SUCCESS;
  up_ = false;
  switch_console_set_complete("del kvrms_stats");
  switch_console_set_complete("del kvrms_control");
  return mod_kelvaro_media_server_shutdown();
}

Leg::Leg(switch_call_direction_t direction, const char* uuid)
    : session_(switch_core_session_request_uuid(nullptr, direction, SOF_NONE, nullptr, uuid)) {
  if (session_ == nullptr) throw std::runtime_error("the switch gives no session");
}

Leg::~Leg() {
  End();
}

std::string Leg::Get(const char* variable) const {
  return switch_str_nil(switch_channel_get_variable(Channel(), variable));
}

void Leg::BondWith(Leg& other) {
  Set(SWITCH_SIGNAL_BOND_VARIABLE, other.Uuid().c_str());
  other.Set(SWITCH_SIGNAL_BOND_VARIABLE, Uuid().c_str());
}

void Leg::End() {
  if (session_ != nullptr) switch_core_session_destroy(&session_);
  session_ = nullptr;
}

CommandOutput::CommandOutput() {
  SWITCH_STANDARD_STREAM(stream_);
}

CommandOutput::~CommandOutput() {
  std::free(stream_.data);
}

}  // namespace module_test
