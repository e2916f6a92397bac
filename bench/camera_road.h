// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <vector>

#include "linux/camera/frame_converter.h"
#include "support/frame.h"
#include "vision/region_sampler.h"

namespace sentrel::bench {

/// What the program sees of pictures of 1280x720: they are encoded as a camera does and converted as the
/// program does. Pictures of other sizes are seen as they are.
class CameraRoad {
 public:
  /// Whether the program gets more than 640x480 of the camera's pixels.
  explicit CameraRoad(bool larger) : larger_(larger) {}

  /// Valid until the next call, as long as `picture` is.
  const Frame& see(const Frame& picture);

  /// Where a place in what is seen of a picture is in the picture.
  [[nodiscard]] static vision::Region inPicture(const vision::Region& seen, const Frame& picture);

 private:
  bool larger_;
  FrameConverter converter_;
  std::vector<std::uint8_t> bytes_;
  Frame seen_;
};

}  // namespace sentrel::bench
