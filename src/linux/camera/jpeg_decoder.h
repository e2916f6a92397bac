// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include "support/frame.h"

namespace sentrel {

/// Decodes the single pictures of a motion-JPEG stream. Its working memory is picture memory, taken once: no
/// allocation per picture. Camera queue.
class JpegDecoder {
 public:
  JpegDecoder();
  ~JpegDecoder();
  JpegDecoder(const JpegDecoder&) = delete;
  JpegDecoder& operator=(const JpegDecoder&) = delete;

  /// The size of the picture that `decode` will give: that of the stream, or a half, a quarter or an eighth
  /// of it while that still covers `wantedWidth` x `wantedHeight`.
  struct Size {
    int width = 0;
    int height = 0;
  };
  [[nodiscard]] static Size reducedSize(int width, int height, int wantedWidth, int wantedHeight);

  /// Decodes a `width` x `height` picture into `target`, whose size is a `reducedSize` of it. False when the
  /// bytes are anything else; the content of `target` is then undefined.
  [[nodiscard]] bool decode(const std::uint8_t* bytes, std::size_t size, int width, int height,
                            Frame& target);

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace sentrel
