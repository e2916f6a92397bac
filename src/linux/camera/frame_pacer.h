// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>
#include <optional>

namespace sentrel {

/// When the next frame may be handed on: one pace after the last, whenever the frames arrive. A consumer that
/// drops what comes too early then drops nothing, and its rate does not fall to the next divisor of the
/// camera's. One thread.
class FramePacer {
 public:
  using Time = std::chrono::steady_clock::time_point;

  void setPace(std::chrono::milliseconds pace) { pace_ = pace; }
  /// The next frame may go at once.
  void reset() { last_.reset(); }
  void handedOn(Time at) { last_ = at; }
  [[nodiscard]] Time due() const { return last_ ? *last_ + pace_ : Time{}; }

 private:
  std::chrono::milliseconds pace_{0};
  std::optional<Time> last_;
};

}  // namespace sentrel
