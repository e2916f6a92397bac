// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>

#include "linux/camera/stream_format.h"
#include "support/frame.h"
#include "support/geometry.h"

namespace sentrel {

/// Turns a camera's frame into BGRA of the size that was asked for. A source of another size is cut to the
/// wanted shape about its centre and scaled: whoever measures in the frame sees one size, and nothing is
/// stretched. Of a larger source the frame brings what was cut as its larger image. It allocates for the
/// first frame of a size only. Camera queue.
class FrameConverter {
 public:
  FrameConverter();
  ~FrameConverter();

  /// Fills `target` at its own size. False when the frame cannot be read; `target` is then undefined.
  [[nodiscard]] bool convert(const RawFrame& raw, Frame& target);

 private:
  class JpegDecoder;

  /// Reads the picture as if it had been given as `shown`, and fills `target` with that part.
  [[nodiscard]] bool decode(const RawFrame& raw, const VideoFormat& shown, const Rect& part, Frame& target);

  std::unique_ptr<JpegDecoder> jpeg_;  // made by the first frame that needs it
  Frame scratch_;                      // only for sources of another size that nobody needs larger
};

}  // namespace sentrel
