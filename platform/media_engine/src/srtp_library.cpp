#include "srtp_library.h"

#include <srtp2/srtp.h>

#include <array>

namespace media_engine {
namespace {

class SrtpLibrary {
 public:
  // Refused as well when somebody else in the process has started it: what counts is whether it works.
  SrtpLibrary() : started_here_(srtp_init() == srtp_err_status_ok) {
    // The library may start and stop its provider of ciphers with its first and its last context, which takes a hundred
    // times as long as a context: this one stays.
    std::array<unsigned char, SRTP_MASTER_KEY_LEN> key{};
    srtp_policy_t policy{};
    srtp_crypto_policy_set_rtp_default(&policy.rtp);
    srtp_crypto_policy_set_rtcp_default(&policy.rtcp);
    policy.ssrc.type = ssrc_any_inbound;
    policy.key = key.data();
    status_ = srtp_create(&kept_, &policy);
  }
  ~SrtpLibrary() {
    if (kept_ != nullptr) srtp_dealloc(kept_);
    if (started_here_) srtp_shutdown();
  }
  SrtpLibrary(const SrtpLibrary&) = delete;
  SrtpLibrary& operator=(const SrtpLibrary&) = delete;

  srtp_err_status_t status() const { return status_; }

 private:
  const bool started_here_;
  srtp_err_status_t status_ = srtp_err_status_init_fail;
  srtp_t kept_ = nullptr;
};

}  // namespace

bool SrtpLibraryReady(std::string& reason) {
  static const SrtpLibrary library;
  if (library.status() == srtp_err_status_ok) return true;
  reason = "libsrtp2 does not start, status " + std::to_string(library.status());
  return false;
}

}  // namespace media_engine
