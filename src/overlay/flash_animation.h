// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>

namespace sentrel {

/// The timing curve of the interface's animations: the progress (0..1) reached after the share `t` of the
/// duration; `t` outside 0..1 counts as its nearer end. A cubic Bezier curve from (0,0) to (1,1) with the
/// usual control points (0.42,0) and (0.58,1).
[[nodiscard]] double easeInOut(double t);

/// The level of the alert's flash over time: while it flashes, up to 0.3 in 0.4 s and back to 0 in 0.4 s,
/// with no end; once stopped, out to 0 within 0.3 s. Each movement begins where the one before left off.
/// Where the person wants little movement it rises once, half as high, and stays.
class FlashAnimation {
 public:
  static constexpr double peakAlpha = 0.3;
  enum class Motion { full, reduced };

  void start(std::int64_t nowMs, Motion motion = Motion::full);
  void stop(std::int64_t nowMs);
  [[nodiscard]] bool isFlashing() const { return flashing_; }
  /// Whether the level will not change any more by itself.
  [[nodiscard]] bool isSettledAt(std::int64_t nowMs) const;
  /// 0..0.3.
  [[nodiscard]] double alphaAt(std::int64_t nowMs) const;

 private:
  void change(bool flashing, std::int64_t nowMs);

  bool flashing_ = false;
  Motion motion_ = Motion::full;
  double fromAlpha_ = 0;
  std::int64_t sinceMs_ = 0;
};

}  // namespace sentrel
