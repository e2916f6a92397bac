// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "detection/filter_fsm.h"

namespace sentrel {

/// The state as other programs read it on the bus; part of the program's interface, never translated.
constexpr const char* stateName(const FilterState& state) {
  switch (state.kind()) {
    case FilterState::Kind::nominal:
      return "nominal";
    case FilterState::Kind::inattention:
      return "inattention";
    case FilterState::Kind::autoPaused:
      return "autoPaused";
    case FilterState::Kind::cameraBusy:
      return "cameraBusy";
    case FilterState::Kind::inactive:
      return "inactive";
    case FilterState::Kind::alert:
      return "alert";
  }
  return "";
}

}  // namespace sentrel
