// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <vector>

namespace sentrel {

/// What PipeWire tells of itself and of its cameras.
struct CameraSurvey {
  /// What a camera offers of one encoding, as "YUY2 640x480@30, 320x240@30"; the rate is the best.
  using Formats = std::vector<std::string>;
  struct Camera {
    std::string name;  ///< for people, as somebody has named it; may be of any length
    Formats formats;
  };

  std::string version;          ///< of the service
  std::vector<Camera> cameras;  ///< in the order of their appearance; 16 at most

  static constexpr std::size_t mostCameras = 16;
};

/// Asks over a connection of its own, which opens no camera. None where the service does not answer within
/// `limit`. Waits; for a thread of its own.
[[nodiscard]] std::optional<CameraSurvey> surveyCameras(std::chrono::milliseconds limit);

/// Of the library in use.
[[nodiscard]] std::string pipeWireVersion();

}  // namespace sentrel
