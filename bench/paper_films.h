// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <cstddef>

#include "film.h"
#include "film_scenes.h"
#include "platform/face_detector.h"

namespace sentrel::bench {

/// Somebody who sits still behind the person and reads, or the same one's photograph on the wall.
struct PaperSeat {
  Person person;
  double faceWidth = 0;  ///< in pixels
  double swayMm = 1;     ///< standard deviation of a reader's sway, to the side
  unsigned seed = 1;     ///< of all that a reader does by chance
};

/// What becomes of people who read and of photographs when the person calls them nobody as often as they
/// alert.
class PaperFigures {
 public:
  static constexpr std::size_t seats = 4;

  /// Plays a film of 10 frames a second: the user at work and, at the sides behind, four who read or, where
  /// nobody `reads`, their photographs in changing light.
  void play(const Person& user, const std::array<PaperSeat, seats>& people, bool reads,
            const Degradation& camera, double minutes, FaceDetector& detector);

  [[nodiscard]] int readers() const { return readers_; }
  /// Readers who did not alert for a moment.
  [[nodiscard]] int takenForPaper() const { return takenForPaper_; }
  /// The percentage of the photographs' frames without an alert, from when each was first known for paper.
  /// One that never was counts with 0.
  [[nodiscard]] double keptQuiet() const { return posters_ == 0 ? 0 : 100 * quiet_ / posters_; }

 private:
  int readers_ = 0;
  int takenForPaper_ = 0;
  int posters_ = 0;
  double quiet_ = 0;
};

}  // namespace sentrel::bench
