#include "embedded/embedded_endpoint.h"

#include "embedded/embedded_translation.h"

#include <utility>

namespace kelvaro::jsr309 {
namespace {

/// Passes silences on; the library hands them to its event thread at once.
class SilenceRelay : public media_engine::EndpointEvents {
 public:
  explicit SilenceRelay(std::weak_ptr<RtpTimeoutSink> sink) : sink_(std::move(sink)) {}
  void OnRtpTimeout(bool had_media) override {
    if (const auto sink = sink_.lock()) sink->OnRtpTimeout(had_media);
  }

 private:
  const std::weak_ptr<RtpTimeoutSink> sink_;
};

/// The library joins and imports endpoints of one driver only.
EmbeddedEndpoint& Embedded(ServerEndpoint& endpoint) {
  return static_cast<EmbeddedEndpoint&>(endpoint);
}

}  // namespace

bool EmbeddedEndpoint::Report(const char* what, const media_engine::Outcome& outcome) const {
  if (outcome) return true;
  // What comes after the end of a call is everyday; what goes wrong during one is not.
  const auto level = endpoint_->closed() ? media_engine::LogLevel::kInfo : media_engine::LogLevel::kError;
  context_->Log(level, std::string("Refused ") + what + ": " + outcome.reason);
  return false;
}

bool EmbeddedEndpoint::GetLocalOffer(MediaConfig& config) {
  NameUnsupportedSettings(config, Side::kLocal, *context_);
  media_engine::LocalDescription description;
  if (!Report("local offer", endpoint_->DescribeLocal(ToLocalSettings(config, LocalKind::kOffer), description,
                                                      context_->request_limit()))) {
    return false;
  }
  FillLocal(description, config);
  return true;
}

bool EmbeddedEndpoint::GetLocalAnswer(MediaConfig& config) {
  NameUnsupportedSettings(config, Side::kLocal, *context_);
  media_engine::LocalDescription description;
  if (!Report("local answer", endpoint_->DescribeLocal(ToLocalSettings(config, LocalKind::kAnswer), description,
                                                       context_->request_limit()))) {
    return false;
  }
  FillLocal(description, config);
  return true;
}

bool EmbeddedEndpoint::SetRemote(const char* what, const MediaConfig& config, bool offer) {
  NameUnsupportedSettings(config, Side::kRemote, *context_);
  media_engine::RemoteDescription description = ToRemoteDescription(config);
  description.answer_follows = offer;
  return Report(what, endpoint_->DescribeRemote(description, context_->request_limit()));
}

bool EmbeddedEndpoint::GetLocalImageConfig(MediaConfig& config) {
  std::optional<media_engine::ImageDescription> image;
  if (!Report("local image description", endpoint_->ReadLocalImage(image, context_->request_limit()))) return false;
  if (image) FillImage(*image, config);
  return image.has_value();
}

bool EmbeddedEndpoint::GetRemoteImageConfig(MediaConfig& config) {
  std::optional<media_engine::ImageDescription> image;
  if (!Report("remote image description", endpoint_->ReadRemoteImage(image, context_->request_limit()))) return false;
  if (image) FillImage(*image, config);
  return image.has_value();
}

bool EmbeddedEndpoint::SetRemoteAddressDetection() {
  return Report("remote address detection", endpoint_->DetectRemoteAddress(context_->request_limit()));
}

bool EmbeddedEndpoint::GetRtcpStatsReport(std::vector<RtcpStatsReport>& reports) {
  media_engine::EndpointStatistics statistics;
  if (!Report("statistics", endpoint_->ReadStatistics(statistics, context_->request_limit()))) return false;
  reports = ToReports(statistics);
  return true;
}

bool EmbeddedEndpoint::Join(Direction direction, const std::shared_ptr<ServerEndpoint>& other) {
  return Report("join", endpoint_->Join(ToEngineDirection(direction), Embedded(*other).engine_endpoint(),
                                        context_->request_limit()));
}

bool EmbeddedEndpoint::Unjoin(const std::shared_ptr<ServerEndpoint>& other) {
  const media_engine::Outcome outcome =
      endpoint_->Unjoin(Embedded(*other).engine_endpoint(), context_->request_limit());
  if (!outcome) context_->Log(media_engine::LogLevel::kInfo, "Refused unjoin: " + outcome.reason);
  return outcome.ok;
}

bool EmbeddedEndpoint::Close() {
  return Report("close", endpoint_->Close(context_->request_limit()));
}

std::shared_ptr<ServerEndpoint> EmbeddedSession::CreateEndpoint(std::weak_ptr<RtpTimeoutSink> sink) {
  media_engine::Outcome outcome;
  auto endpoint =
      session_->CreateEndpoint(std::make_shared<SilenceRelay>(std::move(sink)), context_->request_limit(), outcome);
  if (endpoint) return std::make_shared<EmbeddedEndpoint>(context_, std::move(endpoint));
  context_->Log(media_engine::LogLevel::kError, "Refused endpoint: " + outcome.reason);
  return nullptr;
}

bool EmbeddedSession::ImportEndpoint(const std::shared_ptr<ServerEndpoint>& endpoint) {
  const media_engine::Outcome outcome = session_->Import(Embedded(*endpoint).engine_endpoint());
  if (!outcome) context_->Log(media_engine::LogLevel::kError, "Refused import: " + outcome.reason);
  return outcome.ok;
}

}  // namespace kelvaro::jsr309
