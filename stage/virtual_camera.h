// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace sentrel::test {

/// A camera that exists only in PipeWire: a Video/Source node that plays pictures of the caller's, keeps a
/// log of them, and misbehaves on demand. It uses the PipeWire daemon that the environment names at the
/// moment of `appear`. All functions may be called on any thread.
class VirtualCamera {
 public:
  enum class Format { yuy2, nv12, i420, mjpeg };

  /// One way in which a camera can deliver.
  struct Mode {
    Format format = Format::yuy2;
    int width = 640;   ///< pixels, even
    int height = 480;  ///< pixels, even
    int fps = 30;
    bool operator==(const Mode&) const = default;
  };

  struct Options {
    std::string name = "virtual_camera";         ///< node.name, the camera's unique id
    std::string description = "Virtual camera";  ///< for people
    std::string location = {};                   ///< "front" or "back"; empty: unknown
    int width = 640;                             ///< pixels, even
    int height = 480;                            ///< pixels, even
    int fps = 30;
    Format format = Format::yuy2;
    /// Offered behind the mode above, for whoever prefers them. A source needs modes of one size.
    std::vector<Mode> otherModes = {};
    int jitterMs = 0;  ///< each frame comes up to this much before or after its time
  };

  enum class Fault {
    none,
    zeroLength,           ///< no bytes
    shortChunk,           ///< half of the bytes
    wrongStride,          ///< rows said to be shorter than they are
    otherSize,            ///< a picture of a quarter of the agreed size
    offsetBeyond,         ///< bytes said to lie behind the end of the buffer
    corruptedFlag,        ///< marked as damaged by the producer
    garbage,              ///< random bytes, which only a compressed format can notice
    backwardsTimestamps,  ///< each frame is older than the one before
  };

  /// Gives the picture of a frame: `width` x `height` BGRA pixels without padding, valid until the next call.
  /// The index counts frame periods since the first frame that was played from this source, also those in
  /// which nobody watched. Called on the camera's own thread.
  using Source = std::function<const std::uint8_t*(std::int64_t frameIndex)>;

  /// A frame as it was handed to PipeWire.
  struct Presented {
    std::int64_t frameIndex = 0;
    std::chrono::steady_clock::time_point at;
  };

  /// Not listed before `appear`. Shows a grey picture until a source is set.
  explicit VirtualCamera(Options options);
  ~VirtualCamera();
  VirtualCamera(const VirtualCamera&) = delete;
  VirtualCamera& operator=(const VirtualCamera&) = delete;

  /// Plugs the camera in and waits until the daemon knows it; throws std::runtime_error when that fails.
  void appear();
  /// Pulls it out; a later `appear` brings it back under the same name.
  void vanish();

  void setSource(Source source);
  /// While it does not play, the node stays and gives no frames.
  void setPlaying(bool playing);
  void setFault(Fault fault);

  /// Whether somebody has the camera open: a real one would show its light.
  [[nodiscard]] bool isOpen() const;
  /// The mode that was agreed on last; nothing before.
  [[nodiscard]] std::optional<Mode> agreedMode() const;
  /// Every frame since the last `clearLog`, also the faulty ones.
  [[nodiscard]] std::vector<Presented> presented() const;
  void clearLog();

 private:
  class Machine;
  std::unique_ptr<Machine> machine_;
};

}  // namespace sentrel::test
