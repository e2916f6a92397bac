// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

struct spa_buffer;
struct spa_pod;

namespace sentrel {

/// The encodings that are accepted from a camera. Of those with colours for every pixel the names are
/// PipeWire's: the order of the bytes in memory.
enum class PixelFormat { yuy2, nv12, i420, bgrx, rgbx, bgr, rgb, mjpeg };

/// Bytes of a pixel where all of them lie in one plane; 0 for the other encodings.
[[nodiscard]] constexpr int pixelBytes(PixelFormat pixels) {
  switch (pixels) {
    case PixelFormat::yuy2:
      return 2;
    case PixelFormat::bgrx:
    case PixelFormat::rgbx:
      return 4;
    case PixelFormat::bgr:
    case PixelFormat::rgb:
      return 3;
    default:
      return 0;
  }
}

/// What a stream has agreed to deliver; sizes in pixels.
struct VideoFormat {
  PixelFormat pixels = PixelFormat::yuy2;
  int width = 0;
  int height = 0;
  bool operator==(const VideoFormat&) const = default;
};

/// A frame as the camera gave it, in memory that belongs to the camera. The planes lie within their buffers
/// for `format`; an MJPEG frame has one plane that holds `size` bytes of anything.
struct RawFrame {
  struct Plane {
    const std::uint8_t* data = nullptr;
    int stride = 0;        ///< bytes from row to row
    std::size_t size = 0;  ///< bytes
  };
  VideoFormat format;
  std::array<Plane, 3> planes;
};

/// What is proposed to a camera's stream; may be moved.
struct StreamParameters {
  std::vector<std::uint8_t> storage;       ///< what the parameters lie in
  std::vector<const spa_pod*> parameters;  ///< best first
};

/// Whether a camera is asked for more pixels than are wanted, where they cost little.
enum class Pixels { asWanted, moreIfCheap };

/// The formats that are offered to a camera, best first: the wanted size, in pixels, before others near it
/// before any, about 30 frames a second before any rate, uncompressed before MJPEG. One parameter for each,
/// because PipeWire tries them in order and takes the first that the camera knows. Before all of them comes
/// 1280x720, if it is asked for: uncompressed and fluent, as decoding that many costs more than all else.
[[nodiscard]] StreamParameters formatOffer(int width, int height, Pixels pixels);

/// The format that was agreed on; nothing where it is none of those offered.
[[nodiscard]] std::optional<VideoFormat> parseFormat(const spa_pod* parameter);

/// What the buffers of a stream must be: mappable memory with a header, and enough of them to hold the newest
/// and one that is being converted while the camera fills others.
[[nodiscard]] StreamParameters bufferRequest();

/// Validates every buffer of one stream before anything reads its pixels: another process wrote it, and it
/// may hold anything. One thread.
class BufferCheck {
 public:
  /// The frame in `buffer`, or nothing when the buffer is empty, short, out of its bounds, wrongly strided,
  /// marked as corrupted, or older than the one before it.
  [[nodiscard]] std::optional<RawFrame> check(const spa_buffer& buffer, const VideoFormat& format);

 private:
  [[nodiscard]] bool timestampAdvances(const spa_buffer& buffer);

  std::int64_t lastTimestampNs_ = 0;
};

}  // namespace sentrel
