// What is asked of an endpoint about its image stream.
#include <utility>

#include "media_engine/engine.h"
#include "requests.h"
#include "server_context.h"

namespace media_engine {

Outcome Endpoint::ReadLocalImage(std::optional<ImageDescription>& image, milliseconds limit) {
  struct Answer {
    bool needs_ports = false;
    std::optional<ImageDescription> image;
  };
  const auto read = [](Participant& participant, Answer& answer) {
    answer.needs_ports = participant.HasImage() && participant.ports() == nullptr;
    if (participant.HasImage() && !answer.needs_ports) answer.image = participant.LocalImage();
    return Outcome::Done();
  };
  const auto deadline = RequestClock::now() + limit;
  Answer answer;
  Outcome outcome =
      AskEndpoint(route_, limit, deadline, answer,
                  [read](Worker&, Participant& participant, Answer& result) { return read(participant, result); });
  if (outcome && answer.needs_ports) {
    // Bound here: looking for ports takes system calls that the packets need not wait for.
    std::string reason;
    std::unique_ptr<PortPair> offered = server_->ports().Acquire(reason);
    if (!offered) return Outcome::Refused(reason);
    outcome = AskEndpoint(
        route_, limit, deadline, answer,
        [read, offered = std::move(offered)](Worker& worker, Participant& participant, Answer& result) mutable {
          Outcome given = worker.GivePorts(participant, offered);
          offered.reset();
          return given ? read(participant, result) : given;
        });
  }
  if (outcome) image = std::move(answer.image);
  return outcome;
}

Outcome Endpoint::ReadRemoteImage(std::optional<ImageDescription>& image, milliseconds limit) {
  ImageDescription read;
  Outcome outcome = AskEndpoint(route_, limit, read, [](Worker&, Participant& participant, ImageDescription& result) {
    result = participant.RemoteImage();
    return Outcome::Done();
  });
  if (!outcome) return outcome;
  image = read.address.empty() ? std::nullopt : std::make_optional(std::move(read));
  return outcome;
}

}  // namespace media_engine
