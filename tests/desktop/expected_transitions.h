// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "detection/detection_input.h"
#include "detection/filter_state.h"

namespace sentrel::test {

/// A change of state and the record that brought it about.
struct Transition {
  std::size_t record = 0;
  FilterState::Kind to = FilterState::Kind::nominal;
  bool operator==(const Transition&) const = default;
};

/// Every change that a film's records ask for, told from the records as a whole: for each record the rules
/// are read backwards over those before it, without the timers that the machine keeps. Starts in `nominal`.
/// Knows no suspensions and no lock-out of alerts that come back, so at most two alerts may be in the
/// records.
[[nodiscard]] std::vector<Transition> expectedTransitions(const std::vector<DetectionInput>& records,
                                                          std::int64_t inattentionDelayMs);

}  // namespace sentrel::test
