// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>

#include "support/frame.h"
#include "vision/region_sampler.h"

namespace sentrel::vision {

/// The piece of a frame that a fine scan looks at, on a field of 640 x 480 that is laid over frames of any
/// size.
struct Tile {
  static constexpr int width = 256;
  static constexpr int height = 224;
  int x = 0;
  int y = 0;
};

/// Three by three tiles that overlap by the width of the largest face that only they can find.
inline constexpr std::array<Tile, 9> tiles{
    {{0, 0}, {192, 0}, {384, 0}, {0, 128}, {192, 128}, {384, 128}, {0, 256}, {192, 256}, {384, 256}}};

/// How many of the frame's pixels one unit of the field is.
[[nodiscard]] double fieldScale(const Frame& frame);

/// Decides what of a frame is worth a scan: where something has changed since the last scan of that place.
/// Where nothing changed a scan comes up again after a while all the same. Allocates nothing once made.
class MotionGate {
 public:
  /// Takes in a frame, of the size of the last one unless restarted.
  void observe(const Frame& frame, std::int64_t timestampMs);

  /// The number of the tile of the observed frame to scan at full resolution, or none. It counts as scanned.
  /// Tiles where something moves come first, but however much moves there, the others have their turn.
  [[nodiscard]] std::optional<std::size_t> takeTile();

  /// Whether the observed frame as a whole is due for a coarse scan, or `wanted` for another reason. Then it
  /// counts as scanned.
  [[nodiscard]] bool takeWhole(bool wanted);

  /// Everything counts as never scanned, and what was seen is overwritten.
  void restart();

 private:
  static constexpr int columns = 160;
  static constexpr int rows = 120;
  using Thumbnail = std::array<std::uint8_t, static_cast<std::size_t>(columns) * rows>;
  struct Scan {
    bool done = false;
    std::int64_t timestampMs = 0;
  };
  static constexpr std::size_t whole = tiles.size();  // the scan behind those of the tiles

  /// A part of the thumbnail, in cells.
  struct Area {
    int left = 0;
    int top = 0;
    int width = columns;
    int height = rows;
  };

  void shrink(const Frame& frame);
  [[nodiscard]] static Area areaOf(const Tile& tile);
  [[nodiscard]] bool changed(std::size_t scan, const Area& area) const;
  void take(std::size_t scan, const Area& area);
  [[nodiscard]] bool olderThan(const Scan& scan, std::int64_t ms) const;
  [[nodiscard]] std::int64_t urgency(std::size_t tile) const;
  template <class Visit>
  static void forEachRow(const Area& area, Visit visit);

  FrameMemory<Thumbnail> now_{1};
  FrameMemory<Thumbnail> seen_{whole + 1};  // of each scan, when it was last done
  std::int64_t nowMs_ = 0;
  std::optional<std::int64_t> beganMs_;
  bool dark_ = false;
  std::array<Scan, whole + 1> scans_;
};

}  // namespace sentrel::vision
