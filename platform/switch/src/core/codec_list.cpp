#include <stdlib.h>

#include <string>
#include <vector>

#include <switch.h>

#include "core/module_registry.h"

namespace {

using kvx_switch::Module;
using kvx_switch::ModuleRegistry;

/// A codec preference taken apart.
struct Preference {
  std::string name;
  uint32_t interval = 0;
  uint32_t rate = 0;
  uint32_t bit_rate = 0;
  uint32_t channels = 0;
  std::string module;
  std::string fmtp;

  explicit Preference(const char* text) {
    std::string buffer = switch_str_nil(text);
    char* modname = nullptr;
    char* format = nullptr;
    name = switch_parse_codec_buf(buffer.data(), &interval, &rate, &bit_rate, &channels, &modname, &format);
    module = switch_str_nil(modname);
    fmtp = switch_str_nil(format);
  }

  bool Fits(const switch_codec_implementation_t& at) const {
    if (!at.iananame || strcasecmp(at.iananame, name.c_str())) return false;
    if (interval && interval * 1000 != static_cast<uint32_t>(at.microseconds_per_packet)) return false;
    if (rate && rate != at.samples_per_second) return false;
    if (bit_rate && bit_rate != static_cast<uint32_t>(at.bits_per_second)) return false;
    return !channels || channels == at.number_of_channels;
  }
};

int usual_packet_time(const switch_codec_implementation_t& at) {
  constexpr int kUsual = 20000;
  constexpr int kOfThirty = 30000;
  const bool thirty = at.iananame && (!strcasecmp(at.iananame, "G723") || !strcasecmp(at.iananame, "iLBC"));
  return thirty ? kOfThirty : kUsual;
}

int distance(const switch_codec_implementation_t& at) {
  return abs(at.microseconds_per_packet - usual_packet_time(at));
}

/// Of those that fit, the one with the packet time nearest to the usual one.
const switch_codec_implementation_t* best(const switch_codec_interface_t& interface, const Preference& preference) {
  const switch_codec_implementation_t* found = nullptr;
  for (const auto* at = interface.implementations; at; at = at->next) {
    if (preference.Fits(*at) && (!found || distance(*at) < distance(*found))) found = at;
  }
  return found;
}

const switch_codec_implementation_t* find(const Preference& preference) {
  const switch_codec_implementation_t* found = nullptr;
  ModuleRegistry::Get().Visit([&](Module& module) {
    if (!preference.module.empty() && strcasecmp(preference.module.c_str(), module.name.c_str())) return false;
    for (auto* at = module.interface->codec_interface; at && !found; at = at->next) found = best(*at, preference);
    return found != nullptr;
  });
  return found;
}

}  // namespace

int switch_loadable_module_get_codecs(const switch_codec_implementation_t** array, int arraylen) {
  int count = 0;
  ModuleRegistry::Get().Visit([&](Module& module) {
    for (const auto* codec = module.interface->codec_interface; codec; codec = codec->next) {
      for (const auto* at = codec->implementations; at && count < arraylen; at = at->next) array[count++] = at;
    }
    return count >= arraylen;
  });
  return count;
}

int switch_loadable_module_get_codecs_sorted(const switch_codec_implementation_t** array,
                                             char fmtp_array[SWITCH_MAX_CODECS][MAX_FMTP_LEN], int arraylen,
                                             char** prefs, int preflen) {
  int count = 0;
  for (int i = 0; i < preflen && count < arraylen && count < SWITCH_MAX_CODECS; ++i) {
    const Preference preference(prefs[i]);
    const switch_codec_implementation_t* found = find(preference);
    if (!found) continue;
    array[count] = found;
    if (fmtp_array) switch_copy_string(fmtp_array[count], preference.fmtp.c_str(), MAX_FMTP_LEN);
    ++count;
  }
  return count;
}

char* switch_parse_codec_buf(char* buf, uint32_t* interval, uint32_t* rate, uint32_t* bit, uint32_t* channels,
                             char** modname, char** fmtp) {
  *interval = *rate = *bit = *channels = 0;
  if (modname) *modname = nullptr;
  if (fmtp) *fmtp = nullptr;
  if (char* tilde = strchr(buf, '~')) {
    *tilde = '\0';
    if (fmtp) *fmtp = tilde + 1;
  }
  char* part = strchr(buf, '@');
  while (part) {
    *part++ = '\0';
    char* next = strchr(part, '@');
    char* unit = part;
    const auto number = static_cast<uint32_t>(strtoul(part, &unit, 10));
    switch (*unit) {
      case 'i':
        *interval = number;
        break;
      case 'h':
      case 'k':
        *rate = number;
        break;
      case 'b':
        *bit = number;
        break;
      case 'c':
        *channels = number;
        break;
      default:
        break;
    }
    part = next;
  }
  char* name = buf;
  if (char* dot = strchr(buf, '.')) {
    *dot = '\0';
    if (modname) *modname = buf;
    name = dot + 1;
  }
  return name;
}
