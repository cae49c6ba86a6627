/// The drivers that this process knows, by name.
#pragma once

#include "kelvaro/jsr309/driver.h"

#include <memory>
#include <string>

namespace kelvaro::jsr309 {

constexpr char kEmbeddedDriver[] = "embedded";
constexpr char kRtpengineDriver[] = "rtpengine";

bool IsKnownMediaServerDriver(const std::string& name);
/// Null for a name that is not known.
std::shared_ptr<MediaServerDriver> MakeMediaServerDriver(const std::string& name);

}  // namespace kelvaro::jsr309
