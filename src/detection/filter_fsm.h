// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <optional>

#include "settings/filter_settings.h"
#include "support/published.h"

namespace sentrel {

/// The main face of one frame.
struct FaceData {
  float eulerY = 0;            ///< yaw in degrees; 0 when it could not be read
  float eulerX = 0;            ///< pitch estimate, scaled like degrees; 0 when it could not be read
  float boundingBoxRatio = 0;  ///< width of the face as a fraction of the image's width
  bool operator==(const FaceData&) const = default;
};

/// What one analysed frame says.
struct DetectionInput {
  std::int64_t timestampMs = 0;         ///< when the frame was accepted, on the program's time base
  std::int64_t faceCount = 0;           ///< faces at least as wide as the least width that counts
  std::optional<FaceData> primaryFace;  ///< the widest face whose pose was read
  bool operator==(const DetectionInput&) const = default;
};

/// Why protection is suspended.
struct PauseReason {
  enum class Kind {
    userPaused,  ///< by the person, for a time
    screenOff,   ///< display asleep, screen locked or session switched away
    lowBattery,  ///< charge below the person's threshold
  };

  static constexpr PauseReason userPaused(std::int64_t durationMs) { return {Kind::userPaused, durationMs}; }
  static constexpr PauseReason screenOff() { return {}; }
  static constexpr PauseReason lowBattery() { return {Kind::lowBattery}; }

  Kind kind = Kind::screenOff;
  std::int64_t durationMs = 0;  ///< of `userPaused`
  bool operator==(const PauseReason&) const = default;
};

/// What the filter is doing. Two states are equal when they are of one kind and carry the same values.
class FilterState {
 public:
  enum class Kind {
    nominal,      ///< the person is alone and looks at the screen
    inattention,  ///< the person has looked away for longer than the delay
    autoPaused,   ///< protection is suspended
    cameraBusy,   ///< the camera gives nothing; protection tries again
    inactive,     ///< protection is off
    alert,        ///< a second face looks at the screen
  };

  static constexpr FilterState nominal(std::int64_t intensity) { return {Kind::nominal, intensity}; }
  static constexpr FilterState inattention(std::int64_t intensity) { return {Kind::inattention, intensity}; }
  static constexpr FilterState autoPaused(PauseReason reason) { return {Kind::autoPaused, 0, reason}; }
  static constexpr FilterState cameraBusy(std::int64_t retryInMs) { return {Kind::cameraBusy, retryInMs}; }
  static constexpr FilterState inactive() { return {Kind::inactive}; }
  static constexpr FilterState alert() { return {Kind::alert}; }

  [[nodiscard]] constexpr Kind kind() const { return kind_; }
  [[nodiscard]] constexpr bool is(Kind kind) const { return kind_ == kind; }
  /// Only of `autoPaused`.
  [[nodiscard]] constexpr PauseReason reason() const { return reason_; }
  bool operator==(const FilterState&) const = default;

 private:
  constexpr FilterState(Kind kind, std::int64_t number = 0, PauseReason reason = PauseReason::screenOff())
      : kind_(kind), number_(number), reason_(reason) {}

  Kind kind_;
  // The filter strength at the transition to `nominal` or `inattention`; the retry of `cameraBusy`, in ms.
  std::int64_t number_;
  PauseReason reason_;
};

/// The overlay's opacity, 0..1, in `state` at `strength` (1..5; any other level counts as 3).
float filterAlpha(const FilterState& state, std::int64_t strength);

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

  /// A wait that leads to another state.
  struct Timer {
    enum class Kind {
      lookingAway,  ///< in `nominal`
      onlooker,     ///< before an alert
      recovery,     ///< nobody else is there any more, in `alert`
      held,         ///< an alert that kept coming back
    };
    Kind kind = Kind::lookingAway;
    std::int64_t lastedMs = 0;  ///< 0..lengthMs
    std::int64_t lengthMs = 0;
    bool operator==(const Timer&) const = default;
  };
  /// The timer that runs as of a frame at `nowMs`; none while nothing is waited for. `OnlookerFilter` knows
  /// how long an onlooker has been there.
  [[nodiscard]] std::optional<Timer> timer(std::int64_t nowMs) const;

  /// Never publishes a value equal to the one before.
  [[nodiscard]] const Published<FilterState>& state() const { return state_; }
  /// Enters `next` from outside, under the same rule: nothing happens when it is the current state.
  void setState(FilterState next) { enter(next); }

  /// `inactive` to `nominal`; nothing in any other state.
  void activate();
  void onSystemEvent(SystemEvent event);

  /// Hands the frame to the handler of the current state; the other states look at none.
  void handle(const DetectionInput& input);
  // One handler a state that looks at frames.
  void handleNominal(const DetectionInput& input);
  void handleInattention(const DetectionInput& input);
  void handleAlert(const DetectionInput& input);

 private:
  bool enter(FilterState next);
  void resume();
  bool confirmAlert(const DetectionInput& input);
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
