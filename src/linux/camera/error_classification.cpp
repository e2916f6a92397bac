// SPDX-License-Identifier: Apache-2.0
#include "linux/camera/error_classification.h"

#include <algorithm>
#include <cctype>
#include <string_view>
#include <utility>

namespace sentrel {

CaptureError captureErrorFrom(std::string message) {
  std::string lower = message;
  std::ranges::transform(lower, lower.begin(),
                         [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  const auto says = [&](std::string_view words) { return lower.find(words) != std::string::npos; };
  auto kind = CaptureError::Kind::deviceUnavailable;
  if (says("busy")) {
    kind = CaptureError::Kind::busy;
  } else if (says("permission denied") || says("access denied") || says("not permitted")) {
    kind = CaptureError::Kind::accessDenied;
  }
  return {kind, std::move(message)};
}

}  // namespace sentrel
