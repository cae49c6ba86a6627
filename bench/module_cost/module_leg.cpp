#include "module_leg.h"

#include <cstring>
#include <stdexcept>
#include <string>

namespace bench {
namespace {

void Check(switch_status_t status, const char* what) {
  if (status != SWITCH_STATUS_SUCCESS) throw std::runtime_error(std::string("the module refuses ") + what);
}

const switch_codec_implementation_t& MuLaw() {
  static const switch_codec_implementation_t codec = [] {
    switch_codec_implementation_t made;
    std::memset(&made, 0, sizeof made);
    made.iananame = const_cast<char*>("PCMU");
    made.microseconds_per_packet = 20000;
    made.samples_per_second = made.actual_samples_per_second = 8000;
    made.bits_per_second = 64000;
    return made;
  }();
  return codec;
}

switch_codec_t Negotiated() {
  switch_codec_t codec;
  std::memset(&codec, 0, sizeof codec);
  codec.implementation = &MuLaw();
  return codec;
}

}  // namespace

ModuleLeg::ModuleLeg(switch_call_direction_t direction)
    : session_(switch_core_session_request_uuid(nullptr, direction, SOF_NONE, nullptr, nullptr)) {
  if (session_ == nullptr) throw std::runtime_error("the switch gives no session");
}

ModuleLeg::~ModuleLeg() {
  switch_core_session_destroy(&session_);
}

void ModuleLeg::BondWith(ModuleLeg& other) {
  switch_channel_set_variable(switch_core_session_get_channel(session_), SWITCH_SIGNAL_BOND_VARIABLE,
                              switch_core_session_get_uuid(other.session_));
  switch_channel_set_variable(switch_core_session_get_channel(other.session_), SWITCH_SIGNAL_BOND_VARIABLE,
                              switch_core_session_get_uuid(session_));
}

void ModuleLeg::Create() {
  Check(channel_create(Connection(), session_), "create");
}

void ModuleLeg::GetMedia(switch_sdp_negotiation_state_t state) {
  const switch_codec_implementation_t* codecs[] = {&MuLaw()};
  switch_codec_t answer = Negotiated();
  const bool answers = state == SWITCH_SDP_OFFER_RECEIVED;
  char address[128] = "";
  switch_port_t port = 0;
  switch_core_crypto_setting crypto = {};
  Check(channel_get_media(Connection(), codecs, 1, answers ? &answer : nullptr, SWITCH_FALSE, 1, 101, 0, address,
                          sizeof address, &port, &crypto, SWITCH_FALSE, state, 0, 0, 64, 0, SWITCH_FALSE, SWITCH_FALSE,
                          0, SWITCH_FALSE, 0),
        "get_media");
  if (port == 0) throw std::runtime_error("get_media gives no port");
}

void ModuleLeg::SetMedia(switch_sdp_negotiation_state_t state) {
  switch_codec_t codec = Negotiated();
  Check(channel_set_media(Connection(), "192.0.2.7", 4000, 4001, "call", &codec, 1, 101, 0, nullptr, SWITCH_FALSE,
                          state, SWITCH_FALSE, SWITCH_FALSE, SWITCH_FALSE),
        "set_media");
}

void ModuleLeg::Bridge() {
  Check(channel_bridge(Connection(), RTPDIR_DUPLEX), "bridge");
}

void ModuleLeg::Unbridge() {
  Check(channel_unbridge(Connection()), "unbridge");
}

void ModuleLeg::Destroy() {
  Check(channel_destroy(Connection()), "destroy");
  Connection()->private_info = nullptr;
}

void PlaceCall(ModuleLeg& a, ModuleLeg& b) {
  a.Create();
  a.SetMedia(SWITCH_SDP_OFFER_RECEIVED);
  b.Create();
  b.GetMedia(SWITCH_SDP_STATE_UNKNOWN);
  b.SetMedia(SWITCH_SDP_ANSWER_RECEIVED);
  a.GetMedia(SWITCH_SDP_OFFER_RECEIVED);
  a.Bridge();
  a.Unbridge();
  a.Destroy();
  b.Destroy();
}

}  // namespace bench
