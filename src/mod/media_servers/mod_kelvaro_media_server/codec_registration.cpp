#include "codecs.h"

namespace {

constexpr int kMaxMultiplier = 20;
constexpr int kMillisecondsPerMultiplier = 10;  // whatever the frame length: G723 gets 30, 60 and 90 ms
constexpr int kAmrWideBandIana = 100;

/// Registers the implementations of one interface.
class ImplementationAdder {
 public:
  ImplementationAdder(switch_memory_pool_t* pool, switch_codec_interface_t* codec_interface,
                      switch_core_codec_init_func_t init, switch_core_codec_encode_func_t encode,
                      switch_core_codec_decode_func_t decode, switch_core_codec_destroy_func_t destroy)
      : pool_(pool),
        codec_interface_(codec_interface),
        init_(init),
        encode_(encode),
        decode_(decode),
        destroy_(destroy) {}

  void Add(const media_server_codec& codec, int multiplier, const char* fmtp, int frames_per_packet) const {
    // The switch takes the text without const, and copies it.
    switch_core_codec_add_implementation(
        pool_, codec_interface_, SWITCH_CODEC_TYPE_AUDIO, static_cast<switch_payload_t>(codec.iana), codec.iana_name,
        const_cast<char*>(fmtp), static_cast<uint32_t>(codec.sampling_rate),
        static_cast<uint32_t>(codec.actual_sampling_rate), codec.bps, codec.mpf * multiplier,
        static_cast<uint32_t>(codec.spf * multiplier), static_cast<uint32_t>(codec.bpfd * multiplier),
        static_cast<uint32_t>(codec.bpfc * multiplier), 1, frames_per_packet, init_, encode_, decode_, destroy_);
  }

  void AddMultiples(const media_server_codec& codec, int step, const char* fmtp) const {
    for (int multiplier = step; multiplier <= kMaxMultiplier; multiplier += step) {
      if (multiplier * kMillisecondsPerMultiplier > codec.maxms) return;
      Add(codec, multiplier, fmtp, codec.spf * multiplier);
    }
  }

  /// One packet time of one frame, told apart from its sister's by the fmtp.
  void AddSingle(int codec_id, const char* fmtp, const char* missing) const {
    const media_server_codec* codec = get_codec_from_id(codec_id);
    if (codec == nullptr) {
      switch_log_printf(SWITCH_CHANNEL_LOG, SWITCH_LOG_ERROR, "%s", missing);
    } else {
      Add(*codec, 1, fmtp, 1);
    }
  }

  void AddAmr(int codec_id, const char* missing) const {
    const media_server_codec* codec = get_codec_from_id(codec_id);
    if (codec == nullptr) {
      switch_log_printf(SWITCH_CHANNEL_LOG, SWITCH_LOG_ERROR, "%s", missing);
    } else {
      AddMultiples(*codec, 2, "mode-set=0,1,2,3,4,5,6,7");
    }
  }

 private:
  switch_memory_pool_t* const pool_;
  switch_codec_interface_t* const codec_interface_;
  const switch_core_codec_init_func_t init_;
  const switch_core_codec_encode_func_t encode_;
  const switch_core_codec_decode_func_t decode_;
  const switch_core_codec_destroy_func_t destroy_;
};

/// Pairs of entries of which the first one met registers both.
struct PairsDone {
  bool ilbc = false;
  bool g7221 = false;
  bool amr = false;

  /// The flag of the pair that the entry belongs to; null when it stands alone.
  bool* Of(const media_server_codec& codec) {
    switch (codec.codec_id) {
      case 97:
      case 98:
        return &ilbc;
      case 101:
      case 102:
        return &g7221;
      case 90:
      case 96:
        return &amr;
      default:
        return nullptr;
    }
  }
};

bool is_to_be_registered(const media_server_codec& codec, PairsDone& done) {
  if (codec.to_load == 0 || codec.codec_id == 10 || codec.codec_id == 118) return false;
  const bool* pair_done = done.Of(codec);
  return pair_done == nullptr || !*pair_done;
}

switch_codec_interface_t* create_codec_interface(switch_loadable_module_interface_t* module_interface,
                                                 switch_memory_pool_t* pool, const media_server_codec& codec) {
  auto* codec_interface = static_cast<switch_codec_interface_t*>(
      switch_loadable_module_create_interface(module_interface, SWITCH_CODEC_INTERFACE));
  codec_interface->interface_name = switch_core_strdup(pool, codec.fs_name);
  codec_interface->modname = switch_core_strdup(pool, module_interface->module_name);
  codec_interface->codec_id = switch_core_codec_next_id();
  codec_interface->parse_fmtp = switch_fmtp_parse;
  return codec_interface;
}

void add_implementations(const ImplementationAdder& adder, const media_server_codec& codec) {
  if (codec.autoinit == 1) {
    const bool wide_band = codec.iana == kAmrWideBandIana;
    adder.AddMultiples(codec, wide_band ? 2 : 1, wide_band ? "mode-set=0,1,2,3,4,5,6,7,8" : nullptr);
    return;
  }
  switch (codec.codec_id) {
    case 3:
      adder.Add(codec, 1, nullptr, codec.spf);
      break;
    case 97:
    case 98:
      adder.AddSingle(98, "mode=20", "Failed to get iLBC 15.2kbps\n");
      adder.AddSingle(97, "mode=30", "Failed to get iLBC 13.3kbps\n");
      break;
    case 90:
    case 96:
      adder.AddAmr(90, "Failed to get AMR 4.75kbps\n");
      adder.AddAmr(96, "Failed to get AMR 12.2kbps\n");
      break;
    case 101:
    case 102:
      adder.AddSingle(101, "bitrate=24000", "Failed to get SIREN7 G7221 24kbps\n");
      adder.AddSingle(102, "bitrate=32000", "Failed to get SIREN7 G7221 32kbps\n");
      break;
  }
}

}  // namespace

void mod_media_server_load_codec(switch_loadable_module_interface_t* module_interface, switch_memory_pool_t* pool,
                                 switch_codec_interface_t* codec_interface, switch_core_codec_init_func_t init,
                                 switch_core_codec_encode_func_t encode, switch_core_codec_decode_func_t decode,
                                 switch_core_codec_destroy_func_t destroy) {
  PairsDone done;
  for (const media_server_codec* codec = g_codec_map; codec->codec_id != -1; ++codec) {
    if (!is_to_be_registered(*codec, done)) continue;
    codec_interface = create_codec_interface(module_interface, pool, *codec);
    add_implementations(ImplementationAdder(pool, codec_interface, init, encode, decode, destroy), *codec);
    if (bool* pair_done = done.Of(*codec)) *pair_done = true;
  }
}
