// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <random>
#include <span>
#include <string>
#include <vector>

#include "linux/camera/pipewire_loop.h"
#include "linux/camera/stream_format.h"

struct pw_stream;
struct spa_buffer;
struct spa_data;
struct spa_meta_header;

namespace sentrel::test {

/// A camera that exists only in PipeWire: a Video/Source node that shows pictures of the caller's and
/// misbehaves on demand. It uses the PipeWire daemon that the environment names at the moment of `appear`.
/// All functions may be called on any thread.
class VirtualCamera {
 public:
  using Format = PixelFormat;

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
    /// As it offers them, the first one before the others. A source needs modes of one size.
    std::vector<Mode> modes = {{}};
    /// What it says that it is, where that is something else than a camera.
    std::string mediaClass = "Video/Source";
    std::string role = "Camera";  ///< empty: none
    int jitterMs = 0;             ///< each frame comes up to this much before or after its time
  };

  enum class Fault {
    none,
    zeroLength,     ///< no bytes
    shortChunk,     ///< half of the bytes
    corruptedFlag,  ///< marked as damaged by the producer
    garbage,        ///< random bytes, which only a compressed format can notice
    small,          ///< never more bytes than 640x480 pixels have
    frozen,         ///< without the noise by which no two pictures of a real camera are the same
  };

  /// Gives the picture of a frame: `width` x `height` BGRA pixels without padding, valid until the next call.
  /// The index counts frame periods since the first frame that was taken from this source, also those in
  /// which nobody watched. Called on the camera's own thread.
  using Source = std::function<const std::uint8_t*(std::int64_t frameIndex)>;

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
  /// From now on it offers these modes, also to whoever has it open. The source is to fit them.
  void setModes(std::vector<Mode> modes);
  void setFault(Fault fault);

  /// Whether somebody has the camera open: a real one would show its light.
  [[nodiscard]] bool isOpen() const;
  /// The mode that was agreed on last; nothing before.
  [[nodiscard]] std::optional<Mode> agreedMode() const;

 private:
  struct Listener;
  using Clock = std::chrono::steady_clock;

  // On the camera's PipeWire thread.
  void connectStream();
  [[nodiscard]] std::vector<const spa_pod*> offer(std::vector<std::uint8_t>& storage) const;
  void agree(const spa_pod* format);
  void stateChanged();
  void scheduleNext();
  void present();
  void fill(spa_buffer& buffer, Clock::time_point now);
  void addNoise(spa_data& data);
  void spoil(spa_data& data, spa_meta_header* header);

  const Options options_;
  std::vector<Mode> modes_;
  PipeWireLoop loop_;
  // On that thread, or under the loop's lock.
  LoopTimer timer_;
  std::unique_ptr<Listener> listener_;
  pw_context* context_ = nullptr;
  pw_core* core_ = nullptr;
  pw_stream* stream_ = nullptr;
  bool listed_ = false;
  bool open_ = false;
  std::string error_;
  std::optional<Mode> mode_;  // the agreed one
  std::vector<std::uint8_t> grey_;
  Source source_;
  std::optional<Clock::time_point> sourceBegan_;
  bool playing_ = true;
  Fault fault_ = Fault::none;
  Clock::time_point streamingSince_;
  std::int64_t nextPeriod_ = 0;
  std::minstd_rand random_{20};
};

/// Bytes that a picture of this size takes at most.
[[nodiscard]] std::size_t encodedCapacity(PixelFormat format, int width, int height);
/// Bytes from row to row of the first plane; 0 for a compressed format.
[[nodiscard]] int encodedStride(PixelFormat format, int width);
/// Encodes BGRA pixels as a camera would, without padding, into `target`; gives the bytes written, or 0 where
/// they do not fit.
std::size_t encodePicture(PixelFormat format, const std::uint8_t* bgra, int width, int height,
                          std::span<std::uint8_t> target);
/// The frame that lies in such bytes, for as long as they are there.
[[nodiscard]] RawFrame encodedFrame(const VideoFormat& format, std::span<const std::uint8_t> bytes);

}  // namespace sentrel::test
