// What a far end is told of our side when the media of a call changes.
#include "sip/leg_helpers.h"
#include "sip/renegotiation.h"

namespace kvx_switch {

LocalDescription Renegotiation::AudioDescription(const LocalMedia& local) const {
  LocalDescription description;
  const uint64_t version = local_.version + 1;
  FillLocalDescription(leg_.session, local, agreed_.codec.PacketTime(), description);
  description.session_id = local_.session_id;
  description.version = version;
  description.payloads.push_back(AnsweredPayload(agreed_.codec));
  if (agreed_.HasTelephoneEvents()) {
    description.payloads.push_back(TelephoneEventPayload(agreed_.telephone_event_type, agreed_.telephone_event_rate));
  }
  description.protocol = audio_.protocol;
  if (agreed_.local_key) description.crypto = CryptoText(*agreed_.local_key);
  return description;
}

LocalDescription Renegotiation::ImageDescription(const LocalMedia& local,
                                                 const std::vector<std::string>& attributes) const {
  LocalDescription description;
  const uint64_t version = local_.version + 1;
  FillLocalDescription(leg_.session, local, 0, description);
  description.session_id = local_.session_id;
  description.version = version;
  description.rtcp_port = 0;
  description.fax = true;
  description.fax_attributes = attributes;
  return description;
}

}  // namespace kvx_switch
