// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>
#include <optional>

namespace sentrel {

/// Decides when a camera counts as interrupted: at once when it is lost, or after 2 s without a good frame;
/// and again every 2 s while it stays so. It rests while the camera is meant to be closed. One thread.
class InterruptionWatch {
 public:
  using Time = std::chrono::steady_clock::time_point;
  static constexpr std::chrono::milliseconds patience{2000};

  void open(Time now);
  void close();
  [[nodiscard]] bool isOpen() const { return open_; }

  /// The camera was exchanged on purpose: the new one has the whole time.
  void restart(Time now);
  /// A good frame came; true when it ends an interruption.
  [[nodiscard]] bool goodFrame(Time now);
  /// There is nothing to get frames from; true when that has to be reported.
  [[nodiscard]] bool lost(Time now);
  /// Time passes; true when an interruption has to be reported, for the first time or again.
  [[nodiscard]] bool tick(Time now);
  /// When to call `tick`; nothing while it rests.
  [[nodiscard]] std::optional<Time> nextTick() const;

 private:
  bool open_ = false;
  bool interrupted_ = false;
  Time since_{};  ///< the last good frame, or the last report
};

}  // namespace sentrel
