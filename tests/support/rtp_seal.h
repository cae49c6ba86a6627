#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace test_support {

/// The SRTP of one phone (RFC 3711), made with the reference library and keyed as session descriptions say (RFC 4568).
/// One thread at a time.
class RtpSeal {
 public:
  /// A fresh key for a phone's description: what stands after "a=crypto:".
  static std::string MakeCrypto(const std::string& suite);

  /// `own` and `far`: the values of "a=crypto" that this phone said and heard. Throws std::invalid_argument when they
  /// cannot be used.
  RtpSeal(const std::string& own, const std::string& far);
  ~RtpSeal();
  RtpSeal(const RtpSeal&) = delete;
  RtpSeal& operator=(const RtpSeal&) = delete;

  /// An RTP packet as it goes out.
  std::vector<std::uint8_t> Seal(std::vector<std::uint8_t> packet);
  /// A packet that came in; empty when it is not authentic, or came before.
  std::optional<std::vector<std::uint8_t>> Open(std::vector<std::uint8_t> packet);

 private:
  struct Contexts;
  const std::unique_ptr<Contexts> contexts_;
};

}  // namespace test_support
