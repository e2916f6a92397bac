// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <vector>

#include "linux/camera/raw_picture.h"

struct spa_pod;

namespace sentrel {

/// The formats that are offered to a camera, best first: the wanted size before others near it before any,
/// about 30 pictures a second before any rate, uncompressed before MJPEG. A choice of one parameter each,
/// because PipeWire tries them in their order and takes the first that the camera knows.
class FormatOffer {
 public:
  FormatOffer(int width, int height);
  FormatOffer(const FormatOffer&) = delete;
  FormatOffer& operator=(const FormatOffer&) = delete;

  [[nodiscard]] std::vector<const spa_pod*>& parameters() { return parameters_; }

 private:
  std::vector<std::uint8_t> storage_;
  std::vector<const spa_pod*> parameters_;
};

/// Reads the format that was agreed on; nothing where it is none of those offered.
std::optional<VideoFormat> parseFormat(const spa_pod* parameter);

/// What the buffers of a stream must be: mappable memory, enough of them to hold the newest and one that is
/// being converted while the camera fills others, with a header.
class BufferRequest {
 public:
  BufferRequest();
  BufferRequest(const BufferRequest&) = delete;
  BufferRequest& operator=(const BufferRequest&) = delete;

  [[nodiscard]] std::array<const spa_pod*, 2>& parameters() { return parameters_; }

 private:
  std::array<std::uint8_t, 512> storage_{};
  std::array<const spa_pod*, 2> parameters_{};
};

}  // namespace sentrel
