// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>

#include "linux/camera/stream_format.h"
#include "support/frame.h"

namespace sentrel {

/// Turns a camera's frame into BGRA of the size that was asked for. A source of another size is cut to the
/// wanted shape about its centre and scaled: whoever measures in the frame sees one size, and nothing is
/// stretched. It allocates for the first frame of a size only. Camera queue.
class FrameConverter {
 public:
  FrameConverter();
  ~FrameConverter();

  /// Fills `target` at its own size. False when the frame cannot be read; `target` is then undefined.
  [[nodiscard]] bool convert(const RawFrame& raw, Frame& target);

 private:
  class JpegDecoder;

  [[nodiscard]] bool decode(const RawFrame& raw, Frame& target);

  std::unique_ptr<JpegDecoder> jpeg_;  // made by the first frame that needs it
  Frame fullSize_;                     // only for sources of another size
};

}  // namespace sentrel
