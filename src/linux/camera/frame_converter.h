// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>

#include "linux/camera/jpeg_decoder.h"
#include "linux/camera/raw_picture.h"
#include "support/frame.h"

namespace sentrel {

/// Turns a camera's picture into BGRA of the size that was asked for. A source of another size is cut to the
/// wanted shape about its centre and scaled: whoever measures in the frame sees one size, and nothing is
/// stretched. Camera queue.
class FrameConverter {
 public:
  FrameConverter();
  ~FrameConverter();

  /// Fills `target` at its own size. False when the picture cannot be read; `target` is then undefined.
  [[nodiscard]] bool convert(const RawPicture& picture, Frame& target);

 private:
  [[nodiscard]] bool decode(const RawPicture& picture, Frame& target);

  std::unique_ptr<JpegDecoder> jpeg_;  // made by the first picture that needs it
  Frame fullSize_;                     // only for sources of another size
};

}  // namespace sentrel
