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
  int x = 0;
  int y = 0;
  int width = fullWidth;
  int height = fullHeight;

  static constexpr int fullWidth = 256;
  static constexpr int fullHeight = 224;
};

/// Three by three tiles that overlap by the width of the largest face that only they can find, then five by
/// four that are enlarged by half, for faces that are too small for the others.
inline constexpr std::size_t fullTiles = 9;
inline constexpr std::array<Tile, fullTiles + 20> tiles = [] {
  std::array<Tile, fullTiles + 20> all;
  for (int i = 0; i < 9; ++i) all[static_cast<std::size_t>(i)] = {i % 3 * 192, i / 3 * 128};
  constexpr int width = Tile::fullWidth * 2 / 3;
  constexpr int height = Tile::fullHeight * 2 / 3;
  for (int i = 0; i < 20; ++i)
    all[fullTiles + static_cast<std::size_t>(i)] = {i % 5 * (640 - width) / 4, i / 5 * (480 - height) / 3,
                                                    width, height};
  return all;
}();

/// How many of the frame's pixels one unit of the field is.
[[nodiscard]] double fieldScale(const Frame& frame);

/// Decides what of a frame is worth a scan: where something has changed since the last scan of that place.
/// Where nothing changed a scan comes up again after a while all the same.
///
/// A person at work never sits quite still. Where that person is known to be, a place that moves all the time
/// is no news: it alone asks for few scans. Whatever else changes, also there, is scanned at once.
///
/// Allocates nothing once made.
class MotionGate {
 public:
  /// Takes in a frame, of the size of the last one unless restarted. `user` is the box of the known person's
  /// face, in the frame's pixels.
  void observe(const Frame& frame, std::int64_t timestampMs, const std::optional<Region>& user = {});

  /// The piece of the observed frame to scan at full resolution, or none. It counts as scanned. Tiles with
  /// news come first, but however much moves there, the others have their turn.
  [[nodiscard]] std::optional<Tile> takeTile();

  /// Whether the observed frame as a whole is due for a coarse scan, or `wanted` for another reason. Then it
  /// counts as scanned.
  [[nodiscard]] bool takeWhole(bool wanted);

  /// Whether nothing has moved in a region of the frame, beyond the camera's noise, after the frame of that
  /// time.
  [[nodiscard]] bool calmSince(const Region& region, std::int64_t timestampMs) const;

  /// For how long not a single cell of a region has moved, up to about a minute; 0 where small motion would
  /// not show: in the dark, and where there is little contrast for so much noise.
  [[nodiscard]] std::int64_t stillMs(const Region& region) const;

  /// The share of a region that moved since the frame before.
  [[nodiscard]] double movedShare(const Region& region) const;

  /// Whether there is news in frame after frame, so that scans must take turns.
  [[nodiscard]] bool isBusy() const { return newsInARow_ >= busyFrames; }

  /// Whether some place was never scanned in one of the ways.
  [[nodiscard]] bool hasBacklog() const;

  /// Everything counts as never scanned, and what was seen is overwritten.
  void restart();

 private:
  static constexpr int columns = 160;
  static constexpr int rows = 120;
  static constexpr int busyFrames = 10;
  template <class Value>
  using Cells = std::array<Value, static_cast<std::size_t>(columns) * rows>;
  using Bytes = Cells<std::uint8_t>;
  using Quiet = std::uint16_t;

  /// A thumbnail of the frame, and what is known of each of its cells.
  struct Maps {
    Bytes now;       // brightness
    Bytes before;    // the brightness in the last frame
    Bytes still;     // the brightness when the cell last moved
    Bytes seenFine;  // the brightness when the cell was last scanned
    Bytes seenWhole;
    Bytes user;      // whether the known person is there
    Bytes activity;  // how much it moved lately
    Bytes habit;     // whether the known person moves there all the time
    Bytes changed;   // whether it differs from seenFine
    Bytes changedWhole;
    Bytes news;            // whether that is worth a scan at once
    Cells<Quiet> quietMs;  // since the cell last moved
  };
  struct Scan {
    int count = 0;  // since there was news
    std::int64_t timestampMs = 0;
  };
  /// A part of the thumbnail, in cells.
  struct Area {
    int left = 0;
    int top = 0;
    int width = columns;
    int height = rows;
  };

  void shrink(const Frame& frame);
  void findUser(const std::optional<Region>& user);
  void trackMotion(std::int64_t elapsedMs);
  void findNews();
  /// Flags each cell that differs from `seen`, in the dark by the less the darker it is.
  void flagChanged(const Bytes& seen, Bytes& changed) const;
  static void trackCells(Maps& maps, int most, int elapsedMs);
  [[nodiscard]] static Area areaOf(const Tile& tile);
  [[nodiscard]] Area areaOf(const Region& region) const;
  template <class Visit>
  static void forEachRow(const Area& area, Visit visit);
  /// The number of cells of which `is` says so, by their index.
  template <class Is>
  [[nodiscard]] static int count(const Area& area, Is is);
  /// How many cells moved within the last milliseconds.
  [[nodiscard]] int movedCells(const Area& area, std::int64_t ms, bool alsoUser = true) const;
  /// Whether the flags are set that a face's area has.
  [[nodiscard]] static bool isMuch(const Bytes& flags, const Area& area);
  [[nodiscard]] std::int64_t age(const Scan& scan) const { return nowMs_ - scan.timestampMs; }
  [[nodiscard]] std::int64_t urgency(std::size_t tile) const;
  [[nodiscard]] bool needsEnlarging(std::size_t tile) const;

  FrameMemory<Maps> maps_{1};
  double scale_ = 1;
  int noise_ = 0;
  bool dark_ = false;
  std::int64_t nowMs_ = 0;
  std::optional<std::int64_t> beganMs_;
  std::array<Scan, tiles.size()> scans_;
  Scan whole_;
  std::int64_t userScanMs_ = 0;           // the last that only the user's motion asked for
  std::size_t enlargedTurn_ = fullTiles;  // the one tile that may be enlarged in this frame
  int newsInARow_ = 0;
  bool tookWhole_ = false;  // for the last frame, not because it was wanted
};

}  // namespace sentrel::vision
