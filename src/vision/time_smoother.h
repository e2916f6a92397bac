// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <optional>

namespace sentrel::vision {

/// Exponential smoothing in time, not in frames, of a value that may be missing for a while.
class TimeSmoother {
 public:
  /// `constantMs` is the time in which a step is followed to 63 %; 0 follows at once.
  double update(double value, std::int64_t timestampMs, double constantMs);
  void restart() { value_.reset(); }

 private:
  std::optional<double> value_;
  std::int64_t lastMs_ = 0;
};

/// The time constant of a sensitivity level, 1 (slow, smooth) to 5 (none), in ms.
[[nodiscard]] double smoothingConstantMs(int sensitivity);

}  // namespace sentrel::vision
