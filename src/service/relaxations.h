// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "detection/onlooker_filter.h"
#include "service/service_dependencies.h"
#include "support/published.h"
#include "support/registration.h"

namespace sentrel {

/// What weakens protection for a while, because the person wants it: a pause, guests, faces that are nobody,
/// and a screen that is shared. Each is published for the interface, and ends by itself. Main thread.
class Relaxations {
 public:
  static constexpr std::int64_t longestMs = 24 * 60 * 60 * 1000;

  /// Who is welcome beside the person.
  struct Stay {
    std::int64_t guests = 0;              ///< 1..OnlookerRules::mostGuests
    std::optional<std::int64_t> untilMs;  ///< by the program's clock; none is until the next lock
    bool operator==(const Stay&) const = default;
  };

  explicit Relaxations(const ServiceDependencies& dependencies) : uses_(dependencies) {}

  /// Judges the faces of each frame.
  OnlookerFilter filter;

  /// Closes the camera for `durationMs` (1..longestMs), counted from now also where a pause lasts already.
  /// Every coming back of the person ends it, too. False for any other duration.
  bool pause(std::int64_t durationMs);
  /// Ends the pause.
  void resume();
  /// When the pause ends by itself, by the program's clock; none without one.
  [[nodiscard]] const Published<std::optional<std::int64_t>>& pauseEndMs() const { return pauseEndMs_; }

  /// From now on as many more faces (1..OnlookerRules::mostGuests) are welcome, for `durationMs`
  /// (1..longestMs) or until the next lock. False for any other number or duration, and while the camera
  /// rests: guests would still be welcome to whoever comes back.
  bool welcome(std::int64_t guests, std::optional<std::int64_t> durationMs);
  /// One more than before is welcome.
  bool addGuest(std::optional<std::int64_t> durationMs) {
    return welcome((stay_.get() ? stay_.get()->guests : 0) + 1, durationMs);
  }
  /// Whether it would be refused at this moment, whatever the number.
  [[nodiscard]] bool refusesGuests() const;
  /// Nobody is welcome any more.
  void sendGuestsAway();
  [[nodiscard]] const Published<std::optional<Stay>>& stay() const { return stay_; }

  /// Whether others see the screen, while protection is switched on.
  [[nodiscard]] const Published<bool>& isScreenShared() const { return isScreenShared_; }
  /// What the person wants then.
  [[nodiscard]] WhenShared whenShared() const { return uses_.settingsRepo->options.get().whenShared; }

  /// Protection was switched on: a pause that lasted when the program ended goes on.
  void begin();
  /// What became of the camera, while protection is switched on.
  void follow(const CameraControl::Status& status);
  /// Protection was switched off, or the program ends, which leaves a pause for the next start.
  void end();

 private:
  void applySharing();
  void watchSharing();
  void tellSharing();
  void setPauseEnd(std::optional<std::int64_t> endMs);
  void forgetPause();

  const ServiceDependencies& uses_;
  Published<std::optional<std::int64_t>> pauseEndMs_;
  Published<std::optional<Stay>> stay_;
  Published<bool> isScreenShared_;
  std::vector<Registration> observed_;
  Registration sharing_;
  std::optional<std::string> cameraID_;
  bool toldSharing_ = false;
  Registration pauseTimer_;
  Registration stayTimer_;
};

}  // namespace sentrel
