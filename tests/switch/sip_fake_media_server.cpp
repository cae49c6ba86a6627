#include "sip_fake_media_server.h"

#include <algorithm>
#include <chrono>
#include <cstdio>

#include "core/module_load.h"
#include "core/module_registry.h"
#include "sip/srtp_keys.h"

namespace kvx_switch {

namespace {

FakeMediaServer* current = nullptr;

switch_status_t InitCodec(switch_codec_t* codec, switch_codec_flag_t, const switch_codec_settings_t*) {
  if (codec->fmtp_in) codec->fmtp_out = switch_core_strdup(codec->memory_pool, codec->fmtp_in);
  return SWITCH_STATUS_SUCCESS;
}

switch_status_t DestroyCodec(switch_codec_t*) {
  return SWITCH_STATUS_SUCCESS;
}

std::string CryptoOf(const switch_core_crypto_setting* setting) {
  if (!setting) return "-";
  std::string text = "clear";
  if (setting->crypto_type == 1 || setting->crypto_type == 2) {
    SrtpKey key;
    std::copy_n(setting->crypto_raw_key, key.block.size(), key.block.begin());
    key.lifetime_exponent = setting->crypto_lifetime_exponent;
    if (setting->crypto_mki_length_str) key.mki_and_length = setting->crypto_mki_length_str;
    const std::string line = CryptoText(key);
    text = (setting->crypto_type == 1 ? "80 " : "32 ") + line.substr(line.find("inline:") + 7);
  }
  return text + (setting->crypto_mandatory ? " mandatory" : "");
}

std::string CodecText(const switch_codec_implementation_t* codec) {
  return std::string(codec->iananame) + "/" + std::to_string(codec->microseconds_per_packet / 1000);
}

}  // namespace

FakeMediaServer::FakeMediaServer() {
  current = this;
  module_ = std::make_shared<Module>();
  module_->name = "mod_fake_media_server";
  switch_core_new_memory_pool(&module_->pool);
  module_->interface = switch_loadable_module_create_module_interface(module_->pool, module_->name.c_str());
  Register();
  ModuleRegistry::Get().Add(module_);
}

FakeMediaServer::~FakeMediaServer() {
  std::string user;
  std::shared_ptr<Module> taken = ModuleRegistry::Get().TakeOutUnused(module_->name, user);
  if (taken)
    Dismantle(*taken, false);
  else
    std::fprintf(stderr, "the fake media server is still in use: %s\n", user.c_str());
  current = nullptr;
}

void FakeMediaServer::Register() {
  AddCodec("PCMU", 0, nullptr);
  AddCodec("PCMA", 8, nullptr);
  AddCodec("G729", 18, nullptr);
  AddCodec("AMR", 96, "mode-set=0,1,2,3,4,5,6,7");
  auto* server = static_cast<switch_media_server_interface_t*>(
      switch_loadable_module_create_interface(module_->interface, SWITCH_MEDIA_SERVER_INTERFACE));
  server->interface_name = "fake";
  server->create = Create;
  server->destroy = Destroy;
  server->get_media = GetMedia;
  server->bridge = Bridge;
  server->unbridge = Unbridge;
  server->set_media = SetMedia;
  server->is_available = IsAvailable;
}

void FakeMediaServer::AddCodec(const char* name, switch_payload_t type, const char* fmtp) {
  auto* codec = static_cast<switch_codec_interface_t*>(
      switch_loadable_module_create_interface(module_->interface, SWITCH_CODEC_INTERFACE));
  codec->interface_name = switch_core_strdup(module_->pool, name);
  codec->modname = switch_core_strdup(module_->pool, module_->name.c_str());
  codec->codec_id = switch_core_codec_next_id();
  for (int packet_time : {10, 20, 30}) {
    uint32_t samples = static_cast<uint32_t>(8 * packet_time);
    switch_core_codec_add_implementation(module_->pool, codec, SWITCH_CODEC_TYPE_AUDIO, type, name,
                                         const_cast<char*>(fmtp), 8000, 8000, 64000, packet_time * 1000, samples,
                                         samples * 2, samples, 1, 1, InitCodec, nullptr, nullptr, DestroyCodec);
  }
}

std::vector<std::string> FakeMediaServer::Calls() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return calls_;
}

size_t FakeMediaServer::Count(const std::string& call) const {
  std::lock_guard<std::mutex> lock(mutex_);
  return static_cast<size_t>(std::count(calls_.begin(), calls_.end(), call));
}

bool FakeMediaServer::WaitFor(const std::string& call, size_t count) {
  std::unique_lock<std::mutex> lock(mutex_);
  return recorded_.wait_for(lock, std::chrono::seconds(10), [&] {
    return static_cast<size_t>(std::count(calls_.begin(), calls_.end(), call)) >= count;
  });
}

FakeMediaServer::Arguments FakeMediaServer::Of(const std::string& call) const {
  std::lock_guard<std::mutex> lock(mutex_);
  auto found = arguments_.find(call);
  return found == arguments_.end() ? Arguments{} : found->second;
}

std::string FakeMediaServer::Offence() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return offence_;
}

void FakeMediaServer::Refuse(const std::string& call) {
  std::lock_guard<std::mutex> lock(mutex_);
  refused_.push_back(call);
}

void FakeMediaServer::OnCall(const std::string& call, std::function<void()> action) {
  std::lock_guard<std::mutex> lock(mutex_);
  actions_[call] = std::move(action);
}

void FakeMediaServer::SetAvailable(bool available) {
  std::lock_guard<std::mutex> lock(mutex_);
  available_ = available;
}

void FakeMediaServer::SetAddress(const std::string& address, const std::string& leg) {
  std::lock_guard<std::mutex> lock(mutex_);
  (leg.empty() ? address_ : leg_addresses_[leg]) = address;
}

switch_status_t FakeMediaServer::Record(switch_media_connection_t* connection, const std::string& what,
                                        const Arguments& arguments) {
  auto* session = static_cast<switch_core_session_t*>(connection->private_info);
  std::string call = what;
  if (session) {
    bool called = switch_channel_direction(switch_core_session_get_channel(session)) == SWITCH_CALL_DIRECTION_OUTBOUND;
    call = (called ? "B " : "A ") + what;
  }
  std::function<void()> action;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    action = actions_[call];
  }
  if (action) action();
  std::lock_guard<std::mutex> lock(mutex_);
  calls_.push_back(call);
  recorded_.notify_all();
  arguments_[call] = arguments;
  if (!session) offence_ = what + " of a leg without private_info";
  if (what == "create") legs_[connection] = {std::this_thread::get_id(), false};
  Leg& leg = legs_[connection];
  if (leg.thread != std::this_thread::get_id()) offence_ = call + " on a foreign thread";
  if (leg.destroyed) offence_ = call + " after destroy";
  if (what == "destroy") leg.destroyed = true;
  bool refused = std::find(refused_.begin(), refused_.end(), call) != refused_.end();
  return refused ? SWITCH_STATUS_FALSE : SWITCH_STATUS_SUCCESS;
}

switch_status_t FakeMediaServer::Create(switch_media_connection_t* connection, switch_core_session_t* session) {
  connection->private_info = session;
  return current->Record(connection, "create", {});
}

switch_status_t FakeMediaServer::Destroy(switch_media_connection_t* connection) {
  return current->Record(connection, "destroy", {});
}

switch_status_t FakeMediaServer::GetMedia(switch_media_connection_t* connection,
                                          const switch_codec_implementation_t** codecs, int num_codecs,
                                          switch_codec_t* answer_codec, switch_bool_t convert_dtmf, int rfc2833flag,
                                          switch_payload_t rfc2833payload, int silence, char* ip_addr, int ip_addr_size,
                                          switch_port_t* out_port, switch_core_crypto_setting* crypto,
                                          switch_bool_t pass_through, switch_sdp_negotiation_state_t state, uint8_t tos,
                                          uint8_t traffic_class, uint8_t hop, int annex_b, switch_bool_t suppress_cng,
                                          switch_bool_t sid, uint32_t rtp_timeout_sec, switch_bool_t renew_port,
                                          int asymmetric) {
  Arguments arguments;
  arguments.settings = {convert_dtmf, silence, tos, traffic_class, annex_b, suppress_cng, sid, renew_port, asymmetric};
  for (int i = 0; i < num_codecs; ++i) arguments.codecs += (i ? " " : "") + CodecText(codecs[i]);
  arguments.has_answer_codec = answer_codec && answer_codec->implementation;
  if (arguments.has_answer_codec) arguments.payload_type = answer_codec->agreed_pt;
  arguments.event_type = rfc2833flag ? rfc2833payload : 0;
  arguments.state = state;
  arguments.hop_limit = hop;
  arguments.rtp_timeout = rtp_timeout_sec;
  arguments.crypto = CryptoOf(crypto);
  arguments.pass_through = pass_through == SWITCH_TRUE;
  switch_status_t status = current->Record(connection, "get_media", arguments);
  auto* channel = switch_core_session_get_channel(static_cast<switch_core_session_t*>(connection->private_info));
  std::lock_guard<std::mutex> lock(current->mutex_);
  if (!crypto) current->offence_ = "get_media without a crypto setting";
  const bool calling = switch_channel_direction(channel) == SWITCH_CALL_DIRECTION_INBOUND;
  const auto own = current->leg_addresses_.find(calling ? "A" : "B");
  const std::string& address = own == current->leg_addresses_.end() ? current->address_ : own->second;
  std::snprintf(ip_addr, static_cast<size_t>(ip_addr_size), "%s", address.c_str());
  *out_port = current->next_port_;
  switch_channel_set_variable_printf(channel, "local_rtcp_port", "%d", current->next_port_ + 1);
  current->next_port_ = static_cast<switch_port_t>(current->next_port_ + 2);
  return status;
}

switch_status_t FakeMediaServer::SetMedia(switch_media_connection_t* connection, const char* ip, switch_port_t port,
                                          switch_port_t rtcp_port, const char* session_name, switch_codec_t* codec,
                                          int rfc2833flag, switch_payload_t rfc2833payload, int silence,
                                          switch_core_crypto_setting* crypto, switch_bool_t pass_through,
                                          switch_sdp_negotiation_state_t state, switch_bool_t detect_address,
                                          switch_bool_t suppress_cng, switch_bool_t sid) {
  Arguments arguments;
  arguments.settings = {silence, detect_address, suppress_cng, sid};
  arguments.codecs = codec ? CodecText(codec->implementation) : "";
  arguments.payload_type = codec ? codec->agreed_pt : -1;
  arguments.fmtp = codec && codec->fmtp_in ? codec->fmtp_in : "";
  arguments.event_type = rfc2833flag ? rfc2833payload : 0;
  arguments.address = std::string(ip) + ":" + std::to_string(port) + "/" + std::to_string(rtcp_port);
  arguments.session_name = session_name;
  arguments.crypto = CryptoOf(crypto);
  arguments.pass_through = pass_through == SWITCH_TRUE;
  arguments.state = state;
  return current->Record(connection, "set_media", arguments);
}

switch_status_t FakeMediaServer::Bridge(switch_media_connection_t* connection, RTPDirection direction) {
  auto* session = static_cast<switch_core_session_t*>(connection->private_info);
  switch_core_session_t* partner = nullptr;
  bool found = switch_core_session_get_partner(session, &partner) == SWITCH_STATUS_SUCCESS;
  if (partner) switch_core_session_rwunlock(partner);
  Arguments arguments;
  arguments.direction = direction;
  switch_status_t status = current->Record(connection, "bridge", arguments);
  return found ? status : SWITCH_STATUS_FALSE;
}

switch_status_t FakeMediaServer::Unbridge(switch_media_connection_t* connection) {
  return current->Record(connection, "unbridge", {});
}

switch_bool_t FakeMediaServer::IsAvailable() {
  std::lock_guard<std::mutex> lock(current->mutex_);
  return current->available_ ? SWITCH_TRUE : SWITCH_FALSE;
}

}  // namespace kvx_switch
