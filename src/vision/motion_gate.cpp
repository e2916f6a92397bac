// SPDX-License-Identifier: Apache-2.0
#include "vision/motion_gate.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <numeric>

#include <string.h>

namespace sentrel::vision {
namespace {

constexpr int fieldWidth = 640;
constexpr int fieldHeight = 480;
constexpr int cell = 4;
// Well above what a camera's noise leaves of a mean over 16 pixels. In a dark picture every change is
// smaller, as everything is.
constexpr int darkLevel = 48;
constexpr int changedLevel = 10;
constexpr int changedLevelInTheDark = 2;
constexpr int brightnessPerLevel = 8;
// About the area of the smallest face that counts.
constexpr int changedCells = 6;
// What stands still is scanned again after this time, for whatever the first look missed.
constexpr std::int64_t rescanTileMs = 2000;
constexpr std::int64_t rescanWholeMs = 1000;
// How much sooner a tile is scanned in which something moves, or which was never scanned, than one that only
// waits for its turn.
constexpr std::int64_t movedUrgency = 8;
constexpr std::int64_t unseenUrgency = 4;

}  // namespace

double fieldScale(const Frame& frame) {
  return std::max(static_cast<double>(frame.width()) / fieldWidth,
                  static_cast<double>(frame.height()) / fieldHeight);
}

void MotionGate::restart() {
  for (Scan& scan : scans_) scan.done = false;
  now_.wipe();
  seen_.wipe();
  beganMs_.reset();
}

void MotionGate::shrink(const Frame& frame) {
  const double scale = fieldScale(frame);
  // Where the field's columns and rows are in the frame: the nearest pixel, as a byte offset, or beyond it.
  std::array<int, fieldWidth> offset{};
  int known = 0;
  while (known < fieldWidth) {
    const int x = static_cast<int>((known + 0.5) * scale);
    if (x >= frame.width()) break;
    offset[static_cast<std::size_t>(known++)] = x * 4;
  }
  known = known / cell * cell;
  now_[0].fill(0);
  std::array<std::uint32_t, columns> sums{};
  // A row of the picture must not stay behind on the stack.
  const auto forget = [](std::array<std::uint32_t, columns>* row) { explicit_bzero(row, sizeof *row); };
  const std::unique_ptr<std::array<std::uint32_t, columns>, decltype(forget)> forgotten(&sums, forget);
  for (int row = 0; row < rows; ++row) {
    sums.fill(0);
    for (int k = 0; k < cell; ++k) {
      const int y = static_cast<int>((row * cell + k + 0.5) * scale);
      if (y >= frame.height()) return;
      const std::uint8_t* line = frame.row(y);
      for (int x = 0; x < known; ++x) {
        const std::uint8_t* pixel = line + offset[static_cast<std::size_t>(x)];
        // Brightness, coarsely: green counts twice.
        sums[static_cast<std::size_t>(x / cell)] +=
            static_cast<std::uint32_t>(pixel[0] + 2 * pixel[1] + pixel[2]);
      }
    }
    std::uint8_t* to = now_[0].data() + static_cast<std::ptrdiff_t>(row) * columns;
    for (std::size_t column = 0; column < columns; ++column) {
      to[column] = static_cast<std::uint8_t>(sums[column] / (4 * cell * cell));
    }
  }
}

MotionGate::Area MotionGate::areaOf(const Tile& tile) {
  return {tile.x / cell, tile.y / cell, Tile::width / cell,
          std::min(rows - tile.y / cell, Tile::height / cell)};
}

template <class Visit>
void MotionGate::forEachRow(const Area& area, Visit visit) {
  for (int row = area.top; row < area.top + area.height; ++row) {
    visit(static_cast<std::size_t>(row) * columns + static_cast<std::size_t>(area.left));
  }
}

bool MotionGate::changed(std::size_t scan, const Area& area) const {
  int count = 0;
  forEachRow(area, [&](std::size_t first) {
    for (std::size_t i = first; i < first + static_cast<std::size_t>(area.width); ++i) {
      const int now = now_[0][i];
      const int seen = seen_[scan][i];
      const int allowed =
          dark_ ? std::min(changedLevel, changedLevelInTheDark + std::max(now, seen) / brightnessPerLevel)
                : changedLevel;
      count += std::abs(now - seen) > allowed ? 1 : 0;
    }
  });
  return count >= changedCells;
}

void MotionGate::take(std::size_t scan, const Area& area) {
  scans_[scan] = {true, nowMs_};
  forEachRow(area, [&](std::size_t first) {
    std::memcpy(seen_[scan].data() + first, now_[0].data() + first, static_cast<std::size_t>(area.width));
  });
}

bool MotionGate::olderThan(const Scan& scan, std::int64_t ms) const {
  const std::int64_t age = nowMs_ - scan.timestampMs;
  return age >= ms || age < 0;
}

void MotionGate::observe(const Frame& frame, std::int64_t timestampMs) {
  shrink(frame);
  nowMs_ = timestampMs;
  if (!beganMs_ || *beganMs_ > nowMs_) beganMs_ = nowMs_;
  dark_ = std::accumulate(now_[0].begin(), now_[0].end(), 0) < darkLevel * columns * rows;
}

bool MotionGate::takeWhole(bool wanted) {
  const Area everything;
  if (!wanted && scans_[whole].done && !olderThan(scans_[whole], rescanWholeMs) &&
      !changed(whole, everything))
    return false;
  take(whole, everything);
  return true;
}

std::int64_t MotionGate::urgency(std::size_t tile) const {
  const Scan& scan = scans_[tile];
  if (!scan.done) return unseenUrgency * (nowMs_ - *beganMs_ + 1);
  const std::int64_t age = std::abs(nowMs_ - scan.timestampMs);
  if (changed(tile, areaOf(tiles[tile]))) return movedUrgency * age;
  return olderThan(scan, rescanTileMs) ? age : 0;
}

std::optional<std::size_t> MotionGate::takeTile() {
  std::optional<std::size_t> best;
  std::int64_t most = 0;
  for (std::size_t tile = 0; tile < tiles.size(); ++tile) {
    const std::int64_t urgent = urgency(tile);
    if (urgent <= most) continue;
    best = tile;
    most = urgent;
  }
  if (best) take(*best, areaOf(tiles[*best]));
  return best;
}

}  // namespace sentrel::vision
