// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>

namespace sentrel {

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
