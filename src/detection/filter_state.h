// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>

namespace sentrel {

/// Why protection is suspended.
class PauseReason {
 public:
  enum class Kind {
    userPaused,  ///< by the person, for a time
    screenOff,   ///< display asleep, screen locked or session switched away
    lowBattery,  ///< charge below the person's threshold
  };

  static constexpr PauseReason userPaused(std::int64_t durationMs) { return {Kind::userPaused, durationMs}; }
  static constexpr PauseReason screenOff() { return {Kind::screenOff, 0}; }
  static constexpr PauseReason lowBattery() { return {Kind::lowBattery, 0}; }

  [[nodiscard]] constexpr Kind kind() const { return kind_; }
  /// Of `userPaused`; 0 otherwise.
  [[nodiscard]] constexpr std::int64_t durationMs() const { return durationMs_; }
  bool operator==(const PauseReason&) const = default;

 private:
  constexpr PauseReason(Kind kind, std::int64_t durationMs) : kind_(kind), durationMs_(durationMs) {}

  Kind kind_;
  std::int64_t durationMs_;
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
  /// The filter strength at the moment of the transition, of `nominal` and `inattention`; 0 otherwise.
  [[nodiscard]] constexpr std::int64_t intensity() const { return is(Kind::cameraBusy) ? 0 : number_; }
  /// Of `cameraBusy`; 0 otherwise.
  [[nodiscard]] constexpr std::int64_t retryInMs() const { return is(Kind::cameraBusy) ? number_ : 0; }
  /// Only of `autoPaused`.
  [[nodiscard]] constexpr PauseReason reason() const { return reason_; }
  bool operator==(const FilterState&) const = default;

 private:
  constexpr FilterState(Kind kind, std::int64_t number = 0, PauseReason reason = PauseReason::screenOff())
      : kind_(kind), number_(number), reason_(reason) {}

  Kind kind_;
  std::int64_t number_;
  PauseReason reason_;
};

/// The overlay's opacity, 0..1, in `state` at `strength` (1..5; any other level counts as 3).
float filterAlpha(const FilterState& state, std::int64_t strength);

}  // namespace sentrel
