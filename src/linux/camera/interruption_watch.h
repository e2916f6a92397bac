// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>
#include <optional>
#include <utility>

namespace sentrel {

/// Decides when a camera counts as interrupted: at once when it is lost, or after 2 s without a good frame;
/// and again every 2 s while it stays so. It rests while the camera is meant to be closed. One thread.
class InterruptionWatch {
 public:
  using Time = std::chrono::steady_clock::time_point;
  static constexpr std::chrono::milliseconds timeout{2000};

  /// The camera is meant to be open from now on.
  void open(Time now) {
    open_ = true;
    interrupted_ = false;
    since_ = now;
  }
  void close() { open_ = interrupted_ = false; }
  [[nodiscard]] bool isOpen() const { return open_; }

  /// The camera was exchanged on purpose: the new one has the whole time.
  void restart(Time now) {
    if (open_ && !interrupted_) since_ = now;
  }
  /// A good frame came; true when it ends an interruption.
  [[nodiscard]] bool goodFrame(Time now) {
    if (!open_) return false;
    since_ = now;
    return std::exchange(interrupted_, false);
  }
  /// There is nothing to get frames from; true when that has to be reported.
  [[nodiscard]] bool lost(Time now) { return open_ && !interrupted_ && interrupt(now); }
  /// Time passes; true when an interruption has to be reported, for the first time or again.
  [[nodiscard]] bool tick(Time now) { return open_ && now - since_ >= timeout && interrupt(now); }
  /// When to call `tick`; nothing while it rests.
  [[nodiscard]] std::optional<Time> nextTick() const {
    return open_ ? std::optional(since_ + timeout) : std::nullopt;
  }

 private:
  bool interrupt(Time now) {
    since_ = now;
    return interrupted_ = true;
  }

  bool open_ = false;
  bool interrupted_ = false;
  Time since_{};  // the last good frame, or the last report
};

}  // namespace sentrel
