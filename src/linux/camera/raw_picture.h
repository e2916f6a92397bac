// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace sentrel {

/// The picture encodings that are accepted from a camera.
enum class PixelFormat { yuy2, nv12, i420, mjpeg };

/// What a stream has agreed to deliver; sizes in pixels.
struct VideoFormat {
  PixelFormat pixels = PixelFormat::yuy2;
  int width = 0;
  int height = 0;
  bool operator==(const VideoFormat&) const = default;
};

/// A picture as the camera gave it, in memory that belongs to the camera. The planes lie within their buffers
/// for `format`; an MJPEG picture has one plane that holds `size` bytes of anything.
struct RawPicture {
  struct Plane {
    const std::uint8_t* data = nullptr;
    int stride = 0;        ///< bytes from row to row
    std::size_t size = 0;  ///< bytes
  };
  VideoFormat format;
  std::array<Plane, 3> planes;
};

}  // namespace sentrel
