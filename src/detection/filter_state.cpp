// SPDX-License-Identifier: Apache-2.0
#include "detection/filter_state.h"

#include <algorithm>

namespace sentrel {

namespace {

float baseOpacity(std::int64_t strength) {
  switch (strength) {
    case 1:
      return 0.55F;
    case 2:
      return 0.65F;
    case 4:
      return 0.85F;
    case 5:
      return 0.95F;
    default:
      return 0.75F;
  }
}

}  // namespace

float filterAlpha(const FilterState& state, std::int64_t strength) {
  const float base = baseOpacity(strength);
  switch (state.kind()) {
    case FilterState::Kind::nominal:
      return base * 0.55F;
    case FilterState::Kind::inattention:
      return base * 0.8F;
    case FilterState::Kind::alert:
      return std::min(base, 0.8F);
    case FilterState::Kind::autoPaused:
    case FilterState::Kind::cameraBusy:
    case FilterState::Kind::inactive:
      break;
  }
  return 0;
}

}  // namespace sentrel
