// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <optional>

#include "detection/detection_input.h"
#include "detection/filter_state.h"
#include "settings/filter_settings.h"
#include "support/published.h"

namespace sentrel {

/// Decides, frame by frame, whether the screen is watched by its user alone. Pure: it has neither timers nor
/// a clock; all time comes from the frames, all suspensions from system events. Main thread.
class FilterFsm {
 public:
  /// What the machine is told about the system.
  struct SystemEvent {
    enum Kind { userPause, screenOff, screenOn, batteryLow, batteryRecovered, cameraBusy, cameraAvailable };

    // An event is its kind, except for the one that carries a duration.
    SystemEvent(Kind eventKind, std::int64_t pauseMs = 0)  // NOLINT(google-explicit-constructor)
        : kind(eventKind), durationMs(pauseMs) {}

    Kind kind;
    std::int64_t durationMs;  ///< of `userPause`
  };

  /// Read by every transition; replaced wholesale when the person changes something.
  FilterSettings settings;

  /// Never publishes a value equal to the one before.
  [[nodiscard]] const Published<FilterState>& state() const { return state_; }
  /// Enters `next` from outside, under the same rule: nothing happens when it is the current state.
  void setState(FilterState next) { enter(next); }

  /// `inactive` to `nominal`; nothing in any other state.
  void activate();
  void onSystemEvent(SystemEvent event);

  // One handler a state that looks at frames; the caller picks the one of the current state.
  void handleNominal(const DetectionInput& input);
  void handleInattention(const DetectionInput& input);
  void handleAlert(const DetectionInput& input);

 private:
  bool enter(FilterState next);
  void resume();
  void confirmAlert(std::int64_t now);
  void recordAlertEntry(std::int64_t nowMs);

  Published<FilterState> state_{FilterState::inactive()};

  // Timestamps of frames. 0 is "not timing": a frame stamped exactly 0 starts its timer anew.
  std::int64_t inattentionStartMs = 0;
  std::int64_t alertConfirmStartMs = 0;
  std::optional<std::int64_t> alertRecoveryStartMs;
  /// Reserved for a delay on the way back to `nominal`; no transition uses it.
  [[maybe_unused]] std::optional<std::int64_t> nominalReconfirmStartMs;
  std::int64_t alertFlapWindowStartMs = 0;
  std::int64_t alertFlapCount = 0;
  std::int64_t alertLockedUntilMs = 0;
};

}  // namespace sentrel
