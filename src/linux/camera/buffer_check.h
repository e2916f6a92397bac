// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <optional>

#include "linux/camera/raw_picture.h"

struct spa_buffer;

namespace sentrel {

/// Judges every buffer of one stream before anything reads its pixels: what another process wrote into it may
/// be anything. PipeWire loop.
class BufferCheck {
 public:
  /// The picture in `buffer`, or nothing when the buffer is empty, short, out of its bounds, wrongly strided,
  /// marked as corrupted, or older than the one before it.
  [[nodiscard]] std::optional<RawPicture> check(const spa_buffer& buffer, const VideoFormat& format);

 private:
  [[nodiscard]] bool timestampAdvances(const spa_buffer& buffer);

  std::int64_t lastTimestampNs_ = 0;
};

}  // namespace sentrel
