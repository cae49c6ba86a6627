#include "endpoint_account.h"

namespace media_engine {

std::string JitterBufferAccount(const EndpointStatistics& statistics) {
  const auto figure = [](const char* name, uint64_t value) { return std::string(name) + std::to_string(value); };
  return figure("jitter buffer: delay ", statistics.jitter_buffer_delay_ms) +
         figure(" ms, reordered ", statistics.jitter_buffer_reordered) +
         figure(", late ", statistics.jitter_buffer_late) +
         figure(", duplicates ", statistics.jitter_buffer_duplicates) +
         figure(", without room ", statistics.jitter_buffer_overflows) +
         figure(", discarded ", statistics.jitter_buffer_discarded) + figure(", of ", statistics.rtp_packets_received) +
         " packets";
}

std::string DroppedAccount(const EndpointStatistics& statistics) {
  struct Figure {
    const char* name;
    uint64_t EndpointStatistics::*value;
  };
  constexpr Figure kFigures[] = {
      {"from strangers ", &EndpointStatistics::strangers},
      {"RTCP from strangers ", &EndpointStatistics::rtcp_strangers},
      {"no valid RTP ", &EndpointStatistics::malformed},
      {"no valid RTCP ", &EndpointStatistics::rtcp_malformed},
      {"too long ", &EndpointStatistics::oversized},
      {"of payload types that nobody described ", &EndpointStatistics::unknown_payload_types},
      {"that the other leg cannot take ", &EndpointStatistics::untranslatable},
      {"too late to be passed on ", &EndpointStatistics::late},
      {"SRTP not authentic ", &EndpointStatistics::srtp_unauthentic},
      {"SRTP replayed ", &EndpointStatistics::srtp_replayed},
      {"SRTP of too many sources ", &EndpointStatistics::srtp_sources_exceeded},
      {"SRTP with keys that have served their time ", &EndpointStatistics::srtp_key_expired},
      {"without the keys that are mandatory ", &EndpointStatistics::srtp_missing},
      {"SRTP that could not be protected ", &EndpointStatistics::srtp_unsendable},
      {"duplicates that SRTP does not send ", &EndpointStatistics::srtp_duplicates},
  };
  std::string account;
  for (const Figure& figure : kFigures) {
    const uint64_t value = statistics.*figure.value;
    if (value != 0)
      account += (account.empty() ? "dropped: " : ", ") + std::string(figure.name) + std::to_string(value);
  }
  return account;
}

}  // namespace media_engine
