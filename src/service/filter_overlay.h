// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>

#include "detection/filter_fsm.h"
#include "service/service_dependencies.h"

namespace sentrel {

/// The distance, in whole centimetres from 20 to 300, for which the stripes are made: an estimate from the
/// width of the person's face (a fraction of the image's width, > 0), times the person's coefficient.
std::int64_t matrixDistanceFor(float boundingBoxRatio, float coefficient);

/// Whether `cm` differs enough from the distance in use to redraw the stripes: a head is never quite still.
bool isNewMatrixDistance(std::int64_t cm, std::int64_t currentCm);

/// Makes the overlay show the machine's state, the person's settings and the viewing distance. Main thread.
class FilterOverlay {
 public:
  explicit FilterOverlay(const ServiceDependencies& dependencies) : uses_(dependencies) {}

  /// How the looks are softened, because the person wants it or others see the screen.
  struct Softening {
    bool hidesStripes = false;  ///< the screens are covered in an alert alone
    bool noDarkening = false;   ///< an alert changes nothing
    bool operator==(const Softening&) const = default;
  };
  /// For what is shown next.
  Softening softening;

  /// Covers the screens, unless the person is away: the overlay would lie above a screen locker.
  void show(const FilterState& state);
  /// Covers or uncovers the screens, and switches the alert's looks on or off, as `state` asks for.
  void showState(const FilterState& state);
  void applyOpacity(const FilterState& state);
  /// The opacity of `state`, the stripes for the last distance, and the choice of screens.
  void applySettings(const FilterState& state);
  /// Makes the stripes for the distance of the person's face, where that has changed enough.
  void updateDistance(const FaceData& face);

 private:
  /// Whether it is an alert that is to be seen.
  [[nodiscard]] bool darkens(const FilterState& state) const {
    return state.is(FilterState::Kind::alert) && !softening.noDarkening;
  }
  void applyMatrix(std::int64_t distanceCm);

  const ServiceDependencies& uses_;
};

}  // namespace sentrel
