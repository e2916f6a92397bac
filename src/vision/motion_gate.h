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

/// Decides which tile is worth a fine scan: those in which something has changed since they were last
/// scanned, the longest unscanned first; a tile where nothing changed comes up again after a while all the
/// same. Allocates nothing.
class MotionGate {
 public:
  /// Takes in a frame, of the size of the last one unless restarted, and gives the number of the tile to
  /// scan, or none. The tile counts as scanned.
  [[nodiscard]] std::optional<std::size_t> next(const Frame& frame, std::int64_t timestampMs);

  /// Every tile counts as never scanned.
  void restart();

 private:
  static constexpr int columns = 160;
  static constexpr int rows = 120;
  using Thumbnail = std::array<std::uint8_t, static_cast<std::size_t>(columns) * rows>;
  struct Scan {
    bool done = false;
    std::int64_t timestampMs = 0;
    Thumbnail seen{};
  };

  void shrink(const Frame& frame);
  [[nodiscard]] bool changed(std::size_t tile) const;
  template <class Visit>
  static void forEachRow(std::size_t tile, Visit visit);

  Thumbnail now_{};
  std::array<Scan, tiles.size()> scans_;
};

}  // namespace sentrel::vision
