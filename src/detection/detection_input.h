// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <optional>

namespace sentrel {

/// The main face of one frame.
struct FaceData {
  float eulerY = 0;            ///< yaw in degrees; 0 when it could not be read
  float eulerX = 0;            ///< pitch estimate, scaled like degrees; 0 when it could not be read
  float boundingBoxRatio = 0;  ///< width of the face as a fraction of the image's width
  bool operator==(const FaceData&) const = default;
};

/// What one analysed frame says.
struct DetectionInput {
  std::int64_t timestampMs = 0;         ///< when the frame was accepted, on the program's time base
  std::int64_t faceCount = 0;           ///< faces at least as wide as the least width that counts
  std::optional<FaceData> primaryFace;  ///< the widest face whose pose was read
  bool operator==(const DetectionInput&) const = default;
};

}  // namespace sentrel
